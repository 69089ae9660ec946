#include "platform/fal/VerifyData.h"

namespace Fal {

void VerifyData::verifyIs(bool v) {
  if (v == verify_) return;
  verify_ = v;
  notify(&Notifiee::onVerify);
}

void VerifyData::doRequestVerify() {
  ++verifyRequests_;
  notify(&Notifiee::onVerifyRequests);
  notify(&Notifiee::onVerify);
}

}  // namespace Fal
