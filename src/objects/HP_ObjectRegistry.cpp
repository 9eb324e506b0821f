// The process-wide maps of HP_Object.

#include "device/HP_Device.h"
#include "formats/HP_Stream.h"
#include "objects/HP_Object.h"

constinit std::atomic<CATokenMap<HP_Object>*> HP_Object::sHP_ObjectIDMap{nullptr};
constinit std::atomic<CATokenIndex<CAMutex>*> HP_Object::sHP_ObjectStateMutexMap{nullptr};

namespace {

template <class T>
T& GetOrCreate(std::atomic<T*>& ioMap) {
  T* theMap = ioMap.load(std::memory_order_acquire);
  if (theMap == nullptr) {
    T* theNewMap = new T;
    if (ioMap.compare_exchange_strong(theMap, theNewMap, std::memory_order_acq_rel,
                                      std::memory_order_acquire)) {
      theMap = theNewMap;
    } else {
      delete theNewMap;
    }
  }
  return *theMap;
}

}  // namespace

void HP_Object::SetObjectID(AudioObjectID inObjectID) {
  if (mObjectID != 0) {
    auto& theMap = GetOrCreate(sHP_ObjectIDMap);
    // An ID that stands for another object by now stays with that object.
    if (theMap.GetObject(mObjectID) == this) theMap.RemoveMapping(mObjectID, this);
  }
  mObjectID = inObjectID;
  if (mObjectID != 0) GetOrCreate(sHP_ObjectIDMap).AddMapping(mObjectID, this);
}

HP_Device* HP_Object::GetDeviceByID(AudioObjectID inObjectID) {
  HP_Object* theObject = GetObjectByID(inObjectID);
  if (theObject == nullptr || !IsSubClass(theObject->mClassID, kAudioDeviceClassID)) return nullptr;
  return static_cast<HP_Device*>(theObject);
}

HP_Stream* HP_Object::GetStreamByID(AudioObjectID inObjectID) {
  HP_Object* theObject = GetObjectByID(inObjectID);
  if (theObject == nullptr || !IsSubClass(theObject->mClassID, kAudioStreamClassID)) return nullptr;
  return static_cast<HP_Stream*>(theObject);
}

void HP_Object::SetObjectStateMutexForID(AudioObjectID inObjectID, CAMutex* inMutex) {
  GetOrCreate(sHP_ObjectStateMutexMap).Set(inObjectID, inMutex);
}

bool HP_Object::IsSubClass(AudioClassID inClassID, AudioClassID inBaseClassID) noexcept {
  if (inClassID == inBaseClassID) return true;
  switch (inBaseClassID) {
    case kAudioObjectClassID:
      return true;

    case kAudioDeviceClassID:
      return inClassID == kAudioAggregateDeviceClassID;

    case kAudioControlClassID:
      switch (inClassID) {
        case kAudioLevelControlClassID:
        case kAudioBooleanControlClassID:
        case kAudioSelectorControlClassID:
        case kAudioStereoPanControlClassID:
          return true;
        default:
          return IsSubClass(inClassID, kAudioLevelControlClassID) ||
                 IsSubClass(inClassID, kAudioBooleanControlClassID) ||
                 IsSubClass(inClassID, kAudioSelectorControlClassID);
      }

    case kAudioLevelControlClassID:
      return inClassID == kAudioBootChimeVolumeControlClassID ||
             inClassID == kAudioVolumeControlClassID || inClassID == kAudioLFEVolumeControlClassID;

    case kAudioSelectorControlClassID:
      return inClassID == kAudioClockSourceControlClassID ||
             inClassID == kAudioDataDestinationControlClassID ||
             inClassID == kAudioDataSourceControlClassID ||
             inClassID == kAudioLineLevelControlClassID;

    case kAudioBooleanControlClassID:
      return inClassID == kAudioISubOwnerControlClassID || inClassID == kAudioJackControlClassID ||
             inClassID == kAudioMuteControlClassID || inClassID == kAudioSoloControlClassID ||
             inClassID == kAudioLFEMuteControlClassID;

    default:
      return false;
  }
}
