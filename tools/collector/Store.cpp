#include "tools/collector/Store.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <utility>

#include "tools/collector/RecordDocument.h"
#include "tools/collector/StoreWriter.h"

namespace kx::collector {

namespace {

// Of what waits to be written to memory, while somebody reads for long.
constexpr std::size_t maximumQueuedSize = std::size_t{64} << 20;
constexpr std::size_t changesAtOnce = 1000;
constexpr std::size_t rememberedAlterations = 1000;
constexpr std::size_t sizeOfSmallThings = 1000;
// In memory nobody waits for what is written, so that it may be written together.
constexpr std::chrono::milliseconds timeToGatherRecords{2};
constexpr std::chrono::seconds timeBetweenCheckpoints{1};
constexpr std::int64_t longLog = 10000;  // pages

/// What a request costs in memory, roughly, in bytes.
std::size_t sizeOf(const Record &record) {
  std::size_t size = sizeOfSmallThings + record.body.size() + record.target.size() + record.reason.size();
  if (record.text) size += record.text->size();
  for (const auto &[name, value] : record.headerFields) size += name.size() + value.size();
  return size;
}

}  // namespace

Store::Store(const std::optional<std::filesystem::path> &file, std::size_t keep, std::size_t maximumSize)
    : file_(file ? std::make_unique<DatabaseFile>(*file) : nullptr),
      writing_(file_ ? file_->connect()
                     : std::make_unique<Database>(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)),
      reading_(file_ ? std::shared_ptr<Database>(file_->connect()) : writing_),
      keep_(keep),
      maximumSize_(file ? SIZE_MAX : maximumSize) {
  if (!file_) createTables(*writing_);
  addFunctions(*reading_);
  lastId_ =
      static_cast<std::uint64_t>(writing_->number("SELECT seq FROM sqlite_sequence WHERE name = 'request'"));
  writer_ = std::thread([this] { write(); });
  if (file_) checkpointer_ = std::thread([this] { checkpoint(); });
}

Store::~Store() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isEnding_ = true;
  }
  isQueued_.notify_one();
  ends_.notify_one();
  writer_.join();
  if (checkpointer_.joinable()) checkpointer_.join();
}

std::uint64_t Store::append(Record record, Written written) {
  std::unique_lock<std::mutex> lock(mutex_);
  isWritten_.wait(lock, [this] { return queuedSize_ < maximumQueuedSize; });
  const std::uint64_t id = record.id = ++lastId_;
  Change change;
  change.size = sizeOf(record);
  Written atOnce;  // in memory it is
  (file_ ? change.written : atOnce) = std::move(written);
  change.apply = [record = std::move(record), size = change.size](Writer &writer) {
    writer.append(record, size);
  };
  push(std::move(change), std::move(lock));
  if (atOnce) atOnce(nullptr);
  return id;
}

void Store::setSendTime(std::uint64_t id, std::int64_t microseconds) {
  push({[id, microseconds](Writer &writer) { writer.setSendTime(id, microseconds); }, sizeOfSmallThings, {}});
}

void Store::addWarning(std::uint64_t id, const std::string &warning) {
  push({[this, id, warning](Writer &writer) {
          writer.addWarning(id, warning);
          const std::lock_guard<std::mutex> lock(mutex_);
          altered_.push_back(id);
          ++alterations_;
          if (altered_.size() > rememberedAlterations) altered_.pop_front();
        },
        sizeOfSmallThings,
        {}});
}

void Store::reset() {
  std::promise<void> isWritten;
  push({[this](Writer &writer) {
          writer.reset();
          ++resets_;
        },
        sizeOfSmallThings,
        [&isWritten](const std::exception_ptr &failure) {
          failure ? isWritten.set_exception(failure) : isWritten.set_value();
        }});
  isWritten.get_future().get();
}

std::pair<std::vector<std::uint64_t>, std::uint64_t> Store::changedSince(std::uint64_t from) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::uint64_t first = alterations_ - altered_.size();
  std::vector<std::uint64_t> ids;
  for (std::uint64_t at = std::max(from, first); at < alterations_; ++at) ids.push_back(altered_[at - first]);
  return {std::move(ids), alterations_};
}

void Store::onChange(std::function<void()> callback) {
  const std::lock_guard<std::mutex> lock(changedMutex_);
  changed_ = std::move(callback);
}

void Store::push(Change change) {
  push(std::move(change), std::unique_lock<std::mutex>(mutex_));
}

void Store::push(Change change, std::unique_lock<std::mutex> lock) {
  queuedSize_ += change.size;
  if (change.written) awaited_ = pushed_ + 1;
  queue_.push_back(std::move(change));
  ++pushed_;
  const bool isReady = queue_.size() == 1 || isUrgent();
  lock.unlock();
  if (isReady) isQueued_.notify_one();
}

bool Store::isUrgent() const {
  return isEnding_ || file_ || awaited_ > done_ || queue_.size() >= changesAtOnce;
}

std::unique_lock<std::mutex> Store::reading() {
  {
    std::unique_lock<std::mutex> lock(mutex_);
    const std::uint64_t wanted = pushed_;
    awaited_ = std::max(awaited_, wanted);
    if (awaited_ > done_) isQueued_.notify_one();
    isWritten_.wait(lock, [this, wanted] { return done_ >= wanted; });
  }
  return std::unique_lock<std::mutex>(reading_->mutex);
}

void Store::write() {
  Writer writer(*writing_, keep_, maximumSize_);
  for (;;) {
    std::deque<Change> changes;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      isQueued_.wait(lock, [this] { return !queue_.empty() || isEnding_; });
      if (queue_.empty()) return;
      isQueued_.wait_for(lock, timeToGatherRecords, [this] { return isUrgent(); });
      while (!queue_.empty() && changes.size() < changesAtOnce) {
        changes.push_back(std::move(queue_.front()));
        queue_.pop_front();
      }
    }
    writer.apply(changes);
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      for (const Change &change : changes) queuedSize_ -= change.size;
      done_ += changes.size();
    }
    isWritten_.notify_all();
    const std::lock_guard<std::mutex> lock(changedMutex_);
    if (changed_) changed_();
  }
}

void Store::checkpoint() {
  const auto database = file_->connect();
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      if (ends_.wait_for(lock, timeBetweenCheckpoints, [this] { return isEnding_; })) return;
    }
    int pages = 0;
    sqlite3_wal_checkpoint_v2(database->handle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, &pages, nullptr);
    // While requests never cease, only this lets the log begin anew. Little is left to be copied meanwhile.
    if (pages > longLog) {
      sqlite3_wal_checkpoint_v2(database->handle(), nullptr, SQLITE_CHECKPOINT_RESTART, nullptr, nullptr);
    }
  }
}

}  // namespace kx::collector
