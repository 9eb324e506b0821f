#include "persistence/HP_PreferredChannels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "device/HP_Device.h"
#include "objects/CAPropertyAddress.h"
#include "persistence/CACFPreferences.h"
#include "support/CAAudioChannelLayout.h"
#include "support/CAAutoDisposer.h"
#include "support/CACFArray.h"
#include "support/CACFDictionary.h"
#include "support/CACFDistributedNotification.h"
#include "support/CAException.h"

namespace {

using Address = AudioObjectPropertyAddress;

// The device's own layout, whatever is preferred; the platform publishes no name for it.
constexpr AudioObjectPropertySelector kPropertyDefaultChannelLayout = 'srdd';

// The preferences are those of any user on this host.
constexpr bool kCurrentUser = false;
constexpr bool kCurrentHost = true;

constexpr UInt32 kStereoDataSize = 2 * sizeof(UInt32);

bool IsInput(const Address& inAddress) {
  return inAddress.mScope == kAudioObjectPropertyScopeInput;
}

bool IsStereo(const Address& inAddress) {
  return inAddress.mSelector == kAudioDevicePropertyPreferredChannelsForStereo;
}

void CheckSize(UInt32 inSize, UInt32 inNeededSize) {
  if (inSize != inNeededSize) throw CAException(kAudioHardwareBadPropertySizeError);
}

CACFString MakeKey(CFStringRef inFormat, bool inIsInput, const CACFString& inDeviceUID) {
  CACFString theKey(CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, inFormat,
                                             inIsInput ? "Input" : "Output",
                                             inDeviceUID.GetCFString()));
  if (!theKey.IsValid()) throw CAException(kAudioHardwareIllegalOperationError);
  return theKey;
}

bool GetStereoPair(CFTypeRef inArray, UInt32& outLeft, UInt32& outRight) {
  const CACFArray theArray(static_cast<CFArrayRef>(inArray), false);
  return theArray.GetUInt32(0, outLeft) && theArray.GetUInt32(1, outRight);
}

void* TokenToObserver(UInt32 inToken) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(inToken));
}

}  // namespace

CAMutex& HP_PreferredChannels::sNotificationMutex =
    *new CAMutex("HP_PreferredChannels Notification Mutex");
CATokenMap<HP_PreferredChannels>* HP_PreferredChannels::sTokenMap = nullptr;

HP_PreferredChannels::HP_PreferredChannels(HP_Device* inDevice)
    : mDevice(inDevice),
      mToken(0),
      mValuesMutex("HP_PreferredChannels Values Mutex"),
      mOutputStereoChannels{1, 2} {
  CAMutex::Locker theLocker(sNotificationMutex);
  if (sTokenMap == nullptr) sTokenMap = new CATokenMap<HP_PreferredChannels>;
  mToken = sTokenMap->MapObject(this);
}

HP_PreferredChannels::~HP_PreferredChannels() {
  CAMutex::Locker theLocker(sNotificationMutex);
  sTokenMap->RemoveMapping(mToken, this);
}

void HP_PreferredChannels::Initialize() {
  const CACFString theUID(mDevice->CopyDeviceUID());
  const CFStringRef theStereoFormat =
      CFSTR("com.apple.audio.CoreAudio.PreferredStereoChannels.%s.%@");
  const CFStringRef theLayoutFormat =
      CFSTR("com.apple.audio.CoreAudio.PreferredChannelLayout.%s.%@");
  mInputStereoKey = MakeKey(theStereoFormat, true, theUID);
  mOutputStereoKey = MakeKey(theStereoFormat, false, theUID);
  mInputLayoutKey = MakeKey(theLayoutFormat, true, theUID);
  mOutputLayoutKey = MakeKey(theLayoutFormat, false, theUID);

  {
    CAMutex::Locker theLocker(mValuesMutex);
    mInputStereoArray = CopyStoredValue(true, mInputStereoKey.GetCFString());
    mOutputStereoArray = CopyStoredValue(true, mOutputStereoKey.GetCFString());
    mInputLayout = CopyStoredValue(false, mInputLayoutKey.GetCFString());
    mOutputLayout = CopyStoredValue(false, mOutputLayoutKey.GetCFString());
    mOutputStereoChannels[0] = 1;
    mOutputStereoChannels[1] = 2;
    GetStereoPair(mOutputStereoArray.GetObject(), mOutputStereoChannels[0],
                  mOutputStereoChannels[1]);
  }

  for (const CACFString* theKey :
       {&mInputStereoKey, &mOutputStereoKey, &mInputLayoutKey, &mOutputLayoutKey}) {
    CACFDistributedNotification::AddObserver(TokenToObserver(mToken), ChangeNotification,
                                             theKey->GetCFString(),
                                             CFNotificationSuspensionBehaviorCoalesce);
  }
}

