#include "kernel/agent/AgentConfigLoader.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

#include "platform/memtab/Segment.h"
#include "sim/JsonReader.h"
#include "tools/PublishedCounters.h"

namespace FalAgent {

namespace {

using rapidjson::Value;

constexpr std::uint64_t kMaxTableSize = 100'000'000;
constexpr std::uint32_t kMaxChips = 64;
constexpr int kMaxReceiveBuffer = 1 << 30;

class Loader : FalSim::JsonReader {
 public:
  explicit Loader(std::string file) : JsonReader(std::move(file)) { c_.file = this->file(); }
  AgentConfig run(std::string_view text);

 private:
  void source(Value const& v, std::string const& path);
  void vrfs(Value const& v, std::string const& path);
  std::optional<std::uint32_t> table(Value const& vrf, std::string const& path, char const* field,
                                     std::set<std::uint32_t>& taken) const;
  void interfaces(Value const& v, std::string const& path);
  void chips(Value const& v, std::string const& path);
  void counters(Value const& v, std::string const& path);
  void status(Value const& v, std::string const& path);

  AgentConfig c_;
};

void Loader::source(Value const& v, std::string const& path) {
  object(v, path);
  knownFields(v, path, {"namespace", "receiveBuffer"});
  if (auto const* n = member(v, "namespace")) {
    char const* const what = "a network namespace name (as `ip netns` lists it) or a path to one";
    c_.sourceNamespace = string(*n, child(path, "namespace"), what);
    if (c_.sourceNamespace.empty()) fail(child(path, "namespace"), what, n);
  }
  if (auto const* b = member(v, "receiveBuffer")) {
    c_.receiveBuffer = static_cast<int>(integer(*b, child(path, "receiveBuffer"),
                                                "a receive buffer size in bytes from 4096 to 1073741824", 4096,
                                                kMaxReceiveBuffer));
  }
}

std::optional<std::uint32_t> Loader::table(Value const& vrf, std::string const& path, char const* field,
                                           std::set<std::uint32_t>& taken) const {
  Value const* t = member(vrf, field);
  if (!t) return std::nullopt;
  std::string const p = child(path, field);
  auto const id = static_cast<std::uint32_t>(integer(*t, p, "a kernel table id from 1 to 4294967295", 1, 0xFFFFFFFF));
  if (!taken.insert(id).second) fail(p, "a table no other VRF mirrors", t);
  return id;
}

void Loader::vrfs(Value const& v, std::string const& path) {
  char const* const what = "a VRF ({\"name\": \"red\", \"id\": 1, \"ipv4Table\": 10, \"ipv6Table\": 10})";
  auto const a = array(v, path, std::string("a list of VRFs, each ") + what);
  if (a.Size() == 0) fail(path, "at least one VRF", &v);
  std::set<std::uint32_t> v4, v6;
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const p = item(path, i);
    object(a[i], p, what);
    knownFields(a[i], p, {"name", "id", "ipv4Table", "ipv6Table"});
    AgentConfig::Vrf vrf;
    std::tie(vrf.name, vrf.id) = newVrf(a[i], p, c_.vrfs);
    vrf.ipv4Table = table(a[i], p, "ipv4Table", v4);
    vrf.ipv6Table = table(a[i], p, "ipv6Table", v6);
    if (!vrf.ipv4Table && !vrf.ipv6Table) fail(p, "an ipv4Table or an ipv6Table (the kernel tables it mirrors)", &a[i]);
    c_.vrfs.push_back(std::move(vrf));
  }
}

void Loader::interfaces(Value const& v, std::string const& path) {
  char const* const what = "an interface ({\"name\": \"veth1\", \"port\": \"Ethernet1\", \"vlan\": 100})";
  auto const a = array(v, path, std::string("a list of kernel interfaces, each ") + what);
  if (a.Size() == 0) fail(path, "at least one interface", &v);
  std::set<MrouteLib::PortVlan> outputs;
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const p = item(path, i);
    object(a[i], p, what);
    knownFields(a[i], p, {"name", "port", "vlan", "frrBackups"});
    char const* const nameWhat = "a kernel interface name of 1 to 15 bytes";
    std::string const name = string(required(a[i], p, "name", nameWhat), child(p, "name"), nameWhat);
    if (name.empty() || name.size() > 15) fail(child(p, "name"), nameWhat, member(a[i], "name"));
    if (c_.interfaces.contains(name)) fail(child(p, "name"), "an interface name not listed before", member(a[i], "name"));
    FalKernel::SourceMap::Interface intf;
    Netcore::IntfId const port =
        ethernet(required(a[i], p, "port", "the Ethernet port it stands for (\"Ethernet1\")"), child(p, "port"));
    Bridging::VlanId const vlanId = vlan(required(a[i], p, "vlan", "a VLAN id from 1 to 4094"), child(p, "vlan"));
    intf.portVlan = MrouteLib::PortVlan(port, Bridging::VlanIdOrNone(vlanId.value()));
    if (!outputs.insert(intf.portVlan).second) {
      fail(child(p, "vlan"), "a port and VLAN no other interface stands for", member(a[i], "vlan"));
    }
    if (auto const* b = member(a[i], "frrBackups")) {
      std::string const bp = child(p, "frrBackups");
      auto const backups = array(*b, bp, "a list of backup outputs (\"Ethernet5.200\")");
      for (std::size_t j = 0; j < backups.Size(); ++j) {
        auto const pv = portVlan(backups[j], item(bp, j), "a backup output \"EthernetN.VLAN\" or \"EthernetN\"");
        if (pv.port() == port) fail(item(bp, j), "a backup on another port than the one it protects", &backups[j]);
        intf.frrBackups.push_back(pv);
      }
    }
    c_.interfaces.emplace(name, std::move(intf));
  }
}

