// An ordered collection keyed by address: a balanced search tree that is walked in key order.
//
// A B+ tree: members of neighbouring keys lie side by side, some 20 bytes a member with its share
// of the tree. Leaves split when full and are deleted when empty. An iterator remembers its key:
// members may be added and removed meanwhile, and `++` goes to the next greater key that is there
// then. So a walk over a million groups can stop, remember a bookmark, and resume (lowerBound).
//
//   OrderedMap<Ilvo::IpAddr, Ptr<QuerierGroupStatus>> group;
//   for (auto at = group.lowerBound(bookmark); at != group.end(); ++at) use(at.key(), *at);
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <limits>
#include <memory>
#include <utility>

#include <MoxBase/Types.h>

namespace Mox {

// K: ordered, cheap to copy. V: has an empty value V().
template <class K, class V>
class OrderedMap {
  struct Leaf;

 public:
  OrderedMap() = default;
  OrderedMap(const OrderedMap&) = delete;
  OrderedMap& operator=(const OrderedMap&) = delete;
  ~OrderedMap() { clear(); }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  V* find(K key) {
    // A key is mostly looked up several times in a row: its leaf is remembered.
    Leaf* leaf = recent_;
    if (leaf == nullptr || key < leaf->keys[0] || leaf->keys[leaf->count - 1] < key) {
      leaf = recent_ = leafOf(key);
    }
    if (leaf == nullptr) return nullptr;
    const unsigned at = leaf->lowerBound(key);
    return at < leaf->count && leaf->keys[at] == key ? &leaf->values[at] : nullptr;
  }
  const V* find(K key) const { return const_cast<OrderedMap*>(this)->find(key); }

  // Adds the member, or gives the one of that key a new value; true when it was added.
  bool insert(K key, V value) {
    if (V* found = find(key)) {
      *found = std::move(value);
      return false;
    }
    ++version_;
    ++size_;
    if (root_ == nullptr) root_ = first_ = new Leaf;
    if (Node* right = insertBelow(root_, height_, key, std::move(value))) growRoot(right);
    return true;
  }

  // Removes the member of that key; false when there is none.
  bool erase(K key) {
    if (find(key) == nullptr) return false;
    ++version_;
    --size_;
    V gone;  // its destructor may use this map: it runs last, when the tree is whole again
    if (eraseBelow(root_, height_, key, gone)) {
      root_ = nullptr;
      height_ = 0;
    }
    while (height_ > 0 && root_->count == 1) {
      Inner* top = static_cast<Inner*>(root_);
      root_ = top->children[0];
      --height_;
      delete top;
    }
    return true;
  }

  void clear() {
    ++version_;
    size_ = 0;
    first_ = recent_ = nullptr;
    destroy(std::exchange(root_, nullptr), std::exchange(height_, 0));
  }

  class Iterator {
   public:
    using value_type = V;
    using difference_type = std::ptrdiff_t;

    K key() const { return key_; }
    // The member's value; its key must still be there.
    const V& operator*() const {
      settle();
      return leaf_->values[at_];
    }
    Iterator& operator++() {
      if (version_ == map_->version_) {
        step();
      } else {
        *this = map_->upperBound(key_);
      }
      return *this;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) {
      return a.atEnd() == b.atEnd() && (a.atEnd() || a.key_ == b.key_);
    }

   private:
    friend class OrderedMap;
    explicit Iterator(const OrderedMap* map) : map_(map), version_(map->version_) {}
    bool atEnd() const { return leaf_ == nullptr; }
    void standAt(const Leaf* leaf, unsigned at) {
      leaf_ = leaf;
      at_ = at;
      if (leaf_ != nullptr && at_ == leaf_->count) {
        leaf_ = leaf_->next;
        at_ = 0;
      }
      if (leaf_ != nullptr) key_ = leaf_->keys[at_];
    }
    void step() { standAt(leaf_, at_ + 1); }
    void settle() const {
      if (version_ != map_->version_) *const_cast<Iterator*>(this) = map_->lowerBound(key_);
    }

    const OrderedMap* map_;
    const Leaf* leaf_ = nullptr;
    U64 version_;
    unsigned at_ = 0;
    K key_{};
  };

  Iterator begin() const {
    Iterator it(this);
    it.standAt(first_, 0);
    return it;
  }
  Iterator end() const { return Iterator(this); }

  // At the first member whose key is not less than `key`.
  Iterator lowerBound(K key) const {
    Iterator it(this);
    if (const Leaf* leaf = leafOf(key)) it.standAt(leaf, leaf->lowerBound(key));
    return it;
  }
  // At the first member whose key is greater than `key`.
  Iterator upperBound(K key) const {
    Iterator it = lowerBound(key);
    if (!it.atEnd() && it.key_ == key) it.step();
    return it;
  }

  // Calls f(key, value) for at most `most` members from a bookmark on, 0 at first, and returns the
  // next bookmark, or 0 at the end. For keys that are numbers of 32 bits.
  template <class F>
  U64 walk(U64 bookmark, size_t most, F f) const {
    if (bookmark > std::numeric_limits<U32>::max()) return 0;
    U64 next = bookmark;
    for (auto at = lowerBound(K(static_cast<U32>(bookmark))); at != end(); ++at, --most) {
      if (most == 0) return next;
      f(at.key(), *at);
      next = U64{at.key().value()} + 1;
    }
    return 0;
  }

 private:
  static constexpr unsigned fanout = 32;

  struct Node {
    unsigned count = 0;
    std::array<K, fanout> keys{};  // of an inner node: not greater than any key below the child

