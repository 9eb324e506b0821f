#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"
#include "support/CAException.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"
#include "support/persistence/FakePreferences.h"
#include "support/persistence/FakeSettingsFile.h"
#include "support/persistence/FakeSettingsStorage.h"

namespace tembra::test {

inline CFUUIDRef GetPlugInType() {
  return CFUUIDGetConstantUUIDWithBytes(nullptr, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8, 0x11, 0xD6,
                                        0x9C, 0x31, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46);
}

// A plug-in object of a host that the test plays.
class PlugIn : public testing::Test {
 protected:
  PlugIn() : mHAL(FakeHAL::Get()) {
    FakeServer::Get().Reset();
    mHAL.Reset();
    mSettings = {};
    FakePreferences::Get().Reset();
    FakeSettingsStorage::Get().Reset();
    mReference =
        static_cast<AudioHardwarePlugInRef>(TMBACLN_New_Instance(nullptr, GetPlugInType()));
    mPlugIn = static_cast<TMBACLN_PlugIn*>(HP_HardwarePlugIn::GetObject(mReference));
  }
  ~PlugIn() override {
    // The full way down, whatever the test left.
    mHAL.mSystemValues.clear();
    mPlugIn->Teardown();
    mPlugIn->Release();
  }

  template <class Operation>
  static OSStatus StatusOf(Operation inOperation) {
    try {
      inOperation();
      return 0;
    } catch (const CAException& exception) {
      return exception.GetError();
    }
  }

  FakeHAL& mHAL;
  FakeSettingsFile& mSettings = FakeSettingsFile::Get();
  AudioHardwarePlugInRef mReference;
  TMBACLN_PlugIn* mPlugIn;
};

}  // namespace tembra::test