void HP_PreferredChannels::Teardown() {
  for (const CACFString* theKey :
       {&mInputStereoKey, &mOutputStereoKey, &mInputLayoutKey, &mOutputLayoutKey}) {
    // One that was not made is not observed either.
    if (!theKey->IsValid()) continue;
    CACFDistributedNotification::RemoveObserver(TokenToObserver(mToken), theKey->GetCFString());
  }
  // One that was on its way when the observers went finds no keys any more.
  CAMutex::Locker theLocker(sNotificationMutex);
  CAMutex::Locker theValuesLocker(mValuesMutex);
  mInputStereoArray.Release();
  mOutputStereoArray.Release();
  mInputLayout.Release();
  mOutputLayout.Release();
  mInputStereoKey.Release();
  mOutputStereoKey.Release();
  mInputLayoutKey.Release();
  mOutputLayoutKey.Release();
}

// Properties.

bool HP_PreferredChannels::IsActive(const Address& inAddress) const {
  if (inAddress.mScope != kAudioObjectPropertyScopeInput &&
      inAddress.mScope != kAudioObjectPropertyScopeOutput) {
    return false;
  }
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyPreferredChannelsForStereo:
      return mDevice->GetTotalNumberChannels(IsInput(inAddress)) > 1;
    case kAudioDevicePropertyPreferredChannelLayout:
    case kPropertyDefaultChannelLayout:
      return mDevice->HasAnyStreams(IsInput(inAddress));
    default:
      return false;
  }
}

bool HP_PreferredChannels::IsPropertySettable(const Address& inAddress) const {
  return inAddress.mSelector == kAudioDevicePropertyPreferredChannelsForStereo ||
         inAddress.mSelector == kAudioDevicePropertyPreferredChannelLayout;
}

UInt32 HP_PreferredChannels::GetPropertyDataSize(const Address& inAddress, UInt32,
                                                 const void*) const {
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyPreferredChannelsForStereo:
      return kStereoDataSize;
    case kAudioDevicePropertyPreferredChannelLayout:
    case kPropertyDefaultChannelLayout:
      return CAAudioChannelLayout::CalculateByteSize(
          mDevice->GetTotalNumberChannels(IsInput(inAddress)));
    default:
      return 0;
  }
}

void HP_PreferredChannels::GetPropertyData(const Address& inAddress, UInt32 inQualifierDataSize,
                                           const void* inQualifierData, UInt32& ioDataSize,
                                           void* outData) const {
  CheckSize(ioDataSize, GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData));
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyPreferredChannelsForStereo:
      GetStereoChannels(IsInput(inAddress), outData);
      break;
    case kAudioDevicePropertyPreferredChannelLayout:
    case kPropertyDefaultChannelLayout:
      GetLayout(IsInput(inAddress), inAddress.mSelector == kPropertyDefaultChannelLayout,
                ioDataSize, outData);
      break;
    default:
      break;
  }
}

void HP_PreferredChannels::SetPropertyData(const Address& inAddress, UInt32 inQualifierDataSize,
                                           const void* inQualifierData, UInt32 inDataSize,
                                           const void* inData, const AudioTimeStamp*) {
  CheckSize(inDataSize, GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData));
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyPreferredChannelsForStereo:
      SetStereoChannels(inAddress, inData);
      break;
    case kAudioDevicePropertyPreferredChannelLayout:
      SetLayout(inAddress, inDataSize, inData);
      break;
    default:
      break;
  }
}

UInt32 HP_PreferredChannels::GetNumberAddressesImplemented() const {
  return 3;
}

