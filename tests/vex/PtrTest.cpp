#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vex/Ptr.h"

namespace {

using Log = std::vector<std::string>;

// Records its zero-reference calls and its destruction; may revive itself once
// into a registry, and may take a reference to itself while being released.
class Tracked : public Vex::RefCounted {
 public:
  Tracked(Log* log, std::vector<Vex::Ptr<Tracked>>* registry = nullptr) : log_(log), registry_(registry) {}
  ~Tracked() override {
    Vex::Ptr<Tracked> self(this);  // a reference taken and dropped while dying
    log_->push_back("deleted");
  }
  bool touchSelfOnRelease = false;

 protected:
  void zeroReferencesIs() override {
    log_->push_back("zeroReferences");
    if (touchSelfOnRelease) Vex::Ptr<Tracked> self(this);
    if (registry_) registry_->push_back(this);
    registry_ = nullptr;
  }

 private:
  Log* log_;
  std::vector<Vex::Ptr<Tracked>>* registry_;
};

TEST(PtrTest, CountFollowsCopiesMovesAndResets) {
  Log log;
  auto a = Vex::make<Tracked>(&log);
  EXPECT_EQ(a->references(), 1u);
  Vex::Ptr<Tracked> b = a;
  EXPECT_EQ(a->references(), 2u);
  Vex::Ptr<Tracked> c = std::move(b);
  EXPECT_EQ(b, nullptr);
  EXPECT_EQ(c, a);
  EXPECT_EQ(a->references(), 2u);
  c = a;  // self-assignment of the same object keeps the count
  EXPECT_EQ(a->references(), 2u);
  a = nullptr;
  EXPECT_EQ(c->references(), 1u);
  EXPECT_TRUE(log.empty());
  c = nullptr;
  EXPECT_EQ(log, (Log{"zeroReferences", "deleted"}));
}

TEST(PtrTest, ObjectStoredDuringZeroReferencesSurvivesUntilReleasedAgain) {
  Log log;
  std::vector<Vex::Ptr<Tracked>> registry;
  auto p = Vex::make<Tracked>(&log, &registry);
  Tracked* raw = p.get();
  p = nullptr;
  EXPECT_EQ(log, (Log{"zeroReferences"}));
  ASSERT_EQ(registry.size(), 1u);
  EXPECT_EQ(registry[0].get(), raw);
  EXPECT_EQ(raw->references(), 1u);
  registry.clear();
  EXPECT_EQ(log, (Log{"zeroReferences", "zeroReferences", "deleted"}));
}

TEST(PtrTest, ReferencesTakenWhileReleasingOrDyingDoNotReleaseAgain) {
  Log log;
  auto p = Vex::make<Tracked>(&log);
  p->touchSelfOnRelease = true;
  p = nullptr;
  EXPECT_EQ(log, (Log{"zeroReferences", "deleted"}));
}

TEST(PtrTest, ComparingWithARawPointerTakesNoReference) {
  Log log;
  auto* raw = new Tracked(&log);  // not owned yet: a temporary reference would release it
  Vex::Ptr<Tracked> none;
  EXPECT_FALSE(none == raw);
  EXPECT_TRUE(none != raw);
  EXPECT_TRUE(log.empty());
  Vex::Ptr<Tracked> owner(raw);
  EXPECT_TRUE(owner == raw);
  EXPECT_TRUE(raw == owner);
  EXPECT_EQ(owner->references(), 1u);
}

TEST(PtrTest, ConstCastGivesMutableAccessToTheSameObject) {
  Log log;
  Vex::Ptr<Tracked const> shared = Vex::make<Tracked>(&log);
  Vex::Ptr<Tracked> mut = Vex::ptrConstCast(shared);
  mut->touchSelfOnRelease = true;
  EXPECT_EQ(mut.get(), shared.get());
  EXPECT_EQ(shared->references(), 2u);
}

// A holds B; B points back at A and calls into it from its destructor, while
// A is itself being destroyed.
class Back;
class Front : public Vex::RefCounted {
 public:
  explicit Front(Log* log) : log_(log) {}
  ~Front() override {
    log_->push_back("front dying");
    back_ = nullptr;
    log_->push_back("front dead");
  }
  void backGone() {
    Vex::Ptr<Front> self(this);
    log_->push_back("front told");
  }
  Vex::Ptr<Back> back_;
  Log* log_;
};
class Back : public Vex::RefCounted {
 public:
  explicit Back(Front* front) : front_(front) {}
  ~Back() override {
    front_->log_->push_back("back dying");
    front_->backGone();
  }
  Front* front_;  // not owned: the front owns this
};

TEST(PtrTest, DestructorReleasingAPeerThatCallsBackIsSafe) {
  Log log;
  auto front = Vex::make<Front>(&log);
  front->back_ = Vex::make<Back>(front.get());
  front = nullptr;
  EXPECT_EQ(log, (Log{"front dying", "back dying", "front told", "front dead"}));
}

}  // namespace
