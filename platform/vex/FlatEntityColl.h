#pragma once
// A hashed collection of entities keyed by their own key (E::key()), laid
// out flat (FlatHashTable): same stable order, positioning and iterator
// survival as FlatHashColl<K, Ptr<E>>, without a second copy of each key.
//
// A slot is the member's hash and a reference to it (16 bytes; a null
// reference is a free slot). The key is read through the reference only
// where the hashes are equal, and when an iterator steps onto the member (it
// remembers the key to find its place again). Members read as Ptr<E>; an
// entity must not change its key while it is a member. find() and
// findOrInsert() return pointers to the entities themselves. Removal detaches
// a member before releasing it.
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "platform/vex/Assert.h"
#include "platform/vex/FlatHashTable.h"
#include "platform/vex/Ptr.h"

namespace Vex {

namespace detail {
// A slot holding a reference to an entity that holds its own key.
template <class K, class E>
struct FlatEntitySlot {
  static_assert(std::is_same_v<decltype(std::declval<E const&>().key()), K const&>,
                "a member's key() returns a reference to the key it holds");
  std::uint64_t hash = 0;
  Ptr<E> entity;

  bool used() const { return entity != nullptr; }
  K const& key() const { return entity->key(); }
  Ptr<E> const& member() const { return entity; }
  Ptr<E> const& value() const { return entity; }
  void fill(K const&, Ptr<E> e) { entity = std::move(e); }
  void moveTo(FlatEntitySlot& to) {
    to.hash = hash;
    to.entity = std::move(entity);
  }
  Ptr<E> take() { return std::move(entity); }
  void vacate() { entity = nullptr; }
};
}  // namespace detail

template <class K, class E, class Hash = std::hash<K>>
class FlatEntityColl : public FlatHashTable<K, detail::FlatEntitySlot<K, E>, Hash> {
 public:
  // The member under key, or null.
  E* find(K const& key) const {
    auto* s = this->slotOf(key);
    return s ? s->entity.get() : nullptr;
  }
  // The member under key and false; or, when absent, make()'s entity (whose
  // key must be key) inserted, and true. make() runs only when key is absent.
  template <class Make>
  std::pair<E*, bool> findOrInsert(K const& key, Make&& make) {
    auto [s, inserted] = this->findOrInsertWith(key, [&] {
      Ptr<E> e = make();
      VEX_ASSERT_MSG(e && e->key() == key, "FlatEntityColl: the new member's key differs from its place");
      return e;
    });
    return {s->entity.get(), inserted};
  }
};

}  // namespace Vex
