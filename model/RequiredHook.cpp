#include "model/RequiredHook.h"

#include <cstdlib>

#include "platform/fal/FalBaseHelper.h"

namespace FalHelper {

void requiredHook() {
  if (std::getenv("FAL_NOOP_AGENT") != nullptr) return;
  Fal::FalBaseHelper::falAssert("This function must be implemented by derived class");
}

}  // namespace FalHelper
