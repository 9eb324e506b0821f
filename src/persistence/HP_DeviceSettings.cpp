#include "persistence/HP_DeviceSettings.h"

#include "device/HP_Device.h"
#include "persistence/CACFPreferences.h"
#include "persistence/HP_DeviceSettings_File.h"
#include "support/CACFDictionary.h"
#include "support/CACFString.h"
#include "support/CAMutex.h"

namespace {

constexpr char kSettingsFilePath[] =
    "/Library/Preferences/Audio/com.apple.audio.DeviceSettings.plist";

CACFString MakeDeviceKey(const HP_Device& inDevice) {
  const CACFString theUID(inDevice.CopyDeviceUID());
  return CACFString(CFStringCreateWithFormat(kCFAllocatorDefault, nullptr,
                                             CFSTR("com.apple.audio.CoreAudio.DeviceSettings.%@"),
                                             theUID.GetCFString()));
}

// The root of the file; a new one where there is no file or nothing in it, null where there is
// something else than a dictionary.
CACFDictionary CopyRoot() {
  bool theExists = false;
  const CACFObject<CFDataRef> theData(
      HP_DeviceSettings_File::CopyContent(kSettingsFilePath, theExists));
  if (!theExists) return CACFDictionary(true);
  if (!theData.IsValid()) return CACFDictionary(CFMutableDictionaryRef{nullptr}, true);
  CACFObject<CFPropertyListRef> theRoot(
      CFPropertyListCreateFromXMLData(kCFAllocatorDefault, theData.GetObject(),
                                      kCFPropertyListMutableContainersAndLeaves, nullptr));
  if (!theRoot.IsValid() || CFGetTypeID(theRoot.GetObject()) != CFDictionaryGetTypeID()) {
    return CACFDictionary(CFMutableDictionaryRef{nullptr}, true);
  }
  // Its containers were asked to be mutable.
  return CACFDictionary(
      static_cast<CFMutableDictionaryRef>(const_cast<void*>(theRoot.CopyObject())), true);
}

}  // namespace

const HP_DeviceSettings::ControlInfo
    HP_DeviceSettings::sStandardControlsToSave[kNumberStandardControlsToSave] = {
        {'volm', kFloatControl},   {'span', kFloatControl},    {'mute', kBooleanControl},
        {'solo', kBooleanControl}, {'ssrc', kSelectorControl}, {'csrc', kSelectorControl},
        {'thru', kBooleanControl}, {'thrs', kBooleanControl},  {'mvsc', kFloatControl},
        {'mspn', kFloatControl},   {'mdds', kSelectorControl}, {'nlvl', kSelectorControl},
        {'isub', kBooleanControl}, {'svld', kFloatControl},    {'smut', kBooleanControl},
};

void HP_DeviceSettings::SaveToPrefs(const HP_Device& inDevice, const ControlInfo* inInfo,
                                    UInt32 inCount) {
  CACFDictionary theRoot = CopyRoot();
  if (!theRoot.IsValid()) return;
  const CACFString theKey = MakeDeviceKey(inDevice);
  const CACFDictionary theSettings(SaveToDictionary(inDevice, inInfo, inCount), true);
  theRoot.AddDictionary(theKey.GetCFString(), theSettings.GetCFDictionary());
  const CACFObject<CFDataRef> theData(
      CFPropertyListCreateXMLData(kCFAllocatorDefault, theRoot.GetCFDictionary()));
  if (theData.IsValid()) {
    HP_DeviceSettings_File::Replace(kSettingsFilePath, theData.GetObject());
  }
}

CFMutableDictionaryRef HP_DeviceSettings::SaveToDictionary(const HP_Device& inDevice,
                                                           const ControlInfo* inInfo,
                                                           UInt32 inCount) {
  CACFDictionary theDictionary(true);
  const CFMutableDictionaryRef theSettings = theDictionary.GetCFMutableDictionary();
  for (const bool theIsInput : {true, false}) {
    HP_DeviceSettings_SaveDeviceSettings(inDevice, theSettings, theIsInput, inInfo, inCount);
  }
  for (const bool theIsInput : {true, false}) {
    HP_DeviceSettings_SaveStreamSettings(inDevice, theSettings, theIsInput, inInfo, inCount);
  }
  theDictionary.Retain();
  return theSettings;
}

void HP_DeviceSettings::RestoreFromPrefs(HP_Device& inDevice, const ControlInfo* inInfo,
                                         UInt32 inCount) {
  constexpr bool kCurrentUser = false;
  constexpr bool kCurrentHost = true;

  CAMutex::Locker theLocker(inDevice.GetDeviceStateMutex());
  const CACFString theKey = MakeDeviceKey(inDevice);
  CACFObject<CFDictionaryRef> theSettings(
      CACFPreferences::CopyDictionaryValue(theKey.GetCFString(), kCurrentUser, kCurrentHost));
  if (theSettings.IsValid()) {
    // From now on they live in the file.
    CACFPreferences::DeleteValue(theKey.GetCFString(), kCurrentUser, kCurrentHost, true);
    CACFPreferences::Synchronize(kCurrentUser, kCurrentHost, true);
  } else {
    const CACFDictionary theRoot = CopyRoot();
    CFDictionaryRef theEntry = nullptr;
    if (theRoot.GetDictionary(theKey.GetCFString(), theEntry)) {
      theSettings = static_cast<CFDictionaryRef>(CFRetain(theEntry));
    }
  }
  if (theSettings.IsValid()) {
    RestoreFromDictionary(inDevice, theSettings.GetObject(), inInfo, inCount);
  }
}

void HP_DeviceSettings::RestoreFromDictionary(HP_Device& inDevice, CFDictionaryRef inDictionary,
                                              const ControlInfo* inInfo, UInt32 inCount) {
  if (inDictionary == nullptr) return;
  CAMutex::Locker theLocker(inDevice.GetDeviceStateMutex());
  for (const bool theIsInput : {true, false}) {
    HP_DeviceSettings_RestoreDeviceSettings(inDevice, inDictionary, theIsInput, inInfo, inCount);
  }
  for (const bool theIsInput : {true, false}) {
    HP_DeviceSettings_RestoreStreamSettings(inDevice, inDictionary, theIsInput, inInfo, inCount);
  }
}
