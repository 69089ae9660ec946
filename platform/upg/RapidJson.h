#pragma once
// The project's one way in to RapidJSON: include this, never <rapidjson/...>.
//
// RapidJSON checks its preconditions (a value's type, an index against the
// array's size) with RAPIDJSON_ASSERT, which by default is assert() and
// vanishes from release builds: a wrong document would then be read as
// garbage. Here every such check stops the agent through the fatal handler
// with the checked expression as its text ("IsObject()", "IsArray()",
// "index < data_.a.size"), the same as the agent's own invariants, so a
// malformed document fails the same way in every build and tests can see
// which check failed.
//
// A check that fails inside one of RapidJSON's noexcept functions cannot
// unwind; with a throwing fatal handler (tests) it terminates instead.
#if defined(RAPIDJSON_RAPIDJSON_H_)
#error "RapidJSON was included before platform/upg/RapidJson.h; include it only through that header"
#endif

#include "platform/vex/Assert.h"

#define RAPIDJSON_HAS_STDSTRING 1
#define RAPIDJSON_ASSERT(x)                               \
  do {                                                    \
    if (!(x)) ::Vex::fatal(#x, __FILE__, __LINE__);       \
  } while (0)
#define RAPIDJSON_NOEXCEPT_ASSERT(x) RAPIDJSON_ASSERT(x)

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
