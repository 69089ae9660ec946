#pragma once
// How a process has a shared-memory table open, and whether it is mounted.
//
// writer: the one process that fills the table; it creates the segment.
// reader: another process (or another part of the writer's) that reads it
//   and learns that something changed by comparing the table's generation.
// keyshadow: a reader that also keeps a copy of every row, so that it can
//   tell which keys changed and notify per key.
#include <cstdint>
#include <ostream>

#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"

namespace Memtab {

enum class Mode : std::uint8_t { writer = 0, reader = 1, keyshadow = 2 };

// mounted: the control has the table mapped (a writer's private table counts);
// unmounted: it has none (nothing published yet, the writer went away, or
// the mapping was released).
enum class MountStatus : std::uint8_t { unmounted = 0, mounted = 1 };

}  // namespace Memtab

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<Memtab::Mode> {
  static EnumType const& type();
};
template <>
struct FALMROUTE_EXPORT EnumTraits<Memtab::MountStatus> {
  static EnumType const& type();
};
}  // namespace Vex

namespace Memtab {
inline std::ostream& operator<<(std::ostream& os, Mode m) { return os << Vex::enumName(m); }
inline std::ostream& operator<<(std::ostream& os, MountStatus m) { return os << Vex::enumName(m); }
}  // namespace Memtab
