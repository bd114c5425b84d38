#include "tools/collector/Document.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>
#include <vector>

#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t maximumDepth = 8;
constexpr std::size_t maximumMembers = 1000;
constexpr std::size_t usualMembers = 40;
constexpr std::size_t maximumPrinted = 500;  // bytes

[[noreturn]] void refuseText(const std::string &what, Subject subject) {
  // The reason quotes what the client sent.
  const std::string reason = quote(what);
  throw Refusal(400, "the body is not JSON text: " + reason.substr(1, reason.size() - 2), std::move(subject));
}

/// Makes the document of what the parser reads, as far as that keeps the rules.
class Builder {
 public:
  explicit Builder(std::size_t size) : size_(size) {}

  Document take() { return std::move(root_); }

  // What the parser calls.
  bool null() { return add(nullptr); }
  bool boolean(bool value) { return add(value); }
  bool number_integer(Document::number_integer_t value) { return add(value); }
  bool number_unsigned(Document::number_unsigned_t value) { return add(value); }
  bool number_float(Document::number_float_t value, const std::string &) { return add(value); }
  bool string(std::string value) { return add(std::move(value)); }
  static bool binary(const Document::binary_t &) { return false; }  // JSON text has none
  bool start_object(std::size_t) { return open(Document::value_t::object); }
  bool start_array(std::size_t) { return open(Document::value_t::array); }
  bool end_object() { return close(); }
  bool end_array() { return close(); }

  bool key(std::string key) {
    auto &members = open_.back()->get_ref<Document::object_t &>();
    for (const auto &[other, value] : members) {
      if (other == key) throw Refusal(400, "the key " + quote(key) + " stands twice in one object");
    }
    if (members.size() == maximumMembers) throw Refusal(400, "an object in the JSON text has too many keys");
    member_ = &members.Container::emplace_back(std::move(key), Document()).second;
    return true;
  }

  bool parse_error(std::size_t position, const std::string &, const Document::exception &error) {
    if (dynamic_cast<const Document::parse_error *>(&error) == nullptr) refuseText(error.what(), {});
    // It counts from 1, to the last byte that it has read; that may be the end, which is no byte.
    const std::size_t offset = std::min(position == 0 ? 0 : position - 1, size_);
    refuseText(error.what(), {Subject::Part::bytes, {offset, offset < size_ ? 1u : 0u}});
  }

 private:
  template <typename Value>
  bool add(Value &&value) {
    place() = std::forward<Value>(value);
    return true;
  }

  bool open(Document::value_t type) {
    Document &opened = place();
    opened = Document(type);
    // The first object is a message in all likelihood. Members that move are copied.
    if (opened.is_object() && !std::exchange(isObjectSeen_, true)) {
      opened.get_ref<Document::object_t &>().reserve(usualMembers);
    }
    open_.push_back(&opened);
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  /// Where the next value goes.
  Document &place() {
    if (open_.size() > maximumDepth) throw Refusal(400, "the JSON text is nested too deeply");
    if (open_.empty()) return root_;
    if (open_.back()->is_object()) return *member_;
    return open_.back()->get_ref<Document::array_t &>().emplace_back();
  }

  const std::size_t size_;  // of the text
  Document root_;
  std::vector<Document *> open_;  // arrays and objects, from the outermost one
  Document *member_ = nullptr;    // whose key has been read
  bool isObjectSeen_ = false;
};

/// What changes how the text around it is shown, or is not seen itself: a client could make one value look
/// like another by it.
bool isEscaped(char32_t character) {
  struct Range {
    char32_t first;
    char32_t last;
  };
  static constexpr Range ranges[] = {
      {0x7F, 0x9F},        // delete, C1 controls
      {0xAD, 0xAD},        // soft hyphen
      {0x61C, 0x61C},      // Arabic letter mark
      {0x180E, 0x180E},    // Mongolian vowel separator
      {0x200B, 0x200B},    // zero width space; the joiners beside it are letters' and emoji's own
      {0x200E, 0x200F},    // left-to-right mark, right-to-left mark
      {0x2028, 0x202E},    // line and paragraph separator, bidirectional embeddings and overrides
      {0x2060, 0x206F},    // word joiner, invisible operators, bidirectional isolates, deprecated controls
      {0xFEFF, 0xFEFF},    // byte order mark
      {0xFFF9, 0xFFFB},    // interlinear annotations
      {0xE0000, 0xE007F},  // tags
  };
  return std::any_of(std::begin(ranges), std::end(ranges), [character](const Range &range) {
    return character >= range.first && character <= range.last;
  });
}

/// The size in bytes of the character that begins with that byte, in valid UTF-8.
std::size_t sizeOfCharacter(unsigned char first) {
  if (first < 0x80) return 1;
  if (first < 0xE0) return 2;
  return first < 0xF0 ? 3 : 4;
}

char32_t characterOf(std::string_view utf8) {
  if (utf8.size() == 1) return static_cast<unsigned char>(utf8.front());
  char32_t character = static_cast<unsigned char>(utf8.front()) & (0x7FU >> utf8.size());
  for (const char byte : utf8.substr(1))
    character = character << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
  return character;
}

/// As JSON writes it: characters beyond U+FFFF in two halves.
std::string escaped(char32_t character) {
  char text[16];
  if (character <= 0xFFFF) {
    std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(character));
  } else {
    const auto offset = static_cast<unsigned>(character - 0x10000);
    std::snprintf(text, sizeof text, "\\u%04x\\u%04x", 0xD800 + (offset >> 10), 0xDC00 + (offset & 0x3FF));
  }
  return text;
}

bool isASCII(char character) {
  return static_cast<unsigned char>(character) < 0x7F;
}

/// JSON text, in valid UTF-8, has no control character below the blank; the others are written as JSON writes
/// those.
std::string escapeControlCharacters(std::string_view json) {
  if (std::all_of(json.begin(), json.end(), isASCII)) return std::string(json);
  std::string text;
  while (!json.empty()) {
    const std::string_view next = json.substr(0, sizeOfCharacter(static_cast<unsigned char>(json.front())));
    const char32_t character = characterOf(next);
    text += isEscaped(character) ? escaped(character) : std::string(next);
    json.remove_prefix(next.size());
  }
  return text;
}

std::string dump(const Document &value) {
  return escapeControlCharacters(value.dump(-1, ' ', false, Document::error_handler_t::replace));
}

}  // namespace

Document parseDocument(const std::string &text) {
  if (text.compare(0, byteOrderMark.size(), byteOrderMark) == 0) {
    throw Refusal(400, "the JSON text begins with a byte order mark",
                  {Subject::Part::bytes, {0, byteOrderMark.size()}});
  }
  Builder builder(text.size());
  Document::sax_parse(text, &builder);
  return builder.take();
}

std::string printable(const Document &value) {
  std::string text = dump(value);
  if (text.size() <= maximumPrinted) return text;
  std::size_t size = maximumPrinted;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
    --size;  // not within a character
  return text.substr(0, size) + "...";
}

std::string quote(std::string_view text) {
  constexpr std::size_t maximumSize = 200;  // bytes
  const bool whole = text.size() <= maximumSize;
  return dump(std::string(text.substr(0, maximumSize)) + (whole ? "" : "..."));
}

}  // namespace kx::collector
