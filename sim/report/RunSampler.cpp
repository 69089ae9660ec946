#include "sim/report/RunSampler.h"

#include <algorithm>
#include <cmath>

namespace FalSim {

namespace {

using EventKind = Scenario::EventKind;

std::string markLabel(Scenario const& scenario, Scenario::Event const& e) {
  switch (e.kind) {
    case EventKind::addRoutes:
    case EventKind::removeRoutes: {
      auto const& set = scenario.routeSets[e.set];
      std::size_t const n = e.count.value_or(set.routes.size());
      return (e.kind == EventKind::addRoutes ? "+" : "-") + set.name + " (" + std::to_string(n) + ")";
    }
    case EventKind::addRoute:
      return "+route " + e.route.key().pretty();
    case EventKind::removeRoute:
      return "-route " + e.key.pretty();
    case EventKind::interfaceDown:
      return e.intf.stringValue() + " down";
    case EventKind::interfaceUp:
      return e.intf.stringValue() + " up";
    case EventKind::traffic:
    case EventKind::config:
    case EventKind::fault:
    case EventKind::restart:
      break;
  }
  return eventKindName(e.kind);
}

}  // namespace

class RunSampler::Tick final : public Vex::Clock::Notifiee {
 public:
  Tick(RunSampler& sampler, Vex::Ptr<Vex::Clock> clock) : sampler_(sampler), clock_(std::move(clock)) {
    notifierIs(clock_);
  }
  ~Tick() override { clock_->timeMinIs(Vex::kNever); }
  void onTime() override { sampler_.sample(); }
  Vex::Clock& clock() { return *clock_; }

