// The event loop's descriptors and signals: readiness runs reactors from the
// loop under both time sources; real time waits in epoll instead of spinning;
// virtual time keeps jumping to its clocks.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/SignalDescriptor.h"

namespace {

// A pipe that closes its ends.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(::pipe(fds_), 0); }
  ~Pipe() {
    ::close(fds_[0]);
    ::close(fds_[1]);
  }
  int readEnd() const { return fds_[0]; }
  void put(std::string const& s) const { ASSERT_EQ(::write(fds_[1], s.data(), s.size()), static_cast<ssize_t>(s.size())); }
  // Reads at most n bytes (the read end must be readable).
  std::string take(std::size_t n) const {
    std::string s(n, '\0');
    ssize_t const got = ::read(fds_[0], s.data(), n);
    s.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return s;
  }

 private:
  int fds_[2] = {-1, -1};
};

// Reads up to `batch` bytes per readiness and records what it read.
class PipeReader : public Vex::FileDescriptor::Notifiee {
 public:
  PipeReader(Vex::Ptr<Vex::FileDescriptor> const& f, Pipe const& pipe, std::size_t batch)
      : f_(f), pipe_(pipe), batch_(batch) {
    notifierIs(f);
  }
  void onReadable() override {
    reads.push_back(pipe_.take(batch_));
    if (hook) hook();
  }
  Vex::FileDescriptor& descriptor() const { return *f_; }
  std::vector<std::string> reads;
  std::function<void()> hook;

 private:
  Vex::Ptr<Vex::FileDescriptor> f_;
  Pipe const& pipe_;
  std::size_t batch_;
};

class ClockHook : public Vex::Clock::Notifiee {
 public:
  ClockHook(Vex::Ptr<Vex::Clock> const& c, std::function<void()> f) : f_(std::move(f)) { notifierIs(c); }
  void onTime() override { f_(); }

 private:
  std::function<void()> f_;
};

enum class Source { virtualTime, realTime };

std::unique_ptr<Vex::TimeSource> sourceOf(Source s) {
  if (s == Source::virtualTime) return std::make_unique<Vex::VirtualTimeSource>(10.0);
  return std::make_unique<Vex::MonotonicTimeSource>();
}

class DescriptorTest : public ::testing::TestWithParam<Source> {
 protected:
  Vex::ActivityManager am_{sourceOf(GetParam())};
};

TEST_P(DescriptorTest, ReadableDescriptorRunsItsReactorOncePerTurnUntilDrained) {
  Pipe pipe;
  PipeReader reader(am_.fileDescriptorNew(pipe.readEnd()), pipe, 2);
  EXPECT_FALSE(am_.runOnce());
  EXPECT_TRUE(reader.reads.empty());

  pipe.put("abcde");
  EXPECT_TRUE(am_.runOnce());
  EXPECT_EQ(reader.reads, (std::vector<std::string>{"ab"}));
  EXPECT_TRUE(am_.runOnce());
  EXPECT_TRUE(am_.runOnce());
  EXPECT_EQ(reader.reads, (std::vector<std::string>{"ab", "cd", "e"}));
  EXPECT_FALSE(am_.runOnce());
  EXPECT_EQ(reader.descriptor().readableCount(), 3u);
}

TEST_P(DescriptorTest, NoReadInterestMeansNotWatchedUntilItComesBack) {
  Pipe pipe;
  PipeReader reader(am_.fileDescriptorNew(pipe.readEnd()), pipe, 16);
  reader.descriptor().readInterestIs(false);
  EXPECT_EQ(am_.fileDescriptorsWatched(), 0u);
  pipe.put("x");
  EXPECT_FALSE(am_.runOnce());
  EXPECT_TRUE(reader.reads.empty());

  reader.descriptor().readInterestIs(true);
  EXPECT_EQ(am_.fileDescriptorsWatched(), 1u);
  EXPECT_TRUE(am_.runOnce());
  EXPECT_EQ(reader.reads, (std::vector<std::string>{"x"}));
}

TEST_P(DescriptorTest, DescriptorDroppedByAnEarlierHandlerOfTheTurnIsNotServed) {
  Pipe a, b;
  auto first = std::make_unique<PipeReader>(am_.fileDescriptorNew(a.readEnd()), a, 16);
  auto second = std::make_unique<PipeReader>(am_.fileDescriptorNew(b.readEnd()), b, 16);
  std::vector<std::string> served;
  // Whichever runs first drops the other, entity and reactor.
  first->hook = [&] {
    served.push_back("a");
    second.reset();
  };
  second->hook = [&] {
    served.push_back("b");
    first.reset();
  };
  a.put("1");
  b.put("2");
  EXPECT_TRUE(am_.runOnce());
  EXPECT_EQ(served.size(), 1u);
  EXPECT_EQ(am_.fileDescriptorsWatched(), 1u);
}

