// Route add and delete through Fal::MrouteSwitch with the kernel chip, at 10K
// and 100K routes, beside the kernel's own MFC add and delete through the
// multicast routing socket alone, in the same run.
//
// BM_KernelSwitchAddDelete: one iteration adds `routes` routes (all sharing
// one OIF set of two outputs, accepting on one VLAN), as the route programmer
// drives a chip (allocate the set, program the route, bind it), then deletes
// them all. Items are route operations (adds plus deletes). After the timed
// iterations the same keys are added and deleted through an MrouteSocket of
// another table, timed alone. Counters, all in this thread's CPU time (the
// kernel's work runs in its system calls): switch_ns_per_op, socket_ns_per_op
// (the kernel's own cost per operation) and ratio, the first divided by the
// second (1.0 would mean the library and the kernel chip's book cost nothing).
//
// BM_KernelMfcAddDelete: that socket loop alone, as its own case.
//
// Needs root (a network namespace of its own); skips with the reason otherwise.
#include <benchmark/benchmark.h>

#include <time.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kernel/KernelChip.h"
#include "kernel/KernelNetns.h"
#include "kernel/MrouteSocket.h"
#include "kernel/VethPorts.h"
#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/AllIntfStatusDir.h"
#include "platform/intf/AllIntfStatusLocalDir.h"
#include "platform/intf/EthIntfStatusDir.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/intf/IpStatus.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/vex/ActivityManager.h"
#include "sync/MrouteSwitch.h"
#include "sync/MrouteSwitchSm.h"

namespace {

using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
using MrouteLib::RouteHandle;
using Netcore::IpGenAddr;

constexpr std::uint32_t kSwitchId = 0;
constexpr std::uint32_t kSocketTable = 4242;

// (198.18.x.y, 239.1.1.1): distinct for every i below 128K.
IpGenRouteKey routeKey(std::uint32_t i) {
  return IpGenRouteKey(Netcore::IpGenPrefix(IpGenAddr::v4(0xC6120000U + i), 32),
                       Netcore::IpGenPrefix(IpGenAddr::v4(0xEF010101U), 32));
}

class KernelWorld {
 public:
  KernelWorld() {
    l3Status->vrfIs(vrf, 0);
    acsd->initializedIs(true);
    chip = Vex::make<FalKernel::KernelChip>("FalKernel::KernelChip", kSwitchId, ports);
    sw = Fal::mrouteSwitchFactory(kSwitchId, acsd, l3Status, chip, ipStatus, hwStatus, hw6Status);
    sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(kSwitchId, acsd, l3Status, sw, intfVlanIdTable, vrfConfig, vrf6Config,
                                               hwStatus, hw6Status, chip, nullptr, nullptr, ethIntfStatusDir,
                                               allIntfStatusDir, allIntfStatusLocalDir, false, nullptr, nullptr);
    MrouteLib::PortVlanSet outputs;
    outputs.portVlanIs(MrouteLib::PortVlan("Ethernet1.200"));
    outputs.portVlanIs(MrouteLib::PortVlan("Ethernet2.200"));
    set = registry->oifSetIs(outputs);
  }
  ~KernelWorld() {
    sm = nullptr;
    sw = nullptr;
  }

  // As the route programmer drives a chip; the invalid handle when refused.
  RouteHandle addRoute(IpGenRouteKey const& key) {
    sw->doAllocateMtableOifSet(set);
    auto mset = Vex::ptrCast<Fal::MtableOifSet>(sw->oifSetResult());
    sw->oifSetResultIs(nullptr);
    if (!mset) return RouteHandle::invalid();
    sw->doAllocateRoute(key, Bridging::VlanIdOrNone(100), false, mset, false, false, 0, vrf);
    RouteHandle const h = sw->handleResult();
    if (!h.isNull()) sw->doSetMtableOifSet(h, mset);
    return h;
  }

  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(100.0)};
  FalKernel::KernelNetns netns;
  FalKernel::VethPorts ports{netns};
  L3::VrfName const vrf{"default"};
  Vex::Ptr<Fal::VerifyData> verifyData = Vex::make<Fal::VerifyData>(false);
  Vex::Ptr<Fal::FalCommonSmData> acsd = Vex::make<Fal::FalCommonSmData>(verifyData);
  Vex::Ptr<Fal::L3Status> l3Status = Vex::make<Fal::L3Status>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrfConfig = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrf6Config = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> hwStatus =
      Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> hw6Status =
      Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv6);
  Vex::Ptr<Ip::Status> ipStatus = Vex::make<Ip::Status>();
  Vex::Ptr<IntfVlanId::Table> intfVlanIdTable = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir = Vex::make<Interface::EthIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir = Vex::make<Interface::AllIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir = Vex::make<Interface::AllIntfStatusLocalDir>();
  Vex::Ptr<MrouteLib::OifSetRegistry> registry = Vex::make<MrouteLib::OifSetRegistry>();
  MrouteLib::OifSetPtr set;
  Vex::Ptr<FalKernel::KernelChip> chip;
  Vex::Ptr<Fal::MrouteSwitch> sw;
  Vex::Ptr<Fal::MrouteSwitchSm> sm;
};

