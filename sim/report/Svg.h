#pragma once
// FalSim::Svg: the small drawing vocabulary the report's charts share: text
// escaping for XML, numbers written short and exactly enough, round axis
// ticks, and the chip colours.
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace FalSim::Svg {

// Text made safe inside an XML element or a quoted attribute.
std::string escape(std::string_view text);
// A coordinate: at most two decimals, no trailing zeros.
std::string coord(double v);
// A data value, exact: the shortest text that reads back as v.
std::string value(double v);
// A value for an axis label: 12, 1.5, 2k, 1.2M, 0.05.
std::string label(double v);

// Round tick values covering [lo, hi], about `count` of them; whole numbers
// only when `whole` (an axis of counts).
std::vector<double> ticks(double lo, double hi, int count, bool whole = false);

// The colour of chip `chip` (a palette that stays apart for people with
// colour-vision deficiency, then repeats); the agent's series are drawn in
// kAgentColour.
char const* chipColour(std::uint32_t chip);
inline constexpr char const* kAgentColour = "#333333";

// A chart's drawing area inside its svg element, and its value axis (from 0
// to top).
struct Frame {
  int width;
  int height;
  double left;
  double right;
  double top;
  double bottom;
  double valueTop = 1;
  double y(double v) const { return bottom - v / valueTop * (bottom - top); }
};

// Opens the svg element (data-source names the JSON data it draws) and writes its title.
void open(std::ostream& os, Frame const& f, std::string const& source, std::string const& title);
// The value axis: grid lines and labels at the ticks, the axis line and its unit.
void valueAxis(std::ostream& os, Frame const& f, std::vector<double> const& ticks, std::string const& unit);
// The base line and what it counts.
void baseAxis(std::ostream& os, Frame const& f, std::string const& what);

}  // namespace FalSim::Svg
