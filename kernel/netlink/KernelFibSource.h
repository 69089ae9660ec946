#pragma once
// FalKernel::KernelFibSource: mirrors the kernel's IPv4 and IPv6 multicast
// routing tables of one network namespace into a FibSink, in real time.
//
// Two rtnetlink channels: one for dumps, one subscribed to the link and
// multicast-route notifications (RTNLGRP_LINK, RTNLGRP_IPV4_MROUTE,
// RTNLGRP_IPV6_MROUTE). Both are watched by the event loop; nothing polls.
//
// Synchronisation. A full dump runs links first (to name interfaces), then
// the IPv4 and the IPv6 multicast tables. While it runs, notifications wait
// in their socket unread: applied in the middle of a dump they could be
// older than what the dump then reports, or newer and then undone by it.
// When the dump ends, the waiting notifications are applied in order (they
// all follow the state they change), and only then is every entry the dump
// did not report removed: an entry that came and went during the dump is
// gone, one re-added meanwhile is not removed and added again.
//
// Losses. A dump the kernel marks interrupted (NLM_F_DUMP_INTR) is finished
// unread and started again. A notification socket that overflowed (ENOBUFS)
// has lost messages somewhere in what it still holds: all of it is dropped
// and a fresh dump resynchronises, removing what disappeared meanwhile.
// Neither is ever just logged: the sink always converges on the kernel.
//
// Translation is MrouteTranslator's; entries the kernel holds but that are
// not routes (unmapped table or input, unresolved, (*, *)) are kept, so a new
// mapping (sourceMapIs) or a new interface can make them routes without a
// dump. Port status: a port is up when every interface mapped to it is up;
// otherwise it takes the status of the first one (by name) that is not, and
// an interface absent from the namespace counts as not present.
//
// Work per turn is bounded (kDumpDatagramsPerTurn, kEventDatagramsPerTurn),
// each turn ending with one sink commit, so a large dump shares the loop
// with clocks and signals.
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "absl/container/btree_map.h"
#include "absl/container/flat_hash_map.h"
#include "kernel/netlink/FibSink.h"
#include "kernel/netlink/LinkTable.h"
#include "kernel/netlink/MfcEntry.h"
#include "kernel/netlink/MrouteTranslator.h"
#include "kernel/netlink/RtnlChannel.h"
#include "kernel/netlink/SourceMap.h"
#include "platform/vex/Clock.h"
#include "platform/vex/FileDescriptor.h"

namespace FalKernel {

class KernelFibSource {
 public:
  static constexpr int kDumpDatagramsPerTurn = 16;
  static constexpr int kEventDatagramsPerTurn = 256;
  static constexpr std::size_t kDatagramSize = 65536;
  // Before a dump request refused by the socket is sent again.
  static constexpr double kRetryDelay = 0.1;

  struct Counts {
    std::uint64_t dumps = 0;              // full dumps completed
    std::uint64_t interruptedDumps = 0;   // given up on for NLM_F_DUMP_INTR
    std::uint64_t failedDumps = 0;        // given up on for a socket or kernel error
    std::uint64_t overflows = 0;          // ENOBUFS on the notification socket
    std::uint64_t notifications = 0;      // messages applied from the notification socket
    std::uint64_t malformed = 0;          // messages that did not parse
    std::uint64_t sweptEntries = 0;       // entries a dump no longer reported
  };

  // What the source holds now.
  struct Summary {
    std::size_t entries = 0;  // kernel entries held (resolved)
    std::size_t routes = 0;   // of which desired routes
    std::size_t outputsUnmapped = 0;
    // Entries that are not routes, by MrouteTranslator::Skip.
    std::array<std::size_t, 6> skipped{};
  };

  // dump: any rtnetlink channel of the namespace; events: one subscribed to
  // the three groups. The sink must outlive the source.
  KernelFibSource(std::unique_ptr<RtnlChannel> dump, std::unique_ptr<RtnlChannel> events, SourceMap map,
                  FibSink& sink);
  ~KernelFibSource();
  KernelFibSource(KernelFibSource const&) = delete;
  KernelFibSource& operator=(KernelFibSource const&) = delete;

  // Starts the first full dump. Needs the event loop's activity manager.
  void start();
  // Starts a fresh dump now (as an overflow does).
  void resync();
  // Translates every held entry again with the new map.
  void sourceMapIs(SourceMap map);

  // A full dump has completed and no other is running.
  bool synchronized() const { return step_ == Step::idle && counts_.dumps > 0; }
  Counts const& counts() const { return counts_; }
  Summary summary() const;

 private:
  enum class Step : std::uint8_t { idle, links, ipv4, ipv6 };
  struct RouteId {
    L3::VrfName vrf;
    Routing::Multicast::Fib::IpGenRouteKey key;
    friend bool operator==(RouteId const&, RouteId const&) = default;
  };
  struct Held {
    MfcEntry entry;
    std::optional<RouteId> desired;  // what the sink was given
    std::uint64_t generation = 0;    // of the dump (or later notification) that last reported it
    MrouteTranslator::Skip skip = MrouteTranslator::Skip::none;
    std::uint32_t outputsUnmapped = 0;
  };
  class DumpReader;
  class EventReader;
  class RetryClock;

  void startDump();
  void sendDumpRequest();
  void onDumpReadable();
  void onEventsReadable();
  void onRetry();
  // Applies the messages of one datagram; false when the dump ended in it
  // (the rest of the datagram is not looked at).
  bool dumpDatagram(char const* buf, std::size_t len);
  void dumpStepDone();
  void dumpFailed();
  // Applies one notification datagram.
  void eventDatagram(char const* buf, std::size_t len);
  // Empties the notification socket, applying (or dropping) what it held;
  // false when it overflowed meanwhile.
  bool drainEvents(bool apply);
  void overflowed();
  void mfcIs(MfcEntry const& entry, bool deleted);
  void linkIs(nlmsghdr const* nlh);
  void translate(Held& held);
  void translateAll();
  void sweep();
  void portStatusRefresh();
  void commitIfChanged();

  std::unique_ptr<RtnlChannel> dump_;
  std::unique_ptr<RtnlChannel> events_;
  SourceMap map_;
  FibSink& sink_;
  Vex::Ptr<Vex::FileDescriptor> dumpFd_;
  Vex::Ptr<Vex::FileDescriptor> eventsFd_;
  Vex::Ptr<Vex::Clock> retryClock_;
  std::unique_ptr<DumpReader> dumpReader_;
  std::unique_ptr<EventReader> eventReader_;
  std::unique_ptr<RetryClock> retryReactor_;
  std::vector<char> buffer_;

  absl::flat_hash_map<MfcKey, Held> held_;
  LinkTable links_;
  LinkTable dumpedLinks_;  // the link dump in progress
  absl::btree_map<Netcore::IntfId, Interface::IntfOperStatus> portStatus_;  // as told to the sink
  Counts counts_;
  std::uint64_t generation_ = 0;
  std::uint32_t seq_ = 0;
  Step step_ = Step::idle;
  bool interrupted_ = false;  // the dump in progress was marked NLM_F_DUMP_INTR
  bool changed_ = false;      // the sink has calls to commit
};

}  // namespace FalKernel
