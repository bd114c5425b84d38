#include "tools/collector/JSONPlaces.h"

#include <algorithm>

#include "tools/collector/Document.h"

namespace kx::collector {

namespace {

/// Walks through a JSON text that is known to be valid; never beyond its end.
class Walker {
 public:
  Walker(std::string_view text, std::size_t at) : text_(text), at_(at) {}

  std::size_t at() const { return at_; }

  /// Whether that character is next, blanks aside; then it is behind it.
  bool take(char wanted) {
    skipBlanks();
    if (at_ >= text_.size() || text_[at_] != wanted) return false;
    ++at_;
    return true;
  }

  Span takeValue() {
    skipBlanks();
    const std::size_t begin = at_;
    std::size_t depth = 0;
    do {
      if (at_ >= text_.size()) break;
      const char next = text_[at_];
      if (next == '"') {
        skipText();
      } else if (next == '{' || next == '[') {
        ++depth;
        ++at_;
      } else if (next == '}' || next == ']') {
        --depth;
        ++at_;
      } else if (depth > 0) {
        ++at_;
      } else {
        at_ = std::min(text_.find_first_of(",]} \t\r\n", at_), text_.size());
      }
    } while (depth > 0);
    return {begin, at_ - begin};
  }

 private:
  void skipBlanks() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

  void skipText() {
    for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_) {
      if (text_[at_] == '\\') ++at_;
    }
    at_ = std::min(at_ + 1, text_.size());
  }

  std::string_view text_;
  std::size_t at_;
};

bool isText(std::string_view json, const std::string &text) {
  return Document::parse(json, nullptr, /*allow_exceptions=*/false) == text;
}

std::optional<MemberPlace> memberAt(std::string_view json, std::size_t at, const std::string &key) {
  Walker walker(json, at);
  if (!walker.take('{')) return std::nullopt;
  do {
    MemberPlace place;
    place.key = walker.takeValue();
    if (!walker.take(':')) return std::nullopt;
    place.value = walker.takeValue();
    if (isText(json.substr(place.key.offset, place.key.length), key)) return place;
  } while (walker.take(','));
  return std::nullopt;
}

}  // namespace

std::optional<MemberPlace> placeOf(std::string_view json, const std::string &outer, const std::string &key) {
  Walker walker(json, 0);
  walker.take('[');
  if (outer.empty()) return memberAt(json, walker.at(), key);
  const auto place = memberAt(json, walker.at(), outer);
  if (!place) return std::nullopt;
  return memberAt(json, place->value.offset, key);
}

}  // namespace kx::collector
