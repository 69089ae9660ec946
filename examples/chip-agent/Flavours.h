#pragma once
// The two halves of the example, one per flavour of the library. Each runs
// on the current event loop, checks what the chip holds as it goes, and
// leaves the chip empty.
#include "Checks.h"

namespace ToyChip {

void runSyncFlavour(Checks& checks);
void runAsyncFlavour(Checks& checks);

}  // namespace ToyChip
