#pragma once
// FalSim::Printable: text from a file or a run, made safe to print in a
// message or a report.
//
// Names come from files the tools are given and can hold anything: an empty
// member name, a NUL, bytes that are not UTF-8. Printed raw they vanish,
// end a line early or garble the terminal and the JSON report. Here valid
// UTF-8 is kept as it is; every other byte, and every control character, is
// written as \xNN (a tab as \t, a line feed as \n), and a backslash is doubled
// so the form stays unambiguous.
#include <cstddef>
#include <string>
#include <string_view>

namespace FalSim {

class Printable {
 public:
  // The text with the escapes above.
  static std::string text(std::string_view s);
  // The text in double quotes (a quote inside escaped as \"), cut after
  // maxBytes bytes of the original (on a character boundary) with "...".
  static std::string quoted(std::string_view s, std::size_t maxBytes = 60);
  // Whether s is a plain name that needs no quotes in a path: a letter or
  // '_', then letters, digits and '_'.
  static bool plainName(std::string_view s);
};

}  // namespace FalSim
