#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/log/RingTrace.h"
#include "platform/net/IntfId.h"
#include "platform/vex/ActivityManager.h"

namespace {

std::vector<std::string> texts(RingTrace const& ring) {
  std::vector<std::string> out;
  for (auto const& r : ring.records()) out.push_back(r.text);
  return out;
}

void recordEvents(RingTrace& ring, int from, int to) {
  for (int i = from; i < to; ++i) ring.record("src", std::to_string(i));
}

TEST(RingTrace, WrapAroundAndShrinkingKeepTheNewestRecordsOldestFirst) {
  RingTrace ring(3);
  recordEvents(ring, 0, 7);
  EXPECT_EQ(texts(ring), (std::vector<std::string>{"4", "5", "6"}));
  EXPECT_TRUE(ring.contains("5"));
  EXPECT_FALSE(ring.contains("3"));
  ring.capacityIs(2);
  EXPECT_EQ(texts(ring), (std::vector<std::string>{"5", "6"}));
  ring.capacityIs(4);
  recordEvents(ring, 7, 10);
  EXPECT_EQ(texts(ring), (std::vector<std::string>{"6", "7", "8", "9"}));
}

TEST(RingTrace, RecordsCarryTheEventLoopTimeAndSource) {
  RingTrace ring;
  ring.record("before", "no loop");
  Vex::ActivityManager am;
  am.advanceBy(2.5);
  ring.record("handleZombie", "in loop");
  auto records = ring.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].time, 0.0);
  EXPECT_EQ(records[1].time, 2.5);
  EXPECT_EQ(records[1].source, "handleZombie");
}

TEST(RingTrace, MacroWritesTheProcessRingAndEvaluatesNothingWhenOff) {
  auto& ring = RingTrace::instance();
  ring.clear();
  int evaluated = 0;
  auto piece = [&] { return ++evaluated; };
  RING_TRACE("handleZombie", ", Set timer for zombie oifSetIndex: " << 42 << " n" << piece());
  ringTrace("doAllocateRoute", "index ", 7);
  RingTrace::enabledIs(false);
  RING_TRACE("handleZombie", "off " << piece());
  ringTrace("doAllocateRoute", "off");
  RingTrace::enabledIs(true);
  EXPECT_EQ(texts(ring), (std::vector<std::string>{", Set timer for zombie oifSetIndex: 42 n1", "index 7"}));
  EXPECT_EQ(evaluated, 1);
  ring.clear();
}

// Records are formatted without a stream, yet must read exactly as one would
// have written them: characters as characters, bool as 1/0, integers of every
// width and sign, and types that only have a stream operator.
TEST(RingTrace, MacroFormatsEveryPieceAsAStreamWould) {
  auto& ring = RingTrace::instance();
  ring.clear();
  std::uint8_t const small = 65;
  std::int64_t const negative = -9000000000;
  std::string const text = "str";
  Netcore::IntfId const intf = Netcore::IntfId::ethernet(5);
  double const ratio = 0.125;
  RING_TRACE("src", "a" << 'b' << small << true << false << std::uint16_t{65535} << -7 << negative << std::size_t{42}
                        << text << intf << ratio << 1e21);
  std::ostringstream expected;
  expected << "a" << 'b' << small << true << false << std::uint16_t{65535} << -7 << negative << std::size_t{42} << text
           << intf << ratio << 1e21;
  EXPECT_EQ(texts(ring), (std::vector<std::string>{expected.str()}));
  // A record longer than the last one, then a shorter one: nothing of an
  // earlier text is left over.
  RING_TRACE("src", std::string(100, 'x'));
  RING_TRACE("src", "y");
  EXPECT_EQ(ring.records().back().text, "y");
  ring.clear();
}

// The macro keeps its literal source by address and writes its text into the
// record's own buffer: around the ring, mixed with copied sources, every
// record must still read back with its own source and text.
TEST(RingTrace, MacroRecordsKeepTheirSourcesAcrossWrapAroundAndResizing) {
  auto& ring = RingTrace::instance();
  ring.clear();
  std::size_t const capacity = ring.capacity();
  ring.capacityIs(3);
  RING_TRACE("literal", "m1");
  ring.record(std::string("copied"), "r1");
  RING_TRACE("", "empty");  // lands where no record was yet
  RING_TRACE("" "joined" "Source", "m2");  // overwrites the first record
  RING_TRACE("", "empty again");  // overwrites the copied one
  auto sources = [&] {
    std::vector<std::string> out;
    for (auto const& r : ring.records()) out.push_back(r.source + ":" + r.text);
    return out;
  };
  EXPECT_EQ(sources(), (std::vector<std::string>{":empty", "joinedSource:m2", ":empty again"}));
  ring.capacityIs(5);
  ring.record("copied", "r2");
  EXPECT_EQ(sources(), (std::vector<std::string>{":empty", "joinedSource:m2", ":empty again", "copied:r2"}));
  // Literal texts too, over records that held copied ones, and back.
  RING_TRACE_TEXT("all" "Literal", "t" "1");
  RING_TRACE_TEXT("", "");
  ring.record("copied", "r3");
  EXPECT_EQ(sources(), (std::vector<std::string>{":empty again", "copied:r2", "allLiteral:t1", ":", "copied:r3"}));
  EXPECT_TRUE(ring.contains("t1"));
  EXPECT_FALSE(ring.contains("m2"));
  ring.capacityIs(capacity);
  ring.clear();
}

