#pragma once

#include <deque>
#include <vector>

#include "tools/collector/Store.h"

namespace kx::collector {

/// What SQLite lacks: kx_contains(text, part), for ASCII letters in any case.
void addFunctions(Database &database);

/// The end of the store that writes, on one thread.
class Store::Writer {
 public:
  Writer(Database &database, std::size_t keep);

  /// All of them in one transaction, and what is too old goes. Whoever waits hears how it went.
  void apply(std::deque<Change> &changes);

  /// The record has to live until all are applied.
  void append(const Record &record);
  void setSendTime(std::uint64_t id, std::int64_t microseconds);
  void addWarning(std::uint64_t id, const std::string &warning);
  void reset();

 private:
  /// A request that is not inserted yet. Most answers have gone out by then, and their rows need no update.
  struct Pending {
    const Record &record;
    std::int64_t send;
  };

  void insertPending();
  void insert(const Pending &pending);
  void prune();

  Database &database_;
  const std::size_t keep_;
  std::vector<Pending> pending_;  // ids without gaps
  std::uint64_t lastId_ = 0;
  std::uint64_t gone_ = 0;  // all up to that id
  Statement insertRequest_;
  Statement insertContent_;
  Statement setSendTime_;
  Statement readWarnings_;
  Statement setWarnings_;
  Statement deleteRequests_;
  Statement deleteContents_;
};

}  // namespace kx::collector
