#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>

#include <array>
#include <atomic>
#include <optional>
#include <vector>

#include "hal/ListenerCenter.h"
#include "hal/MasterLock.h"
#include "hal/ObjectTable.h"
#include "hal/PlugIn.h"
#include "hal/PlugInLoader.h"

namespace tembra::hal {

// The kinds of default device.
enum class DefaultKind : size_t { kInput, kOutput, kSystemOutput };
constexpr size_t kDefaultKinds = 3;

// The HAL of this process: loads the plug-ins at the first call, knows all objects, and takes the
// plug-ins down when the process ends or the client says so.
//
// Any thread. Never destroyed. No lock is held while a plug-in or a client is called, for they call
// back. A forked child that goes on without exec finds a HAL that answers 'stop' to everything:
// the threads that it would need stayed behind.
class Host final : private ListenerCenter::Delegate {
 public:
  static Host& Get();

  // False in a forked child, where every call answers 'stop'.
  bool IsUsable() const { return !sIsForkedChild.load(std::memory_order_relaxed); }

  // Loads the plug-ins unless that has been done or is being done; waits for a load or an unload
  // that another thread is at. A plug-in that calls from inside its own loading goes straight on,
  // and so does the thread that calls listeners, for whom the loading thread may be waiting.
  // False if there will be no plug-ins any more.
  bool EnsureLoaded();
  // The same without the waiting, for what is known before plug-ins are.
  void EnsureStarted();
  // Takes all plug-ins down; the next call loads them anew. 'nope' if a call stays in one of them.
  OSStatus Unload();

  const ObjectRecord* FindObject(AudioObjectID inObjectID) const {
    return mObjects.Find(inObjectID);
  }
  ObjectTable& Objects() { return mObjects; }
  ListenerCenter& Listeners() { return mListeners; }
  // Null for an interface that is none of ours.
  PlugIn* FindPlugIn(AudioHardwarePlugInRef inInterface);

  bool IsMaster();
  bool IsInitingOrExiting() const { return mIsInitingOrExiting; }

  std::vector<AudioObjectID> GetDevices() const;
  // The chosen device while it can be the default, else the first that can; unknown if none can.
  AudioObjectID GetDefaultDevice(DefaultKind inKind);
  OSStatus SetDefaultDevice(DefaultKind inKind, AudioObjectID inDevice);
  AudioObjectID FindDeviceByUID(CFStringRef inUID);

  // What a plug-in tells of its objects.
  OSStatus PublishAndBury(PlugIn* inPlugIn, AudioObjectID inOwnerID,
                          std::span<const AudioObjectID> inPublished,
                          std::span<const AudioObjectID> inDead);
  void PostChange(AudioObjectID inObjectID, AudioObjectPropertySelector inSelector);

 private:
  enum class State { kUnloaded, kLoading, kLoaded, kUnloading, kEnded };

  Host();

  void InterestChanged(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
                       bool inIsAdded) override;
  void DevicesChanged() override;

  // Whether the caller is now the one to make the transition; if inMayWait, waits for another's.
  bool BeginTransition(State inFrom, State inTo, bool inMayWait);
  void EndTransition(State inTo);
  bool MayWait() const;
  void LoadAll();
  void Take(LoadedInstance inInstance);
  bool TakeDown(PlugIn& inPlugIn);
  void PostDeaths(std::span<const AudioObjectID> inDead);
  std::vector<PlugIn*> GetPlugIns();
  bool CanBeDefault(AudioObjectID inDevice, DefaultKind inKind);

  static void AtExit();
  static void InForkedChild();

  static std::atomic<bool> sIsForkedChild;
  // Set before anything is locked or started that a child would miss.
  static std::atomic<Host*> sUsedHost;

  ObjectTable mObjects;
  ListenerCenter mListeners{*this};
  MasterLock mMaster;
  std::atomic<bool> mIsInitingOrExiting{false};
  std::array<std::atomic<AudioObjectID>, kDefaultKinds> mChosenDefaults{};
  // What listeners were last told of; the delivery thread's own.
  std::array<AudioObjectID, kDefaultKinds> mToldDefaults{};

  Mutex mStateMutex;
  ConditionVariable mStateChanged;
  std::atomic<State> mState{State::kUnloaded};
  std::atomic<pthread_t> mTransitionThread{};

  Mutex mPlugInsMutex;
  std::vector<PlugIn*> mPlugIns TEMBRA_GUARDED_BY(mPlugInsMutex);
  // Plug-ins that were unloaded; calls may still hold pointers to them.
  std::vector<PlugIn*> mFormerPlugIns TEMBRA_GUARDED_BY(mPlugInsMutex);
};

// The selectors under which a kind of default device is read, set and told of.
AudioObjectPropertySelector SelectorOf(DefaultKind inKind);

constexpr AudioObjectPropertyAddress GlobalAddress(AudioObjectPropertySelector inSelector) {
  return {inSelector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster};
}

// One call into the plug-in that owns an object: finds the object, loading the plug-ins if need be,
// and holds a pass of the plug-in's gate. Status 0 if the call may be made.
class ObjectCall {
 public:
  // inUnknown: the status when there is no such object.
  ObjectCall(AudioObjectID inObjectID, OSStatus inUnknown);

  OSStatus Status() const { return mStatus; }
  explicit operator bool() const { return mStatus == kAudioHardwareNoError; }
  const ObjectRecord& Record() const { return *mRecord; }
  PlugIn& Owner() const { return *mRecord->mPlugIn; }

 private:
  OSStatus mStatus;
  const ObjectRecord* mRecord = nullptr;
  std::optional<CallGate::Pass> mPass;
};

}  // namespace tembra::hal
