#pragma once
// FalKernel::SourceMap: how the kernel's multicast routing tables of the
// source namespace map onto the platform: which kernel table is which VRF
// (per family: the kernel numbers its IPv4 and IPv6 multicast tables apart,
// and by default puts them in table 253 and 254),
// and which platform output (a port and VLAN, with its fast-reroute backups)
// each kernel interface stands for. Given by the operator's configuration;
// kernel tables and interfaces it does not name are not mirrored.
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "absl/container/btree_map.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/net/AddressFamily.h"
#include "platform/types/VrfName.h"

namespace FalKernel {

class SourceMap {
 public:
  struct Interface {
    MrouteLib::PortVlan portVlan;
    // Outputs that replace those on this port when it goes down; empty: the
    // port is not protected.
    std::vector<MrouteLib::PortVlan> frrBackups;
    friend bool operator==(Interface const&, Interface const&) = default;
  };
  using TableId = std::pair<Netcore::AddressFamily, std::uint32_t>;
  using VrfColl = absl::btree_map<TableId, L3::VrfName>;
  using InterfaceColl = absl::btree_map<std::string, Interface, std::less<>>;

  L3::VrfName const* vrf(Netcore::AddressFamily af, std::uint32_t table) const {
    auto it = vrf_.find({af, table});
    return it == vrf_.end() ? nullptr : &it->second;
  }
  void vrfIs(Netcore::AddressFamily af, std::uint32_t table, L3::VrfName name) {
    vrf_.insert_or_assign(TableId{af, table}, std::move(name));
  }
  VrfColl const& vrfs() const { return vrf_; }

  Interface const* interface(std::string_view name) const {
    auto it = interface_.find(name);
    return it == interface_.end() ? nullptr : &it->second;
  }
  void interfaceIs(std::string name, Interface i) { interface_.insert_or_assign(std::move(name), std::move(i)); }
  InterfaceColl const& interfaces() const { return interface_; }

  friend bool operator==(SourceMap const&, SourceMap const&) = default;

 private:
  VrfColl vrf_;
  InterfaceColl interface_;
};

}  // namespace FalKernel
