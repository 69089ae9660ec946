// Shared-memory tables: the writer's operations, readers in this process and
// in a forked one, full tables, faults of readers that write, and the
// lifetime of the mapping.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "platform/memtab/Collection.h"
#include "platform/memtab/CollectionControl.h"
#include "platform/vex/Assert.h"
#include "tests/doubles/ShmNames.h"

namespace {

using FalMrouteTest::shmLeftovers;
using FalMrouteTest::shmMapped;
using FalMrouteTest::uniqueShmName;
using Memtab::CollectionControl;
using Memtab::Mode;
using Memtab::MountStatus;
using Memtab::SetResult;

// A row whose stamp words are all written from one number: a reader that
// copied half of one write and half of another finds them unequal.
struct Row {
  std::uint32_t key = 0;
  std::uint32_t round = 0;
  std::array<std::uint64_t, 6> stamp{};
  friend bool operator==(Row const&, Row const&) = default;
};

Row row(std::uint32_t key, std::uint32_t round) {
  Row r;
  r.key = key;
  r.round = round;
  for (std::size_t i = 0; i < r.stamp.size(); ++i) r.stamp[i] = (std::uint64_t{round} << 32) | (key * 7 + i);
  return r;
}

bool whole(Row const& r) { return r == row(r.key, r.round); }

struct Stats {
  std::uint32_t rows = 0;
  std::uint32_t active = 0;
  friend bool operator==(Stats const&, Stats const&) = default;
};

struct RowTraits {
  using Key = std::uint32_t;
  using Value = Row;
  using Record = Stats;
  static constexpr std::string_view typeName = "Test::Row";
  static Key key(Row const& r) { return r.key; }
  static std::uint64_t hash(Key k) { return k; }
};

// Every key of a residue class shares one home slot, so probe runs are long,
// wrap around the end of the slots, and deletes move rows back.
struct CrowdedTraits : RowTraits {
  static constexpr std::string_view typeName = "Test::CrowdedRow";
  static std::uint64_t hash(Key k) { return k % 3; }
};

struct OtherTraits : RowTraits {
  static constexpr std::string_view typeName = "Test::OtherRow";
};

using Rows = Memtab::Collection<RowTraits>;

class MemtabTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler); }
  void TearDown() override {
    Vex::fatalHandlerIs(previous_);
    EXPECT_EQ(shmLeftovers(), std::vector<std::string>()) << "a test left a segment in /dev/shm";
  }
  static Vex::Ptr<CollectionControl> control(std::string const& name, Mode mode) {
    return CollectionControl::collectionControlIs(name, mode);
  }
  Vex::FatalHandler previous_;
};

// ---- one process ------------------------------------------------------------------

TEST_F(MemtabTest, ReaderSeesWhatTheWriterCommits) {
  std::string const name = uniqueShmName("rows");
  Rows writer;
  writer.controlIs(control(name, Mode::writer), 16);
  ASSERT_TRUE(writer.control()->published()) << writer.control()->error();
  Rows reader;
  reader.controlIs(control(name, Mode::reader), 0);
  ASSERT_TRUE(reader.mounted()) << reader.control()->error();
  EXPECT_EQ(reader.capacity(), 16U) << "a reader takes the writer's capacity";

  EXPECT_EQ(writer.set(row(1, 1)), SetResult::inserted);
  EXPECT_EQ(writer.set(row(2, 1)), SetResult::inserted);
  EXPECT_EQ(writer.set(row(1, 1)), SetResult::unchanged);
  EXPECT_EQ(writer.set(row(1, 2)), SetResult::replaced);
  EXPECT_EQ(reader.find(1), row(1, 2));
  EXPECT_EQ(reader.find(2), row(2, 1));
  EXPECT_EQ(reader.find(3), std::nullopt);
  EXPECT_EQ(reader.size(), 2U);

  EXPECT_TRUE(writer.erase(2));
  EXPECT_FALSE(writer.erase(2)) << "deleting an absent key changes nothing";
  EXPECT_EQ(reader.find(2), std::nullopt);
  writer.recordIs(Stats{7, 3});
  EXPECT_EQ(reader.record(), (Stats{7, 3}));

  EXPECT_EQ(writer.set(row(5, 1)), SetResult::inserted);
  std::vector<std::uint32_t> keys;
  for (Row const& r : reader) keys.push_back(r.key);
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<std::uint32_t>{1, 5}));
  EXPECT_EQ(writer.clear(), 2U);
  EXPECT_EQ(reader.size(), 0U);
  EXPECT_EQ(reader.find(1), std::nullopt);
  EXPECT_TRUE(reader.snapshot().empty());
}

