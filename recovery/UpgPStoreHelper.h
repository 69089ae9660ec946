#pragma once
// Fal::Mroute::UpgPStoreHelper: reads back, after a hitless upgrade, which
// multicast routes the chips kept forwarding across the agent's restart.
//
// The upgrade framework hands doRestore() this library's section of the
// persistent-store document (the store "FalMroute"):
//
//   { "mfibSgEntries": {
//       "<VRF name>": [ [ "<source prefix>", "<group prefix>", "<accepting interface>" ], ... ],
//       ... } }
//
// The whole section may also be an empty object. Every VRF gets its hardware
// VRF status and every entry a route status with its accepting interface, in
// document order; a repeated entry updates the same route, so its last
// accepting interface wins. An empty interface text means no accepting
// interface. Elements after the third of an entry are not read.
//
// The document is written by the agent itself, so a malformed one means the
// saved state cannot be trusted: doRestore stops the agent through the fatal
// handler instead of skipping what it cannot read. The texts are
//   key == "mfibSgEntries"                          another top-level member
//   entries.GetType() == rapidjson::kObjectType     "mfibSgEntries" not an object
//   name.IsString()                                 a member name that is not a string
//   IsObject() / IsArray() / IsString()             RapidJSON's own type checks
//   index < data_.a.size                            an entry of fewer than three elements
//   invalid <source|group> prefix "<text>" in VRF <name> (<why>)
//   invalid accepting interface "<text>" in VRF <name> (<why>)
// and a VRF name over 100 bytes throws Vex::RangeException
// ("VrfName::bytes > VrfName::maxLength not allowed"). What was restored before
// the fault stays in the status.
#include "platform/fib/hardware/Status.h"
#include "platform/upg/RapidJson.h"
#include "platform/upg/UpgPStoreHelper.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Types.h"

namespace Fal::Mroute {

class FALMROUTE_EXPORT UpgPStoreHelper : public Upg::UpgPStoreHelper {
 public:
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;

  // The name of this library's section of the persistent-store document.
  static constexpr char const* kStoreName = "FalMroute";

  explicit UpgPStoreHelper(Vex::Ptr<HwStatus> mfibHwStatus);

  // The status that is rebuilt.
  Vex::Ptr<HwStatus> const& mfibHwStatus() const { return mfibHwStatus_; }

  Vex::String fwkType() const override { return "Fal::Mroute::UpgPStoreHelper"; }
  ~UpgPStoreHelper() override;
  void doRestore(rapidjson::Value const& document) override;

 private:
  void restoreEntries(rapidjson::Value const& entries);

  Vex::Ptr<HwStatus> const mfibHwStatus_;
};

FALMROUTE_EXPORT Vex::Ptr<UpgPStoreHelper> upgPStoreHelperFactory(Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> const& mfibHwStatus);

}  // namespace Fal::Mroute
