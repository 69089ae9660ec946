#include "platform/vex/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Vex {
namespace {
FatalHandler& handlerSlot() {
  static FatalHandler handler;
  return handler;
}
}  // namespace

FatalHandler fatalHandlerIs(FatalHandler handler) { return std::exchange(handlerSlot(), std::move(handler)); }

void fatal(std::string const& text, char const* file, int line) {
  if (auto& h = handlerSlot()) h(text, file, line);
  std::fprintf(stderr, "FATAL: assertion failed: %s (%s:%d)\n", text.c_str(), file, line);
  std::fflush(stderr);
  std::abort();
}

void throwingFatalHandler(std::string const& text, char const* file, int line) { throw FatalError(text, file, line); }

}  // namespace Vex
