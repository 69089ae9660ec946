// mroute-sim: runs a whole forwarding agent over reference chips in virtual
// time, each chip driven by the synchronous or the asynchronous flavour of
// the library, driven by a scenario file, and reports what it did.
//
// Exit status: 0 when every invariant held and every traffic expectation was
// met, 1 when one broke, 2 for a scenario that cannot be run (or whose run is
// estimated to take longer than --work-limit, without --long-run).
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <system_error>
#include <thread>

#include "kernel/KernelNetns.h"
#include "platform/vex/Trace.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"
#include "sim/WorkEstimate.h"
#include "sim/report/HtmlReport.h"
#include "sim/soak/Soak.h"

namespace {

constexpr int kExitBroken = 1;
constexpr int kExitBadScenario = 2;

#ifdef MROUTE_SIM_FULL_TEARDOWN
constexpr bool kFullTeardown = true;
#else
constexpr bool kFullTeardown = false;
#endif

constexpr char const* kDescription =
    "Runs a multicast forwarding agent (the library, the route programmer and N reference\n"
    "chips, each driven by the synchronous or the asynchronous flavour of the library) in\n"
    "virtual time, driven by a scenario file, checks the chips against the library after\n"
    "every event, and prints a report: routes programmed, replication entries and their\n"
    "sharing, zombie reuse, full tables, fast-reroute convergence, aging, counters, traffic,\n"
    "the asynchronous chips' transactions and groups, and the invariant verdict.\n\n"
    "The agent publishes its route counters in shared memory under the name sim-<pid>\n"
    "(/dev/shm/falmroute.sim-<pid>.counterStatus, printed at start); mroute-counters reads\n"
    "them from another shell while this runs or lingers (--linger).\n\n"
    "With --soak STEPS --seed N it runs a fault soak instead of a scenario, and writes the\n"
    "shortest scenario file it finds that shows the first finding (--repro).\n\n"
    "Exit status: 0 all invariants hold, 1 one broke (or a traffic expectation failed),\n"
    "2 the scenario is bad (the message names the file, the field and what was expected), or its\n"
    "run is estimated to take more CPU time than --work-limit and --long-run is not given.";

volatile std::sig_atomic_t stopRequested = 0;
void onSignal(int) { stopRequested = 1; }

// Keeps the process, and what it publishes, alive for seconds of wall time;
// Ctrl-C ends it early and still lets the published tables be removed.
void lingerFor(double seconds) {
  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  auto const until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!stopRequested && std::chrono::steady_clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

// The fault soak: 0 when it ran clean, 1 with a finding (and the file
// that shows it written).
int runSoak(std::uint64_t steps, std::uint64_t seed, std::string const& reproPath, bool quiet) {
  FalSim::Soak::Options options;
  options.steps = steps;
  options.seed = seed;
  options.reproPath = reproPath;
  if (!quiet) options.progress = [](std::string const& line) { std::cerr << line << std::endl; };
  FalSim::Soak::Summary const summary = FalSim::Soak(std::move(options)).run();
  summary.print(std::cout);
  return summary.ok() ? 0 : kExitBroken;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(kDescription, "mroute-sim");
  std::string scenarioPath;
  bool json = false;
  bool quiet = false;
  std::string trace;
  app.add_option("SCENARIO", scenarioPath, "Scenario file (JSON), e.g. examples/iptv.json");
  std::uint64_t soakSteps = 0;
  std::uint64_t seed = 1;
  std::string reproPath;
  auto* soak = app.add_option("--soak", soakSteps,
                              "Instead of a scenario: a fault soak of this many random steps (routes added, moved and "
                              "removed, interface flaps, settings, table sizes, restarts, refused allocations, full "
                              "tables), every invariant checked and the forwarding compared with a model after each");
  app.add_option("--seed", seed, "The soak's seed (the same seed runs the same soak)")->needs(soak);
  app.add_option("--repro", reproPath,
                 "Where the soak writes the shortest scenario it finds that shows its first finding "
                 "(default: soak-SEED-repro.json)")
      ->needs(soak);
  app.add_flag("--json", json, "Print the report as JSON on stdout");
  app.add_option("--trace", trace,
                 "Trace setting, as in VEX_TRACE: HANDLE/LEVELS,... (e.g. FalMroute/0-5,MrouteLib/*,FalSim/*); "
                 "lines go to stderr");
  app.add_flag("-q,--quiet", quiet, "No progress lines; only the verdict line instead of the full report");
  std::string flavour;
  app.add_option("--flavour", flavour,
                 "Run every chip with this flavour of the library, whatever the scenario says")
      ->check(CLI::IsMember({"sync", "async"}));
  std::string htmlPath;
  app.add_option("--html", htmlPath,
                 "Also write the run as one self-contained HTML page: the figures over virtual time as charts "
                 "with the events marked, and the sharing of the replication entries at the end");
  double sampleInterval = 0;
  app.add_option("--sample-interval", sampleInterval,
                 "Seconds of virtual time between samples of the figures (default: the scenario's "
                 "\"sampleInterval\", else about 1/256 of the run); older samples are merged pairwise "
                 "so a long run keeps at most 512")
      ->check(CLI::PositiveNumber);
  double lingerSeconds = 0;
  app.add_option("--linger", lingerSeconds,
                 "After the scenario, stay alive this many seconds with the counters still published")
      ->check(CLI::NonNegativeNumber);
  // The sanitizer build frees everything at exit, so that leaks are found.
  bool fullTeardown = kFullTeardown;
  app.add_flag("--full-teardown", fullTeardown,
               "Take the agent down and free every object of the run before exiting, as the tests and the sanitizer "
               "build do (e.g. under a leak checker); by default the run's memory is left to the operating system")
      ->default_val(kFullTeardown);
  bool longRun = false;
  app.add_flag("--long-run", longRun,
               "Run the scenario however long its clocks' work is estimated to take (without it, a scenario whose "
               "aging passes x routes, counter polls and samples are estimated above --work-limit is refused "
               "with the estimate)");
  double workLimit = FalSim::WorkEstimate::kDefaultLimitSeconds;
  app.add_option("--work-limit", workLimit, "Seconds of CPU time the clocks' work may be estimated at before a scenario needs --long-run")
      ->capture_default_str()
      ->check(CLI::NonNegativeNumber);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    int const rc = app.exit(e);
    return rc == 0 ? 0 : kExitBadScenario;
  }
  if (!trace.empty()) Vex::traceSettingIs(trace);
  if (soak->count() > 0) {
    if (!scenarioPath.empty()) {
      std::cerr << "mroute-sim: --soak runs no scenario file (" << scenarioPath << ")\n";
      return kExitBadScenario;
    }
    return runSoak(soakSteps, seed, reproPath.empty() ? "soak-" + std::to_string(seed) + "-repro.json" : reproPath, quiet);
  }
  if (scenarioPath.empty()) {
    std::cerr << "mroute-sim: a SCENARIO file or --soak STEPS is needed\n" << app.help();
    return kExitBadScenario;
  }

  FalSim::Scenario scenario;
  try {
    scenario = FalSim::ScenarioLoader::load(scenarioPath);
    FalSim::WorkEstimate const estimate(scenario, FalSim::SimRunner::sampleInterval(scenario, sampleInterval));
    if (!longRun) {
      estimate.check(scenarioPath, workLimit, "--long-run");
    } else if (!quiet && estimate.cpuSeconds() > workLimit) {
      std::cerr << "mroute-sim: " << scenarioPath << ": a long run: its clocks need " << estimate.text() << std::endl;
    }
  } catch (FalSim::ScenarioError const& e) {
    std::cerr << "mroute-sim: " << e.what() << '\n';
    return kExitBadScenario;
  }

  if (!flavour.empty()) {
    scenario.chips.flavourIs(flavour == "async" ? FalSim::Scenario::Flavour::async : FalSim::Scenario::Flavour::sync);
    if (scenario.chips.kernel && flavour == "async") {
      std::cerr << "mroute-sim: " << scenarioPath << ": --flavour async: kernel chips run the sync flavour only\n";
      return kExitBadScenario;
    }
    for (auto const& e : scenario.events) {
      if (flavour == "sync" && e.kind == FalSim::Scenario::EventKind::fault && e.fault.transaction) {
        std::cerr << "mroute-sim: " << scenarioPath << ": --flavour sync: " << e.path
                  << " is a transaction fault, which only asynchronous chips have\n";
        return kExitBadScenario;
      }
    }
  }

  if (scenario.chips.kernel) {
    if (auto why = FalKernel::KernelNetns::unavailable()) {
      std::cerr << "mroute-sim: " << scenarioPath << ": chips \"kernel\": " << *why << '\n';
      return kExitBadScenario;
    }
  }

  FalSim::SimRunner::Options options;
  if (!quiet) options.progress = [](std::string const& line) { std::cerr << line << std::endl; };
  std::string const published = "sim-" + std::to_string(::getpid());
  options.counterStatusName = published + ".counterStatus";
  options.sampleInterval = sampleInterval;
  FalSim::SimRunner runner(std::move(scenario), std::move(options));
  FalSim::SimReport report;
  try {
    runner.start();
    auto const& control = *runner.agent().counterStatus().control();
    if (control.published())
      std::cerr << "mroute-sim: counters published as " << published << " (" << control.path() << ")" << std::endl;
    else
      std::cerr << "mroute-sim: counters " << control.error() << std::endl;
    report = runner.run();
  } catch (std::system_error const& e) {
    // Only the kernel backing meets the host: its namespace or devices could not be made.
    std::cerr << "mroute-sim: " << scenarioPath << ": the kernel chips could not be set up: " << e.what() << '\n';
    return kExitBadScenario;
  }
  if (!htmlPath.empty()) {
    std::ofstream html(htmlPath);
    FalSim::HtmlReport(report).write(html);
    if (!html.flush()) {
      std::cerr << "mroute-sim: " << htmlPath << ": cannot write the HTML page\n";
      return kExitBadScenario;
    }
  }
  if (json) {
    report.printJson(std::cout);
  } else if (quiet) {
    report.printVerdict(std::cout);
  } else {
    report.printHuman(std::cout);
  }
  if (lingerSeconds > 0) {
    std::cout.flush();
    std::cerr << "mroute-sim: lingering " << lingerSeconds << " s; read the counters with: mroute-counters --name "
              << published << std::endl;
    lingerFor(lingerSeconds);
  }
  int const status = report.ok() ? 0 : kExitBroken;
  // Taking a million routes down costs the run a tenth of its time (a hook
  // call into the chip per route, then a million frees), for memory the
  // operating system takes back at once. What the end must do outside the
  // process is done here: the published counters are withdrawn. Kernel chips
  // are taken out of the kernel by their teardown, so those runs keep it.
  if (!fullTeardown && !runner.kernel()) {
    runner.agent().counterStatusWithdraw();
    std::cout.flush();
    std::cerr.flush();
    std::_Exit(status);
  }
  return status;
}
