#include "kernel/agent/Agent.h"

#include <iomanip>
#include <set>
#include <sstream>

#include <linux/rtnetlink.h>

#include "kernel/netlink/MnlChannel.h"
#include "sim/KernelChipLink.h"

namespace FalAgent {

using Netcore::AddressFamily;

FalSim::Scenario Agent::platformOf(AgentConfig const& config) {
  FalSim::Scenario s;
  s.name = "mroute-agent";
  s.chips.count = static_cast<std::uint32_t>(config.chips.size());
  s.chips.capacity = config.chips.front().capacity;
  std::set<Netcore::IntfId> ports;
  std::set<std::uint16_t> vlans;
  for (auto const& [name, i] : config.interfaces) {
    for (auto const& pv : i.frrBackups) {
      ports.insert(pv.port());
      if (!pv.vlan().isNone()) vlans.insert(pv.vlan().value());
    }
    ports.insert(i.portVlan.port());
    vlans.insert(i.portVlan.vlan().value());
  }
  s.ethernet.assign(ports.begin(), ports.end());
  for (std::uint16_t v : vlans) s.vlans.push_back({Netcore::IntfId::vlan(v), Bridging::VlanId(v)});
  for (auto const& v : config.vrfs) s.vrfs.push_back({v.name, v.id});
  s.zombiesEnabled = config.zombiesEnabled;
  s.zombieLifetime = config.zombieLifetime;
  s.activityPollingInterval = config.activityPollingInterval;
  s.allCounter = config.allCounter;
  s.counterMode = config.counterMode;
  return s;
}

std::unique_ptr<FalSim::KernelBacking> Agent::kernelOf(AgentConfig const& config) {
  std::vector<FalSim::KernelBacking::Placement> placements;
  bool any = false;
  for (auto const& c : config.chips) {
    bool const kernel = c.backend == AgentConfig::Chip::Backend::kernel;
    placements.push_back({kernel, c.netns});
    any = any || kernel;
  }
  return any ? std::make_unique<FalSim::KernelBacking>(placements) : nullptr;
}

FalSim::SimAgent::LinkFactory Agent::linkFactory() {
  if (!kernel_) return {};
  return [this](Vex::Ptr<FalSim::ReferenceChip> const& chip) -> Vex::Ptr<FalSim::ChipLink> {
    return Vex::make<FalSim::KernelChipLink>("mroute-agent", chip, *kernel_);
  };
}

Agent::Agent(AgentConfig config, std::unique_ptr<FalKernel::RtnlChannel> dump,
             std::unique_ptr<FalKernel::RtnlChannel> events)
    : config_(std::move(config)),
      chip_(Vex::make<FalSim::ReferenceChip>("mroute-agent", static_cast<std::uint32_t>(config_.chips.size()),
                                             config_.chips.front().capacity)),
      kernel_(kernelOf(config_)),
      platform_(platformOf(config_), chip_, linkFactory()),
      dump_(std::move(dump)),
      events_(std::move(events)) {
  for (std::uint32_t c = 0; c < config_.chips.size(); ++c) chip_->capacityIs(c, config_.chips[c].capacity);
}

std::unique_ptr<Agent> Agent::open(AgentConfig config) {
  auto dump = FalKernel::MnlChannel::open({config.sourceNamespace, {}, 0});
  auto events = FalKernel::MnlChannel::open(
      {config.sourceNamespace, {RTNLGRP_LINK, RTNLGRP_IPV4_MROUTE, RTNLGRP_IPV6_MROUTE}, config.receiveBuffer});
  return std::make_unique<Agent>(std::move(config), std::move(dump), std::move(events));
}

Agent::~Agent() { source_.reset(); }

void Agent::start(std::string const& countersName) {
  platform_.counterStatusNameIs(countersName);
  platform_.start();
  source_ = std::make_unique<FalKernel::KernelFibSource>(std::move(dump_), std::move(events_), config_.sourceMap(),
                                                          *this);
  source_->start();
}

std::vector<std::string> Agent::configIs(AgentConfig config) {
  std::vector<std::string> restart = config_.restartNeeded(config);
  config.sourceNamespace = config_.sourceNamespace;
  config.receiveBuffer = config_.receiveBuffer;
  config.vrfs = config_.vrfs;
  config.chips = config_.chips;
  settingsIs(config);
  for (auto const& [name, i] : config.interfaces) {
    platform_.ethIntfStatusDir().intfStatusIs(i.portVlan.port());
    for (auto const& b : i.frrBackups) platform_.ethIntfStatusDir().intfStatusIs(b.port());
  }
  bool const countChanged = config.countRoutes != config_.countRoutes;
  config_ = std::move(config);
  if (countChanged) {
    for (auto const& id : wanted_) countRoute(id, config_.countRoutes);
  }
  if (source_) source_->sourceMapIs(config_.sourceMap());
  return restart;
}

void Agent::settingsIs(AgentConfig const& c) {
  platform_.l3Status().mrouteZombieEnabledIs(c.zombiesEnabled);
  platform_.zombieLifetimeIs(c.zombieLifetime);
  for (auto af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
    platform_.vrfConfig(af).activityPollingIntervalIs(c.activityPollingInterval);
    platform_.vrfConfig(af).counterModeIs(c.counterMode);
  }
  platform_.vrfConfig(AddressFamily::ipv4).allCounterIs(c.allCounter);
}

void Agent::shutdown() {
  if (!platform_.running()) return;
  source_.reset();
  for (auto const& [vrf, key] : wanted_) platform_.programmer().routeDel(vrf, key);
  platform_.programmer().commit();
  wanted_.clear();
  platform_.shutdown();
  // Closing the kernel chips' sockets empties their tables; their devices go
  // with their namespaces, or are removed from a named one.
  kernel_.reset();
}

void Agent::routeIs(MrouteLib::DesiredRoute const& route) {
  platform_.programmer().routeIs(route);
  RouteId id{route.vrfName(), route.key()};
  if (wanted_.insert(id).second && config_.countRoutes) countRoute(id, true);
}

void Agent::routeDel(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) {
  platform_.programmer().routeDel(vrf, key);
  RouteId id{vrf, key};
  if (wanted_.erase(id) && config_.countRoutes) countRoute(id, false);
}

// Counters of both families are configured where the top-level state
// machine watches them: the IPv4 configuration.
void Agent::countRoute(RouteId const& id, bool count) {
  auto& vrfConfig = platform_.vrfConfig(AddressFamily::ipv4);
  if (count) {
    vrfConfig.configIs(id.first)->counterRouteIs(id.second, true);
  } else if (auto c = vrfConfig.config(id.first)) {
    c->counterRouteDel(id.second);
  }
}

void Agent::portOperStatusIs(Netcore::IntfId port, Interface::IntfOperStatus status) {
  if (status == Interface::intfOperUp) {
    portsDown_.erase(port);
  } else {
    portsDown_.insert(port);
  }
  platform_.ethIntfStatusDir().intfStatusIs(port)->operStatusIs(status);
  if (kernel_) kernel_->portOperIs(port, status == Interface::intfOperUp);
}

void Agent::commit() {
  platform_.programmer().commit();
  platform_.routesChanged();
}

Agent::Status Agent::status() const {
  Status s;
  if (platform_.running()) {
    auto const& p = platform_.programmer();
    s.routesWanted = p.routeSize();
    s.routesProgrammed = p.routesProgrammed();
    s.routesParked = p.routesParked();
    std::size_t routes = 0;
    for (std::size_t i = 0; i < platform_.switches(); ++i) {
      auto const& sw = platform_.switchAt(i);
      s.replicationEntries += sw.oifSetIndexCollSize();
      s.zombies += sw.zombieOifSet().size();
      routes += sw.routeSize();
    }
    std::size_t const live = s.replicationEntries - s.zombies;
    s.sharing = live ? static_cast<double>(routes) / static_cast<double>(live) : 0.0;
  }
  s.portsDown = portsDown_.size();
  s.inPlaceRewrites = chip_->statisticsTotal().inPlaceRewrites;
  if (kernel_) {
    for (std::uint32_t c = 0; c < kernel_->chips(); ++c) s.kernelChips += kernel_->chip(c) ? 1 : 0;
    s.kernelRefusals = kernel_->figures().kernelRefusals;
  }
  if (source_) {
    s.synchronized = source_->synchronized();
    s.source = source_->summary();
    s.sourceCounts = source_->counts();
  }
  return s;
}

std::string statusLine(Agent::Status const& s) {
  std::ostringstream os;
  os << "routes wanted " << s.routesWanted << " programmed " << s.routesProgrammed << " parked " << s.routesParked
     << " | replication entries " << s.replicationEntries << " (" << s.zombies << " zombies, sharing " << std::fixed
     << std::setprecision(2) << s.sharing << ") | ports down " << s.portsDown << ", in-place rewrites "
     << s.inPlaceRewrites;
  if (s.kernelChips > 0) os << ", kernel chips " << s.kernelChips << " (" << s.kernelRefusals << " refusals)";
  os << " | source table " << s.source.entries << " entries ("
     << s.source.entries - s.source.routes << " not routes, " << s.source.outputsUnmapped << " outputs unmapped), "
     << (s.synchronized ? "in sync" : "synchronising") << ", dumps " << s.sourceCounts.dumps << ", overflows "
     << s.sourceCounts.overflows << ", interrupted " << s.sourceCounts.interruptedDumps;
  return os.str();
}

}  // namespace FalAgent
