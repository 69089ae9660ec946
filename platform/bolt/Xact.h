#pragma once
// Bolt::Xact: one hardware transaction, which a chip agent starts now and
// completes later.
//
// Who makes it: the chip agent, inside a hook that starts hardware work (an
// asynchronous hook returns the transaction, or the agent hands it out later
// when asked for the transaction of a group or a route). The library and the
// route programmer only pass it on and wait for it. Waiters hold it as
// Vex::Ptr<Xact const>.
//
// Life: pending, then exactly once succeeded or failed with a reason code
// (non-zero; its meaning belongs to the route-status codes the agent uses).
// Completing twice, or failing with reason 0, stops the agent. The status
// changes in the completing call; waiters are told later, on the event loop,
// at the earliest on the turn after that call and never inside it, so an
// agent may complete a transaction from inside a hook without re-entering
// the caller.
//
// Waiting: a reactor (Xact::Notifiee::onStatus), which holds the transaction
// as its notifier, or a function given to waiterAdd, which runs once: on the
// delivery turn when the transaction is still pending or not yet delivered,
// on the next turn when it already was. A function does not hold the
// transaction: a transaction that nobody holds any more is not delivered.
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <vector>

#include "platform/vex/Clock.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Types.h"

namespace Bolt {

enum class XactStatus : std::uint8_t { pending = 0, succeeded = 1, failed = 2 };

}  // namespace Bolt

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<Bolt::XactStatus> {
  static EnumType const& type();
};
}  // namespace Vex

namespace Bolt {

class FALMROUTE_EXPORT Xact : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<Xact> {
   public:
    // The transaction completed; status() and reason() say how.
    virtual void onStatus() {}
  };
  using Waiter = std::function<void(Xact const&)>;

  // A pending transaction; description is for traces ("group 17").
  static Vex::Ptr<Xact> xactNew(Vex::String description = {});
  ~Xact() override;

  // Unique in the process, in order of creation.
  std::uint64_t id() const { return id_; }
  Vex::String const& description() const { return description_; }
  XactStatus status() const { return status_; }
  bool pending() const { return status_ == XactStatus::pending; }
  bool succeeded() const { return status_ == XactStatus::succeeded; }
  bool failed() const { return status_ == XactStatus::failed; }
  // The failure reason; 0 unless failed.
  std::uint32_t reason() const { return reason_; }
  // When it completed (the event loop's time); +infinity while pending.
  Vex::Seconds completionTime() const { return completionTime_; }
  // Whether its waiters have been told.
  bool delivered() const { return delivered_; }

  void succeededIs() { complete(XactStatus::succeeded, 0); }
  void failedIs(std::uint32_t reason) { complete(XactStatus::failed, reason); }

  void waiterAdd(Waiter waiter) const;

 private:
  class Delivery;
  explicit Xact(Vex::String description);
  void complete(XactStatus status, std::uint32_t reason);
  void deliveryArm() const;
  void deliver();

  Vex::String description_;
  mutable std::vector<Waiter> waiters_;
  mutable std::unique_ptr<Delivery> delivery_;
  std::uint64_t id_;
  Vex::Seconds completionTime_ = Vex::kNever;
  std::uint32_t reason_ = 0;
  XactStatus status_ = XactStatus::pending;
  bool delivered_ = false;
};

// "Xact(7 'group 17' failed reason 0x400)"
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, Xact const& x);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, XactStatus s);

}  // namespace Bolt
