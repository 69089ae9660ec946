#pragma once
// FalSim::AsyncReferenceChip: one simulated switch chip of ReferenceChipTables
// behind the asynchronous hook interface FalHelper::AsyncMrouteHelper. The
// simulator makes one per chip that runs the asynchronous flavour and hands
// it to that chip's Fal::Mroute::AsyncMrouteSwitch and AsyncMrouteSwitchSm;
// the chip's tables are the same ones the synchronous face writes, so its
// packets are forwarded by the same code.
//
// Groups. A multicast group is a replication entry whose id is its index in
// the chip's table. doAllocateSharableMulticastGroup takes the lowest free
// id; doAllocateFixedMulticastGroup takes the preset id the route programmer
// hands down (a live group under it is taken over and rewritten), or the
// lowest free one when there is none. Outputs that reach no port share the
// chip's entry kept outside the table (unless excludeEmptyMcid), which takes
// no capacity, never fails and is never deleted. A full table or an injected
// allocation failure of the tables answers the invalid id.
//
// Transactions. Every group allocation, in-place update and ingress binding
// is a Bolt::Xact that completes latency() of virtual time after it starts
// (after the transaction it must wait for, when that one is still pending),
// in the order started. The hardware changes when it completes: a group
// forwards once written, its outputs change when its update completes, a
// route's ingress entry points at its new group when the binding completes;
// a failed transaction changes nothing. Deletions (doDeleteOifSet,
// doDeleteRoute) take effect at once; a transaction still pending on what
// they delete fails with kReasonAborted.
//
// Failures: per operation kind, the next N transactions fail, or each fails
// with a probability (drawn from a generator seeded by seedIs, so a run is
// the same every time), with kReasonHardwareError. A binding whose group is
// not written when it completes fails with kReasonGroupNotProgrammed.
//
// Activity: routeLastAccessedTime answers when simulated traffic last went
// through the route (ReferenceChipTables::forwardWithReason).
//
// Checks: deleting a group twice, one never allocated, one that a route
// points at (or is being bound to), binding or deleting an unknown route are
// violations recorded in the tables. unverifiedChanges() counts the changes
// the switch made (groups and routes allocated, bound, deleted) since its
// last doScheduleVerify.
//
// cut() models the agent process going away, as ChipLink::cut does: later
// calls reach no hardware and get neutral answers, and the transactions
// still pending are abandoned.
//
// Single-threaded, on the event loop; transactions complete from a clock of
// the current activity manager.
#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>

#include <array>
#include <cstdint>
#include <memory>
#include <set>

#include "model/AsyncMrouteHelper.h"
#include "platform/vex/Clock.h"
#include "sim/ReferenceChipTables.h"

namespace FalSim {

class AsyncReferenceChip : public FalHelper::AsyncMrouteHelper {
 public:
  using RouteHandle = MrouteLib::RouteHandle;
  using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

  // The transactions that can be made to fail.
  enum class Operation : std::uint8_t { group, update, ingress };
  static constexpr std::size_t kOperations = 3;

  // Why a transaction failed: route-status failure codes of this chip.
  static constexpr std::uint32_t kReasonHardwareError = 0x10000;        // the write failed
  static constexpr std::uint32_t kReasonGroupNotProgrammed = 0x20000;  // bound to a group not written
  static constexpr std::uint32_t kReasonAborted = 0x40000;             // its group or route was deleted first

  // How transactions of one kind fail: the next `next`, then each with probability.
  struct Failures {
    double probability = 0;
    std::uint32_t next = 0;
  };

  struct Statistics {
    std::uint64_t xactsStarted = 0;
    std::uint64_t xactsSucceeded = 0;
    std::uint64_t xactsFailed = 0;
    absl::btree_map<std::uint32_t, std::uint64_t> failedByReason;
    Vex::Seconds longestXact = 0;  // from its start to its completion
    std::uint64_t groupsAllocated = 0;  // new table groups
    std::uint64_t groupsDeleted = 0;
    std::uint64_t groupUpdates = 0;
    std::uint64_t ingressBinds = 0;
    std::uint64_t verifies = 0;
    std::uint64_t activityReads = 0;
    // Reads answering a later time than the last answer for the route: the
    // activity the aging review stamps.
    std::uint64_t newerActivity = 0;

    Statistics& operator+=(Statistics const& o);
  };

  // Programs chip of tables (not owned: the tables outlive their faces).
  AsyncReferenceChip(Vex::Name name, ReferenceChipTables& tables, std::uint32_t chip);
  ~AsyncReferenceChip() override;

  std::uint32_t chip() const { return chip_; }
  ReferenceChipTables& tables() const { return tables_; }
  bool connected() const { return connected_; }
  void cut();

  Vex::Seconds latency() const { return latency_; }
  void latencyIs(Vex::Seconds latency) { latency_ = latency; }
  Failures const& failures(Operation op) const { return failures_[slot(op)]; }
  void failuresIs(Operation op, Failures f) { failures_[slot(op)] = f; }
  void seedIs(std::uint64_t seed) { random_ = seed; }
  // Routes of these key types take fixed groups (needFixedOifSet).
  void fixedGroupTypeIs(RouteKeyType type, bool fixed);

