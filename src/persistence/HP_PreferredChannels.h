#pragma once

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>

#include "objects/CATokenMap.h"
#include "objects/HP_Property.h"
#include "support/CACFObject.h"
#include "support/CACFString.h"
#include "support/CAMutex.h"

class HP_Device;

// The channels that clients of a device are asked to use.
//
// Purpose: for each direction the pair for stereo and the layout for more, kept in the preferences
//   of any user on this host. A notification by the name of the key keeps the processes in step.
// Thread: property operations under the device's state mutex; ChangeNotification on the
//   notification thread, which does not take that mutex. The values that both use stand under a
//   mutex of their own, and no object goes while a notification is at work on it.
// Ownership: owned by its device, which it does not own. Owns keys and cached values.
// Units and range: channels are counted from 1.
// Failure: CAException with 'nope' where a key cannot be made, '!siz' for a wrong size. A
//   preference of the wrong kind counts as absent.
class HP_PreferredChannels : public HP_Property {
 public:
  explicit HP_PreferredChannels(HP_Device* inDevice);
  ~HP_PreferredChannels() override;
  HP_PreferredChannels(const HP_PreferredChannels&) = delete;
  HP_PreferredChannels& operator=(const HP_PreferredChannels&) = delete;

  void Initialize() override;
  void Teardown() override;

  bool IsActive(const AudioObjectPropertyAddress& inAddress) const override;
  bool IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const override;
  UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                             UInt32 inQualifierDataSize,
                             const void* inQualifierData) const override;
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32& ioDataSize,
                       void* outData) const override;
  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32 inDataSize, const void* inData,
                       const AudioTimeStamp* inWhen) override;
  UInt32 GetNumberAddressesImplemented() const override;
  void GetImplementedAddressByIndex(UInt32 inIndex,
                                    AudioObjectPropertyAddress& outAddress) const override;

  // Forgets what is stored, for all processes; they find out at their next look.
  virtual void ClearPrefs();

  // The output pair as last read.
  void GetOutputStereoChannels(UInt32& outLeft, UInt32& outRight) const;

  // What the notification center calls; the observer is a token.
  static void ChangeNotification(CFNotificationCenterRef inCenter, void* inObserver,
                                 CFStringRef inName, const void* inObject,
                                 CFDictionaryRef inUserInfo);

 private:
  // An array or a dictionary, or nothing.
  using Value = CACFObject<CFTypeRef>;

  static void SendChangeNotification(CFStringRef inKey);
  static Value CopyStoredValue(bool inIsStereo, CFStringRef inKey);

  const CACFString& GetKey(bool inIsStereo, bool inIsInput) const;
  Value& GetCachedValue(bool inIsStereo, bool inIsInput) CA_REQUIRES(mValuesMutex);
  Value CopyCachedValue(bool inIsStereo, bool inIsInput) const;
  void PreferenceChanged(CFStringRef inName);
  void ReadAgain(bool inIsStereo, bool inIsInput);
  void Store(const AudioObjectPropertyAddress& inAddress, CFPropertyListRef inValue);
  void TellDevice(AudioObjectPropertySelector inSelector, AudioObjectPropertyScope inScope) const;

  void GetStereoChannels(bool inIsInput, void* outData) const;
  void GetLayout(bool inIsInput, bool inIsDefault, UInt32 inDataSize, void* outData) const;
  void SetStereoChannels(const AudioObjectPropertyAddress& inAddress, const void* inData);
  void SetLayout(const AudioObjectPropertyAddress& inAddress, UInt32 inDataSize,
                 const void* inData);

  // Held by a notification from the lookup of its object to its end, and by whatever takes an
  // object out of its reach. Both last as long as the process, as late notifications do.
  static CAMutex& sNotificationMutex;
  static CATokenMap<HP_PreferredChannels>* sTokenMap CA_GUARDED_BY(sNotificationMutex);

  HP_Device* mDevice;
  UInt32 mToken;
  // Names of preferences, and of the notifications that tell of their change.
  CACFString mInputStereoKey;
  CACFString mOutputStereoKey;
  CACFString mInputLayoutKey;
  CACFString mOutputLayoutKey;
  mutable CAMutex mValuesMutex;
  Value mInputStereoArray CA_GUARDED_BY(mValuesMutex);
  Value mOutputStereoArray CA_GUARDED_BY(mValuesMutex);
  mutable UInt32 mOutputStereoChannels[2] CA_GUARDED_BY(mValuesMutex);
  Value mInputLayout CA_GUARDED_BY(mValuesMutex);
  Value mOutputLayout CA_GUARDED_BY(mValuesMutex);
};

// Between a layout in memory and one that is stored. From a dictionary come at most as many
// descriptions as ioLayout already counts; what the dictionary lacks stays as it is.
void HP_PreferredChannels_ConstructLayoutFromDictionary(CFDictionaryRef inDictionary,
                                                        AudioChannelLayout& ioLayout);
void HP_PreferredChannels_ConstructDictionaryFromLayout(const AudioChannelLayout& inLayout,
                                                        CFMutableDictionaryRef ioDictionary);
