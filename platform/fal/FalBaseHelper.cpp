#include "platform/fal/FalBaseHelper.h"

#include "platform/vex/Assert.h"

namespace Fal {

void FalBaseHelper::falAssert(char const* text, char const* file, int line) { Vex::fatal(text, file, line); }

}  // namespace Fal
