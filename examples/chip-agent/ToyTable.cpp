#include "ToyTable.h"

namespace ToyChip {

std::uint32_t ToyTable::entryAdd(std::string outputs) {
  if (entriesFull()) return kNone;
  std::uint32_t const index = nextEntry_++;
  entries_.emplace(index, std::move(outputs));
  return index;
}

bool ToyTable::entryAddAt(std::uint32_t index, std::string outputs) {
  if (entriesFull() || entries_.contains(index)) return false;
  entries_.emplace(index, std::move(outputs));
  return true;
}

void ToyTable::entryWrite(std::uint32_t index, std::string outputs) {
  auto it = entries_.find(index);
  if (it == entries_.end()) {
    badWrites_.push_back("rewrite of absent entry " + std::to_string(index));
    return;
  }
  it->second = std::move(outputs);
}

void ToyTable::entryDel(std::uint32_t index) {
  if (entries_.erase(index) == 0) {
    badWrites_.push_back("free of absent entry " + std::to_string(index));
    return;
  }
  for (auto const& [handle, route] : routes_) {
    if (route.entry == index) {
      badWrites_.push_back("entry " + std::to_string(index) + " freed while route " + std::to_string(handle) +
                           " forwards through it");
    }
  }
}

std::uint32_t ToyTable::routeAdd(Route route) {
  if (routesFull()) return kNone;
  std::uint32_t const handle = nextHandle_++;
  routes_.emplace(handle, std::move(route));
  return handle;
}

void ToyTable::routeEntryIs(std::uint32_t handle, std::uint32_t entry) {
  auto it = routes_.find(handle);
  if (it == routes_.end()) {
    badWrites_.push_back("rebind of absent route " + std::to_string(handle));
    return;
  }
  it->second.entry = entry;
}

void ToyTable::routeDel(std::uint32_t handle) {
  if (routes_.erase(handle) == 0) badWrites_.push_back("delete of absent route " + std::to_string(handle));
}

std::uint32_t ToyTable::routeHandle(std::string_view key) const {
  for (auto const& [handle, route] : routes_) {
    if (route.key == key) return handle;
  }
  return kNone;
}

std::vector<std::string> ToyTable::problems() const {
  std::vector<std::string> found = badWrites_;
  for (auto const& [handle, route] : routes_) {
    if (route.entry != 0 && !entries_.contains(route.entry)) {
      found.push_back("route " + std::to_string(handle) + " " + route.key + " forwards through absent entry " +
                      std::to_string(route.entry));
    }
  }
  return found;
}

void ToyTable::print(std::ostream& os) const {
  os << "  routes (" << routes_.size() << "):\n";
  for (auto const& [handle, r] : routes_) {
    os << "    #" << handle << " vrf " << r.vrfId << " " << r.key << " vlan " << r.acceptingVlan;
    if (r.boundary) {
      os << " boundary\n";
    } else {
      os << " -> entry " << r.entry << "\n";
    }
  }
  os << "  replication entries (" << entries_.size() << "):\n";
  for (auto const& [index, outputs] : entries_) os << "    " << index << ": " << outputs << "\n";
}

}  // namespace ToyChip
