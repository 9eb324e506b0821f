#pragma once

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"

namespace tembra::test {

// A device of a plug-in object that was never published.
class ClientDevice {
 public:
  static constexpr AudioObjectID kID = 50;

  explicit ClientDevice(bool inInitialize = true) {
    CFUUIDRef uuid = CFUUIDCreate(nullptr);
    mPlugIn = new TMBACLN_PlugIn(uuid);
    mPlugIn->Retain();
    CFRelease(uuid);
    mDevice = new TMBACLN_Device(kID, mPlugIn);
    if (inInitialize) mDevice->Initialize();
  }
  ~ClientDevice() {
    mDevice->Teardown();
    delete mDevice;
    mPlugIn->Release();
  }
  ClientDevice(const ClientDevice&) = delete;
  ClientDevice& operator=(const ClientDevice&) = delete;

  TMBACLN_Device* operator->() const { return mDevice; }
  TMBACLN_Device& operator*() const { return *mDevice; }
  TMBACLN_PlugIn* GetPlugIn() const { return mPlugIn; }

 private:
  TMBACLN_PlugIn* mPlugIn;
  TMBACLN_Device* mDevice;
};

}  // namespace tembra::test
