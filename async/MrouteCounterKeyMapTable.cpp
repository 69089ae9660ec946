#include "async/MrouteCounterKeyMapTable.h"

namespace Fal::Mroute {
namespace {
using Notifiee = MrouteCounterKeyMapTable::Notifiee;
constexpr auto kOnKey = static_cast<void (Notifiee::*)(MrouteCounterKey const&)>(&Notifiee::onMrouteCounterKeyMapEntry);
constexpr auto kOnCollection = static_cast<void (Notifiee::*)()>(&Notifiee::onMrouteCounterKeyMapEntry);
}  // namespace

void MrouteCounterKeyMapTableZeroReferencesNotifiee::onZeroReferences(MrouteCounterKeyMapTable const& table) const {
  if (auto const& control = table.mrouteCounterKeyMapEntryControl()) control->collectionReleaseIs(&table);
}

MrouteCounterKeyMapTable::MrouteCounterKeyMapTable(Vex::Name name) : name_(std::move(name)) {}

bool MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryIs(MrouteCounterKeyMapEntry const& entry) {
  auto const result = rows_.set(entry);
  if (result == Memtab::SetResult::inserted || result == Memtab::SetResult::replaced) mrouteCounterKeyMapEntryNotify(entry.key);
  return result != Memtab::SetResult::full;
}

bool MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryCommit(MrouteCounterKeyMapEntry const& entry) {
  return rows_.set(entry) != Memtab::SetResult::full;
}

bool MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryDel(MrouteCounterKey const& key) {
  MrouteCounterKey const k = key;  // key may live in a row the caller holds
  if (!rows_.erase(k)) return false;
  mrouteCounterKeyMapEntryNotify(k);
  return true;
}

std::uint32_t MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryDelAll() {
  std::uint32_t removed = 0;
  for (auto const& entry : rows_.snapshot()) removed += mrouteCounterKeyMapEntryDel(entry.key) ? 1 : 0;
  return removed;
}

void MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryNotify(MrouteCounterKey const& key) const {
  if (notificationsActive_) notify(kOnKey, key);
}

void MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryNotifyCollection() const {
  if (notificationsActive_) notify(kOnCollection);
}

void MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryNotifyMountStatus() const {
  if (notificationsActive_) notify(&Notifiee::onMrouteCounterKeyMapEntryMountStatus);
}

void MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryNotifyQuiesced() const {
  if (notificationsActive_) notify(&Notifiee::onMrouteCounterKeyMapEntryQuiesced);
}

void MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryRefresh() {
  auto const changes = rows_.refresh();
  if (changes.mountStatus) mrouteCounterKeyMapEntryNotifyMountStatus();
  if (changes.quiesced) mrouteCounterKeyMapEntryNotifyQuiesced();
  for (auto const& key : changes.keys) mrouteCounterKeyMapEntryNotify(key);
  if (changes.collection) mrouteCounterKeyMapEntryNotifyCollection();
}

void MrouteCounterKeyMapTable::mrouteCounterKeyMapEntryControlIs(Vex::Ptr<Memtab::CollectionControl> const& control) {
  if (control == rows_.control()) return;
  rows_.controlIs(control, MrouteCounterConstants::maxCounterTableSize);
  if (!notificationsActive_) return;
  notifyImmediate(&Notifiee::onMrouteCounterKeyMapEntryControlImmediate);
  notify(&Notifiee::onMrouteCounterKeyMapEntryControl);
}

void MrouteCounterKeyMapTable::zeroReferencesIs() { zeroReferencesNotifiee_.onZeroReferences(*this); }

Vex::Ptr<MrouteCounterKeyMapTable> mrouteCounterKeyMapTableFactory(Vex::Name name) {
  auto table = Vex::make<MrouteCounterKeyMapTable>(std::move(name));
  table->notificationsActiveIs(true);
  return table;
}

}  // namespace Fal::Mroute
