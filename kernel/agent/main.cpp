// mroute-agent: mirrors the Linux kernel's multicast routing tables of one
// network namespace onto switch chips through the library, in real time.
//
// Exit status: 0 after a clean shutdown (SIGTERM, SIGINT), 1 when it cannot
// run (no such namespace, no privilege), 2 for a bad configuration.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>
#include <system_error>

#include <signal.h>
#include <unistd.h>

#include "kernel/agent/Agent.h"
#include "kernel/agent/AgentConfigLoader.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/SignalDescriptor.h"
#include "platform/vex/Trace.h"
#include "tools/PublishedCounters.h"

namespace {

constexpr int kExitCannotRun = 1;
constexpr int kExitBadConfig = 2;

constexpr char const* kDescription =
    "Mirrors the Linux kernel's IPv4 and IPv6 multicast routing tables of one network namespace\n"
    "(as a routing daemon such as smcroute or a PIM daemon programs them) onto switch chips\n"
    "through the multicast route library, in real time: a full dump at start, then the kernel's\n"
    "change notifications; a lost notification or an interrupted dump makes it resynchronise.\n\n"
    "The configuration file (JSON) names the source namespace, the kernel tables and the VRFs\n"
    "they are, the kernel interfaces and the port and VLAN each stands for (with fast-reroute\n"
    "backups), the chips (flavour \"sync\", the only one it runs today; backend \"reference\", a\n"
    "software model, or \"kernel\", the Linux kernel's forwarding as well, in a namespace of its\n"
    "own or in an existing one: \"namespace\"), and the zombie, aging and counter settings. Example:\n"
    "  {\"source\": {\"namespace\": \"src\"},\n"
    "   \"interfaces\": [{\"name\": \"in0\", \"port\": \"Ethernet1\", \"vlan\": 100},\n"
    "                  {\"name\": \"out1\", \"port\": \"Ethernet2\", \"vlan\": 200,\n"
    "                   \"frrBackups\": [\"Ethernet3.200\"]}],\n"
    "   \"chips\": [{\"name\": \"chip0\", \"flavour\": \"sync\", \"backend\": \"reference\"}],\n"
    "   \"zombies\": {\"enabled\": true, \"lifetime\": 4.0}, \"status\": {\"interval\": 5}}\n\n"
    "The route counters are published in shared memory under a base name (\"counters\":\n"
    "{\"publish\": NAME}, mroute-agent-<pid> by default) for mroute-counters to read.\n\n"
    "A status line every few seconds: routes wanted, programmed and parked, replication entries\n"
    "and their sharing, the source table's entries and the synchronisation state. SIGHUP re-reads the\n"
    "configuration (interfaces, zombies, aging, counters take effect; source, VRFs and chips\n"
    "need a restart); SIGTERM or Ctrl-C delete every route from the chips and stop.\n\n"
    "Exit status: 0 after a clean stop, 1 when it cannot run (a namespace, the privilege),\n"
    "2 for a bad configuration (the message names the file, the field and what was expected).";

// Prints the status line on its clock, and re-arms it.
class StatusClock : public Vex::Clock::Notifiee {
 public:
  StatusClock(Vex::ActivityManager& am, FalAgent::Agent& agent) : am_(am), agent_(agent), clock_(am.clockNew()) {
    notifierIs(clock_);
    clock_->timeMinIs(am.now() + agent.config().statusInterval);
  }
  void onTime() override {
    std::cout << "mroute-agent: " << FalAgent::statusLine(agent_.status()) << std::endl;
    clock_->timeMinIs(am_.now() + agent_.config().statusInterval);
  }

 private:
  Vex::ActivityManager& am_;
  FalAgent::Agent& agent_;
  Vex::Ptr<Vex::Clock> clock_;
};

class Signals : public Vex::SignalDescriptor::Notifiee {
 public:
  Signals(Vex::ActivityManager& am, FalAgent::Agent& agent, std::string path)
      : am_(am), agent_(agent), path_(std::move(path)) {
    notifierIs(Vex::SignalDescriptor::signalDescriptorNew(am, {SIGHUP, SIGTERM, SIGINT}));
  }
  void onSignal(int signo) override {
    if (signo == SIGHUP) return reload();
    std::cout << "mroute-agent: " << (signo == SIGINT ? "interrupted" : "terminated") << ", removing "
              << agent_.status().routesWanted << " routes from the chips" << std::endl;
    agent_.shutdown();
    am_.stop();
  }

 private:
  void reload() {
    try {
      auto restart = agent_.configIs(FalAgent::AgentConfigLoader::load(path_));
      std::cout << "mroute-agent: configuration re-read from " << path_;
      for (std::size_t i = 0; i < restart.size(); ++i) {
        std::cout << (i == 0 ? "; a restart is needed to change: " : ", ") << restart[i];
      }
      std::cout << std::endl;
    } catch (FalSim::FileError const& e) {
      std::cerr << "mroute-agent: configuration not re-read: " << e.what() << std::endl;
    }
  }

  Vex::ActivityManager& am_;
  FalAgent::Agent& agent_;
  std::string path_;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(kDescription, "mroute-agent");
  std::string configPath;
  std::string trace;
  bool check = false;
  app.add_option("CONFIG", configPath, "Configuration file (JSON)")->required();
  app.add_flag("--check", check, "Check the configuration and exit (0 when good, 2 when not)");
  app.add_option("--trace", trace,
                 "Trace setting, as in VEX_TRACE: HANDLE/LEVELS,... (e.g. FalKernelFib/0-3,MrouteLib/*,FalMroute/0-2); "
                 "lines go to stderr");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    int const rc = app.exit(e);
    return rc == 0 ? 0 : kExitBadConfig;
  }
  if (!trace.empty()) Vex::traceSettingIs(trace);

  FalAgent::AgentConfig config;
  try {
    config = FalAgent::AgentConfigLoader::load(configPath);
  } catch (FalSim::FileError const& e) {
    std::cerr << "mroute-agent: " << e.what() << '\n';
    return kExitBadConfig;
  }
  if (check) {
    std::cout << "mroute-agent: " << configPath << " is good: " << config.interfaces.size() << " interfaces, "
              << config.vrfs.size() << " VRFs, " << config.chips.size() << " chips\n";
    return 0;
  }

  Vex::ActivityManager am(std::make_unique<Vex::MonotonicTimeSource>());
  std::unique_ptr<FalAgent::Agent> agent;
  try {
    agent = FalAgent::Agent::open(config);
  } catch (std::system_error const& e) {
    std::cerr << "mroute-agent: cannot start: " << e.what() << '\n';
    return kExitCannotRun;
  }
  Signals signals(am, *agent, configPath);
  std::string const countersBase = config.countersBase(::getpid());
  agent->start(countersBase + std::string(FalTools::PublishedCounters::kCounterStatusSuffix));
  std::cout << "mroute-agent: mirroring the multicast tables of "
            << (config.sourceNamespace.empty() ? "this namespace" : "namespace " + config.sourceNamespace) << " onto "
            << config.chips.size() << " chip" << (config.chips.size() == 1 ? "" : "s") << std::endl;
  auto const& counters = *agent->platform().counterStatus().control();
  if (counters.published()) {
    std::cout << "mroute-agent: counters published as " << countersBase << " (" << counters.path()
              << "): mroute-counters --name " << countersBase << std::endl;
  } else {
    std::cerr << "mroute-agent: counters not published: " << counters.error() << std::endl;
  }
  StatusClock status(am, *agent);
  am.run();
  std::cout << "mroute-agent: stopped" << std::endl;
  return 0;
}
