#include "platform/mroutelib/PortVlan.h"

#include <charconv>

#include "platform/vex/HashColl.h"

namespace MrouteLib {

PortVlan::PortVlan(std::string_view text) {
  auto dot = text.rfind('.');
  port_ = Netcore::IntfId(text.substr(0, dot));
  if (dot == std::string_view::npos) return;
  auto num = text.substr(dot + 1);
  std::uint32_t v = 0;
  auto r = std::from_chars(num.data(), num.data() + num.size(), v);
  if (num.empty() || r.ec != std::errc() || r.ptr != num.data() + num.size())
    throw Vex::ParseError("expected a VLAN after '.', got \"" + std::string(text) + "\"");
  vlan_ = Bridging::VlanIdOrNone(v);
}

std::size_t PortVlan::hash() const { return static_cast<std::size_t>(Vex::mixHash(packed())); }

std::string PortVlan::stringValue() const {
  auto s = port_.stringValue();
  if (!vlan_.isNone()) {
    s += '.';
    s += std::to_string(vlan_.value());
  }
  return s;
}

std::ostream& operator<<(std::ostream& os, PortVlan pv) { return os << pv.stringValue(); }

void strepOut(std::ostream& os, PortVlan pv) {
  os << "Value('MrouteLib::PortVlan', ** {'port': " << Vex::strep(pv.port()) << ", 'vlan': " << Vex::strep(pv.vlan())
     << "})";
}

PortVlan strepIn(Vex::StrepParser& p, Vex::StrepTag<PortVlan>) {
  p.expect("Value('MrouteLib::PortVlan', ** {");
  p.expect("'port': ");
  auto port = Vex::parseFrom<Netcore::IntfId>(p);
  p.expect(", 'vlan': ");
  auto vlan = Vex::parseFrom<Bridging::VlanIdOrNone>(p);
  p.expect("})");
  return PortVlan(port, vlan);
}

}  // namespace MrouteLib
