#include "sim/soak/Soak.h"

#include <chrono>
#include <fstream>
#include <sstream>

#include "sim/Printable.h"
#include "sim/RouteFailure.h"
#include "sim/ScenarioLoader.h"
#include "sim/scenario/ScenarioWriter.h"
#include "sim/soak/ScenarioShrinker.h"

namespace FalSim {

namespace {

// Events kept for reproducing (a few thousand steps), and how often the
// wanted state is noted so that a window of them can start from it.
constexpr std::size_t kHistoryEvents = 16384;
constexpr std::uint64_t kSnapshotEvery = 256;
constexpr Vex::Seconds kSampleInterval = 60;

double wallNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

SimRunner::Options Soak::runnerOptions() const {
  SimRunner::Options o;
  o.chipFactory = options_.chipFactory;
  o.asyncChipFactory = options_.asyncChipFactory;
  // Nobody draws the soak's figures: sampled on the interval a run with no
  // end would get (a few milliseconds), they would cost more than the steps.
  o.sampleInterval = kSampleInterval;
  return o;
}

Soak::Soak(Options options)
    : options_(std::move(options)),
      gen_(options_.seed, options_.mix),
      runner_(gen_.base(), runnerOptions()),
      model_(
          [this](MrouteLib::DesiredRoute const& r) {
            auto const vrf = runner_.agent().hwStatus(r.key().af()).vrfStatus(r.vrfName());
            auto const status = vrf ? vrf->route(r.key()) : nullptr;
            return status && status->programmed();
          },
          [this](MrouteLib::PortVlanSet const& outputs) { return gen_.mayBeRerouted(outputs); },
          [this](MrouteLib::DesiredRoute const& r) { return gen_.mayHoldBoundary(r); }) {
  summary_.seed = options_.seed;
  for (std::uint32_t c = 0; c < SoakGenerator::kChips; ++c) {
    bool const async = gen_.base().chips.flavourOf(c) == Scenario::Flavour::async;
    summary_.chips += (c ? ", " : "") + std::string(async ? "async" : "sync");
  }
}

std::string Soak::withoutPath(std::string const& finding) {
  for (char const* prefix : {"events[", "start: ", "end: "}) {
    if (finding.rfind(prefix, 0) != 0) continue;
    auto const colon = finding.find(": ");
    return colon == std::string::npos ? finding : finding.substr(colon + 2);
  }
  return finding;
}

std::string Soak::shape(std::string const& finding) {
  std::string const text = withoutPath(finding);
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] >= '0' && text[i] <= '9') {
      if (out.empty() || out.back() != '#') out += '#';
    } else {
      out += text[i];
    }
  }
  return out;
}

bool Soak::reproduces(Scenario const& scenario, std::string const& finding, SimRunner::Options const& runnerOptions) {
  std::string const target = shape(finding);
  SimRunner runner(scenario, runnerOptions);
  runner.start();
  // The first finding must be the one: a run that fails otherwise first
  // shows something else.
  auto const& findings = runner.report().findings;
  while (findings.empty() && runner.step()) {
  }
  if (findings.empty()) runner.finish();
  return !findings.empty() && shape(findings.front()) == target;
}

Soak::Summary Soak::run() {
  wallStart_ = lastProgress_ = wallNow();
  runner_.start();
  for (std::uint64_t step = 0; step < options_.steps && summary_.ok(); ++step) {
    if (step % kSnapshotEvery == 0) snapshot();
    if (runEvent(gen_.next())) probe();
    ++summary_.steps;
    if ((step & 63) == 0) progress();
  }
  bool const clean = summary_.ok();
  runner_.finish();
  auto const& r = runner_.report();
  if (clean && !r.findings.empty()) summary_.finding = r.findings.front();
  summary_.checks = r.checks;
  summary_.violations = r.violations;
  summary_.failedExpectations = r.expectationsFailed;
  summary_.routesWantedAtEnd = runner_.desired().size();
  summary_.routesProgrammedAtEnd = runner_.agent().programmer().routesProgrammed();
  summary_.refusedAllocations = runner_.chip().statisticsTotal().failedAllocations +
                                runner_.chip().statisticsTotal().failedRouteAllocations;
  summary_.zombieReuses = runner_.agent().counts().zombieReuses;
  summary_.frrRewrites = runner_.chip().statisticsTotal().inPlaceRewrites;
  if (gen_.base().chips.asyncCount() > 0) {
    auto const stats = runner_.agent().asyncStatistics();
    summary_.transactions = stats.xactsStarted;
    summary_.failedTransactions = stats.xactsFailed;
    for (auto const& [reason, n] : stats.failedByReason) summary_.failedTransactionsByReason[xactReasonName(reason)] += n;
  }
  summary_.restarts = r.restarts;
  summary_.virtualTime = runner_.activityManager().now();
  if (summary_.finding) reproduce(*summary_.finding);
  summary_.wallSeconds = wallNow() - wallStart_;
  progress(true);
  return summary_;
}

