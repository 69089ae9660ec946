#pragma once
// Memtab::CollectionControl: how one collection has its shared-memory table
// open (writer, reader or keyshadow, under a name) and the owner of the
// mapping.
//
// A control serves one collection. The collection asks it for the mapping
// when the control is attached (mappingIs), and the mapping lives as long as
// the control, or until the collection hands itself over on its way out
// (collectionReleaseIs): the collection's last reference comes to the
// control, which releases the mapping while it holds the collection, so
// nothing the collection still points at goes away under it.
//
// A writer publishes under its name (see Segment.h for the convention); when
// the name cannot be published (a live writer holds it, /dev/shm is not
// writable) it keeps a private table so its process works on, and error()
// says why nothing is published. A reader that finds nothing published stays
// unmounted with error() saying so, and tries again when its collection is
// refreshed.
#include <cstddef>
#include <string>

#include "platform/memtab/Mode.h"
#include "platform/memtab/Segment.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Types.h"

namespace Memtab {

class FALMROUTE_EXPORT CollectionControl : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<CollectionControl> {
   public:
    virtual void onMountStatus() {}
  };

  // Opens the table published under name in mode (a writer publishes it).
  static Vex::Ptr<CollectionControl> collectionControlIs(Vex::Name name, Mode mode);
  // A writer whose table no other process sees.
  static Vex::Ptr<CollectionControl> privateCollectionControlIs();

  Vex::Name const& name() const { return name_; }
  Mode mode() const { return mode_; }
  bool writable() const { return mode_ == Mode::writer; }
  // Whether other processes can find the table (a writer under its name).
  bool published() const { return writable() && segment_.mapped() && !segment_.name().empty(); }
  // "/dev/shm/falmroute.<name>"; empty for a private table.
  std::string path() const;
  MountStatus mountStatus() const { return mountStatus_; }
  // Why the last mapping attempt failed or fell back; empty when it did not.
  std::string const& error() const { return error_; }
  // How many collections handed themselves over (0 or 1).
  std::size_t collectionsReleased() const { return collectionsReleased_; }

  // ---- used by the collection it serves ----

  // Maps the table: a writer makes a zero-filled segment of bytes, a reader
  // maps what the writer published. Null when there is nothing to map
  // (error() says why); otherwise the start of the segment.
  void* mappingIs(std::size_t bytes);
  Segment const& segment() const { return segment_; }
  // A reader's mapping that no longer is the writer's live table: the writer
  // closed it, or replaced it with a new one under the same name.
  bool stale() const;
  // Releases the mapping; a writer first tells its readers it has closed the
  // table and removes the name.
  void mappingDel();
  // The hand-off of a collection's last reference (see above).
  void collectionReleaseIs(Vex::Ptr<Vex::Entity const> const& collection);
  // A mapping the collection could not use (not a table of its rows).
  void errorIs(std::string why) { error_ = std::move(why); }
  // A control serves one collection; a second one is refused.
  void collectionAttach(char const* collectionType);

 protected:
  ~CollectionControl() override;

 private:
  CollectionControl(Vex::Name name, Mode mode) : name_(std::move(name)), mode_(mode) {}
  void mountStatusIs(MountStatus s);

  Vex::Name name_;
  Mode mode_;
  MountStatus mountStatus_ = MountStatus::unmounted;
  Segment segment_;
  std::string error_;
  std::size_t collectionsReleased_ = 0;
  bool attached_ = false;
};

}  // namespace Memtab
