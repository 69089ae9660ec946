#pragma once
// FalSim::LookAhead: a second walk over a range, a fixed distance ahead of a
// loop over the same range, so the loop can ask for what a later item's
// lookups will read (a hint to the caches) while it works on the current
// one: at a million routes every lookup by key is a cold slot otherwise.
#include <cstddef>
#include <iterator>

namespace FalSim {

template <class It>
class LookAhead {
 public:
  LookAhead(It begin, It end, std::size_t distance) : it_(begin), end_(end) {
    for (std::size_t i = 0; i < distance && it_ != end_; ++i) ++it_;
  }
  // The item `distance` ahead of the loop's current one, or null near the
  // end; call once per turn of the loop.
  auto const* next() {
    if (it_ == end_) return static_cast<decltype(&*it_)>(nullptr);
    auto const* item = &*it_;
    ++it_;
    return item;
  }

 private:
  It it_;
  It end_;
};

}  // namespace FalSim
