// The bounded sample store: rows merge pairwise when it is full, levels keep
// their peaks, running totals their latest value, and the rows stay evenly
// spaced however many arrive.
#include <gtest/gtest.h>

#include <cmath>

#include "sim/report/RunTimeline.h"
#include "sim/report/SampleStore.h"

namespace {

using FalSim::RunTimeline;
using FalSim::SampleStore;

TEST(SampleStoreTest, KeepsEveryRowUntilFull) {
  SampleStore store(8);
  auto const s = store.seriesIs(SampleStore::Merge::max);
  for (int i = 0; i < 8; ++i) store.rowIs(i, {double(i * i)});
  ASSERT_EQ(store.rows(), 8u);
  EXPECT_EQ(store.stride(), 1u);
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(store.time(i), i);
    EXPECT_EQ(store.value(s, i), i * i);
  }
}

TEST(SampleStoreTest, AFullStoreMergesPairsLevelsByPeakTotalsByLatest) {
  SampleStore store(4);
  auto const level = store.seriesIs(SampleStore::Merge::max);
  auto const total = store.seriesIs(SampleStore::Merge::last);
  // Levels 5 0 0 7, totals 1 2 3 4; then a fifth row makes room first.
  double const levels[] = {5, 0, 0, 7, 1};
  for (int i = 0; i < 5; ++i) store.rowIs(i, {levels[i], double(i + 1)});
  store.flush();
  ASSERT_EQ(store.rows(), 3u);
  EXPECT_EQ(store.stride(), 2u);
  EXPECT_EQ(store.time(0), 1);
  EXPECT_EQ(store.time(1), 3);
  EXPECT_EQ(store.time(2), 4);  // the row being merged, flushed
  EXPECT_EQ(store.value(level, 0), 5);
  EXPECT_EQ(store.value(level, 1), 7);
  EXPECT_EQ(store.value(level, 2), 1);
  EXPECT_EQ(store.value(total, 0), 2);
  EXPECT_EQ(store.value(total, 1), 4);
  EXPECT_EQ(store.value(total, 2), 5);
}

TEST(SampleStoreTest, StaysBoundedAndEvenlySpacedOverAMillionRows) {
  SampleStore store(64);
  auto const level = store.seriesIs(SampleStore::Merge::max);
  auto const total = store.seriesIs(SampleStore::Merge::last);
  constexpr int kRows = 1'000'000;
  for (int i = 1; i <= kRows; ++i) {
    // One spike in the whole run.
    store.rowIs(i * 0.001, {i == 123'457 ? 99.0 : 1.0, double(i)});
    ASSERT_LE(store.rows(), store.capacity());
  }
  store.flush();
  EXPECT_EQ(store.rowsReceived(), std::uint64_t(kRows));
  EXPECT_GE(store.rows(), store.capacity() / 2);
  EXPECT_EQ(store.stride() & (store.stride() - 1), 0u) << "a power of two";
  double const spacing = 0.001 * double(store.stride());
  for (std::size_t r = 1; r + 1 < store.rows(); ++r) EXPECT_NEAR(store.time(r) - store.time(r - 1), spacing, 1e-6);
  EXPECT_NEAR(store.time(store.rows() - 1), kRows * 0.001, 1e-9);
  double peak = 0;
  for (std::size_t r = 0; r < store.rows(); ++r) peak = std::max(peak, store.value(level, r));
  EXPECT_EQ(peak, 99);
  // A running total is its value at the row's time.
  for (std::size_t r = 0; r < store.rows(); ++r) EXPECT_NEAR(store.value(total, r), store.time(r) / 0.001, 1e-6);
}

TEST(SampleStoreTest, CapacityIsEvenAndAtLeastTwo) {
  EXPECT_EQ(SampleStore(0).capacity(), 2u);
  EXPECT_EQ(SampleStore(7).capacity(), 8u);
}

TEST(RunTimelineTest, RoutesPerEntryBucketsDoubleInWidth) {
  EXPECT_EQ(RunTimeline::bucketOf(0), 0u);
  EXPECT_EQ(RunTimeline::bucketOf(1), 1u);
  EXPECT_EQ(RunTimeline::bucketOf(2), 2u);
  EXPECT_EQ(RunTimeline::bucketOf(3), 3u);
  EXPECT_EQ(RunTimeline::bucketOf(4), 3u);
  EXPECT_EQ(RunTimeline::bucketOf(5), 4u);
  EXPECT_EQ(RunTimeline::bucketOf(8), 4u);
  EXPECT_EQ(RunTimeline::bucketOf(9), 5u);
  EXPECT_EQ(RunTimeline::bucketLabel(0), "0");
  EXPECT_EQ(RunTimeline::bucketLabel(2), "2");
  EXPECT_EQ(RunTimeline::bucketLabel(3), "3-4");
  EXPECT_EQ(RunTimeline::bucketLabel(5), "9-16");
  for (std::uint64_t n : {3ULL, 4ULL, 9ULL, 16ULL, 1000ULL}) {
    std::string const label = RunTimeline::bucketLabel(RunTimeline::bucketOf(n));
    auto const dash = label.find('-');
    ASSERT_NE(dash, std::string::npos) << n;
    EXPECT_LE(std::stoull(label.substr(0, dash)), n);
    EXPECT_GE(std::stoull(label.substr(dash + 1)), n);
  }
}

}  // namespace
