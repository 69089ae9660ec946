#pragma once
// FalSim::ReferenceChipTables: the hardware of N simulated switch chips (the
// tables they hold and how a packet goes through them), apart from the hook
// interface that programs them. The synchronous hook face (ReferenceChip)
// and the asynchronous one (AsyncReferenceChip) write into these same
// tables, so a packet is forwarded by one piece of code whichever flavour
// programmed its chip.
//
// Per chip (0..chips-1) three tables with finite, settable capacities:
// - the replication table: entries keyed by index, each a copy of the
//   PortVlanSet it was last written with. Fresh indexes are the lowest free
//   number from 1 up, so never 0 (the library's "no set") nor 0xFFFFFFFF
//   ("none"). Outputs that reach no port (no outputs, no FRR outputs, no NAT
//   VLANs) can be given one of two entries each chip keeps outside the table,
//   one replicating nowhere (kNowhereIndex) and one that only copies to the
//   CPU (kCpuOnlyIndex). Those take no capacity, escape injected failures, are
//   shared by every such set and stay when one is freed.
// - the route table: routes keyed by handle with the fields they were
//   programmed with (vrfId, key, accepting VLAN, noRpf, fastdrop, rpaId,
//   oifSetIndex), their hit bit and per-VLAN fast-drop hit bits.
// - the boundary table: boundary (bridge) entries keyed by handle. Routes and
//   boundaries share one handle space per chip, so a handle names one or the
//   other.
//
// Traffic: forwardWithReason() looks a packet up as the hardware would
// (longest match over the chip's routes of the VRF, (S,G) before (*,G)),
// checks the accepting VLAN, and answers with the copies the replication
// entry gives. It sets hit bits and counts the route counters.
//
// Programming primitives (entryAllocate, routeAllocate, ...) are for the hook
// faces: each checks what a well-behaved library would never do (freeing an
// entry twice, touching an unknown handle, rewriting an absent entry) and
// records it as a readable violation instead of stopping, so the simulator's
// invariant checker can report them all. invariantViolations() checks the
// tables against the indexes the library holds.
//
// Costs and faults: each hardware operation charges operationCost() of
// virtual time to the current activity manager (charge()), so time-bounded
// passes see the chip's latency; failNextAllocationsIs and fullForcedIs
// inject refusals.
//
// Single-threaded, like everything on the event loop.
#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>

#include <array>
#include <deque>
#include <map>
#include <memory>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/net/IpGenAddr.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Types.h"
#include "sim/HandleTable.h"
#include "sim/RoutePrefixIndex.h"

namespace FalSim {

// The sizes of one chip's tables.
struct ReferenceChipCapacity {
  std::size_t routes = 16384;
  std::size_t boundaries = 1024;
  std::size_t replicationEntries = 4096;
};

class ReferenceChipTables {
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
    // The outputs it was allocated with, kept by the first in-place rewrite
    // that changed them (null until then). A fast-reroute rewrite leaves the
    // entry standing for the set it was made for, and two sets can share a
    // rewritten form: which set an entry is for is told by these.
    std::unique_ptr<MrouteLib::PortVlanSet const> allocatedWith;
    MrouteLib::PortVlanSet const& allocatedSet() const { return allocatedWith ? *allocatedWith : portVlanSet; }
    std::uint32_t routes = 0;            // routes of the chip pointing at it
    // Written to hardware. An asynchronous group is held (its index and
    // capacity taken) from its allocation, but forwards only once its
    // transaction has written it.
    bool programmed = true;
  };

