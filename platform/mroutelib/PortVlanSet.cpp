#include "platform/mroutelib/PortVlanSet.h"

#include <sstream>
#include <vector>

#include "platform/vex/HashColl.h"

namespace MrouteLib {

namespace {

// One multiply-xorshift round per element; the final mixHash spreads the
// result over all bits. Each collection is introduced by its size and a tag,
// so an element cannot pass for a member of a neighbouring collection.
class ContentHasher {
 public:
  void add(std::uint64_t v) {
    h_ = (h_ ^ v) * 0xff51afd7ed558ccdULL;
    h_ ^= h_ >> 29;
  }
  std::size_t result() const { return static_cast<std::size_t>(Vex::mixHash(h_)); }

 private:
  std::uint64_t h_ = 0x9E3779B97F4A7C15ULL;
};

template <class C, class Out>
void printList(std::ostream& os, C const& c, Out out) {
  os << '[';
  char const* sep = "";
  for (auto const& v : c) {
    os << sep;
    out(v);
    sep = ", ";
  }
  os << ']';
}

template <class T, class C>
void parseList(Vex::StrepParser& p, C& c) {
  p.expect("[");
  if (p.tryConsume("]")) return;
  do {
    c.push_back(Vex::parseFrom<T>(p));
  } while (p.tryConsume(", "));
  p.expect("]");
}

std::string intfText(Netcore::IntfId i) { return i.isEmpty() ? std::string("none") : i.stringValue(); }

}  // namespace

bool PortVlanSet::portVlan(PortVlan pv) const { return std::binary_search(portVlan_.begin(), portVlan_.end(), pv); }

bool PortVlanSet::portVlanFrr(PortVlan pv) const {
  return std::binary_search(portVlanFrr_.begin(), portVlanFrr_.end(), pv);
}

bool PortVlanSet::natVlan(Bridging::VlanIdOrNone v) const {
  return std::binary_search(natVlan_.begin(), natVlan_.end(), v);
}

std::size_t PortVlanSet::hash() const {
  ContentHasher h;
  h.add(portVlan_.size());
  for (auto pv : portVlan_) h.add(pv.packed());
  h.add((std::uint64_t{1} << 40) | portVlanFrr_.size());
  for (auto pv : portVlanFrr_) h.add(pv.packed());
  h.add((std::uint64_t{2} << 40) | natVlan_.size());
  for (auto v : natVlan_) h.add(v.value());
  h.add(currentIif_.value() | (std::uint64_t{intfId_.value()} << 32));
  h.add(currentIifType_ | (std::uint64_t{notInHw_} << 8) | (std::uint64_t{toCpu_} << 16));
  return h.result();
}

PortVlanSet PortVlanSet::withFrrApplied() const {
  PortVlanSet out = *this;
  if (!intfId_.isEmpty()) {
    auto const failed = intfId_;
    auto kept = std::remove_if(out.portVlan_.begin(), out.portVlan_.end(),
                               [failed](PortVlan pv) { return pv.port() == failed; });
    if (kept != out.portVlan_.end()) {
      out.portVlan_.erase(kept, out.portVlan_.end());
      for (auto pv : portVlanFrr_) out.portVlanIs(pv);
    }
  }
  out.portVlanFrr_.clear();
  out.intfId_ = Netcore::IntfId();
  out.saveHash();
  return out;
}

std::string PortVlanSet::pretty() const {
  std::ostringstream os;
  auto plain = [&os](auto const& v) { os << v; };
  os << "{portVlan: ";
  printList(os, portVlan_, plain);
  os << ", portVlanFrr: ";
  printList(os, portVlanFrr_, plain);
  os << ", natVlan: ";
  printList(os, natVlan_, plain);
  os << ", toCpu: " << (toCpu_ ? "true" : "false") << ", currentIif: " << intfText(currentIif_)
     << ", currentIifType: " << +currentIifType_ << ", intfId: " << intfText(intfId_) << ", notInHw: " << +notInHw_
     << '}';
  return os.str();
}

std::ostream& operator<<(std::ostream& os, PortVlanSet const& s) { return os << s.pretty(); }

void strepOut(std::ostream& os, PortVlanSet const& s) {
  auto strep = [&os](auto const& v) { strepOut(os, v); };
  os << "Value('MrouteLib::PortVlanSet', ** {'portVlan': ";
  printList(os, s.portVlan(), strep);
  os << ", 'portVlanFrr': ";
  printList(os, s.portVlanFrr(), strep);
  os << ", 'natVlan': ";
  printList(os, s.natVlan(), strep);
  os << ", 'toCpu': " << Vex::strep(s.toCpu()) << ", 'currentIif': " << Vex::strep(s.currentIif())
     << ", 'currentIifType': " << Vex::strep(s.currentIifType()) << ", 'intfId': " << Vex::strep(s.intfId())
     << ", 'notInHw': " << Vex::strep(s.notInHw()) << "})";
}

PortVlanSet strepIn(Vex::StrepParser& p, Vex::StrepTag<PortVlanSet>) {
  PortVlanSet s;
  std::vector<PortVlan> pvs;
  std::vector<Bridging::VlanIdOrNone> vlans;
  p.expect("Value('MrouteLib::PortVlanSet', ** {'portVlan': ");
  parseList<PortVlan>(p, pvs);
  for (auto pv : pvs) s.portVlanIs(pv);
  pvs.clear();
  p.expect(", 'portVlanFrr': ");
  parseList<PortVlan>(p, pvs);
  for (auto pv : pvs) s.portVlanFrrIs(pv);
  p.expect(", 'natVlan': ");
  parseList<Bridging::VlanIdOrNone>(p, vlans);
  for (auto v : vlans) s.natVlanIs(v);
  p.expect(", 'toCpu': ");
  s.toCpuIs(Vex::parseFrom<bool>(p));
  p.expect(", 'currentIif': ");
  s.currentIifIs(Vex::parseFrom<Netcore::IntfId>(p));
  p.expect(", 'currentIifType': ");
  s.currentIifTypeIs(Vex::parseFrom<std::uint8_t>(p));
  p.expect(", 'intfId': ");
  s.intfIdIs(Vex::parseFrom<Netcore::IntfId>(p));
  p.expect(", 'notInHw': ");
  s.notInHwIs(Vex::parseFrom<std::uint8_t>(p));
  p.expect("})");
  return s;
}

}  // namespace MrouteLib
