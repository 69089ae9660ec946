#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Enum.h"
#include "platform/vex/Strep.h"
#include "platform/vex/Trace.h"
#include "tests/vex/TestEntity.h"

namespace VexTest {
enum class Shade { light = 1, dark = 2 };

// A value type whose parser rejects out-of-range values with a range error.
struct Percent {
  int value;
  bool operator==(Percent const&) const = default;
};
inline void strepOut(std::ostream& os, Percent p) { os << p.value << '%'; }
inline Percent strepIn(Vex::StrepParser& p, Vex::StrepTag<Percent>) {
  int v = Vex::parseFrom<int>(p);
  p.expect("%");
  if (v < 0 || v > 100) throw Vex::RangeException("Percent::value < 0 or > 100 not allowed");
  return {v};
}
}  // namespace VexTest

template <>
struct Vex::EnumTraits<VexTest::Shade> {
  static Vex::EnumType const& type() {
    static Vex::EnumType const t("VexTest::Shade", {{1, "light"}, {2, "dark"}});
    return t;
  }
};

namespace {

template <class T>
void expectRoundTrip(T const& v, std::string const& text) {
  EXPECT_EQ(Vex::strep(v), text);
  EXPECT_EQ(Vex::parse<T>(text), v) << text;
}

TEST(StrepTest, BuiltinsPrintAndParseBack) {
  expectRoundTrip(-42, "-42");
  expectRoundTrip(std::numeric_limits<std::int64_t>::min(), "-9223372036854775808");
  expectRoundTrip(4000000000u, "4000000000");
  expectRoundTrip(std::numeric_limits<std::uint64_t>::max(), "18446744073709551615");
  expectRoundTrip(std::uint8_t{255}, "255");
  expectRoundTrip(0.1, "0.1");
  expectRoundTrip(-1.5e-300, "-1.5e-300");
  expectRoundTrip(Vex::kNever, "inf");
  expectRoundTrip(-Vex::kNever, "-inf");
  expectRoundTrip(true, "True");
  expectRoundTrip(false, "False");
  expectRoundTrip(std::string("it's a \\ path"), "'it\\'s a \\\\ path'");
  expectRoundTrip(std::string(), "''");
  EXPECT_TRUE(std::isnan(Vex::parse<double>("nan")));
  // Literals and views print as strings, not as a pointer's truth value.
  EXPECT_EQ(Vex::strep("it's"), "'it\\'s'");
  EXPECT_EQ(Vex::strep(std::string_view("x")), "'x'");
}

TEST(StrepTest, RegisteredEnumUsesItsLiteralNames) {
  expectRoundTrip(VexTest::Shade::dark, "dark");
  EXPECT_EQ(Vex::strep(static_cast<VexTest::Shade>(7)), "7");
  EXPECT_THROW(Vex::parse<VexTest::Shade>("grey"), Vex::ParseError);
  EXPECT_EQ(Vex::enumTypeByName("VexTest::Shade"), &Vex::EnumTraits<VexTest::Shade>::type());
}

TEST(StrepTest, LeftoverOrMalformedTextIsAParseError) {
  EXPECT_THROW(Vex::parse<int>("12x"), Vex::ParseError);
  EXPECT_THROW(Vex::parse<int>("12 3"), Vex::ParseError);
  EXPECT_THROW(Vex::parse<unsigned>("-1"), Vex::ParseError);
  EXPECT_THROW(Vex::parse<std::uint8_t>("256"), Vex::ParseError);
  EXPECT_THROW(Vex::parse<bool>("Truely"), Vex::ParseError);
  EXPECT_THROW(Vex::parse<double>("1.5.2"), Vex::ParseError);
  EXPECT_THROW(Vex::parse<std::string>("'open"), Vex::ParseError);
  EXPECT_THROW(Vex::parse<std::string>("'a'b"), Vex::ParseError);
  try {
    Vex::parse<int>("7;");
    FAIL() << "no error";
  } catch (Vex::ParseError const& e) {
    EXPECT_STREQ(e.what(), "expected end of text at offset 1 of \"7;\"");
  }
}

TEST(StrepTest, RangeErrorOfAValueTypeReachesTheCallerWithItsText) {
  expectRoundTrip(VexTest::Percent{40}, "40%");
  try {
    Vex::parse<VexTest::Percent>("101%");
    FAIL() << "no error";
  } catch (Vex::RangeException const& e) {
    EXPECT_STREQ(e.what(), "Percent::value < 0 or > 100 not allowed");
  }
}

class TraceTest : public ::testing::Test {
 protected:
  TraceTest() { Vex::traceSinkAdd(sink_); }
  ~TraceTest() override {
    Vex::traceSinkDel(sink_);
    Vex::traceSettingIs("");
  }
  Vex::ActivityManager am_{std::make_unique<Vex::VirtualTimeSource>(12.5)};
  std::shared_ptr<Vex::CaptureTraceSink> sink_ = std::make_shared<Vex::CaptureTraceSink>();
};

TEST_F(TraceTest, DisabledLevelsDoNotEvaluateTheirMessage) {
  auto& h = Vex::traceHandle("VexTestTrace");
  Vex::traceSettingIs("Other/*,VexTestTrace/0-5");
  int evaluations = 0;
  auto costly = [&] { return ++evaluations; };
  for (int level = 0; level <= 9; ++level) VEX_TRACE(h, level, "VexTest", costly());
  EXPECT_EQ(evaluations, 6);
  ASSERT_EQ(sink_->lines().size(), 6u);
  for (int level = 0; level <= 5; ++level) EXPECT_EQ(sink_->lines()[level].level, level);
  Vex::traceSettingIs("Other/*");
  VEX_TRACE(h, 0, "VexTest", costly());
  EXPECT_EQ(evaluations, 6);
}

TEST_F(TraceTest, SettingAppliesToHandlesCreatedLater) {
  Vex::traceSettingIs("VexTestLater/3");
  auto& h = Vex::traceHandle("VexTestLater");
  EXPECT_TRUE(h.enabled(3));
  EXPECT_FALSE(h.enabled(2));
  EXPECT_FALSE(h.enabled(4));
}

TEST_F(TraceTest, CapturedLineCarriesTimeHandleLevelSourceAndLine) {
  auto& h = Vex::traceHandle("VexTestTrace");
  Vex::traceSettingIs("VexTestTrace/*");
  VEX_TRACE(h, 2, "FalSyncMrouteSm", "routes " << 42);
  int const line = __LINE__ - 1;
  ASSERT_EQ(sink_->lines().size(), 1u);
  auto const& l = sink_->lines()[0];
  EXPECT_EQ(l.time, 12.5);
  EXPECT_EQ(l.handle, "VexTestTrace");
  EXPECT_EQ(l.level, 2);
  EXPECT_EQ(l.source, "FalSyncMrouteSm");
  EXPECT_EQ(l.line, line);
  EXPECT_EQ(l.text, "routes 42");
  EXPECT_EQ(Vex::formatTraceLine(l), "   12.500000 VexTestTrace/2 FalSyncMrouteSm:" + std::to_string(line) + " routes 42");
}

class FatalTest : public ::testing::Test {
 protected:
  FatalTest() : previous_(Vex::fatalHandlerIs(Vex::throwingFatalHandler)) {}
  ~FatalTest() override { Vex::fatalHandlerIs(previous_); }
  Vex::FatalHandler previous_;
};

TEST_F(FatalTest, AssertedTextReachesTheHandlerExactly) {
  int routes = 3, limit = 2;
  VEX_ASSERT(routes > limit);
  try {
    VEX_ASSERT(routes <= limit);
    FAIL() << "no fatal";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "routes <= limit");
    EXPECT_EQ(e.line(), __LINE__ - 4);
  }
}

TEST_F(FatalTest, DeferredDeliveryWithoutAnActivityManagerIsFatal) {
  ASSERT_EQ(Vex::ActivityManager::current(), nullptr);
  VexTest::Log log;
  auto g = Vex::make<VexTest::Gauge>();
  VexTest::GaugeRecorder r("r", &log, g);
  r.deferredIs(true);
  try {
    g->valueIs(1);
    FAIL() << "no fatal";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "deferred notification without an activity manager");
  }
}

}  // namespace
