#pragma once
// Every interface of the system (Ethernet, VLAN, port-channel, CPU) and its status.
#include "platform/intf/IntfStatus.h"
#include "platform/intf/IntfStatusDirT.h"

namespace Interface {

class AllIntfStatusDir final : public IntfStatusDirT<AllIntfStatusDir, IntfStatus> {};

}  // namespace Interface
