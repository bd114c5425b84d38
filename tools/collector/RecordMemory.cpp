#include "tools/collector/RecordMemory.h"

#include <algorithm>
#include <utility>

namespace kx::collector {

namespace {

constexpr std::size_t sizeOfTheRest = 1000;

}  // namespace

std::size_t sizeInMemory(const Record &record) {
  std::size_t size = sizeOfTheRest + record.body.size() + record.target.size() + record.reason.size();
  if (record.text) size += record.text->size();
  for (const auto &[name, value] : record.headerFields) size += name.size() + value.size();
  return size;
}

std::uint64_t RecordMemory::append(Record record) {
  const std::int64_t send = record.microseconds.send;
  const std::size_t size = sizeInMemory(record);
  const auto shared = std::make_shared<Record>(std::move(record));
  std::vector<Entry> gone;  // freed when others may go on
  const std::lock_guard<std::mutex> lock(mutex_);
  shared->id = ++lastId_;
  entries_.push_back({shared, send, size});
  size_ += size;
  while (isTooMuch()) gone.push_back(takeFirst());
  return lastId_;
}

bool RecordMemory::isTooMuch() const {
  return entries_.size() > keep_ || (size_ > maximumSize_ && entries_.size() > 1);
}

RecordMemory::Entry RecordMemory::takeFirst() {
  Entry first = std::move(entries_.front());
  entries_.pop_front();
  size_ -= first.size;
  return first;
}

void RecordMemory::setSendTime(std::uint64_t id, std::int64_t microseconds) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (Entry *const entry = find(id)) entry->send = microseconds;
}

void RecordMemory::addWarning(std::uint64_t id, const std::string &warning) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Entry *const entry = find(id);
  if (entry == nullptr) return;
  // Somebody may be reading the one that is there.
  auto changed = std::make_shared<Record>(*entry->record);
  changed->warnings.push_back(warning);
  entry->record = std::move(changed);
}

void RecordMemory::reset() {
  std::deque<Entry> gone;
  const std::lock_guard<std::mutex> lock(mutex_);
  gone.swap(entries_);
  size_ = 0;
}

std::uint64_t RecordMemory::lastId() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return lastId_;
}

std::vector<RecordMemory::Entry> RecordMemory::entries(Range range, bool newestFirst,
                                                       std::size_t count) const {
  std::vector<Entry> found;
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::uint64_t before = lastId_ - entries_.size();  // the id before the first one
  const std::uint64_t first = std::max(range.first, before + 1);
  const std::uint64_t last = std::min(range.last, lastId_);
  if (first > last) return found;
  const std::size_t number = static_cast<std::size_t>(std::min<std::uint64_t>(count, last - first + 1));
  const std::uint64_t begin = newestFirst ? last - number + 1 : first;
  const auto at = entries_.begin() + static_cast<std::ptrdiff_t>(begin - before - 1);
  found.assign(at, at + static_cast<std::ptrdiff_t>(number));
  if (newestFirst) std::reverse(found.begin(), found.end());
  return found;
}

RecordMemory::Entry *RecordMemory::find(std::uint64_t id) {
  const std::uint64_t before = lastId_ - entries_.size();
  return id <= before || id > lastId_ ? nullptr : &entries_[static_cast<std::size_t>(id - before - 1)];
}

}  // namespace kx::collector
