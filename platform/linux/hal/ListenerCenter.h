#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <tuple>
#include <vector>

#include "hal/Listener.h"

namespace tembra::hal {

// All listeners of this process, and the thread that calls them.
//
// Any thread may register and post; nothing here calls a client or a plug-in with a lock held.
// Events are delivered by one thread in the order in which they were posted, each to the listeners
// that are registered when its turn comes.
class ListenerCenter {
 public:
  // What the center needs of the host, called with no lock held.
  class Delegate {
   public:
    // The first listener for an address of an object has come, or the last one has gone. Called by
    // the thread that registers or removes.
    virtual void InterestChanged(AudioObjectID inObjectID,
                                 const AudioObjectPropertyAddress& inAddress, bool inIsAdded) = 0;
    // The list of devices has changed; called by the delivery thread, after the listeners of it.
    virtual void DevicesChanged() = 0;

   protected:
    ~Delegate() = default;
  };

  explicit ListenerCenter(Delegate& inDelegate) : mDelegate(inDelegate) {}

  // A second registration of the same listener is no further one.
  OSStatus Add(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
               const ListenerTarget& inTarget);
  // When this has returned, none of the listeners that were removed is called again.
  // False if there was none.
  bool Remove(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
              const ListenerTarget& inTarget, bool inAnyClientData);

  void PostChanges(AudioObjectID inObjectID,
                   std::span<const AudioObjectPropertyAddress> inAddresses);
  // The object's listeners go when all that was posted before has been delivered.
  void PostDeath(AudioObjectID inObjectID);
  void PostDevicesChanged();

  // Whether the caller is called by a listener center.
  static bool IsDeliveryThread();

  // From now on nothing is delivered, for the process is ending.
  void Close();

 private:
  struct Event {
    enum class Kind { kChanges, kDeath, kDevicesChanged };
    Kind mKind;
    AudioObjectID mObjectID;
    std::vector<AudioObjectPropertyAddress> mAddresses;
  };
  // Of one address of one object. Whoever finds the plug-in not yet told what is so, and nobody
  // telling it, tells it.
  struct Interest {
    size_t mListeners = 0;
    bool mIsToldOf = false;
    bool mIsBeingTold = false;
  };
  using Key = std::tuple<AudioObjectID, UInt32, UInt32, UInt32>;
  using Listeners = std::vector<std::shared_ptr<Listener>>;

  static Key KeyOf(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress);

  void Post(Event inEvent);
  void TellOfInterest(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress);
  Listeners ListenersOf(AudioObjectID inObjectID);
  void RemoveAllOf(AudioObjectID inObjectID);
  void Deliver(const Event& inEvent);
  void Run();

  Delegate& mDelegate;
  std::atomic<bool> mIsClosed{false};

  Mutex mMutex;
  Listeners mListeners TEMBRA_GUARDED_BY(mMutex);
  std::map<Key, Interest> mInterests TEMBRA_GUARDED_BY(mMutex);

  // Apart from the other lock, so that a post waits for another post at most.
  Mutex mQueueMutex;
  ConditionVariable mQueueFilled;
  std::deque<Event> mQueue TEMBRA_GUARDED_BY(mQueueMutex);
  std::deque<Event> mDelivering;  // the delivery thread's own
  bool mHasThread TEMBRA_GUARDED_BY(mQueueMutex) = false;
};

}  // namespace tembra::hal
