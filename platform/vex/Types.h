#pragma once
// Basic value types of the Vex framework.
#include <cstdint>
#include <limits>
#include <string>

namespace Vex {

// Seconds on the agent's clock; +infinity means "never".
using Seconds = double;
// An entity's name and a plain text value.
using Name = std::string;
using String = std::string;

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S64 = std::int64_t;

inline constexpr Seconds kNever = std::numeric_limits<double>::infinity();

inline bool isFinite(Seconds t) { return t <= std::numeric_limits<double>::max() && t >= -std::numeric_limits<double>::max(); }

}  // namespace Vex
