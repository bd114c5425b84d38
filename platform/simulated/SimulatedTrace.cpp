#include "KXPublisher/platform/simulated/SimulatedTrace.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <utility>

namespace kx {

namespace {

using Event = SimulatedTrace::Event;
using Kind = SimulatedTrace::Kind;

std::string nameOf(unsigned thread) {
  return thread == 0 ? "main" : "worker " + std::to_string(thread);
}

std::string timeOf(const Event &event) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", event.time);
  return text;
}

std::string describe(const Event &event) {
  const std::string task = "task " + std::to_string(event.task);
  switch (event.kind) {
    case Kind::submits:
      return "submits " + task + ": " + event.what;
    case Kind::begins:
      return "begins " + task + ": " + event.what;
    case Kind::ends:
      return "ends " + task;
    case Kind::waits:
      return "waits";
    case Kind::overtaken:
      return "is overtaken";
    case Kind::goesOn:
      return "goes on";
    case Kind::says:
      break;
  }
  return event.what;
}

std::string escaped(const std::string &text) {
  std::string result;
  for (const char character : text) {
    if (character == '&') {
      result += "&amp;";
    } else if (character == '<') {
      result += "&lt;";
    } else {
      result += static_cast<unsigned char>(character) < ' ' ? ' ' : character;
    }
  }
  return result;
}

// In pixels.
constexpr int laneWidth = 260;
constexpr int rowHeight = 16;
constexpr int timeWidth = 90;
constexpr int barWidth = 10;

int laneOf(unsigned thread) {
  return timeWidth + static_cast<int>(thread) * laneWidth;
}

int rowOf(std::size_t event) {
  return (static_cast<int>(event) + 3) * rowHeight;
}

std::string textAt(int x, int y, const std::string &text, const char *kind) {
  return "<text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" class=\"" + kind + "\">" +
         escaped(text) + "</text>\n";
}

std::string bar(unsigned thread, std::size_t from, std::size_t to) {
  return "<rect x=\"" + std::to_string(laneOf(thread)) + "\" y=\"" +
         std::to_string(rowOf(from) - rowHeight / 2) + "\" width=\"" + std::to_string(barWidth) +
         "\" height=\"" + std::to_string(std::max(rowOf(to) - rowOf(from), rowHeight / 2)) + "\"/>\n";
}

std::string arrow(unsigned fromThread, std::size_t from, unsigned toThread, std::size_t to) {
  return "<line x1=\"" + std::to_string(laneOf(fromThread) + barWidth) + "\" y1=\"" +
         std::to_string(rowOf(from) - rowHeight / 4) + "\" x2=\"" + std::to_string(laneOf(toThread)) +
         "\" y2=\"" + std::to_string(rowOf(to) - rowHeight / 4) + "\" marker-end=\"url(#head)\"/>\n";
}

}  // namespace

void SimulatedTrace::add(Event event) {
  events_.push_back(std::move(event));
  while (events_.size() > limit) events_.pop_front();
}

std::string SimulatedTrace::text() const {
  std::string text;
  for (const Event &event : events_) {
    char start[64];
    std::snprintf(start, sizeof start, "%12s  %-10s ", timeOf(event).c_str(), nameOf(event.thread).c_str());
    text += start + describe(event) + "\n";
  }
  return text;
}

std::string SimulatedTrace::svg() const {
  unsigned lanes = 1;
  for (const Event &event : events_) lanes = std::max(lanes, event.thread + 1);
  const int width = laneOf(lanes);
  const int height = rowOf(events_.size() + 1);
  std::string svg = R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" + std::to_string(width) +
                    R"(" height=")" + std::to_string(height) + R"(">
<style>text{font:11px sans-serif}.lane{font-weight:bold}.time{fill:#777}rect{fill:#4a7ab5}line{stroke:#c60}</style>
<defs><marker id="head" orient="auto" refX="6" refY="3" markerWidth="6" markerHeight="6"><path d="M0,0L6,3L0,6z" fill="#c60"/></marker></defs>
)";
  for (unsigned lane = 0; lane < lanes; ++lane) svg += textAt(laneOf(lane), rowHeight, nameOf(lane), "lane");

  std::map<std::uint64_t, std::pair<unsigned, std::size_t>> submitted;  // where each task came from
  std::map<unsigned, std::size_t> running;                              // since when each thread runs
  std::string time;
  std::size_t row = 0;
  for (const Event &event : events_) {
    if (const std::string now = timeOf(event); now != time) svg += textAt(0, rowOf(row), time = now, "time");
    svg += textAt(laneOf(event.thread) + barWidth + 4, rowOf(row), describe(event), "what");
    if (event.kind == Kind::submits) submitted[event.task] = {event.thread, row};
    if (event.kind == Kind::begins || event.kind == Kind::goesOn) running.emplace(event.thread, row);
    if (event.kind == Kind::begins && submitted.count(event.task) != 0) {
      svg += arrow(submitted[event.task].first, submitted[event.task].second, event.thread, row);
    }
    if (event.kind == Kind::ends || event.kind == Kind::overtaken || event.kind == Kind::waits) {
      if (const auto since = running.find(event.thread); since != running.end()) {
        svg += bar(event.thread, since->second, row);
        running.erase(since);
      }
    }
    ++row;
  }
  return svg + "</svg>\n";
}

}  // namespace kx
