#include "platform/mroutelib/SwitchChip.h"

namespace MrouteLib {

SwitchChip::~SwitchChip() = default;

void SwitchChip::mtableFreeIs(bool v) {
  if (v == mtableFree_) return;
  mtableFree_ = v;
  notify(&Notifiee::onMtableFree);
}

void SwitchChip::mrouteTcamFreeIs(bool v) {
  if (v == mrouteTcamFree_) return;
  mrouteTcamFree_ = v;
  notify(&Notifiee::onMrouteTcamFree);
}

void SwitchChip::boundaryTcamFreeIs(bool v) {
  if (v == boundaryTcamFree_) return;
  boundaryTcamFree_ = v;
  notify(&Notifiee::onBoundaryTcamFree);
}

void SwitchChip::mrouteReviewKickIs(std::uint32_t v) {
  if (v == mrouteReviewKick_) return;
  mrouteReviewKick_ = v;
  notify(&Notifiee::onMrouteReviewKick);
}

}  // namespace MrouteLib
