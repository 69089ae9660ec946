#pragma once
// The status of one Ethernet interface.
#include "platform/intf/IntfStatusT.h"
#include "platform/vex/Export.h"

namespace Interface {

class FALMROUTE_EXPORT EthIntfStatus final : public IntfStatusT<EthIntfStatus> {
 public:
  using IntfStatusT::IntfStatusT;
};

}  // namespace Interface
