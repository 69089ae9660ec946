// mroute-agent against the real kernel, in a namespace of its own (root):
//
// BM_KernelRouteToChip: a writer process adds routes to the kernel's
// multicast table through the mroute socket, one every kPaceMicros, as a
// routing daemon does; the agent (this process, its own event loop) mirrors
// them onto a reference chip (kernelChip:0) or onto a kernel chip beside it
// (kernelChip:1: an MFC entry in the chip's own namespace as well). Per route: the time from the writer's command
// to the route programmed on the chip (agent_p50_ms, agent_p99_ms), beside
// the kernel's own time from the same command to its forwarding entry, that
// is until the command returned (kernel_p50_ms, kernel_p99_ms). Both on
// CLOCK_MONOTONIC, which the two processes share.
//
// BM_FullResync: a table of N entries; the agent's first full
// synchronisation (dump and programming every route, sync_s), a
// resynchronisation of the same table (dump and compare, resync_s, with its
// entries per second), beside `ip mroute show` dumping the same table
// (ipmroute_s), in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "absl/container/flat_hash_map.h"
#include "kernel/agent/Agent.h"
#include "kernel/agent/AgentConfigLoader.h"
#include "platform/vex/ActivityManager.h"
#include "tests/doubles/MfcWriter.h"
#include "tests/doubles/TestNetns.h"

namespace {

using Clock = std::chrono::steady_clock;
using Netcore::IpGenAddr;
using Routing::Multicast::Fib::IpGenRouteKey;
namespace Hw = Routing::Multicast::Fib::Hardware;

constexpr int kPaceMicros = 200;
char const* const kOutputs[] = {"out1", "out2", "out3", "out4"};

IpGenAddr groupOf(std::uint32_t i) { return IpGenAddr::v4(0xEF000000 + i); }  // 239.0.x.y
IpGenRouteKey keyOf(std::uint32_t i) {
  return {Netcore::IpGenPrefix("10.0.0.2/32"), Netcore::IpGenPrefix(groupOf(i), 32)};
}
double ns(Clock::time_point t) { return static_cast<double>(t.time_since_epoch().count()); }

// A namespace with the agent's interfaces and an agent reading it.
struct Rig {
  Rig() : ns("bench") {
    for (char const* l : {"in0", "out1", "out2", "out3", "out4"}) ns.vethIs(l, std::string(l) + "p");
  }
  std::unique_ptr<FalAgent::Agent> agent(bool kernelChip = false) const {
    std::string const config = R"({"source": {"namespace": ")" + ns.name() + R"("},
      "interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100},
                     {"name": "out1", "port": "Ethernet2", "vlan": 200},
                     {"name": "out2", "port": "Ethernet3", "vlan": 200},
                     {"name": "out3", "port": "Ethernet4", "vlan": 200},
                     {"name": "out4", "port": "Ethernet5", "vlan": 200}],
      "chips": [{"routes": 1000000, "replicationEntries": 65536, "backend": ")" +
                               std::string(kernelChip ? "kernel" : "reference") + R"("}]})";
    return FalAgent::Agent::open(FalAgent::AgentConfigLoader::parse(config, "bench.json"));
  }
  void addVifs(FalTest::MfcWriter& w) const {
    w.vifIs("in0");
    for (char const* o : kOutputs) w.vifIs(o);
  }
  FalTest::TestNetns ns;
};

// Records, on CLOCK_MONOTONIC, when each route's hardware status says
// programmed on every chip.
class ProgrammedWatch : public Hw::VrfStatus::Notifiee {
 public:
  explicit ProgrammedWatch(Vex::Ptr<Hw::VrfStatus> const& vrf) : vrf_(vrf) { notifierIs(vrf); }
  void onRoute(IpGenRouteKey const& key) override {
    auto rs = vrf_->route(key);
    if (!rs) return;
    if (rs->programmed()) {
      at[key] = Clock::now();
      return;
    }
    pending_[key] = std::make_unique<Route>(*this, key, rs);
  }
  absl::flat_hash_map<IpGenRouteKey, Clock::time_point> at;

 private:
  class Route : public Hw::RouteStatus::Notifiee {
   public:
    Route(ProgrammedWatch& w, IpGenRouteKey key, Vex::Ptr<Hw::RouteStatus> const& rs) : w_(w), key_(std::move(key)) {
      notifierIs(rs);
    }
    void onProgrammed() override {
      if (notifier()->programmed()) w_.at.try_emplace(key_, Clock::now());
    }

   private:
    ProgrammedWatch& w_;
    IpGenRouteKey key_;
  };
  Vex::Ptr<Hw::VrfStatus> vrf_;
  absl::flat_hash_map<IpGenRouteKey, std::unique_ptr<Route>> pending_;
};

double percentile(std::vector<double> v, double p) {
  std::sort(v.begin(), v.end());
  return v[std::min(v.size() - 1, static_cast<std::size_t>(p * static_cast<double>(v.size())))];
}

bool skipWithoutRoot(benchmark::State& state) {
  if (auto why = FalTest::TestNetns::unavailable(); !why.empty()) {
    state.SkipWithError(why.c_str());
    return true;
  }
  return false;
}