// A record that keeps its values is formatted only when the ring is read.
// It shares slots with the other kinds around the ring: a value record over
// a formatted one, and a formatted or literal one over a value record, must
// each read back as its own.
struct HandleEvent {
  std::uint32_t handle;
  std::uint16_t vlan;
};
int formatted = 0;
void formatHandleEvent(std::string& out, HandleEvent const& e) {
  ++formatted;
  RingTraceText(out) << "rh " << e.handle << " vlan " << e.vlan;
}

TEST(RingTrace, ValueRecordsAreFormattedWhenReadAndShareSlotsWithTheOtherKinds) {
  auto& ring = RingTrace::instance();
  ring.clear();
  std::size_t const capacity = ring.capacity();
  ring.capacityIs(3);
  formatted = 0;
  RING_TRACE("text", "a formatted record longer than the values' text");
  ring.recordValue<HandleEvent, formatHandleEvent>("value", {7, 10});
  RING_TRACE_TEXT("literal", "l1");
  ring.recordValue<HandleEvent, formatHandleEvent>("value", {8, 4094});  // over the formatted record
  EXPECT_EQ(formatted, 0);
  auto sources = [&] {
    std::vector<std::string> out;
    for (auto const& r : ring.records()) out.push_back(r.source + ":" + r.text);
    return out;
  };
  EXPECT_EQ(sources(), (std::vector<std::string>{"value:rh 7 vlan 10", "literal:l1", "value:rh 8 vlan 4094"}));
  EXPECT_TRUE(ring.contains("rh 8 vlan 4094"));
  EXPECT_FALSE(ring.contains("rh 9"));
  RING_TRACE("text", "t2");  // over the first value record
  ring.record("copied", "c1");  // over the literal one
  ring.capacityIs(4);
  RING_TRACE_TEXT("literal", "l2");  // into a slot never written
  EXPECT_EQ(sources(), (std::vector<std::string>{"value:rh 8 vlan 4094", "text:t2", "copied:c1", "literal:l2"}));
  ring.recordValue<HandleEvent, formatHandleEvent>("value", {9, 1});  // over the value record
  EXPECT_EQ(sources(), (std::vector<std::string>{"text:t2", "copied:c1", "literal:l2", "value:rh 9 vlan 1"}));
  // Every other way of recording, over a value record.
  ring.capacityIs(1);
  auto overValue = [&](auto record) {
    ring.recordValue<HandleEvent, formatHandleEvent>("value", {1, 2});
    record();
    return sources();
  };
  EXPECT_EQ(overValue([] { RING_TRACE("text", "t"); }), std::vector<std::string>{"text:t"});
  EXPECT_EQ(overValue([&] { ring.record("copied", "c"); }), std::vector<std::string>{"copied:c"});
  EXPECT_EQ(overValue([&] { ring.recordView("viewed", "v"); }), std::vector<std::string>{"viewed:v"});
  EXPECT_EQ(overValue([] { RING_TRACE_TEXT("literal", "l"); }), std::vector<std::string>{"literal:l"});
  // And every kind whose source is a literal, over a record whose source and
  // text were copied (the copies stay behind in the slot; they must not show).
  auto overCopied = [&](auto record) {
    ring.record("copied source", "copied text");
    record();
    return sources();
  };
  EXPECT_EQ(overCopied([] { RING_TRACE("text", "t"); }), std::vector<std::string>{"text:t"});
  EXPECT_EQ(overCopied([] { RING_TRACE_TEXT("literal", "l"); }), std::vector<std::string>{"literal:l"});
  EXPECT_EQ(overCopied([&] { ring.recordValue<HandleEvent, formatHandleEvent>("value", {3, 4}); }),
            std::vector<std::string>{"value:rh 3 vlan 4"});
  EXPECT_EQ(overCopied([] { RING_TRACE_TEXT("", ""); }), std::vector<std::string>{":"});
  // A value made in its slot starts from a zeroed value: a field the maker
  // leaves alone reads as zero, not as the bytes of the value there before.
  EXPECT_EQ(overValue([&] {
              ring.recordValueInPlace<HandleEvent, formatHandleEvent>("made", [](HandleEvent& e) { e.handle = 5; });
            }),
            std::vector<std::string>{"made:rh 5 vlan 0"});
  EXPECT_EQ(overCopied([&] {
              ring.recordValueInPlace<HandleEvent, formatHandleEvent>("made", [](HandleEvent& e) { e.vlan = 6; });
            }),
            std::vector<std::string>{"made:rh 0 vlan 6"});
  ring.capacityIs(capacity);
  ring.clear();
}

}  // namespace
