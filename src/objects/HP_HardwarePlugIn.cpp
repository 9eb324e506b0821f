#include "objects/HP_HardwarePlugIn.h"

#include <cstddef>

#include "support/HP_SystemInfo.h"

HP_HardwarePlugIn::HP_HardwarePlugIn(CFUUIDRef inFactoryUUID)
    : HP_Object(0, kAudioPlugInClassID, this),
      mInterface(const_cast<AudioHardwarePlugInInterface*>(&sInterface)),
      mFactoryUUID(inFactoryUUID),
      mReferenceCount(0) {
  mFactoryUUID.Retain();
  CFPlugInAddInstanceForFactory(inFactoryUUID);
}

HP_HardwarePlugIn::~HP_HardwarePlugIn() {
  CFPlugInRemoveInstanceForFactory(mFactoryUUID.GetObject());
}

void HP_HardwarePlugIn::Initialize() {
  InitializeWithObjectID(0);
}

void HP_HardwarePlugIn::Teardown() {}

OSStatus HP_HardwarePlugIn::InitializeWithObjectID(AudioObjectID inObjectID) {
  HP_SystemInfo::Initialize();
  HP_Object::Initialize();
  SetObjectID(inObjectID);
  return 0;
}

UInt32 HP_HardwarePlugIn::Retain() {
  return mReferenceCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

UInt32 HP_HardwarePlugIn::Release() {
  const UInt32 theCount = mReferenceCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (theCount == 0) delete this;
  return theCount;
}

// The class has virtual operations, for which the standard leaves offsetof to the compiler; both
// that build this give it its plain meaning where there is no virtual base.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

HP_HardwarePlugIn* HP_HardwarePlugIn::GetObject(AudioHardwarePlugInRef inReference) noexcept {
  return reinterpret_cast<HP_HardwarePlugIn*>(reinterpret_cast<char*>(inReference) -
                                              offsetof(HP_HardwarePlugIn, mInterface));
}

#pragma GCC diagnostic pop
