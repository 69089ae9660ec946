#pragma once
// The Ethernet interfaces of this system and their statuses.
#include "platform/intf/EthIntfStatus.h"
#include "platform/intf/IntfStatusDirT.h"
#include "platform/vex/Export.h"

namespace Interface {

class FALMROUTE_EXPORT EthIntfStatusDir final : public IntfStatusDirT<EthIntfStatusDir, EthIntfStatus> {};

}  // namespace Interface
