#pragma once
// What every fuzz target shares: its entry point, and how it reports a
// finding.
//
// A target is built twice. With -DFALMROUTE_FUZZ=ON (clang) it is a
// libFuzzer program, instrumented for coverage and under ASan + UBSan. In
// every other build it is a plain program (ReplayMain.cpp) that runs the
// files or folders it is given through the same entry point, which is how
// CTest runs the seed corpora: the targets compile with both compilers and
// every seed stays an input the target accepts.
//
// A finding prints what went wrong and aborts, which libFuzzer and CTest
// both take as a failure.
#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace FalFuzz {

[[noreturn]] void finding(std::string_view what, std::string_view detail);

}  // namespace FalFuzz
