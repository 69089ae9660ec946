#pragma once
// A POSIX shared-memory segment mapped into this process.
//
// Names. A table published under the name N lives in the POSIX shared-memory
// object "/falmroute.N", which Linux shows as the file /dev/shm/falmroute.N.
// N is 1 to 200 characters of [A-Za-z0-9._-]; it is the whole identity of the
// table, so a writer and its readers agree on nothing else. A process that
// publishes several tables, or several runs on one machine, put what tells
// them apart into N (the simulator uses "sim-<pid>.<table>").
//
// Lifetime. The writer creates the object and removes its name when it
// closes, so nothing is left in /dev/shm after a clean exit; readers that
// still have it mapped keep their mapping, and see through unlinked() that
// the writer has gone. A writer that finds the name taken by a process that
// has died (or by itself, from an earlier incarnation) replaces it; a name
// held by a live process is refused.
//
// Readers map the object read-only, so a stray write from a reader faults
// instead of corrupting the writer's table. A private segment (no name) is
// anonymous shared memory: it behaves the same, is visible to children
// forked after it was made, and to no one else.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/vex/Export.h"

namespace Memtab {

inline constexpr std::string_view kShmPrefix = "falmroute.";
inline constexpr std::string_view kShmDir = "/dev/shm/";
inline constexpr std::size_t kMaxNameLength = 200;

// Whether name can name a table; when not, why (for messages).
FALMROUTE_EXPORT bool nameValid(std::string_view name, std::string* why = nullptr);
// "/falmroute.<name>", the POSIX object name.
FALMROUTE_EXPORT std::string shmName(std::string_view name);
// "/dev/shm/falmroute.<name>", where the object shows in the file system.
FALMROUTE_EXPORT std::string shmPath(std::string_view name);
// Whether a process of that id runs (a writer that published a segment).
FALMROUTE_EXPORT bool processAlive(int pid);

class FALMROUTE_EXPORT Segment {
 public:
  Segment() = default;
  Segment(Segment&& other) noexcept;
  Segment& operator=(Segment&& other) noexcept;
  Segment(Segment const&) = delete;
  Segment& operator=(Segment const&) = delete;
  ~Segment();

  // Creates a named writable segment of bytes (zero-filled). ownerPid reads
  // the writer's pid from an existing segment of the same name, to tell a
  // live owner from a stale one. On failure the result is unmapped and
  // *error says why.
  using OwnerPid = int (*)(void const* data, std::size_t bytes);
  static Segment create(std::string_view name, std::size_t bytes, OwnerPid ownerPid, std::string* error);
  // Maps an existing named segment read-only.
  static Segment open(std::string_view name, std::string* error);
  // An anonymous writable segment.
  static Segment anonymous(std::size_t bytes, std::string* error);

  bool mapped() const { return data_ != nullptr; }
  bool writable() const { return writable_; }
  std::string const& name() const { return name_; }
  void* data() const { return data_; }
  std::size_t bytes() const { return bytes_; }

  // Whether the segment's name was removed (the writer closed, or another
  // writer replaced it). Always false for a private segment.
  bool unlinked() const;
  // Removes the name if it still names this segment.
  void unlinkName();
  // Unmaps (and for a writer, removes the name): the segment is then empty.
  void close();

 private:
  void* data_ = nullptr;
  std::size_t bytes_ = 0;
  int fd_ = -1;
  std::string name_;
  bool writable_ = false;
  int creator_ = 0;  // the pid that created the name, the only one that removes it
};

}  // namespace Memtab
