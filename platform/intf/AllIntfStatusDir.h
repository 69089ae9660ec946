#pragma once
// Every interface of the system (Ethernet, VLAN, port-channel, CPU) and its status.
#include "platform/intf/IntfStatus.h"
#include "platform/intf/IntfStatusDirT.h"
#include "platform/vex/Export.h"

namespace Interface {

class FALMROUTE_EXPORT AllIntfStatusDir final : public IntfStatusDirT<AllIntfStatusDir, IntfStatus> {};

}  // namespace Interface
