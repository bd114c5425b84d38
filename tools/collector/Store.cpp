#include "tools/collector/Store.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <utility>

#include "tools/collector/MemoryTables.h"
#include "tools/collector/StoreWriter.h"

namespace kx::collector {

namespace {

// Of what waits to be written.
constexpr std::size_t maximumQueuedSize = std::size_t{64} << 20;
constexpr std::size_t changesAtOnce = 1000;
constexpr std::size_t rememberedAlterations = 1000;
constexpr std::size_t sizeOfSmallThings = 1000;
constexpr std::chrono::seconds timeBetweenCheckpoints{1};
constexpr std::int64_t longLog = 10000;  // pages

}  // namespace

Store::Store(const std::optional<std::filesystem::path> &file, std::size_t keep, std::size_t maximumSize)
    : memory_(file ? nullptr : std::make_unique<RecordMemory>(keep, maximumSize)),
      file_(file ? std::make_unique<DatabaseFile>(*file) : nullptr),
      writing_(file_ ? file_->connect() : nullptr),
      reading_(file_ ? file_->connect()
                     : std::make_unique<Database>(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)),
      keep_(keep) {
  addFunctions(*reading_);
  if (memory_) {
    addMemoryTables(*reading_, *memory_);
    return;
  }
  lastId_ =
      static_cast<std::uint64_t>(writing_->number("SELECT seq FROM sqlite_sequence WHERE name = 'request'"));
  writer_ = std::thread([this] { write(); });
  checkpointer_ = std::thread([this] { checkpoint(); });
}

Store::~Store() {
  if (memory_) return;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isEnding_ = true;
  }
  isQueued_.notify_one();
  ends_.notify_one();
  writer_.join();
  checkpointer_.join();
}

std::uint64_t Store::append(Record record, Written written) {
  if (memory_) {
    const std::uint64_t id = memory_->append(std::move(record));
    if (written) written(nullptr);
    tellOfChange();
    return id;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  isWritten_.wait(lock, [this] { return queuedSize_ < maximumQueuedSize; });
  const std::uint64_t id = record.id = ++lastId_;
  const std::size_t size = sizeInMemory(record);
  push({[record = std::move(record)](Writer &writer) { writer.append(record); }, size, std::move(written)},
       std::move(lock));
  return id;
}

void Store::setSendTime(std::uint64_t id, std::int64_t microseconds) {
  if (memory_) return memory_->setSendTime(id, microseconds);
  push({[id, microseconds](Writer &writer) { writer.setSendTime(id, microseconds); }, sizeOfSmallThings, {}});
}

void Store::addWarning(std::uint64_t id, const std::string &warning) {
  if (memory_) {
    memory_->addWarning(id, warning);
    rememberAlteration(id);
    return tellOfChange();
  }
  push({[this, id, warning](Writer &writer) {
          writer.addWarning(id, warning);
          rememberAlteration(id);
        },
        sizeOfSmallThings,
        {}});
}

void Store::rememberAlteration(std::uint64_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  altered_.push_back(id);
  ++alterations_;
  if (altered_.size() > rememberedAlterations) altered_.pop_front();
}

void Store::reset() {
  if (memory_) {
    memory_->reset();
    ++resets_;
    return tellOfChange();
  }
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
  queue_.push_back(std::move(change));
  ++pushed_;
  lock.unlock();
  isQueued_.notify_one();
}

std::uint64_t Store::lastId() const {
  return memory_ ? memory_->lastId() : lastId_.load();
}

std::unique_lock<std::mutex> Store::reading() {
  if (file_) {
    std::unique_lock<std::mutex> lock(mutex_);
    isWritten_.wait(lock, [this, wanted = pushed_] { return done_ >= wanted; });
  }
  return std::unique_lock<std::mutex>(reading_->mutex);
}

void Store::tellOfChange() {
  const std::lock_guard<std::mutex> lock(changedMutex_);
  if (changed_) changed_();
}

void Store::write() {
  Writer writer(*writing_, keep_);
  for (;;) {
    std::deque<Change> changes;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      isQueued_.wait(lock, [this] { return !queue_.empty() || isEnding_; });
      if (queue_.empty()) return;
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
    tellOfChange();
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
