#include "kernel/MrouteCache.h"

#include <arpa/inet.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace FalKernel {

namespace {

std::vector<std::string> lines(std::string_view text) {
  std::vector<std::string> out;
  std::istringstream in{std::string(text)};
  for (std::string line; std::getline(in, line);) {
    if (line.find_first_not_of(" \t") != std::string::npos) out.push_back(line);
  }
  return out;
}

[[noreturn]] void bad(std::string const& line, char const* what) {
  throw std::invalid_argument(std::string("multicast cache line \"") + line + "\": " + what);
}

// An IPv4 address as the kernel prints it: the network-order word in hex,
// read as a host-order number.
Netcore::IpGenAddr v4Hex(std::string const& token, std::string const& line) {
  std::size_t used = 0;
  unsigned long value = 0;
  try {
    value = std::stoul(token, &used, 16);
  } catch (std::exception const&) {
    bad(line, "an address is not hexadecimal");
  }
  if (used != token.size() || token.size() != 8) bad(line, "an address is not 8 hexadecimal digits");
  auto const word = static_cast<std::uint32_t>(value);
  in_addr a{};
  std::memcpy(&a.s_addr, &word, 4);
  return Netcore::IpGenAddr::v4(ntohl(a.s_addr));
}

Netcore::IpGenAddr v6Text(std::string const& token, std::string const& line) {
  in6_addr a{};
  if (inet_pton(AF_INET6, token.c_str(), &a) != 1) bad(line, "an address is not IPv6");
  std::array<std::uint8_t, 16> bytes{};
  std::memcpy(bytes.data(), a.s6_addr, 16);
  return Netcore::IpGenAddr::v6(bytes);
}

std::string fileText(std::string const& path) {
  std::ifstream in(path);
  if (!in) throw std::system_error(errno, std::generic_category(), "open " + path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

std::vector<MrouteCache::Entry> MrouteCache::parseCache(std::string_view text, Netcore::AddressFamily af) {
  std::vector<Entry> out;
  auto const all = lines(text);
  for (std::size_t i = 1; i < all.size(); ++i) {  // the first line names the columns
    std::istringstream in(all[i]);
    std::string group, origin;
    long iif = -1;
    if (!(in >> group >> origin >> iif)) bad(all[i], "expected group, origin and incoming VIF");
    if (iif < 0) continue;  // unresolved
    Entry e;
    bool const v6 = af == Netcore::AddressFamily::ipv6;
    e.group = v6 ? v6Text(group, all[i]) : v4Hex(group, all[i]);
    e.origin = v6 ? v6Text(origin, all[i]) : v4Hex(origin, all[i]);
    e.iif = static_cast<int>(iif);
    if (!(in >> e.packets >> e.bytes >> e.wrongIf)) bad(all[i], "expected packet, byte and wrong-interface counts");
    for (std::string oif; in >> oif;) {
      std::size_t const colon = oif.find(':');
      if (colon == std::string::npos || colon == 0) bad(all[i], "an output is not VIF:TTL");
      try {
        e.oifs.insert(std::stoi(oif.substr(0, colon)));
      } catch (std::exception const&) {
        bad(all[i], "an output VIF is not a number");
      }
    }
    out.push_back(std::move(e));
  }
  return out;
}

std::map<int, std::string> MrouteCache::parseVifs(std::string_view text) {
  std::map<int, std::string> out;
  auto const all = lines(text);
  for (std::size_t i = 1; i < all.size(); ++i) {
    std::istringstream in(all[i]);
    int vif = -1;
    std::string name;
    if (!(in >> vif >> name) || vif < 0) bad(all[i], "expected a VIF number and a device name");
    out[vif] = name;
  }
  return out;
}

std::vector<MrouteCache::Entry> MrouteCache::read(KernelNetns const& netns, Netcore::AddressFamily af) {
  bool const v6 = af == Netcore::AddressFamily::ipv6;
  std::string cacheText, vifText;
  {
    KernelNetns::Inside inside(netns);
    cacheText = fileText(v6 ? "/proc/net/ip6_mr_cache" : "/proc/net/ip_mr_cache");
    vifText = fileText(v6 ? "/proc/net/ip6_mr_vif" : "/proc/net/ip_mr_vif");
  }
  auto entries = parseCache(cacheText, af);
  auto const vifs = parseVifs(vifText);
  auto name = [&](int vif) {
    auto it = vifs.find(vif);
    return it == vifs.end() ? "vif" + std::to_string(vif) : it->second;
  };
  for (auto& e : entries) {
    e.iifName = name(e.iif);
    for (int o : e.oifs) e.oifNames.insert(name(o));
  }
  return entries;
}

}  // namespace FalKernel
