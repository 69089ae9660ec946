#include "sim/AsyncReferenceChip.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "sim/SimTrace.h"

namespace FalSim {

using MrouteLib::RouteHandle;

char const* operationName(AsyncReferenceChip::Operation op) {
  switch (op) {
    case AsyncReferenceChip::Operation::group: return "group";
    case AsyncReferenceChip::Operation::update: return "update";
    case AsyncReferenceChip::Operation::ingress: return "ingress";
  }
  return "?";
}

std::string xactReasonName(std::uint32_t reason) {
  switch (reason) {
    case AsyncReferenceChip::kReasonHardwareError: return "hardwareError";
    case AsyncReferenceChip::kReasonGroupNotProgrammed: return "groupNotProgrammed";
    case AsyncReferenceChip::kReasonAborted: return "aborted";
    default: break;
  }
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%x", reason);
  return buf;
}

AsyncReferenceChip::Statistics& AsyncReferenceChip::Statistics::operator+=(Statistics const& o) {
  xactsStarted += o.xactsStarted;
  xactsSucceeded += o.xactsSucceeded;
  xactsFailed += o.xactsFailed;
  for (auto const& [reason, n] : o.failedByReason) failedByReason[reason] += n;
  longestXact = std::max(longestXact, o.longestXact);
  groupsAllocated += o.groupsAllocated;
  groupsDeleted += o.groupsDeleted;
  groupUpdates += o.groupUpdates;
  ingressBinds += o.ingressBinds;
  verifies += o.verifies;
  activityReads += o.activityReads;
  newerActivity += o.newerActivity;
  return *this;
}

// Completes the transactions that are due.
class AsyncReferenceChip::VexDueClock final : public Vex::Clock::Notifiee {
 public:
  VexDueClock(Vex::Ptr<Vex::Clock> const& clock, AsyncReferenceChip* chip) : chip_(chip) { notifierIs(clock); }
  void onTime() override { chip_->onDue(); }