TEST_F(MemtabTest, GenerationMovesOnlyWhenSomethingChanged) {
  Rows writer;
  writer.controlIs(CollectionControl::privateCollectionControlIs(), 8);
  auto g = writer.generation();
  writer.set(row(1, 1));
  EXPECT_GT(writer.generation(), g);
  g = writer.generation();
  writer.set(row(1, 1));
  writer.erase(9);
  writer.clear();
  EXPECT_GT(writer.generation(), g) << "clearing a row is a change";
  g = writer.generation();
  writer.clear();
  writer.erase(1);
  EXPECT_EQ(writer.generation(), g) << "an unchanged row, an absent key and an empty clear change nothing";
}

TEST_F(MemtabTest, FullTableRefusesNewKeysButReplacesAndTakesAfterDelete) {
  Rows writer;
  writer.controlIs(CollectionControl::privateCollectionControlIs(), 3);
  for (std::uint32_t k = 1; k <= 3; ++k) EXPECT_EQ(writer.set(row(k, 1)), SetResult::inserted);
  EXPECT_EQ(writer.set(row(4, 1)), SetResult::full);
  EXPECT_EQ(writer.find(4), std::nullopt);
  EXPECT_EQ(writer.size(), 3U);
  EXPECT_EQ(writer.set(row(2, 9)), SetResult::replaced) << "a full table still replaces a row it holds";
  EXPECT_TRUE(writer.erase(1));
  EXPECT_EQ(writer.set(row(4, 1)), SetResult::inserted);
  EXPECT_EQ(writer.find(4), row(4, 1));
}

// Deletes close their gap by moving rows back; a mistake there loses rows or
// finds deleted ones. A model map says what must be found after each step.
TEST_F(MemtabTest, ChurnInCrowdedProbeRunsKeepsEveryRowFindable) {
  Memtab::Collection<CrowdedTraits> table;
  table.controlIs(CollectionControl::privateCollectionControlIs(), 40);
  std::map<std::uint32_t, Row> model;
  std::mt19937 rng(13);
  for (std::uint32_t step = 0; step < 4000; ++step) {
    std::uint32_t const k = rng() % 60;
    if (rng() % 3 == 0) {
      EXPECT_EQ(table.erase(k), model.erase(k) == 1) << "step " << step;
    } else {
      auto const r = table.set(row(k, step));
      if (model.size() >= 40 && !model.count(k)) {
        EXPECT_EQ(r, SetResult::full) << "step " << step;
      } else {
        model[k] = row(k, step);
      }
    }
    if (step % 50 == 0 || step > 3900) {
      for (std::uint32_t q = 0; q < 60; ++q) {
        auto it = model.find(q);
        ASSERT_EQ(table.find(q), it == model.end() ? std::nullopt : std::optional<Row>(it->second)) << "key " << q << " step " << step;
      }
      ASSERT_EQ(table.size(), model.size());
    }
  }
}

TEST_F(MemtabTest, ReaderOfAnotherRowTypeIsRefused) {
  std::string const name = uniqueShmName("typed");
  Rows writer;
  writer.controlIs(control(name, Mode::writer), 4);
  Memtab::Collection<OtherTraits> reader;
  reader.controlIs(control(name, Mode::reader), 0);
  EXPECT_FALSE(reader.mounted());
  EXPECT_EQ(reader.control()->error(), "the table holds 'Test::Row' rows, not 'Test::OtherRow'");
  EXPECT_EQ(reader.find(1), std::nullopt);
}

TEST_F(MemtabTest, ReaderWithNothingPublishedIsUnmountedAndSaysWhere) {
  std::string const name = uniqueShmName("absent");
  Rows reader;
  reader.controlIs(control(name, Mode::reader), 0);
  EXPECT_FALSE(reader.mounted());
  EXPECT_EQ(reader.control()->mountStatus(), MountStatus::unmounted);
  EXPECT_EQ(reader.control()->error(), "nothing is published under /dev/shm/falmroute." + name);
  EXPECT_EQ(reader.size(), 0U);
  EXPECT_EQ(reader.begin(), reader.end());

  Rows writer;
  writer.controlIs(control(name, Mode::writer), 4);
  writer.set(row(1, 1));
  auto const c = reader.refresh();
  EXPECT_TRUE(c.mountStatus) << "a refresh mounts what was published since";
  EXPECT_TRUE(c.collection);
  EXPECT_EQ(reader.find(1), row(1, 1));
}