TEST_P(DescriptorTest, AlwaysReadableDescriptorDoesNotStarveClocks) {
  Pipe pipe;
  PipeReader reader(am_.fileDescriptorNew(pipe.readEnd()), pipe, 1);
  pipe.put(std::string(100, 'z'));
  auto clock = am_.clockNew();
  int ticks = 0;
  ClockHook tick(clock, [&] { ++ticks; });
  clock->timeMinIs(am_.now());
  am_.runOnce();
  am_.runOnce();
  EXPECT_EQ(ticks, 1);
  EXPECT_EQ(reader.reads.size(), 2u);
}

TEST_P(DescriptorTest, SignalArrivesAsANotificationAndTheMaskIsRestoredAfter) {
  std::vector<int> got;
  {
    auto signals = Vex::SignalDescriptor::signalDescriptorNew(am_, {SIGUSR1, SIGUSR2});
    struct Recorder : Vex::SignalDescriptor::Notifiee {
      std::vector<int>* got;
      void onSignal(int signo) override { got->push_back(signo); }
    } recorder;
    recorder.got = &got;
    recorder.notifierIs(signals);
    ASSERT_EQ(::raise(SIGUSR2), 0);  // blocked: pending until read from the descriptor
    EXPECT_TRUE(got.empty());
    EXPECT_TRUE(am_.runOnce());
    EXPECT_EQ(got, (std::vector<int>{SIGUSR2}));
    EXPECT_EQ(signals->signalCount(), 1u);
  }
  sigset_t now;
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, nullptr, &now), 0);
  EXPECT_FALSE(sigismember(&now, SIGUSR1));
  EXPECT_FALSE(sigismember(&now, SIGUSR2));
  EXPECT_EQ(am_.fileDescriptorsWatched(), 0u);
}

TEST_P(DescriptorTest, DescriptorOutlivingItsManagerIsInert) {
  Pipe pipe;
  Vex::Ptr<Vex::FileDescriptor> f;
  {
    Vex::ActivityManager inner(sourceOf(GetParam()));
    f = inner.fileDescriptorNew(pipe.readEnd());
  }
  EXPECT_EQ(f->activityManager(), nullptr);
  f->readInterestIs(false);
  f = nullptr;
}

INSTANTIATE_TEST_SUITE_P(BothTimeSources, DescriptorTest, ::testing::Values(Source::virtualTime, Source::realTime),
                         [](auto const& info) { return info.param == Source::virtualTime ? "Virtual" : "Real"; });

TEST(VirtualTimeDescriptorTest, IdleLoopStillJumpsToTheNextClockWithDescriptorsWatched) {
  Vex::ActivityManager am(std::make_unique<Vex::VirtualTimeSource>(0.0));
  Pipe pipe;
  PipeReader reader(am.fileDescriptorNew(pipe.readEnd()), pipe, 16);
  auto clock = am.clockNew();
  std::vector<Vex::Seconds> fired;
  ClockHook hook(clock, [&] {
    fired.push_back(am.now());
    if (fired.size() == 1) pipe.put("late");
  });
  clock->timeMinIs(3600.0);
  am.run();
  EXPECT_EQ(fired, (std::vector<Vex::Seconds>{3600.0}));
  EXPECT_EQ(reader.reads, (std::vector<std::string>{"late"}));
  EXPECT_EQ(am.now(), 3600.0);
}

// Real time: the loop sleeps in epoll until a clock or a descriptor wakes it.
class RealTimeDescriptorTest : public ::testing::Test {
 protected:
  Vex::ActivityManager am_{std::make_unique<Vex::MonotonicTimeSource>()};
};

TEST_F(RealTimeDescriptorTest, RunWaitsForTheDescriptorWithoutSpinning) {
  Pipe pipe;
  PipeReader reader(am_.fileDescriptorNew(pipe.readEnd()), pipe, 16);
  reader.hook = [&] { am_.stop(); };
  auto clock = am_.clockNew();
  ClockHook writer(clock, [&] { pipe.put("wake"); });
  Vex::Seconds const start = am_.now();
  clock->timeMinIs(start + 0.02);
  am_.run();  // no clock left once it has fired: only the descriptor can end the run
  EXPECT_EQ(reader.reads, (std::vector<std::string>{"wake"}));
  EXPECT_GE(am_.now() - start, 0.02);
  EXPECT_LT(am_.now() - start, 5.0);
  // One wait for the clock; a spinning loop would have counted thousands.
  EXPECT_LE(am_.waits(), 2u);
}

TEST_F(RealTimeDescriptorTest, RunUntilServesADescriptorEarlyAndStillReturnsAtItsTarget) {
  Pipe pipe;
  PipeReader reader(am_.fileDescriptorNew(pipe.readEnd()), pipe, 16);
  Vex::Seconds servedAt = -1;
  reader.hook = [&] { servedAt = am_.now(); };
  pipe.put("now");
  Vex::Seconds const start = am_.now();
  am_.runUntil(start + 0.03);
  EXPECT_GE(servedAt, start);
  EXPECT_LT(servedAt, start + 0.03);
  EXPECT_GE(am_.now(), start + 0.03);
  EXPECT_LE(am_.waits(), 2u);
}

}  // namespace
