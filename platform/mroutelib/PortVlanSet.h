#pragma once
// The outputs of an OIF set, as a plain value.
//
// Three collections, each kept sorted and free of duplicates:
// - portVlan: the (port, VLAN) outputs the set replicates to;
// - portVlanFrr: fast-reroute (FRR) backup outputs, used instead of the
//   outputs on the protected interface `intfId` once the set's current
//   incoming interface `currentIif` goes down (see withFrrApplied);
// - natVlan: VLANs the traffic is translated into.
// and the scalars toCpu (a copy goes to the CPU), currentIif and its type,
// intfId (the FRR protected interface; the empty id means no FRR), and
// notInHw (kNotInHw, 1, when the set is not used in hardware).
//
// Every field but the saved hash defines the set's identity: equality and
// hash() cover them all, so two sets that differ only in their FRR outputs or
// NAT VLANs are different sets and get different OifSets. The saved hash is
// a cache that saveHash() fills; it is copied along but never compared.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

#include "absl/container/inlined_vector.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/net/IntfId.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace MrouteLib {

class FALMROUTE_EXPORT PortVlanSet {
 public:
  // Small sets, the common case, live inside the object: a lookup of a
  // shared set then reads one object instead of chasing one heap block per
  // collection.
  using PortVlanColl = absl::InlinedVector<PortVlan, 4>;
  using NatVlanColl = absl::InlinedVector<Bridging::VlanIdOrNone, 4>;
  // The notInHw value of a set that hardware does not use.
  static constexpr std::uint8_t kNotInHw = 1;

  PortVlanSet() = default;

  // Outputs. portVlan(pv) tells whether pv is one of them.
  PortVlanColl const& portVlan() const { return portVlan_; }
  bool portVlan(PortVlan pv) const;
  void portVlanIs(PortVlan pv) { insertSorted(portVlan_, pv); }
  void portVlanDel(PortVlan pv) { eraseSorted(portVlan_, pv); }
  void portVlanDelAll() { portVlan_.clear(); }
  std::size_t portVlanSize() const { return portVlan_.size(); }
  std::size_t portVlans() const { return portVlan_.size(); }

  // Fast-reroute backup outputs.
  PortVlanColl const& portVlanFrr() const { return portVlanFrr_; }
  bool portVlanFrr(PortVlan pv) const;
  void portVlanFrrIs(PortVlan pv) { insertSorted(portVlanFrr_, pv); }
  void portVlanFrrDel(PortVlan pv) { eraseSorted(portVlanFrr_, pv); }
  void portVlanFrrDelAll() { portVlanFrr_.clear(); }
  std::size_t portVlanFrrSize() const { return portVlanFrr_.size(); }
  std::size_t portVlanFrrs() const { return portVlanFrr_.size(); }

  // NAT VLANs.
  NatVlanColl const& natVlan() const { return natVlan_; }
  bool natVlan(Bridging::VlanIdOrNone v) const;
  void natVlanIs(Bridging::VlanIdOrNone v) { insertSorted(natVlan_, v); }
  void natVlanDel(Bridging::VlanIdOrNone v) { eraseSorted(natVlan_, v); }
  void natVlanDelAll() { natVlan_.clear(); }
  std::size_t natVlanSize() const { return natVlan_.size(); }
  std::size_t natVlans() const { return natVlan_.size(); }

  Netcore::IntfId currentIif() const { return currentIif_; }
  void currentIifIs(Netcore::IntfId intf) { currentIif_ = intf; }
  std::uint8_t currentIifType() const { return currentIifType_; }
  void currentIifTypeIs(std::uint8_t t) { currentIifType_ = t; }
  Netcore::IntfId intfId() const { return intfId_; }
  void intfIdIs(Netcore::IntfId intf) { intfId_ = intf; }
  bool toCpu() const { return toCpu_; }
  void toCpuIs(bool toCpu) { toCpu_ = toCpu; }
  std::uint8_t notInHw() const { return notInHw_; }
  void notInHwIs(std::uint8_t v) { notInHw_ = v; }
  bool usedInHw() const { return notInHw_ != kNotInHw; }

