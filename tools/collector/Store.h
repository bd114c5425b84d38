#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/collector/DatabaseFile.h"
#include "tools/collector/Record.h"
#include "tools/collector/RecordMemory.h"

namespace kx::collector {

/// Which requests are asked for; all that is absent does not matter.
struct RecordFilter {
  std::optional<std::string> kind;
  std::optional<bool> accepted;
  std::optional<std::string> device;
  std::optional<std::string> bundle;
  std::optional<std::string> text;  ///< somewhere in the unpacked text, the target or the reason, in any case
  std::optional<bool> warned;
  std::optional<std::uint64_t> after;   ///< this id
  std::optional<std::uint64_t> before;  ///< this id
};

struct RecordCounts {
  std::uint64_t all = 0;
  std::uint64_t good = 0;
  std::uint64_t bad = 0;
  std::uint64_t logins = 0;
  std::uint64_t messages = 0;
  std::uint64_t warned = 0;
};

struct RecordPage {
  std::vector<RecordSummary> requests;
  bool more = false;
};

/// A device, and one of the applications on it.
struct KnownDevice {
  std::string device;
  std::optional<std::string> bundle;
  std::int64_t first = 0;  ///< when its first message came, in milliseconds since 1970
  std::int64_t last = 0;
  std::uint64_t messages = 0;
  std::uint64_t refused = 0;  ///< of them
};

/// The requests that the collector has had: in memory, or in a file over restarts. SQLite finds what is asked
/// for, in either.
///
/// Whoever writes is not held up by whoever reads: in memory nobody holds it for long, and to a file a thread
/// of its own writes what is queued, many changes at a time. What is read has all that was written before.
/// All of it may be called on any thread.
class Store {
 public:
  static constexpr std::size_t defaultKeep = 100000;
  /// Of all that is kept in memory, in bytes.
  static constexpr std::size_t defaultMaximumSize = std::size_t{512} << 20;

  /// Is told whether it could be written, a null pointer if so.
  using Written = std::function<void(const std::exception_ptr &failure)>;

  /// The newest `keep` requests are kept, and without a file as many of them as fit into `maximumSize` bytes.
  /// Throws DatabaseError when the file cannot be used.
  explicit Store(const std::optional<std::filesystem::path> &file = std::nullopt,
                 std::size_t keep = defaultKeep, std::size_t maximumSize = defaultMaximumSize);
  ~Store();
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  /// Gives the request its id, and keeps it. `written` is called when a killed process would not lose it any
  /// more, on a thread of the store, or could not be written; without a file at once. It must not throw.
  std::uint64_t append(Record record, Written written = {});
  /// The answer to a request has gone out.
  void setSendTime(std::uint64_t id, std::int64_t microseconds);
  /// Something about a request turned out to be suspicious later on.
  void addWarning(std::uint64_t id, const std::string &warning);
  /// Forgets all requests; ids go on.
  void reset();

  RecordCounts counts(const RecordFilter &filter);
  /// `limit` of them at the most, by their ids.
  RecordPage requests(const RecordFilter &filter, std::size_t limit, bool newestFirst = false);
  std::optional<Record> record(std::uint64_t id);
  /// Whole ones, oldest first.
  std::vector<Record> records(const RecordFilter &filter, std::size_t limit);
  /// The message of the same device before that one.
  std::optional<std::uint64_t> previous(const RecordSummary &of);
  /// Latest first.
  std::vector<KnownDevice> devices();
  /// The ids of the latest messages that were accepted, oldest first: their "id".
  std::vector<std::string> latestEventIds(std::size_t count);

  /// The id of the latest request, whether it is still there or not.
  std::uint64_t lastId() const;
  /// How often all was forgotten.
  std::uint64_t resets() const { return resets_; }
  /// The requests that have changed after the `from`th change, and how many changes there were in all.
  std::pair<std::vector<std::uint64_t>, std::uint64_t> changedSince(std::uint64_t from) const;

  /// Is called, on any thread, when there is something new. It must not wait for anything. The one before is
  /// not called any more when this returns.
  void onChange(std::function<void()> callback);

 private:
  class Writer;
  struct Change {
    std::function<void(Writer &)> apply;
    std::size_t size = 0;  // in memory, roughly
    Written written;       // nothing if nobody waits for it
  };

  void push(Change change, std::unique_lock<std::mutex> lock);
  void push(Change change);
  void write();
  void checkpoint();
  void tellOfChange();
  void rememberAlteration(std::uint64_t id);
  /// For reading, when all that was queued by now is written.
  std::unique_lock<std::mutex> reading();

  const std::unique_ptr<RecordMemory> memory_;  // null with a file
  const std::unique_ptr<DatabaseFile> file_;    // null without one
  const std::unique_ptr<Database> writing_;     // the same
  const std::unique_ptr<Database> reading_;
  const std::size_t keep_;
  std::mutex changedMutex_;
  std::function<void()> changed_;
  std::atomic<std::uint64_t> lastId_{0};  // in a file
  std::atomic<std::uint64_t> resets_{0};

  mutable std::mutex mutex_;  // of all below
  std::condition_variable isQueued_;
  std::condition_variable isWritten_;
  std::condition_variable ends_;
  std::deque<Change> queue_;
  std::size_t queuedSize_ = 0;
  std::uint64_t pushed_ = 0;
  std::uint64_t done_ = 0;
  std::deque<std::uint64_t> altered_;  // requests that were changed later, the latest of them
  std::uint64_t alterations_ = 0;
  bool isEnding_ = false;
  std::thread writer_;
  std::thread checkpointer_;
};

}  // namespace kx::collector
