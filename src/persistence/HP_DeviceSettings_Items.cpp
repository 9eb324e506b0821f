// What a device's entry holds: controls and formats, one key each.

#include "device/HP_Device.h"
#include "formats/CAStreamBasicDescription.h"
#include "formats/HP_Stream.h"
#include "objects/CAPropertyAddress.h"
#include "persistence/HP_DeviceSettings.h"
#include "support/CACFDictionary.h"
#include "support/CACFString.h"

namespace {

using ControlInfo = HP_DeviceSettings::ControlInfo;

AudioObjectPropertyScope GetScope(bool inIsInput) {
  return inIsInput ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput;
}

// Calls inOperation for each control of the list that the object has, with its address, kind and
// key.
template <class Operation>
void ForEachControl(const HP_Object& inObject, bool inIsStream, UInt32 inChannels, bool inIsInput,
                    const ControlInfo* inInfo, UInt32 inCount, Operation inOperation) {
  for (UInt32 i = 0; i < inCount; ++i) {
    for (UInt32 theChannel = 0; theChannel <= inChannels; ++theChannel) {
      const CAPropertyAddress theAddress(inInfo[i].mSelector, GetScope(inIsInput), theChannel);
      if (!inObject.HasProperty(theAddress)) continue;
      const CACFString theKey(HP_DeviceSettings_ConstructControlKey(inIsStream, inInfo[i].mSelector,
                                                                    inIsInput, theChannel));
      inOperation(theAddress, inInfo[i].mKind, theKey.GetCFString());
    }
  }
}

template <class T>
T GetValue(const HP_Object& inObject, const AudioObjectPropertyAddress& inAddress) {
  static_assert(sizeof(T) == 4);
  T theValue = 0;
  UInt32 theSize = sizeof(theValue);
  inObject.GetPropertyData(inAddress, 0, nullptr, theSize, &theValue);
  return theValue;
}

template <class T>
void SetValue(HP_Object& inObject, const AudioObjectPropertyAddress& inAddress, T inValue) {
  static_assert(sizeof(T) == 4);
  inObject.SetPropertyData(inAddress, 0, nullptr, sizeof(inValue), &inValue, nullptr);
}

}  // namespace

// Saving.

void HP_DeviceSettings_SaveDeviceSettings(const HP_Device& inDevice,
                                          CFMutableDictionaryRef ioDictionary, bool inIsInput,
                                          const ControlInfo* inInfo, UInt32 inCount) {
  HP_DeviceSettings_SaveControlsFromObject(inDevice, false,
                                           inDevice.GetTotalNumberChannels(inIsInput), ioDictionary,
                                           inIsInput, inInfo, inCount);
}

void HP_DeviceSettings_SaveStreamSettings(const HP_Device& inDevice,
                                          CFMutableDictionaryRef ioDictionary, bool inIsInput,
                                          const ControlInfo* inInfo, UInt32 inCount) {
  CACFDictionary theDictionary(ioDictionary, false);
  for (UInt32 i = 0; i < inDevice.GetNumberStreams(inIsInput); ++i) {
    const HP_Stream& theStream = *inDevice.GetStreamByIndex(inIsInput, i);
    HP_DeviceSettings_SaveControlsFromObject(theStream, true, 0, ioDictionary, inIsInput, inInfo,
                                             inCount);
    AudioStreamBasicDescription theFormat = {};
    theStream.GetCurrentPhysicalFormat(theFormat);
    if (!CAStreamBasicDescription::IsMixable(theFormat)) continue;
    const CACFDictionary theFormatDictionary(
        HP_DeviceSettings_ConstructDictionaryFromFormat(theFormat), true);
    const CACFString theKey(HP_DeviceSettings_ConstructFormatKey(inIsInput, i));
    theDictionary.AddDictionary(theKey.GetCFString(), theFormatDictionary.GetCFDictionary());
  }
}

void HP_DeviceSettings_SaveControlsFromObject(const HP_Object& inObject, bool inIsStream,
                                              UInt32 inChannels,
                                              CFMutableDictionaryRef ioDictionary, bool inIsInput,
                                              const ControlInfo* inInfo, UInt32 inCount) {
  CACFDictionary theDictionary(ioDictionary, false);
  ForEachControl(
      inObject, inIsStream, inChannels, inIsInput, inInfo, inCount,
      [&](const AudioObjectPropertyAddress& inAddress, UInt32 inKind, CFStringRef inKey) {
        switch (inKind) {
          case HP_DeviceSettings::kBooleanControl:
          case HP_DeviceSettings::kSelectorControl:
            theDictionary.AddUInt32(inKey, GetValue<UInt32>(inObject, inAddress));
            break;
          case HP_DeviceSettings::kFloatControl:
            theDictionary.AddFloat32(inKey, GetValue<Float32>(inObject, inAddress));
            break;
          default:
            break;
        }
      });
}

// Restoring.

void HP_DeviceSettings_RestoreDeviceSettings(HP_Device& inDevice, CFDictionaryRef inDictionary,
                                             bool inIsInput, const ControlInfo* inInfo,
                                             UInt32 inCount) {
  HP_DeviceSettings_RestoreControlsToObject(inDevice, false,
                                            inDevice.GetTotalNumberChannels(inIsInput),
                                            inDictionary, inIsInput, inInfo, inCount);
}

