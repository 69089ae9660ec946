#pragma once
// Fal::AgingReviewPrefetch: runs ahead of an aging review inside one VRF and
// starts the memory reads the review will make there, so that they overlap
// instead of following one another.
//
// In a large table each route's status and its switch's entry for the route
// are random in memory: reading them only when the review reaches the route
// costs a full memory round trip each. The prefetcher looks at two routes
// ahead of the review's position in the collection: at the farther one it
// fetches the route status, at the nearer one (whose status, key included,
// has arrived by then) it hands key and status to fetchNear, which starts
// the switch's lookup. Only fetches are issued: the review reads and decides
// exactly as without them, and a collection changed under the review (a
// stamp's reactor may do that) gives no hint until the review moves on.
#include <cstddef>
#include <utility>

#include "platform/fib/hardware/RouteStatus.h"
#include "platform/fib/hardware/VrfStatus.h"
#include "platform/vex/Prefetch.h"

namespace Fal {

template <class FetchNear>
class AgingReviewPrefetch {
 public:
  using VrfStatus = Routing::Multicast::Fib::Hardware::VrfStatus;
  static constexpr std::size_t kNear = 4;
  static constexpr std::size_t kFar = 8;

  // fetchNear(IpGenRouteKey const&, RouteStatus const&): a hint, no effect.
  explicit AgingReviewPrefetch(FetchNear fetchNear) : fetchNear_(std::move(fetchNear)) {}

  // Once where the review starts or resumes in the VRF, with the review at
  // `at`: what step() would have fetched for the routes up to there, so that
  // a slice's first routes are not read one cold route after another.
  void prime(VrfStatus::RouteColl::Iterator const& at) const {
    for (std::size_t n = 0; n < kFar; ++n) {
      auto const* e = at.peek(n);
      if (!e) break;
      fetchStatus(*e);
    }
    for (std::size_t n = 0; n < kNear; ++n) {
      if (auto const* e = at.peek(n)) fetchNear_((*e)->key(), **e);
    }
  }

  // Once per route reviewed, with the review at `at`, which moved one route
  // on since the last step. The two places ahead move with it, one route a
  // step, rather than being counted out from the review's place each time;
  // they are found again from `at` when the collection changed.
  void step(VrfStatus::RouteColl::Iterator const& at) {
    if (far_.stale() || near_.stale()) {
      far_ = at.cursor(kFar);
      near_ = at.cursor(kNear);
    } else {
      far_.next();
      near_.next();
    }
    if (auto const* far = far_.get()) fetchStatus(*far);
    if (auto const* near = near_.get()) fetchNear_((*near)->key(), **near);
  }

 private:
  // Every line of the status: its key and what the review reads, the flags
  // past its first 64 bytes among them. A status is not aligned to a line,
  // so its 104 bytes may span three.
  static void fetchStatus(VrfStatus::RouteColl::Member const& m) {
    Vex::prefetchBytes<sizeof(Routing::Multicast::Fib::Hardware::RouteStatus)>(m.get());
  }

  FetchNear fetchNear_;
  VrfStatus::RouteColl::Cursor far_;
  VrfStatus::RouteColl::Cursor near_;
};

}  // namespace Fal
