// The upgrade-document restorer: a saved document, whole ({"FalMroute":
// {"mfibSgEntries": {...}}, ...}), restored into a fresh hardware status.
//
// The document is the agent's own, so a malformed one must stop the agent
// through its fatal assertion, never be read as garbage or crash: here the
// fatal handler throws, and the target catches what it throws. So is a VRF
// name over 100 bytes (a range error of the name) and a text that is not a
// JSON object (the framework's RestoreError). Anything else that escapes,
// any sanitizer report, and any crash is a finding; so is a document the
// restorer accepted whose routes do not all read back from the status.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "platform/fib/hardware/Status.h"
#include "platform/vex/Assert.h"
#include "recovery/UpgPStoreHelper.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static bool const installed = (Vex::fatalHandlerIs(Vex::throwingFatalHandler), true);
  (void)installed;
  std::string const text(reinterpret_cast<char const*>(data), size);
  auto status = Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv4);
  auto helper = Fal::Mroute::upgPStoreHelperFactory(status);
  bool restored = false;
  try {
    restored = helper->restore(text);
  } catch (Vex::FatalError const&) {
    return 0;  // the agent stops: what a malformed document must do
  } catch (Vex::RangeException const&) {
    return 0;
  } catch (Upg::RestoreError const&) {
    return 0;
  } catch (std::exception const& e) {
    FalFuzz::finding("the restorer let another exception escape", e.what());
  }
  if (!restored) return 0;
  // Accepted: every entry of the section has its route status, with the
  // accepting interface of the last entry for that route.
  rapidjson::Document doc;
  doc.Parse(text.data(), text.size());
  auto const& entries = doc[Fal::Mroute::UpgPStoreHelper::kStoreName];
  if (entries.ObjectEmpty()) return 0;
  for (auto const& vrf : entries["mfibSgEntries"].GetObject()) {
    L3::VrfName const name(std::string_view(vrf.name.GetString(), vrf.name.GetStringLength()));
    auto const vrfStatus = status->vrfStatus(name);
    if (!vrfStatus) FalFuzz::finding("a restored VRF has no status", name.stringValue());
    for (auto const& entry : vrf.value.GetArray()) {
      auto text = [](rapidjson::Value const& v) { return std::string_view(v.GetString(), v.GetStringLength()); };
      Routing::Multicast::Fib::IpGenRouteKey const key(Netcore::IpGenPrefix(text(entry[0])), Netcore::IpGenPrefix(text(entry[1])));
      if (!vrfStatus->route(key)) FalFuzz::finding("a restored entry has no route status", key.pretty());
    }
  }
  return 0;
}
