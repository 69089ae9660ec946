#pragma once
// How a recording hook object writes one call: "name(arg, arg)", each
// argument as it prints, booleans as "true" and "false" (through b()).
#include <sstream>
#include <string>

namespace FalTest {

template <class... A>
std::string callLine(char const* name, A const&... args) {
  std::ostringstream os;
  os << name << '(';
  char const* sep = "";
  ((os << sep << args, sep = ", "), ...);
  os << ')';
  return os.str();
}

inline char const* b(bool v) { return v ? "true" : "false"; }

}  // namespace FalTest