void Loader::chips(Value const& v, std::string const& path) {
  char const* const what = "a chip ({\"name\": \"chip0\", \"flavour\": \"sync\", \"backend\": \"reference\"})";
  auto const a = array(v, path, std::string("a list of chips, each ") + what);
  if (a.Size() == 0 || a.Size() > kMaxChips) fail(path, "from 1 to " + std::to_string(kMaxChips) + " chips", &v);
  std::string const size = "a table size from 0 to " + std::to_string(kMaxTableSize);
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const p = item(path, i);
    object(a[i], p, what);
    knownFields(a[i], p, {"name", "flavour", "backend", "namespace", "routes", "boundaries", "replicationEntries"});
    AgentConfig::Chip chip;
    chip.name = "chip" + std::to_string(i);
    if (auto const* n = member(a[i], "name")) chip.name = string(*n, child(p, "name"), "the chip's name");
    if (auto const* f = member(a[i], "flavour")) {
      char const* const only = "\"sync\" (the only flavour mroute-agent runs today)";
      if (string(*f, child(p, "flavour"), only) != "sync") fail(child(p, "flavour"), only, f);
    }
    if (auto const* b = member(a[i], "backend")) {
      char const* const what =
          "\"reference\" (a software model of the chip's tables) or \"kernel\" (the Linux kernel's forwarding too)";
      std::string const backend = string(*b, child(p, "backend"), what);
      if (backend == "kernel") {
        chip.backend = AgentConfig::Chip::Backend::kernel;
      } else if (backend != "reference") {
        fail(child(p, "backend"), what, b);
      }
    }
    if (auto const* n = member(a[i], "namespace")) {
      std::string const np = child(p, "namespace");
      if (chip.backend != AgentConfig::Chip::Backend::kernel) {
        fail(np, "no namespace on a chip whose backend is not \"kernel\"", n);
      }
      char const* const what = "an existing network namespace for the chip's devices (as `ip netns` lists it)";
      chip.netns = string(*n, np, what);
      if (chip.netns.empty()) fail(np, what, n);
    }
    if (auto const* r = member(a[i], "routes")) chip.capacity.routes = integer(*r, child(p, "routes"), size, 0, kMaxTableSize);
    if (auto const* r = member(a[i], "boundaries")) {
      chip.capacity.boundaries = integer(*r, child(p, "boundaries"), size, 0, kMaxTableSize);
    }
    if (auto const* r = member(a[i], "replicationEntries")) {
      chip.capacity.replicationEntries = integer(*r, child(p, "replicationEntries"), size, 0, kMaxTableSize);
    }
    c_.chips.push_back(std::move(chip));
  }
}

void Loader::counters(Value const& v, std::string const& path) {
  object(v, path);
  knownFields(v, path, {"mode", "all", "routes", "publish"});
  if (auto const* m = member(v, "mode")) c_.counterMode = counterMode(*m, child(path, "mode"));
  c_.allCounter = optBool(v, path, "all", c_.allCounter);
  c_.countRoutes = optBool(v, path, "routes", c_.countRoutes);
  if (c_.countRoutes && !c_.allCounter) {
    fail(child(path, "routes"), "false while \"all\" is false (the library counts single routes only while it counts all)",
         member(v, "routes"));
  }
  if (auto const* p = member(v, "publish")) {
    std::string const pp = child(path, "publish");
    char const* const what = "a base name for the shared-memory counter tables (letters, digits, '.', '_', '-')";
    c_.countersPublishedAs = string(*p, pp, what);
    std::string table = c_.countersPublishedAs;
    table += FalTools::PublishedCounters::kCounterStatusSuffix;
    if (!Memtab::nameValid(table)) fail(pp, what, p);
  }
}

void Loader::status(Value const& v, std::string const& path) {
  object(v, path);
  knownFields(v, path, {"interval"});
  if (auto const* i = member(v, "interval")) {
    c_.statusInterval = number(*i, child(path, "interval"), "an interval in seconds from 0.1 to 3600", 0.1, 3600);
  }
}

AgentConfig Loader::run(std::string_view text) {
  Value const& root = parse(text);
  if (!root.IsObject()) fail("(top level)", "a JSON object", &root);
  knownFields(root, "", {"source", "vrfs", "interfaces", "chips", "zombies", "aging", "counters", "status"});
  if (auto const* s = member(root, "source")) source(*s, "source");
  if (auto const* v = member(root, "vrfs")) {
    vrfs(*v, "vrfs");
  } else {
    c_.vrfs.push_back({L3::VrfName("default"), 0, AgentConfig::kDefaultIpv4Table, AgentConfig::kDefaultIpv6Table});
  }
  interfaces(required(root, "", "interfaces", "a list of kernel interfaces"), "interfaces");
  if (auto const* c = member(root, "chips")) {
    chips(*c, "chips");
  } else {
    c_.chips.emplace_back().name = "chip0";
  }
  if (auto const* z = member(root, "zombies")) zombies(*z, "zombies", c_.zombiesEnabled, c_.zombieLifetime);
  if (auto const* a = member(root, "aging")) aging(*a, "aging", c_.activityPollingInterval);
  if (auto const* c = member(root, "counters")) counters(*c, "counters");
  if (auto const* s = member(root, "status")) status(*s, "status");
  return std::move(c_);
}

}  // namespace

AgentConfig AgentConfigLoader::parse(std::string_view text, std::string const& fileName) {
  return Loader(fileName).run(text);
}

AgentConfig AgentConfigLoader::load(std::string const& path) {
  return parse(FalSim::JsonReader::read(path, "a readable agent configuration file"), path);
}

}  // namespace FalAgent
