#pragma once
// The status of one Ethernet interface.
#include "platform/intf/IntfStatusT.h"

namespace Interface {

class EthIntfStatus final : public IntfStatusT<EthIntfStatus> {
 public:
  using IntfStatusT::IntfStatusT;
};

}  // namespace Interface
