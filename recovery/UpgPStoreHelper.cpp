#include "recovery/UpgPStoreHelper.h"

#include <string>
#include <string_view>
#include <utility>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Strep.h"
#include "platform/vex/Trace.h"

namespace Fal::Mroute {
namespace {

Vex::TraceHandle& falMrouteTrace() {
  static Vex::TraceHandle& handle = Vex::traceHandle("FalMroute");
  return handle;
}

#define FAL_UPG_TRACE(level, expr) VEX_TRACE(falMrouteTrace(), level, "FalMrouteUpgPStoreHelper", expr)

// Where each field stands in a route entry.
constexpr rapidjson::SizeType kSourceIndex = 0;
constexpr rapidjson::SizeType kGroupIndex = 1;
constexpr rapidjson::SizeType kIntfIndex = 2;

// RapidJSON checks that a member name is a string only where it is given one
// to look up, never while its members are walked; a parsed document always
// has string names, but a value built in memory may not.
std::string_view memberName(rapidjson::Value const& name) {
  VEX_ASSERT(name.IsString());
  return {name.GetString(), name.GetStringLength()};
}

std::string_view stringIn(rapidjson::Value const& value) {
  char const* text = value.GetString();  // RapidJSON asserts "IsString()"
  return {text, value.GetStringLength()};
}

Netcore::IpGenPrefix prefixIn(rapidjson::Value const& value, char const* what, L3::VrfName const& vrf) {
  std::string_view const text = stringIn(value);
  try {
    return Netcore::IpGenPrefix(text);
  } catch (Vex::ParseError const& e) {
    Vex::fatal("invalid " + std::string(what) + " prefix \"" + std::string(text) + "\" in VRF " + vrf.stringValue() + " (" +
                   e.what() + ")",
               __FILE__, __LINE__);
  }
}

Netcore::IntfId intfIn(rapidjson::Value const& value, L3::VrfName const& vrf) {
  std::string_view const text = stringIn(value);
  try {
    return Netcore::IntfId(text);
  } catch (Vex::ParseError const& e) {
    Vex::fatal("invalid accepting interface \"" + std::string(text) + "\" in VRF " + vrf.stringValue() + " (" + e.what() + ")",
               __FILE__, __LINE__);
  }
}

}  // namespace

UpgPStoreHelper::UpgPStoreHelper(Vex::Ptr<HwStatus> mfibHwStatus)
    : Upg::UpgPStoreHelper(kStoreName), mfibHwStatus_(std::move(mfibHwStatus)) {}

UpgPStoreHelper::~UpgPStoreHelper() = default;

void UpgPStoreHelper::doRestore(rapidjson::Value const& document) {
  FAL_UPG_TRACE(8, "doRestore");
  if (document.ObjectEmpty()) return;  // RapidJSON asserts "IsObject()"
  for (auto const& member : document.GetObject()) {
    std::string_view const key = memberName(member.name);
    VEX_ASSERT(key == "mfibSgEntries");
    restoreEntries(member.value);
  }
}

void UpgPStoreHelper::restoreEntries(rapidjson::Value const& entries) {
  VEX_ASSERT(entries.GetType() == rapidjson::kObjectType);
  for (auto const& vrf : entries.GetObject()) {
    L3::VrfName const name(memberName(vrf.name));
    FAL_UPG_TRACE(8, " Processing vrf " << name);
    auto const vrfStatus = mfibHwStatus_->vrfStatusIs(name);
    for (auto const& entry : vrf.value.GetArray()) {
      // Indexing asserts "IsArray()" for an entry that is not an array and
      // "index < data_.a.size" for one that is too short.
      Netcore::IpGenPrefix source = prefixIn(entry[kSourceIndex], "source", name);
      Netcore::IpGenPrefix group = prefixIn(entry[kGroupIndex], "group", name);
      Netcore::IntfId const intf = intfIn(entry[kIntfIndex], name);
      FAL_UPG_TRACE(8, "  " << source << " " << group << " " << intf);
      vrfStatus->routeIs(Routing::Multicast::Fib::IpGenRouteKey(std::move(source), std::move(group)))->acceptingIntfIdIs(intf);
    }
  }
}

Vex::Ptr<UpgPStoreHelper> upgPStoreHelperFactory(Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> const& mfibHwStatus) {
  return Vex::make<UpgPStoreHelper>(mfibHwStatus);
}

}  // namespace Fal::Mroute
