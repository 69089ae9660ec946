// mroute-probe: sends one real UDP multicast packet into a kernel chip's
// input and says on which of the chip's outputs its copies came out, for a
// kernel chip whose devices are in an existing, named namespace (mroute-agent
// with "backend": "kernel" and "namespace").
//
// The packet goes onto the send end of the chip's input for (VRF id, VLAN)
// and the copies are captured on the capture ends of its outputs; each
// output is printed as the port and VLAN it stands for ("Ethernet2.200").
// Exit status: 0 when the packet was sent (and, with --expect, its copies
// came out exactly there), 1 when the copies differ from --expect, 2 when it
// cannot be sent (no such namespace, no such input yet, no privilege).
#include <CLI/CLI.hpp>

#include <cstring>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <net/if.h>

#include "kernel/KernelNetns.h"
#include "kernel/PacketProbe.h"
#include "kernel/VethPorts.h"
#include "platform/mroutelib/PortVlan.h"

namespace {

constexpr int kExitNotAsExpected = 1;
constexpr int kExitCannotSend = 2;

// "EthernetP.V" for a capture end "capPvV" (and "capP" untagged); empty
// for any other device.
std::string outputOf(std::string const& device) {
  if (device.rfind("cap", 0) != 0) return {};
  std::string rest = device.substr(3);
  auto const v = rest.find('v');
  return "Ethernet" + (v == std::string::npos ? rest : rest.substr(0, v) + "." + rest.substr(v + 1));
}

std::string joined(std::set<std::string> const& s) {
  if (s.empty()) return "(none)";
  std::string out;
  for (auto const& x : s) out += (out.empty() ? "" : " ") + x;
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Sends one UDP multicast packet into a kernel chip's input and prints the outputs (port.VLAN) its copies\n"
      "came out of. The chip's devices must be in an existing namespace (mroute-agent, \"backend\": \"kernel\",\n"
      "\"namespace\"). Exit status: 0 sent (and as --expect says), 1 not as expected, 2 cannot send.",
      "mroute-probe");
  std::string netns, source, group, expect;
  unsigned vlan = 0, vrfId = 0;
  bool expectGiven = false;
  app.add_option("--netns", netns, "The chip's namespace")->required();
  app.add_option("--vlan", vlan, "The VLAN the packet arrives on")->required()->check(CLI::Range(1, 4094));
  app.add_option("--vrf-id", vrfId, "The VRF id of the input (0 by default)")->check(CLI::Range(0, 65535));
  app.add_option("--source", source, "Source address")->required();
  app.add_option("--group", group, "Group address")->required();
  auto* e = app.add_option("--expect", expect, "The outputs expected, comma separated (\"Ethernet2.200,Ethernet3.200\"; "
                                               "empty: none)");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& err) {
    int const rc = app.exit(err);
    return rc == 0 ? 0 : kExitCannotSend;
  }
  expectGiven = e->count() > 0;

  std::set<std::string> expected;
  std::stringstream list(expect);
  for (std::string item; std::getline(list, item, ',');) {
    if (!item.empty()) expected.insert(item);
  }
  try {
    Netcore::IpGenAddr const s(source), g(group);
    FalKernel::KernelNetns ns(netns);
    std::string const input = "src" + FalKernel::VethPorts::inputName(static_cast<std::uint16_t>(vrfId),
                                                                      Bridging::VlanIdOrNone(vlan));
    unsigned inputIndex;
    {
      FalKernel::KernelNetns::Inside inside(ns);
      inputIndex = ::if_nametoindex(input.c_str());
    }
    if (inputIndex == 0) {
      std::cerr << "mroute-probe: no input " << input << " in namespace " << netns
                << " (the chip makes it when a route first accepts on VRF " << vrfId << " VLAN " << vlan << ")\n";
      return kExitCannotSend;
    }
    FalKernel::PacketProbe probe(ns);
    if (int const err = probe.send(static_cast<int>(inputIndex), s, g, 1); err != 0) {
      std::cerr << "mroute-probe: cannot send on " << input << ": " << std::strerror(err) << '\n';
      return kExitCannotSend;
    }
    auto isOutput = [&](int ifindex) {
      char name[IF_NAMESIZE] = {};
      FalKernel::KernelNetns::Inside inside(ns);
      return ::if_indextoname(static_cast<unsigned>(ifindex), name) && !outputOf(name).empty();
    };
    std::set<std::string> got;
    for (auto const& c : probe.collect(expected.size(), isOutput)) {
      char name[IF_NAMESIZE] = {};
      FalKernel::KernelNetns::Inside inside(ns);
      if (::if_indextoname(static_cast<unsigned>(c.ifindex), name)) got.insert(outputOf(name));
    }
    std::cout << joined(got) << std::endl;
    if (expectGiven && got != expected) {
      std::cerr << "mroute-probe: expected " << joined(expected) << '\n';
      return kExitNotAsExpected;
    }
    return 0;
  } catch (std::exception const& err) {
    std::cerr << "mroute-probe: " << err.what() << '\n';
    return kExitCannotSend;
  }
}
