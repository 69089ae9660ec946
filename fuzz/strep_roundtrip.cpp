// The strep parsers of every value type: the first byte picks the type, the
// rest is the text. A text the parser refuses must be refused with a parse
// error (or a value type's range error); one it accepts must print to a
// form that parses back and prints the same (parse, print, parse). Anything
// else (another exception, a sanitizer report, a crash) is a finding.
#include <optional>
#include <string>
#include <string_view>

#include "async/MrouteCounterKey.h"
#include "async/MrouteCounterKeyMapEntry.h"
#include "fuzz/FuzzTarget.h"
#include "model/MrouteHitAction.h"
#include "model/MrouteHitRequest.h"
#include "model/MrouteXactType.h"
#include "model/MtableOifSetPtr.h"
#include "model/RouteKeyVlanId.h"
#include "model/ZombieKey.h"
#include "model/mroute/AsyncMrouteSwitchRoute.h"
#include "model/mroute/InUseRouteHandleKey.h"
#include "model/mroute/ZombieKey.h"
#include "platform/bolt/Xact.h"
#include "platform/fib/Counter.h"
#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/fib/RouteKeyType.h"
#include "platform/intf/IntfOperStatus.h"
#include "platform/log/LogSeverity.h"
#include "platform/memtab/Mode.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/mroutelib/RouteKeyInfo.h"
#include "platform/net/AddressFamily.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/types/VlanId.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Enum.h"
#include "platform/vex/Strep.h"

namespace {

template <class T>
void roundTrip(char const* type, std::string_view text) {
  std::optional<T> first;
  try {
    first = Vex::parse<T>(text);
  } catch (Vex::ParseError const&) {
    return;
  } catch (Vex::RangeException const&) {
    return;
  } catch (std::exception const& e) {
    FalFuzz::finding(std::string(type) + ": the parser let another exception escape", e.what());
  }
  std::string const printed = Vex::strep(*first);
  std::optional<T> second;
  try {
    second = Vex::parse<T>(printed);
  } catch (std::exception const& e) {
    FalFuzz::finding(std::string(type) + ": the printed form does not parse back",
                     "'" + std::string(text) + "' printed as '" + printed + "': " + e.what());
  }
  std::string const again = Vex::strep(*second);
  if (again != printed) {
    FalFuzz::finding(std::string(type) + ": parsed back, it prints differently",
                     "'" + std::string(text) + "' printed as '" + printed + "', then as '" + again + "'");
  }
}

using Parse = void (*)(std::string_view);
#define FALFUZZ_TYPE(T) [](std::string_view text) { roundTrip<T>(#T, text); }

Parse const kTypes[] = {
    FALFUZZ_TYPE(bool),
    FALFUZZ_TYPE(double),
    FALFUZZ_TYPE(std::string),
    FALFUZZ_TYPE(std::int64_t),
    FALFUZZ_TYPE(std::uint16_t),
    FALFUZZ_TYPE(Netcore::AddressFamily),
    FALFUZZ_TYPE(Netcore::IpGenAddr),
    FALFUZZ_TYPE(Netcore::IpGenPrefix),
    FALFUZZ_TYPE(Netcore::IntfId),
    FALFUZZ_TYPE(Bridging::VlanId),
    FALFUZZ_TYPE(Bridging::VlanIdOrNone),
    FALFUZZ_TYPE(L3::VrfName),
    FALFUZZ_TYPE(Routing::Multicast::Fib::IpGenRouteKey),
    FALFUZZ_TYPE(Routing::Multicast::Fib::RouteKeyType),
    FALFUZZ_TYPE(Routing::Multicast::Fib::CounterMode),
    FALFUZZ_TYPE(Routing::Multicast::Fib::Counter),
    FALFUZZ_TYPE(Interface::IntfOperStatus),
    FALFUZZ_TYPE(MrouteLib::PortVlan),
    FALFUZZ_TYPE(MrouteLib::PortVlanSet),
    FALFUZZ_TYPE(MrouteLib::RouteHandle),
    FALFUZZ_TYPE(MrouteLib::RouteKeyInfo),
    FALFUZZ_TYPE(Bolt::XactStatus),
    FALFUZZ_TYPE(Log::Severity),
    FALFUZZ_TYPE(Memtab::Mode),
    FALFUZZ_TYPE(Memtab::MountStatus),
    FALFUZZ_TYPE(Fal::MrouteHitAction),
    FALFUZZ_TYPE(Fal::MrouteHitRequest),
    FALFUZZ_TYPE(Fal::MtableOifSetPtr),
    FALFUZZ_TYPE(Fal::RouteKeyVlanId),
    FALFUZZ_TYPE(Fal::ZombieKey),
    FALFUZZ_TYPE(FalHelper::MrouteXactType),
    FALFUZZ_TYPE(Fal::Mroute::AsyncMrouteSwitchRoute),
    FALFUZZ_TYPE(Fal::Mroute::InUseRouteHandleKey),
    FALFUZZ_TYPE(Fal::Mroute::ZombieKey),
    FALFUZZ_TYPE(Fal::Mroute::MrouteCounterKey),
    FALFUZZ_TYPE(Fal::Mroute::MrouteCounterKeyMapEntry),
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size == 0) return 0;
  constexpr std::size_t kCount = sizeof kTypes / sizeof kTypes[0];
  kTypes[data[0] % kCount](std::string_view(reinterpret_cast<char const*>(data) + 1, size - 1));
  return 0;
}
