#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/collector/Record.h"

namespace kx::collector {

/// What a request costs in memory, roughly, in bytes.
std::size_t sizeInMemory(const Record &record);

/// The newest requests, in memory. May be used on any thread; nobody holds up another for long.
class RecordMemory {
 public:
  struct Entry {
    std::shared_ptr<const Record> record;
    std::int64_t send = 0;  ///< in the place of the record's own
    std::size_t size = 0;   ///< what it costs, roughly, in bytes
  };
  /// Ids from the first to the last one.
  struct Range {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
  };

  /// At most `keep` requests, and as many of them as fit into `maximumSize` bytes; the latest one always.
  RecordMemory(std::size_t keep, std::size_t maximumSize) : keep_(keep), maximumSize_(maximumSize) {}

  /// Gives it the next id.
  std::uint64_t append(Record record);
  /// These do nothing when the request is not there.
  void setSendTime(std::uint64_t id, std::int64_t microseconds);
  void addWarning(std::uint64_t id, const std::string &warning);
  /// Forgets all; ids go on.
  void reset();

  std::uint64_t lastId() const;
  /// `count` of the range at the most: the first ones, or the last ones, the very last one first.
  std::vector<Entry> entries(Range range, bool newestFirst, std::size_t count) const;

 private:
  /// Null when it is not there.
  Entry *find(std::uint64_t id);
  bool isTooMuch() const;
  Entry takeFirst();

  const std::size_t keep_;
  const std::size_t maximumSize_;
  mutable std::mutex mutex_;
  std::deque<Entry> entries_;  // ids without gaps, up to the last one
  std::uint64_t lastId_ = 0;
  std::size_t size_ = 0;  // of all entries
};

}  // namespace kx::collector
