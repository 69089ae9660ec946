// Text forms, hashing and registrations of the asynchronous flavour's value types.
#include <cmath>
#include <cstring>

#include "model/MrouteXactType.h"
#include "model/mroute/AsyncMrouteSwitchRoute.h"
#include "model/mroute/InUseRouteHandleKey.h"
#include "model/mroute/ZombieKey.h"
#include "platform/vex/HashColl.h"

namespace Vex {
EnumType const& EnumTraits<FalHelper::MrouteXactType>::type() {
  static EnumType const t("FalHelper::MrouteXactType", {{0, "oifSet"}, {1, "ingress"}});
  return t;
}
}  // namespace Vex

namespace Fal::Mroute {
namespace {

[[maybe_unused]] auto const& kMrouteXactTypeRegistered = Vex::EnumTraits<FalHelper::MrouteXactType>::type();

constexpr char kRouteStrep[] = "Value('Fal::Mroute::AsyncMrouteSwitchRoute', ** {'routeKey': %s, 'rpaId': %s})";
constexpr char kHandleKeyStrep[] = "Value('Fal::Mroute::InUseRouteHandleKey', ** {'routeKey': %s, 'vlan': %s, 'vrfId': %s})";
constexpr char kZombieStrep[] = "Value('Fal::Mroute::ZombieKey', ** {'multicastId': %s, 'expiryTime': %s})";

template <class T>
std::ostream& print(std::ostream& os, T const& v) {
  strepOut(os, v);
  return os;
}

std::uint64_t combine(std::uint64_t a, std::uint64_t b) { return Vex::mixHash(a ^ (b + 0x9E3779B97F4A7C15ULL + (a << 6))); }

}  // namespace

std::size_t AsyncMrouteSwitchRoute::hash() const { return static_cast<std::size_t>(combine(routeKey.hash(), rpaId)); }

void strepOut(std::ostream& os, AsyncMrouteSwitchRoute const& r) { Vex::strepFormat(os, kRouteStrep, r.routeKey, r.rpaId); }

AsyncMrouteSwitchRoute strepIn(Vex::StrepParser& p, Vex::StrepTag<AsyncMrouteSwitchRoute>) {
  AsyncMrouteSwitchRoute r;
  Vex::strepScan(p, kRouteStrep, r.routeKey, r.rpaId);
  return r;
}

std::ostream& operator<<(std::ostream& os, AsyncMrouteSwitchRoute const& r) { return print(os, r); }

std::size_t InUseRouteHandleKey::hash() const {
  return static_cast<std::size_t>(combine(combine(routeKey.hash(), vlan.value()), vrfId));
}

void strepOut(std::ostream& os, InUseRouteHandleKey const& k) { Vex::strepFormat(os, kHandleKeyStrep, k.routeKey, k.vlan, k.vrfId); }

InUseRouteHandleKey strepIn(Vex::StrepParser& p, Vex::StrepTag<InUseRouteHandleKey>) {
  InUseRouteHandleKey k;
  Vex::strepScan(p, kHandleKeyStrep, k.routeKey, k.vlan, k.vrfId);
  return k;
}

std::ostream& operator<<(std::ostream& os, InUseRouteHandleKey const& k) { return print(os, k); }

std::size_t ZombieKey::hash() const {
  // Equal keys hash alike: 0.0 and -0.0 are equal times.
  double const t = expiryTime == 0.0 ? 0.0 : expiryTime;
  std::uint64_t bits;
  std::memcpy(&bits, &t, sizeof bits);
  return static_cast<std::size_t>(combine(multicastId, bits));
}

void strepOut(std::ostream& os, ZombieKey const& k) { Vex::strepFormat(os, kZombieStrep, k.multicastId, k.expiryTime); }

ZombieKey strepIn(Vex::StrepParser& p, Vex::StrepTag<ZombieKey>) {
  ZombieKey k;
  Vex::strepScan(p, kZombieStrep, k.multicastId, k.expiryTime);
  return k;
}

std::ostream& operator<<(std::ostream& os, ZombieKey const& k) { return print(os, k); }

}  // namespace Fal::Mroute
