#pragma once
// Requests to the per-chip state machines to review multicast routes: each
// increment of multicastReviewPending asks for one review.
#include <cstdint>

#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace Fal {

class FALMROUTE_EXPORT L3MulticastRequest final : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<L3MulticastRequest> {
   public:
    virtual void onMulticastReviewPending() {}
  };

  std::uint32_t multicastReviewPending() const { return multicastReviewPending_; }
  void multicastReviewPendingIs(std::uint32_t v) {
    if (v == multicastReviewPending_) return;
    multicastReviewPending_ = v;
    notify(&Notifiee::onMulticastReviewPending);
  }
  // Wraps around like the counter it is.
  void multicastReviewPendingInc(std::uint32_t n = 1) { multicastReviewPendingIs(multicastReviewPending_ + n); }

 private:
  std::uint32_t multicastReviewPending_ = 0;
};

}  // namespace Fal
