#pragma once
// FalKernel::KernelChip: a switch chip on the Linux kernel's multicast
// forwarding, behind the synchronous hook interface FalHelper::MrouteSmHelper.
// Hand it to Fal::MrouteSm and to the chip's Fal::MrouteSwitch like any
// chip agent; it answers for one switchId and refuses the others.
//
// How the chip's tables map onto the kernel:
// - a VRF is a kernel multicast routing table (mrouteTableOf), programmed
//   through one multicast routing socket per table and family (MrouteSocket),
//   opened when the table's first route comes;
// - each (port, VLAN) output and each accepting (VRF, VLAN) input is a
//   device (KernelPortMap) and gets a virtual interface (VIF) number. Numbers
//   are the chip's, one space for all tables and both families, so the
//   kernel's limit of kMaxVifs per table holds everywhere; a VIF is added to
//   a table when a route of that table first needs it and removed from all
//   when the last entry or route using it goes;
// - a replication-table entry is the set of VIFs of its outputs. VIFs are
//   taken for its fast-reroute backups too when it is written, so that the
//   rewrite after a failure never runs out of them;
// - a route is an MFC entry (source, group) in its VRF's table, accepting on
//   the VIF of its input and replicating to its entry's VIFs; a (*,G) route
//   has the all-zero source (the kernel's (*,G) lookup also wants the input
//   among the entry's VIFs, and never sends a copy back to it); a boundary
//   entry is an MFC entry with no outputs, so the group is dropped on that
//   input;
// - rewriting an entry in place (fast reroute) rewrites the MFC entry of
//   every route using it; their counts are kept.
//
// Refusals, as the hooks define them: an entry needing a VIF beyond the
// kMaxVifs-th is refused with 0xFFFFFFFF (a full table); so is one beyond
// the replication capacity, which mtableFull also reports. A route is
// refused (the invalid handle) when the route capacity is reached (then
// mrouteFull answers true), when it cannot be expressed in the kernel's
// cache (no-RPF routes, a source or group prefix that is not a host or a
// (*,G)), when its (source, group) already has an MFC entry in the table,
// when its input needs a VIF and none is free, or when the kernel refuses a
// write. Every kernel error is traced with its errno on "FalMrouteKernel"
// (level 1) and counted; nothing here throws or stops the agent.
//
// Activity: the hit-bit cache refresh reads every route's per-(S,G) counts
// (SIOCGETSGCNT); a route was hit when it forwarded packets since the last
// cache clear, its fast-drop entry when packets arrived on a wrong
// interface. Counters count the packets (bytes in byte mode) forwarded by
// the routes they cover: one route key in its VRF, or every route of VRF's
// family for the wildcard key; a deleted route's last counts are kept.
//
// Destroying the chip closes its sockets, which flushes its tables.
// Single-threaded, like everything on the event loop.
#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kernel/KernelPortMap.h"
#include "kernel/MrouteSocket.h"
#include "model/MrouteSmHelper.h"
#include "platform/fib/CounterMode.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/mroutelib/RouteHandle.h"

namespace FalKernel {

struct KernelChipCapacity {
  std::size_t routes = 1'000'000;  // MFC entries, boundaries included
  std::size_t replicationEntries = 65536;
};

class KernelChip : public FalHelper::MrouteSmHelper {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using RouteHandle = MrouteLib::RouteHandle;
  using VifSet = MrouteSocket::VifSet;
  using Capacity = KernelChipCapacity;

  static constexpr std::uint32_t kInvalidIndex = 0xFFFFFFFF;
  static constexpr std::uint32_t kFreshIndex = 0xFFFFFFFE;
  static constexpr int kMaxVifs = MrouteSocket::kMaxVifs;

  struct Entry {
    std::uint32_t index = 0;
    MrouteLib::PortVlanSet portVlanSet;  // as last written
    VifSet outputs;                      // the VIFs it replicates to
    VifSet reserved;                     // outputs and fast-reroute backups
    absl::flat_hash_set<std::uint32_t> routes;  // handles of the routes using it
    std::uint32_t rewrites = 0;
  };

  struct Route {
    bool live = false;  // the slot holds a programmed route
    RouteHandle handle;
    std::uint16_t vrfId = 0;
    IpGenRouteKey key;
    Bridging::VlanIdOrNone acceptingVlan;
    bool boundary = false;
    std::uint32_t oifSetIndex = 0;  // 0: no entry
    int inputVif = -1;
    MrouteSocket::Counts hitSeen;     // at the last cache refresh
    MrouteSocket::Counts hitCleared;  // at the last cache clear
    MrouteSocket::Counts credited;    // already counted into counters
  };

  struct Statistics {
    std::uint64_t kernelErrors = 0;
    std::uint64_t entryAllocations = 0;
    std::uint64_t refusedEntries = 0;  // full: capacity, VIFs, or a device missing
    std::uint64_t inPlaceRewrites = 0;
    std::uint64_t entryFrees = 0;
    std::uint64_t routeAllocations = 0;
    std::uint64_t refusedRoutes = 0;
    std::uint64_t routeDeletes = 0;
    std::uint64_t repoints = 0;
    std::uint64_t mfcWrites = 0;  // MFC adds and in-place rewrites
  };