    unsigned lowerBound(K key) const {
      return static_cast<unsigned>(std::lower_bound(keys.begin(), keys.begin() + count, key) -
                                   keys.begin());
    }
    void openGap(unsigned at) {
      std::move_backward(keys.begin() + at, keys.begin() + count, keys.begin() + count + 1);
    }
    void closeGap(unsigned at) {
      std::move(keys.begin() + at + 1, keys.begin() + count, keys.begin() + at);
    }
  };
  struct Leaf : Node {
    Leaf* next = nullptr;
    Leaf* previous = nullptr;
    std::array<V, fanout> values{};
  };
  struct Inner : Node {
    std::array<Node*, fanout> children{};
    // The child whose range holds the key; keys below all others belong to the first.
    unsigned childOf(K key) const {
      const auto after =
          std::upper_bound(this->keys.begin(), this->keys.begin() + this->count, key);
      return after == this->keys.begin() ? 0
                                         : static_cast<unsigned>(after - this->keys.begin() - 1);
    }
  };

  Leaf* leafOf(K key) const {
    Node* node = root_;
    for (unsigned h = height_; h > 0; --h) {
      Inner* inner = static_cast<Inner*>(node);
      node = inner->children[inner->childOf(key)];
    }
    return static_cast<Leaf*>(node);
  }

  // Where a full node is cut: in the middle, but at its end when keys come in ascending order, so
  // that leaves stay full then.
  static unsigned cutFor(const Node& full, K key) {
    return full.keys[fanout - 1] < key ? fanout - 1 : fanout / 2;
  }

  template <class N, class Array>
  static N* split(N* node, Array N::*items, K key) {
    const unsigned cut = cutFor(*node, key);
    N* right = new N;
    std::move(node->keys.begin() + cut, node->keys.end(), right->keys.begin());
    std::move((node->*items).begin() + cut, (node->*items).end(), (right->*items).begin());
    right->count = fanout - cut;
    node->count = cut;
    return right;
  }

  template <class N, class Array, class T>
  static void put(N* node, Array N::*items, unsigned at, K key, T value) {
    auto& list = node->*items;
    node->openGap(at);
    std::move_backward(list.begin() + at, list.begin() + node->count,
                       list.begin() + node->count + 1);
    node->keys[at] = key;
    list[at] = std::move(value);
    ++node->count;
  }

  template <class N, class Array>
  static void take(N* node, Array N::*items, unsigned at) {
    auto& list = node->*items;
    node->closeGap(at);
    std::move(list.begin() + at + 1, list.begin() + node->count, list.begin() + at);
    --node->count;
    list[node->count] = {};
  }

  Node* insertLeaf(Leaf* leaf, K key, V value) {
    Leaf* right = nullptr;
    Leaf* target = leaf;
    if (leaf->count == fanout) {
      right = split(leaf, &Leaf::values, key);
      right->next = leaf->next;
      right->previous = leaf;
      if (leaf->next != nullptr) leaf->next->previous = right;
      leaf->next = right;
      if (!(key < right->keys[0])) target = right;
    }
    put(target, &Leaf::values, target->lowerBound(key), key, std::move(value));
    return right;
  }

  // The new right neighbour of `node` when it had to be split, else null.
  Node* insertBelow(Node* node, unsigned height, K key, V value) {
    if (height == 0) return insertLeaf(static_cast<Leaf*>(node), key, std::move(value));
    Inner* inner = static_cast<Inner*>(node);
    const unsigned at = inner->childOf(key);
    if (key < inner->keys[at]) inner->keys[at] = key;
    Node* added = insertBelow(inner->children[at], height - 1, key, std::move(value));
    if (added == nullptr) return nullptr;
    const K least = added->keys[0];
    Inner* right = nullptr;
    Inner* target = inner;
    if (inner->count == fanout) {
      right = split(inner, &Inner::children, least);
      if (!(least < right->keys[0])) target = right;
    }
    put(target, &Inner::children, target->lowerBound(least), least, added);
    return right;
  }

  void growRoot(Node* right) {
    Inner* top = new Inner;
    top->keys[0] = root_->keys[0];
    top->keys[1] = right->keys[0];
    top->children[0] = root_;
    top->children[1] = right;
    top->count = 2;
    root_ = top;
    ++height_;
  }

  // True when the node became empty and was deleted.
  bool eraseBelow(Node* node, unsigned height, K key, V& gone) {
    if (height == 0) return eraseLeaf(static_cast<Leaf*>(node), key, gone);
    Inner* inner = static_cast<Inner*>(node);
    const unsigned at = inner->childOf(key);
    if (!eraseBelow(inner->children[at], height - 1, key, gone)) return false;
    take(inner, &Inner::children, at);
    if (inner->count > 0) return false;
    delete inner;
    return true;
  }

  bool eraseLeaf(Leaf* leaf, K key, V& gone) {
    const unsigned at = leaf->lowerBound(key);
    gone = std::exchange(leaf->values[at], V());
    take(leaf, &Leaf::values, at);
    if (leaf->count > 0) return false;
    if (recent_ == leaf) recent_ = nullptr;
    if (leaf->next != nullptr) leaf->next->previous = leaf->previous;
    (leaf->previous != nullptr ? leaf->previous->next : first_) = leaf->next;
    delete leaf;
    return true;
  }

  static void destroy(Node* node, unsigned height) {
    if (node == nullptr) return;
    if (height == 0) {
      delete static_cast<Leaf*>(node);
      return;
    }
    Inner* inner = static_cast<Inner*>(node);
    for (unsigned at = 0; at < inner->count; ++at) destroy(inner->children[at], height - 1);
    delete inner;
  }

  Node* root_ = nullptr;
  Leaf* first_ = nullptr;
  Leaf* recent_ = nullptr;
  unsigned height_ = 0;
  size_t size_ = 0;
  U64 version_ = 0;
};

}  // namespace Mox
