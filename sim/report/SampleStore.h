#pragma once
// FalSim::SampleStore: figures sampled at a fixed interval, in a fixed amount
// of memory however long the run.
//
// A row is one instant: its time and one value per series. The store holds at
// most capacity() rows. When a row arrives and the store is full, adjacent
// rows are merged pairwise (the older half of the time axis in one go: every
// row there is, since all are older than the new one), which halves the rows
// and doubles the spacing; from then on `stride()` incoming rows make one
// stored row, so the rows stay evenly spaced. The memory is capacity() rows
// whatever the number of samples.
//
// How two rows merge depends on the series: a level (a table's size, a queue)
// keeps the higher of the two, so a peak survives any number of merges; a
// running total keeps the later. A merged row's time is the later row's.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/vex/Types.h"

namespace FalSim {

class SampleStore {
 public:
  enum class Merge : std::uint8_t { max, last };

  static constexpr std::size_t kDefaultCapacity = 512;

  // capacity: rows kept, even and at least 2 (smaller or odd values are raised).
  explicit SampleStore(std::size_t capacity = kDefaultCapacity);

  // Adds a series; only before the first row. Returns its index.
  std::size_t seriesIs(Merge merge);
  std::size_t seriesSize() const { return merge_.size(); }

  // One row at time t (not before the previous row's), a value per series.
  void rowIs(Vex::Seconds t, std::vector<double> const& values);
  // Stores the row being merged from incoming ones, if any, so that the last
  // samples are not left out; a later rowIs() starts a new one.
  void flush();

  std::size_t capacity() const { return capacity_; }
  // Rows stored (not counting one still being merged).
  std::size_t rows() const { return times_.size(); }
  Vex::Seconds time(std::size_t row) const { return times_[row]; }
  double value(std::size_t series, std::size_t row) const { return columns_[series][row]; }
  std::vector<Vex::Seconds> const& times() const { return times_; }
  std::vector<double> const& column(std::size_t series) const { return columns_[series]; }
  // Incoming rows per stored row: 1, doubled by every merge.
  std::uint64_t stride() const { return stride_; }
  std::uint64_t rowsReceived() const { return received_; }

 private:
  double merged(std::size_t series, double earlier, double later) const;
  void append(Vex::Seconds t, std::vector<double> const& values);
  void halve();

  std::size_t capacity_;
  std::vector<Merge> merge_;
  std::vector<Vex::Seconds> times_;
  std::vector<std::vector<double>> columns_;  // by series, then row
  std::uint64_t stride_ = 1;
  std::uint64_t received_ = 0;
  // The stored row being made from incoming ones.
  std::vector<double> pending_;
  Vex::Seconds pendingTime_ = 0;
  std::uint64_t pendingRows_ = 0;
};

}  // namespace FalSim
