#include "platform/bolt/Xact.h"

#include <cstdio>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

namespace Vex {
EnumType const& EnumTraits<Bolt::XactStatus>::type() {
  static EnumType const t("Bolt::XactStatus", {{0, "pending"}, {1, "succeeded"}, {2, "failed"}});
  return t;
}
}  // namespace Vex

namespace Bolt {
namespace {
[[maybe_unused]] auto const& kXactStatusRegistered = Vex::EnumTraits<XactStatus>::type();
std::uint64_t nextId = 1;
}  // namespace

// One turn of the event loop for a completed transaction: a clock due now.
// A member of the transaction, so it goes with it.
class Xact::Delivery : public Vex::Clock::Notifiee {
 public:
  explicit Delivery(Xact* xact) : xact_(xact) {
    auto* am = Vex::ActivityManager::current();
    VEX_ASSERT_MSG(am, "Bolt::Xact completed without an event loop");
    auto clock = am->clockNew();
    notifierIs(clock);
    clock->timeMinIs(am->now());
  }
  void onTime() override {
    // Keeps the transaction whole through delivery, though a waiter may drop it.
    Vex::Ptr<Xact> const xact(xact_);
    xact->deliver();  // destroys this reactor
  }

 private:
  Xact* xact_;
};

Vex::Ptr<Xact> Xact::xactNew(Vex::String description) { return Vex::Ptr<Xact>(new Xact(std::move(description))); }

Xact::Xact(Vex::String description) : description_(std::move(description)), id_(nextId++) {}

Xact::~Xact() = default;

void Xact::complete(XactStatus status, std::uint32_t reason) {
  VEX_ASSERT_MSG(pending(), "Bolt::Xact " + std::to_string(id_) + " completed twice");
  VEX_ASSERT_MSG(status != XactStatus::failed || reason != 0, "Bolt::Xact failed without a reason");
  status_ = status;
  reason_ = reason;
  auto* am = Vex::ActivityManager::current();
  completionTime_ = am ? am->now() : 0.0;
  deliveryArm();
}

void Xact::waiterAdd(Waiter waiter) const {
  waiters_.push_back(std::move(waiter));
  if (delivered_) deliveryArm();
}

void Xact::deliveryArm() const {
  if (!delivery_) delivery_ = std::make_unique<Delivery>(const_cast<Xact*>(this));
}

void Xact::deliver() {
  // The reactor goes first: a waiter may wait again, which needs a new one.
  auto const done = std::move(delivery_);
  bool const first = !delivered_;
  delivered_ = true;
  if (first) notify(&Notifiee::onStatus);
  std::vector<Waiter> const ready = std::move(waiters_);
  waiters_.clear();
  for (auto const& w : ready) w(*this);
}

std::ostream& operator<<(std::ostream& os, XactStatus s) { return os << Vex::enumName(s); }

std::ostream& operator<<(std::ostream& os, Xact const& x) {
  os << "Xact(" << x.id();
  if (!x.description().empty()) os << " '" << x.description() << "'";
  os << ' ' << x.status();
  if (x.failed()) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%x", x.reason());
    os << " reason " << buf;
  }
  return os << ')';
}

}  // namespace Bolt
