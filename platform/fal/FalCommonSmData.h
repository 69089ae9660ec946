#pragma once
// Data every state machine of the agent shares: the verification data and
// whether the agent has finished initializing.
#include "platform/fal/VerifyData.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"

namespace Fal {

class FALMROUTE_EXPORT FalCommonSmData final : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<FalCommonSmData> {
   public:
    virtual void onVerifyData() {}
    virtual void onInitialized() {}
  };

  explicit FalCommonSmData(Vex::Ptr<VerifyData> verifyData = nullptr) : verifyData_(std::move(verifyData)) {}

  // May be null. Shared, not owned: state machines holding this data only
  // through a const pointer still request verification through it.
  Vex::Ptr<VerifyData> const& verifyData() const { return verifyData_; }
  void verifyDataIs(Vex::Ptr<VerifyData> v) {
    if (v == verifyData_) return;
    verifyData_.swap(v);  // the old data is released after the attribute is consistent
    notify(&Notifiee::onVerifyData);
  }

  bool initialized() const { return initialized_; }
  void initializedIs(bool v) {
    if (v == initialized_) return;
    initialized_ = v;
    notify(&Notifiee::onInitialized);
  }

 private:
  Vex::Ptr<VerifyData> verifyData_;
  bool initialized_ = false;
};

}  // namespace Fal
