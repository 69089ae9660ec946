#pragma once
// FalSim::SvgHistogram: the sharing of the replication table at the end of a
// run as inline SVG: for each bucket of routes per entry (0 for a zombie, 1,
// 2, 3-4, ...), a bar per chip of how many entries hold that many routes.
//
// Each bar carries its data: data-chip, data-bucket and data-entries.
#include <cstdint>
#include <string>
#include <vector>

namespace FalSim {

class SvgHistogram {
 public:
  static constexpr int kWidth = 960;
  static constexpr int kHeight = 260;

  // entries[chip][bucket]; buckets labelled by RunTimeline::bucketLabel.
  // source: the JSON name of the histogram (the svg's data-source).
  SvgHistogram(std::string source, std::string title, std::vector<std::vector<std::uint64_t>> const& entries)
      : source_(std::move(source)), title_(std::move(title)), entries_(entries) {}
  std::string svg() const;

 private:
  std::string source_;
  std::string title_;
  std::vector<std::vector<std::uint64_t>> const& entries_;
};

}  // namespace FalSim
