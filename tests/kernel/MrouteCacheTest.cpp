// Reading the kernel's multicast cache back: the text of /proc/net parsed
// into entries, without a namespace.
#include <gtest/gtest.h>

#include <stdexcept>

#include "kernel/MrouteCache.h"

namespace FalKernelTest {
namespace {

using FalKernel::MrouteCache;
using Netcore::AddressFamily;
using Netcore::IpGenAddr;

TEST(MrouteCacheTest, ParsesResolvedIpv4EntriesAndSkipsUnresolvedOnes) {
  // As the kernel prints it on a little-endian host: 239.168.1.1 from 192.0.2.10.
  char const* const text =
      "Group    Origin   Iif     Pkts    Bytes    Wrong Oifs\n"
      "0101A8EF 0A0200C0 2          3      252        1  0:1    1:1   \n"
      "0201A8EF 0B0200C0 -1         0        0        0\n"
      "0301A8EF 00000000 4          0        0        0  4:1    7:1   \n";
  auto const entries = MrouteCache::parseCache(text, AddressFamily::ipv4);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].group, IpGenAddr("239.168.1.1"));
  EXPECT_EQ(entries[0].origin, IpGenAddr("192.0.2.10"));
  EXPECT_EQ(entries[0].iif, 2);
  EXPECT_EQ(entries[0].oifs, (std::set<int>{0, 1}));
  EXPECT_EQ(entries[0].packets, 3u);
  EXPECT_EQ(entries[0].bytes, 252u);
  EXPECT_EQ(entries[0].wrongIf, 1u);
  EXPECT_EQ(entries[1].origin, IpGenAddr("0.0.0.0"));
  EXPECT_EQ(entries[1].oifs, (std::set<int>{4, 7}));
}

TEST(MrouteCacheTest, ParsesIpv6EntriesAndVifNames) {
  char const* const cache =
      "Group                            Origin                           Iif      Pkts  Bytes     Wrong  Oifs\n"
      "ff3e:0000:0000:0000:0000:0000:0001:0001 2001:0db8:0000:0000:0000:0000:0000:0010 2          4      448        3  "
      "0:1    1:1  \n";
  auto const entries = MrouteCache::parseCache(cache, AddressFamily::ipv6);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].group, IpGenAddr("ff3e::1:1"));
  EXPECT_EQ(entries[0].origin, IpGenAddr("2001:db8::10"));
  EXPECT_EQ(entries[0].oifs, (std::set<int>{0, 1}));

  char const* const vifs =
      "Interface      BytesIn  PktsIn  BytesOut PktsOut Flags\n"
      " 0 out1v200          0       0       224       2 00000\n"
      " 2 in0v100         224       2         0       0 00000\n";
  EXPECT_EQ(MrouteCache::parseVifs(vifs), (std::map<int, std::string>{{0, "out1v200"}, {2, "in0v100"}}));
}

TEST(MrouteCacheTest, MalformedLinesAreRefusedNamingTheLine) {
  char const* const header = "Group    Origin   Iif     Pkts    Bytes    Wrong Oifs\n";
  for (char const* line : {"0101A8EF 0A0200C0\n", "0101A8 0A0200C0 2 0 0 0\n", "0101A8EF 0A0200C0 2 0 0 0 x:1\n",
                           "0101A8EF 0A0200C0 2 zero 0 0\n"}) {
    try {
      MrouteCache::parseCache(std::string(header) + line, AddressFamily::ipv4);
      ADD_FAILURE() << "accepted: " << line;
    } catch (std::invalid_argument const& e) {
      EXPECT_NE(std::string(e.what()).find(std::string(line, std::string(line).size() - 1)), std::string::npos) << e.what();
    }
  }
}

}  // namespace
}  // namespace FalKernelTest
