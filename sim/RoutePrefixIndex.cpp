#include "sim/RoutePrefixIndex.h"

#include <algorithm>

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

void RoutePrefixIndex::add(std::uint16_t vrfId, IpGenRouteKey const& key, RouteHandle h) {
  LookupKey const k = lookupKey(vrfId, key);
  byKey_[k].push_back(h);
  ++lengths_[LengthPair{k.af, k.sourceLen, k.groupLen}];
}

void RoutePrefixIndex::remove(std::uint16_t vrfId, IpGenRouteKey const& key, RouteHandle h) {
  LookupKey const k = lookupKey(vrfId, key);
  auto it = byKey_.find(k);
  if (it == byKey_.end()) return;
  auto& handles = it->second;
  auto pos = std::find(handles.begin(), handles.end(), h);
  if (pos == handles.end()) return;
  handles.erase(pos);
  if (handles.empty()) byKey_.erase(it);
  auto len = lengths_.find(LengthPair{k.af, k.sourceLen, k.groupLen});
  if (len != lengths_.end() && --len->second == 0) lengths_.erase(len);
}

RoutePrefixIndex::Handles const* RoutePrefixIndex::find(std::uint16_t vrfId, IpGenRouteKey const& key) const {
  return find(lookupKey(vrfId, key));
}

RoutePrefixIndex::Handles const* RoutePrefixIndex::find(LookupKey const& k) const {
  auto it = byKey_.find(k);
  return it == byKey_.end() ? nullptr : &it->second;
}

void RoutePrefixIndex::matches(std::uint16_t vrfId, IpGenAddr const& source, IpGenAddr const& group,
                               std::vector<Handles const*>& out, bool firstOnly) const {
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
    if (auto const* handles = find(k)) {
      out.push_back(handles);
      if (firstOnly) return;
    }
  }
}

}  // namespace FalSim
