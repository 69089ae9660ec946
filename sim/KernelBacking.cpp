#include "sim/KernelBacking.h"

#include <algorithm>

#include "sync/Boundary.h"
#include "sync/MtableOifSet.h"
#include "sync/Route.h"

namespace FalSim {

namespace {

std::string outputsText(std::vector<MrouteLib::PortVlan> const& outputs) {
  std::string out = "[";
  for (std::size_t i = 0; i < outputs.size(); ++i) out += (i ? ", " : "") + outputs[i].stringValue();
  return out + "]";
}

}  // namespace

KernelBacking::Chip::Chip(std::uint32_t switchId, std::string const& netnsName)
    : netns(netnsName.empty() ? FalKernel::KernelNetns() : FalKernel::KernelNetns(netnsName)),
      chip(Vex::make<FalKernel::KernelChip>("FalKernel::KernelChip", switchId, ports)) {}

KernelBacking::KernelBacking(std::uint32_t chips) : KernelBacking(std::vector<Placement>(chips)) {}

KernelBacking::KernelBacking(std::vector<Placement> const& chips) {
  for (std::uint32_t c = 0; c < chips.size(); ++c) {
    chips_.push_back(chips[c].kernel ? std::make_unique<Chip>(c, chips[c].netns) : nullptr);
  }
}

KernelBacking::~KernelBacking() = default;

void KernelBacking::clearStale() {
  for (std::uint32_t c = 0; c < chips_.size(); ++c) {
    if (!chips_[c]) continue;
    Chip& k = *chips_[c];
    for (auto const& [ref, handle] : k.handle) {
      auto const* r = k.chip->route(handle);
      if (!r) continue;
      if (r->boundary) {
        k.chip->doDeleteMrouteBoundary(c, r->vrfId, handle, nullptr);
      } else {
        k.chip->doDeleteMroute(c, r->vrfId, handle, nullptr);
      }
    }
    for (auto const& [ref, index] : k.index) {
      auto set = Fal::mtableOifSetFactory(nullptr, false, nullptr);
      set->oifSetIndexIs(index);
      k.chip->handleFreeMtableOifSet(c, set);
    }
    k.handle.clear();
    k.index.clear();
  }
}

void KernelBacking::portOperIs(Netcore::IntfId port, bool up) {
  if (up) {
    down_.erase(port);
  } else {
    down_.insert(port);
  }
  for (auto& k : chips_) {
    if (k) k->ports.portOperIs(port, up);
  }
}

void KernelBacking::send(std::uint32_t switchId, std::uint16_t vrfId, Bridging::VlanIdOrNone vlan,
                         Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group,
                         std::vector<MrouteLib::PortVlan> predicted, std::string flow) {
  Chip* k = chip(switchId);
  if (!k || vlan.value() == 0) return;  // a flow without a VLAN has no input device
  k->ports.inputIfindex(vrfId, vlan);
  auto const* in = k->ports.input(vrfId, vlan);
  std::uint64_t const token = nextToken_++;
  if (!in || k->probe.send(in->peerIfindex, source, group, token) != 0) {
    ++figures_.sendErrors;
    return;
  }
  ++figures_.packetsSent;
  std::erase_if(predicted, [&](MrouteLib::PortVlan pv) { return down_.contains(pv.port()); });
  figures_.copiesPredicted += predicted.size();
  std::sort(predicted.begin(), predicted.end());
  pending_.push_back({switchId, token, std::move(predicted), std::move(flow)});
}

std::vector<std::string> KernelBacking::check() {
  std::vector<std::string> findings;
  if (pending_.empty()) return findings;
  absl::flat_hash_map<std::uint64_t, std::vector<MrouteLib::PortVlan>> captured;
  for (std::uint32_t c = 0; c < chips_.size(); ++c) {
    if (!chips_[c]) continue;
    Chip& k = *chips_[c];
    std::size_t expected = 0;
    for (auto const& s : pending_) expected += s.switchId == c ? s.predicted.size() : 0;
    auto isOutput = [&](int ifindex) { return k.ports.outputOfPeer(ifindex).has_value(); };
    for (auto const& cap : k.probe.collect(expected, isOutput)) {
      captured[cap.token].push_back(*k.ports.outputOfPeer(cap.ifindex));
    }
  }
  for (auto& s : pending_) {
    auto& real = captured[s.token];
    std::sort(real.begin(), real.end());
    figures_.copiesCaptured += real.size();
    if (real == s.predicted) {
      ++figures_.packetsAsPredicted;
      continue;
    }
    ++figures_.packetsNotAsPredicted;
    findings.push_back(s.flow + ": real packet came out of " + outputsText(real) + ", the reference chip predicts " +
                       outputsText(s.predicted));
  }
  pending_.clear();
  // Packets no route covered were reported to the chips' sockets.
  for (auto& k : chips_) {
    if (k) k->chip->doCommitMrouteBatch();
  }
  return findings;
}

}  // namespace FalSim
