#include "kernel/netlink/KernelFibSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "kernel/netlink/RtnlParser.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Trace.h"

namespace FalKernel {

namespace {

Vex::TraceHandle& trace() {
  static Vex::TraceHandle& h = Vex::traceHandle("FalKernelFib");
  return h;
}

#define FIB_TRACE(level, expr) VEX_TRACE(trace(), level, "FalKernelFibSource", expr)

}  // namespace

class KernelFibSource::DumpReader : public Vex::FileDescriptor::Notifiee {
 public:
  DumpReader(KernelFibSource* s, Vex::Ptr<Vex::FileDescriptor> const& f) : s_(s) { notifierIs(f); }
  void onReadable() override { s_->onDumpReadable(); }

 private:
  KernelFibSource* s_;
};

class KernelFibSource::EventReader : public Vex::FileDescriptor::Notifiee {
 public:
  EventReader(KernelFibSource* s, Vex::Ptr<Vex::FileDescriptor> const& f) : s_(s) { notifierIs(f); }
  void onReadable() override { s_->onEventsReadable(); }

 private:
  KernelFibSource* s_;
};

class KernelFibSource::RetryClock : public Vex::Clock::Notifiee {
 public:
  RetryClock(KernelFibSource* s, Vex::Ptr<Vex::Clock> const& c) : s_(s) { notifierIs(c); }
  void onTime() override { s_->onRetry(); }

 private:
  KernelFibSource* s_;
};

KernelFibSource::KernelFibSource(std::unique_ptr<RtnlChannel> dump, std::unique_ptr<RtnlChannel> events, SourceMap map,
                                 FibSink& sink)
    : dump_(std::move(dump)), events_(std::move(events)), map_(std::move(map)), sink_(sink), buffer_(kDatagramSize) {}

KernelFibSource::~KernelFibSource() {
  // Reactors go before their descriptors, descriptors before the channels close.
  dumpReader_.reset();
  eventReader_.reset();
  retryReactor_.reset();
  dumpFd_ = nullptr;
  eventsFd_ = nullptr;
}

void KernelFibSource::start() {
  auto* am = Vex::ActivityManager::current();
  dumpFd_ = am->fileDescriptorNew(dump_->fd());
  eventsFd_ = am->fileDescriptorNew(events_->fd());
  retryClock_ = am->clockNew();
  dumpReader_ = std::make_unique<DumpReader>(this, dumpFd_);
  eventReader_ = std::make_unique<EventReader>(this, eventsFd_);
  retryReactor_ = std::make_unique<RetryClock>(this, retryClock_);
  startDump();
}

void KernelFibSource::resync() {
  if (dumpFd_) startDump();
}

void KernelFibSource::startDump() {
  ++generation_;
  step_ = Step::links;
  interrupted_ = false;
  dumpedLinks_.linkDelAll();
  eventsFd_->readInterestIs(false);
  FIB_TRACE(2, "dump " << generation_ << " starts");
  sendDumpRequest();
}

void KernelFibSource::sendDumpRequest() {
  alignas(nlmsghdr) char buf[MNL_NLMSG_HDRLEN + MNL_ALIGN(std::max(sizeof(rtmsg), sizeof(ifinfomsg)))];
  std::memset(buf, 0, sizeof buf);
  nlmsghdr* nlh = mnl_nlmsg_put_header(buf);
  nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  nlh->nlmsg_seq = ++seq_;
  if (step_ == Step::links) {
    nlh->nlmsg_type = RTM_GETLINK;
    auto* ifi = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifinfomsg)));
    ifi->ifi_family = AF_UNSPEC;
  } else {
    nlh->nlmsg_type = RTM_GETROUTE;
    auto* rtm = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(rtmsg)));
    rtm->rtm_family = step_ == Step::ipv4 ? RTNL_FAMILY_IPMR : RTNL_FAMILY_IP6MR;
  }
  if (int const err = dump_->send(nlh); err < 0) {
    FIB_TRACE(1, "dump request refused: " << std::strerror(-err) << "; again in " << kRetryDelay << " s");
    retryClock_->timeMinIs(Vex::ActivityManager::current()->now() + kRetryDelay);
  }
}

void KernelFibSource::onRetry() {
  if (step_ != Step::idle) sendDumpRequest();
}

void KernelFibSource::onDumpReadable() {
  for (int i = 0; i < kDumpDatagramsPerTurn && step_ != Step::idle; ++i) {
    ssize_t const n = dump_->receive(buffer_.data(), buffer_.size());
    if (n == -EAGAIN || n == -EWOULDBLOCK || n == -EINTR) break;
    if (n < 0) {
      FIB_TRACE(1, "dump socket: " << std::strerror(static_cast<int>(-n)));
      dumpFailed();
      break;
    }
    if (!dumpDatagram(buffer_.data(), static_cast<std::size_t>(n))) break;
  }
  commitIfChanged();
}

