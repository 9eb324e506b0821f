#include "persistence/HP_HogMode.h"

#include <CoreAudio/AudioHardware.h>
#include <pthread.h>

#include <cstdint>

#include "device/HP_Device.h"
#include "objects/CAPropertyAddress.h"
#include "persistence/CASettingsStorage.h"
#include "support/CACFDistributedNotification.h"
#include "support/CAException.h"
#include "support/CAMutex.h"
#include "support/CAProcess.h"
#include "support/HP_SystemInfo.h"

namespace {

constexpr char kSettingsFilePath[] = "/tmp/com.apple.audio.hogmode.plist";
constexpr UInt16 kSettingsFileMode = 0666;
constexpr char kKeyPrefix[] = "com.apple.audio.CoreAudio.HogMode.Owner-";

constexpr pid_t kNobody = -1;
constexpr pid_t kNotYetRead = -2;

const void* TokenToObserver(UInt32 inToken) {
  return reinterpret_cast<const void*>(static_cast<uintptr_t>(inToken));
}

}  // namespace

CASettingsStorage* HP_HogMode::sSettingsStorage = nullptr;
CAMutex* HP_HogMode::sSettingsStorageMutex = nullptr;
CAMutex* HP_HogMode::sNotificationMutex = nullptr;
std::atomic<CATokenMap<HP_HogMode>*> HP_HogMode::sTokenMap{nullptr};

void HP_HogMode::StaticInitializer() {
  sSettingsStorage = new CASettingsStorage(kSettingsFilePath, kSettingsFileMode,
                                           kCFPropertyListXMLFormat_v1_0, false, false);
  sSettingsStorageMutex = new CAMutex("HP_HogMode Settings Mutex");
  sNotificationMutex = new CAMutex("HP_HogMode Notification Mutex");
  sTokenMap.store(new CATokenMap<HP_HogMode>, std::memory_order_release);
}

HP_HogMode::HP_HogMode(HP_Device* inDevice)
    : mToken(0), mDevice(inDevice), mPrefName(nullptr), mOwner(kNotYetRead) {
  static pthread_once_t sStaticInitializer = PTHREAD_ONCE_INIT;
  pthread_once(&sStaticInitializer, StaticInitializer);

  mToken = GetTokenMap()->MapObject(this);
  mPrefName = CFStringCreateMutable(nullptr, 0);
  if (mPrefName == nullptr) {
    GetTokenMap()->RemoveMapping(mToken, this);
    throw CAException(kAudioHardwareUnspecifiedError);
  }
  CFStringAppendCString(mPrefName, kKeyPrefix, kCFStringEncodingASCII);
  if (CFStringRef theUID = mDevice->CopyDeviceUID()) {
    CFStringAppend(mPrefName, theUID);
    CFRelease(theUID);
  }
  CACFDistributedNotification::AddObserver(TokenToObserver(mToken), ChangeNotification, mPrefName,
                                           static_cast<CFNotificationSuspensionBehavior>(0));
}

HP_HogMode::~HP_HogMode() {
  CACFDistributedNotification::RemoveObserver(TokenToObserver(mToken), mPrefName);
  {
    // A notification that is under way is at work on this object and its device until it ends.
    CAMutex::Locker theLocker(sNotificationMutex);
    GetTokenMap()->RemoveMapping(mToken, this);
  }
  CFRelease(mPrefName);
}

void HP_HogMode::Initialize() {
  const bool theIsMaster = HP_SystemInfo::IsCurrentProcessTheMaster();
  const pid_t theOwner = GetOwnerFromPreference(true);
  if (theOwner == kNobody) return;
  if (!theIsMaster && theOwner != CAProcess::GetPID()) return;
  SetOwnerInPreference(kNobody);
  SendHogModeChangedNotification();
}

pid_t HP_HogMode::GetOwner() const {
  pid_t theOwner = mOwner.load(std::memory_order_relaxed);
  if (theOwner == kNotYetRead) {
    const pid_t theStoredOwner = GetOwnerFromPreference(true);
    // A notification may have been quicker; what it brought is newer.
    if (mOwner.compare_exchange_strong(theOwner, theStoredOwner, std::memory_order_relaxed)) {
      theOwner = theStoredOwner;
    }
  }
  return theOwner;
}

