#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vex/Ptr.h"
#include "platform/vex/SmallBlockPool.h"

namespace {

constexpr bool kPooling = Vex::SmallBlockPool::kPooling;

struct Block {
  unsigned char* p;
  std::size_t n;
};

TEST(SmallBlockPoolTest, BlocksOfMixedSizesAcrossChunksAreDistinctAndKeepTheirBytes) {
  Vex::SmallBlockPool pool;
  std::size_t const sizes[] = {104, 56, 8, 256};
  std::vector<Block> blocks;
  std::size_t bytes = 0;
  for (std::size_t i = 0; bytes < 3 * Vex::SmallBlockPool::kChunkBytes; ++i) {
    std::size_t const n = sizes[i % 4];
    auto* p = static_cast<unsigned char*>(pool.allocate(n));
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % 8, 0u);
    std::memset(p, static_cast<int>(i * 31 % 251), n);
    blocks.push_back({p, n});
    bytes += n;
  }
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    auto const want = static_cast<unsigned char>(i * 31 % 251);
    for (std::size_t k = 0; k < blocks[i].n; ++k) ASSERT_EQ(blocks[i].p[k], want) << "block " << i << " byte " << k;
  }
  if (kPooling) {
    EXPECT_EQ(pool.chunks(), 4u);  // three chunks' worth, less their links and tails
    EXPECT_EQ(pool.blockBytes(), bytes);
  }
  for (auto const& b : blocks) pool.deallocate(b.p, b.n);
  EXPECT_EQ(pool.blockBytes(), 0u);
  EXPECT_EQ(pool.chunkBytes(), pool.chunks() * Vex::SmallBlockPool::kChunkBytes);
}

TEST(SmallBlockPoolTest, BlocksOfOneRouteLieSideBySide) {
  if (!kPooling) GTEST_SKIP() << "sanitizer build: every block comes from operator new";
  Vex::SmallBlockPool pool;
  auto* status = static_cast<char*>(pool.allocate(104));
  auto* route = static_cast<char*>(pool.allocate(56));
  auto* next = static_cast<char*>(pool.allocate(104));
  EXPECT_EQ(route, status + 104);
  EXPECT_EQ(next, route + 56);
}

TEST(SmallBlockPoolTest, AFreedBlockIsReusedOnlyForItsOwnSize) {
  if (!kPooling) GTEST_SKIP() << "sanitizer build: every block comes from operator new";
  Vex::SmallBlockPool pool;
  void* const a = pool.allocate(104);
  void* const b = pool.allocate(104);
  void* const c = pool.allocate(56);
  pool.deallocate(a, 104);
  pool.deallocate(b, 104);
  void* const d = pool.allocate(56);  // not a freed 104-byte block
  EXPECT_NE(d, a);
  EXPECT_NE(d, b);
  EXPECT_EQ(pool.allocate(104), b);  // the last freed first
  EXPECT_EQ(pool.allocate(104), a);
  EXPECT_EQ(pool.chunks(), 1u);
  pool.deallocate(c, 56);
  pool.deallocate(d, 56);
}

TEST(SmallBlockPoolTest, SizesItDoesNotPoolGoToTheGeneralAllocator) {
  Vex::SmallBlockPool pool;
  for (std::size_t n : {std::size_t{0}, std::size_t{12}, Vex::SmallBlockPool::kMaxBlock + 8}) {
    EXPECT_FALSE(Vex::SmallBlockPool::pools(n)) << n;
    void* const p = pool.allocate(n);
    std::memset(p, 1, n);
    pool.deallocate(p, n);
  }
  pool.deallocate(nullptr, 104);
  EXPECT_EQ(pool.chunks(), 0u);
  EXPECT_EQ(Vex::SmallBlockPool::pools(104), kPooling);
}

// An entity type as the route types use the pool: its own operator new and
// delete, reached from the framework's delete through the virtual destructor.
Vex::SmallBlockPool nodePool;

class Node : public Vex::RefCounted {
 public:
  explicit Node(int* deaths) : deaths_(deaths) {}
  ~Node() override { ++*deaths_; }
  static void* operator new(std::size_t n) { return nodePool.allocate(n); }
  static void operator delete(void* p, std::size_t n) noexcept { nodePool.deallocate(p, n); }

 private:
  int* deaths_;
};

// A derived class of another size: delete passes its own size.
class BigNode : public Node {
 public:
  using Node::Node;
  char more[300] = {};
};

TEST(SmallBlockPoolTest, AnEntityReleasedByItsLastReferenceGoesBackToItsPool) {
  int deaths = 0;
  Node* firstAddress = nullptr;
  {
    auto n = Vex::make<Node>(&deaths);
    firstAddress = n.get();
    Vex::Ptr<Vex::RefCounted> base = n;
  }
  EXPECT_EQ(deaths, 1);
  {
    auto big = Vex::make<BigNode>(&deaths);  // larger than the pool's blocks: the general allocator
    big->more[299] = 1;
    auto again = Vex::make<Node>(&deaths);
    if (kPooling) {
      EXPECT_EQ(again.get(), firstAddress);
    }
  }
  EXPECT_EQ(deaths, 3);
  EXPECT_EQ(nodePool.chunks(), kPooling ? 1u : 0u);
}

}  // namespace