void HP_DeviceSettings_RestoreStreamSettings(HP_Device& inDevice, CFDictionaryRef inDictionary,
                                             bool inIsInput, const ControlInfo* inInfo,
                                             UInt32 inCount) {
  const CACFDictionary theDictionary(inDictionary, false);
  for (UInt32 i = 0; i < inDevice.GetNumberStreams(inIsInput); ++i) {
    HP_Stream& theStream = *inDevice.GetStreamByIndex(inIsInput, i);
    HP_DeviceSettings_RestoreControlsToObject(theStream, true, 0, inDictionary, inIsInput, inInfo,
                                              inCount);
    const CACFString theKey(HP_DeviceSettings_ConstructFormatKey(inIsInput, i));
    CFDictionaryRef theFormatDictionary = nullptr;
    AudioStreamBasicDescription theFormat = {};
    const CAPropertyAddress theAddress(kAudioStreamPropertyPhysicalFormat);
    if (theDictionary.GetDictionary(theKey.GetCFString(), theFormatDictionary) &&
        HP_DeviceSettings_ConstructFormatFromDictionary(theFormatDictionary, theFormat) &&
        theStream.HasProperty(theAddress)) {
      theStream.SetPropertyData(theAddress, 0, nullptr, sizeof(theFormat), &theFormat, nullptr);
    }
  }
}

void HP_DeviceSettings_RestoreControlsToObject(HP_Object& inObject, bool inIsStream,
                                               UInt32 inChannels, CFDictionaryRef inDictionary,
                                               bool inIsInput, const ControlInfo* inInfo,
                                               UInt32 inCount) {
  const CACFDictionary theDictionary(inDictionary, false);
  ForEachControl(
      inObject, inIsStream, inChannels, inIsInput, inInfo, inCount,
      [&](const AudioObjectPropertyAddress& inAddress, UInt32 inKind, CFStringRef inKey) {
        UInt32 theNumber = 0;
        Float32 theFloat = 0;
        switch (inKind) {
          case HP_DeviceSettings::kBooleanControl:
          case HP_DeviceSettings::kSelectorControl:
            if (theDictionary.GetUInt32(inKey, theNumber)) SetValue(inObject, inAddress, theNumber);
            break;
          case HP_DeviceSettings::kFloatControl:
            if (theDictionary.GetFloat32(inKey, theFloat)) SetValue(inObject, inAddress, theFloat);
            break;
          default:
            break;
        }
      });
}

// Keys.

CFStringRef HP_DeviceSettings_ConstructControlKey(bool inIsStream,
                                                  AudioObjectPropertySelector inSelector,
                                                  bool inIsInput, UInt32 inChannel) {
  const char theSelector[5] = {
      static_cast<char>(inSelector >> 24), static_cast<char>(inSelector >> 16),
      static_cast<char>(inSelector >> 8), static_cast<char>(inSelector), 0};
  return CFStringCreateWithFormat(kCFAllocatorDefault, nullptr,
                                  CFSTR("%s '%s' control on %s channel %ld"),
                                  inIsStream ? "stream" : "device", theSelector,
                                  inIsInput ? "input" : "output", static_cast<long>(inChannel));
}

CFStringRef HP_DeviceSettings_ConstructFormatKey(bool inIsInput, UInt32 inStreamIndex) {
  return CFStringCreateWithFormat(kCFAllocatorDefault, nullptr,
                                  CFSTR("physical format for %s stream %ld"),
                                  inIsInput ? "input" : "output", static_cast<long>(inStreamIndex));
}

// Formats.

CFMutableDictionaryRef HP_DeviceSettings_ConstructDictionaryFromFormat(
    const AudioStreamBasicDescription& inFormat) {
  CACFDictionary theDictionary(false);
  theDictionary.AddFloat64(CFSTR("sample rate"), inFormat.mSampleRate);
  theDictionary.AddUInt32(CFSTR("format id"), inFormat.mFormatID);
  theDictionary.AddUInt32(CFSTR("format flags"), inFormat.mFormatFlags);
  theDictionary.AddUInt32(CFSTR("bytes per packet"), inFormat.mBytesPerPacket);
  theDictionary.AddUInt32(CFSTR("frames per packet"), inFormat.mFramesPerPacket);
  theDictionary.AddUInt32(CFSTR("bytes per frame"), inFormat.mBytesPerFrame);
  theDictionary.AddUInt32(CFSTR("channels per frame"), inFormat.mChannelsPerFrame);
  theDictionary.AddUInt32(CFSTR("bits per channel"), inFormat.mBitsPerChannel);
  return theDictionary.GetCFMutableDictionary();
}

bool HP_DeviceSettings_ConstructFormatFromDictionary(CFDictionaryRef inDictionary,
                                                     AudioStreamBasicDescription& outFormat) {
  const CACFDictionary theDictionary(inDictionary, false);
  outFormat = {};
  return theDictionary.GetFloat64(CFSTR("sample rate"), outFormat.mSampleRate) &&
         theDictionary.GetUInt32(CFSTR("format id"), outFormat.mFormatID) &&
         theDictionary.GetUInt32(CFSTR("format flags"), outFormat.mFormatFlags) &&
         theDictionary.GetUInt32(CFSTR("bytes per packet"), outFormat.mBytesPerPacket) &&
         theDictionary.GetUInt32(CFSTR("frames per packet"), outFormat.mFramesPerPacket) &&
         theDictionary.GetUInt32(CFSTR("bytes per frame"), outFormat.mBytesPerFrame) &&
         theDictionary.GetUInt32(CFSTR("channels per frame"), outFormat.mChannelsPerFrame) &&
         theDictionary.GetUInt32(CFSTR("bits per channel"), outFormat.mBitsPerChannel);
}
