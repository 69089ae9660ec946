// Out-of-line members of the multicast FIB hardware status entities.
#include "platform/fib/hardware/RouteStatus.h"
#include "platform/fib/hardware/VrfStatus.h"
#include "platform/vex/Assert.h"
#include "platform/vex/SmallBlockPool.h"

namespace Routing::Multicast::Fib::Hardware {

namespace {
RouteStatus::FastdropColl const& noFastdrop() {
  static RouteStatus::FastdropColl const empty;
  return empty;
}
L3::VrfName const& noVrfName() {
  static L3::VrfName const empty;
  return empty;
}
}  // namespace

RouteStatus::~RouteStatus() = default;

static_assert(alignof(RouteStatus) <= Vex::SmallBlockPool::kGrain);

void* RouteStatus::operator new(std::size_t n) { return Vex::routeObjectPool().allocate(n); }
void RouteStatus::operator delete(void* p, std::size_t n) noexcept { Vex::routeObjectPool().deallocate(p, n); }

L3::VrfName const& RouteStatus::vrfName() const { return vrf_ ? vrf_->name() : noVrfName(); }

void RouteStatus::flagsIs(std::uint8_t flags) {
  VEX_ASSERT((flags & ~kFlagsMask) == 0);
  if (flags_ == flags) return;
  flags_ = flags;
  notify(&Notifiee::onFlags);
}

void RouteStatus::fastdropIs(Netcore::IntfId intf) {
  if (!fastdrop_) fastdrop_ = std::make_unique<FastdropColl>();
  if (fastdrop_->contains(intf)) return;
  fastdrop_->set(intf, 0);
  notify(&Notifiee::onFastdrop, intf);
}

void RouteStatus::fastdropDel(Netcore::IntfId intf) {
  if (fastdrop_ && fastdrop_->erase(intf)) notify(&Notifiee::onFastdrop, intf);
}

void RouteStatus::fastdropDelAll() {
  if (!fastdrop_) return;
  while (auto const* first = fastdrop_->first()) fastdropDel(first->first);
}

Vex::Seconds RouteStatus::fastdropLastPollTime(Netcore::IntfId intf) const {
  if (!fastdrop_) return 0;
  auto const* t = fastdrop_->find(intf);
  return t ? *t : 0;
}

void RouteStatus::fastdropLastPollTimeIs(Netcore::IntfId intf, Vex::Seconds t) {
  if (!fastdrop_) fastdrop_ = std::make_unique<FastdropColl>();
  if (fastdrop_->set(intf, t)) notify(&Notifiee::onFastdrop, intf);
}

RouteStatus::FastdropColl::Iterator RouteStatus::fastdropIterator() const {
  return fastdrop_ ? fastdrop_->iterator() : noFastdrop().iterator();
}

VrfStatus::~VrfStatus() {
  for (auto const& route : route_) route->vrf_ = nullptr;
}

Vex::Ptr<RouteStatus> VrfStatus::routeIs(IpGenRouteKey const& key) {
  auto [route, inserted] = route_.findOrInsert(key, [&] { return Vex::make<RouteStatus>(key); });
  Vex::Ptr<RouteStatus> r = route;
  if (!inserted) return r;
  route->vrf_ = this;
  notify(&Notifiee::onRoute, key);
  return r;
}

void VrfStatus::routeDel(IpGenRouteKey const& key) {
  RouteStatus* const route = route_.find(key);
  if (!route) return;
  IpGenRouteKey const k = key;  // key may belong to the route being released
  route->vrf_ = nullptr;
  route_.erase(k);
  notify(&Notifiee::onRoute, k);
}

void VrfStatus::routeDelAll() {
  for (auto it = route_.iterator(); !it.done(); it = route_.iterator()) routeDel(it.key());
}

}  // namespace Routing::Multicast::Fib::Hardware