void HP_PreferredChannels::GetImplementedAddressByIndex(UInt32 inIndex, Address& outAddress) const {
  constexpr AudioObjectPropertySelector kSelectors[] = {
      kAudioDevicePropertyPreferredChannelsForStereo, kAudioDevicePropertyPreferredChannelLayout,
      kPropertyDefaultChannelLayout};
  if (inIndex >= std::size(kSelectors)) return;
  outAddress.mSelector = kSelectors[inIndex];
  outAddress.mScope = kAudioObjectPropertyScopeWildcard;
  outAddress.mElement = kAudioObjectPropertyElementWildcard;
}

// Channels of stereo. The callers' data need not be aligned.

void HP_PreferredChannels::GetStereoChannels(bool inIsInput, void* outData) const {
  UInt32 theChannels[2] = {1, 2};
  const Value theArray = CopyCachedValue(true, inIsInput);
  GetStereoPair(theArray.GetObject(), theChannels[0], theChannels[1]);
  std::memcpy(outData, theChannels, kStereoDataSize);
  if (!inIsInput) {
    CAMutex::Locker theLocker(mValuesMutex);
    std::copy(std::begin(theChannels), std::end(theChannels), mOutputStereoChannels);
  }
}

void HP_PreferredChannels::SetStereoChannels(const Address& inAddress, const void* inData) {
  UInt32 theChannels[2];
  std::memcpy(theChannels, inData, kStereoDataSize);
  const UInt32 theNumberChannels = mDevice->GetTotalNumberChannels(IsInput(inAddress));
  CACFArray theArray(true);
  for (const UInt32 theChannel : theChannels) {
    theArray.AppendUInt32(std::min(std::max(theChannel, 1u), theNumberChannels));
  }
  Store(inAddress, theArray.GetCFArray());
}

void HP_PreferredChannels::GetOutputStereoChannels(UInt32& outLeft, UInt32& outRight) const {
  CAMutex::Locker theLocker(mValuesMutex);
  outLeft = mOutputStereoChannels[0];
  outRight = mOutputStereoChannels[1];
}

// Layouts.

void HP_PreferredChannels::GetLayout(bool inIsInput, bool inIsDefault, UInt32 inDataSize,
                                     void* outData) const {
  const CAAutoFree<AudioChannelLayout> theLayout(
      CAAudioChannelLayout::Create(mDevice->GetTotalNumberChannels(inIsInput)));
  mDevice->GetDefaultChannelLayout(inIsInput, *theLayout);
  if (!inIsDefault) {
    const Value theDictionary = CopyCachedValue(false, inIsInput);
    if (theDictionary.IsValid()) {
      HP_PreferredChannels_ConstructLayoutFromDictionary(
          static_cast<CFDictionaryRef>(theDictionary.GetObject()), *theLayout);
    }
  }
  std::memcpy(outData, theLayout.get(), inDataSize);
}

void HP_PreferredChannels::SetLayout(const Address& inAddress, UInt32 inDataSize,
                                     const void* inData) {
  // The size is that of a layout with this many descriptions, whatever the layout itself claims.
  const UInt32 theNumberDescriptions = mDevice->GetTotalNumberChannels(IsInput(inAddress));
  const CAAutoFree<AudioChannelLayout> theLayout(
      CAAudioChannelLayout::Create(theNumberDescriptions));
  std::memcpy(theLayout.get(), inData, inDataSize);
  theLayout->mNumberChannelDescriptions =
      std::min(theLayout->mNumberChannelDescriptions, theNumberDescriptions);
  CACFDictionary theDictionary(true);
  HP_PreferredChannels_ConstructDictionaryFromLayout(*theLayout,
                                                     theDictionary.GetCFMutableDictionary());
  Store(inAddress, theDictionary.GetCFDictionary());
}

// Preferences.

void HP_PreferredChannels::ClearPrefs() {
  for (const CACFString* theKey :
       {&mInputStereoKey, &mOutputStereoKey, &mInputLayoutKey, &mOutputLayoutKey}) {
    CACFPreferences::DeleteValue(theKey->GetCFString(), kCurrentUser, kCurrentHost, false);
  }
  CACFPreferences::Synchronize(kCurrentUser, kCurrentHost, true);
}

void HP_PreferredChannels::SendChangeNotification(CFStringRef inKey) {
  CACFPreferences::SendNotification(inKey);
}

