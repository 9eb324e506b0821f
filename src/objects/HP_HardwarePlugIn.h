#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>
#include <CoreFoundation/CoreFoundation.h>

#include <atomic>

#include "objects/HP_Object.h"
#include "support/CACFObject.h"

// Purpose: the one object that the host holds. The address of its interface field is the reference
//   by which the host calls the entries of sInterface.
// Thread: the host's.
// Ownership: counted; the last Release deletes the object. Holds one retain of the factory's UUID.
// Units and range: the count starts at 0.
// Failure: InitializeWithObjectID answers or throws a status.
class HP_HardwarePlugIn : public HP_Object {
 public:
  explicit HP_HardwarePlugIn(CFUUIDRef inFactoryUUID);
  ~HP_HardwarePlugIn() override;

  // Initializes without an ID, for hosts of the older interface versions.
  void Initialize() override;
  void Teardown() override;

  virtual OSStatus InitializeWithObjectID(AudioObjectID inObjectID);
  // Both answer the new count.
  virtual UInt32 Retain();
  virtual UInt32 Release();

  AudioHardwarePlugInRef GetInterface() const noexcept {
    return const_cast<AudioHardwarePlugInRef>(&mInterface);
  }
  static HP_HardwarePlugIn* GetObject(AudioHardwarePlugInRef inReference) noexcept;

 private:
  static const AudioHardwarePlugInInterface sInterface;

  AudioHardwarePlugInInterface* mInterface;
  CACFObject<CFUUIDRef> mFactoryUUID;
  std::atomic<UInt32> mReferenceCount;
};
