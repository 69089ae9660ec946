#include "platform/fib/CounterStatusCtl.h"

#include "platform/fib/CounterStatus.h"
#include "platform/vex/Assert.h"

namespace Routing::Multicast::Fib {

CounterStatusCtl::CounterStatusCtl(Vex::Ptr<CounterStatus> const& status) : published_(status), capacity_(status->capacity()) {
  publish();
}

CounterStatusCtl::~CounterStatusCtl() = default;

void CounterStatusCtl::publish() const {
  if (published_) published_->ctlRecordIs({currSize_, currActive_, capacity_});
}

// A count driven below zero means a row was removed twice or never counted:
// the published table and its control record disagree, which readers cannot
// recover from.
void CounterStatusCtl::currSizeInc(int n) {
  std::int64_t const next = std::int64_t{currSize_} + n;
  VEX_ASSERT(next >= 0 && "currSize must not go below 0");
  currSizeIs(static_cast<std::uint32_t>(next));
}

void CounterStatusCtl::currActiveInc(int n) {
  std::int64_t const next = std::int64_t{currActive_} + n;
  VEX_ASSERT(next >= 0 && "currActive must not go below 0");
  currActiveIs(static_cast<std::uint32_t>(next));
}

}  // namespace Routing::Multicast::Fib
