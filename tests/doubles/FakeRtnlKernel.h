#pragma once
// FakeRtnlKernel: plays the kernel's side of rtnetlink for the kernel FIB
// source, without a socket or a privilege. It holds a link table and a
// multicast forwarding cache; every change is queued as a notification on
// the event channel, and a dump request on the dump channel is answered with
// the tables as they are at that moment (several datagrams, then the end).
//
// Faults a real kernel produces, on demand: a dump marked interrupted
// (NLM_F_DUMP_INTR) that reports stale entries, a dump refused with an
// error, and a notification queue that overflows (messages beyond its
// capacity are lost and the next read fails with ENOBUFS).
//
// Each channel is readable (its eventfd) while it has something to read, so
// the source runs from the event loop as it would on real sockets.
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <tuple>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "kernel/netlink/LinkEntry.h"
#include "kernel/netlink/MfcEntry.h"
#include "kernel/netlink/RtnlChannel.h"

namespace FalTest {

class FakeRtnlKernel {
 public:
  // Route messages per dump datagram.
  static constexpr std::size_t kEntriesPerDatagram = 40;

  FakeRtnlKernel();
  ~FakeRtnlKernel();

  // The channels a source owns; the kernel outlives them. Notifications are
  // queued only once the event channel exists, as only sockets subscribed
  // at the time of a change hear of it.
  std::unique_ptr<FalKernel::RtnlChannel> dumpChannel();
  std::unique_ptr<FalKernel::RtnlChannel> eventChannel();

  // The tables; each change is also a notification.
  void linkIs(FalKernel::LinkEntry l);
  void linkDel(int index);
  void mfcIs(FalKernel::MfcEntry e);
  void mfcDel(FalKernel::MfcEntry const& e);
  // Changes the table without telling anyone (as when the notification is lost).
  void mfcDelQuietly(FalKernel::MfcEntry const& e);
  std::size_t mfcSize() const { return mfc_.size(); }

  // Faults. The next route dump marks every message NLM_F_DUMP_INTR and
  // reports the stale entries of its family beside the real ones.
  void nextDumpInterruptedIs(std::vector<FalKernel::MfcEntry> stale) { interruptedStale_ = std::move(stale), interrupt_ = true; }
  // The next dump request is answered with this error.
  void nextDumpErrorIs(int err) { dumpError_ = err; }
  // Notifications beyond this many waiting datagrams are lost.
  void eventCapacityIs(std::size_t n);

  std::size_t dumpRequests() const { return dumpRequests_; }
  std::size_t eventsWaiting() const;

  class Queue;

 private:
  int answer(nlmsghdr const* request);
  void notify(std::vector<char> datagram);

  std::shared_ptr<Queue> dump_;
  std::shared_ptr<Queue> events_;
  std::map<int, FalKernel::LinkEntry> link_;
  // Ordered, so dumps come in a stable order.
  std::map<std::tuple<int, std::uint32_t, Netcore::IpGenAddr, Netcore::IpGenAddr>, FalKernel::MfcEntry> mfc_;
  std::vector<FalKernel::MfcEntry> interruptedStale_;
  std::size_t dumpRequests_ = 0;
  int dumpError_ = 0;
  bool listening_ = false;
  bool interrupt_ = false;
};

}  // namespace FalTest
