#include "platform/fib/CounterStatus.h"

namespace Routing::Multicast::Fib {
namespace {
constexpr auto kOnRow = static_cast<void (CounterStatus::Notifiee::*)(IpGenRouteKey const&)>(&CounterStatus::Notifiee::onCounter);
constexpr auto kOnTable = static_cast<void (CounterStatus::Notifiee::*)()>(&CounterStatus::Notifiee::onCounter);
}  // namespace

CounterStatus::CounterStatus(std::uint32_t capacity) : CounterStatus(Memtab::CollectionControl::privateCollectionControlIs(), capacity) {}

CounterStatus::CounterStatus(Vex::Ptr<Memtab::CollectionControl> const& control, std::uint32_t capacity) {
  rows_.controlIs(control, capacity);
}

bool CounterStatus::counterIs(Counter const& row) {
  switch (rows_.set(row)) {
    case Memtab::SetResult::inserted:
    case Memtab::SetResult::replaced:
      notify(kOnRow, row.routeKey());
      return true;
    case Memtab::SetResult::unchanged:
      return true;
    case Memtab::SetResult::full:
      return false;
  }
  return false;
}

void CounterStatus::counterDel(IpGenRouteKey const& key) {
  IpGenRouteKey const k = key;  // key may live in a row the caller holds
  if (rows_.erase(k)) notify(kOnRow, k);
}

void CounterStatus::counterDelAll() {
  if (size() == 0) return;
  std::vector<Counter> const gone = rows_.snapshot();
  rows_.clear();
  for (Counter const& row : gone) notify(kOnRow, row.routeKey());
}

void CounterStatus::refresh() {
  auto const changes = rows_.refresh();
  if (changes.mountStatus) notify(&Notifiee::onMountStatus);
  for (IpGenRouteKey const& key : changes.keys) notify(kOnRow, key);
  if (changes.collection) notify(kOnTable);
}

void CounterStatus::zeroReferencesIs() {
  if (auto const& c = rows_.control()) c->collectionReleaseIs(this);
}

}  // namespace Routing::Multicast::Fib