  // One route-table entry, as programmed.
  struct RouteEntry {
    RouteHandle handle;
    std::uint16_t vrfId = 0;
    IpGenRouteKey key;
    Bridging::VlanIdOrNone acceptingVlan;
    bool noRpf : 1 = false;
    bool fastdrop : 1 = false;
    bool hit : 1 = false;
    std::uint16_t rpaId = 0;
    std::uint32_t oifSetIndex = 0;  // 0: programmed without a replication entry
    // The route whose hit bit was asked for right after this one's, at the
    // last aging pass that asked (see hitAsked). A hint only: it may name a
    // route gone since, or none.
    mutable RouteHandle nextAsked;
    // When the route last forwarded (the event loop's time); 0 when never.
    Vex::Seconds lastAccess = 0;
    // VLANs on which the fast-drop entry of a fastdrop route was hit; null
    // while none was (most routes: a pointer per route instead of a vector).
    std::unique_ptr<std::vector<Bridging::VlanIdOrNone>> fastdropHits;

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
    std::uint64_t repoints = 0;           // routes pointed at another entry
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
  ReferenceChipTables(std::uint32_t chips, Capacity capacity);
  virtual ~ReferenceChipTables();
  ReferenceChipTables(ReferenceChipTables const&) = delete;
  ReferenceChipTables& operator=(ReferenceChipTables const&) = delete;

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
  bool full(std::uint32_t chip, Table table) const;

  // What the chips hold. Pointers stay valid until the next change of that
  // table. replicationEntry also answers for the two entries kept outside the
  // table; replicationEntries lists the table only.
  ReplicationEntry const* replicationEntry(std::uint32_t chip, std::uint32_t index) const;
  std::map<std::uint32_t, ReplicationEntry> const& replicationEntries(std::uint32_t chip) const;
  RouteEntry const* route(std::uint32_t chip, RouteHandle handle) const;
  HandleTable<RouteEntry> const& routes(std::uint32_t chip) const;
  // The route programmed for exactly this VRF, key and accepting VLAN
  // (none for a noRpf route), or null.
  RouteEntry const* route(std::uint32_t chip, std::uint16_t vrfId, IpGenRouteKey const& key,
                          Bridging::VlanIdOrNone acceptingVlan) const;
  // Whether two routes of chip share a VRF and key (with other accepting
  // VLANs). While none do, a route whose entry holds the VRF, key and VLAN
  // asked for is the one route() answers with.
  bool routeKeysShared(std::uint32_t chip) const { return chipAt(chip).routeIndex.chained(); }
  // A hint that the routes of this VRF and key on chip will be looked up soon. No effect.
  void routePrefetch(std::uint32_t chip, std::uint16_t vrfId, IpGenRouteKey const& key) const {
    chipAt(chip).routeIndex.prefetch(vrfId, key);
  }
  BoundaryEntry const* boundary(std::uint32_t chip, RouteHandle handle) const;
  HandleTable<BoundaryEntry> const& boundaries(std::uint32_t chip) const;

  // Whether the agent has multicast routing on: off, every packet drops.
  bool multicastRoutingEnabled() const { return multicastRoutingEnabled_; }
  void multicastRoutingEnabledIs(bool enabled) { multicastRoutingEnabled_ = enabled; }
  // What route counters count: packets, or bytes.
  Routing::Multicast::Fib::CounterMode counterMode() const { return counterMode_; }
  void counterModeIs(Routing::Multicast::Fib::CounterMode mode) { counterMode_ = mode; }
  bool switchInitialized(std::uint32_t chip) const;
  void switchInitializedIs(std::uint32_t chip, bool initialized);

  // Traffic. Looks the packet up on chip, sets the matched route's hit bit
  // and last-access time (or its fast-drop hit bit for vlanIn when RPF fails
  // on a fastdrop route) and counts the counters covering it (bytes in byte
  // mode, else 1 packet). An entry not yet programmed forwards nothing.
  ForwardResult forwardWithReason(std::uint32_t chip, std::uint16_t vrfId, Netcore::IpGenAddr const& source,
                                  Netcore::IpGenAddr const& group, Bridging::VlanIdOrNone vlanIn,
                                  std::uint32_t bytes = 64);
  // The copies only; toCpu and the drop reason are in forwardWithReason.
  std::vector<PortVlan> forward(std::uint32_t chip, std::uint16_t vrfId, Netcore::IpGenAddr const& source,
                                Netcore::IpGenAddr const& group, Bridging::VlanIdOrNone vlanIn);

  // Hit bits: whether a route of key in vrfId was hit on vlan (its fast-drop
  // entry on vlan with fastdrop), and clearing them all.
  bool hitBit(std::uint32_t chip, std::uint16_t vrfId, IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
              bool fastdrop) const;
  void hitBitsClear(std::uint32_t chip);