// The writer process: waits for the go byte, adds n routes paced, sends
// back (command start, command end) per route, waits for the end byte.
[[noreturn]] void writer(Rig const& rig, std::uint32_t n, int in, int out) {
  FalTest::MfcWriter w(rig.ns.name());
  rig.addVifs(w);
  char b = 'r';
  if (::write(out, &b, 1) != 1 || ::read(in, &b, 1) != 1) ::_exit(1);
  std::vector<Clock::time_point> times;
  times.reserve(2 * n);
  auto next = Clock::now();
  IpGenAddr const source("10.0.0.2");
  for (std::uint32_t i = 0; i < n; ++i) {
    std::this_thread::sleep_until(next);
    next += std::chrono::microseconds(kPaceMicros);
    times.push_back(Clock::now());
    w.mfcIs(source, groupOf(i), "in0", {kOutputs[i % 4], kOutputs[(i + 1) % 4]});
    times.push_back(Clock::now());
  }
  std::size_t const bytes = times.size() * sizeof(times[0]);
  auto const* p = reinterpret_cast<char const*>(times.data());
  for (std::size_t done = 0; done < bytes;) {
    ssize_t const k = ::write(out, p + done, bytes - done);
    if (k <= 0) ::_exit(1);
    done += static_cast<std::size_t>(k);
  }
  if (::read(in, &b, 1) != 1) ::_exit(1);
  ::_exit(0);
}

void BM_KernelRouteToChip(benchmark::State& state) {
  if (skipWithoutRoot(state)) return;
  auto const n = static_cast<std::uint32_t>(state.range(0));
  bool const kernelChip = state.range(1) != 0;
  Rig rig;
  int toWriter[2], fromWriter[2];
  if (::pipe(toWriter) != 0 || ::pipe(fromWriter) != 0) return state.SkipWithError("pipe");
  pid_t const pid = ::fork();
  if (pid == 0) writer(rig, n, toWriter[0], fromWriter[1]);
  char b;
  if (::read(fromWriter[0], &b, 1) != 1) return state.SkipWithError("the writer did not start");

  std::vector<double> agent, kernel;
  for (auto _ : state) {
    Vex::ActivityManager am(std::make_unique<Vex::MonotonicTimeSource>());
    auto a = rig.agent(kernelChip);
    a->start();
    while (!a->status().synchronized) am.runFor(0.01);
    ProgrammedWatch watch(a->platform().hwStatus(Netcore::AddressFamily::ipv4).vrfStatusIs(L3::VrfName("default")));
    if (::write(toWriter[1], &b, 1) != 1) return state.SkipWithError("the writer went");
    auto const limit = Clock::now() + std::chrono::seconds(60);
    while (watch.at.size() < n && Clock::now() < limit) am.runFor(0.05);
    std::vector<Clock::time_point> times(2 * n);
    auto* p = reinterpret_cast<char*>(times.data());
    for (std::size_t got = 0, want = times.size() * sizeof(times[0]); got < want;) {
      ssize_t const k = ::read(fromWriter[0], p + got, want - got);
      if (k <= 0) return state.SkipWithError("the writer's times were lost");
      got += static_cast<std::size_t>(k);
    }
    for (std::uint32_t i = 0; i < n; ++i) {
      auto it = watch.at.find(keyOf(i));
      if (it == watch.at.end()) continue;
      agent.push_back((ns(it->second) - ns(times[2 * i])) / 1e6);
      kernel.push_back((ns(times[2 * i + 1]) - ns(times[2 * i])) / 1e6);
    }
    state.counters["programmed"] = static_cast<double>(agent.size());
    a->shutdown();
  }
  ::write(toWriter[1], &b, 1);
  ::waitpid(pid, nullptr, 0);
  if (agent.empty()) return state.SkipWithError("no route was programmed");
  state.counters["agent_p50_ms"] = percentile(agent, 0.5);
  state.counters["agent_p99_ms"] = percentile(agent, 0.99);
  state.counters["agent_max_ms"] = percentile(agent, 1.0);
  state.counters["kernel_p50_ms"] = percentile(kernel, 0.5);
  state.counters["kernel_p99_ms"] = percentile(kernel, 0.99);
}
BENCHMARK(BM_KernelRouteToChip)
    ->ArgNames({"routes", "kernelChip"})
    ->Args({10000, 0})
    ->Args({10000, 1})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

double seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

void BM_FullResync(benchmark::State& state) {
  if (skipWithoutRoot(state)) return;
  auto const n = static_cast<std::uint32_t>(state.range(0));
  Rig rig;
  FalTest::MfcWriter w(rig.ns.name());
  rig.addVifs(w);
  IpGenAddr const source("10.0.0.2");
  for (std::uint32_t i = 0; i < n; ++i) w.mfcIs(source, groupOf(i), "in0", {kOutputs[i % 4], kOutputs[(i + 1) % 4]});

  double ipShow = 0, sync = 0, resync = 0;
  for (auto _ : state) {
    auto t0 = Clock::now();
    std::string const cmd = "ip -n " + rig.ns.name() + " mroute show >/dev/null";
    if (std::system(cmd.c_str()) != 0) return state.SkipWithError("ip mroute show failed");
    ipShow = seconds(t0, Clock::now());

    Vex::ActivityManager am(std::make_unique<Vex::MonotonicTimeSource>());
    auto a = rig.agent();
    t0 = Clock::now();
    a->start();
    while (!a->status().synchronized) am.runFor(0.01);
    sync = seconds(t0, Clock::now());
    if (a->status().routesProgrammed != n) return state.SkipWithError("not every route was programmed");

    auto const dumps = a->status().sourceCounts.dumps;
    t0 = Clock::now();
    a->resync();
    while (a->status().sourceCounts.dumps == dumps) am.runFor(0.01);
    resync = seconds(t0, Clock::now());
    a->shutdown();
  }
  state.counters["ipmroute_s"] = ipShow;
  state.counters["sync_s"] = sync;
  state.counters["resync_s"] = resync;
  state.counters["resync_entries_per_s"] = n / resync;
  state.counters["ipmroute_entries_per_s"] = n / ipShow;
}
BENCHMARK(BM_FullResync)->ArgNames({"entries"})->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