bool KernelFibSource::dumpDatagram(char const* buf, std::size_t len) {
  int left = static_cast<int>(len);
  for (auto const* nlh = reinterpret_cast<nlmsghdr const*>(buf); mnl_nlmsg_ok(nlh, left);
       nlh = mnl_nlmsg_next(nlh, &left)) {
    // Replies to a request given up on carry its older sequence number.
    if (!mnl_nlmsg_seq_ok(nlh, seq_) || !mnl_nlmsg_portid_ok(nlh, dump_->portId())) continue;
    if (nlh->nlmsg_flags & NLM_F_DUMP_INTR) interrupted_ = true;
    switch (nlh->nlmsg_type) {
      case NLMSG_DONE:
        dumpStepDone();
        return false;
      case NLMSG_ERROR: {
        auto const* err = static_cast<nlmsgerr const*>(mnl_nlmsg_get_payload(nlh));
        FIB_TRACE(1, "dump refused by the kernel: " << std::strerror(-err->error));
        dumpFailed();
        return false;
      }
      case RTM_NEWLINK:
        if (interrupted_) break;
        if (auto l = RtnlParser::link(nlh)) {
          dumpedLinks_.linkIs(std::move(*l));
        } else {
          ++counts_.malformed;
        }
        break;
      case RTM_NEWROUTE:
        if (interrupted_) break;
        if (auto e = RtnlParser::mfc(nlh)) {
          mfcIs(*e, false);
        } else {
          ++counts_.malformed;
        }
        break;
      default:
        break;
    }
  }
  return true;
}

void KernelFibSource::dumpStepDone() {
  if (interrupted_) {
    ++counts_.interruptedDumps;
    FIB_TRACE(2, "dump " << generation_ << " interrupted by a change: dumping again");
    startDump();
    return;
  }
  switch (step_) {
    case Step::links:
      links_ = std::move(dumpedLinks_);
      dumpedLinks_.linkDelAll();
      portStatusRefresh();
      step_ = Step::ipv4;
      sendDumpRequest();
      return;
    case Step::ipv4:
      step_ = Step::ipv6;
      sendDumpRequest();
      return;
    case Step::ipv6:
      step_ = Step::idle;
      if (!drainEvents(true)) {
        overflowed();
        return;
      }
      sweep();
      ++counts_.dumps;
      eventsFd_->readInterestIs(true);
      FIB_TRACE(2, "dump " << generation_ << " complete: " << held_.size() << " entries");
      return;
    case Step::idle:
      return;
  }
}

// A new request, with a new sequence number, makes whatever the failed one
// still sends irrelevant.
void KernelFibSource::dumpFailed() {
  ++counts_.failedDumps;
  startDump();
}

void KernelFibSource::onEventsReadable() {
  for (int i = 0; i < kEventDatagramsPerTurn; ++i) {
    ssize_t const n = events_->receive(buffer_.data(), buffer_.size());
    if (n == -EAGAIN || n == -EWOULDBLOCK || n == -EINTR) break;
    if (n == -ENOBUFS) {
      overflowed();
      break;
    }
    if (n < 0) {
      FIB_TRACE(1, "notification socket: " << std::strerror(static_cast<int>(-n)));
      break;
    }
    eventDatagram(buffer_.data(), static_cast<std::size_t>(n));
  }
  commitIfChanged();
}

void KernelFibSource::eventDatagram(char const* buf, std::size_t len) {
  int left = static_cast<int>(len);
  for (auto const* nlh = reinterpret_cast<nlmsghdr const*>(buf); mnl_nlmsg_ok(nlh, left);
       nlh = mnl_nlmsg_next(nlh, &left)) {
    switch (nlh->nlmsg_type) {
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
        if (auto e = RtnlParser::mfc(nlh)) {
          ++counts_.notifications;
          mfcIs(*e, nlh->nlmsg_type == RTM_DELROUTE);
        } else if (nlh->nlmsg_len >= mnl_nlmsg_size(sizeof(rtmsg))) {
          // Unicast routes do not come on these groups; anything else is broken.
          ++counts_.malformed;
        }
        break;
      case RTM_NEWLINK:
      case RTM_DELLINK:
        ++counts_.notifications;
        linkIs(nlh);
        break;
      default:
        break;
    }
  }
}

bool KernelFibSource::drainEvents(bool apply) {
  for (;;) {
    ssize_t const n = events_->receive(buffer_.data(), buffer_.size());
    if (n == -ENOBUFS) return false;
    if (n < 0) return true;  // EAGAIN: empty
    if (apply) eventDatagram(buffer_.data(), static_cast<std::size_t>(n));
  }
}

// Somewhere in what the socket still holds messages are missing: none of it
// can be trusted, so all of it goes, and a dump tells what is there now.
void KernelFibSource::overflowed() {
  ++counts_.overflows;
  FIB_TRACE(1, "notifications lost (ENOBUFS): resynchronising from a fresh dump");
  while (!drainEvents(false)) {
  }
  startDump();
}

