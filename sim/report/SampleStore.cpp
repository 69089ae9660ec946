#include "sim/report/SampleStore.h"

#include <algorithm>

#include "platform/vex/Assert.h"

namespace FalSim {

SampleStore::SampleStore(std::size_t capacity) : capacity_(std::max<std::size_t>(2, capacity + capacity % 2)) {}

std::size_t SampleStore::seriesIs(Merge merge) {
  VEX_ASSERT_MSG(received_ == 0, "SampleStore::seriesIs after the first row");
  merge_.push_back(merge);
  columns_.emplace_back();
  columns_.back().reserve(capacity_);
  return merge_.size() - 1;
}

double SampleStore::merged(std::size_t series, double earlier, double later) const {
  return merge_[series] == Merge::max ? std::max(earlier, later) : later;
}

void SampleStore::rowIs(Vex::Seconds t, std::vector<double> const& values) {
  VEX_ASSERT_MSG(values.size() == merge_.size(), "SampleStore::rowIs with a value per series");
  ++received_;
  if (pendingRows_ == 0) {
    // A full store makes room before a new stored row begins, so that row
    // gathers as many incoming ones as every other.
    if (times_.size() == capacity_) halve();
    pending_ = values;
  } else {
    for (std::size_t s = 0; s < merge_.size(); ++s) pending_[s] = merged(s, pending_[s], values[s]);
  }
  pendingTime_ = t;
  if (++pendingRows_ == stride_) flush();
}

void SampleStore::flush() {
  if (pendingRows_ == 0) return;
  pendingRows_ = 0;
  append(pendingTime_, pending_);
}

void SampleStore::append(Vex::Seconds t, std::vector<double> const& values) {
  if (times_.size() == capacity_) halve();
  times_.push_back(t);
  for (std::size_t s = 0; s < merge_.size(); ++s) columns_[s].push_back(values[s]);
}

void SampleStore::halve() {
  std::size_t const half = times_.size() / 2;
  for (std::size_t r = 0; r < half; ++r) times_[r] = times_[2 * r + 1];
  times_.resize(half);
  for (std::size_t s = 0; s < merge_.size(); ++s) {
    auto& col = columns_[s];
    for (std::size_t r = 0; r < half; ++r) {
      col[r] = merged(s, col[2 * r], col[2 * r + 1]);
    }
    col.resize(half);
  }
  stride_ *= 2;
}

}  // namespace FalSim