  // Route counters, keyed by route key alone; they count the traffic of
  // every chip. counterPending is the amount counted since the last read or
  // clear (without reading it).
  bool counterExists(IpGenRouteKey const& key) const { return counters_.contains(key); }
  std::int64_t counterPending(IpGenRouteKey const& key) const;
  std::size_t counterCount() const { return counters_.size(); }
  void counterIs(std::uint16_t vrfId, IpGenRouteKey const& key);
  void counterDel(IpGenRouteKey const& key);
  // False when there is no such counter.
  bool counterClear(IpGenRouteKey const& key);
  // What was counted since the last read; 0 when there is no such counter.
  std::int64_t counterRead(IpGenRouteKey const& key);

  // Violations recorded so far, each one readable line naming the chip.
  std::vector<std::string> const& violations() const { return violations_; }
  void violationsDelAll() { violations_.clear(); }
  void violation(std::string text);
  // Checks chip against the library: every route points at a live
  // replication entry (or none), no entry is held that liveIndexes does not
  // name (leak), none named there is missing, and no entry was freed twice.
  // liveIndexes: every index for which the library holds a set (used by
  // routes, zombie, or programmed without outputs). Returns the problems found;
  // records nothing.
  // noun names the entries in the findings ("oifSetIndex", "group").
  std::vector<std::string> invariantViolations(std::uint32_t chip, absl::btree_set<std::uint32_t> const& liveIndexes,
                                               char const* noun = "oifSetIndex") const;

  Statistics statistics(std::uint32_t chip) const;
  Statistics statisticsTotal() const;

  // ---- programming, for the hook faces ----
  // op names the hook in violations ("chip 3: op: ..."). A chip number out of
  // range is recorded as a violation (knownChip false) and does nothing.
  bool knownChip(std::uint32_t chip, char const* op);
  // Counts one hardware operation on chip (kNoChip: on none, as counters
  // are) and charges its time.
  static constexpr std::uint32_t kNoChip = 0xFFFFFFFF;
  void charge(std::uint32_t chip);
  // A fresh replication entry holding pvs: the lowest free index (or the
  // index asked for with at, when it is free), or kInvalidIndex when the
  // table is full, an injected failure refuses it or at is taken.
  // programmed false holds the entry without forwarding through it yet.
  std::uint32_t entryAllocate(std::uint32_t chip, MrouteLib::PortVlanSet const& pvs, bool programmed = true,
                              std::uint32_t at = kInvalidIndex);
  // An allocated entry's write completed: it forwards from now on.
  void entryProgrammedIs(std::uint32_t chip, std::uint32_t index);
  // The entry kept outside the table for outputs that reach no port.
  static std::uint32_t noPortIndex(MrouteLib::PortVlanSet const& pvs) {
    return pvs.toCpu() ? kCpuOnlyIndex : kNowhereIndex;
  }
  static bool noPortIndex(std::uint32_t index) { return index == kNowhereIndex || index == kCpuOnlyIndex; }
  // Rewrites a table entry in place; false (and a violation) when it is not programmed.
  bool entryWrite(std::uint32_t chip, std::uint32_t index, MrouteLib::PortVlanSet const& pvs, char const* op);
  // Frees a table entry; a second free, an unknown index, and an entry that
  // routes still point at are violations. The entries outside the table stay.
  void entryFree(std::uint32_t chip, std::uint32_t index, char const* op);
  // Adds a route (or, with bridge, a boundary entry) to chip; the invalid
  // handle when the table is full or an injected failure refuses it. The
  // route's entry must be programmed (an index of none is kept as 0).
  RouteHandle routeAllocate(std::uint32_t chip, RouteEntry entry, bool bridge, char const* op);
  // The route of handle, for a face to check its fields; null (and a
  // violation) when unknown.
  RouteEntry const* routeFor(std::uint32_t chip, RouteHandle handle, char const* op);
  BoundaryEntry const* boundaryFor(std::uint32_t chip, RouteHandle handle, char const* op);
  // Points a known route at the entry of index (0: none).
  void routeEntryIs(std::uint32_t chip, RouteHandle handle, std::uint32_t index, char const* op);
  void routeDel(std::uint32_t chip, RouteHandle handle);
  void boundaryDel(std::uint32_t chip, RouteHandle handle);

