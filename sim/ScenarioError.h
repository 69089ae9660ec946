#pragma once
// FalSim::ScenarioError: a scenario file that cannot be run.
#include "sim/FileError.h"

namespace FalSim {

using ScenarioError = FileError;

}  // namespace FalSim