 private:
  AsyncReferenceChip* chip_;  // not owned: the chip owns this reactor
};

AsyncReferenceChip::AsyncReferenceChip(Vex::Name name, ReferenceChipTables& tables, std::uint32_t chip)
    : AsyncMrouteHelper(std::move(name), nullptr, nullptr),
      tables_(tables),
      chip_(chip),
      self_(std::make_shared<AsyncReferenceChip*>(this)) {
  VEX_ASSERT(chip < tables.chips());
}

AsyncReferenceChip::~AsyncReferenceChip() {
  *self_ = nullptr;
  vexClock_.reset();
}

void AsyncReferenceChip::cut() {
  connected_ = false;
  due_.clear();
  blocked_.clear();
  if (clock_) clock_->timeMinIs(Vex::kNever);
}

void AsyncReferenceChip::fixedGroupTypeIs(RouteKeyType type, bool fixed) {
  if (fixed) {
    fixedTypes_.insert(type);
  } else {
    fixedTypes_.erase(type);
  }
}

Vex::Ptr<Bolt::Xact const> AsyncReferenceChip::groupXact(std::uint32_t id) const {
  if (auto it = groups_.find(id); it != groups_.end()) return it->second;
  auto it = noPortXact_.find(id);
  return it == noPortXact_.end() ? nullptr : it->second;
}

Vex::Ptr<Bolt::Xact const> AsyncReferenceChip::ingressXact(RouteHandle handle) const {
  auto it = ingress_.find(handle);
  return it == ingress_.end() ? nullptr : it->second;
}

bool AsyncReferenceChip::updatePending(std::uint32_t id) const {
  auto isUpdate = [id](Pending const& p) { return p.op == Operation::update && p.id == id; };
  return std::any_of(due_.begin(), due_.end(), [&](auto const& e) { return isUpdate(e.second); }) ||
         std::any_of(blocked_.begin(), blocked_.end(), [&](auto const& e) { return isUpdate(e.second); });
}

std::size_t AsyncReferenceChip::updatesPending() const {
  auto isUpdate = [](auto const& e) { return e.second.op == Operation::update; };
  return static_cast<std::size_t>(std::count_if(due_.begin(), due_.end(), isUpdate) +
                                  std::count_if(blocked_.begin(), blocked_.end(), isUpdate));
}

Vex::Seconds AsyncReferenceChip::now() const {
  auto* am = Vex::ActivityManager::current();
  return am ? am->now() : 0.0;
}

// ---- transactions ----

double AsyncReferenceChip::draw() {
  // splitmix64: the same sequence on every platform for a given seed.
  std::uint64_t z = (random_ += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  z ^= z >> 31;
  return static_cast<double>(z >> 11) * 0x1.0p-53;
}

bool AsyncReferenceChip::decideFailure(Operation op) {
  Failures& f = failures_[slot(op)];
  if (f.next > 0) {
    --f.next;
    return true;
  }
  return f.probability > 0 && draw() < f.probability;
}

Vex::Ptr<Bolt::Xact> AsyncReferenceChip::start(Pending p, XactPtr const& blocking, std::string description,
                                               bool canFail) {
  auto xact = Bolt::Xact::xactNew(std::move(description));
  p.xact = xact;
  p.started = now();
  p.fails = canFail && decideFailure(p.op);
  ++stats_.xactsStarted;
  std::uint64_t const seq = nextSeq_++;
  if (blocking && blocking->pending()) {
    blocked_.emplace(seq, std::move(p));
    std::weak_ptr<AsyncReferenceChip*> const self = self_;
    blocking->waiterAdd([self, seq](Bolt::Xact const&) {
      auto chip = self.lock();
      if (!chip || !*chip) return;
      auto& me = **chip;
      auto node = me.blocked_.extract(seq);
      if (!node.empty()) me.schedule(seq, std::move(node.mapped()));
    });
  } else {
    schedule(seq, std::move(p));
  }
  return xact;
}

void AsyncReferenceChip::schedule(std::uint64_t seq, Pending p) {
  due_.emplace(DueKey{now() + latency_, seq}, std::move(p));
  armClock();
}

void AsyncReferenceChip::armClock() {
  if (!clock_) {
    auto* am = Vex::ActivityManager::current();
    VEX_ASSERT_MSG(am, "AsyncReferenceChip: transactions need an event loop");
    clock_ = am->clockNew();
    vexClock_ = std::make_unique<VexDueClock>(clock_, this);
  }
  clock_->timeMinIs(due_.empty() ? Vex::kNever : due_.begin()->first.first);
}

void AsyncReferenceChip::onDue() {
  Vex::Seconds const t = now();
  while (!due_.empty() && due_.begin()->first.first <= t) {
    auto node = due_.extract(due_.begin());
    complete(node.mapped());
  }
  armClock();
}

void AsyncReferenceChip::complete(Pending& p) {
  if (p.fails) return finish(p, kReasonHardwareError);
  switch (p.op) {
    case Operation::group:
      tables_.entryProgrammedIs(chip_, p.id);
      break;
    case Operation::update:
      tables_.entryWrite(chip_, p.id, p.pvs, "doUpdateMulticastGroupInPlace");
      break;
    case Operation::ingress: {
      auto const* entry = tables_.replicationEntry(chip_, p.id);
      if (!entry || !entry->programmed) return finish(p, kReasonGroupNotProgrammed);
      tables_.routeEntryIs(chip_, p.handle, p.id, "doSetMtableOifSet");
      break;
    }
  }
  finish(p, 0);
}

void AsyncReferenceChip::finish(Pending& p, std::uint32_t reason) {
  stats_.longestXact = std::max(stats_.longestXact, now() - p.started);
  if (reason == 0) {
    ++stats_.xactsSucceeded;
    p.xact->succeededIs();
  } else {
    ++stats_.xactsFailed;
    ++stats_.failedByReason[reason];
    SIM_TRACE(5, "chip " << chip_ << ": " << operationName(p.op) << " transaction " << *p.xact << " failed: "
                         << xactReasonName(reason));
    p.xact->failedIs(reason);
  }
}

void AsyncReferenceChip::abort(std::uint32_t id, RouteHandle handle) {
  auto concerned = [&](Pending const& p) {
    return p.op == Operation::ingress ? (p.handle == handle || p.id == id) : p.id == id;
  };
  auto abortIn = [&](auto& queue) {
    for (auto it = queue.begin(); it != queue.end();) {
      if (!concerned(it->second)) {
        ++it;
        continue;
      }
      Pending p = std::move(it->second);
      it = queue.erase(it);
      finish(p, kReasonAborted);
    }
  };
  abortIn(due_);
  abortIn(blocked_);
  if (clock_) armClock();
}

// ---- groups ----

std::uint32_t AsyncReferenceChip::allocateGroup(OifSetPtr const& oifSet, XactPtr const& blocking, std::uint32_t at) {
  std::uint32_t const id = tables_.entryAllocate(chip_, oifSet->portVlanSet(), false, at);
  if (id == ReferenceChipTables::kInvalidIndex) return kInvalidMcastId;
  ++stats_.groupsAllocated;
  ++unverifiedChanges_;
  Pending p;
  p.op = Operation::group;
  p.id = id;
  groups_[id] = start(std::move(p), blocking, "group " + std::to_string(id));
  SIM_TRACE(6, "chip " << chip_ << " allocated group " << id << ": " << oifSet->pretty());
  return id;
}

std::uint32_t AsyncReferenceChip::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const&, OifSetPtr oifSet,
                                                                   XactPtr blockingXact, bool excludeEmptyMcid) {
  char const* const op = "doAllocateSharableMulticastGroup";
  if (!connected_) return kInvalidMcastId;
  if (!oifSet) {
    tables_.violation(violationPrefix(chip_, op) + "null OIF set");
    return kInvalidMcastId;
  }
  tables_.charge(chip_);
  MrouteLib::PortVlanSet const& pvs = oifSet->portVlanSet();
  if (pvs.reachesNoPort() && !excludeEmptyMcid) {
    std::uint32_t const id = ReferenceChipTables::noPortIndex(pvs);
    Pending p;
    p.op = Operation::group;
    p.id = id;
    // The entry outside the table is always written: only the write's time is simulated.
    noPortXact_[id] = start(std::move(p), blockingXact, "group " + std::to_string(id), false);
    return id;
  }
  return allocateGroup(oifSet, blockingXact, ReferenceChipTables::kInvalidIndex);
}

std::uint32_t AsyncReferenceChip::doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact,
                                                                std::uint32_t mcastId) {
  char const* const op = "doAllocateFixedMulticastGroup";
  if (!connected_) return kInvalidMcastId;
  if (!oifSet) {
    tables_.violation(violationPrefix(chip_, op) + "null OIF set");
    return kInvalidMcastId;
  }
  tables_.charge(chip_);
  if (mcastId != kInvalidMcastId && groups_.contains(mcastId)) {
    // Taken over: the group is written again with the new outputs.
    ++unverifiedChanges_;
    Pending p;
    p.op = Operation::update;
    p.id = mcastId;
    p.pvs = oifSet->portVlanSet();
    groups_[mcastId] = start(std::move(p), blockingXact, "group " + std::to_string(mcastId));
    return mcastId;
  }
  return allocateGroup(oifSet, blockingXact, mcastId);
}

