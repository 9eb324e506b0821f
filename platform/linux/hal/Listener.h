#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>

#include <memory>
#include <span>

#include "hal/ListenerGuard.h"

namespace tembra::hal {

// The forms in which clients listen.
enum class ListenerKind { kObjectProc, kObjectBlock, kHardwareProc, kDeviceProc, kStreamProc };

// What a client gave; also what identifies the registration when it is removed.
struct ListenerTarget {
  ListenerKind mKind = ListenerKind::kObjectProc;
  void* mFunction = nullptr;          // the procedure, or the client's own block
  void* mClientData = nullptr;        // procedures only
  dispatch_queue_t mQueue = nullptr;  // blocks only; null is the host's own thread
};

// One registration. Owns a copy of the block and a reference to the queue.
class Listener : public std::enable_shared_from_this<Listener> {
 public:
  // Null if the block cannot be copied.
  static std::shared_ptr<Listener> Make(AudioObjectID inObjectID,
                                        const AudioObjectPropertyAddress& inAddress,
                                        const ListenerTarget& inTarget);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  AudioObjectID GetObjectID() const { return mObjectID; }
  const AudioObjectPropertyAddress& GetAddress() const { return mAddress; }

  // inAnyClientData: the older removals name the procedure alone.
  bool Is(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
          const ListenerTarget& inTarget, bool inAnyClientData) const;

  // Calls the client with those of the addresses that it listens for, here or on its queue.
  void Deliver(std::span<const AudioObjectPropertyAddress> inChanged);

  // After this has returned the client is not called again.
  bool Remove() { return mGuard.Remove(); }

 private:
  Listener(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
           const ListenerTarget& inTarget)
      : mObjectID(inObjectID), mAddress(inAddress), mTarget(inTarget) {}

  void CallUnlessRemoved(std::span<const AudioObjectPropertyAddress> inChanged);
  void Call(std::span<const AudioObjectPropertyAddress> inChanged) const;

  const AudioObjectID mObjectID;
  const AudioObjectPropertyAddress mAddress;
  ListenerTarget mTarget;
  AudioObjectPropertyListenerBlock mBlock = nullptr;
  ListenerGuard mGuard;
};

// Equal, where a wildcard on either side equals anything.
bool IsCongruent(const AudioObjectPropertyAddress& inA, const AudioObjectPropertyAddress& inB);
bool IsSame(const AudioObjectPropertyAddress& inA, const AudioObjectPropertyAddress& inB);

}  // namespace tembra::hal
