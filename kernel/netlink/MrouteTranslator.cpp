#include "kernel/netlink/MrouteTranslator.h"

#include <linux/if.h>

#include "platform/net/IntfId.h"

namespace FalKernel {

using Netcore::AddressFamily;
using Skip = MrouteTranslator::Skip;

namespace {

SourceMap::Interface const* mapped(int index, LinkTable const& links, SourceMap const& map) {
  LinkEntry const* l = links.link(index);
  return l ? map.interface(l->name) : nullptr;
}

}  // namespace

MrouteTranslator::Result MrouteTranslator::route(MfcEntry const& entry, LinkTable const& links, SourceMap const& map) {
  Result r;
  if (entry.unresolved) {
    r.skip = Skip::unresolved;
    return r;
  }
  L3::VrfName const* vrf = map.vrf(entry.af, entry.table);
  if (!vrf) {
    r.skip = Skip::unmappedTable;
    return r;
  }
  if (entry.group.isZero()) {
    r.skip = Skip::wildcardGroup;
    return r;
  }
  if (entry.iif == 0) {
    r.skip = Skip::noInput;
    return r;
  }
  SourceMap::Interface const* input = mapped(entry.iif, links, map);
  if (!input) {
    r.skip = Skip::unmappedInput;
    return r;
  }
  unsigned const hostLen = Netcore::IpGenPrefix::maxLen(entry.af);
  Netcore::IpGenPrefix const source(entry.source, entry.source.isZero() ? 0 : hostLen);
  MrouteLib::DesiredRoute route(*vrf, {source, Netcore::IpGenPrefix(entry.group, hostLen)});
  Bridging::VlanIdOrNone const vlan = input->portVlan.vlan();
  route.acceptingVlanIs(vlan);
  route.acceptingIntfIdIs(Netcore::IntfId::vlan(vlan.value()));
  MrouteLib::PortVlanSet& outputs = route.outputs();
  for (int oif : entry.oifs) {
    SourceMap::Interface const* out = mapped(oif, links, map);
    if (!out) {
      ++r.outputsUnmapped;
      continue;
    }
    outputs.portVlanIs(out->portVlan);
    if (!out->frrBackups.empty() && outputs.intfId().isEmpty()) {
      outputs.intfIdIs(out->portVlan.port());
      outputs.currentIifIs(out->portVlan.port());
      for (auto const& b : out->frrBackups) outputs.portVlanFrrIs(b);
    }
  }
  r.route = std::move(route);
  return r;
}

Interface::IntfOperStatus MrouteTranslator::operStatus(LinkEntry const& link) {
  if (!link.adminUp) return Interface::intfOperDown;
  switch (link.operState) {
    case IF_OPER_UP:
      return Interface::intfOperUp;
    case IF_OPER_DOWN:
      return Interface::intfOperDown;
    case IF_OPER_LOWERLAYERDOWN:
      return Interface::intfOperLowerLayerDown;
    case IF_OPER_NOTPRESENT:
      return Interface::intfOperNotPresent;
    case IF_OPER_TESTING:
      return Interface::intfOperTesting;
    case IF_OPER_DORMANT:
      return Interface::intfOperDormant;
    default:
      // Devices that do not track carrier (a dummy, a tunnel) say "unknown"
      // while they forward.
      return Interface::intfOperUp;
  }
}

std::ostream& operator<<(std::ostream& os, Skip s) {
  switch (s) {
    case Skip::none:
      return os << "none";
    case Skip::unresolved:
      return os << "unresolved";
    case Skip::unmappedTable:
      return os << "unmapped table";
    case Skip::wildcardGroup:
      return os << "wildcard group";
    case Skip::noInput:
      return os << "no input";
    case Skip::unmappedInput:
      return os << "unmapped input";
  }
  return os << static_cast<int>(s);
}

}  // namespace FalKernel
