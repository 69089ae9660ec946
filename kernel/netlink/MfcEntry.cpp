#include "kernel/netlink/MfcEntry.h"

namespace FalKernel {

std::ostream& operator<<(std::ostream& os, MfcEntry const& e) {
  os << "table " << e.table << " (" << e.source << ", " << e.group << ")";
  if (e.unresolved) return os << " unresolved";
  os << " iif " << e.iif << " oifs [";
  for (std::size_t i = 0; i < e.oifs.size(); ++i) os << (i ? " " : "") << e.oifs[i];
  return os << ']';
}

}  // namespace FalKernel
