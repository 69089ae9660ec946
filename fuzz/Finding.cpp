#include <cstdio>
#include <cstdlib>

#include "fuzz/FuzzTarget.h"

namespace FalFuzz {

void finding(std::string_view what, std::string_view detail) {
  std::fprintf(stderr, "FINDING: %.*s\n  %.*s\n", static_cast<int>(what.size()), what.data(), static_cast<int>(detail.size()),
               detail.data());
  std::abort();
}

}  // namespace FalFuzz

#if defined(FALMROUTE_FUZZ_SUPPRESSIONS)
// Run by hand or by scripts/fuzz, a target stops at the first report of
// UBSan, except the one RapidJSON 1.1.0 itself makes on every object it
// builds (internal/stack.h applies an offset to its still-null stack).
extern "C" char const* __ubsan_default_options() {
  return "halt_on_error=1:print_stacktrace=1:suppressions=" FALMROUTE_FUZZ_SUPPRESSIONS;
}
#endif
