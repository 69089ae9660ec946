#include "platform/mroutelib/RouteKeyInfo.h"

namespace MrouteLib {

namespace {
constexpr char kStrep[] =
    "Value('MrouteLib::RouteKeyInfo', ** {'vrfId': %s, 'routeKeyType': %s, 'acceptingVlan': %s, 'bridge': %s, "
    "'fastdrop': %s})";
}  // namespace

void strepOut(std::ostream& os, RouteKeyInfo const& k) {
  Vex::strepFormat(os, kStrep, k.vrfId, k.routeKeyType, k.acceptingVlan, k.bridge, k.fastdrop);
}

RouteKeyInfo strepIn(Vex::StrepParser& p, Vex::StrepTag<RouteKeyInfo>) {
  RouteKeyInfo k;
  Vex::strepScan(p, kStrep, k.vrfId, k.routeKeyType, k.acceptingVlan, k.bridge, k.fastdrop);
  return k;
}

std::ostream& operator<<(std::ostream& os, RouteKeyInfo const& k) {
  strepOut(os, k);
  return os;
}

}  // namespace MrouteLib
