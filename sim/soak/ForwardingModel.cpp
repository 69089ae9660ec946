#include "sim/soak/ForwardingModel.h"

#include <algorithm>

namespace FalSim {

namespace {

bool covers(MrouteLib::DesiredRoute const& r, ForwardingModel::Flow const& f) {
  auto const& key = r.key();
  return r.vrfName() == f.vrf && key.af() == f.group.af() && key.source().contains(f.source) && key.group().contains(f.group);
}

// Whether a is more specific than b: longer source prefix, then longer group prefix.
bool moreSpecific(MrouteLib::DesiredRoute const& a, MrouteLib::DesiredRoute const& b) {
  if (a.key().source().len() != b.key().source().len()) return a.key().source().len() > b.key().source().len();
  return a.key().group().len() > b.key().group().len();
}

}  // namespace

ForwardingModel::Prediction ForwardingModel::predict(DesiredRoutes const& wanted, Flow const& flow) const {
  using Kind = Prediction::Kind;
  Prediction p;
  MrouteLib::DesiredRoute const* best = nullptr;
  bool bestProgrammed = false;
  bool boundary = false;
  for (auto const& [id, r] : wanted) {
    if (!covers(r, flow)) continue;
    bool const programmed = programmed_(r);
    if (r.bridge()) {
      if (!programmed) {
        p.unprogrammed = &r;
        return p;  // unknown
      }
      boundary = boundary || r.acceptingVlan() == flow.vlan;
      continue;
    }
    if (!programmed && (!mayHoldBoundary_ || mayHoldBoundary_(r))) {
      p.unprogrammed = &r;
      return p;
    }
    if (!best || moreSpecific(r, *best)) {
      best = &r;
      bestProgrammed = programmed;
    }
  }
  // The most specific route decides: it must be programmed itself.
  if (best && !bestProgrammed) {
    p.unprogrammed = best;
    return p;
  }
  p.kind = Kind::dropped;
  if (boundary) {
    p.reason = ReferenceChip::DropReason::boundary;
  } else if (!best) {
    p.reason = ReferenceChip::DropReason::noRoute;
  } else if (!best->noRpf() && best->acceptingVlan() != flow.vlan) {
    p.reason = ReferenceChip::DropReason::rpfFail;
  } else {
    p.kind = Kind::forwarded;
    auto const& outputs = best->outputs();
    p.copies.assign(outputs.portVlan().begin(), outputs.portVlan().end());
    std::sort(p.copies.begin(), p.copies.end());
    Netcore::IntfId const protectedIntf = outputs.intfId();
    bool const reroutable = !protectedIntf.isEmpty() && outputs.portVlanFrrSize() > 0 &&
                            std::any_of(p.copies.begin(), p.copies.end(), [&](auto pv) { return pv.port() == protectedIntf; });
    p.copiesKnown = !(reroutable && mayBeRerouted_(outputs));
  }
  return p;
}

}  // namespace FalSim
