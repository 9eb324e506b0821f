// A layout as it is stored.

#include <algorithm>
#include <iterator>

#include "persistence/HP_PreferredChannels.h"
#include "support/CACFArray.h"
#include "support/CACFDictionary.h"

namespace {

// Functions, since the strings are made where they are first used.
CFStringRef GetTagKey() {
  return CFSTR("channel layout tag");
}

CFStringRef GetBitmapKey() {
  return CFSTR("channel bitmap");
}

CFStringRef GetNumberChannelsKey() {
  return CFSTR("number channels");
}

CFStringRef GetDescriptionsKey() {
  return CFSTR("channel descriptions");
}

CFStringRef GetLabelKey() {
  return CFSTR("channel label");
}

CFStringRef GetFlagsKey() {
  return CFSTR("channel flags");
}

CFStringRef GetCoordinatesKey() {
  return CFSTR("coordinates");
}

// The flags' type is the platform's business; stored they are a number.
template <class T>
void GetUInt32As(const CACFDictionary& inDictionary, CFStringRef inKey, T& ioValue) {
  UInt32 theValue = 0;
  if (inDictionary.GetUInt32(inKey, theValue)) ioValue = static_cast<T>(theValue);
}

void ConstructDescription(CFDictionaryRef inDictionary, AudioChannelDescription& ioDescription) {
  const CACFDictionary theDictionary(inDictionary, false);
  GetUInt32As(theDictionary, GetLabelKey(), ioDescription.mChannelLabel);
  GetUInt32As(theDictionary, GetFlagsKey(), ioDescription.mChannelFlags);
  CFArrayRef theCoordinates = nullptr;
  if (!theDictionary.GetArray(GetCoordinatesKey(), theCoordinates)) return;
  const CACFArray theArray(theCoordinates, false);
  for (UInt32 i = 0; i < std::size(ioDescription.mCoordinates); ++i) {
    theArray.GetFloat32(i, ioDescription.mCoordinates[i]);
  }
}

void AppendDescription(const AudioChannelDescription& inDescription, CACFArray& ioDescriptions) {
  CACFDictionary theDictionary(true);
  theDictionary.AddUInt32(GetLabelKey(), inDescription.mChannelLabel);
  theDictionary.AddUInt32(GetFlagsKey(), static_cast<UInt32>(inDescription.mChannelFlags));
  CACFArray theCoordinates(true);
  for (const Float32 theCoordinate : inDescription.mCoordinates) {
    theCoordinates.AppendFloat32(theCoordinate);
  }
  theDictionary.AddArray(GetCoordinatesKey(), theCoordinates.GetCFArray());
  ioDescriptions.AppendDictionary(theDictionary.GetCFDictionary());
}

}  // namespace

void HP_PreferredChannels_ConstructLayoutFromDictionary(CFDictionaryRef inDictionary,
                                                        AudioChannelLayout& ioLayout) {
  const CACFDictionary theDictionary(inDictionary, false);
  GetUInt32As(theDictionary, GetTagKey(), ioLayout.mChannelLayoutTag);
  GetUInt32As(theDictionary, GetBitmapKey(), ioLayout.mChannelBitmap);

  // The stored count is not asked: how many fit is the layout's to say.
  CFArrayRef theArray = nullptr;
  if (ioLayout.mChannelLayoutTag != kAudioChannelLayoutTag_UseChannelDescriptions ||
      !theDictionary.GetArray(GetDescriptionsKey(), theArray)) {
    return;
  }
  const CACFArray theDescriptions(theArray, false);
  const UInt32 theCount =
      std::min(theDescriptions.GetNumberItems(), ioLayout.mNumberChannelDescriptions);
  AudioChannelDescription* theLayoutDescriptions = ioLayout.mChannelDescriptions;
  for (UInt32 i = 0; i < theCount; ++i) {
    CFDictionaryRef theDescription = nullptr;
    if (theDescriptions.GetDictionary(i, theDescription)) {
      ConstructDescription(theDescription, theLayoutDescriptions[i]);
    }
  }
}

void HP_PreferredChannels_ConstructDictionaryFromLayout(const AudioChannelLayout& inLayout,
                                                        CFMutableDictionaryRef ioDictionary) {
  CACFDictionary theDictionary(ioDictionary, false);
  theDictionary.AddUInt32(GetTagKey(), inLayout.mChannelLayoutTag);
  theDictionary.AddUInt32(GetBitmapKey(), static_cast<UInt32>(inLayout.mChannelBitmap));
  theDictionary.AddUInt32(GetNumberChannelsKey(), inLayout.mNumberChannelDescriptions);
  if (inLayout.mChannelLayoutTag != kAudioChannelLayoutTag_UseChannelDescriptions) return;
  CACFArray theDescriptions(true);
  const AudioChannelDescription* theLayoutDescriptions = inLayout.mChannelDescriptions;
  for (UInt32 i = 0; i < inLayout.mNumberChannelDescriptions; ++i) {
    AppendDescription(theLayoutDescriptions[i], theDescriptions);
  }
  theDictionary.AddArray(GetDescriptionsKey(), theDescriptions.GetCFArray());
}
