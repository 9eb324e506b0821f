#include "support/HP_SystemInfo.h"

std::atomic<bool> HP_SystemInfo::sIsInitialized{false};
std::atomic<bool> HP_SystemInfo::sCurrentProcessIsAudible{true};
std::atomic<bool> HP_SystemInfo::sIsMixingStereoToMono{false};
std::atomic<bool> HP_SystemInfo::sCurrentUserSessionIsActiveOrHeadless{true};

namespace {

constexpr AudioObjectPropertyAddress MakeAddress(AudioObjectPropertySelector inSelector) {
  return {inSelector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster};
}

constexpr AudioObjectPropertyAddress kListenedTo[] = {
    MakeAddress(kAudioHardwarePropertyUserSessionIsActiveOrHeadless),
    MakeAddress(kAudioHardwarePropertyProcessIsAudible),
    MakeAddress(kAudioHardwarePropertyMixStereoToMono)};

// The value stays as it was if the host does not tell.
OSStatus ReadValue(const AudioObjectPropertyAddress& inAddress, UInt32& ioValue) {
  UInt32 theSize = sizeof(ioValue);
  return AudioObjectGetPropertyData(kAudioObjectSystemObject, &inAddress, 0, nullptr, &theSize,
                                    &ioValue);
}

bool IsTrue(AudioObjectPropertySelector inSelector) {
  UInt32 theValue = 0;
  return ReadValue(MakeAddress(inSelector), theValue) == 0 && theValue != 0;
}

}  // namespace

void HP_SystemInfo::Initialize() {
  if (sIsInitialized.exchange(true)) return;
  for (const AudioObjectPropertyAddress& theAddress : kListenedTo) {
    AudioObjectAddPropertyListener(kAudioObjectSystemObject, &theAddress, SystemListener, nullptr);
    SystemListener(kAudioObjectSystemObject, 1, &theAddress, nullptr);
  }
}

void HP_SystemInfo::Teardown() {
  if (!sIsInitialized.exchange(false)) return;
  for (const AudioObjectPropertyAddress& theAddress : kListenedTo) {
    AudioObjectRemovePropertyListener(kAudioObjectSystemObject, &theAddress, SystemListener,
                                      nullptr);
  }
}

bool HP_SystemInfo::IsCurrentProcessTheMaster() {
  return IsTrue(kAudioHardwarePropertyProcessIsMaster);
}

bool HP_SystemInfo::IsCurrentProcessInitingOrExiting() {
  return IsTrue(kAudioHardwarePropertyIsInitingOrExiting);
}

OSStatus HP_SystemInfo::SystemListener(AudioObjectID inObjectID, UInt32 inNumberAddresses,
                                       const AudioObjectPropertyAddress* inAddresses, void*) {
  if (inObjectID != kAudioObjectSystemObject) return 0;
  for (UInt32 i = 0; i < inNumberAddresses; ++i) {
    UInt32 theValue = 1;
    switch (inAddresses[i].mSelector) {
      case kAudioHardwarePropertyProcessIsAudible:
        ReadValue(inAddresses[i], theValue);
        sCurrentProcessIsAudible.store(theValue != 0, std::memory_order_relaxed);
        break;
      case kAudioHardwarePropertyMixStereoToMono:
        if (ReadValue(inAddresses[i], theValue) == 0) {
          sIsMixingStereoToMono.store(theValue != 0, std::memory_order_relaxed);
        }
        break;
      case kAudioHardwarePropertyUserSessionIsActiveOrHeadless:
        ReadValue(inAddresses[i], theValue);
        sCurrentUserSessionIsActiveOrHeadless.store(theValue != 0, std::memory_order_relaxed);
        break;
      default:
        break;
    }
  }
  return 0;
}
