#include "tools/collector/Document.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <utility>
#include <vector>

#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr int maximumDepth = 8;
constexpr std::size_t maximumMembers = 1000;
constexpr std::size_t maximumPrinted = 500;  // bytes

/// Watches a document while it is being read.
class Watcher {
 public:
  bool operator()(int depth, Document::parse_event_t event, const Document &parsed) {
    if (depth > maximumDepth) throw Refusal(400, "the JSON text is nested too deeply");
    if (event == Document::parse_event_t::object_start) {
      keys_.emplace_back();
    } else if (event == Document::parse_event_t::object_end) {
      keys_.pop_back();
    } else if (event == Document::parse_event_t::key) {
      addKey(parsed.get_ref<const std::string &>());
    }
    return true;
  }

 private:
  void addKey(const std::string &key) {
    if (!keys_.back().insert(key).second) {
      throw Refusal(400, "the key " + quote(key) + " stands twice in one object");
    }
    if (keys_.back().size() > maximumMembers)
      throw Refusal(400, "an object in the JSON text has too many keys");
  }

  std::vector<std::set<std::string>> keys_;  // of the objects that are open
};

/// JSON text has no control character below the blank; the others are written as JSON writes those.
std::string escapeControlCharacters(const std::string &json) {
  std::string escaped;
  const auto escape = [&escaped](unsigned char character) {
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", character);
    escaped += text;
  };
  for (std::size_t at = 0; at < json.size(); ++at) {
    const auto byte = static_cast<unsigned char>(json[at]);
    const auto next = static_cast<unsigned char>(at + 1 < json.size() ? json[at + 1] : 0);
    if (byte == 0x7F) {
      escape(byte);
    } else if (byte == 0xC2 && next >= 0x80 && next <= 0x9F) {
      escape(next);
      ++at;
    } else {
      escaped += json[at];
    }
  }
  return escaped;
}

std::string dump(const Document &value) {
  return escapeControlCharacters(value.dump(-1, ' ', false, Document::error_handler_t::replace));
}

[[noreturn]] void refuseText(const Document::exception &error, Subject subject) {
  // The reason quotes what the client sent.
  const std::string reason = quote(error.what());
  throw Refusal(400, "the body is not JSON text: " + reason.substr(1, reason.size() - 2), std::move(subject));
}

}  // namespace

Document parseDocument(const std::string &text) {
  if (text.compare(0, byteOrderMark.size(), byteOrderMark) == 0) {
    throw Refusal(400, "the JSON text begins with a byte order mark",
                  {Subject::Part::bytes, {0, byteOrderMark.size()}});
  }
  Watcher watcher;
  try {
    return Document::parse(text, [&watcher](int depth, Document::parse_event_t event, Document &parsed) {
      return watcher(depth, event, parsed);
    });
  } catch (const Document::parse_error &error) {
    // It counts from 1, to the last byte that it has read; that may be the end, which is no byte.
    const std::size_t offset = std::min(error.byte == 0 ? 0 : error.byte - 1, text.size());
    refuseText(error, {Subject::Part::bytes, {offset, offset < text.size() ? 1u : 0u}});
  } catch (const Document::exception &error) {
    refuseText(error, {});
  }
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