bool Soak::runEvent(Scenario::Event e) {
  e.path = "events[" + std::to_string(summary_.events) + "]";
  history_.push_back(std::move(e));
  if (history_.size() > kHistoryEvents) {
    history_.pop_front();
    ++historyStart_;
    while (!snapshots_.empty() && snapshots_.front().event < historyStart_) snapshots_.pop_front();
  }
  auto const& report = runner_.report();
  std::size_t const before = report.violations + report.expectationsFailed;
  std::size_t const kept = report.findings.size();
  runner_.runEvent(history_.back());
  ++summary_.events;
  ++summary_.eventsByKind[static_cast<std::size_t>(history_.back().kind)];
  if (report.violations + report.expectationsFailed == before) return true;
  summary_.finding = report.findings.size() > kept ? report.findings[kept] : "a finding beyond those kept";
  return false;
}

void Soak::probe() {
  ForwardingModel::Flow const flow = gen_.probe();
  // The prediction reads the routes' status as the probe finds it.
  runner_.runUntil(gen_.now());
  ForwardingModel::Prediction const p = model_.predict(gen_.state().wanted, flow);
  using Kind = ForwardingModel::Prediction::Kind;
  if (p.kind == Kind::unknown) {
    ++summary_.probesUnpredicted;
    ++summary_.unpredictedByReason[unprogrammedReason(*p.unprogrammed)];
    return;
  }
  Scenario::Event e;
  e.at = gen_.now();
  e.kind = Scenario::EventKind::traffic;
  Scenario::Traffic& t = e.traffic;
  t.vrf = flow.vrf;
  t.source = flow.source;
  t.group = flow.group;
  t.vlan = flow.vlan;
  if (p.kind == Kind::dropped) {
    t.expectDropped = p.reason;
  } else if (p.copiesKnown) {
    t.expect = p.copies;
  } else {
    t.expectForwarded = true;
    ++summary_.probesCopiesLeftOpen;
  }
  ++summary_.probes;
  if (p.kind == Kind::forwarded) ++summary_.probesForwarded;
  runEvent(std::move(e));
}

std::string Soak::unprogrammedReason(MrouteLib::DesiredRoute const& r) {
  auto const vrf = runner_.agent().hwStatus(r.key().af()).vrfStatus(r.vrfName());
  auto const status = vrf ? vrf->route(r.key()) : nullptr;
  if (!status) return "noStatus";
  return status->failureReason() == MrouteLib::RouteProgrammer::kFailureNone ? "inFlight"
                                                                              : routeFailureName(status->failureReason());
}

void Soak::snapshot() {
  Snapshot s;
  s.event = summary_.events;
  s.at = gen_.now();
  s.state = gen_.state();
  for (std::uint32_t c = 0; c < SoakGenerator::kChips; ++c) {
    for (std::size_t t = 0; t < 3; ++t) {
      s.armed.allocations[c][t] = runner_.chip().failNextAllocations(c, static_cast<ReferenceChip::Table>(t));
      if (!runner_.agent().async(c)) continue;
      s.armed.transactions[c][t] =
          runner_.agent().asyncChipAt(c).failures(static_cast<AsyncReferenceChip::Operation>(t)).next;
    }
  }
  snapshots_.push_back(std::move(s));
}

Scenario Soak::window(Snapshot const* s) const {
  Scenario w = gen_.base();
  w.name = gen_.base().name + "-repro";
  w.description = "The shortest run found by the fault soak (seed " + std::to_string(options_.seed) +
                  ") that ends in: " + withoutPath(*summary_.finding);
  std::uint64_t from = historyStart_;
  Vex::Seconds shift = 0;
  if (s) {
    w.events = gen_.eventsToReach(s->state, s->armed, 0);
    from = s->event;
    shift = 1.0 - s->at;
  }
  for (std::uint64_t i = from; i < historyStart_ + history_.size(); ++i) {
    Scenario::Event e = history_[i - historyStart_];
    e.at += shift;
    w.events.push_back(std::move(e));
  }
  ScenarioShrinker::renumber(w);
  return w;
}