 private:
  struct Counter {
    std::uint16_t vrfId = 0;
    std::int64_t pending = 0;
  };

  template <class Entry>
  static RoutePrefixIndex::EntryKey entryKey(void const* table, RouteHandle h) {
    Entry const* e = static_cast<HandleTable<Entry> const*>(table)->find(h);
    return {e->vrfId, &e->key};
  }

  struct Chip {
    Capacity capacity;
    // Nodes that stay put, so that entries below kDirectIndexes are also
    // found by index in byIndex: every route a packet or a check looks at
    // reads its entry, and a tree of a few thousand entries is many levels deep.
    std::map<std::uint32_t, ReplicationEntry> entries;
    std::vector<ReplicationEntry*> byIndex;
    // Outside the table: replicating nowhere, and to the CPU only.
    std::array<ReplicationEntry, 2> noPort;
    absl::btree_set<std::uint32_t> freeIndexes;  // freed indexes below nextIndex, reused lowest first
    std::uint32_t nextIndex = 1;
    HandleTable<RouteEntry> routes;
    HandleTable<BoundaryEntry> boundaries;
    // Over the two tables above: a chip stays where it was made.
    RoutePrefixIndex routeIndex{&entryKey<RouteEntry>, &routes};
    RoutePrefixIndex boundaryIndex{&entryKey<BoundaryEntry>, &boundaries};
    std::uint32_t nextHandle = 1;
    std::array<std::uint32_t, 3> failNext{};
    std::array<bool, 3> fullForced{};
    std::vector<std::uint32_t> doubleFreed;
    Statistics stats;
    bool initialized = false;
    // Whether a packet may have set a hit bit since the last clear: a read
    // of an idle chip's bits then needs no lookup.
    bool hitsSinceClear = false;
    // The route whose hit bit was asked for last.
    mutable RouteHandle lastAsked;
  };

  // Indexes found through Chip::byIndex (below: a table's indexes are the
  // lowest free ones, so they stay small); others through the map.
  static constexpr std::uint32_t kDirectIndexes = 1U << 20;
  // The entry at index, in the table or outside it; null when none.
  static ReplicationEntry* entryAt(Chip& c, std::uint32_t index);
  static ReplicationEntry const* entryAt(Chip const& c, std::uint32_t index);
  static std::size_t tableSlot(Table t) { return static_cast<std::size_t>(t); }

  // The chip of a caller-given number; a bad number is the caller's bug.
  Chip const& chipAt(std::uint32_t chip) const;
  Chip& chipAt(std::uint32_t chip);
  static bool full(Chip const& c, Table t);
  // Consumes one injected failure of t, if any.
  static bool injectedFailure(Chip& c, Table t);
  RouteHandle allocateHandle(Chip& c);
  // Notes that r's hit bit is asked for, and fetches what the next questions
  // will read.
  static void hitAsked(Chip const& c, RouteEntry const& r);
  // Adds delta to the route count of entry index (0: none).
  void entryRefIs(Chip& c, std::uint32_t chip, std::uint32_t index, int delta, char const* op, RouteEntry const& r);
  void countTraffic(RouteEntry const& r, std::uint32_t bytes);

  std::deque<Chip> chips_;  // made in place, never moved: the indexes point into them
  absl::flat_hash_map<IpGenRouteKey, Counter> counters_;
  std::vector<std::string> violations_;
  Vex::Seconds operationCost_ = 0;
  Routing::Multicast::Fib::CounterMode counterMode_ = Routing::Multicast::Fib::CounterMode::packets;
  bool multicastRoutingEnabled_ = false;
};

char const* dropReasonName(ReferenceChipTables::DropReason reason);

// "chip 3: op: " - the prefix of every violation about one chip.
std::string violationPrefix(std::uint32_t chip, char const* op);

}  // namespace FalSim
