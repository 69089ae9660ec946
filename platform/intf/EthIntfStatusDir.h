#pragma once
// The Ethernet interfaces of this system and their statuses.
#include "platform/intf/EthIntfStatus.h"
#include "platform/intf/IntfStatusDirT.h"

namespace Interface {

class EthIntfStatusDir final : public IntfStatusDirT<EthIntfStatusDir, EthIntfStatus> {};

}  // namespace Interface