  KernelChip(Vex::Name name, std::uint32_t switchId, KernelPortMap& ports, Capacity capacity = Capacity{});
  ~KernelChip() override;

  std::uint32_t switchId() const { return switchId_; }
  Capacity capacity() const { return capacity_; }
  void capacityIs(Capacity c) { capacity_ = c; }

  // What the chip holds.
  Entry const* entry(std::uint32_t index) const;
  absl::btree_map<std::uint32_t, Entry> const& entries() const { return entries_; }
  Route const* route(RouteHandle handle) const;
  // Routes and boundaries programmed.
  std::size_t routeCount() const { return routeCount_; }
  // The route or boundary of exactly this VRF, key and accepting VLAN.
  Route const* route(std::uint16_t vrfId, IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan) const;
  // The VIF number of the device ifindex, or -1.
  int vif(int ifindex) const;
  int vifsInUse() const;
  // The kernel's counts of a route's MFC entry, read now; nullopt when the
  // kernel does not hold it.
  std::optional<MrouteSocket::Counts> kernelCounts(RouteHandle handle);

  Statistics const& statistics() const { return stats_; }
  // The errno of the kernel's last refusal, 0 when none.
  int lastError() const { return lastError_; }
  // Differences verifyMroute / verifyMrouteBoundary found, one line each.
  std::vector<std::string> const& verifyFindings() const { return verifyFindings_; }

  bool mrouteInitialized() const { return mrouteInitialized_; }
  bool multicastRoutingEnabled() const { return multicastRoutingEnabled_; }
  bool switchInitialized() const { return switchInitialized_; }

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
  // Discards what the kernel reported on the multicast routing sockets
  // (packets of groups no route covers), so their queues never fill.
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
  // Usable when the entry still replicates to exactly these outputs.
  bool verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex) override;

 private:
  // One multicast routing table of one family, and the VIFs added to it.
  struct Table {
    std::unique_ptr<MrouteSocket> socket;
    VifSet vifs;
  };
  struct Vif {
    int ifindex = 0;  // 0: free
    std::uint32_t users = 0;
  };
  struct Counter {
    std::uint16_t vrfId = 0;
    std::int64_t pending = 0;
  };
  using RouteId = std::pair<std::uint16_t, IpGenRouteKey>;  // an MFC entry: VRF and key

  bool mine(std::uint32_t switchId, char const* op) const;
  Route* slot(RouteHandle handle);
  template <typename F>
  void forEachRoute(F const& f) {
    for (Route& r : routes_) {
      if (r.live) f(r);
    }
  }
  // Traces a kernel error and remembers it; returns err.
  int kernelError(char const* op, int err, std::string const& what);
  std::uint32_t writeEntry(std::uint32_t oifSetIndex, OifSetPtr const& oifSet, char const* op);
  // The VIFs of set's outputs (and backups, in reserved), each reserved once
  // more; false (nothing reserved) when a device is missing or VIFs run out.
  bool reserveOutputs(MrouteLib::PortVlanSet const& set, VifSet& outputs, VifSet& reserved, char const* op);
  int reserveVif(int ifindex);
  void releaseVifs(VifSet vifs);
  Table* table(std::uint16_t vrfId, Netcore::AddressFamily af, char const* op);
  // Writes the route's MFC entry (add, or rewrite in place); 0 or errno.
  int programMfc(Route const& r, char const* op);
  RouteHandle allocateRoute(Route r, char const* op);
  void deleteRoute(RouteHandle handle, bool boundary, char const* op);
  void findingIs(std::string text);
  // Counters.
  static bool representable(IpGenRouteKey const& key);
  void creditCounters(Route& r);
  std::int64_t amount(MrouteSocket::Counts const& c) const;

  std::uint32_t switchId_;
  KernelPortMap& ports_;  // not owned: outlives the chip
  Capacity capacity_;
  std::array<Vif, kMaxVifs> vifs_{};
  absl::flat_hash_map<int, int> vifByIfindex_;
  absl::flat_hash_map<std::pair<std::uint32_t, Netcore::AddressFamily>, Table> tables_;
  absl::btree_map<std::uint32_t, Entry> entries_;
  absl::btree_set<std::uint32_t> freeIndexes_;
  std::uint32_t nextIndex_ = 1;
  // Slot handle - 1; handles are reused last-freed first, so the slots stay dense.
  std::vector<Route> routes_;
  std::size_t routeCount_ = 0;
  absl::flat_hash_map<RouteId, std::uint32_t> byKey_;
  std::vector<std::uint32_t> freeHandles_;
  absl::flat_hash_map<IpGenRouteKey, Counter> counters_;
  Routing::Multicast::Fib::CounterMode counterMode_ = Routing::Multicast::Fib::CounterMode::packets;
  Statistics stats_;
  std::vector<std::string> verifyFindings_;
  int lastError_ = 0;
  bool mrouteInitialized_ = false;
  bool multicastRoutingEnabled_ = false;
  bool switchInitialized_ = false;
};

}  // namespace FalKernel
