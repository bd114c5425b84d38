#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace kx::fleet {

/// A picture (SVG) of numbers that have a value for each second, one above the other.
struct TimePlot {
  /// The value of a second.
  using ValueOf = std::function<double(std::size_t second)>;

  struct Panel {
    std::string title;
    ValueOf value;
    ValueOf ordinary;  ///< what is drawn behind it; none where there is nothing to draw
  };
  /// A part of the time that is shaded.
  struct Trouble {
    double from;
    double to;
  };

  std::string head;
  std::size_t from = 0;  ///< the first second that is drawn, and the first that is not any more
  std::size_t to = 0;
  std::vector<Panel> panels;
  std::vector<Trouble> troubles;

  std::string svg() const;
};

}  // namespace kx::fleet