void AsyncReferenceChip::doUpdateMulticastGroupInPlace(OifSetPtr oifSet, std::uint32_t mcastId) {
  char const* const op = "doUpdateMulticastGroupInPlace";
  if (!connected_) return;
  tables_.charge(chip_);
  auto it = groups_.find(mcastId);
  if (!oifSet || it == groups_.end()) {
    tables_.violation(violationPrefix(chip_, op) + "update of group " + std::to_string(mcastId) +
                      (oifSet ? ", which is not allocated" : " with a null OIF set"));
    return;
  }
  ++stats_.groupUpdates;
  Pending p;
  p.op = Operation::update;
  p.id = mcastId;
  p.pvs = oifSet->portVlanSet();
  it->second = start(std::move(p), nullptr, "group " + std::to_string(mcastId) + " update");
}

AsyncReferenceChip::XactPtr AsyncReferenceChip::doGetXactForOifSet(std::uint32_t mcastId) {
  if (!connected_) return nullptr;
  return groupXact(mcastId);
}

std::uint32_t AsyncReferenceChip::doGetXactFailureReason(XactPtr xact, FalHelper::MrouteXactType) {
  return connected_ && xact ? xact->reason() : 0;
}

void AsyncReferenceChip::doDeleteOifSet(std::uint32_t mcastId) {
  char const* const op = "doDeleteOifSet";
  if (!connected_) return;
  tables_.charge(chip_);
  if (ReferenceChipTables::noPortIndex(mcastId)) return;  // shared, kept for good
  ++unverifiedChanges_;
  if (groups_.erase(mcastId) == 0) {
    // The tables tell a second deletion from one of an id never handed out.
    tables_.entryFree(chip_, mcastId, op);
    return;
  }
  ++stats_.groupsDeleted;
  auto bindingCheck = [&](Pending const& p) {
    if (p.op != Operation::ingress || p.id != mcastId) return;
    tables_.violation(violationPrefix(chip_, op) + "group " + std::to_string(mcastId) + " deleted while route handle " +
                      std::to_string(p.handle.value()) + " is being bound to it");
  };
  for (auto const& [key, p] : due_) bindingCheck(p);
  for (auto const& [key, p] : blocked_) bindingCheck(p);
  abort(mcastId, RouteHandle::invalid());
  tables_.entryFree(chip_, mcastId, op);
}

