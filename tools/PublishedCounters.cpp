#include "tools/PublishedCounters.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "platform/memtab/Segment.h"

namespace FalTools {

using Memtab::CollectionControl;
using Memtab::Mode;

// Notes that something changed, as each table's reactor is told.
class PublishedCounters::Watch {
 public:
  struct Status : Routing::Multicast::Fib::CounterStatus::Notifiee {
    bool* changed;
    void onCounter() override { *changed = true; }
    void onMountStatus() override { *changed = true; }
  };
  struct KeyMap : Fal::Mroute::MrouteCounterKeyMapTable::Notifiee {
    bool* changed;
    void onMrouteCounterKeyMapEntry() override { *changed = true; }
    void onMrouteCounterKeyMapEntryMountStatus() override { *changed = true; }
  };
  Status status;
  KeyMap keyMap;
  bool changed = true;
};

PublishedCounters::PublishedCounters(std::string base)
    : base_(std::move(base)),
      counterStatus_(Vex::make<Routing::Multicast::Fib::CounterStatus>(
          CollectionControl::collectionControlIs(counterStatusName(), Mode::reader))),
      counterKeyMap_(Fal::Mroute::mrouteCounterKeyMapTableFactory(counterKeyMapName())),
      watch_(std::make_unique<Watch>()) {
  counterKeyMap_->mrouteCounterKeyMapEntryControlIs(CollectionControl::collectionControlIs(counterKeyMapName(), Mode::reader));
  watch_->status.changed = &watch_->changed;
  watch_->keyMap.changed = &watch_->changed;
  watch_->status.notifierIs(counterStatus_);
  watch_->keyMap.notifierIs(counterKeyMap_);
}

PublishedCounters::~PublishedCounters() = default;

bool PublishedCounters::refresh() {
  counterStatus_->refresh();
  counterKeyMap_->mrouteCounterKeyMapEntryRefresh();
  return std::exchange(watch_->changed, false);
}

std::vector<std::string> publishedBases() {
  std::set<std::string> bases;
  std::error_code ec;
  for (auto const& e : std::filesystem::directory_iterator(Memtab::kShmDir, ec)) {
    std::string const file = e.path().filename().string();
    if (file.rfind(Memtab::kShmPrefix, 0) != 0) continue;
    std::string_view name(file);
    name.remove_prefix(Memtab::kShmPrefix.size());
    for (auto suffix : {PublishedCounters::kCounterStatusSuffix, PublishedCounters::kCounterKeyMapSuffix}) {
      if (name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix)
        bases.insert(std::string(name.substr(0, name.size() - suffix.size())));
    }
  }
  return {bases.begin(), bases.end()};
}

}  // namespace FalTools