TEST_F(MemtabTest, BadNamesAreRefusedWithTheRule) {
  std::string why;
  EXPECT_FALSE(Memtab::nameValid("a/b", &why));
  EXPECT_EQ(why, "a table name is made of letters, digits, '.', '_' and '-'");
  EXPECT_FALSE(Memtab::nameValid("", &why));
  EXPECT_FALSE(Memtab::nameValid(std::string(201, 'x'), &why));
  EXPECT_TRUE(Memtab::nameValid("sim-12.counterStatus"));
  Rows writer;
  writer.controlIs(control("bad/name", Mode::writer), 4);
  EXPECT_FALSE(writer.control()->published());
  EXPECT_EQ(writer.control()->error(),
            "not published (a table name is made of letters, digits, '.', '_' and '-'); the table is private to this process");
  EXPECT_EQ(writer.set(row(1, 1)), SetResult::inserted) << "an unpublished writer still keeps its table";
}

// ---- faults -----------------------------------------------------------------------

struct Write {
  char const* name;
  char const* operation;
  void (*call)(Rows&);
};
Write const kWrites[] = {
    {"Insert", "insert", [](Rows& r) { r.set(row(1, 1)); }},
    {"Delete", "delete", [](Rows& r) { r.erase(1); }},
    {"DeleteAll", "delete-all", [](Rows& r) { r.clear(); }},
    {"Record", "control record update", [](Rows& r) { r.recordIs(Stats{}); }},
    {"Quiesced", "quiescence update", [](Rows& r) { r.quiescedIs(true); }},
};

class MemtabReaderWriteTest : public MemtabTest, public ::testing::WithParamInterface<std::tuple<Mode, Write>> {};

