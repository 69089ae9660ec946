#include "async/InUseRouteHandleTable.h"

#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Fal::Mroute::InUseRouteHandleKey;
using Fal::Mroute::InUseRouteHandleTable;
using MrouteLib::RouteHandle;
using Netcore::IpGenAddr;
using Netcore::IpGenPrefix;
using Routing::Multicast::Fib::IpGenRouteKey;

IpGenPrefix v4(std::uint32_t addr, unsigned len) { return IpGenPrefix(IpGenAddr::v4(addr), len); }

IpGenPrefix v6Group(std::uint8_t last) {
  std::array<std::uint8_t, 16> bytes{0xff, 0x0e};
  bytes[15] = last;
  return IpGenPrefix(IpGenAddr::v6(bytes), 128);
}

// Keys of every shape, many of them alike but for one field the narrow form
// packs or a length it requires: a source host of 0.0.0.0 beside both empty
// (*, G) sources, a prefix beside the host of its address, VRF ids equal in
// their low 16 bits, VLANs equal in their low 11 bits, and none.
std::vector<InUseRouteHandleKey> keysOfEveryShape() {
  std::vector<IpGenRouteKey> const routeKeys = {
      IpGenRouteKey(v4(0x0A000001, 32), v4(0xEF010101, 32)),
      IpGenRouteKey(v4(0x0A000002, 32), v4(0xEF010101, 32)),
      IpGenRouteKey(v4(0x0A000001, 32), v4(0xEF010102, 32)),
      IpGenRouteKey(v4(0, 32), v4(0xEF010101, 32)),        // a source host of all zeros
      IpGenRouteKey(v4(0, 0), v4(0xEF010101, 32)),         // (*, G), IPv4 empty source
      IpGenRouteKey(IpGenPrefix(), v4(0xEF010101, 32)),    // (*, G), empty source of no family
      IpGenRouteKey(v4(0x0A000000, 24), v4(0xEF010101, 32)),  // a source prefix
      IpGenRouteKey(v4(0x0A000000, 32), v4(0xEF010101, 32)),  // ... and the host of its address
      IpGenRouteKey(v4(0x0A000001, 32), v4(0xEF010100, 24)),  // a group prefix
      IpGenRouteKey(v4(0x0A000001, 32), v4(0xEF010100, 32)),  // ... and the host of its address
      IpGenRouteKey::wildcard(),
      IpGenRouteKey(v4(0x0A000001, 32), v6Group(1)),        // families mixed
      IpGenRouteKey(IpGenPrefix(), v6Group(1)),
      IpGenRouteKey::wildcard6(),
      IpGenRouteKey(),
  };
  std::vector<InUseRouteHandleKey> keys;
  for (auto const& routeKey : routeKeys) {
    for (std::uint32_t vlan : {0u, 1u, 2046u, 4094u}) {
      for (Fal::VrfId vrf : {0u, 1u, 0xFFFFu, 0x10000u, 0x10001u}) {
        keys.emplace_back(routeKey, Bridging::VlanIdOrNone(vlan), vrf);
      }
    }
  }
  return keys;
}

// Every key is found with the handle the model holds for it, or not at all.
void expectSameAs(InUseRouteHandleTable const& table, std::map<InUseRouteHandleKey, RouteHandle> const& model,
                  std::vector<InUseRouteHandleKey> const& keys) {
  ASSERT_EQ(table.size(), model.size());
  for (auto const& key : keys) {
    auto it = model.find(key);
    EXPECT_EQ(table.find(key), it == model.end() ? RouteHandle::invalid() : it->second) << key;
  }
}

// The two forms must keep apart every pair of keys the full key's comparison
// does; a packing that drops a bit shows up as one key's handle under another.
TEST(InUseRouteHandleTable, EachKeyOfEveryShapeKeepsItsOwnHandleThroughChanges) {
  std::vector<InUseRouteHandleKey> const keys = keysOfEveryShape();
  InUseRouteHandleTable table;
  std::map<InUseRouteHandleKey, RouteHandle> model;
  for (std::uint32_t i = 0; i < keys.size(); ++i) {
    table.set(keys[i], RouteHandle(i));
    model[keys[i]] = RouteHandle(i);
  }
  expectSameAs(table, model, keys);

  std::mt19937 rng(7);
  for (int step = 0; step < 3000; ++step) {
    auto const& key = keys[rng() % keys.size()];
    if (rng() % 3 == 0) {
      EXPECT_EQ(table.erase(key), model.erase(key) == 1) << key;
    } else {
      RouteHandle const handle(rng() % 1000);
      table.set(key, handle);
      model[key] = handle;
    }
    if (step % 100 == 0) expectSameAs(table, model, keys);
  }
  expectSameAs(table, model, keys);

  for (auto const& key : keys) {
    EXPECT_EQ(table.erase(key), model.erase(key) == 1) << key;
    table.prefetch(key);  // a hint on an absent key changes nothing
  }
  EXPECT_TRUE(table.empty());
  expectSameAs(table, model, keys);
}

}  // namespace
