#include "platform/mroutelib/RouteKeyInfo.h"

namespace MrouteLib {

void strepOut(std::ostream& os, RouteKeyInfo const& k) {
  os << "Value('MrouteLib::RouteKeyInfo', ** {'vrfId': " << Vex::strep(k.vrfId)
     << ", 'routeKeyType': " << Vex::strep(k.routeKeyType) << ", 'bridge': " << Vex::strep(k.bridge)
     << ", 'fastdrop': " << Vex::strep(k.fastdrop) << "})";
}

RouteKeyInfo strepIn(Vex::StrepParser& p, Vex::StrepTag<RouteKeyInfo>) {
  RouteKeyInfo k;
  p.expect("Value('MrouteLib::RouteKeyInfo', ** {");
  p.expect("'vrfId': ");
  k.vrfId = Vex::parseFrom<std::uint32_t>(p);
  p.expect(", 'routeKeyType': ");
  k.routeKeyType = Vex::parseFrom<std::uint8_t>(p);
  p.expect(", 'bridge': ");
  k.bridge = Vex::parseFrom<bool>(p);
  p.expect(", 'fastdrop': ");
  k.fastdrop = Vex::parseFrom<bool>(p);
  p.expect("})");
  return k;
}

std::ostream& operator<<(std::ostream& os, RouteKeyInfo const& k) {
  strepOut(os, k);
  return os;
}

}  // namespace MrouteLib
