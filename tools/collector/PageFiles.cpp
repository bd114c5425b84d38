#include "tools/collector/PageFiles.h"

#include <utility>

namespace kx::collector {

const char *mediaTypeOf(std::string_view name) {
  constexpr std::pair<std::string_view, const char *> types[] = {
      {".html", "text/html; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"},
      {".json", "application/json"},
      {".svg", "image/svg+xml"},
      {".png", "image/png"},
      {".txt", "text/plain; charset=utf-8"},
  };
  for (const auto &[ending, type] : types) {
    if (name.size() >= ending.size() && name.substr(name.size() - ending.size()) == ending) return type;
  }
  return "application/octet-stream";
}

std::string withToken(std::string_view page, const std::string &token) {
  constexpr std::string_view place = R"(<meta name="page-token" content=")";
  std::string text(page);
  const auto found = text.find(place);
  if (found != std::string::npos) text.insert(found + place.size(), token);
  return text;
}

}  // namespace kx::collector
