#pragma once
// FalKernel::LinkEntry: what rtnetlink says of one network interface
// (RTM_NEWLINK / RTM_DELLINK): its index, its name and whether it can carry
// traffic.
#include <cstdint>
#include <string>

namespace FalKernel {

struct LinkEntry {
  int index = 0;
  std::string name;
  bool adminUp = false;   // IFF_UP
  std::uint8_t operState = 0;  // IFLA_OPERSTATE (IF_OPER_*)

  friend bool operator==(LinkEntry const&, LinkEntry const&) = default;
};

}  // namespace FalKernel
