#pragma once
// Fatal assertions and the range errors of value types.
//
// A failed invariant calls the fatal handler with the asserted text. The
// default handler prints it with its place and aborts; tests install
// throwingFatalHandler so they can check the exact text.
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/vex/Export.h"

namespace Vex {

using FatalHandler = std::function<void(std::string const& text, char const* file, int line)>;

// Installs a handler (null restores the default); returns the previous one.
FALMROUTE_EXPORT FatalHandler fatalHandlerIs(FatalHandler handler);
[[noreturn]] FALMROUTE_EXPORT void fatal(std::string const& text, char const* file = "", int line = 0);

// What throwingFatalHandler throws: the asserted text, exactly.
class FALMROUTE_EXPORT FatalError : public std::logic_error {
 public:
  FatalError(std::string const& text, char const* file, int line) : std::logic_error(text), file_(file), line_(line) {}
  char const* file() const { return file_; }
  int line() const { return line_; }

 private:
  char const* file_;
  int line_;
};
FALMROUTE_EXPORT void throwingFatalHandler(std::string const& text, char const* file, int line);

// A value outside the range of a value type ("VlanId::value < 1 or > 4094 not allowed").
class FALMROUTE_EXPORT RangeException : public std::range_error {
 public:
  explicit RangeException(std::string const& text) : std::range_error(text) {}
};

// A null given to a collection mutator.
class FALMROUTE_EXPORT NullPointerException : public std::invalid_argument {
 public:
  explicit NullPointerException(std::string const& text) : std::invalid_argument(text) {}
};

}  // namespace Vex

// The asserted expression is the message, so write it as it should read.
#define VEX_ASSERT(cond)                                  \
  do {                                                    \
    if (!(cond)) ::Vex::fatal(#cond, __FILE__, __LINE__); \
  } while (0)
#define VEX_ASSERT_MSG(cond, text)                       \
  do {                                                   \
    if (!(cond)) ::Vex::fatal(text, __FILE__, __LINE__); \
  } while (0)