  // No output of any kind: no port-VLANs, no FRR outputs, no NAT VLANs and
  // nothing to the CPU.
  bool empty() const { return portVlan_.empty() && portVlanFrr_.empty() && natVlan_.empty() && !toCpu_; }
  // No output to any port: no port-VLANs, no FRR outputs, no NAT VLANs (a
  // copy to the CPU may remain). A chip programs such a set without an entry
  // of its own, so it is never shared nor refused.
  bool reachesNoPort() const { return portVlan_.empty() && portVlanFrr_.empty() && natVlan_.empty(); }

  // A hash of the content (every field but the saved hash), well mixed in
  // all bits so it can key a hash table as it is.
  std::size_t hash() const;
  // Computes the hash, keeps it as savedHash() and returns it.
  std::size_t saveHash() { return savedHash_ = hash(); }
  // The hash the last saveHash() computed (0 before any). Not refreshed by
  // the mutators: save again after changing the set.
  std::size_t savedHash() const { return savedHash_; }

  // The set as it must be programmed once currentIif() has failed. Rule:
  // - when at least one output leaves through the protected interface
  //   intfId(), all outputs on that interface are removed and every FRR
  //   backup output is added in their place (a backup already among the
  //   outputs stays once);
  // - a set without a protected interface, or with no output on it, keeps
  //   its outputs as they are;
  // - in every case the result has no FRR outputs and no protected interface:
  //   the backups are in use and nothing protects them, so applying FRR to
  //   the result again changes nothing.
  // All other fields are kept; the result's hash is saved.
  PortVlanSet withFrrApplied() const;

  // Readable text of every member, for traces: "{portVlan: [Ethernet1.100],
  // portVlanFrr: [], natVlan: [], toCpu: false, currentIif: Ethernet5,
  // currentIifType: 0, intfId: none, notInHw: 0}".
  std::string pretty() const;

  friend bool operator==(PortVlanSet const& a, PortVlanSet const& b) {
    return a.toCpu_ == b.toCpu_ && a.currentIif_ == b.currentIif_ && a.intfId_ == b.intfId_ &&
           a.currentIifType_ == b.currentIifType_ && a.notInHw_ == b.notInHw_ && a.portVlan_ == b.portVlan_ &&
           a.portVlanFrr_ == b.portVlanFrr_ && a.natVlan_ == b.natVlan_;
  }
  template <typename H>
  friend H AbslHashValue(H h, PortVlanSet const& s) {
    return H::combine(std::move(h), s.hash());
  }

 private:
  template <class C, class V>
  static void insertSorted(C& c, V const& v);
  template <class C, class V>
  static void eraseSorted(C& c, V const& v);

  // Scalars first: equality compares them before the collections.
  std::size_t savedHash_ = 0;
  Netcore::IntfId currentIif_;
  Netcore::IntfId intfId_;
  std::uint8_t currentIifType_ = 0;
  std::uint8_t notInHw_ = 0;
  bool toCpu_ = false;
  PortVlanColl portVlan_;
  PortVlanColl portVlanFrr_;
  NatVlanColl natVlan_;
};

FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, PortVlanSet const& s);
// "Value('MrouteLib::PortVlanSet', ** {'portVlan': [...], 'portVlanFrr': [...],
// 'natVlan': [...], 'toCpu': False, 'currentIif': '', 'currentIifType': 0,
// 'intfId': '', 'notInHw': 0})", each member in its own strep form.
FALMROUTE_EXPORT void strepOut(std::ostream& os, PortVlanSet const& s);
FALMROUTE_EXPORT PortVlanSet strepIn(Vex::StrepParser& p, Vex::StrepTag<PortVlanSet>);

template <class C, class V>
void PortVlanSet::insertSorted(C& c, V const& v) {
  auto it = std::lower_bound(c.begin(), c.end(), v);
  if (it != c.end() && *it == v) return;
  c.insert(it, v);
}

template <class C, class V>
void PortVlanSet::eraseSorted(C& c, V const& v) {
  auto it = std::lower_bound(c.begin(), c.end(), v);
  if (it != c.end() && *it == v) c.erase(it);
}

}  // namespace MrouteLib

template <>
struct FALMROUTE_EXPORT std::hash<MrouteLib::PortVlanSet> {
  std::size_t operator()(MrouteLib::PortVlanSet const& s) const noexcept { return s.hash(); }
};
