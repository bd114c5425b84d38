#include "tools/fleet/TimePlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/fleet/Forecast.h"

namespace kx::fleet {

namespace {

// In pixels.
constexpr double left = 76;
constexpr double plotWidth = 804;
constexpr double top = 62;
constexpr double panelHeight = 120;
constexpr double panelStep = 162;
constexpr double width = left + plotWidth + 20;

constexpr std::size_t mostColumns = 402;

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

std::string number(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string textAt(double x, double y, const char *kind, const std::string &text) {
  return "<text x=\"" + number(x) + R"(" y=")" + number(y) + "\" class=\"" + kind + "\">" + escaped(text) +
         "</text>\n";
}

std::string line(double fromX, double fromY, double toX, double toY) {
  return R"(<path class="grid" d="M)" + number(fromX) + "," + number(fromY) + "L" + number(toX) + "," +
         number(toY) + "\"/>\n";
}

/// The least of 1, 2 and 5, times a power of ten, by which so much takes at most four steps.
double stepFor(double greatest) {
  const double ten = std::pow(10, std::floor(std::log10(greatest / 4)));
  for (const double step : {ten, ten * 2, ten * 5}) {
    if (greatest <= step * 4) return step;
  }
  return ten * 10;
}

/// The part of the day that is drawn.
struct Part {
  std::size_t from;
  std::size_t to;

  std::size_t columns() const { return std::min(mostColumns, to - from); }
  std::size_t beginOf(std::size_t column) const { return from + (to - from) * column / columns(); }
  double xOf(double second) const {
    return left + (second - static_cast<double>(from)) / static_cast<double>(to - from) * plotWidth;
  }
};

struct Column {
  double mean = 0;
  double most = 0;
};

std::vector<Column> columnsOf(const Part &part, const TimePlot::ValueOf &valueOf) {
  std::vector<Column> columns(part.columns());
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const std::size_t begin = part.beginOf(i);
    const std::size_t end = part.beginOf(i + 1);
    for (std::size_t second = begin; second < end; ++second) {
      const double value = valueOf(second);
      columns[i].mean += value / static_cast<double>(end - begin);
      columns[i].most = std::max(columns[i].most, value);
    }
  }
  return columns;
}

/// A line through the columns, in steps.
std::string pathOf(const std::vector<Column> &columns, const Part &part, double Column::*value, double floor,
                   double perUnit) {
  std::string path;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const std::string y = number(floor - columns[i].*value * perUnit);
    path += (i == 0 ? "M" : "L") + number(part.xOf(static_cast<double>(part.beginOf(i)))) + "," + y + "H" +
            number(part.xOf(static_cast<double>(part.beginOf(i + 1))));
  }
  return path;
}

std::string panelOf(const TimePlot &plot, const Part &part, std::size_t place) {
  const TimePlot::Panel &panel = plot.panels[place];
  const double ceiling = top + panelStep * static_cast<double>(place) + 18;
  const double floor = ceiling + panelHeight;
  const auto columns = columnsOf(part, panel.value);
  const auto ordinary = columnsOf(part, panel.ordinary == nullptr ? panel.value : panel.ordinary);
  double greatest = 1;
  for (const Column &column : columns) greatest = std::max(greatest, column.most);
  for (const Column &column : ordinary) greatest = std::max(greatest, column.mean);
  const double step = stepFor(greatest);
  const double perUnit = panelHeight / (std::ceil(greatest / step) * step);

  std::string svg = textAt(left, ceiling - 6, "title", panel.title);
  for (const TimePlot::Trouble &trouble : plot.troubles) {
    const double begin = std::max(part.xOf(trouble.from), left);
    const double end =
        std::min(std::max(part.xOf(trouble.to), part.xOf(trouble.from) + 1.5), left + plotWidth);
    if (begin >= end) continue;
    svg += R"(<rect class="trouble" x=")" + number(begin) + R"(" y=")" + number(ceiling) + R"(" width=")" +
           number(end - begin) + R"(" height=")" + number(panelHeight) + "\"/>\n";
  }
  for (int count = 0; count * step <= greatest + step * 0.999; ++count) {
    const double value = count * step;
    const double y = floor - value * perUnit;
    svg += line(left, y, left + plotWidth, y);
    svg += textAt(left - 6, y + 4, "value", numberText(value));
  }
  svg += R"(<path class="most" d=")" + pathOf(columns, part, &Column::most, floor, perUnit) + "V" +
         number(floor) + "H" + number(left) + "Z\"/>\n";
  if (panel.ordinary != nullptr)
    svg += R"(<path class="ordinary" d=")" + pathOf(ordinary, part, &Column::mean, floor, perUnit) + "\"/>\n";
  svg += R"(<path class="mean" d=")" + pathOf(columns, part, &Column::mean, floor, perUnit) + "\"/>\n";

  constexpr double steps[] = {1, 5, 10, 30, 60, 300, 600, 1800, 3600, 7200, 10'800, 21'600, 86'400};
  const auto length = static_cast<double>(part.to - part.from);
  const double *const tick = std::find_if(std::begin(steps), std::end(steps) - 1,
                                          [length](double seconds) { return length / seconds <= 12; });
  const double firstTick = std::ceil(static_cast<double>(part.from) / *tick) * *tick;
  for (int count = 0; firstTick + count * *tick <= static_cast<double>(part.to); ++count) {
    const double at = firstTick + count * *tick;
    svg += line(part.xOf(at), floor, part.xOf(at), floor + 4);
    const std::string time = timeText(at);
    svg += textAt(part.xOf(at), floor + 16, "time", *tick < 60 ? time : time.substr(0, 5));
  }
  return svg;
}

std::string legend(bool withOrdinary) {
  std::string svg = R"(<path class="mean" d="M)" + number(left) + ",46h24\"/>\n" +
                    textAt(left + 30, 50, "", "mean") + R"(<path class="most" d="M)" + number(left + 90) +
                    ",41h24v10h-24Z\"/>\n" + textAt(left + 120, 50, "", "busiest second");
  if (withOrdinary)
    svg += R"(<path class="ordinary" d="M)" + number(left + 230) + ",46h24\"/>\n" +
           textAt(left + 260, 50, "", "without what happens in the shaded time");
  return svg;
}

}  // namespace

std::string TimePlot::svg() const {
  const Part part{from, to};
  const double height = top + panelStep * static_cast<double>(panels.size());
  std::string svg = R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 )" + number(width) + " " +
                    number(height) + R"(" font-family="sans-serif" font-size="12">
<style>
text{fill:#222}.head{font-size:16px;font-weight:bold}.title{font-weight:bold}.value{text-anchor:end}.time{text-anchor:middle}
.grid{stroke:#ddd;fill:none}.mean{stroke:#1f5fa8;stroke-width:1.5;fill:none}.most{fill:#b9d2ee}
.ordinary{stroke:#777;stroke-dasharray:4 3;fill:none}.trouble{fill:#f6c9b8}
</style>
<rect width="100%" height="100%" fill="#fff"/>
)";
  svg += textAt(left, 26, "head", head);
  const bool hasOrdinary =
      std::any_of(panels.begin(), panels.end(), [](const Panel &panel) { return panel.ordinary != nullptr; });
  svg += legend(hasOrdinary);
  for (std::size_t place = 0; place < panels.size(); ++place) svg += panelOf(*this, part, place);
  return svg + "</svg>\n";
}

}  // namespace kx::fleet
