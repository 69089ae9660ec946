#pragma once
// FalKernel::MfcEntry: one entry of the kernel's multicast forwarding cache,
// as rtnetlink reports it (RTM_NEWROUTE / RTM_DELROUTE of the IPMR
// families), before any translation.
//
// Interfaces are kernel interface indexes: the input is the device of the
// entry's parent virtual interface, the outputs the devices of the virtual
// interfaces it forwards to, in virtual-interface order. A source of all
// zeros is a (*, G) entry, a group of all zeros the (*, *) entry. An
// unresolved entry is a packet queue waiting for a daemon's decision, not a
// route: the kernel reports it without interfaces.
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <utility>

#include "absl/container/inlined_vector.h"
#include "platform/net/AddressFamily.h"
#include "platform/net/IpGenAddr.h"

namespace FalKernel {

struct MfcEntry {
  Netcore::AddressFamily af = Netcore::AddressFamily::ipunknown;
  std::uint32_t table = 0;
  Netcore::IpGenAddr source;
  Netcore::IpGenAddr group;
  int iif = 0;  // 0: the kernel named no input device
  absl::InlinedVector<int, 8> oifs;
  bool unresolved = false;

  friend bool operator==(MfcEntry const&, MfcEntry const&) = default;
};

// What names an entry in the kernel: its table and (S, G) in one family.
struct MfcKey {
  Netcore::AddressFamily af = Netcore::AddressFamily::ipunknown;
  std::uint32_t table = 0;
  Netcore::IpGenAddr source;
  Netcore::IpGenAddr group;

  static MfcKey of(MfcEntry const& e) { return {e.af, e.table, e.source, e.group}; }
  friend bool operator==(MfcKey const&, MfcKey const&) = default;
  template <typename H>
  friend H AbslHashValue(H h, MfcKey const& k) {
    return H::combine(std::move(h), k.af, k.table, k.source.hash(), k.group.hash());
  }
};

// "table 253 (10.0.0.2, 239.1.1.1) iif 3 oifs [4 5]", for traces and test failures.
std::ostream& operator<<(std::ostream& os, MfcEntry const& e);

}  // namespace FalKernel
