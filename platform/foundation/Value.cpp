#include "KXPublisher/platform/foundation/Value.h"

#include <algorithm>

#include "KXPublisher/platform/foundation/JSONSerialization.h"

namespace kx {

Dictionary::Dictionary() = default;
Dictionary::Dictionary(const Dictionary &) = default;
Dictionary::Dictionary(Dictionary &&) noexcept = default;
Dictionary &Dictionary::operator=(const Dictionary &) = default;
Dictionary &Dictionary::operator=(Dictionary &&) noexcept = default;
Dictionary::~Dictionary() = default;

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  entries_.reserve(entries.size());
  for (const Entry &entry : entries) set(entry.key, entry.value);
}

void Dictionary::set(std::string_view key, Value value) {
  for (Entry &entry : entries_) {
    if (entry.key == key) {
      entry.value = std::move(value);
      return;
    }
  }
  entries_.push_back({std::string(key), std::move(value)});
}

void Dictionary::addEntriesFrom(const Dictionary &other) {
  for (const Entry &entry : other.entries_) set(entry.key, entry.value);
}

const Value *Dictionary::find(std::string_view key) const {
  for (const Entry &entry : entries_) {
    if (entry.key == key) return &entry.value;
  }
  return nullptr;
}

bool Dictionary::empty() const {
  return entries_.empty();
}
std::size_t Dictionary::size() const {
  return entries_.size();
}
const Dictionary::Entry *Dictionary::begin() const {
  return entries_.data();
}
const Dictionary::Entry *Dictionary::end() const {
  return entries_.data() + entries_.size();
}

bool Dictionary::operator==(const Dictionary &other) const {
  return size() == other.size() && std::all_of(begin(), end(), [&other](const Entry &entry) {
           const Value *const value = other.find(entry.key);
           return value != nullptr && *value == entry.value;
         });
}

std::string Dictionary::description() const {
  return JSONSerialization::descriptionOf(*this);
}

std::string Value::description() const {
  return text() != nullptr ? *text() : JSONSerialization::descriptionOf(*this);
}

}  // namespace kx
