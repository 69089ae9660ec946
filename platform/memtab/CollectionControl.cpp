#include "platform/memtab/CollectionControl.h"

#include "platform/memtab/Header.h"
#include "platform/vex/Assert.h"

namespace Vex {

EnumType const& EnumTraits<Memtab::Mode>::type() {
  static EnumType const t("Memtab::Mode", {{0, "writer"}, {1, "reader"}, {2, "keyshadow"}});
  return t;
}

EnumType const& EnumTraits<Memtab::MountStatus>::type() {
  static EnumType const t("Memtab::MountStatus", {{0, "unmounted"}, {1, "mounted"}});
  return t;
}

}  // namespace Vex

namespace Memtab {
namespace {
[[maybe_unused]] auto const& kModeRegistered = Vex::EnumTraits<Mode>::type();
[[maybe_unused]] auto const& kMountStatusRegistered = Vex::EnumTraits<MountStatus>::type();
}  // namespace

Vex::Ptr<CollectionControl> CollectionControl::collectionControlIs(Vex::Name name, Mode mode) {
  return Vex::Ptr<CollectionControl>(new CollectionControl(std::move(name), mode));
}

Vex::Ptr<CollectionControl> CollectionControl::privateCollectionControlIs() {
  return Vex::Ptr<CollectionControl>(new CollectionControl("", Mode::writer));
}

CollectionControl::~CollectionControl() = default;

std::string CollectionControl::path() const { return name_.empty() ? std::string() : shmPath(name_); }

void* CollectionControl::mappingIs(std::size_t bytes) {
  if (segment_.mapped()) mappingDel();
  error_.clear();
  if (!writable()) {
    segment_ = Segment::open(name_, &error_);
  } else if (name_.empty()) {
    segment_ = Segment::anonymous(bytes, &error_);
  } else {
    segment_ = Segment::create(name_, bytes, &headerOwnerPid, &error_);
    if (!segment_.mapped()) {
      std::string why = std::move(error_);
      segment_ = Segment::anonymous(bytes, &error_);
      error_ = std::string("not published (") + why + "); the table is private to this process";
    }
  }
  mountStatusIs(segment_.mapped() ? MountStatus::mounted : MountStatus::unmounted);
  return segment_.data();
}

bool CollectionControl::stale() const {
  if (writable() || !segment_.mapped()) return false;
  auto const* h = static_cast<Header const*>(segment_.data());
  return (headerState(*h) & kStateMounted) == 0 || segment_.unlinked();
}

void CollectionControl::mappingDel() {
  if (!segment_.mapped()) return;
  if (writable()) headerStateIs(*static_cast<Header*>(segment_.data()), kStateMounted, false);
  segment_.close();
  mountStatusIs(MountStatus::unmounted);
}

void CollectionControl::collectionReleaseIs(Vex::Ptr<Vex::Entity const> const& collection) {
  Vex::Ptr<Vex::Entity const> const holding = collection;
  ++collectionsReleased_;
  mappingDel();
}

void CollectionControl::collectionAttach(char const* collectionType) {
  VEX_ASSERT_MSG(!attached_, std::string("Memtab::CollectionControl '") + name_ + "' already serves a collection; " +
                                 collectionType + " needs a control of its own");
  attached_ = true;
}

void CollectionControl::mountStatusIs(MountStatus s) {
  if (s == mountStatus_) return;
  mountStatus_ = s;
  notify(&Notifiee::onMountStatus);
}

}  // namespace Memtab
