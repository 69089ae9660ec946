#include "sim/scenario/InterfacesReader.h"

namespace FalSim {

void InterfacesReader::read(JsonReader::Value const& v, std::string const& path) {
  auto const child = JsonReader::child;
  auto const item = JsonReader::item;
  Scenario& s = in_.scenario();
  in_.object(v, path);
  in_.knownFields(v, path, {"ethernet", "vlans"});
  if (auto const* e = in_.member(v, "ethernet")) {
    std::string const p = child(path, "ethernet");
    if (e->IsArray()) {
      auto const a = e->GetArray();
      for (std::size_t i = 0; i < a.Size(); ++i) in_.ethernetIs(in_.ethernet(a[i], item(p, i)), a[i], item(p, i));
    } else {
      auto const n = in_.integer(*e, p, "a port count from 1 to 4096 or a list of names (\"Ethernet1\")", 1, kMaxEthernet);
      for (std::uint32_t i = 1; i <= n; ++i) in_.ethernetIs(Netcore::IntfId::ethernet(i), *e, p);
    }
  }
  if (auto const* vl = in_.member(v, "vlans")) {
    std::string const p = child(path, "vlans");
    auto const a = in_.array(*vl, p, "a list of VLAN ids");
    for (std::size_t i = 0; i < a.Size(); ++i) {
      Bridging::VlanId const id = in_.vlan(a[i], item(p, i));
      if (in_.vlanDeclared(id)) in_.fail(item(p, i), "a VLAN id not listed before", &a[i]);
      s.vlans.push_back({Netcore::IntfId::vlan(id.value()), id});
    }
  }
}

}  // namespace FalSim
