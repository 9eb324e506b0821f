#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cstddef>

// Purpose: a map from a 32-bit token to a pointer that is read without a lock while it is written.
//   A token once seen keeps its node for the life of the index, so a reader never meets freed
//   memory; what a token stands for is replaced in its node.
// Thread: Get by any thread, wait-free, RT safe. Set by any thread; writers never wait for readers.
// Ownership: owns its nodes, not what they point at.
// Units and range: memory grows by one node for each distinct token ever set to more than null.
// Failure: Set throws std::bad_alloc.
template <class T>
class CATokenIndex {
 public:
  CATokenIndex() = default;
  ~CATokenIndex() {
    for (auto& theBucket : mBuckets) {
      for (Node* theNode = theBucket.load(std::memory_order_relaxed); theNode != nullptr;) {
        Node* theNext = theNode->mNext;
        delete theNode;
        theNode = theNext;
      }
    }
  }
  CATokenIndex(const CATokenIndex&) = delete;
  CATokenIndex& operator=(const CATokenIndex&) = delete;

  T* Get(UInt32 inToken) const noexcept {
    const Node* theNode = Find(GetBucket(inToken).load(std::memory_order_acquire), inToken);
    return theNode != nullptr ? theNode->mObject.load(std::memory_order_acquire) : nullptr;
  }

  void Set(UInt32 inToken, T* inObject) {
    std::atomic<Node*>& theBucket = mBuckets[inToken % kNumberBuckets];
    Node* theHead = theBucket.load(std::memory_order_acquire);
    Node* theNewNode = nullptr;
    for (;;) {
      if (Node* theNode = Find(theHead, inToken)) {
        theNode->mObject.store(inObject, std::memory_order_release);
        delete theNewNode;
        return;
      }
      if (inObject == nullptr) {
        delete theNewNode;
        return;
      }
      if (theNewNode == nullptr) theNewNode = new Node(inToken, inObject);
      theNewNode->mNext = theHead;
      if (theBucket.compare_exchange_weak(theHead, theNewNode, std::memory_order_release,
                                          std::memory_order_acquire)) {
        return;
      }
    }
  }

 private:
  struct Node {
    Node(UInt32 inToken, T* inObject) : mToken(inToken), mObject(inObject) {}

    const UInt32 mToken;
    std::atomic<T*> mObject;
    Node* mNext = nullptr;  // as it was when the node was published
  };

  // Tokens are handed out one after the other, so the low bits spread them evenly.
  static constexpr size_t kNumberBuckets = 256;

  static const Node* Find(const Node* inNode, UInt32 inToken) noexcept {
    while (inNode != nullptr && inNode->mToken != inToken) inNode = inNode->mNext;
    return inNode;
  }
  static Node* Find(Node* inNode, UInt32 inToken) noexcept {
    return const_cast<Node*>(Find(static_cast<const Node*>(inNode), inToken));
  }
  const std::atomic<Node*>& GetBucket(UInt32 inToken) const noexcept {
    return mBuckets[inToken % kNumberBuckets];
  }

  std::atomic<Node*> mBuckets[kNumberBuckets] = {};
};
