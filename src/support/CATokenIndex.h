#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cstddef>

// Purpose: a map from a 32-bit token to a pointer that is read without a lock while it is written.
//   A token once seen keeps its node for the life of the index, so a reader never meets freed
//   memory; what a token stands for is replaced in its node.
// Thread: Get by any thread, wait-free, RT safe. Set by any thread; writers never wait for readers.
// Ownership: owns its nodes, not what they point at.
// Units and range: memory grows by at most one node for each distinct token ever set to more than
//   null.
// Failure: Set throws std::bad_alloc.
template <class T>
class CATokenIndex {
 public:
  CATokenIndex() = default;
  ~CATokenIndex() {
    for (Node& theFirst : mFirstNodes) {
      for (Node* theNode = theFirst.mNext.load(std::memory_order_relaxed); theNode != nullptr;) {
        Node* theNext = theNode->mNext.load(std::memory_order_relaxed);
        delete theNode;
        theNode = theNext;
      }
    }
  }
  CATokenIndex(const CATokenIndex&) = delete;
  CATokenIndex& operator=(const CATokenIndex&) = delete;

  T* Get(UInt32 inToken) const noexcept {
    const UInt64 theKey = MakeKey(inToken);
    for (const Node* theNode = &mFirstNodes[inToken % kNumberBuckets]; theNode != nullptr;
         theNode = theNode->mNext.load(std::memory_order_acquire)) {
      if (theNode->mKey.load(std::memory_order_relaxed) == theKey) {
        return theNode->mObject.load(std::memory_order_acquire);
      }
    }
    return nullptr;
  }

  void Set(UInt32 inToken, T* inObject) {
    const UInt64 theKey = MakeKey(inToken);
    Node* theNode = &mFirstNodes[inToken % kNumberBuckets];
    while (!theNode->IsOf(theKey, inObject != nullptr)) {
      Node* theNext = theNode->mNext.load(std::memory_order_acquire);
      if (theNext == nullptr) {
        if (inObject == nullptr) return;
        Node* theNewNode = new Node(theKey, inObject);
        if (theNode->mNext.compare_exchange_strong(theNext, theNewNode, std::memory_order_release,
                                                   std::memory_order_acquire)) {
          return;
        }
        delete theNewNode;
      }
      theNode = theNext;
    }
    theNode->mObject.store(inObject, std::memory_order_release);
  }

 private:
  struct Node {
    Node() = default;
    Node(UInt64 inKey, T* inObject) : mKey(inKey), mObject(inObject) {}

    // Whether the node is the token's, which may take it if nobody has.
    bool IsOf(UInt64 inKey, bool inMayTake) {
      UInt64 theKey = mKey.load(std::memory_order_relaxed);
      if (theKey == 0 && inMayTake &&
          mKey.compare_exchange_strong(theKey, inKey, std::memory_order_relaxed)) {
        return true;
      }
      return theKey == inKey;
    }

    // 0 until a token takes the node, and then that token's for good. It orders nothing: until the
    // object is stored, the token stands for null.
    std::atomic<UInt64> mKey{0};
    std::atomic<T*> mObject{nullptr};
    std::atomic<Node*> mNext{nullptr};
  };

  // Tokens are handed out one after the other, so the low bits spread them evenly.
  static constexpr size_t kNumberBuckets = 256;

  static constexpr UInt64 MakeKey(UInt32 inToken) noexcept { return UInt64{1} << 32 | inToken; }

  // The first node of a bucket stands in the table itself, where a reader finds it at once.
  Node mFirstNodes[kNumberBuckets];
};
