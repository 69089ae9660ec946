#include "kernel/agent/AgentConfig.h"

namespace FalAgent {

FalKernel::SourceMap AgentConfig::sourceMap() const {
  FalKernel::SourceMap map;
  for (auto const& v : vrfs) {
    if (v.ipv4Table) map.vrfIs(Netcore::AddressFamily::ipv4, *v.ipv4Table, v.name);
    if (v.ipv6Table) map.vrfIs(Netcore::AddressFamily::ipv6, *v.ipv6Table, v.name);
  }
  for (auto const& [name, i] : interfaces) map.interfaceIs(name, i);
  return map;
}

std::vector<std::string> AgentConfig::restartNeeded(AgentConfig const& other) const {
  std::vector<std::string> fields;
  if (sourceNamespace != other.sourceNamespace || receiveBuffer != other.receiveBuffer) fields.push_back("source");
  if (vrfs != other.vrfs) fields.push_back("vrfs");
  if (chips != other.chips) fields.push_back("chips");
  if (countersPublishedAs != other.countersPublishedAs) fields.push_back("counters.publish");
  return fields;
}

}  // namespace FalAgent
