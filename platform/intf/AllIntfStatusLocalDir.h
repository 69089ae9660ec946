#pragma once
// Every interface local to this agent's chips and its status.
#include "platform/intf/IntfStatus.h"
#include "platform/intf/IntfStatusDirT.h"
#include "platform/vex/Export.h"

namespace Interface {

class FALMROUTE_EXPORT AllIntfStatusLocalDir final : public IntfStatusDirT<AllIntfStatusLocalDir, IntfStatus> {};

}  // namespace Interface
