#include "tests/doubles/FakeRtnlKernel.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>

#include <linux/rtnetlink.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "tests/doubles/RtnlMessages.h"

namespace FalTest {

using FalKernel::LinkEntry;
using FalKernel::MfcEntry;

// Datagrams waiting on one socket, and the eventfd that says so.
class FakeRtnlKernel::Queue {
 public:
  Queue() : fd_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}
  ~Queue() { ::close(fd_); }
  int fd() const { return fd_; }

  void push(std::vector<char> d) {
    if (datagrams_.size() >= capacity) {
      overflow_ = true;
    } else {
      datagrams_.push_back(std::move(d));
    }
    signal();
  }
  ssize_t pop(void* buf, std::size_t len) {
    ssize_t result;
    if (overflow_) {
      overflow_ = false;
      result = -ENOBUFS;
    } else if (datagrams_.empty()) {
      result = -EAGAIN;
    } else {
      auto& d = datagrams_.front();
      if (d.size() > len) return -ENOSPC;
      std::memcpy(buf, d.data(), d.size());
      result = static_cast<ssize_t>(d.size());
      datagrams_.pop_front();
    }
    signal();
    return result;
  }
  std::size_t size() const { return datagrams_.size(); }
  std::size_t capacity = std::numeric_limits<std::size_t>::max();

 private:
  // Keeps the eventfd readable exactly while something waits.
  void signal() {
    bool const want = overflow_ || !datagrams_.empty();
    if (want == signaled_) return;
    std::uint64_t v = 1;
    ssize_t const n = want ? ::write(fd_, &v, sizeof v) : ::read(fd_, &v, sizeof v);
    (void)n;
    signaled_ = want;
  }

  std::deque<std::vector<char>> datagrams_;
  int fd_;
  bool overflow_ = false;
  bool signaled_ = false;
};

namespace {

class FakeChannel : public FalKernel::RtnlChannel {
 public:
  FakeChannel(std::shared_ptr<FakeRtnlKernel::Queue> q, std::uint32_t portId, std::function<int(nlmsghdr const*)> onSend)
      : q_(std::move(q)), portId_(portId), onSend_(std::move(onSend)) {}
  int fd() const override { return q_->fd(); }
  std::uint32_t portId() const override { return portId_; }
  int send(nlmsghdr const* request) override { return onSend_ ? onSend_(request) : -EOPNOTSUPP; }
  ssize_t receive(void* buf, std::size_t len) override { return q_->pop(buf, len); }

 private:
  std::shared_ptr<FakeRtnlKernel::Queue> q_;
  std::uint32_t portId_;
  std::function<int(nlmsghdr const*)> onSend_;
};

constexpr std::uint32_t kDumpPortId = 4242;

}  // namespace

FakeRtnlKernel::FakeRtnlKernel() : dump_(std::make_shared<Queue>()), events_(std::make_shared<Queue>()) {}
FakeRtnlKernel::~FakeRtnlKernel() = default;

std::unique_ptr<FalKernel::RtnlChannel> FakeRtnlKernel::dumpChannel() {
  return std::make_unique<FakeChannel>(dump_, kDumpPortId, [this](nlmsghdr const* r) { return answer(r); });
}

std::unique_ptr<FalKernel::RtnlChannel> FakeRtnlKernel::eventChannel() {
  listening_ = true;
  return std::make_unique<FakeChannel>(events_, kDumpPortId + 1, nullptr);
}

void FakeRtnlKernel::eventCapacityIs(std::size_t n) { events_->capacity = n; }

std::size_t FakeRtnlKernel::eventsWaiting() const { return events_->size(); }

void FakeRtnlKernel::notify(std::vector<char> datagram) {
  if (listening_) events_->push(std::move(datagram));
}

void FakeRtnlKernel::linkIs(LinkEntry l) {
  RtnlMessages m;
  m.link(RTM_NEWLINK, l, {});
  link_[l.index] = std::move(l);
  notify(m.datagram());
}

void FakeRtnlKernel::linkDel(int index) {
  auto it = link_.find(index);
  if (it == link_.end()) return;
  RtnlMessages m;
  m.link(RTM_DELLINK, it->second, {});
  link_.erase(it);
  notify(m.datagram());
}

void FakeRtnlKernel::mfcIs(MfcEntry e) {
  RtnlMessages m;
  m.mfc(RTM_NEWROUTE, e, {});
  mfc_[{static_cast<int>(e.af), e.table, e.source, e.group}] = std::move(e);
  notify(m.datagram());
}

void FakeRtnlKernel::mfcDel(MfcEntry const& e) {
  RtnlMessages m;
  m.mfc(RTM_DELROUTE, e, {});
  mfcDelQuietly(e);
  notify(m.datagram());
}

void FakeRtnlKernel::mfcDelQuietly(MfcEntry const& e) { mfc_.erase({static_cast<int>(e.af), e.table, e.source, e.group}); }

int FakeRtnlKernel::answer(nlmsghdr const* request) {
  ++dumpRequests_;
  RtnlMessages::Header h{request->nlmsg_seq, kDumpPortId, NLM_F_MULTI};
  if (interrupt_ && request->nlmsg_type == RTM_GETROUTE) h.flags |= NLM_F_DUMP_INTR;
  RtnlMessages m;
  auto flush = [&] {
    if (!m.empty()) dump_->push(m.datagram());
    m.clear();
  };
  if (dumpError_ != 0) {
    m.error(dumpError_, h);
    dumpError_ = 0;
    flush();
    return 0;
  }
  if (request->nlmsg_type == RTM_GETLINK) {
    for (auto const& [index, l] : link_) m.link(RTM_NEWLINK, l, h);
  } else {
    auto const* rtm = static_cast<rtmsg const*>(NLMSG_DATA(request));
    auto const af = rtm->rtm_family == RTNL_FAMILY_IP6MR ? Netcore::AddressFamily::ipv6 : Netcore::AddressFamily::ipv4;
    std::size_t n = 0;
    auto put = [&](MfcEntry const& e) {
      if (e.af != af) return;
      m.mfc(RTM_NEWROUTE, e, h);
      if (++n % kEntriesPerDatagram == 0) flush();
    };
    for (auto const& [key, e] : mfc_) put(e);
    if (h.flags & NLM_F_DUMP_INTR) {
      for (auto const& e : interruptedStale_) put(e);
      interrupt_ = false;
    }
  }
  m.done(h);
  flush();
  return 0;
}

}  // namespace FalTest
