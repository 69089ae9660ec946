#pragma once
// The status of any interface (Ethernet, VLAN, port-channel, CPU), as held by
// the all-interface directories.
#include "platform/intf/IntfStatusT.h"
#include "platform/vex/Export.h"

namespace Interface {

class FALMROUTE_EXPORT IntfStatus final : public IntfStatusT<IntfStatus> {
 public:
  using IntfStatusT::IntfStatusT;
};

}  // namespace Interface
