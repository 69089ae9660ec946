#pragma once
#include <cstdint>

namespace Fal {
// The agent's numeric VRF identifier. The default VRF is 0.
using VrfId = std::uint32_t;
}  // namespace Fal
