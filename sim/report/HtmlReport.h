#pragma once
// FalSim::HtmlReport: a mroute-sim run as one self-contained HTML page: a
// header with the scenario, the verdict and the totals, a time-series chart
// per group of figures with the scenario's events marked on the time axis,
// the events in a table, and the sharing of the replication entries at the
// end as a histogram.
//
// Self-contained: the charts are inline SVG drawn here, the style is inline,
// there is no script and nothing refers outside the page. The page is also
// well-formed XML, so any XML parser can check it.
#include <ostream>

#include "sim/SimReport.h"

namespace FalSim {

class HtmlReport {
 public:
  explicit HtmlReport(SimReport const& report) : report_(report) {}
  void write(std::ostream& os) const;

 private:
  SimReport const& report_;
};

}  // namespace FalSim
