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

constexpr char kZombieKeyStrep[] = "Value('Fal::ZombieKey', ** {'groupId': %s, 'expiryTime': %s})";

void strepOut(std::ostream& os, ZombieKey const& k) { Vex::strepFormat(os, kZombieKeyStrep, k.groupId, k.expiryTime); }

ZombieKey strepIn(Vex::StrepParser& p, Vex::StrepTag<ZombieKey>) {
  ZombieKey k;
  Vex::strepScan(p, kZombieKeyStrep, k.groupId, k.expiryTime);
  return k;
}

std::ostream& operator<<(std::ostream& os, ZombieKey const& k) { return printStrep(os, k); }

constexpr char kRouteKeyVlanIdStrep[] = "Value('Fal::RouteKeyVlanId', ** {'route': %s, 'vlan': %s})";

void strepOut(std::ostream& os, RouteKeyVlanId const& k) { Vex::strepFormat(os, kRouteKeyVlanIdStrep, k.route, k.vlan); }

RouteKeyVlanId strepIn(Vex::StrepParser& p, Vex::StrepTag<RouteKeyVlanId>) {
  RouteKeyVlanId k;
  Vex::strepScan(p, kRouteKeyVlanIdStrep, k.route, k.vlan);
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

constexpr char kMrouteHitRequestStrep[] = "Value('Fal::MrouteHitRequest', ** {'requestId': %s, 'action': %s})";

void strepOut(std::ostream& os, MrouteHitRequest const& r) {
  Vex::strepFormat(os, kMrouteHitRequestStrep, r.requestId, r.action);
}

MrouteHitRequest strepIn(Vex::StrepParser& p, Vex::StrepTag<MrouteHitRequest>) {
  MrouteHitRequest r;
  Vex::strepScan(p, kMrouteHitRequestStrep, r.requestId, r.action);
  return r;
}

std::ostream& operator<<(std::ostream& os, MrouteHitRequest const& r) { return printStrep(os, r); }

void strepOut(std::ostream& os, MtableOifSetPtr p) { Vex::strepOutRawPtr(os, "Fal::MtableOifSet", p.ptr); }

MtableOifSetPtr strepIn(Vex::StrepParser& p, Vex::StrepTag<MtableOifSetPtr>) {
  return MtableOifSetPtr(static_cast<MtableOifSet*>(const_cast<void*>(Vex::strepInRawPtr(p, "Fal::MtableOifSet"))));
}

std::ostream& operator<<(std::ostream& os, MtableOifSetPtr p) { return printStrep(os, p); }

}  // namespace Fal
