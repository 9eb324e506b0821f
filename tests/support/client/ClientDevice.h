#pragma once

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"

namespace tembra::test {

// A device of a plug-in object that was never published.
template <class DeviceClass>
class ClientDeviceOf {
 public:
  static constexpr AudioObjectID kID = 50;

  explicit ClientDeviceOf(bool inInitialize = true) {
    CFUUIDRef uuid = CFUUIDCreate(nullptr);
    mPlugIn = new TMBACLN_PlugIn(uuid);
    mPlugIn->Retain();
    CFRelease(uuid);
    mDevice = new DeviceClass(kID, mPlugIn);
    if (inInitialize) mDevice->Initialize();
  }
  ~ClientDeviceOf() {
    mDevice->Teardown();
    delete mDevice;
    mPlugIn->Release();
  }
  ClientDeviceOf(const ClientDeviceOf&) = delete;
  ClientDeviceOf& operator=(const ClientDeviceOf&) = delete;

  DeviceClass* operator->() const { return mDevice; }
  DeviceClass& operator*() const { return *mDevice; }
  TMBACLN_PlugIn* GetPlugIn() const { return mPlugIn; }

 private:
  TMBACLN_PlugIn* mPlugIn;
  DeviceClass* mDevice;
};

using ClientDevice = ClientDeviceOf<TMBACLN_Device>;

}  // namespace tembra::test
