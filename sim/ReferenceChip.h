#pragma once
// FalSim::ReferenceChip: a software model of N switch chips behind the
// synchronous hook interface FalHelper::MrouteSmHelper. The simulator and
// the end-to-end tests hand one to Fal::MrouteSm and to every chip's
// Fal::MrouteSwitch, then ask it what the chips hold and where a packet
// would go.
//
// Per chip (switchId 0..chips-1) it keeps three tables with finite, settable
// capacities:
// - the replication table: entries keyed by oifSetIndex, each a copy of the
//   PortVlanSet it was last written with. Indexes are the lowest free number
//   from 1 up, so never 0 (the library's "no set") nor 0xFFFFFFFF ("none").
//   doAllocateMtableOifSet with index 0 or 0xFFFFFFFE allocates a fresh entry;
//   with the index of a live entry it rewrites that entry in place (fast
//   reroute), so every route pointing at it follows at once. Outputs that
//   reach no port (the library's empty set: no outputs, no FRR outputs, no
//   NAT VLANs) are never refused: they get one of two entries each chip keeps
//   outside the table, one replicating nowhere (kNowhereIndex) and one that
//   only copies to the CPU (kCpuOnlyIndex). Those take no capacity, escape
//   injected failures, are shared by every such set and stay when one is
//   freed.
// - the route table: routes keyed by handle with the fields they were
//   programmed with (vrfId, key, accepting VLAN, noRpf, fastdrop, rpaId,
//   oifSetIndex), their hit bit and per-VLAN fast-drop hit bits.
// - the boundary table: boundary (bridge) entries keyed by handle. Routes and
//   boundaries share one handle space per chip, so a handle names one or the
//   other.
//
// Traffic: forward() looks a packet up as the hardware would (longest match
// over the chip's routes of the VRF, (S,G) before (*,G)), checks the
// accepting VLAN, and answers with the copies the replication entry gives. It
// sets hit bits and counts the route counters, which the aging review and
// the counter poll read back through the hooks.
//
// Checking: whatever a well-behaved library would never do (freeing an entry
// twice, touching an unknown handle, rewriting an absent entry) and every
// difference verifyMroute / verifyMrouteBoundary / verifyMulticastRouting find
// between the chip and the library's view is recorded as a readable violation
// instead of stopping, so the simulator's invariant checker can report them
// all. invariantViolations() checks the tables against the indexes the
// library holds.
//
// Costs and faults: each hardware operation charges operationCost() of
// virtual time to the current activity manager, so time-bounded passes see
// the chip's latency; failNextAllocationsIs and fullForcedIs inject refusals.
//
// Single-threaded, like everything on the event loop.
#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>
#include <absl/container/inlined_vector.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "model/MrouteSmHelper.h"
#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/net/IpGenAddr.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Types.h"

namespace FalSim {

// The sizes of one chip's tables.
struct ReferenceChipCapacity {
  std::size_t routes = 16384;
  std::size_t boundaries = 1024;
  std::size_t replicationEntries = 4096;
};

class ReferenceChip : public FalHelper::MrouteSmHelper {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using PortVlan = MrouteLib::PortVlan;
  using RouteHandle = MrouteLib::RouteHandle;

  static constexpr std::uint32_t kInvalidIndex = 0xFFFFFFFF;
  // Index argument asking for a fresh entry while a dirty one of the same
  // content is still programmed.
  static constexpr std::uint32_t kFreshIndex = 0xFFFFFFFE;
  // The entries kept outside the table for outputs that reach no port.
  static constexpr std::uint32_t kNowhereIndex = 0xFFFFFFFD;
  static constexpr std::uint32_t kCpuOnlyIndex = 0xFFFFFFFC;
  // Table indexes stay below this.
  static constexpr std::uint32_t kFirstReservedIndex = kCpuOnlyIndex;

  enum class Table : std::uint8_t { route, boundary, replication };

  using Capacity = ReferenceChipCapacity;

  // One replication-table entry.
  struct ReplicationEntry {
    std::uint32_t index = 0;
    MrouteLib::PortVlanSet portVlanSet;  // the outputs last written
    std::uint32_t rewrites = 0;          // in-place rewrites since allocation
    std::uint32_t routes = 0;            // routes of the chip pointing at it
  };

  // One route-table entry, as programmed.
  struct RouteEntry {
    RouteHandle handle;
    std::uint16_t vrfId = 0;
    IpGenRouteKey key;
    Bridging::VlanIdOrNone acceptingVlan;
    bool noRpf = false;
    bool fastdrop = false;
    std::uint16_t rpaId = 0;
    std::uint32_t oifSetIndex = 0;  // 0: programmed without a replication entry
    bool hit = false;
    // VLANs on which the fast-drop entry of a fastdrop route was hit.
    std::vector<Bridging::VlanIdOrNone> fastdropHits;

