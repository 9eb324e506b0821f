#include "support/client/FakeHAL.h"

#include <CoreAudio/AudioHardware.h>

namespace tembra::test {

FakeHAL& FakeHAL::Get() {
  static FakeHAL& sHAL = *new FakeHAL;
  return sHAL;
}

void FakeHAL::Reset() {
  std::lock_guard<std::mutex> locker(mMutex);
  mCreateStatus.clear();
  mPublishStatus.clear();
  mSystemValues.clear();
  mCreated.clear();
  mPublications.clear();
  mChanges.clear();
  mCalls.clear();
  mOnCreate = nullptr;
  mOnPublish = nullptr;
  mOnChange = nullptr;
}

namespace {

std::string ToText(UInt32 inCode) {
  return {static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
          static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
}

}  // namespace
}  // namespace tembra::test

using tembra::test::FakeHAL;
using tembra::test::ToText;

OSStatus AudioObjectCreate(AudioHardwarePlugInRef, AudioObjectID inOwner, AudioClassID inClass,
                           AudioObjectID* outID) {
  FakeHAL& hal = FakeHAL::Get();
  if (hal.mOnCreate) hal.mOnCreate(inClass);
  std::lock_guard<std::mutex> locker(hal.mMutex);
  hal.mCalls.push_back("create " + ToText(inClass));
  const auto status = hal.mCreateStatus.find(inClass);
  if (status != hal.mCreateStatus.end() && status->second != 0) return status->second;
  hal.mCreated.emplace_back(inOwner, inClass);
  *outID = hal.mNextID++;
  return 0;
}

OSStatus AudioObjectsPublishedAndDied(AudioHardwarePlugInRef, AudioObjectID inOwner,
                                      UInt32 inNumberPublished, const AudioObjectID* inPublished,
                                      UInt32 inNumberDied, const AudioObjectID* inDied) {
  FakeHAL& hal = FakeHAL::Get();
  const FakeHAL::Publication publication{
      inOwner, {inPublished, inPublished + inNumberPublished}, {inDied, inDied + inNumberDied}};
  if (hal.mOnPublish) hal.mOnPublish(publication);
  std::lock_guard<std::mutex> locker(hal.mMutex);
  if (inNumberPublished != 0) {
    hal.mCalls.push_back("publish " + std::to_string(inNumberPublished));
  }
  if (inNumberDied != 0) hal.mCalls.push_back("died " + std::to_string(inNumberDied));
  hal.mPublications.push_back(publication);
  const auto status = hal.mPublishStatus.find(inOwner);
  return status != hal.mPublishStatus.end() ? status->second : 0;
}

OSStatus AudioObjectPropertiesChanged(AudioHardwarePlugInRef, AudioObjectID inObject,
                                      UInt32 inNumberAddresses,
                                      const AudioObjectPropertyAddress* inAddresses) {
  FakeHAL& hal = FakeHAL::Get();
  if (hal.mOnChange) hal.mOnChange(inAddresses[0].mSelector);
  std::lock_guard<std::mutex> locker(hal.mMutex);
  hal.mChanges.push_back({inObject, {inAddresses, inAddresses + inNumberAddresses}});
  for (UInt32 i = 0; i < inNumberAddresses; ++i) {
    hal.mCalls.push_back("changed " + ToText(inAddresses[i].mSelector));
  }
  return 0;
}

OSStatus AudioObjectGetPropertyData(AudioObjectID inObject,
                                    const AudioObjectPropertyAddress* inAddress, UInt32,
                                    const void*, UInt32* ioDataSize, void* outData) {
  FakeHAL& hal = FakeHAL::Get();
  std::lock_guard<std::mutex> locker(hal.mMutex);
  const auto value = hal.mSystemValues.find(inAddress->mSelector);
  if (inObject != kAudioObjectSystemObject ||
      inAddress->mScope != kAudioObjectPropertyScopeGlobal || inAddress->mElement != 0 ||
      value == hal.mSystemValues.end() || *ioDataSize != sizeof(UInt32)) {
    return kAudioHardwareUnknownPropertyError;
  }
  *static_cast<UInt32*>(outData) = value->second;
  return 0;
}

OSStatus AudioObjectAddPropertyListener(AudioObjectID, const AudioObjectPropertyAddress*,
                                        AudioObjectPropertyListenerProc, void*) {
  return 0;
}

OSStatus AudioObjectRemovePropertyListener(AudioObjectID, const AudioObjectPropertyAddress*,
                                           AudioObjectPropertyListenerProc, void*) {
  return 0;
}