void KernelFibSource::mfcIs(MfcEntry const& entry, bool deleted) {
  // An unresolved entry is the kernel asking a daemon; its coming and going
  // says nothing about routes.
  if (entry.unresolved) return;
  MfcKey const key = MfcKey::of(entry);
  if (deleted) {
    auto it = held_.find(key);
    if (it == held_.end()) return;
    if (auto const& d = it->second.desired) {
      sink_.routeDel(d->vrf, d->key);
      changed_ = true;
    }
    held_.erase(it);
    FIB_TRACE(3, "deleted " << entry);
    return;
  }
  Held& h = held_[key];
  h.entry = entry;
  h.generation = generation_;
  translate(h);
  FIB_TRACE(3, "entry " << entry << (h.desired ? "" : " (not a route)"));
}

void KernelFibSource::linkIs(nlmsghdr const* nlh) {
  auto l = RtnlParser::link(nlh);
  if (!l) {
    ++counts_.malformed;
    return;
  }
  LinkEntry const* old = links_.link(l->index);
  // Only a name the map knows, coming, going or renamed, changes routes.
  bool const mattered = old && map_.interface(old->name);
  bool const matters = map_.interface(l->name) != nullptr;
  bool const renamed = !old || old->name != l->name;
  bool changed;
  if (nlh->nlmsg_type == RTM_DELLINK) {
    changed = links_.linkDel(l->index);
  } else {
    changed = links_.linkIs(*l);
  }
  if (!changed || !(mattered || matters)) return;
  FIB_TRACE(3, "link " << l->index << ' ' << l->name << (nlh->nlmsg_type == RTM_DELLINK ? " gone" : ""));
  if (nlh->nlmsg_type == RTM_DELLINK || renamed) translateAll();
  portStatusRefresh();
}

void KernelFibSource::translate(Held& h) {
  MrouteTranslator::Result r = MrouteTranslator::route(h.entry, links_, map_);
  h.skip = r.skip;
  h.outputsUnmapped = r.outputsUnmapped;
  if (r.route) {
    RouteId id{r.route->vrfName(), r.route->key()};
    if (h.desired && *h.desired != id) sink_.routeDel(h.desired->vrf, h.desired->key);
    sink_.routeIs(*r.route);
    h.desired = std::move(id);
    changed_ = true;
  } else if (h.desired) {
    sink_.routeDel(h.desired->vrf, h.desired->key);
    h.desired.reset();
    changed_ = true;
  }
}

void KernelFibSource::translateAll() {
  for (auto& [key, h] : held_) translate(h);
}

void KernelFibSource::sourceMapIs(SourceMap map) {
  if (map == map_) return;
  map_ = std::move(map);
  translateAll();
  portStatusRefresh();
  commitIfChanged();
}

void KernelFibSource::sweep() {
  for (auto it = held_.begin(); it != held_.end();) {
    auto cur = it++;
    if (cur->second.generation >= generation_) continue;
    ++counts_.sweptEntries;
    if (auto const& d = cur->second.desired) {
      sink_.routeDel(d->vrf, d->key);
      changed_ = true;
    }
    FIB_TRACE(2, "gone from the kernel: " << cur->second.entry);
    held_.erase(cur);
  }
}

void KernelFibSource::portStatusRefresh() {
  absl::btree_map<std::string_view, Interface::IntfOperStatus> byName;
  for (auto const& [index, l] : links_) {
    if (map_.interface(l.name)) byName.emplace(l.name, MrouteTranslator::operStatus(l));
  }
  absl::btree_map<Netcore::IntfId, Interface::IntfOperStatus> now;
  for (auto const& [name, mapping] : map_.interfaces()) {
    auto it = byName.find(name);
    auto const status = it == byName.end() ? Interface::intfOperNotPresent : it->second;
    auto [at, added] = now.try_emplace(mapping.portVlan.port(), status);
    if (!added && at->second == Interface::intfOperUp) at->second = status;
  }
  for (auto const& [port, status] : now) {
    auto it = portStatus_.find(port);
    if (it != portStatus_.end() && it->second == status) continue;
    sink_.portOperStatusIs(port, status);
    changed_ = true;
  }
  portStatus_ = std::move(now);
}

void KernelFibSource::commitIfChanged() {
  if (!changed_) return;
  changed_ = false;
  sink_.commit();
}

KernelFibSource::Summary KernelFibSource::summary() const {
  Summary s;
  s.entries = held_.size();
  for (auto const& [key, h] : held_) {
    if (h.desired) ++s.routes;
    s.outputsUnmapped += h.outputsUnmapped;
    ++s.skipped[static_cast<std::size_t>(h.skip)];
  }
  return s;
}

}  // namespace FalKernel