    bool fastdropHit(Bridging::VlanIdOrNone vlan) const;
  };

  // One boundary-table entry.
  struct BoundaryEntry {
    RouteHandle handle;
    std::uint16_t vrfId = 0;
    IpGenRouteKey key;
    Bridging::VlanIdOrNone vlan;
  };

  // Per-chip activity, for reports. Totals add the chips up (peaks included).
  struct Statistics {
    std::uint64_t entriesInUse = 0;
    std::uint64_t peakEntries = 0;
    std::uint64_t allocations = 0;        // fresh replication entries
    std::uint64_t failedAllocations = 0;  // refused: full or injected
    std::uint64_t inPlaceRewrites = 0;
    std::uint64_t frees = 0;
    std::uint64_t doubleFrees = 0;
    std::uint64_t routes = 0;             // in the route table now
    std::uint64_t peakRoutes = 0;
    std::uint64_t routeAllocations = 0;
    std::uint64_t failedRouteAllocations = 0;
    std::uint64_t routeDeletes = 0;
    std::uint64_t repoints = 0;           // doSetMtableOifSet
    std::uint64_t boundaries = 0;         // in the boundary table now
    std::uint64_t hwOperations = 0;      // operations charged with operationCost
    std::uint64_t packetsForwarded = 0;
    std::uint64_t packetsDropped = 0;

    Statistics& operator+=(Statistics const& o);
  };

  enum class DropReason : std::uint8_t {
    none,             // forwarded (possibly to no port: an entry without outputs)
    unknownChip,      // no such switchId
    routingDisabled,  // the agent has multicast routing off
    boundary,         // a boundary entry stops routing of the group on vlanIn
    noRoute,          // no route of the VRF covers (source, group)
    rpfFail,          // vlanIn is not the route's accepting VLAN
    noEntry,          // the route has no live replication entry
  };

  struct ForwardResult {
    std::vector<PortVlan> copies;  // (port, VLAN) outputs, in port order
    bool toCpu = false;            // the entry also sends a copy to the CPU
    DropReason dropReason = DropReason::none;
    RouteHandle route;             // the matched route, invalid when none
    std::uint32_t oifSetIndex = 0;
    bool forwarded() const { return dropReason == DropReason::none; }
  };

  // chips switch chips, numbered 0..chips-1, all with capacity.
  ReferenceChip(Vex::Name name, std::uint32_t chips, Capacity capacity = Capacity{});
  ~ReferenceChip() override;

  std::uint32_t chips() const { return static_cast<std::uint32_t>(chips_.size()); }
  Capacity capacity(std::uint32_t chip) const;
  // Takes effect for later allocations; entries beyond a smaller capacity stay.
  void capacityIs(std::uint32_t chip, Capacity capacity);

  // Virtual time charged per hardware operation (table writes, hit-bit and
  // counter reads); 0 by default.
  Vex::Seconds operationCost() const { return operationCost_; }
  void operationCostIs(Vex::Seconds cost) { operationCost_ = cost; }
  // The next n allocations in table of chip fail (the full query still
  // answers from the capacity). Replication rewrites in place are not
  // allocations.
  void failNextAllocationsIs(std::uint32_t chip, Table table, std::uint32_t n);
  std::uint32_t failNextAllocations(std::uint32_t chip, Table table) const;
  // While forced, table of chip answers full and refuses allocations.
  void fullForcedIs(std::uint32_t chip, Table table, bool forced);
  bool fullForced(std::uint32_t chip, Table table) const;

  // What the chips hold. Pointers stay valid until the next change of that
  // table. replicationEntry also answers for the two entries kept outside the
  // table; replicationEntries lists the table only.
  ReplicationEntry const* replicationEntry(std::uint32_t chip, std::uint32_t index) const;
  absl::btree_map<std::uint32_t, ReplicationEntry> const& replicationEntries(std::uint32_t chip) const;
  RouteEntry const* route(std::uint32_t chip, RouteHandle handle) const;
  absl::btree_map<RouteHandle, RouteEntry> const& routes(std::uint32_t chip) const;
  // The route programmed for exactly this VRF, key and accepting VLAN
  // (none for a noRpf route), or null.
  RouteEntry const* route(std::uint32_t chip, std::uint16_t vrfId, IpGenRouteKey const& key,
                          Bridging::VlanIdOrNone acceptingVlan) const;
  BoundaryEntry const* boundary(std::uint32_t chip, RouteHandle handle) const;
  absl::btree_map<RouteHandle, BoundaryEntry> const& boundaries(std::uint32_t chip) const;

