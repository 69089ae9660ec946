#include "sim/RoutePrefixIndex.h"

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

RoutePrefixIndex::RoutePrefixIndex(KeyOf keyOf, void const* owner)
    : keyOf_(keyOf), owner_(owner), firsts_(0, ByKey{this}, ByKey{this}) {}

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

std::uint32_t RoutePrefixIndex::firstOf(LookupKey const& k) const {
  auto it = firsts_.find(k);
  return it == firsts_.end() ? kNone : *it;
}

std::uint32_t RoutePrefixIndex::next(std::uint32_t h) const {
  if (next_.empty()) return kNone;
  auto it = next_.find(h);
  return it == next_.end() ? kNone : it->second;
}

void RoutePrefixIndex::add(RouteHandle h) {
  LookupKey const k = lookupKeyOf(h.value());
  std::uint32_t last = firstOf(k);
  if (last == kNone) {
    firsts_.insert(h.value());
  } else {
    for (std::uint32_t n = next(last); n != kNone; n = next(n)) last = n;
    next_[last] = h.value();
  }
  ++lengths_[LengthPair{k.af, k.sourceLen, k.groupLen}];
}

void RoutePrefixIndex::remove(RouteHandle h) {
  LookupKey const k = lookupKeyOf(h.value());
  std::uint32_t const first = firstOf(k);
  if (first == kNone) return;
  std::uint32_t const after = next(h.value());
  if (first == h.value()) {
    // Its successor, if any, leads the key from now on.
    firsts_.erase(firsts_.find(k));
    if (after != kNone) {
      next_.erase(h.value());
      firsts_.insert(after);
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
