#include "sim/report/RunTimeline.h"

#include <algorithm>
#include <bit>

namespace FalSim {

std::size_t RunTimeline::bucketOf(std::uint64_t routes) {
  if (routes <= 1) return routes;
  return 1 + static_cast<std::size_t>(std::bit_width(routes - 1));
}

std::string RunTimeline::bucketLabel(std::size_t bucket) {
  if (bucket <= 2) return std::to_string(bucket);
  std::uint64_t const hi = std::uint64_t{1} << (bucket - 1);
  return std::to_string(hi / 2 + 1) + "-" + std::to_string(hi);
}

RunTimeline::Series const* RunTimeline::Samples::find(RunFigure figure, std::optional<std::uint32_t> chip) const {
  for (auto const& s : series) {
    if (s.figure == figure && s.chip == chip) return &s;
  }
  return nullptr;
}

bool RunTimeline::Samples::sampled(RunFigure figure) const {
  for (auto const& s : series) {
    if (s.figure == figure) return true;
  }
  return false;
}

void RunTimeline::markIs(Mark mark) {
  if (marks.size() < kMarksKept) {
    marks.push_back(std::move(mark));
  } else {
    ++marksDropped;
  }
}

namespace {

using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

void string(Writer& w, std::string const& v) { w.String(v.c_str(), static_cast<rapidjson::SizeType>(v.size())); }

void mark(Writer& w, RunTimeline::Mark const& m) {
  w.Key("at");
  w.Double(m.at);
  w.Key("until");
  w.Double(m.until);
  w.Key("kind");
  string(w, m.kind);
  w.Key("label");
  string(w, m.label);
  w.Key("event");
  string(w, m.event);
}

void histogram(Writer& w, std::vector<std::vector<std::uint64_t>> const& entries) {
  w.StartObject();
  std::size_t buckets = 0;
  for (auto const& chip : entries) buckets = std::max(buckets, chip.size());
  w.Key("buckets");
  w.StartArray();
  for (std::size_t b = 0; b < buckets; ++b) string(w, RunTimeline::bucketLabel(b));
  w.EndArray();
  w.Key("chips");
  w.StartArray();
  for (auto const& chip : entries) {
    w.StartArray();
    for (std::size_t b = 0; b < buckets; ++b) w.Uint64(b < chip.size() ? chip[b] : 0);
    w.EndArray();
  }
  w.EndArray();
  w.EndObject();
}

}  // namespace

void RunTimeline::Samples::writeJson(Writer& w, std::uint32_t chips) const {
  auto column = [&](Series const& s) {
    w.Key(runFigureInfo(s.figure).key);
    w.StartArray();
    for (double v : store.column(s.column)) w.Double(v);
    w.EndArray();
  };
  w.Key("time");
  w.StartArray();
  for (double t : store.times()) w.Double(t);
  w.EndArray();
  bool agent = false;
  for (auto const& s : series) agent = agent || !s.chip;
  if (agent) {
    w.Key("agent");
    w.StartObject();
    for (auto const& s : series) {
      if (!s.chip) column(s);
    }
    w.EndObject();
  }
  w.Key("chips");
  w.StartArray();
  for (std::uint32_t c = 0; c < chips; ++c) {
    w.StartObject();
    for (auto const& s : series) {
      if (s.chip == c) column(s);
    }
    w.EndObject();
  }
  w.EndArray();
}

void RunTimeline::writeJson(Writer& w) const {
  // Hundreds of numbers per series: one line each series, not one per number.
  w.SetFormatOptions(rapidjson::kFormatSingleLineArray);
  w.StartObject();
  w.Key("interval");
  w.Double(interval);
  w.Key("spacing");
  w.Double(interval * static_cast<double>(samples.store.stride()));
  w.Key("capacity");
  w.Uint64(samples.store.capacity());
  w.Key("received");
  w.Uint64(samples.store.rowsReceived());
  samples.writeJson(w, chips);
  w.Key("marks");
  w.StartArray();
  for (auto const& m : marks) {
    w.StartObject();
    mark(w, m);
    w.EndObject();
  }
  w.EndArray();
  w.Key("marksDropped");
  w.Uint64(marksDropped);
  w.Key("convergence");
  w.StartArray();
  for (auto const& c : convergences) {
    w.StartObject();
    mark(w, c.mark);
    c.samples.writeJson(w, chips);
    w.EndObject();
  }
  w.EndArray();
  w.Key("routesPerEntryAtPeak");
  histogram(w, routesPerEntryAtPeak);
  w.Key("peakAt");
  w.Double(peakAt);
  w.Key("peakRoutes");
  w.Uint64(peakRoutes);
  w.Key("routesPerEntry");
  histogram(w, routesPerEntry);
  w.EndObject();
  w.SetFormatOptions(rapidjson::kFormatDefault);
}

}  // namespace FalSim
