// mroute-counters: reads the route counters an agent publishes in shared
// memory, from another process, without touching the agent.
//
// Exit status: 0 when it printed published tables, 1 when nothing is
// published (or the tables cannot be read), 2 for bad usage.
#include <CLI/CLI.hpp>

#include <chrono>
#include <iostream>
#include <string>
#include <thread>

#include "platform/memtab/Segment.h"
#include "tools/CountersReport.h"
#include "tools/PublishedCounters.h"

namespace {

constexpr int kExitNothing = 1;
constexpr int kExitUsage = 2;

constexpr char const* kDescription =
    "Prints the route counters an agent publishes in shared memory: the counter status\n"
    "(each route's accumulated value, update time and active flag, with the table's size,\n"
    "active count and capacity) and the counter key map (which hardware counter key counts\n"
    "which route). An agent publishes them under a base name B as /dev/shm/falmroute.B.counterStatus\n"
    "and /dev/shm/falmroute.B.counterKeyMap; mroute-sim uses B = sim-<its pid> and prints it.\n"
    "Without --name, the one agent that publishes counters on this machine is read.\n\n"
    "Exit status: 0 printed, 1 nothing published, 2 bad usage.";

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(kDescription, "mroute-counters");
  std::string base;
  bool json = false;
  bool list = false;
  bool watch = false;
  double interval = 1.0;
  unsigned count = 0;
  app.add_option("--name", base, "Base name the agent publishes under (e.g. sim-4242)");
  app.add_flag("--json", json, "Print a JSON document instead of a table");
  app.add_flag("--list", list, "List the base names that publish counter tables, and exit");
  app.add_flag("--watch", watch, "Keep reading; print again whenever the tables change (Ctrl-C stops)");
  app.add_option("--interval", interval, "Seconds between two reads with --watch")->check(CLI::PositiveNumber);
  app.add_option("--count", count, "With --watch, stop after printing this many times (0: never)");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    int const rc = app.exit(e);
    return rc == 0 ? 0 : kExitUsage;
  }

  auto const bases = FalTools::publishedBases();
  if (list) {
    for (auto const& b : bases) std::cout << b << '\n';
    return bases.empty() ? kExitNothing : 0;
  }
  if (base.empty()) {
    if (bases.empty()) {
      std::cerr << "mroute-counters: no counters are published on this machine (nothing matches "
                << Memtab::kShmDir << Memtab::kShmPrefix << "*.counterStatus or *.counterKeyMap); "
                << "run mroute-sim with --linger, or name the tables with --name\n";
      return kExitNothing;
    }
    if (bases.size() > 1) {
      std::cerr << "mroute-counters: several agents publish counters (";
      for (std::size_t i = 0; i < bases.size(); ++i) std::cerr << (i ? ", " : "") << bases[i];
      std::cerr << "); choose one with --name\n";
      return kExitUsage;
    }
    base = bases.front();
  }
  std::string why;
  if (!Memtab::nameValid(base + std::string(FalTools::PublishedCounters::kCounterStatusSuffix), &why)) {
    std::cerr << "mroute-counters: --name " << base << ": " << why << '\n';
    return kExitUsage;
  }

  FalTools::PublishedCounters counters(base);
  auto print = [&] {
    if (json)
      FalTools::printJson(std::cout, counters);
    else
      FalTools::printHuman(std::cout, counters);
    std::cout.flush();
  };
  counters.refresh();
  if (!watch) {
    if (!counters.anyPublished()) {
      std::cerr << "mroute-counters: cannot read the counters published as '" << base
                << "': counter status: " << counters.counterStatus().control()->error()
                << "; counter key map: " << counters.counterKeyMap().mrouteCounterKeyMapEntryControl()->error() << '\n';
      return kExitNothing;
    }
    print();
    return 0;
  }

  // A reader leaves nothing behind: Ctrl-C may end it anywhere.
  unsigned printed = 0;
  bool waitingSaid = false;
  for (bool changed = true;; changed = counters.refresh()) {
    if (!counters.anyPublished()) {
      if (!waitingSaid) std::cerr << "mroute-counters: waiting for counters under " << base << '\n';
      waitingSaid = true;
    } else if (changed) {
      waitingSaid = false;
      print();
      if (count != 0 && ++printed >= count) break;
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(interval));
  }
  return 0;
}
