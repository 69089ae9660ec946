// toy-chip-agent: a small, complete chip agent on libFalMroute.
//
// It runs both flavours of the library over a toy chip (ToyTable): brings
// the library's objects up through their creators and factories, programs a
// few routes, shows sharing, a full table, a failed transaction and a
// zombie, prints what the chip holds, checks it, and tears everything down.
// Exit status 0 when every check holds, 1 otherwise.
//
// It runs on virtual time, so the zombie lifetimes pass at once; a real
// agent gives its event loop Vex::MonotonicTimeSource and calls run().
// Tracing: VEX_TRACE=FalMroute/0-2 shows the library's programming
// decisions, VEX_TRACE=ToyChip/* the toy's acknowledgements.
#include <iostream>
#include <memory>

#include "Checks.h"
#include "Flavours.h"
#include "platform/vex/ActivityManager.h"

int main() {
  Vex::ActivityManager loop(std::make_unique<Vex::VirtualTimeSource>(0.0));
  ToyChip::Checks checks;
  ToyChip::runSyncFlavour(checks);
  ToyChip::runAsyncFlavour(checks);
  if (checks.failed() != 0) {
    std::cout << checks.failed() << " check(s) failed\n";
    return 1;
  }
  std::cout << "every check holds\n";
  return 0;
}
