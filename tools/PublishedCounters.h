#pragma once
// FalTools::PublishedCounters: the counter tables one agent publishes, read
// from another process.
//
// An agent publishes under a base name B: its route counters as the table
// "B.counterStatus" (rows of Routing::Multicast::Fib::Counter with their
// control record) and, in the asynchronous flavour, its route-to-counter-key
// map as "B.counterKeyMap". mroute-sim uses B = "sim-<its pid>". Both are
// opened as readers; either may be missing.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "async/MrouteCounterKeyMapTable.h"
#include "platform/fib/CounterStatus.h"
#include "platform/vex/Ptr.h"

namespace FalTools {

class PublishedCounters {
 public:
  static constexpr std::string_view kCounterStatusSuffix = ".counterStatus";
  static constexpr std::string_view kCounterKeyMapSuffix = ".counterKeyMap";

  explicit PublishedCounters(std::string base);
  ~PublishedCounters();
  PublishedCounters(PublishedCounters const&) = delete;
  PublishedCounters& operator=(PublishedCounters const&) = delete;

  std::string const& base() const { return base_; }
  std::string counterStatusName() const { return base_ + kCounterStatusSuffix.data(); }
  std::string counterKeyMapName() const { return base_ + kCounterKeyMapSuffix.data(); }

  Routing::Multicast::Fib::CounterStatus const& counterStatus() const { return *counterStatus_; }
  Fal::Mroute::MrouteCounterKeyMapTable const& counterKeyMap() const { return *counterKeyMap_; }
  bool anyPublished() const { return counterStatus_->mounted() || counterKeyMap_->mounted(); }

  // Takes in what the writers changed (mounting tables published since);
  // true when anything did.
  bool refresh();

 private:
  class Watch;
  std::string base_;
  Vex::Ptr<Routing::Multicast::Fib::CounterStatus> counterStatus_;
  Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> counterKeyMap_;
  std::unique_ptr<Watch> watch_;
};

// The base names with a counter table published on this machine, sorted.
std::vector<std::string> publishedBases();

}  // namespace FalTools