// A multicast routing socket on a table of its own, with the two VIFs the
// switch's routes use: the kernel's side of the same work.
std::unique_ptr<FalKernel::MrouteSocket> socketAlone(KernelWorld& w) {
  auto const type = FalKernel::MrouteSocket::socketType(Netcore::AddressFamily::ipv4);
  auto s = std::make_unique<FalKernel::MrouteSocket>(Netcore::AddressFamily::ipv4, kSocketTable,
                                                     w.netns.openSocket(type.domain, type.type, type.protocol));
  if (s->start() != 0) return nullptr;
  int const in = w.ports.inputIfindex(0, Bridging::VlanIdOrNone(100));
  int const out1 = w.ports.outputIfindex(MrouteLib::PortVlan("Ethernet1.200"));
  int const out2 = w.ports.outputIfindex(MrouteLib::PortVlan("Ethernet2.200"));
  if (s->addVif(0, in) || s->addVif(1, out1) || s->addVif(2, out2)) return nullptr;
  return s;
}

// Adds and deletes routes MFC entries through the socket; false on an error.
bool socketAddDelete(FalKernel::MrouteSocket& s, std::uint32_t routes) {
  FalKernel::MrouteSocket::VifSet const outputs = FalKernel::MrouteSocket::VifSet().set(1).set(2);
  for (std::uint32_t i = 0; i < routes; ++i) {
    auto const k = routeKey(i);
    if (s.addMfc(k.source().address(), k.group().address(), 0, outputs) != 0) return false;
  }
  for (std::uint32_t i = 0; i < routes; ++i) {
    auto const k = routeKey(i);
    if (s.delMfc(k.source().address(), k.group().address()) != 0) return false;
  }
  return true;
}

std::optional<std::string> unavailable() {
  static std::optional<std::string> const why = FalKernel::KernelNetns::unavailable();
  return why;
}

// CPU time of this thread (the kernel's work runs in its system calls), in ns.
double threadCpuNs() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

void BM_KernelSwitchAddDelete(benchmark::State& state) {
  if (auto why = unavailable()) {
    state.SkipWithError(why->c_str());
    return;
  }
  auto const routes = static_cast<std::uint32_t>(state.range(0));
  KernelWorld w;
  std::vector<RouteHandle> handles(routes);
  bool ok = true;
  double switchNs = 0;
  for (auto _ : state) {
    double const start = threadCpuNs();
    for (std::uint32_t i = 0; i < routes; ++i) handles[i] = w.addRoute(routeKey(i));
    for (RouteHandle h : handles) w.sw->doDeleteRoute(h);
    switchNs += threadCpuNs() - start;
    ok = ok && w.chip->statistics().refusedRoutes == 0 && w.chip->routeCount() == 0;
  }
  if (!ok) state.SkipWithError("a route was refused or left behind");
  auto s = socketAlone(w);
  if (!s) {
    state.SkipWithError("the socket alone could not be set up");
    return;
  }
  double const start = threadCpuNs();
  if (!socketAddDelete(*s, routes)) state.SkipWithError("the kernel refused an MFC operation");
  double const socketNsPerOp = (threadCpuNs() - start) / (2.0 * routes);
  double const switchNsPerOp = switchNs / (2.0 * routes * static_cast<double>(state.iterations()));
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 2 * routes);
  state.counters["routes"] = routes;
  state.counters["switch_ns_per_op"] = switchNsPerOp;
  state.counters["socket_ns_per_op"] = socketNsPerOp;
  state.counters["ratio"] = switchNsPerOp / socketNsPerOp;
}

void BM_KernelMfcAddDelete(benchmark::State& state) {
  if (auto why = unavailable()) {
    state.SkipWithError(why->c_str());
    return;
  }
  auto const routes = static_cast<std::uint32_t>(state.range(0));
  KernelWorld w;
  auto s = socketAlone(w);
  if (!s) {
    state.SkipWithError("the socket alone could not be set up");
    return;
  }
  for (auto _ : state) {
    if (!socketAddDelete(*s, routes)) state.SkipWithError("the kernel refused an MFC operation");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 2 * routes);
  state.counters["routes"] = routes;
}

BENCHMARK(BM_KernelSwitchAddDelete)->ArgName("routes")->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_KernelMfcAddDelete)->ArgName("routes")->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
