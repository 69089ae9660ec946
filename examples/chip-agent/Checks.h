#pragma once
// Checks: what the example expects to find, each printed as it is checked;
// any that fails makes the example exit with status 1.
#include <iostream>
#include <string>
#include <vector>

#include "ToyTable.h"

namespace ToyChip {

class Checks {
 public:
  void expect(bool holds, std::string const& what) {
    std::cout << (holds ? "  ok      " : "  FAILED  ") << what << "\n";
    if (!holds) ++failed_;
  }
  // The toy table recorded no write that should not have happened.
  void clean(ToyTable const& table) {
    std::vector<std::string> const problems = table.problems();
    for (auto const& p : problems) std::cout << "  problem: " << p << "\n";
    expect(problems.empty(), "the chip saw no wrong write and holds what the library holds");
  }
  int failed() const { return failed_; }

 private:
  int failed_ = 0;
};

}  // namespace ToyChip
