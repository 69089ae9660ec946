#pragma once
// Whether the agent checks its hardware state against its model, and the
// requests for a check.
//
// Whoever changes hardware state and finds `verify` set calls
// doRequestVerify(); verification reactors watch onVerify(), which is told
// both when `verify` changes and on every request, so one handler serves both.
#include <cstdint>

#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace Fal {

class FALMROUTE_EXPORT VerifyData final : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<VerifyData> {
   public:
    virtual void onVerify() {}
    virtual void onVerifyRequests() {}
  };

  explicit VerifyData(bool verify = false) : verify_(verify) {}

  bool verify() const { return verify_; }
  void verifyIs(bool v);

  std::uint64_t verifyRequests() const { return verifyRequests_; }
  // Counts the request, then tells onVerifyRequests() and onVerify().
  void doRequestVerify();

 private:
  bool verify_;
  std::uint64_t verifyRequests_ = 0;
};

}  // namespace Fal
