#pragma once
// The published route counters, one row per route key.
//
// Users go through this class only (counter, counterIs, counterDel, size,
// iteration), so the rows can move to a shared-memory table that other
// processes read without changing them.
#include <cstddef>

#include "platform/fib/Counter.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/vex/Entity.h"
#include "platform/vex/HashColl.h"

namespace Routing::Multicast::Fib {

class CounterStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<CounterStatus> {
   public:
    virtual void onCounter(IpGenRouteKey const&) {}
  };
  using CounterColl = Vex::HashColl<IpGenRouteKey, Counter>;
  // Walks the rows in a stable order; survives deletion of any row.
  using Iterator = CounterColl::Iterator;

  CounterStatus() = default;

  // The row of key; a default row (update time 0) when absent.
  Counter counter(IpGenRouteKey const& key) const {
    auto const* c = counter_.find(key);
    return c ? *c : Counter();
  }
  // Publishes the row under its route key, replacing any row there.
  void counterIs(Counter const& row) {
    if (counter_.set(row.routeKey(), row)) notify(&Notifiee::onCounter, row.routeKey());
  }
  void counterDel(IpGenRouteKey const& key) {
    IpGenRouteKey const k = key;  // key may live in the row being erased
    if (counter_.erase(k)) notify(&Notifiee::onCounter, k);
  }
  void counterDelAll() {
    for (auto it = counter_.iterator(); !it.done(); it = counter_.iterator()) counterDel(it.key());
  }
  std::size_t size() const { return counter_.size(); }
  Iterator counterIterator() const { return counter_.iterator(); }
  auto begin() const { return counter_.begin(); }
  auto end() const { return counter_.end(); }

 private:
  CounterColl counter_;
};

}  // namespace Routing::Multicast::Fib