// ---- routes ----

RouteHandle AsyncReferenceChip::doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                                                bool bridgeAction, Memtab::Multicast::Fib::RpaIndex rpaIndex,
                                                std::uint32_t vrfId, bool fastdrop) {
  char const* const op = "doAllocateRoute";
  if (!connected_) return RouteHandle::invalid();
  tables_.charge(chip_);
  if (vrfId > std::numeric_limits<std::uint16_t>::max()) {
    tables_.violation(violationPrefix(chip_, op) + "VRF id " + std::to_string(vrfId) + " does not fit the route table");
    return RouteHandle::invalid();
  }
  ReferenceChipTables::RouteEntry e;
  e.vrfId = static_cast<std::uint16_t>(vrfId);
  e.key = key;
  e.acceptingVlan = acceptingVlanId;
  // A route without an accepting VLAN takes traffic from any interface.
  e.noRpf = acceptingVlanId.isNone();
  e.fastdrop = fastdrop;
  e.rpaId = rpaIndex;
  RouteHandle const handle = tables_.routeAllocate(chip_, std::move(e), bridgeAction, op);
  if (!handle.isNull()) ++unverifiedChanges_;
  return handle;
}

void AsyncReferenceChip::doSetMtableOifSet(RouteHandle routeHandle, std::uint32_t mcastId, XactPtr xact) {
  char const* const op = "doSetMtableOifSet";
  if (!connected_) return;
  tables_.charge(chip_);
  if (!tables_.routeFor(chip_, routeHandle, op)) return;
  if (!groups_.contains(mcastId) && !noPortXact_.contains(mcastId)) {
    tables_.violation(violationPrefix(chip_, op) + "route handle " + std::to_string(routeHandle.value()) +
                      " bound to group " + std::to_string(mcastId) + ", which is not allocated");
    return;
  }
  ++unverifiedChanges_;
  ++stats_.ingressBinds;
  Pending p;
  p.op = Operation::ingress;
  p.id = mcastId;
  p.handle = routeHandle;
  ingress_[routeHandle] =
      start(std::move(p), xact, "route " + std::to_string(routeHandle.value()) + " -> group " + std::to_string(mcastId));
}

AsyncReferenceChip::XactPtr AsyncReferenceChip::doGetXactForIngress(RouteHandle routeHandle) {
  return connected_ ? ingressXact(routeHandle) : nullptr;
}

void AsyncReferenceChip::doDeleteRoute(RouteHandle routeHandle) {
  char const* const op = "doDeleteRoute";
  if (!connected_) return;
  tables_.charge(chip_);
  bool const route = tables_.route(chip_, routeHandle) != nullptr;
  if (!route && !tables_.boundary(chip_, routeHandle)) {
    tables_.violation(violationPrefix(chip_, op) + "unknown route handle " + std::to_string(routeHandle.value()));
    return;
  }
  ++unverifiedChanges_;
  abort(ReferenceChipTables::kInvalidIndex, routeHandle);
  ingress_.erase(routeHandle);
  lastAnswer_.erase(routeHandle);
  if (route) {
    tables_.routeDel(chip_, routeHandle);
  } else {
    tables_.boundaryDel(chip_, routeHandle);
  }
}

Vex::Seconds AsyncReferenceChip::routeLastAccessedTime(RouteHandle routeHandle) {
  if (!connected_) return 0;
  tables_.charge(chip_);
  ++stats_.activityReads;
  auto const* r = tables_.route(chip_, routeHandle);
  Vex::Seconds const t = r ? r->lastAccess : 0;
  Vex::Seconds& last = lastAnswer_[routeHandle];
  if (t > last) {
    ++stats_.newerActivity;
    last = t;
  }
  return t;
}

bool AsyncReferenceChip::needFixedOifSet(RouteKeyType type) { return fixedTypes_.contains(type); }

void AsyncReferenceChip::doScheduleVerify() {
  if (!connected_) return;
  ++stats_.verifies;
  unverifiedChanges_ = 0;
}

}  // namespace FalSim
