#include "tests/platform/linux/stories/LogLines.h"

#include <glib.h>

#include <string_view>

namespace kx {

LogLines::LogLines() : lines_(*new Lines) {
  g_log_set_writer_func(
      [](GLogLevelFlags, const GLogField *fields, gsize count, gpointer data) {
        Lines &lines = *static_cast<Lines *>(data);
        for (const GLogField *field = fields; field != fields + count; ++field) {
          if (std::string_view(field->key) != "MESSAGE") continue;
          const auto *const text = static_cast<const char *>(field->value);
          const std::lock_guard<std::mutex> lock(lines.mutex);
          if (field->length < 0) {
            lines.all.emplace_back(text);
          } else {
            lines.all.emplace_back(text, static_cast<std::size_t>(field->length));
          }
        }
        return G_LOG_WRITER_HANDLED;
      },
      &lines_, nullptr);
}

std::vector<std::string> LogLines::takeNew() {
  const std::lock_guard<std::mutex> lock(lines_.mutex);
  std::vector<std::string> lines(lines_.all.begin() + static_cast<std::ptrdiff_t>(taken_), lines_.all.end());
  taken_ = lines_.all.size();
  return lines;
}

std::string LogLines::text() const {
  const std::lock_guard<std::mutex> lock(lines_.mutex);
  std::string text;
  for (const std::string &line : lines_.all) text += "  " + line + "\n";
  return text;
}

}  // namespace kx
