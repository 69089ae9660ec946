#include "platform/vex/SmallBlockPool.h"

namespace Vex {

void SmallBlockPool::newChunk() {
  auto* const chunk = static_cast<char*>(::operator new(kChunkBytes));
  lastChunk_ = new (chunk) Link{lastChunk_};
  ++chunkCount_;
  next_ = chunk + sizeof(Link);
  end_ = chunk + kChunkBytes;
}

namespace {
constinit SmallBlockPool theRouteObjectPool;
}  // namespace

SmallBlockPool& routeObjectPool() { return theRouteObjectPool; }

}  // namespace Vex