bool HP_HogMode::IsFree() const {
  return GetOwner() == kNobody;
}

bool HP_HogMode::CurrentProcessIsOwner() const {
  return GetOwner() == CAProcess::GetPID();
}

bool HP_HogMode::CurrentProcessIsOwnerOrIsFree() const {
  const pid_t theOwner = GetOwner();
  return theOwner == CAProcess::GetPID() || theOwner == kNobody;
}

void HP_HogMode::Take() {
  {
    CAMutex::Locker theLocker(sSettingsStorageMutex);
    if (!IsFree()) return;
    StoreOwner(CAProcess::GetPID());
  }
  TellDevice();
  SendHogModeChangedNotification();
}

void HP_HogMode::Release() {
  {
    CAMutex::Locker theLocker(sSettingsStorageMutex);
    if (!CurrentProcessIsOwner()) return;
    StoreOwner(kNobody);
  }
  TellDevice();
  SendHogModeChangedNotification();
}

void HP_HogMode::StoreOwner(pid_t inOwner) {
  mOwner.store(inOwner, std::memory_order_relaxed);
  SetOwnerInPreference(inOwner);
}

void HP_HogMode::TellDevice() {
  mDevice->HogModeStateChanged();
  const CAPropertyAddress theAddress(kAudioDevicePropertyHogMode);
  mDevice->PropertiesChanged(1, &theAddress);
}

pid_t HP_HogMode::GetOwnerFromPreference(bool inSendNotification) const {
  bool theClaimIsStale = false;
  SInt32 theOwner = kNobody;
  {
    // Held over both steps, or a claim made in between would be taken for the stale one.
    CAMutex::Locker theLocker(sSettingsStorageMutex);
    sSettingsStorage->CopySInt32Value(mPrefName, theOwner, kNobody);
    if (theOwner != kNobody && !CAProcess::ProcessExists(theOwner)) {
      theOwner = kNobody;
      theClaimIsStale = true;
      SetOwnerInPreference(kNobody);
    }
  }
  if (theClaimIsStale && inSendNotification) SendHogModeChangedNotification();
  return theOwner;
}

void HP_HogMode::SetOwnerInPreference(pid_t inOwner) const {
  CAMutex::Locker theLocker(sSettingsStorageMutex);
  if (inOwner == kNobody) {
    sSettingsStorage->RemoveValue(mPrefName);
  } else {
    sSettingsStorage->SetSInt32Value(mPrefName, inOwner);
  }
}

void HP_HogMode::MarkPreferencesDirty() const {
  CAMutex::Locker theLocker(sSettingsStorageMutex);
  sSettingsStorage->ForceRefresh();
}

void HP_HogMode::SendHogModeChangedNotification() const {
  CACFDistributedNotification::PostNotification(mPrefName, nullptr, true);
}

bool HP_HogMode::TakeOverOwner() {
  MarkPreferencesDirty();
  // Held over all steps, or a claim of this process that is on its way to the file would be undone
  // by what stood there before.
  CAMutex::Locker theLocker(sSettingsStorageMutex);
  const pid_t theNewOwner = GetOwnerFromPreference(false);
  if (theNewOwner == GetOwner()) return false;
  mOwner.store(theNewOwner, std::memory_order_relaxed);
  return true;
}

void HP_HogMode::ChangeNotification(CFNotificationCenterRef, void* inObserver, CFStringRef,
                                    const void*, CFDictionaryRef) {
  CATokenMap<HP_HogMode>* theTokenMap = GetTokenMap();
  if (theTokenMap == nullptr) return;
  CAMutex::Locker theLocker(sNotificationMutex);
  HP_HogMode* theHogMode = theTokenMap->GetObject(inObserver);
  if (theHogMode == nullptr) return;
  if (theHogMode->TakeOverOwner()) theHogMode->TellDevice();
}