  // Agent and chip state set by the start-up hooks.
  bool mrouteInitialized() const { return mrouteInitialized_; }
  bool multicastRoutingEnabled() const { return multicastRoutingEnabled_; }
  bool switchInitialized(std::uint32_t chip) const;
  Routing::Multicast::Fib::CounterMode counterMode() const { return counterMode_; }
  std::uint64_t commits() const { return commits_; }
  std::uint64_t hitBitCacheRefreshes() const { return hitBitCacheRefreshes_; }

  // Traffic. Looks the packet up on chip, sets the matched route's hit bit
  // (or its fast-drop hit bit for vlanIn when RPF fails on a fastdrop route)
  // and counts the counters covering it (bytes in byte mode, else 1 packet).
  ForwardResult forwardWithReason(std::uint32_t chip, std::uint16_t vrfId, Netcore::IpGenAddr const& source,
                                  Netcore::IpGenAddr const& group, Bridging::VlanIdOrNone vlanIn,
                                  std::uint32_t bytes = 64);
  // The copies only; toCpu and the drop reason are in forwardWithReason.
  std::vector<PortVlan> forward(std::uint32_t chip, std::uint16_t vrfId, Netcore::IpGenAddr const& source,
                                Netcore::IpGenAddr const& group, Bridging::VlanIdOrNone vlanIn);

  // Route counters: whether one exists for key, and the amount counted since
  // the last read or clear (without reading it).
  bool counterExists(IpGenRouteKey const& key) const { return counters_.contains(key); }
  std::int64_t counterPending(IpGenRouteKey const& key) const;
  std::size_t counterCount() const { return counters_.size(); }

  // Violations recorded so far, each one readable line naming the chip.
  std::vector<std::string> const& violations() const { return violations_; }
  void violationsDelAll() { violations_.clear(); }
  // Checks chip against the library: every route points at a live
  // replication entry (or none), no entry is held that liveIndexes does not
  // name (leak), none named there is missing, and no entry was freed twice.
  // liveIndexes: every index for which the library holds a set (used by
  // routes, zombie, or programmed without outputs). Returns the problems found;
  // records nothing.
  std::vector<std::string> invariantViolations(std::uint32_t chip, absl::btree_set<std::uint32_t> const& liveIndexes) const;

  Statistics statistics(std::uint32_t chip) const;
  Statistics statisticsTotal() const;

