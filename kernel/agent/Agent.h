#pragma once
// FalAgent::Agent: the real-time agent behind mroute-agent. It brings up the
// platform, the synchronous library and its chips as the simulator does
// (FalSim::SimAgent: reference chips, and for chips of the "kernel" backend
// the kernel chip beside them, through FalSim::KernelChipLink), and feeds
// the route programmer from the kernel FIB source: every multicast route of the source namespace's kernel tables
// becomes a desired route, every port's link state its operational status
// (so a port going down makes the library rewrite the sets it protects).
//
// It is the source's FibSink: a batch from the source ends with a commit on
// every chip and a review request to their state machines. With counters
// "routes" on, each mirrored route is also counted. A port's link state goes
// to the kernel chips' devices of that port too, as the wire would.
//
// configIs applies a re-read configuration to the running agent (interfaces,
// zombies, aging, counters); what only a restart can change (source, VRFs,
// chips) is left as it was and named in the answer. shutdown() deletes every
// route from the chips and tears the library down through its own cleanup.
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "absl/container/flat_hash_set.h"
#include "kernel/agent/AgentConfig.h"
#include "kernel/netlink/FibSink.h"
#include "kernel/netlink/KernelFibSource.h"
#include "kernel/netlink/RtnlChannel.h"
#include "sim/KernelBacking.h"
#include "sim/ReferenceChip.h"
#include "sim/SimAgent.h"

namespace FalAgent {

class Agent : public FalKernel::FibSink {
 public:
  struct Status {
    std::size_t routesWanted = 0;
    std::size_t routesProgrammed = 0;  // on every chip
    std::size_t routesParked = 0;      // on some chip, for want of room
    std::size_t replicationEntries = 0;  // over all chips, zombies included
    std::size_t zombies = 0;
    double sharing = 0;  // routes per live replication entry
    std::size_t portsDown = 0;  // mapped ports whose link is not up
    std::uint64_t inPlaceRewrites = 0;  // replication entries rewritten for fast reroute
    std::size_t kernelChips = 0;
    std::uint64_t kernelRefusals = 0;  // allocations the kernel refused after the reference chip took them
    bool synchronized = false;
    FalKernel::KernelFibSource::Summary source;
    FalKernel::KernelFibSource::Counts sourceCounts;
  };

  // The channels read the source namespace: a dump channel and one subscribed
  // to the link and multicast-route groups.
  Agent(AgentConfig config, std::unique_ptr<FalKernel::RtnlChannel> dump,
        std::unique_ptr<FalKernel::RtnlChannel> events);
  // With rtnetlink channels opened in the configured namespace; throws
  // std::system_error when they, or the kernel chips' namespaces, cannot be.
  static std::unique_ptr<Agent> open(AgentConfig config);
  ~Agent() override;
  Agent(Agent const&) = delete;
  Agent& operator=(Agent const&) = delete;

  // Brings the library up and starts the first dump. Needs the event loop.
  // countersName: the shared-memory name the counter status is published
  // under ("B.counterStatus"); empty: not published.
  void start(std::string const& countersName = {});
  // Applies config; returns the fields that need a restart (not applied).
  std::vector<std::string> configIs(AgentConfig config);
  AgentConfig const& config() const { return config_; }
  void shutdown();
  // A fresh dump and resynchronisation, as after a lost notification.
  void resync() {
    if (source_) source_->resync();
  }
  bool running() const { return platform_.running(); }

  Status status() const;
  FalSim::SimAgent& platform() { return platform_; }
  FalSim::ReferenceChip& referenceChip() const { return *chip_; }
  // The kernel chips, or null when no chip has the kernel backend.
  FalSim::KernelBacking* kernelBacking() const { return kernel_.get(); }

  // FalKernel::FibSink
  void routeIs(MrouteLib::DesiredRoute const& route) override;
  void routeDel(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) override;
  void portOperStatusIs(Netcore::IntfId port, Interface::IntfOperStatus status) override;
  void commit() override;

 private:
  using RouteId = std::pair<L3::VrfName, Routing::Multicast::Fib::IpGenRouteKey>;
  struct RouteIdHash {
    std::size_t operator()(RouteId const& r) const { return std::hash<std::string>()(r.first.stringValue()) ^ r.second.hash(); }
  };

  static FalSim::Scenario platformOf(AgentConfig const& config);
  static std::unique_ptr<FalSim::KernelBacking> kernelOf(AgentConfig const& config);
  FalSim::SimAgent::LinkFactory linkFactory();
  void countRoute(RouteId const& id, bool count);
  void settingsIs(AgentConfig const& config);

  AgentConfig config_;
  Vex::Ptr<FalSim::ReferenceChip> chip_;
  // Before the platform: its links reach the kernel chips until it is gone.
  std::unique_ptr<FalSim::KernelBacking> kernel_;
  FalSim::SimAgent platform_;
  std::unique_ptr<FalKernel::RtnlChannel> dump_;
  std::unique_ptr<FalKernel::RtnlChannel> events_;
  std::unique_ptr<FalKernel::KernelFibSource> source_;
  absl::flat_hash_set<RouteId, RouteIdHash> wanted_;
  absl::flat_hash_set<Netcore::IntfId> portsDown_;
};

// "routes wanted 10 programmed 10 parked 0 | replication entries 3 (0 zombies,
// sharing 3.33) | ports down 1, in-place rewrites 2 | source table 12 entries
// (2 not routes, 0 outputs unmapped), in sync, dumps 1, overflows 0, interrupted 0"
std::string statusLine(Agent::Status const& s);

}  // namespace FalAgent
