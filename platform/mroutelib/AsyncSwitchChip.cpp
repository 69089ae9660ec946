#include "platform/mroutelib/AsyncSwitchChip.h"

namespace MrouteLib {

AsyncSwitchChip::~AsyncSwitchChip() = default;

}  // namespace MrouteLib
