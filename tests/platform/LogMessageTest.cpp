// Structured log messages: definition once per process, formatting,
// emission to sinks and capture, throttling.
#include <gtest/gtest.h>

#include <string>

#include "platform/log/LogMessage.h"
#include "platform/log/LogSink.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

namespace {

using Log::formatText;

TEST(LogFormatTest, IntegerConversionsTruncateFloatingValues) {
  EXPECT_EQ(formatText("The value is set to the minimum supported value of %ds instead of the configured %ds", {5.9, 1.0}),
            "The value is set to the minimum supported value of 5s instead of the configured 1s");
  EXPECT_EQ(formatText("%d %i %u %x %X", {-3, -2.7, 7U, 255, 255}), "-3 -2 7 ff FF");
}

TEST(LogFormatTest, FlagsWidthPrecisionAndText) {
  EXPECT_EQ(formatText("[%5d|%-4s|%05.1f|%.2e]", {42, "ab", 3.14159, 1234.5}), "[   42|ab  |003.1|1.23e+03]");
  EXPECT_EQ(formatText("%s and %s", {std::string("text"), 2.5}), "text and 2.5");
  EXPECT_EQ(formatText("%f", {"not a number"}), "not a number");
}

TEST(LogFormatTest, PercentMissingAndExtraArguments) {
  EXPECT_EQ(formatText("100%% of %d", {7}), "100% of 7");
  EXPECT_EQ(formatText("%d and %d", {1}), "1 and <missing>");
  EXPECT_EQ(formatText("only %s", {"one", "two"}), "only one");
  EXPECT_EQ(formatText("odd %q and a trailing %", {}), "odd %q and a trailing %");
}

class LogMessageTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler); }
  void TearDown() override { Vex::fatalHandlerIs(previous_); }
  static Log::MessageDef def(std::string name, Log::Throttle throttle = {}) {
    return {std::move(name), Log::Severity::warning, "configured %ds, running %ds", "What it means.",
            Log::kNoActionRequired, throttle, 0};
  }
  Vex::FatalHandler previous_;
  Vex::ActivityManager am_;
};

TEST_F(LogMessageTest, DefinedOnceByNameAndFoundAgain) {
  auto const& m = Log::Message::messageIs(def("TEST_LOG_DEFINED_ONCE"));
  EXPECT_EQ(&Log::Message::messageIs(def("TEST_LOG_DEFINED_ONCE")), &m) << "the same definition twice is one message";
  EXPECT_EQ(Log::Message::message("TEST_LOG_DEFINED_ONCE"), &m);
  EXPECT_EQ(Log::Message::message("TEST_LOG_NEVER_DEFINED"), nullptr);
  auto other = def("TEST_LOG_DEFINED_ONCE");
  other.severity = Log::Severity::error;
  try {
    Log::Message::messageIs(other);
    FAIL() << "a name was redefined";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "structured log message TEST_LOG_DEFINED_ONCE defined twice with different contents");
  }
}

TEST_F(LogMessageTest, EmittedRecordsCarryTimeSeverityNameAndText) {
  auto const& m = Log::Message::messageIs(def("TEST_LOG_EMITTED"));
  Log::ScopedCapture capture;
  am_.advanceBy(12.5);
  EXPECT_TRUE(m.log(1.0, 3));
  ASSERT_EQ(capture->records().size(), 1U);
  auto const& r = capture->records()[0];
  EXPECT_EQ(r.name, "TEST_LOG_EMITTED");
  EXPECT_EQ(r.severity, Log::Severity::warning);
  EXPECT_EQ(r.time, 12.5);
  EXPECT_EQ(r.text, "configured 1s, running 3s");
  EXPECT_EQ(Log::formatRecord(r), "   12.500000 %FALMROUTE-4-TEST_LOG_EMITTED: configured 1s, running 3s");
  EXPECT_EQ(capture->count("TEST_LOG_EMITTED"), 1U);
}

TEST_F(LogMessageTest, ThrottleHoldsBackMessagesBeyondTheBurstInTheWindow) {
  auto const& m = Log::Message::messageIs(def("TEST_LOG_THROTTLED", {2, 10.0}));
  Log::ScopedCapture capture;
  EXPECT_TRUE(m.log(1, 1));
  am_.advanceBy(4.0);
  EXPECT_TRUE(m.log(1, 1));
  EXPECT_FALSE(m.log(1, 1)) << "a third inside 10 s";
  am_.advanceBy(6.0);  // t = 10: the first one has left the window
  EXPECT_TRUE(m.log(1, 1));
  EXPECT_EQ(capture->count("TEST_LOG_THROTTLED"), 3U);
  EXPECT_EQ(m.suppressed(), 1U);

  auto const& every = Log::Message::messageIs(def("TEST_LOG_UNTHROTTLED", {0, 1.0}));
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(every.log(2, 2)) << "burst 0 logs every call";
}

}  // namespace
