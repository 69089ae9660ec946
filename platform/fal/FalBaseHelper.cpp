#include "platform/fal/FalBaseHelper.h"

#include "platform/vex/Assert.h"

namespace Fal {

void FalBaseHelper::falAssert(char const* text, std::source_location where) {
  Vex::fatal(text, where.file_name(), static_cast<int>(where.line()));
}

}  // namespace Fal