  // What the chip holds beyond the tables: its groups (allocated and not
  // deleted, written or not), their latest transactions, the bindings.
  bool group(std::uint32_t id) const { return groups_.contains(id); }
  std::size_t groups() const { return groups_.size(); }
  Vex::Ptr<Bolt::Xact const> groupXact(std::uint32_t id) const;
  Vex::Ptr<Bolt::Xact const> ingressXact(RouteHandle handle) const;
  // Whether an in-place update of the group is still to complete, and how
  // many of the chip's are.
  bool updatePending(std::uint32_t id) const;
  std::size_t updatesPending() const;
  std::size_t pendingTransactions() const { return due_.size() + blocked_.size(); }
  std::uint32_t unverifiedChanges() const { return unverifiedChanges_; }
  Statistics const& statistics() const { return stats_; }

  // ---- FalHelper::AsyncMrouteHelper ----
  std::uint32_t doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo, OifSetPtr oifSet,
                                                 XactPtr blockingXact, bool excludeEmptyMcid) override;
  std::uint32_t doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact, std::uint32_t mcastId) override;
  void doUpdateMulticastGroupInPlace(OifSetPtr oifSet, std::uint32_t mcastId) override;
  XactPtr doGetXactForOifSet(std::uint32_t mcastId) override;
  std::uint32_t doGetXactFailureReason(XactPtr xact, FalHelper::MrouteXactType type) override;
  void doDeleteOifSet(std::uint32_t mcastId) override;
  RouteHandle doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                              Memtab::Multicast::Fib::RpaIndex rpaIndex, std::uint32_t vrfId, bool fastdrop) override;
  void doSetMtableOifSet(RouteHandle routeHandle, std::uint32_t mcastId, XactPtr xact) override;
  XactPtr doGetXactForIngress(RouteHandle routeHandle) override;
  void doDeleteRoute(RouteHandle routeHandle) override;
  Vex::Seconds routeLastAccessedTime(RouteHandle routeHandle) override;
  bool needFixedOifSet(RouteKeyType type) override;
  void doScheduleVerify() override;

 private:
  class VexDueClock;
  // One transaction on its way.
  struct Pending {
    Operation op = Operation::group;
    std::uint32_t id = 0;      // the group written, or bound to
    RouteHandle handle;        // the route bound (ingress)
    MrouteLib::PortVlanSet pvs;  // the outputs written (group, update)
    Vex::Ptr<Bolt::Xact> xact;
    Vex::Seconds started = 0;
    bool fails = false;        // decided when it starts
  };
  using DueKey = std::pair<Vex::Seconds, std::uint64_t>;  // (completion time, order started)

  static std::size_t slot(Operation op) { return static_cast<std::size_t>(op); }
  Vex::Seconds now() const;
  // Starts a transaction: it completes latency() after now, or after
  // blocking completes when that is still pending. Unless canFail, the
  // injected failures leave it alone.
  Vex::Ptr<Bolt::Xact> start(Pending p, XactPtr const& blocking, std::string description, bool canFail = true);
  void schedule(std::uint64_t seq, Pending p);
  void armClock();
  void onDue();
  void complete(Pending& p);
  void finish(Pending& p, std::uint32_t reason);
  // Fails now, with kReasonAborted, what is pending on the group or the route.
  void abort(std::uint32_t id, RouteHandle handle);
  bool decideFailure(Operation op);
  double draw();
  // A new group holding pvs at id (kInvalidIndex: the lowest free id).
  std::uint32_t allocateGroup(OifSetPtr const& oifSet, XactPtr const& blocking, std::uint32_t at);

  ReferenceChipTables& tables_;
  std::uint32_t chip_;
  // Each table group's latest transaction; the no-port entries' apart.
  absl::btree_map<std::uint32_t, Vex::Ptr<Bolt::Xact>> groups_;
  absl::btree_map<std::uint32_t, Vex::Ptr<Bolt::Xact>> noPortXact_;
  absl::flat_hash_map<RouteHandle, Vex::Ptr<Bolt::Xact>> ingress_;
  absl::flat_hash_map<RouteHandle, Vex::Seconds> lastAnswer_;
  absl::btree_map<DueKey, Pending> due_;
  // Waiting for the transaction they must follow, by order started.
  absl::btree_map<std::uint64_t, Pending> blocked_;
  std::set<RouteKeyType> fixedTypes_;
  std::array<Failures, kOperations> failures_{};
  Vex::Ptr<Vex::Clock> clock_;
  std::unique_ptr<VexDueClock> vexClock_;
  // Lets a waiter on another transaction find the chip only while it lives.
  std::shared_ptr<AsyncReferenceChip*> self_;
  Statistics stats_;
  Vex::Seconds latency_ = 0;
  std::uint64_t nextSeq_ = 0;
  std::uint64_t random_ = 1;
  std::uint32_t unverifiedChanges_ = 0;
  bool connected_ = true;
};

char const* operationName(AsyncReferenceChip::Operation op);
// "hardwareError", "groupNotProgrammed", "aborted", else the code in hex.
std::string xactReasonName(std::uint32_t reason);

}  // namespace FalSim