HP_PreferredChannels::Value HP_PreferredChannels::CopyStoredValue(bool inIsStereo,
                                                                  CFStringRef inKey) {
  if (!inIsStereo) {
    return Value(CACFPreferences::CopyDictionaryValue(inKey, kCurrentUser, kCurrentHost));
  }
  Value theArray(CACFPreferences::CopyArrayValue(inKey, kCurrentUser, kCurrentHost));
  UInt32 theChannels[2];
  // One that does not name two channels is as good as none.
  if (!GetStereoPair(theArray.GetObject(), theChannels[0], theChannels[1])) theArray.Release();
  return theArray;
}

const CACFString& HP_PreferredChannels::GetKey(bool inIsStereo, bool inIsInput) const {
  if (inIsStereo) return inIsInput ? mInputStereoKey : mOutputStereoKey;
  return inIsInput ? mInputLayoutKey : mOutputLayoutKey;
}

HP_PreferredChannels::Value& HP_PreferredChannels::GetCachedValue(bool inIsStereo, bool inIsInput) {
  if (inIsStereo) return inIsInput ? mInputStereoArray : mOutputStereoArray;
  return inIsInput ? mInputLayout : mOutputLayout;
}

HP_PreferredChannels::Value HP_PreferredChannels::CopyCachedValue(bool inIsStereo,
                                                                  bool inIsInput) const {
  CAMutex::Locker theLocker(mValuesMutex);
  return const_cast<HP_PreferredChannels*>(this)->GetCachedValue(inIsStereo, inIsInput);
}

void HP_PreferredChannels::Store(const Address& inAddress, CFPropertyListRef inValue) {
  const bool theIsStereo = IsStereo(inAddress);
  const CFStringRef theKey = GetKey(theIsStereo, IsInput(inAddress)).GetCFString();
  CACFPreferences::SetValue(theKey, inValue, kCurrentUser, kCurrentHost, true);
  const Value theStored = CopyStoredValue(theIsStereo, theKey);
  {
    CAMutex::Locker theLocker(mValuesMutex);
    GetCachedValue(theIsStereo, IsInput(inAddress)) = theStored;
  }
  TellDevice(inAddress.mSelector, inAddress.mScope);
  SendChangeNotification(theKey);
}

void HP_PreferredChannels::TellDevice(AudioObjectPropertySelector inSelector,
                                      AudioObjectPropertyScope inScope) const {
  const CAPropertyAddress theAddress(inSelector, inScope);
  mDevice->PropertiesChanged(1, &theAddress);
}

void HP_PreferredChannels::ChangeNotification(CFNotificationCenterRef, void* inObserver,
                                              CFStringRef inName, const void*, CFDictionaryRef) {
  CAMutex::Locker theLocker(sNotificationMutex);
  if (sTokenMap == nullptr) return;
  HP_PreferredChannels* theObject = sTokenMap->GetObject(inObserver);
  if (theObject != nullptr) theObject->PreferenceChanged(inName);
}

void HP_PreferredChannels::PreferenceChanged(CFStringRef inName) {
  CACFPreferences::MarkPrefsOutOfDate(kCurrentUser, kCurrentHost);
  for (const bool theIsStereo : {true, false}) {
    for (const bool theIsInput : {true, false}) {
      const CACFString& theKey = GetKey(theIsStereo, theIsInput);
      if (theKey.IsValid() &&
          CFStringCompare(inName, theKey.GetCFString(), 0) == kCFCompareEqualTo) {
        ReadAgain(theIsStereo, theIsInput);
        return;
      }
    }
  }
}

void HP_PreferredChannels::ReadAgain(bool inIsStereo, bool inIsInput) {
  const Value theCurrent = CopyStoredValue(inIsStereo, GetKey(inIsStereo, inIsInput).GetCFString());
  {
    CAMutex::Locker theLocker(mValuesMutex);
    Value& theCached = GetCachedValue(inIsStereo, inIsInput);
    const bool theIsUnchanged = theCurrent.IsValid() && theCached.IsValid()
                                    ? CFEqual(theCurrent.GetObject(), theCached.GetObject()) != 0
                                    : theCurrent.IsValid() == theCached.IsValid();
    if (theIsUnchanged) return;
    theCached = theCurrent;
  }
  TellDevice(inIsStereo ? kAudioDevicePropertyPreferredChannelsForStereo
                        : kAudioDevicePropertyPreferredChannelLayout,
             inIsInput ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput);
}
