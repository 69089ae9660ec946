#include "sim/RoutePrefixIndex.h"

#include "platform/vex/Prefetch.h"

namespace FalSim {

using MrouteLib::RouteHandle;
using Netcore::IpGenAddr;
using Routing::Multicast::Fib::IpGenRouteKey;

namespace {

std::array<std::uint8_t, 16> maskedBytes(std::array<std::uint8_t, 16> bytes, unsigned len) {
  for (unsigned i = 0; i < bytes.size(); ++i) {
    unsigned const keep = len >= (i + 1) * 8 ? 8 : (len > i * 8 ? len - i * 8 : 0);
    bytes[i] &= static_cast<std::uint8_t>(0xFF00u >> keep);
  }
  return bytes;
}

}  // namespace

RoutePrefixIndex::RoutePrefixIndex(KeyOf keyOf, void const* owner) : keyOf_(keyOf), owner_(owner) {}

RoutePrefixIndex::LookupKey RoutePrefixIndex::lookupKey(std::uint16_t vrfId, IpGenRouteKey const& key) {
  LookupKey k;
  k.vrfId = vrfId;
  k.af = static_cast<std::uint8_t>(key.af());
  k.sourceLen = static_cast<std::uint8_t>(key.source().len());
  k.groupLen = static_cast<std::uint8_t>(key.group().len());
  k.source = maskedBytes(key.source().address().bytes(), k.sourceLen);
  k.group = maskedBytes(key.group().address().bytes(), k.groupLen);
  return k;
}

RoutePrefixIndex::LookupKey RoutePrefixIndex::lookupKeyOf(std::uint32_t h) const {
  EntryKey const e = keyOf_(owner_, RouteHandle(h));
  return lookupKey(e.vrfId, *e.key);
}

std::uint32_t RoutePrefixIndex::hashOf(LookupKey const& k) {
  std::uint64_t const h = absl::Hash<LookupKey>()(k);
  return static_cast<std::uint32_t>(h ^ (h >> 32));
}

std::size_t RoutePrefixIndex::slotOf(LookupKey const& k, std::uint32_t hash) const {
  std::size_t const mask = slots_.size() - 1;
  for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
    Slot const& s = slots_[i];
    if (s.handle == kNone || (s.hash == hash && lookupKeyOf(s.handle) == k)) return i;
  }
}

std::uint32_t RoutePrefixIndex::firstOf(LookupKey const& k) const {
  return slots_.empty() ? kNone : slots_[slotOf(k, hashOf(k))].handle;
}

void RoutePrefixIndex::slotErase(std::size_t i) {
  std::size_t const mask = slots_.size() - 1;
  // A later slot of the run moves into the hole unless its home lies
  // (cyclically) after the hole, up to itself.
  for (std::size_t j = (i + 1) & mask; slots_[j].handle != kNone; j = (j + 1) & mask) {
    std::size_t const home = slots_[j].hash & mask;
    if (((j - home) & mask) >= ((j - i) & mask)) {
      slots_[i] = slots_[j];
      i = j;
    }
  }
  slots_[i] = Slot{};
  --used_;
}

void RoutePrefixIndex::grow() {
  std::vector<Slot, Fal::HugePageAllocator<Slot>> old(slots_.empty() ? 16 : 2 * slots_.size());
  old.swap(slots_);
  std::size_t const mask = slots_.size() - 1;
  for (Slot const& s : old) {
    if (s.handle == kNone) continue;
    std::size_t i = s.hash & mask;
    while (slots_[i].handle != kNone) i = (i + 1) & mask;
    slots_[i] = s;
  }
}

std::uint32_t RoutePrefixIndex::next(std::uint32_t h) const {
  if (next_.empty()) return kNone;
  auto it = next_.find(h);
  return it == next_.end() ? kNone : it->second;
}

void RoutePrefixIndex::add(RouteHandle h) {
  LookupKey const k = lookupKeyOf(h.value());
  std::uint32_t const hash = hashOf(k);
  // At most seven eighths full: probe runs stay short.
  if ((used_ + 1) * 8 > slots_.size() * 7) grow();
  std::size_t const i = slotOf(k, hash);
  std::uint32_t last = slots_[i].handle;
  if (last == kNone) {
    slots_[i] = Slot{h.value(), hash};
    ++used_;
  } else {
    for (std::uint32_t n = next(last); n != kNone; n = next(n)) last = n;
    next_[last] = h.value();
  }
  ++lengths_[LengthPair{k.af, k.sourceLen, k.groupLen}];
}

void RoutePrefixIndex::remove(RouteHandle h) {
  LookupKey const k = lookupKeyOf(h.value());
  if (slots_.empty()) return;
  std::size_t const i = slotOf(k, hashOf(k));
  std::uint32_t const first = slots_[i].handle;
  if (first == kNone) return;
  std::uint32_t const after = next(h.value());
  if (first == h.value()) {
    // Its successor, if any, leads the key from now on (same key, same slot).
    if (after != kNone) {
      next_.erase(h.value());
      slots_[i].handle = after;
    } else {
      slotErase(i);
    }
  } else {
    std::uint32_t before = first;
    while (before != kNone && next(before) != h.value()) before = next(before);
    if (before == kNone) return;
    next_.erase(h.value());
    if (after == kNone) {
      next_.erase(before);
    } else {
      next_[before] = after;
    }
  }
  auto len = lengths_.find(LengthPair{k.af, k.sourceLen, k.groupLen});
  if (len != lengths_.end() && --len->second == 0) lengths_.erase(len);
}

std::optional<RoutePrefixIndex::Handles> RoutePrefixIndex::find(std::uint16_t vrfId, IpGenRouteKey const& key) const {
  std::uint32_t const first = firstOf(lookupKey(vrfId, key));
  if (first == kNone) return std::nullopt;
  return Handles(this, first);
}

void RoutePrefixIndex::prefetch(std::uint16_t vrfId, IpGenRouteKey const& key) const {
  if (!slots_.empty()) Vex::prefetch(&slots_[hashOf(lookupKey(vrfId, key)) & (slots_.size() - 1)]);
}

void RoutePrefixIndex::matches(std::uint16_t vrfId, IpGenAddr const& source, IpGenAddr const& group,
                               std::vector<Handles>& out, bool firstOnly) const {
  if (source.af() != group.af()) return;
  auto const af = static_cast<std::uint8_t>(group.af());
  LookupKey k;
  k.vrfId = vrfId;
  k.af = af;
  for (auto it = lengths_.lower_bound(LengthPair{af, 255, 255}); it != lengths_.end() && it->first.af == af; ++it) {
    k.sourceLen = it->first.sourceLen;
    k.groupLen = it->first.groupLen;
    k.source = maskedBytes(source.bytes(), k.sourceLen);
    k.group = maskedBytes(group.bytes(), k.groupLen);
    std::uint32_t const first = firstOf(k);
    if (first != kNone) {
      out.emplace_back(this, first);
      if (firstOnly) return;
    }
  }
}

}  // namespace FalSim
