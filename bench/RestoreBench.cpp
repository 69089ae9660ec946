// Restoring the multicast FIB hardware status after a restart, at a million
// routes: from the upgrade document (text prefixes and interface names parsed
// per entry) and from routes read back from hardware one by one.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/upg/RapidJson.h"
#include "recovery/RecoverySm.h"
#include "recovery/UpgPStoreHelper.h"

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::Hardware::Status;

constexpr std::uint32_t kRoutes = 1'000'000;
constexpr std::uint32_t kVrfs = 16;

std::string vrfName(std::uint32_t v) { return v == 0 ? "default" : "vrf" + std::to_string(v); }
std::string hex(std::uint32_t v) {
  char buf[9];
  std::snprintf(buf, sizeof buf, "%x", v);
  return buf;
}

// Route i: source 10.x.y.z, group 239.a.b.c, accepting VLAN 1 + i % 4000; one
// route in eight is IPv6 and one in sixteen has no accepting interface.
std::string sourceText(std::uint32_t i) {
  if (i % 8 == 7) return "2001:db8::" + hex(i >> 16) + ":" + hex(i & 0xFFFF);
  return "10." + std::to_string((i >> 16) & 0xFF) + "." + std::to_string((i >> 8) & 0xFF) + "." + std::to_string(i & 0xFF);
}
std::string groupText(std::uint32_t i) {
  std::uint32_t const g = i / 3;  // three sources per group
  if (i % 8 == 7) return "ff3e::" + hex(g >> 16) + ":" + hex(g & 0xFFFF);
  return "239." + std::to_string((g >> 16) & 0xFF) + "." + std::to_string((g >> 8) & 0xFF) + "." + std::to_string(g & 0xFF);
}
std::string intfText(std::uint32_t i) { return i % 16 == 15 ? "" : "Vlan" + std::to_string(1 + i % 4000); }

// {"mfibSgEntries": {"<vrf>": [[source, group, interface], ...], ...}} with the
// routes dealt round-robin over the VRFs.
rapidjson::Document const& document() {
  static rapidjson::Document const doc = [] {
    rapidjson::Document d;
    auto& a = d.GetAllocator();
    d.SetObject();
    std::vector<rapidjson::Value> vrfs(kVrfs);
    for (auto& v : vrfs) v.SetArray();
    for (std::uint32_t i = 0; i < kRoutes; ++i) {
      rapidjson::Value entry(rapidjson::kArrayType);
      entry.PushBack(rapidjson::Value(sourceText(i), a), a);
      entry.PushBack(rapidjson::Value(groupText(i), a), a);
      entry.PushBack(rapidjson::Value(intfText(i), a), a);
      vrfs[i % kVrfs].PushBack(entry, a);
    }
    rapidjson::Value entries(rapidjson::kObjectType);
    for (std::uint32_t v = 0; v < kVrfs; ++v) entries.AddMember(rapidjson::Value(vrfName(v), a), vrfs[v], a);
    d.AddMember("mfibSgEntries", entries, a);
    return d;
  }();
  return doc;
}

void BM_UpgPStoreRestore(benchmark::State& state) {
  auto const& doc = document();
  for (auto _ : state) {
    state.PauseTiming();
    auto hw = Vex::make<Status>(Netcore::AddressFamily::ipv4);
    auto helper = Fal::Mroute::upgPStoreHelperFactory(hw);
    state.ResumeTiming();
    helper->doRestore(doc);
    state.PauseTiming();
    if (hw->routes() != kRoutes) state.SkipWithError("not every route was restored");
    helper = nullptr;
    hw = nullptr;  // tearing down a million route statuses is not part of the restore
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kRoutes);
  state.counters["routes"] = kRoutes;
}
BENCHMARK(BM_UpgPStoreRestore)->Unit(benchmark::kMillisecond)->MinTime(2.0);

struct HwRoute {
  Fal::VrfId vrfId;
  IpGenRouteKey key;
  Bridging::VlanIdOrNone vlan;
};

void BM_RecoverySmAddEntries(benchmark::State& state) {
  auto l3Status = Vex::make<Fal::L3Status>();
  auto vlans = Vex::make<IntfVlanId::Table>();
  auto enabled = Vex::make<Routing::Multicast::Fib::VrfEnabledStatus>();
  for (std::uint32_t v = 0; v < kVrfs; ++v) {
    l3Status->vrfIs(L3::VrfName(vrfName(v)), v);
    enabled->vrfIs(L3::VrfName(vrfName(v)));
  }
  for (std::uint32_t vlan = 1; vlan <= 4000; ++vlan) vlans->mappingIs(Netcore::IntfId::vlan(vlan), Bridging::VlanId(vlan));
  std::vector<HwRoute> routes;
  routes.reserve(kRoutes);
  for (std::uint32_t i = 0; i < kRoutes; ++i) {
    routes.push_back({i % kVrfs, IpGenRouteKey(Netcore::IpGenPrefix(sourceText(i)), Netcore::IpGenPrefix(groupText(i))),
                      i % 16 == 15 ? Bridging::VlanIdOrNone() : Bridging::VlanIdOrNone(1 + i % 4000)});
  }
  for (auto _ : state) {
    state.PauseTiming();
    auto hw = Vex::make<Status>(Netcore::AddressFamily::ipv4);
    auto sm = Fal::Mroute::recoverySmFactory(l3Status, vlans, enabled, hw);
    state.ResumeTiming();
    sm->doAddMfibHwVrfStatus();
    for (auto const& r : routes) sm->doAddMfibHwStatusEntry(r.vrfId, r.key, r.vlan);
    state.PauseTiming();
    if (hw->routes() != kRoutes) state.SkipWithError("not every route was recovered");
    sm = nullptr;
    hw = nullptr;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kRoutes);
}
BENCHMARK(BM_RecoverySmAddEntries)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace
