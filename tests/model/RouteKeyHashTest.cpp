// Fal::routeKeyHash and Fal::HugePageAllocator, what the route tables key and
// allocate with.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "model/HugePageAllocator.h"
#include "model/RouteKeyHash.h"

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;

IpGenRouteKey key(char const* s, char const* g) { return IpGenRouteKey(Netcore::IpGenPrefix(s), Netcore::IpGenPrefix(g)); }

TEST(RouteKeyHashTest, EqualKeysHashAlikeInEveryFamily) {
  for (auto [s, g] : {std::pair{"10.1.2.3/32", "239.1.1.1/32"}, std::pair{"0.0.0.0/0", "224.0.0.0/4"},
                      std::pair{"2001:db8::1/128", "ff3e::8000:1/128"}}) {
    EXPECT_EQ(Fal::routeKeyHash(key(s, g), 7), Fal::routeKeyHash(key(s, g), 7)) << s << ", " << g;
  }
  // A (*, G) key: the empty source of no family.
  IpGenRouteKey const starG(Netcore::IpGenPrefix(), Netcore::IpGenPrefix("239.1.1.1/32"));
  EXPECT_EQ(Fal::routeKeyHash(starG, 0), Fal::routeKeyHash(IpGenRouteKey(starG), 0));
}

// Keys that differ in one part only, each with the caller's bits that differ
// in one part only: a table keyed by (key, VLAN, VRF) must tell all of them apart.
TEST(RouteKeyHashTest, EveryPartOfKeyAndCallerBitsChangesTheHash) {
  std::vector<std::uint64_t> hashes;
  for (IpGenRouteKey const& k :
       {key("10.1.2.3/32", "239.1.1.1/32"), key("10.1.2.4/32", "239.1.1.1/32"), key("10.1.2.3/32", "239.1.1.2/32"),
        key("10.1.0.0/16", "239.1.1.1/32"), key("10.1.2.3/32", "239.1.0.0/16"), key("0.0.0.0/0", "239.1.1.1/32"),
        IpGenRouteKey(Netcore::IpGenPrefix(), Netcore::IpGenPrefix("239.1.1.1/32")),
        key("::ffff:10.1.2.3/128", "ff3e::1/128"), key("::/0", "ff3e::1/128")}) {
    for (std::uint32_t extra : {0U, 1U, 2U, 1U << 16, 1U << 31}) hashes.push_back(Fal::routeKeyHash(k, extra));
  }
  EXPECT_EQ(std::set<std::uint64_t>(hashes.begin(), hashes.end()).size(), hashes.size());
}

// Both sides of the block size at which huge pages are asked for: the block
// is the caller's whole, and goes back whole.
TEST(HugePageAllocatorTest, SmallAndLargeBlocksHoldWhatIsWritten) {
  for (std::size_t n : {std::size_t{1000}, Fal::HugePageAllocator<std::uint64_t>::kMinBytes / 8 + 4097}) {
    std::vector<std::uint64_t, Fal::HugePageAllocator<std::uint64_t>> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = i * 2654435761U;
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < n; ++i) wrong += v[i] != i * 2654435761U;
    EXPECT_EQ(wrong, 0U) << n << " elements";
  }
}

}  // namespace
