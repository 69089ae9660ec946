// Text forms and enumeration services of the model's value types.
#include "model/MrouteHitAction.h"
#include "model/MrouteHitRequest.h"
#include "model/MtableOifSetPtr.h"
#include "model/RouteKeyVlanId.h"
#include "model/ZombieKey.h"
#include "platform/vex/Assert.h"

namespace Vex {
EnumType const& EnumTraits<Fal::MrouteHitAction>::type() {
  static EnumType const t("Fal::MrouteHitAction", {{1, "read"}, {2, "clear"}});
  return t;
}
}  // namespace Vex

namespace Fal {

namespace {
template <class T>
std::ostream& printStrep(std::ostream& os, T const& v) {
  strepOut(os, v);
  return os;
}
}  // namespace

void strepOut(std::ostream& os, ZombieKey const& k) {
  os << "Value('Fal::ZombieKey', ** {'groupId': " << Vex::strep(k.groupId) << ", 'expiryTime': " << Vex::strep(k.expiryTime)
     << "})";
}

ZombieKey strepIn(Vex::StrepParser& p, Vex::StrepTag<ZombieKey>) {
  ZombieKey k;
  p.expect("Value('Fal::ZombieKey', ** {");
  p.expect("'groupId': ");
  k.groupId = Vex::parseFrom<std::uint32_t>(p);
  p.expect(", 'expiryTime': ");
  k.expiryTime = Vex::parseFrom<double>(p);
  p.expect("})");
  return k;
}

std::ostream& operator<<(std::ostream& os, ZombieKey const& k) { return printStrep(os, k); }

void strepOut(std::ostream& os, RouteKeyVlanId const& k) {
  os << "Value('Fal::RouteKeyVlanId', ** {'route': " << Vex::strep(k.route) << ", 'vlan': " << Vex::strep(k.vlan) << "})";
}

RouteKeyVlanId strepIn(Vex::StrepParser& p, Vex::StrepTag<RouteKeyVlanId>) {
  RouteKeyVlanId k;
  p.expect("Value('Fal::RouteKeyVlanId', ** {");
  p.expect("'route': ");
  k.route = Vex::parseFrom<Routing::Multicast::Fib::IpGenRouteKey>(p);
  p.expect(", 'vlan': ");
  k.vlan = Vex::parseFrom<Bridging::VlanIdOrNone>(p);
  p.expect("})");
  return k;
}

std::ostream& operator<<(std::ostream& os, RouteKeyVlanId const& k) { return printStrep(os, k); }

MrouteHitAction MrouteHitActionInstance(std::int64_t value) {
  if (!Vex::EnumTraits<MrouteHitAction>::type().name(value))
    throw Vex::RangeException("Fal::MrouteHitAction has no literal with value " + std::to_string(value));
  return static_cast<MrouteHitAction>(value);
}

MrouteHitAction MrouteHitActionInstance(std::string_view name) {
  auto v = Vex::EnumTraits<MrouteHitAction>::type().value(name);
  if (!v) throw Vex::RangeException("Fal::MrouteHitAction has no literal named " + std::string(name));
  return static_cast<MrouteHitAction>(*v);
}

std::string stringValue(MrouteHitAction a) { return Vex::enumName(a); }

std::string valueToStrep(MrouteHitAction a) { return Vex::strep(a); }

MrouteHitAction sequenceToValue(std::size_t sequence) {
  auto const& lits = Vex::EnumTraits<MrouteHitAction>::type().literals();
  if (sequence >= lits.size())
    throw Vex::RangeException("Fal::MrouteHitAction has no literal at position " + std::to_string(sequence));
  return static_cast<MrouteHitAction>(lits[sequence].value);
}

std::ostream& operator<<(std::ostream& os, MrouteHitAction a) { return os << stringValue(a); }

void strepOut(std::ostream& os, MrouteHitRequest const& r) {
  os << "Value('Fal::MrouteHitRequest', ** {'requestId': " << Vex::strep(r.requestId) << ", 'action': " << Vex::strep(r.action)
     << "})";
}

MrouteHitRequest strepIn(Vex::StrepParser& p, Vex::StrepTag<MrouteHitRequest>) {
  MrouteHitRequest r;
  p.expect("Value('Fal::MrouteHitRequest', ** {");
  p.expect("'requestId': ");
  r.requestId = Vex::parseFrom<std::uint32_t>(p);
  p.expect(", 'action': ");
  r.action = Vex::parseFrom<MrouteHitAction>(p);
  p.expect("})");
  return r;
}

std::ostream& operator<<(std::ostream& os, MrouteHitRequest const& r) { return printStrep(os, r); }

void strepOut(std::ostream& os, MtableOifSetPtr p) { Vex::strepOutRawPtr(os, "Fal::MtableOifSet", p.ptr); }

MtableOifSetPtr strepIn(Vex::StrepParser& p, Vex::StrepTag<MtableOifSetPtr>) {
  return MtableOifSetPtr(static_cast<MtableOifSet*>(const_cast<void*>(Vex::strepInRawPtr(p, "Fal::MtableOifSet"))));
}

std::ostream& operator<<(std::ostream& os, MtableOifSetPtr p) { return printStrep(os, p); }

}  // namespace Fal
