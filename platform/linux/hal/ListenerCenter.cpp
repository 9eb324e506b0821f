#include "hal/ListenerCenter.h"

#include <algorithm>

#include <pthread.h>

#include "base/ServiceThread.h"

namespace tembra::hal {

namespace {

thread_local bool tIsDeliveryThread = false;

}  // namespace

bool ListenerCenter::IsDeliveryThread() {
  return tIsDeliveryThread;
}

ListenerCenter::Key ListenerCenter::KeyOf(AudioObjectID inObjectID,
                                          const AudioObjectPropertyAddress& inAddress) {
  return {inObjectID, inAddress.mSelector, inAddress.mScope, inAddress.mElement};
}

OSStatus ListenerCenter::Add(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
                             const ListenerTarget& inTarget) {
  std::shared_ptr<Listener> listener = Listener::Make(inObjectID, inAddress, inTarget);
  if (!listener) {
    return kAudioHardwareUnspecifiedError;
  }
  {
    MutexLock lock(mMutex);
    for (const auto& other : mListeners) {
      if (other->Is(inObjectID, inAddress, inTarget, false)) {
        return kAudioHardwareNoError;
      }
    }
    mListeners.push_back(std::move(listener));
    mInterests[KeyOf(inObjectID, inAddress)].mListeners += 1;
  }
  TellOfInterest(inObjectID, inAddress);
  return kAudioHardwareNoError;
}

bool ListenerCenter::Remove(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
                            const ListenerTarget& inTarget, bool inAnyClientData) {
  Listeners removed;
  {
    MutexLock lock(mMutex);
    std::erase_if(mListeners, [&](const std::shared_ptr<Listener>& listener) {
      const bool isMeant = listener->Is(inObjectID, inAddress, inTarget, inAnyClientData);
      if (isMeant) {
        removed.push_back(listener);
      }
      return isMeant;
    });
    if (!removed.empty()) {
      mInterests[KeyOf(inObjectID, inAddress)].mListeners -= removed.size();
    }
  }
  if (removed.empty()) {
    return false;
  }
  for (const auto& listener : removed) {
    listener->Remove();
  }
  TellOfInterest(inObjectID, inAddress);
  return true;
}

void ListenerCenter::TellOfInterest(AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress& inAddress) {
  const Key key = KeyOf(inObjectID, inAddress);
  for (;;) {
    bool isAdded = false;
    {
      MutexLock lock(mMutex);
      const auto found = mInterests.find(key);
      if (found == mInterests.end() || found->second.mIsBeingTold) {
        return;
      }
      Interest& interest = found->second;
      if (interest.mIsToldOf == (interest.mListeners > 0)) {
        if (!interest.mIsToldOf) {
          mInterests.erase(found);
        }
        return;
      }
      isAdded = interest.mIsToldOf = !interest.mIsToldOf;
      interest.mIsBeingTold = true;
    }
    mDelegate.InterestChanged(inObjectID, inAddress, isAdded);
    MutexLock lock(mMutex);
    mInterests[key].mIsBeingTold = false;
  }
}

void ListenerCenter::PostChanges(AudioObjectID inObjectID,
                                 std::span<const AudioObjectPropertyAddress> inAddresses) {
  Post({Event::Kind::kChanges, inObjectID, {inAddresses.begin(), inAddresses.end()}});
}

void ListenerCenter::PostDeath(AudioObjectID inObjectID) {
  Post({Event::Kind::kDeath, inObjectID, {}});
}

void ListenerCenter::PostDevicesChanged() {
  Post({Event::Kind::kDevicesChanged, kAudioObjectUnknown, {}});
}

void ListenerCenter::Post(Event inEvent) {
  MutexLock lock(mQueueMutex);
  if (mIsClosed) {
    return;
  }
  if (!mHasThread) {
    mHasThread = StartServiceThread(
        "tembra.hal", [](void* center) { static_cast<ListenerCenter*>(center)->Run(); }, this);
  }
  mQueue.push_back(std::move(inEvent));
  mQueueFilled.notify_one();
}

void ListenerCenter::Close() {
  MutexLock lock(mQueueMutex);
  mIsClosed = true;
  mQueue.clear();
}

void ListenerCenter::Run() {
  pthread_setname_np("tembra.hal.notify");
  tIsDeliveryThread = true;
  for (;;) {
    {
      MutexLock lock(mQueueMutex);
      while (mQueue.empty()) {
        mQueueFilled.wait(mQueueMutex);
      }
      mDelivering.swap(mQueue);
    }
    for (const Event& event : mDelivering) {
      Deliver(event);
    }
    mDelivering.clear();
  }
}

void ListenerCenter::Deliver(const Event& inEvent) {
  switch (inEvent.mKind) {
    case Event::Kind::kChanges:
      for (const auto& listener : ListenersOf(inEvent.mObjectID)) {
        if (mIsClosed) {
          return;
        }
        listener->Deliver(inEvent.mAddresses);
      }
      break;
    case Event::Kind::kDeath:
      RemoveAllOf(inEvent.mObjectID);
      break;
    case Event::Kind::kDevicesChanged:
      if (!mIsClosed) {
        mDelegate.DevicesChanged();
      }
      break;
  }
}

ListenerCenter::Listeners ListenerCenter::ListenersOf(AudioObjectID inObjectID) {
  MutexLock lock(mMutex);
  Listeners listeners;
  std::copy_if(mListeners.begin(), mListeners.end(), std::back_inserter(listeners),
               [&](const auto& listener) { return listener->GetObjectID() == inObjectID; });
  return listeners;
}

void ListenerCenter::RemoveAllOf(AudioObjectID inObjectID) {
  // Freed with the lock dropped: a block's end may run anything.
  Listeners gone;
  MutexLock lock(mMutex);
  std::erase_if(mListeners, [&](const std::shared_ptr<Listener>& listener) {
    const bool isItsOwn = listener->GetObjectID() == inObjectID;
    if (isItsOwn) {
      gone.push_back(listener);
    }
    return isItsOwn;
  });
  for (auto entry = mInterests.lower_bound({inObjectID, 0, 0, 0});
       entry != mInterests.end() && std::get<0>(entry->first) == inObjectID;) {
    entry->second.mListeners = 0;
    entry = entry->second.mIsBeingTold ? std::next(entry) : mInterests.erase(entry);
  }
}

}  // namespace tembra::hal