  // FalHelper::MrouteSmHelper
  void mrouteInit(bool initializing) override;
  void handleMulticastRouting(bool enabled) override;
  void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
  void verifyMulticastRouting(bool enabled) override;
  void mrouteSwitchInit(std::uint32_t switchId, bool initializing) override;
  std::uint32_t doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
  std::uint32_t doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
  void handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) override;
  bool doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key) override;
  void doDeleteMrouteCounter(IpGenRouteKey const& key) override;
  bool doClearMrouteCounter(IpGenRouteKey const& key) override;
  std::int64_t doReadMrouteCounter(IpGenRouteKey const& key) override;
  void ageOutHwMcastCounter(IpGenRouteKey const& key) override;
  RouteHandle doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                               Bridging::VlanIdOrNone acceptingVlanId, bool bridge, std::uint32_t oifSetIndex,
                               bool fastdrop, std::uint16_t rpaId) override;
  RouteHandle doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, bool bridge,
                                    std::uint32_t oifSetIndex, bool fastdrop, std::uint16_t rpaId) override;
  void doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                         Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex) override;
  void doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                      Vex::Ptr<Fal::Route const> const& route) override;
  void doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                              Vex::Ptr<Fal::Boundary const> const& boundary) override;
  void doCommitMrouteBatch() override;
  bool mrouteFull(std::uint32_t switchId) override;
  bool mrouteBoundaryFull(std::uint32_t switchId) override;
  bool mtableFull(std::uint32_t switchId) override;
  bool mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
                    bool fastdrop) override;
  bool mrouteHitBitCacheRefresh(std::uint32_t switchId) override;
  void mrouteHitBitCacheClear(std::uint32_t switchId) override;
  void verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route) override;
  void verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                            Vex::Ptr<Fal::Boundary const> const& boundary) override;
  // A zombie's entry may serve the outputs only if it still holds them. The
  // hook names no chip: true when a chip holds exactly these outputs at the index.
  bool verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex) override;

 private:
  // A route key reduced to what a lookup compares: VRF, family, both prefix
  // lengths and the masked address bytes (a (*,G) source is all zero
  // whatever family its empty prefix carries).
  struct LookupKey {
    std::array<std::uint8_t, 16> source{};
    std::array<std::uint8_t, 16> group{};
    std::uint16_t vrfId = 0;
    std::uint8_t af = 0;
    std::uint8_t sourceLen = 0;
    std::uint8_t groupLen = 0;
    friend bool operator==(LookupKey const&, LookupKey const&) = default;
    template <typename H>
    friend H AbslHashValue(H h, LookupKey const& k) {
      return H::combine(std::move(h), k.source, k.group, k.vrfId, k.af, k.sourceLen, k.groupLen);
    }
  };
  // (family, source length, group length), most specific first.
  struct LengthPair {
    std::uint8_t af;
    std::uint8_t sourceLen;
    std::uint8_t groupLen;
    friend bool operator<(LengthPair const& a, LengthPair const& b) {
      if (a.af != b.af) return a.af < b.af;
      if (a.sourceLen != b.sourceLen) return a.sourceLen > b.sourceLen;
      return a.groupLen > b.groupLen;
    }
  };
  // Handles by lookup key, and the prefix-length pairs present, so a packet
  // lookup probes one hash per distinct pair instead of scanning the table.
  class PrefixIndex {
   public:
    void add(LookupKey const& k, RouteHandle h);
    void remove(LookupKey const& k, RouteHandle h);
    absl::InlinedVector<RouteHandle, 1> const* find(LookupKey const& k) const;
    // Appends the handles of each key of vrfId covering (source, group),
    // most specific first (longest source, then longest group); only the
    // first with firstOnly.
    void matches(std::uint16_t vrfId, Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group,
                 std::vector<absl::InlinedVector<RouteHandle, 1> const*>& out, bool firstOnly) const;

   private:
    absl::flat_hash_map<LookupKey, absl::InlinedVector<RouteHandle, 1>> byKey_;
    std::map<LengthPair, std::uint32_t> lengths_;
  };

  struct Counter {
    std::uint16_t vrfId = 0;
    std::int64_t pending = 0;
  };

  struct Chip {
    Capacity capacity;
    absl::btree_map<std::uint32_t, ReplicationEntry> entries;
    // Outside the table: replicating nowhere, and to the CPU only.
    std::array<ReplicationEntry, 2> noPort;
    absl::btree_set<std::uint32_t> freeIndexes;  // freed indexes below nextIndex, reused lowest first
    std::uint32_t nextIndex = 1;
    absl::btree_map<RouteHandle, RouteEntry> routes;
    absl::btree_map<RouteHandle, BoundaryEntry> boundaries;
    PrefixIndex routeIndex;
    PrefixIndex boundaryIndex;
    std::uint32_t nextHandle = 1;
    std::array<std::uint32_t, 3> failNext{};
    std::array<bool, 3> fullForced{};
    std::vector<std::uint32_t> doubleFreed;
    Statistics stats;
    bool initialized = false;
  };

  static LookupKey lookupKey(std::uint16_t vrfId, IpGenRouteKey const& key);
  // The entry at index, in the table or outside it; null when none.
  static ReplicationEntry* entryAt(Chip& c, std::uint32_t index);
  static ReplicationEntry const* entryAt(Chip const& c, std::uint32_t index);
  static std::size_t tableSlot(Table t) { return static_cast<std::size_t>(t); }

  // The chip of switchId, or null after recording a violation naming op.
  Chip* chipFor(std::uint32_t switchId, char const* op);
  // The chip of a caller-given number; a bad number is the caller's bug.
  Chip const& chipAt(std::uint32_t chip) const;
  Chip& chipAt(std::uint32_t chip);
  bool full(Chip const& c, Table t) const;
  // Consumes one injected failure of t, if any.
  bool injectedFailure(Chip& c, Table t);
  // Counts one hardware operation on c (null: no chip) and charges its time.
  void charge(Chip* c);
  void violation(std::string text);
  RouteHandle allocateHandle(Chip& c);
  RouteHandle allocateRoute(std::uint32_t switchId, char const* op, RouteEntry entry, bool bridge);
  // Allocates (index 0 or kFreshIndex) or rewrites in place (a live index).
  std::uint32_t programEntry(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr const& oifSet, char const* op);
  // Adds delta to the route count of entry index (0: none).
  void entryRefIs(Chip& c, std::uint32_t switchId, std::uint32_t index, int delta, char const* op, RouteEntry const& r);
  void countTraffic(RouteEntry const& r, std::uint32_t bytes);

  std::vector<Chip> chips_;
  absl::flat_hash_map<IpGenRouteKey, Counter> counters_;
  std::vector<std::string> violations_;
  Vex::Seconds operationCost_ = 0;
  Routing::Multicast::Fib::CounterMode counterMode_ = Routing::Multicast::Fib::CounterMode::packets;
  std::uint64_t commits_ = 0;
  std::uint64_t hitBitCacheRefreshes_ = 0;
  bool mrouteInitialized_ = false;
  bool multicastRoutingEnabled_ = false;
};

char const* dropReasonName(ReferenceChip::DropReason reason);

}  // namespace FalSim
