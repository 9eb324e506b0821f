#pragma once

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>

class HP_Device;
class HP_Object;

// What a device keeps from one life to the next: the values of its controls and the physical
// formats of its streams.
//
// Purpose: saves them into one property list for the whole machine and brings them back. It asks
//   any object for a list of selectors on every channel and knows no control.
// Thread: any. Restoring holds the device's state mutex throughout; saving holds no lock.
// Ownership: borrows the device; the caller owns what SaveToDictionary answers.
// Units and range: element 0 is the whole device, channels count from 1.
// Failure: nothing is reported. A file that is missing or empty counts as none; one that cannot be
//   read or holds something else than a dictionary is left alone. What a property call throws is
//   passed on.
class HP_DeviceSettings {
 public:
  enum : UInt32 { kBooleanControl = 0, kFloatControl = 1, kSelectorControl = 2 };

  struct ControlInfo {
    AudioObjectPropertySelector mSelector;
    UInt32 mKind;
  };

  static constexpr UInt32 kNumberStandardControlsToSave = 15;
  static const ControlInfo sStandardControlsToSave[kNumberStandardControlsToSave];

  // Replaces the device's entry in the file.
  static void SaveToPrefs(const HP_Device& inDevice, const ControlInfo* inInfo, UInt32 inCount);
  static CFMutableDictionaryRef SaveToDictionary(const HP_Device& inDevice,
                                                 const ControlInfo* inInfo, UInt32 inCount);
  // Settings that still lie in the preferences are used and taken out of there.
  static void RestoreFromPrefs(HP_Device& inDevice, const ControlInfo* inInfo, UInt32 inCount);
  static void RestoreFromDictionary(HP_Device& inDevice, CFDictionaryRef inDictionary,
                                    const ControlInfo* inInfo, UInt32 inCount);
};

// The steps of the above. inIsInput chooses the direction; inChannels is the last channel asked
// for.
void HP_DeviceSettings_SaveDeviceSettings(const HP_Device& inDevice,
                                          CFMutableDictionaryRef ioDictionary, bool inIsInput,
                                          const HP_DeviceSettings::ControlInfo* inInfo,
                                          UInt32 inCount);
void HP_DeviceSettings_SaveStreamSettings(const HP_Device& inDevice,
                                          CFMutableDictionaryRef ioDictionary, bool inIsInput,
                                          const HP_DeviceSettings::ControlInfo* inInfo,
                                          UInt32 inCount);
void HP_DeviceSettings_SaveControlsFromObject(const HP_Object& inObject, bool inIsStream,
                                              UInt32 inChannels,
                                              CFMutableDictionaryRef ioDictionary, bool inIsInput,
                                              const HP_DeviceSettings::ControlInfo* inInfo,
                                              UInt32 inCount);
void HP_DeviceSettings_RestoreDeviceSettings(HP_Device& inDevice, CFDictionaryRef inDictionary,
                                             bool inIsInput,
                                             const HP_DeviceSettings::ControlInfo* inInfo,
                                             UInt32 inCount);
void HP_DeviceSettings_RestoreStreamSettings(HP_Device& inDevice, CFDictionaryRef inDictionary,
                                             bool inIsInput,
                                             const HP_DeviceSettings::ControlInfo* inInfo,
                                             UInt32 inCount);
void HP_DeviceSettings_RestoreControlsToObject(HP_Object& inObject, bool inIsStream,
                                               UInt32 inChannels, CFDictionaryRef inDictionary,
                                               bool inIsInput,
                                               const HP_DeviceSettings::ControlInfo* inInfo,
                                               UInt32 inCount);

// The keys of a device's entry. The caller owns them.
CFStringRef HP_DeviceSettings_ConstructControlKey(bool inIsStream,
                                                  AudioObjectPropertySelector inSelector,
                                                  bool inIsInput, UInt32 inChannel);
CFStringRef HP_DeviceSettings_ConstructFormatKey(bool inIsInput, UInt32 inStreamIndex);

// The caller owns the dictionary.
CFMutableDictionaryRef HP_DeviceSettings_ConstructDictionaryFromFormat(
    const AudioStreamBasicDescription& inFormat);
// False at the first key that is missing; the fields before it are filled in, the others zero.
bool HP_DeviceSettings_ConstructFormatFromDictionary(CFDictionaryRef inDictionary,
                                                     AudioStreamBasicDescription& outFormat);
