#pragma once
// FalKernel::LinkTable: the network interfaces of the source namespace by
// kernel index, as the last link dump and notifications left them.
#include <cstddef>

#include "absl/container/flat_hash_map.h"
#include "kernel/netlink/LinkEntry.h"

namespace FalKernel {

class LinkTable {
 public:
  LinkEntry const* link(int index) const {
    auto it = link_.find(index);
    return it == link_.end() ? nullptr : &it->second;
  }
  // Returns whether anything changed.
  bool linkIs(LinkEntry l) {
    auto [it, added] = link_.try_emplace(l.index, l);
    if (added) return true;
    if (it->second == l) return false;
    it->second = std::move(l);
    return true;
  }
  bool linkDel(int index) { return link_.erase(index) > 0; }
  void linkDelAll() { link_.clear(); }
  std::size_t size() const { return link_.size(); }
  auto begin() const { return link_.begin(); }
  auto end() const { return link_.end(); }

 private:
  absl::flat_hash_map<int, LinkEntry> link_;
};

}  // namespace FalKernel
