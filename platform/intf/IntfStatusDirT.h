#pragma once
// A directory of interface statuses keyed by interface id, iterated in id
// order.
//
// Self is the concrete directory (its reactors are NotifieeOf<Self>), Status
// the status entity it holds. onIntfStatus(intfId) is told when a member is
// added or removed, never when a member's own status changes: watch the
// member for that.
#include <cstddef>

#include "platform/net/IntfId.h"
#include "platform/vex/Entity.h"
#include "platform/vex/OrderedColl.h"
#include "platform/vex/Ptr.h"

namespace Interface {

template <class Self, class Status>
class IntfStatusDirT : public Vex::Entity {
 public:
  using IntfStatusColl = Vex::OrderedColl<Netcore::IntfId, Vex::Ptr<Status>>;

  class Notifiee : public Vex::NotifieeOf<Self> {
   public:
    virtual void onIntfStatus(Netcore::IntfId const&) {}
  };

  // The member for intfId, or null.
  Vex::Ptr<Status> intfStatus(Netcore::IntfId intfId) const {
    auto const* p = intfStatus_.find(intfId);
    return p ? *p : Vex::Ptr<Status>();
  }
  // The member for intfId, created when absent.
  Vex::Ptr<Status> intfStatusIs(Netcore::IntfId intfId) {
    if (auto const* p = intfStatus_.find(intfId)) return *p;
    auto status = Vex::make<Status>(intfId);
    intfStatus_.set(intfId, status);
    notify(&Notifiee::onIntfStatus, intfId);
    return status;
  }
  void intfStatusDel(Netcore::IntfId intfId) {
    if (intfStatus_.erase(intfId)) notify(&Notifiee::onIntfStatus, intfId);
  }
  void intfStatusDelAll() {
    while (auto const* first = intfStatus_.first()) intfStatusDel(Netcore::IntfId(first->first));
  }
  std::size_t intfStatusSize() const { return intfStatus_.size(); }
  // Survives removal of any member, the current one included.
  typename IntfStatusColl::Iterator intfStatusIter() const { return intfStatus_.iterator(); }
  typename IntfStatusColl::Iterator intfStatusIter(Netcore::IntfId from) const { return intfStatus_.iterator(from); }
  // For range-for; do not remove members inside such a loop.
  IntfStatusColl const& intfStatusColl() const { return intfStatus_; }

 private:
  IntfStatusColl intfStatus_;
};

}  // namespace Interface