TEST_P(MemtabReaderWriteTest, IsRefusedWithAFaultAndChangesNothing) {
  auto const [mode, write] = GetParam();
  std::string const name = uniqueShmName("refuse");
  Rows writer;
  writer.controlIs(control(name, Mode::writer), 4);
  writer.set(row(1, 1));
  Rows reader;
  reader.controlIs(control(name, mode), 0);
  ASSERT_TRUE(reader.mounted());
  try {
    write.call(reader);
    FAIL() << "a " << Vex::enumName(mode) << " wrote";
  } catch (Vex::FatalError const& e) {
    EXPECT_EQ(std::string(e.what()), std::string("Memtab: ") + write.operation + " on table '" + name + "' opened as " +
                                         Vex::enumName(mode) + " not allowed");
  }
  EXPECT_EQ(writer.find(1), row(1, 1));
  EXPECT_EQ(writer.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(ReaderModes, MemtabReaderWriteTest,
                         ::testing::Combine(::testing::Values(Mode::reader, Mode::keyshadow), ::testing::ValuesIn(kWrites)),
                         [](auto const& info) {
                           return Vex::enumName(std::get<0>(info.param)) + std::get<1>(info.param).name;
                         });

TEST_F(MemtabTest, ControlServesOneCollection) {
  auto shared = CollectionControl::privateCollectionControlIs();
  Rows first;
  first.controlIs(shared, 4);
  Rows second;
  EXPECT_THROW(second.controlIs(shared, 4), Vex::FatalError);
}

// ---- change notification for readers ------------------------------------------------

TEST_F(MemtabTest, RefreshReportsCollectionChangesAndKeyshadowNamesTheKeys) {
  std::string const name = uniqueShmName("notify");
  Rows writer;
  writer.controlIs(control(name, Mode::writer), 8);
  writer.set(row(1, 1));
  writer.set(row(2, 1));
  Rows reader, shadow;
  reader.controlIs(control(name, Mode::reader), 0);
  shadow.controlIs(control(name, Mode::keyshadow), 0);
  auto sorted = [](std::vector<std::uint32_t> v) {
    std::sort(v.begin(), v.end());
    return v;
  };
  EXPECT_EQ(sorted(shadow.refresh().keys), (std::vector<std::uint32_t>{1, 2})) << "the first refresh sees every row";
  EXPECT_TRUE(reader.refresh().collection);

  auto quiet = reader.refresh();
  EXPECT_FALSE(quiet.collection || quiet.mountStatus || quiet.quiesced) << "nothing changed, nothing reported";
  EXPECT_TRUE(shadow.refresh().keys.empty());

  writer.set(row(1, 2));  // changed
  writer.erase(2);        // gone
  writer.set(row(3, 1));  // new
  writer.set(row(4, 1));
  writer.erase(4);  // came and went between two refreshes: not seen
  auto const c = reader.refresh();
  EXPECT_TRUE(c.collection);
  EXPECT_TRUE(c.keys.empty()) << "a plain reader is not told keys";
  EXPECT_EQ(sorted(shadow.refresh().keys), (std::vector<std::uint32_t>{1, 2, 3}));

  writer.quiescedIs(true);
  EXPECT_TRUE(reader.quiesced());
  EXPECT_TRUE(reader.refresh().quiesced);
  EXPECT_FALSE(reader.refresh().quiesced);
}

TEST_F(MemtabTest, ReaderLearnsThatTheWriterClosedAndFindsItsSuccessor) {
  std::string const name = uniqueShmName("succession");
  Rows reader;
  {
    Rows writer;
    writer.controlIs(control(name, Mode::writer), 4);
    writer.set(row(1, 1));
    reader.controlIs(control(name, Mode::keyshadow), 0);
    reader.refresh();
  }
  auto const gone = reader.refresh();
  EXPECT_TRUE(gone.mountStatus);
  EXPECT_FALSE(reader.mounted());
  EXPECT_EQ(gone.keys, std::vector<std::uint32_t>{1}) << "the rows went with the writer";
  EXPECT_FALSE(shmMapped(name)) << "the reader let go of the closed table";

  Rows successor;
  successor.controlIs(control(name, Mode::writer), 4);
  successor.set(row(2, 1));
  auto const back = reader.refresh();
  EXPECT_TRUE(back.mountStatus);
  EXPECT_EQ(back.keys, std::vector<std::uint32_t>{2});
  EXPECT_EQ(reader.find(2), row(2, 1));
}

// ---- lifetime of the mapping ----------------------------------------------------------

TEST_F(MemtabTest, MappingAndNameGoWithTheLastReference) {
  std::string const name = uniqueShmName("lifetime");
  auto ctl = control(name, Mode::writer);
  {
    Rows writer;
    writer.controlIs(ctl, 4);
    EXPECT_TRUE(shmMapped(name));
    EXPECT_EQ(shmLeftovers().size(), 1U);
  }
  EXPECT_TRUE(shmMapped(name)) << "the control still holds the mapping";
  EXPECT_EQ(ctl->mountStatus(), MountStatus::mounted);
  ctl = nullptr;
  EXPECT_FALSE(shmMapped(name));
  EXPECT_TRUE(shmLeftovers().empty());
}

// An entity that owns a collection hands its last reference to the control,
// which releases the mapping even though the control itself lives on.
TEST_F(MemtabTest, HandOverReleasesTheMappingWhileTheControlLivesOn) {
  struct Watch : CollectionControl::Notifiee {
    int changes = 0;
    void onMountStatus() override { ++changes; }
  };
  struct Owner : Vex::Entity {
    Rows rows;
    void zeroReferencesIs() override { rows.control()->collectionReleaseIs(this); }
  };
  std::string const name = uniqueShmName("handover");
  auto ctl = control(name, Mode::writer);
  auto owner = Vex::make<Owner>();
  owner->rows.controlIs(ctl, 4);
  Watch watch;
  watch.notifierIs(ctl);
  owner = nullptr;
  EXPECT_EQ(ctl->collectionsReleased(), 1U);
  EXPECT_EQ(ctl->mountStatus(), MountStatus::unmounted);
  EXPECT_EQ(watch.changes, 1);
  EXPECT_FALSE(shmMapped(name));
  EXPECT_TRUE(shmLeftovers().empty());
}

// ---- two processes ------------------------------------------------------------------

// What the forked reader reports through a pipe.
struct ReaderReport {
  std::uint64_t reads = 0;
  std::uint64_t torn = 0;
  std::uint64_t missing = 0;
  std::uint32_t finished = 0;  // saw the last round of every key
};

// Tells the writer through readyFd once it has read every key, so the
// writer's work starts while it reads.
template <class Traits>
ReaderReport readUntilLastRound(std::string const& name, std::uint32_t keys, std::uint32_t lastRound, int readyFd) {
  ReaderReport rep;
  Memtab::Collection<Traits> reader;
  reader.controlIs(CollectionControl::collectionControlIs(name, Mode::reader), 0);
  bool writerDone = false;
  for (;; readyFd = -1) {
    bool all = true;
    for (std::uint32_t k = 0; k < keys; ++k) {
      auto v = reader.find(k);
      ++rep.reads;
      if (!v) {
        ++rep.missing;
        all = false;
      } else if (!whole(*v) || v->key != k) {
        ++rep.torn;
      } else if (v->round != lastRound) {
        all = false;
      }
    }
    if (readyFd >= 0) {
      char go = 'r';
      (void)!::write(readyFd, &go, 1);
    }
    if (all) {
      rep.finished = 1;
      return rep;
    }
    // The writer marks the table quiesced after its last round; one more
    // pass after that must have found it.
    if (writerDone) return rep;
    writerDone = reader.quiesced();
  }
}

class MemtabTwoProcessTest : public MemtabTest {
 protected:
  // Runs read(readyFd) in a forked child and work() here once the child
  // wrote to readyFd (a pipe, not a sleep, says the reader is reading), and
  // returns the child's report.
  template <class Read, class Work>
  ReaderReport withForkedReader(Read read, Work work) {
    int ready[2], result[2];
    EXPECT_EQ(::pipe(ready), 0);
    EXPECT_EQ(::pipe(result), 0);
    pid_t const pid = ::fork();
    if (pid == 0) {
      ReaderReport rep = read(ready[1]);
      (void)!::write(result[1], &rep, sizeof rep);
      ::_exit(0);
    }
    char go = 0;
    EXPECT_EQ(::read(ready[0], &go, 1), 1);
    work();
    ReaderReport rep;
    EXPECT_EQ(::read(result[0], &rep, sizeof rep), static_cast<ssize_t>(sizeof rep)) << "the reader died";
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    for (int fd : {ready[0], ready[1], result[0], result[1]}) ::close(fd);
    return rep;
  }
};

// Every row of this table has one home slot, so the table is one probe run:
// deleting its first row moves every later row back by one slot.
struct OneRunTraits : RowTraits {
  static constexpr std::string_view typeName = "Test::OneRunRow";
  static std::uint64_t hash(Key) { return 0; }
};

// Two workloads against one reader in another process, which must never copy
// a torn row, never miss a key that is always there, and must see the last
// round. "rewrite": the writer rewrites the same few rows in place as fast as
// it can, so the reader keeps landing on a row being written. "move": keys
// in front of the kept ones in their probe run are deleted and put back
// (oldest first, so the one deleted is always at the front), and every
// delete moves the kept keys back past the reader's probe.
struct Workload {
  char const* name;
  std::uint32_t keys;
  std::uint32_t churn;
  std::uint32_t rounds;
};

void PrintTo(Workload const& w, std::ostream* os) { *os << w.name; }

class MemtabHammerTest : public MemtabTwoProcessTest, public ::testing::WithParamInterface<Workload> {};

TEST_P(MemtabHammerTest, ForkedReaderNeverSeesATornRowOrLosesAKey) {
  Workload const w = GetParam();
  std::string const name = uniqueShmName("hammer");
  Memtab::Collection<OneRunTraits> writer;
  writer.controlIs(control(name, Mode::writer), w.keys + w.churn);
  for (std::uint32_t c = 0; c < w.churn; ++c) writer.set(row(w.keys + c, 0));
  for (std::uint32_t k = 0; k < w.keys; ++k) writer.set(row(k, 0));

  auto rep = withForkedReader([&](int ready) { return readUntilLastRound<OneRunTraits>(name, w.keys, w.rounds, ready); },
                              [&] {
                                for (std::uint32_t round = 1; round <= w.rounds; ++round) {
                                  if (w.churn > 0) {
                                    std::uint32_t const oldest = w.keys + (round - 1) % w.churn;
                                    writer.erase(oldest);
                                    writer.set(row(oldest, round));
                                  }
                                  for (std::uint32_t k = 0; k < w.keys; ++k) writer.set(row(k, round));
                                }
                                writer.quiescedIs(true);
                              });
  EXPECT_EQ(rep.torn, 0U) << "over " << rep.reads << " reads";
  EXPECT_EQ(rep.missing, 0U) << "over " << rep.reads << " reads";
  EXPECT_EQ(rep.finished, 1U) << "the reader never saw the last round";
}

INSTANTIATE_TEST_SUITE_P(Workloads, MemtabHammerTest,
                         ::testing::Values(Workload{"rewrite", 2, 0, 400000},
                                           // each churn key once: the kept keys move back every round
                                           Workload{"move", 8, 2000, 2000}),
                         [](auto const& info) { return std::string(info.param.name); });

// The reader's probe of a row that rows moving back overtake. Its key() is
// where a test can stop the reader between two slots and run the writer:
// here, after the reader has passed six rows, those six are deleted and the
// row it looks for moves back behind it. Without the table's layout count
// the reader would reach the end of the run and report the row absent.
struct PausingTraits : OneRunTraits {
  static constexpr std::string_view typeName = "Test::PausingRow";
  static inline int slotsBeforePause = 0;
  static inline std::function<void()> pause;
  static Key key(Row const& r) {
    if (slotsBeforePause > 0 && --slotsBeforePause == 0) std::exchange(pause, nullptr)();
    return r.key;
  }
};

TEST_F(MemtabTest, ReaderOvertakenByMovingRowsStartsOverAndFindsTheRow) {
  Memtab::Collection<PausingTraits> table;
  table.controlIs(CollectionControl::privateCollectionControlIs(), 16);
  for (std::uint32_t c = 100; c < 106; ++c) table.set(row(c, 0));
  table.set(row(1, 0));
  PausingTraits::pause = [&] {
    for (std::uint32_t c = 100; c < 106; ++c) table.erase(c);
  };
  PausingTraits::slotsBeforePause = 6;
  EXPECT_EQ(table.find(1), row(1, 0));
  EXPECT_EQ(PausingTraits::pause, nullptr) << "the writer ran in the middle of the probe";
  EXPECT_EQ(table.size(), 1U);
}

// A writer that dies inside a write leaves a sequence count odd for good: a
// reader must give up on what it cannot read instead of spinning for ever.
TEST_F(MemtabTwoProcessTest, ReaderOfAWriterThatDiedInsideAWriteGivesUp) {
  std::string const name = uniqueShmName("crashed");
  pid_t const pid = ::fork();
  if (pid == 0) {
    Rows writer;
    writer.controlIs(control(name, Mode::writer), 4);
    writer.set(row(1, 1));
    writer.recordIs(Stats{1, 1});
    auto* h = static_cast<Memtab::Header*>(writer.control()->segment().data());
    Seqtab::writeBegin(h->layoutSeq);  // moving rows, as a delete does...
    Seqtab::writeBegin(h->recordSeq);
    ::_exit(0);                        // ...when the process dies
  }
  ::waitpid(pid, nullptr, 0);
  Rows reader;
  reader.controlIs(control(name, Mode::reader), 0);
  ASSERT_TRUE(reader.mounted());
  EXPECT_EQ(reader.find(1), std::nullopt);
  EXPECT_TRUE(reader.snapshot().empty());
  EXPECT_EQ(reader.record(), Stats{});
  Rows successor;
  successor.controlIs(control(name, Mode::writer), 4);
  EXPECT_TRUE(successor.control()->published()) << "the dead writer's segment is replaced";
}

TEST_F(MemtabTwoProcessTest, NameHeldByALiveWriterIsRefusedAndFreedWhenItDies) {
  std::string const name = uniqueShmName("owned");
  int ready[2], quit[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(quit), 0);
  pid_t const pid = ::fork();
  if (pid == 0) {
    Rows other;
    other.controlIs(control(name, Mode::writer), 4);
    char c = other.control()->published() ? 'p' : 'x';
    (void)!::write(ready[1], &c, 1);
    (void)!::read(quit[0], &c, 1);
    ::_exit(0);  // dies without closing: its segment stays behind
  }
  char c = 0;
  ASSERT_EQ(::read(ready[0], &c, 1), 1);
  ASSERT_EQ(c, 'p');
  {
    Rows refused;
    refused.controlIs(control(name, Mode::writer), 4);
    EXPECT_FALSE(refused.control()->published());
    EXPECT_EQ(refused.control()->error(), "not published (a writer (pid " + std::to_string(pid) +
                                              ") already publishes /dev/shm/falmroute." + name +
                                              "); the table is private to this process");
  }
  (void)!::write(quit[1], &c, 1);
  ::waitpid(pid, nullptr, 0);
  EXPECT_EQ(shmLeftovers().size(), 1U) << "a writer that died leaves its segment";
  Rows successor;
  successor.controlIs(control(name, Mode::writer), 4);
  EXPECT_TRUE(successor.control()->published()) << "the stale segment is replaced";
  for (int fd : {ready[0], ready[1], quit[0], quit[1]}) ::close(fd);
}

}  // namespace
