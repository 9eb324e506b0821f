#include "hal/PlugIn.h"

namespace tembra::hal {

bool PlugIn::HasProperty(AudioObjectID inObjectID,
                         const AudioObjectPropertyAddress* inAddress) const {
  return mVersion >= kObjectVersion && (*mInterface)->ObjectHasProperty &&
         (*mInterface)->ObjectHasProperty(mInterface, inObjectID, inAddress);
}

void PlugIn::Show(AudioObjectID inObjectID) const {
  if (mVersion >= kObjectVersion && (*mInterface)->ObjectShow) {
    (*mInterface)->ObjectShow(mInterface, inObjectID);
  }
}

OSStatus PlugIn::Initialize() const {
  if (mVersion >= kObjectVersion) {
    return Call(kObjectVersion, &AudioHardwarePlugInInterface::InitializeWithObjectID,
                GetObjectID());
  }
  return Call(kFirstVersion, &AudioHardwarePlugInInterface::Initialize);
}

void PlugIn::Teardown() const {
  Call(kFirstVersion, &AudioHardwarePlugInInterface::Teardown);
}

void PlugIn::Release() const {
  if ((*mInterface)->Release) {
    (*mInterface)->Release(mInterface);
  }
}

}  // namespace tembra::hal
