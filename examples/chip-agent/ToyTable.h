#pragma once
// ToyTable: the "hardware" of the example agent. One chip's two tables,
// kept in memory where a real agent would write its chip through the
// vendor's SDK:
// - the replication table: entries keyed by index (from 1 up), each the
//   list of (port, VLAN) outputs it copies a packet to;
// - the route table: routes keyed by handle (from 1 up), each naming its
//   VRF, its (source, group) key, its accepting VLAN and the replication
//   entry it forwards through.
// Both have a fixed capacity, so the example can show a full table.
//
// A write that no well-behaved library would ask for (an unknown handle or
// index, an entry freed while routes still use it) is not a crash here: it
// is recorded in problems(), and the example fails when any is recorded.
#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ToyChip {

class ToyTable {
 public:
  // The answer of a table that had no room.
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  struct Route {
    std::uint32_t vrfId = 0;
    std::string key;     // "(10.0.0.1/32, 239.1.1.1/32)"
    std::uint16_t acceptingVlan = 0;
    std::uint32_t entry = 0;  // 0: forwards through no entry yet
    bool boundary = false;    // a boundary entry: bridged, never routed
  };

  ToyTable(std::size_t routeCapacity, std::size_t entryCapacity)
      : routeCapacity_(routeCapacity), entryCapacity_(entryCapacity) {}

  // A new entry replicating to `outputs`; its index, kNone when full.
  std::uint32_t entryAdd(std::string outputs);
  // An entry under a chosen index (a fixed group); false when the index is
  // taken or the table full.
  bool entryAddAt(std::uint32_t index, std::string outputs);
  // Rewrites a live entry in place: every route through it follows at once.
  void entryWrite(std::uint32_t index, std::string outputs);
  void entryDel(std::uint32_t index);
  bool entriesFull() const { return entries_.size() >= entryCapacity_; }
  std::map<std::uint32_t, std::string> const& entries() const { return entries_; }

  // A new route; its handle, kNone when full.
  std::uint32_t routeAdd(Route route);
  void routeEntryIs(std::uint32_t handle, std::uint32_t entry);
  void routeDel(std::uint32_t handle);
  bool routesFull() const { return routes_.size() >= routeCapacity_; }
  std::map<std::uint32_t, Route> const& routes() const { return routes_; }
  // The handle of the route with this key, kNone when there is none.
  std::uint32_t routeHandle(std::string_view key) const;

  // Every write that should not have happened, every difference the
  // agent's verification found (problemIs), and every route that forwards
  // through an entry that is not there, as readable lines.
  std::vector<std::string> problems() const;
  void problemIs(std::string problem) { badWrites_.push_back(std::move(problem)); }

  void print(std::ostream& os) const;

 private:
  std::size_t routeCapacity_;
  std::size_t entryCapacity_;
  std::map<std::uint32_t, std::string> entries_;
  std::map<std::uint32_t, Route> routes_;
  std::uint32_t nextEntry_ = 1;
  std::uint32_t nextHandle_ = 1;
  std::vector<std::string> badWrites_;
};

}  // namespace ToyChip
