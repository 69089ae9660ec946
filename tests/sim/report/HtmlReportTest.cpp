// The HTML page of a run, read back as a machine would: it is well-formed XML
// (libxml2's parser, network off), it refers to nothing outside itself, and
// every line and bar it draws holds exactly the samples of the JSON report of
// the same run, drawn where its axes say. The sampler's memory stays bounded
// on a long run.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/upg/RapidJson.h"
#include "sim/ScenarioError.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"
#include "sim/report/HtmlReport.h"
#include "sim/report/RunSampler.h"

namespace {

using FalSim::SimReport;
using FalSim::SimRunner;

struct XmlDocDeleter {
  void operator()(xmlDoc* d) const { xmlFreeDoc(d); }
};
using XmlDoc = std::unique_ptr<xmlDoc, XmlDocDeleter>;

XmlDoc parseXml(std::string const& text) {
  return XmlDoc(xmlReadMemory(text.data(), static_cast<int>(text.size()), "page.html", "utf-8",
                              XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
}

std::string attr(xmlNode* n, char const* name) {
  xmlChar* v = xmlGetProp(n, reinterpret_cast<xmlChar const*>(name));
  if (!v) return {};
  std::string s(reinterpret_cast<char const*>(v));
  xmlFree(v);
  return s;
}

bool named(xmlNode* n, char const* name) {
  return n->type == XML_ELEMENT_NODE && xmlStrcmp(n->name, reinterpret_cast<xmlChar const*>(name)) == 0;
}

void collect(xmlNode* n, char const* name, std::vector<xmlNode*>& out) {
  for (; n; n = n->next) {
    if (named(n, name)) out.push_back(n);
    collect(n->children, name, out);
  }
}

std::vector<xmlNode*> elements(xmlNode* root, char const* name) {
  std::vector<xmlNode*> out;
  collect(root, name, out);
  return out;
}

// "a,b c,d" as pairs.
std::vector<std::pair<double, double>> pairs(std::string const& text) {
  std::vector<std::pair<double, double>> out;
  std::istringstream is(text);
  std::string item;
  while (is >> item) {
    auto const comma = item.find(',');
    out.emplace_back(std::strtod(item.substr(0, comma).c_str(), nullptr),
                     std::strtod(item.substr(comma + 1).c_str(), nullptr));
  }
  return out;
}

// Checks that to = a + b * from over all pairs, within tol (drawing rounds to 0.01).
void expectAffine(std::vector<std::pair<double, double>> const& fromTo, double tol, std::string const& what) {
  auto const [lo, hi] = std::minmax_element(fromTo.begin(), fromTo.end());
  if (lo->first == hi->first) return;  // one value: no scale to check
  double const b = (hi->second - lo->second) / (hi->first - lo->first);
  double const a = lo->second - b * lo->first;
  for (auto const& [from, to] : fromTo) EXPECT_NEAR(to, a + b * from, tol) << what << " at " << from;
}

struct ExampleRun {
  std::size_t eventsButTraffic = 0;
  SimReport report;
  std::string html;
  rapidjson::Document json;
};

ExampleRun runExample(std::string const& name, SimRunner::Options options = {}) {
  ExampleRun run;
  auto scenario = FalSim::ScenarioLoader::load(std::string(FALMROUTE_SOURCE_DIR) + "/examples/" + name + ".json");
  for (auto const& e : scenario.events) run.eventsButTraffic += e.kind != FalSim::Scenario::EventKind::traffic;
  SimRunner runner(std::move(scenario), std::move(options));
  run.report = runner.run();
  std::ostringstream html;
  FalSim::HtmlReport(run.report).write(html);
  run.html = html.str();
  std::ostringstream json;
  run.report.printJson(json);
  run.json.Parse<rapidjson::kParseFullPrecisionFlag>(json.str().c_str());
  return run;
}

class HtmlReportTest : public testing::TestWithParam<char const*> {
 protected:
  static std::map<std::string, ExampleRun>& runs() {
    static std::map<std::string, ExampleRun> cache;
    return cache;
  }
  // One run per example for every test of it.
  ExampleRun const& run() {
    auto& cache = runs();
    auto it = cache.find(GetParam());
    if (it == cache.end()) it = cache.emplace(GetParam(), runExample(GetParam())).first;
    return it->second;
  }
};

TEST_P(HtmlReportTest, PageIsWellFormedXmlWithAChartPerGroupAndTheVerdict) {
  ExampleRun const& r = run();
  ASSERT_TRUE(r.report.ok());
  XmlDoc doc = parseXml(r.html);
  ASSERT_TRUE(doc) << "not well-formed XML";
  xmlNode* root = xmlDocGetRootElement(doc.get());
  auto const svgs = elements(root, "svg");
  EXPECT_GE(svgs.size(), 5u);  // routes, entries, aging, counters, loop slices at least
  for (auto* svg : svgs) EXPECT_FALSE(attr(svg, "data-source").empty());
  xmlChar* content = xmlNodeGetContent(elements(root, "h1").at(0));
  std::string const h1 = reinterpret_cast<char const*>(content);
  xmlFree(content);
  EXPECT_NE(h1.find(r.report.scenario), std::string::npos);
  EXPECT_NE(h1.find("OK"), std::string::npos);
}

TEST_P(HtmlReportTest, PageRefersToNothingOutsideItself) {
  std::string const& html = run().html;
  for (char const* banned : {"http://", "https://", "<script", "src=", "href=", "url(", "@import", "xlink"}) {
    EXPECT_EQ(html.find(banned), std::string::npos) << banned;
  }
}

TEST_P(HtmlReportTest, EveryLineHoldsTheJsonSamplesAndIsDrawnToItsAxes) {
  ExampleRun const& r = run();
  XmlDoc doc = parseXml(r.html);
  ASSERT_TRUE(doc);
  auto const& samples = r.json["samples"];
  std::size_t lines = 0;
  for (auto* svg : elements(xmlDocGetRootElement(doc.get()), "svg")) {
    std::string const source = attr(svg, "data-source");
    rapidjson::Value const* data = nullptr;
    if (source == "samples") {
      data = &samples;
    } else if (source.rfind("convergence[", 0) == 0) {
      data = &samples["convergence"][std::stoi(source.substr(12))];
    } else {
      continue;  // a histogram
    }
    auto const series = elements(svg->children, "polyline");
    ASSERT_FALSE(series.empty()) << source << ": a chart without lines";
    std::vector<std::pair<double, double>> timeToX;
    std::vector<std::pair<double, double>> valueToY;
    for (auto* line : series) {
      std::string const figure = attr(line, "data-figure");
      std::string const chip = attr(line, "data-chip");
      std::string const where = source + " " + figure + " chip " + chip;
      auto const& column = chip == "agent" ? (*data)["agent"][figure.c_str()]
                                           : (*data)["chips"][std::stoi(chip)][figure.c_str()];
      auto const& times = (*data)["time"];
      auto const values = pairs(attr(line, "data-values"));
      ASSERT_EQ(values.size(), column.Size()) << where;
      for (rapidjson::SizeType i = 0; i < column.Size(); ++i) {
        EXPECT_EQ(values[i].first, times[i].GetDouble()) << where << " sample " << i;
        EXPECT_EQ(values[i].second, column[i].GetDouble()) << where << " sample " << i;
      }
      // Each sample is a point; a line of steps has a corner before each but the first.
      auto const points = pairs(attr(line, "points"));
      bool const steps = attr(line, "data-steps") == "1";
      ASSERT_EQ(points.size(), steps && !values.empty() ? 2 * values.size() - 1 : values.size()) << where;
      double const scale = std::strtod(attr(line, "data-scale").c_str(), nullptr);
      for (std::size_t i = 0, p = 0; i < values.size(); ++i, ++p) {
        if (steps && i > 0) {
          timeToX.emplace_back(values[i].first, points[p].first);
          valueToY.emplace_back(values[i - 1].second * scale, points[p].second);
          ++p;
        }
        timeToX.emplace_back(values[i].first, points[p].first);
        valueToY.emplace_back(values[i].second * scale, points[p].second);
      }
      ++lines;
    }
    // One pair of axes for every line of the chart.
    expectAffine(timeToX, 0.02, source + " time axis");
    expectAffine(valueToY, 0.02, source + " value axis");
  }
  EXPECT_GE(lines, 6u);
}

TEST_P(HtmlReportTest, EveryBarHoldsTheJsonHistogram) {
  ExampleRun const& r = run();
  XmlDoc doc = parseXml(r.html);
  ASSERT_TRUE(doc);
  std::size_t histograms = 0;
  for (auto* svg : elements(xmlDocGetRootElement(doc.get()), "svg")) {
    std::string const source = attr(svg, "data-source");
    if (source != "routesPerEntry" && source != "routesPerEntryAtPeak") continue;
    ++histograms;
    auto const& h = r.json["samples"][source.c_str()];
    std::map<std::pair<int, std::string>, std::uint64_t> drawn;
    for (auto* bar : elements(svg->children, "rect")) {
      if (attr(bar, "class") != "bar") continue;
      drawn[{std::stoi(attr(bar, "data-chip")), attr(bar, "data-bucket")}] = std::stoull(attr(bar, "data-entries"));
    }
    std::uint64_t total = 0;
    for (rapidjson::SizeType c = 0; c < h["chips"].Size(); ++c) {
      for (rapidjson::SizeType b = 0; b < h["buckets"].Size(); ++b) {
        std::uint64_t const want = h["chips"][c][b].GetUint64();
        total += want;
        auto const it = drawn.find({int(c), h["buckets"][b].GetString()});
        EXPECT_EQ(it == drawn.end() ? 0 : it->second, want) << source << " chip " << c << " bucket " << b;
      }
    }
    EXPECT_GT(total, 0u) << source;
  }
  EXPECT_EQ(histograms, 2u);
}

TEST_P(HtmlReportTest, EveryEventButTrafficIsMarkedOnEveryTimeChart) {
  ExampleRun const& r = run();
  XmlDoc doc = parseXml(r.html);
  ASSERT_TRUE(doc);
  auto const& marks = r.json["samples"]["marks"];
  EXPECT_EQ(marks.Size(), r.eventsButTraffic);
  EXPECT_GT(marks.Size(), 0u);
  for (auto* svg : elements(xmlDocGetRootElement(doc.get()), "svg")) {
    if (attr(svg, "data-source") != "samples") continue;
    std::size_t drawn = 0;
    for (auto* g : elements(svg->children, "g")) drawn += attr(g, "class") == "mark";
    EXPECT_EQ(drawn, marks.Size());
  }
}

INSTANTIATE_TEST_SUITE_P(Examples, HtmlReportTest,
                         testing::Values("frr", "churn", "restart", "async-frr", "async-failures"));

TEST(HtmlReportAsyncTest, TransactionsAreSampledPerAsynchronousChipAndAddUpToTheReport) {
  ExampleRun const r = runExample("async-failures");
  ASSERT_GT(r.report.xactsFailed, 0u) << "the example injects transaction failures";
  double failed = 0;
  double inFlightPeak = 0;
  std::size_t chipsWithTransactions = 0;
  for (auto const& chip : r.json["samples"]["chips"].GetArray()) {
    if (!chip.HasMember("xactsFailed")) continue;
    ++chipsWithTransactions;
    auto const& f = chip["xactsFailed"].GetArray();
    failed += f[f.Size() - 1].GetDouble();
    for (auto const& v : chip["xactsInFlight"].GetArray()) inFlightPeak = std::max(inFlightPeak, v.GetDouble());
  }
  EXPECT_EQ(chipsWithTransactions, r.report.asyncChips);
  EXPECT_EQ(failed, double(r.report.xactsFailed));
  EXPECT_GT(inFlightPeak, 0);
  EXPECT_NE(r.html.find("Transactions in flight"), std::string::npos);
}

TEST(HtmlReportFrrTest, TheFailureIsTracedFromTheInterfaceGoingDownToConvergence) {
  ExampleRun const r = runExample("frr");
  auto const& conv = r.json["samples"]["convergence"];
  ASSERT_EQ(conv.Size(), 1u);
  auto const& c = conv[0];
  EXPECT_STREQ(c["label"].GetString(), "Ethernet2 down");
  EXPECT_DOUBLE_EQ(c["until"].GetDouble() - c["at"].GetDouble(), r.report.lastConvergence);
  double waitingPeak = 0;
  double rewrites = 0;
  for (auto const& chip : c["chips"].GetArray()) {
    auto const& waiting = chip["frrWaiting"].GetArray();
    for (auto const& v : waiting) waitingPeak = std::max(waitingPeak, v.GetDouble());
    EXPECT_EQ(waiting[waiting.Size() - 1].GetDouble(), 0) << "converged: nothing waits";
    rewrites += chip["frrRewrites"][chip["frrRewrites"].Size() - 1].GetDouble();
  }
  EXPECT_GT(waitingPeak, 0);
  EXPECT_EQ(rewrites, double(r.report.frrRewrites));
  // The main samples show the queue's peak, though it lasted less than one interval.
  double sampledPeak = 0;
  for (auto const& chip : r.json["samples"]["chips"].GetArray()) {
    for (auto const& v : chip["frrWaiting"].GetArray()) sampledPeak = std::max(sampledPeak, v.GetDouble());
  }
  EXPECT_GT(sampledPeak, 0);
}

TEST(RunSamplerTest, ALongRunKeepsAFixedNumberOfEvenlySpacedSamplesAndItsPeaks) {
  SimRunner::Options options;
  options.sampleInterval = 0.01;
  options.sampleCapacity = 32;
  SimRunner runner(FalSim::ScenarioLoader::parse(R"({
    "interfaces": {"ethernet": 4, "vlans": [10]},
    "routeSets": [{"name": "g", "generate": {"count": 50, "diversity": 5, "source": "10.0.0.1",
                   "groupBase": "239.1.0.0", "acceptingVlan": 10, "portsPerSet": 2, "outputVlans": [10]}}],
    "events": [{"at": 100, "do": "addRoutes", "set": "g"}, {"at": 100.5, "do": "removeRoutes", "set": "g"}],
    "end": 400})", "long.json"),
                   options);
  SimReport const report = runner.run();
  auto const& samples = report.timeline.samples;
  auto const& store = samples.store;
  EXPECT_LE(store.rows(), 32u);
  EXPECT_GE(store.rows(), 16u);
  EXPECT_GE(store.rowsReceived(), 40000u);
  EXPECT_GE(store.stride(), 1024u);
  for (std::size_t s = 0; s < store.seriesSize(); ++s) EXPECT_LE(store.column(s).capacity(), 32u);
  EXPECT_DOUBLE_EQ(store.times().back(), 400);
  // The routes lived half a second of a 400-second run; their peak is still there.
  auto const* routes = samples.find(FalSim::RunFigure::hwRoutes, 0);
  ASSERT_NE(routes, nullptr);
  auto const& column = store.column(routes->column);
  EXPECT_EQ(*std::max_element(column.begin(), column.end()), 50);
  EXPECT_EQ(column.back(), 0);
}

// Found by a long fault soak (no end, so 5 ms ticks): at 131072 s the tick
// just taken came back as the next one, and the loop stayed at that instant.
TEST(RunSamplerTest, TheNextTickIsLaterThanNowFarFromTheOriginToo) {
  using FalSim::RunSampler;
  constexpr Vex::Seconds kOrigin = SimRunner::kEpoch;
  for (auto [interval, ticks] : {std::pair{0.005, 26009622.0}, std::pair{1e-6, 2.0}, std::pair{0.5, 7.0}}) {
    Vex::Seconds const now = kOrigin + ticks * interval;
    Vex::Seconds const next = RunSampler::nextTick(kOrigin, interval, now);
    EXPECT_GT(next, now) << interval << " x " << ticks;
    EXPECT_NEAR(next - now, interval, interval * 1e-3) << interval << " x " << ticks;
  }
  // Work that charged time past ticks skips them.
  EXPECT_DOUBLE_EQ(RunSampler::nextTick(kOrigin, 0.5, kOrigin + 3.7), kOrigin + 4.0);
}

TEST(RunSamplerTest, TheScenarioSetsTheIntervalAndABadOneIsRefusedByName) {
  auto scenario = FalSim::ScenarioLoader::parse(R"({"sampleInterval": 0.5, "events": [], "end": 10})", "s.json");
  ASSERT_TRUE(scenario.sampleInterval);
  SimRunner runner(std::move(scenario));
  SimReport const report = runner.run();
  EXPECT_EQ(report.timeline.interval, 0.5);
  EXPECT_EQ(report.timeline.samples.store.rowsReceived(), 21u);  // 0, 0.5, ..., 10
  try {
    FalSim::ScenarioLoader::parse(R"({"sampleInterval": 0, "events": []})", "s.json");
    FAIL() << "a zero interval was taken";
  } catch (FalSim::ScenarioError const& e) {
    EXPECT_NE(std::string(e.what()).find("s.json: sampleInterval"), std::string::npos) << e.what();
  }
}

TEST(RunSamplerTest, TheAutomaticIntervalIsRoundAndGivesAboutTwoHundredFiftySixSamples) {
  EXPECT_DOUBLE_EQ(SimRunner::Options().sampleInterval, 0);
  EXPECT_DOUBLE_EQ(FalSim::RunSampler::autoInterval(25), 0.1);
  EXPECT_DOUBLE_EQ(FalSim::RunSampler::autoInterval(1000), 5);
  EXPECT_DOUBLE_EQ(FalSim::RunSampler::autoInterval(0), 0.005);
}

}  // namespace
