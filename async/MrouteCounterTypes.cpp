// Text forms and hashing of the counter key map's value types.
#include "async/MrouteCounterKey.h"
#include "async/MrouteCounterKeyMapEntry.h"
#include "platform/vex/HashColl.h"

namespace Fal::Mroute {
namespace {
constexpr char kCounterKeyStrep[] = "Value('Fal::Mroute::MrouteCounterKey', ** {'vrfId': %s, 'sg': %s})";
constexpr char kEntryStrep[] = "Value('Fal::Mroute::MrouteCounterKeyMapEntry', ** {'key': %s, 'counterKey': %s})";
}  // namespace

std::size_t MrouteCounterKey::hash() const {
  return static_cast<std::size_t>(Vex::mixHash(static_cast<std::uint64_t>(sg.hash()) ^ (std::uint64_t{vrfId} << 32 | vrfId)));
}

void strepOut(std::ostream& os, MrouteCounterKey const& k) { Vex::strepFormat(os, kCounterKeyStrep, k.vrfId, k.sg); }

MrouteCounterKey strepIn(Vex::StrepParser& p, Vex::StrepTag<MrouteCounterKey>) {
  MrouteCounterKey k;
  Vex::strepScan(p, kCounterKeyStrep, k.vrfId, k.sg);
  return k;
}

std::ostream& operator<<(std::ostream& os, MrouteCounterKey const& k) {
  strepOut(os, k);
  return os;
}

void strepOut(std::ostream& os, MrouteCounterKeyMapEntry const& e) { Vex::strepFormat(os, kEntryStrep, e.key, e.counterKey); }

MrouteCounterKeyMapEntry strepIn(Vex::StrepParser& p, Vex::StrepTag<MrouteCounterKeyMapEntry>) {
  MrouteCounterKeyMapEntry e;
  Vex::strepScan(p, kEntryStrep, e.key, e.counterKey);
  return e;
}

std::ostream& operator<<(std::ostream& os, MrouteCounterKeyMapEntry const& e) {
  strepOut(os, e);
  return os;
}

}  // namespace Fal::Mroute
