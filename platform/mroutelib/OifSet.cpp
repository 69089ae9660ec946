#include "platform/mroutelib/OifSet.h"

#include <utility>

#include "platform/mroutelib/OifSetRegistry.h"

namespace MrouteLib {

namespace {
// Single-threaded, like everything on the event loop.
std::uint64_t nextSerial = 1;
}  // namespace

OifSet::OifSet(OifSetRegistry* owner, PortVlanSet portVlanSet)
    : reachesNoPort_(portVlanSet.reachesNoPort()),
      hash_(portVlanSet.saveHash()),
      owner_(owner),
      serial_(nextSerial++),
      portVlanSet_(std::move(portVlanSet)) {}

bool OifSet::entryIs(void const* owner, void* entry) const {
  if (entryOwner_ && entryOwner_ != owner) return false;
  entryOwner_ = entry ? owner : nullptr;
  entry_ = entry;
  return true;
}

void OifSet::entryDel(void const* owner, void const* entry) const {
  if (entryOwner_ != owner || entry_ != entry) return;
  entryOwner_ = nullptr;
  entry_ = nullptr;
}

OifSet::~OifSet() { leaveOwner(); }

void OifSet::zeroReferencesIs() { leaveOwner(); }

void OifSet::leaveOwner() const {
  if (!owner_) return;
  owner_->oifSetDel(this);
  owner_ = nullptr;
}

OifSetRegistry::~OifSetRegistry() {
  for (auto const* s : sets_) s->owner_ = nullptr;
}

template <class Content>
OifSetPtr OifSetRegistry::findOrMake(Content&& portVlanSet) {
  Probe const probe{&portVlanSet, portVlanSet.hash()};
  if (auto it = sets_.find(probe); it != sets_.end()) return OifSetPtr(*it);
  OifSetPtr s(new OifSet(this, std::forward<Content>(portVlanSet)));
  sets_.insert(s.get());
  return s;
}

OifSetPtr OifSetRegistry::oifSetIs(PortVlanSet const& portVlanSet) { return findOrMake(portVlanSet); }

OifSetPtr OifSetRegistry::oifSetIs(PortVlanSet&& portVlanSet) { return findOrMake(std::move(portVlanSet)); }

OifSetPtr OifSetRegistry::oifSet(PortVlanSet const& portVlanSet) const {
  auto it = sets_.find(Probe{&portVlanSet, portVlanSet.hash()});
  return it == sets_.end() ? OifSetPtr() : OifSetPtr(*it);
}

}  // namespace MrouteLib