 private:
  RunSampler& sampler_;
  Vex::Ptr<Vex::Clock> clock_;
};

Vex::Seconds RunSampler::autoInterval(Vex::Seconds end) {
  double const raw = std::max(end, 1.0) / kAutoSamples;
  double const decade = std::pow(10.0, std::floor(std::log10(raw)));
  for (double step : {1.0, 2.0, 5.0}) {
    if (raw <= step * decade * 1.0001) return step * decade;
  }
  return 10 * decade;
}

RunSampler::RunSampler(Vex::ActivityManager& am, Vex::Seconds origin, Vex::Seconds interval, std::size_t capacity,
                       SimAgent const& agent, ReferenceChip const& chip)
    : am_(am), origin_(origin), agent_(agent), chip_(chip) {
  timeline_.interval = interval;
  timeline_.chips = chip.chips();
  timeline_.samples.store = SampleStore(capacity);
  for (auto const& info : kRunFigures) {
    if (!info.perChip) {
      timeline_.samples.series.push_back({info.figure, std::nullopt, timeline_.samples.store.seriesIs(info.merge)});
      continue;
    }
    for (std::uint32_t c = 0; c < timeline_.chips; ++c) {
      if (info.async && !agent.async(c)) continue;
      timeline_.samples.series.push_back({info.figure, c, timeline_.samples.store.seriesIs(info.merge)});
    }
  }
  peaks_.assign(timeline_.samples.series.size(), 0);
  tick_ = std::make_unique<Tick>(*this, am_.clockNew());
  sample();
}

RunSampler::~RunSampler() = default;

double RunSampler::value(RunFigure figure, std::optional<std::uint32_t> chip) const {
  bool const running = agent_.running();
  auto const n = [](auto v) { return static_cast<double>(v); };
  auto const table = [&](ReferenceChip::Table t) {
    return n(agent_.counts().tableFullEpisodesByChip[*chip][static_cast<std::size_t>(t)]);
  };
  switch (figure) {
    case RunFigure::routesWanted:
      return running ? n(agent_.programmer().routeSize()) : 0;
    case RunFigure::routesProgrammed:
      return running ? n(agent_.programmer().routesProgrammed()) : 0;
    case RunFigure::routesParked:
      return running ? n(agent_.programmer().routesParked()) : 0;
    case RunFigure::counterRows:
      return n(agent_.counterStatus().size());
    case RunFigure::counterReads:
      return n(agent_.counterReads());
    case RunFigure::longestSlice:
      return 0;  // taken once per sample
    case RunFigure::hwRoutes:
      return n(chip_.statistics(*chip).routes);
    case RunFigure::entriesInUse:
      return n(chip_.statistics(*chip).entriesInUse);
    case RunFigure::zombies:
      if (!running) return 0;
      return agent_.async(*chip) ? n(agent_.asyncSwitchAt(*chip).zombieOifSet().size())
                                 : n(agent_.switchAt(*chip).zombieOifSet().size());
    case RunFigure::routeTableFull:
      return table(ReferenceChip::Table::route);
    case RunFigure::boundaryTableFull:
      return table(ReferenceChip::Table::boundary);
    case RunFigure::replicationTableFull:
      return table(ReferenceChip::Table::replication);
    case RunFigure::frrWaiting:
      if (!running) return 0;
      return agent_.async(*chip) ? n(agent_.asyncSwitchAt(*chip).frrProcessingOifSet().size())
                                 : n(agent_.switchAt(*chip).frrProcessingOifSet().size());
    case RunFigure::frrRewrites:
      return n(chip_.statistics(*chip).inPlaceRewrites);
    case RunFigure::agingReviews:
      return n(agent_.agingCounts(*chip).refreshes);
    case RunFigure::hitBitReads:
      return n(agent_.agingCounts(*chip).reads);
    case RunFigure::stamps:
      return n(agent_.agingCounts(*chip).hits);
    case RunFigure::xactsInFlight:
      return n(agent_.pendingTransactions(*chip));
    case RunFigure::xactsFailed:
      return n(agent_.asyncStatistics(*chip).xactsFailed);
  }
  return 0;
}

std::vector<double> RunSampler::levels() const {
  std::vector<double> out;
  out.reserve(timeline_.samples.series.size());
  for (auto const& s : timeline_.samples.series) out.push_back(value(s.figure, s.chip));
  return out;
}

void RunSampler::observe() {
  auto const now = levels();
  for (std::size_t i = 0; i < now.size(); ++i) peaks_[i] = std::max(peaks_[i], now[i]);
  if (tracing_) trace();
}

void RunSampler::failureBegin() {
  if (timeline_.convergences.size() < RunTimeline::kConvergencesKept) {
    auto& c = timeline_.convergences.emplace_back();
    c.mark.at = am_.now() - origin_;
    c.samples.store = SampleStore(RunTimeline::kConvergenceRows);
    traceBase_.clear();
    for (auto figure : {RunFigure::frrWaiting, RunFigure::frrRewrites}) {
      for (std::uint32_t chip = 0; chip < timeline_.chips; ++chip) {
        c.samples.series.push_back({figure, chip, c.samples.store.seriesIs(runFigureInfo(figure).merge)});
        // Rewrites are counted from the failure on.
        traceBase_.push_back(figure == RunFigure::frrRewrites ? value(figure, chip) : 0);
      }
    }
    tracing_ = &c;
  }
  observe();
}

void RunSampler::trace() {
  std::vector<double> row;
  row.reserve(traceBase_.size());
  for (auto const& s : tracing_->samples.series) row.push_back(value(s.figure, s.chip) - traceBase_[row.size()]);
  tracing_->samples.store.rowIs(am_.now() - origin_, row);
}

std::vector<std::vector<std::uint64_t>> RunSampler::routesPerEntry() const {
  std::vector<std::vector<std::uint64_t>> out(timeline_.chips);
  for (std::uint32_t c = 0; c < timeline_.chips; ++c) {
    for (auto const& [index, entry] : chip_.replicationEntries(c)) {
      std::size_t const b = RunTimeline::bucketOf(entry.routes);
      if (b >= out[c].size()) out[c].resize(b + 1);
      ++out[c][b];
    }
  }
  return out;
}

void RunSampler::sample() {
  auto const now = levels();
  auto row = now;
  for (auto const& s : timeline_.samples.series) {
    double& v = row[s.column];
    if (s.figure == RunFigure::longestSlice) {
      v = am_.longestRecentSliceTake();
    } else if (runFigureInfo(s.figure).merge == SampleStore::Merge::max) {
      v = std::max(v, peaks_[s.column]);
    }
  }
  // The next interval's peaks start from the levels now.
  peaks_ = now;
  lastSample_ = am_.now() - origin_;
  timeline_.samples.store.rowIs(lastSample_, row);
  // The next tick on the grid of intervals; ticks that work charged past are skipped.
  tick_->clock().timeMinIs(nextTick(origin_, timeline_.interval, am_.now()));
}

Vex::Seconds RunSampler::nextTick(Vex::Seconds origin, Vex::Seconds interval, Vex::Seconds now) {
  double next = std::floor((now - origin) / interval + 1e-9) + 1;
  // Far from the origin the quotient can fall a hair short of the tick just
  // taken, which would then come round again at the same instant for ever.
  while (origin + next * interval <= now) ++next;
  return origin + next * interval;
}

void RunSampler::eventDone(Scenario const& scenario, Scenario::Event const& e, Vex::Seconds at) {
  observe();
  if (e.kind == EventKind::traffic) return;  // many, and they change no table
  RunTimeline::Mark mark{at - origin_, am_.now() - origin_, eventKindName(e.kind), markLabel(scenario, e), e.path};
  if (tracing_) {
    tracing_->samples.store.flush();
    tracing_->mark = mark;
    tracing_ = nullptr;
  }
  timeline_.markIs(std::move(mark));
  // The sharing when the chips hold the most routes.
  std::uint64_t routes = 0;
  for (std::uint32_t c = 0; c < timeline_.chips; ++c) routes += chip_.statistics(c).routes;
  if (routes > timeline_.peakRoutes) {
    timeline_.peakRoutes = routes;
    timeline_.peakAt = am_.now() - origin_;
    timeline_.routesPerEntryAtPeak = routesPerEntry();
  }
}

void RunSampler::finish() {
  if (am_.now() - origin_ > lastSample_) sample();
  tick_.reset();
  timeline_.samples.store.flush();
  timeline_.routesPerEntry = routesPerEntry();
}

}  // namespace FalSim