void Soak::reproduce(std::string const& finding) {
  // Windows from snapshots ever further back: 1, 2, 4, ... snapshots; then
  // the whole run when all of it is still kept.
  std::vector<Snapshot const*> starts;
  for (std::size_t back = 1; back <= snapshots_.size(); back *= 2) starts.push_back(&snapshots_[snapshots_.size() - back]);
  if (historyStart_ == 0) starts.push_back(nullptr);
  std::optional<Scenario> found;
  for (Snapshot const* s : starts) {
    Scenario w = window(s);
    if (reproduces(w, finding, runnerOptions())) {
      found = std::move(w);
      break;
    }
  }
  if (!found) return;
  auto shrunk = ScenarioShrinker::shrink(
      std::move(*found), [&](Scenario const& c) { return reproduces(c, finding, runnerOptions()); },
      options_.shrinkTrials);
  summary_.reproEvents = shrunk.scenario.events.size();
  summary_.shrinkTrials = shrunk.trials;
  if (options_.reproPath.empty()) {
    summary_.reproConfirmed = true;
    return;
  }
  {
    std::ofstream out(options_.reproPath);
    ScenarioWriter::write(shrunk.scenario, out);
    if (!out) return;
  }
  summary_.reproPath = options_.reproPath;
  // What the file says, read back, must show it too.
  try {
    summary_.reproConfirmed = reproduces(ScenarioLoader::load(options_.reproPath), finding, runnerOptions());
  } catch (FileError const&) {
    summary_.reproConfirmed = false;
  }
}

void Soak::progress(bool force) {
  if (!options_.progress) return;
  double const now = wallNow();
  if (!force && now - lastProgress_ < options_.progressEvery) return;
  lastProgress_ = now;
  std::ostringstream os;
  double const elapsed = now - wallStart_;
  os << "mroute-sim: soak seed " << options_.seed << ": step " << summary_.steps << "/" << options_.steps << ", "
     << summary_.events << " events, " << gen_.state().wanted.size() << " routes wanted, "
     << (summary_.finding ? 1 : 0) << " findings, " << static_cast<int>(elapsed) << " s elapsed";
  if (elapsed > 0) os << " (" << static_cast<std::uint64_t>(static_cast<double>(summary_.steps) / elapsed) << " steps/s)";
  options_.progress(os.str());
}

void Soak::Summary::print(std::ostream& os) const {
  auto line = [&os](char const* title, std::string const& text) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%-14s", title);
    os << buf << text << '\n';
  };
  using std::to_string;
  std::string kinds;
  for (std::size_t k = 0; k < eventsByKind.size(); ++k) {
    if (eventsByKind[k] == 0) continue;
    kinds += (kinds.empty() ? "" : ", ") + std::string(eventKindName(static_cast<Scenario::EventKind>(k))) + " " +
             to_string(eventsByKind[k]);
  }
  char wall[64];
  std::snprintf(wall, sizeof wall, "%.1f s wall, %.0f s virtual", wallSeconds, virtualTime);
  line("Soak", "seed " + to_string(seed) + ", " + to_string(steps) + " steps, " + to_string(events) + " events, " + wall);
  auto counts = [](absl::btree_map<std::string, std::uint64_t> const& byReason) {
    std::string out;
    for (auto const& [reason, n] : byReason) out += (out.empty() ? "" : ", ") + reason + " " + to_string(n);
    return out.empty() ? out : " (" + out + ")";
  };
  line("Chips", chips + (transactions > 0 ? "; transactions " + to_string(transactions) + ", of which failed " +
                                                to_string(failedTransactions) + counts(failedTransactionsByReason)
                                          : std::string()));
  line("Events", kinds);
  line("Forwarding", to_string(probes) + " of " + to_string(probes + probesUnpredicted) +
                         " probe flows compared with the model (" + to_string(probesForwarded) + " forwarded, of which " +
                         to_string(probesCopiesLeftOpen) + " with copies left open by fast reroute; " +
                         to_string(probes - probesForwarded) + " dropped)");
  line("Skipped", to_string(probesUnpredicted) + " flows not predicted, a route deciding them not programmed" +
                      counts(unpredictedByReason));
  line("Agent", "routes wanted at the end " + to_string(routesWantedAtEnd) + ", programmed " +
                    to_string(routesProgrammedAtEnd) + "; refused allocations " + to_string(refusedAllocations) +
                    ", zombie reuses " + to_string(zombieReuses) + ", fast-reroute rewrites " + to_string(frrRewrites) +
                    ", restarts " + to_string(restarts));
  line("Invariants", to_string(checks) + " checks, " + to_string(violations) + " violations, " +
                         to_string(failedExpectations) + " forwarding mismatches");
  if (!finding) {
    line("Verdict", "OK");
    return;
  }
  line("Verdict", "FAILED: " + Printable::text(*finding));
  if (reproEvents == 0) {
    line("Reproduce", "no window of the kept history showed it again");
  } else {
    line("Reproduce", to_string(reproEvents) + " events after " + to_string(shrinkTrials) + " shrinking runs" +
                          (reproPath.empty() ? "" : ", written to " + reproPath) +
                          (reproConfirmed ? "" : " (reading the file back did NOT show it again)"));
  }
}

}  // namespace FalSim
