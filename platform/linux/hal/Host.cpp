#include "hal/Host.h"

#include <CoreFoundation/CoreFoundation.h>
#include <stdlib.h>
#include <syslog.h>

#include <algorithm>
#include <initializer_list>

#include "hal/ObjectProperties.h"

namespace tembra::hal {

namespace {

// How long the end of a plug-in waits for calls that are inside it.
constexpr uint64_t kTakeDownPatience = 1000000000;

}  // namespace

std::atomic<bool> Host::sIsForkedChild{false};
std::atomic<Host*> Host::sUsedHost{nullptr};

AudioObjectPropertySelector SelectorOf(DefaultKind inKind) {
  switch (inKind) {
    case DefaultKind::kInput:
      return kAudioHardwarePropertyDefaultInputDevice;
    case DefaultKind::kOutput:
      return kAudioHardwarePropertyDefaultOutputDevice;
    default:
      return kAudioHardwarePropertyDefaultSystemOutputDevice;
  }
}

// The host lasts until the process is gone: its threads and late callers may still need it.
Host& Host::Get() {
  static Host& sHost = *new Host;
  return sHost;
}

Host::Host() {
  pthread_atfork(nullptr, nullptr, &Host::InForkedChild);
}

void Host::InForkedChild() {
  // A child of a parent that never used the HAL may use it.
  if (Host* const used = sUsedHost) {
    sIsForkedChild = true;
    used->mMaster.ForgetInChild();
  }
}

bool Host::MayWait() const {
  return !pthread_equal(mTransitionThread.load(), pthread_self()) &&
         !ListenerCenter::IsDeliveryThread();
}

bool Host::BeginTransition(State inFrom, State inTo, bool inMayWait) {
  sUsedHost = this;
  MutexLock lock(mStateMutex);
  for (;;) {
    const State state = mState;
    if (state == inFrom) {
      mState = inTo;
      mTransitionThread = pthread_self();
      return true;
    }
    if ((state != State::kLoading && state != State::kUnloading) || !inMayWait) {
      return false;
    }
    mStateChanged.wait(mStateMutex);
  }
}

void Host::EndTransition(State inTo) {
  MutexLock lock(mStateMutex);
  mTransitionThread = pthread_t{};
  // The process may have begun to end meanwhile.
  if (mState != State::kEnded) {
    mState.store(inTo, std::memory_order_release);
  }
  mStateChanged.notify_all();
}

bool Host::EnsureLoaded() {
  if (mState.load(std::memory_order_acquire) == State::kLoaded) {
    return true;
  }
  if (BeginTransition(State::kUnloaded, State::kLoading, MayWait())) {
    LoadAll();
    EndTransition(State::kLoaded);
  }
  return mState != State::kEnded;
}

void Host::EnsureStarted() {
  if (mState.load(std::memory_order_acquire) == State::kUnloaded &&
      BeginTransition(State::kUnloaded, State::kLoading, false)) {
    LoadAll();
    EndTransition(State::kLoaded);
  }
}

void Host::LoadAll() {
  mIsInitingOrExiting = true;
  mMaster.IsHeld();
  for (const std::string& bundle : FindBundles(PlugInDirectories())) {
    LoadBundle(bundle, [this](LoadedInstance instance) { Take(std::move(instance)); });
  }
  mIsInitingOrExiting = false;
  // After the plug-ins' own, so that theirs run later.
  static const int sRegistered = atexit(&Host::AtExit);
  static_cast<void>(sRegistered);
}

void Host::Take(LoadedInstance inInstance) {
  auto* const plugIn =
      new PlugIn(inInstance.mInterface, inInstance.mVersion, std::move(inInstance.mBundleID));
  plugIn->SetObjectID(mObjects.Create(plugIn, kAudioObjectSystemObject, kAudioPlugInClassID));
  {
    MutexLock lock(mPlugInsMutex);
    mPlugIns.push_back(plugIn);
  }
  const OSStatus status = plugIn->Initialize();
  if (status != kAudioHardwareNoError) {
    syslog(LOG_WARNING, "tembra hal: plug-in %s does not start: 0x%08x",
           plugIn->GetBundleID().c_str(), static_cast<unsigned>(status));
    if (TakeDown(*plugIn)) {
      plugIn->Release();
    }
    return;
  }
  const AudioObjectID id = plugIn->GetObjectID();
  PublishAndBury(plugIn, kAudioObjectSystemObject, {&id, 1}, {});
}

bool Host::TakeDown(PlugIn& inPlugIn) {
  if (!inPlugIn.GetGate().Close(kTakeDownPatience)) {
    return false;
  }
  inPlugIn.Teardown();
  PostDeaths(mObjects.BuryAllOf(&inPlugIn));
  MutexLock lock(mPlugInsMutex);
  std::erase(mPlugIns, &inPlugIn);
  mFormerPlugIns.push_back(&inPlugIn);
  return true;
}

OSStatus Host::Unload() {
  if (!BeginTransition(State::kLoaded, State::kUnloading, MayWait())) {
    return mState == State::kUnloaded ? kAudioHardwareNoError : kAudioHardwareIllegalOperationError;
  }
  std::vector<PlugIn*> plugIns = GetPlugIns();
  std::reverse(plugIns.begin(), plugIns.end());
  bool all = true;
  for (PlugIn* const plugIn : plugIns) {
    if (TakeDown(*plugIn)) {
      plugIn->Release();
    } else {
      all = false;
    }
  }
  EndTransition(all ? State::kUnloaded : State::kLoaded);
  return all ? kAudioHardwareNoError : kAudioHardwareIllegalOperationError;
}

void Host::AtExit() {
  Host& host = Get();
  if (sIsForkedChild) {
    return;
  }
  host.mListeners.Close();
  if (!host.BeginTransition(State::kLoaded, State::kUnloading, false)) {
    // Another thread is at a load or an unload, or this very one is: no time to wait for it.
    host.mState = State::kEnded;
    return;
  }
  host.mIsInitingOrExiting = true;
  std::vector<PlugIn*> plugIns = host.GetPlugIns();
  std::reverse(plugIns.begin(), plugIns.end());
  for (PlugIn* const plugIn : plugIns) {
    // Not released: what a plug-in leaves standing at the end may still refer to it.
    host.TakeDown(*plugIn);
  }
  host.EndTransition(State::kEnded);
}

std::vector<PlugIn*> Host::GetPlugIns() {
  MutexLock lock(mPlugInsMutex);
  return mPlugIns;
}

PlugIn* Host::FindPlugIn(AudioHardwarePlugInRef inInterface) {
  MutexLock lock(mPlugInsMutex);
  const auto found = std::find_if(mPlugIns.begin(), mPlugIns.end(), [&](const PlugIn* plugIn) {
    return plugIn->GetInterface() == inInterface;
  });
  return found == mPlugIns.end() ? nullptr : *found;
}

bool Host::IsMaster() {
  return mMaster.IsHeld();
}

std::vector<AudioObjectID> Host::GetDevices() const {
  std::vector<AudioObjectID> devices = mObjects.GetPublished(kAudioObjectUnknown);
  std::erase_if(devices, [this](AudioObjectID id) {
    const ObjectRecord* const record = FindObject(id);
    return !record || (record->mClassID != kAudioDeviceClassID &&
                       record->mClassID != kAudioAggregateDeviceClassID);
  });
  return devices;
}

bool Host::CanBeDefault(AudioObjectID inDevice, DefaultKind inKind) {
  const AudioObjectPropertyAddress address = {
      inKind == DefaultKind::kSystemOutput ? kAudioDevicePropertyDeviceCanBeDefaultSystemDevice
                                           : kAudioDevicePropertyDeviceCanBeDefaultDevice,
      inKind == DefaultKind::kInput ? kAudioObjectPropertyScopeInput
                                    : kAudioObjectPropertyScopeOutput,
      kAudioObjectPropertyElementMaster};
  const ObjectCall call(inDevice, kAudioHardwareBadDeviceError);
  UInt32 can = 0;
  UInt32 size = sizeof can;
  return call && call.Owner().HasProperty(inDevice, &address) &&
         call.Owner().Call(kObjectVersion, &AudioHardwarePlugInInterface::ObjectGetPropertyData,
                           inDevice, &address, 0U, static_cast<const void*>(nullptr), &size,
                           static_cast<void*>(&can)) == kAudioHardwareNoError &&
         can != 0;
}

AudioObjectID Host::GetDefaultDevice(DefaultKind inKind) {
  const std::vector<AudioObjectID> devices = GetDevices();
  const AudioObjectID chosen = mChosenDefaults[static_cast<size_t>(inKind)];
  if (std::find(devices.begin(), devices.end(), chosen) != devices.end() &&
      CanBeDefault(chosen, inKind)) {
    return chosen;
  }
  const auto first = std::find_if(devices.begin(), devices.end(),
                                  [&](AudioObjectID id) { return CanBeDefault(id, inKind); });
  return first == devices.end() ? AudioObjectID{kAudioObjectUnknown} : *first;
}

OSStatus Host::SetDefaultDevice(DefaultKind inKind, AudioObjectID inDevice) {
  const std::vector<AudioObjectID> devices = GetDevices();
  if (std::find(devices.begin(), devices.end(), inDevice) == devices.end()) {
    return kAudioHardwareBadDeviceError;
  }
  if (!CanBeDefault(inDevice, inKind)) {
    return kAudioHardwareIllegalOperationError;
  }
  mChosenDefaults[static_cast<size_t>(inKind)] = inDevice;
  // One thread alone compares and tells, so that no change is told twice.
  mListeners.PostDevicesChanged();
  return kAudioHardwareNoError;
}

AudioObjectID Host::FindDeviceByUID(CFStringRef inUID) {
  const AudioObjectPropertyAddress address = GlobalAddress(kAudioDevicePropertyDeviceUID);
  for (const AudioObjectID device : GetDevices()) {
    const ObjectCall call(device, kAudioHardwareBadDeviceError);
    CFStringRef uid = nullptr;
    UInt32 size = sizeof uid;
    if (!call ||
        call.Owner().Call(kObjectVersion, &AudioHardwarePlugInInterface::ObjectGetPropertyData,
                          device, &address, 0U, static_cast<const void*>(nullptr), &size,
                          static_cast<void*>(&uid)) != kAudioHardwareNoError ||
        !uid) {
      continue;
    }
    const bool isIt = CFEqual(uid, inUID);
    CFRelease(uid);
    if (isIt) {
      return device;
    }
  }
  return kAudioObjectUnknown;
}

OSStatus Host::PublishAndBury(PlugIn* inPlugIn, AudioObjectID inOwnerID,
                              std::span<const AudioObjectID> inPublished,
                              std::span<const AudioObjectID> inDead) {
  bool hasDevices = false;
  bool hasPlugIns = false;
  bool hasControls = false;
  for (const auto& ids : {inPublished, inDead}) {
    for (const AudioObjectID id : ids) {
      const ObjectRecord* const record = FindObject(id);
      hasDevices |= record && (record->mClassID == kAudioDeviceClassID ||
                               record->mClassID == kAudioAggregateDeviceClassID);
      hasPlugIns |= record && record->mClassID == kAudioPlugInClassID;
      hasControls |= record && IsKindOf(record->mClassID, kAudioControlClassID);
    }
  }
  if (!mObjects.PublishAndBury(inPlugIn, inPublished, inDead)) {
    return kAudioHardwareBadObjectError;
  }
  for (const AudioObjectID id : inDead) {
    mListeners.PostDeath(id);
  }
  PostChange(inOwnerID, kAudioObjectPropertyOwnedObjects);
  if (hasControls) {
    PostChange(inOwnerID, kAudioObjectPropertyControlList);
  }
  if (hasPlugIns) {
    PostChange(kAudioObjectSystemObject, kAudioHardwarePropertyPlugInList);
  }
  if (hasDevices) {
    PostChange(kAudioObjectSystemObject, kAudioHardwarePropertyDevices);
    mListeners.PostDevicesChanged();
  }
  return kAudioHardwareNoError;
}

void Host::PostDeaths(std::span<const AudioObjectID> inDead) {
  if (inDead.empty()) {
    return;
  }
  for (const AudioObjectID id : inDead) {
    mListeners.PostDeath(id);
  }
  PostChange(kAudioObjectSystemObject, kAudioObjectPropertyOwnedObjects);
  PostChange(kAudioObjectSystemObject, kAudioHardwarePropertyPlugInList);
  PostChange(kAudioObjectSystemObject, kAudioHardwarePropertyDevices);
  mListeners.PostDevicesChanged();
}

void Host::PostChange(AudioObjectID inObjectID, AudioObjectPropertySelector inSelector) {
  const AudioObjectPropertyAddress address = GlobalAddress(inSelector);
  mListeners.PostChanges(inObjectID, {&address, 1});
}

void Host::DevicesChanged() {
  for (size_t i = 0; i < kDefaultKinds; ++i) {
    const auto kind = static_cast<DefaultKind>(i);
    const AudioObjectID device = GetDefaultDevice(kind);
    if (device != mToldDefaults[i]) {
      mToldDefaults[i] = device;
      PostChange(kAudioObjectSystemObject, SelectorOf(kind));
    }
  }
}

void Host::InterestChanged(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
                           bool inIsAdded) {
  if (inObjectID == kAudioObjectSystemObject) {
    return;
  }
  const ObjectCall call(inObjectID, kAudioHardwareBadObjectError);
  if (!call) {
    return;
  }
  const AudioObjectPropertyAddress address = GlobalAddress(
      inIsAdded ? kAudioObjectPropertyListenerAdded : kAudioObjectPropertyListenerRemoved);
  call.Owner().Call(kObjectVersion, &AudioHardwarePlugInInterface::ObjectSetPropertyData,
                    inObjectID, &address, 0U, static_cast<const void*>(nullptr),
                    static_cast<UInt32>(sizeof inAddress), static_cast<const void*>(&inAddress));
}

ObjectCall::ObjectCall(AudioObjectID inObjectID, OSStatus inUnknown)
    : mStatus(kAudioHardwareNotRunningError) {
  Host& host = Host::Get();
  if (!host.IsUsable()) {
    return;
  }
  mRecord = host.FindObject(inObjectID);
  if (!mRecord) {
    if (!host.EnsureLoaded()) {
      return;
    }
    mRecord = host.FindObject(inObjectID);
    if (!mRecord) {
      mStatus = inUnknown;
      return;
    }
  }
  mPass.emplace(mRecord->mPlugIn->GetGate());
  if (*mPass) {
    mStatus = kAudioHardwareNoError;
  }
}

}  // namespace tembra::hal
