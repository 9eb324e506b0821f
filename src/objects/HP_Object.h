#pragma once

#include <CoreAudio/AudioHardware.h>

#include <atomic>
#include <utility>
#include <vector>

#include "objects/CAPropertyAddress.h"
#include "objects/CATokenMap.h"
#include "support/CAMutex.h"
#include "support/CATokenIndex.h"

class HP_Device;
class HP_HardwarePlugIn;
class HP_Property;
class HP_Stream;

// Purpose: the base of everything that the host addresses by an AudioObjectID. It keeps the
//   process-wide maps from an ID to its object and to the mutex that guards that object, and it
//   answers properties from the helpers that were added to it.
// Thread: the static lookups by any thread, without a lock. The property operations under the
//   object's state mutex, where it has one. SetObjectStateMutexForID on the plug-in's own set-up
//   and tear-down paths.
// Ownership: neither map owns what it points at. An object owns none of its helpers here; whoever
//   made one removes and deletes it.
// Units and range: an ID of 0 is no ID; such an object is not in the map.
// Failure: CAException with 'who?' for an unknown property, '!siz' for a wrong size, 'nope' for a
//   write that is refused or a helper whose address is taken. Lookups answer null.
class HP_Object {
 public:
  HP_Object(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn);
  virtual ~HP_Object();
  HP_Object(const HP_Object&) = delete;
  HP_Object& operator=(const HP_Object&) = delete;

  virtual void Initialize();
  virtual void Teardown();
  virtual CAMutex* GetObjectStateMutex();
  // Prints the object's ID, class and name to standard output.
  virtual void Show() const;

  virtual bool HasProperty(const AudioObjectPropertyAddress& inAddress) const;
  virtual bool IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const;
  virtual UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                     UInt32 inQualifierDataSize, const void* inQualifierData) const;
  virtual void GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                               UInt32 inQualifierDataSize, const void* inQualifierData,
                               UInt32& ioDataSize, void* outData) const;
  virtual void SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                               UInt32 inQualifierDataSize, const void* inQualifierData,
                               UInt32 inDataSize, const void* inData, const AudioTimeStamp* inWhen);

  // Tells the host. The state mutex is let go around the call if this thread holds it.
  virtual void PropertiesChanged(UInt32 inNumberAddresses,
                                 const AudioObjectPropertyAddress* inAddresses) const;
  virtual void PropertyListenerAdded(const AudioObjectPropertyAddress& inAddress);
  virtual void PropertyListenerRemoved(const AudioObjectPropertyAddress& inAddress);

  AudioObjectID GetObjectID() const noexcept { return mObjectID; }
  AudioClassID GetClassID() const noexcept { return mClassID; }
  HP_HardwarePlugIn* GetPlugIn() const noexcept { return mPlugIn; }
  void SetObjectID(AudioObjectID inObjectID);

  // These two are inline, for they stand in the way of every call of the host.
  static HP_Object* GetObjectByID(AudioObjectID inObjectID) {
    const auto* theMap = sHP_ObjectIDMap.load(std::memory_order_acquire);
    return theMap != nullptr ? theMap->GetObject(inObjectID) : nullptr;
  }
  static CAMutex* GetObjectStateMutexByID(AudioObjectID inObjectID) {
    const auto* theMap = sHP_ObjectStateMutexMap.load(std::memory_order_acquire);
    return theMap != nullptr ? theMap->Get(inObjectID) : nullptr;
  }
  // Null also for an object of another class.
  static HP_Device* GetDeviceByID(AudioObjectID inObjectID);
  static HP_Stream* GetStreamByID(AudioObjectID inObjectID);
  // A null mutex makes the ID one without a mutex.
  static void SetObjectStateMutexForID(AudioObjectID inObjectID, CAMutex* inMutex);
  // Whether a class is another one or stands below it.
  static bool IsSubClass(AudioClassID inClassID, AudioClassID inBaseClassID) noexcept;

 protected:
  using PropertyList = std::vector<std::pair<CAPropertyAddress, HP_Property*>>;

  // On a conflict the addresses before it stay.
  void AddProperty(HP_Property* inProperty);
  // By address alone.
  void RemoveProperty(HP_Property* inProperty);
  PropertyList::iterator FindPropertyByAddress(const AudioObjectPropertyAddress& inAddress);
  // The first helper with a congruent address that is active, or null.
  HP_Property* FindActivePropertyByAddress(const AudioObjectPropertyAddress& inAddress) const;
  // The object's own name as UTF-8, cut to inSize bytes with its terminator, for Show; empty if
  // there is none or reading it throws.
  void GetNameText(char* outText, UInt32 inSize) const noexcept;

 private:
  HP_Property& GetActiveProperty(const AudioObjectPropertyAddress& inAddress) const;

  // Made on first use and never freed, so that they outlive every object and every late call. The
  // host's threads read both without a lock.
  static constinit std::atomic<CATokenMap<HP_Object>*> sHP_ObjectIDMap;
  static constinit std::atomic<CATokenIndex<CAMutex>*> sHP_ObjectStateMutexMap;

  AudioObjectID mObjectID;
  const AudioClassID mClassID;
  HP_HardwarePlugIn* const mPlugIn;
  PropertyList mPropertyList;
};
