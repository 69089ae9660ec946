#pragma once
// MfcWriter: writes the kernel's multicast forwarding cache of a namespace
// through the mroute sockets, as a routing daemon does (both families, one
// table each), so that tests and benchmarks have a kernel table to mirror
// without starting a daemon for every entry. Needs CAP_NET_ADMIN.
//
// Interfaces become virtual interfaces (vifIs) in the order given, at most
// 32 per family. Closing the writer (its destructor) makes the kernel flush
// both tables, as when a daemon exits.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "kernel/KernelNetns.h"
#include "platform/net/IpGenAddr.h"

namespace FalTest {

class MfcWriter {
 public:
  // Opens both mroute sockets in netns; table 0 keeps the kernel's default
  // tables. Throws std::system_error on failure.
  explicit MfcWriter(std::string const& netns, std::uint32_t table = 0);
  ~MfcWriter();
  MfcWriter(MfcWriter const&) = delete;
  MfcWriter& operator=(MfcWriter const&) = delete;

  // Adds the interface (by its name in the namespace) as a virtual
  // interface of both families.
  void vifIs(std::string const& name);
  // Adds or replaces an entry; the group's family picks the socket. Throws
  // std::system_error when the kernel refuses.
  void mfcIs(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, std::string const& iif,
             std::vector<std::string> const& oifs);
  void mfcDel(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, std::string const& iif);

 private:
  int fd(Netcore::IpGenAddr const& group) const { return group.isV6() ? fd6_ : fd4_; }
  int vif(std::string const& name) const;

  std::unique_ptr<FalKernel::KernelNetns> netns_;
  int fd4_ = -1;
  int fd6_ = -1;
  absl::flat_hash_map<std::string, int> vif_;
};

}  // namespace FalTest
