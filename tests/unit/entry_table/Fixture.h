#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/entry_table/Objects.h"

constexpr AudioObjectID kDeviceID = 100;
constexpr AudioObjectID kStreamID = 101;
constexpr AudioObjectID kUnknownID = 999;

// A plug-in, a device and a stream, reached only through the vector.
class EntryTable : public testing::Test {
 protected:
  void SetUp() override {
    gRecord = {};
    mPlugIn = new RecordingPlugIn;
    mSelf = mPlugIn->GetInterface();
    mEntries = *mSelf;
    mPlugIn->Retain();
    gRecord = {};
  }
  void TearDown() override {
    gRecord = {};
    HP_Object::SetObjectStateMutexForID(kDeviceID, nullptr);
    HP_Object::SetObjectStateMutexForID(kStreamID, nullptr);
    mPlugIn->Release();
  }

  static OSStatus Proc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*,
                       const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*, void*) {
    return 0;
  }

  RecordingPlugIn* mPlugIn = nullptr;
  AudioHardwarePlugInRef mSelf = nullptr;
  const AudioHardwarePlugInInterface* mEntries = nullptr;
  RecordingDevice mDevice{kDeviceID};
  RecordingStream mStream{kStreamID};
  AudioTimeStamp mTime = {};
  AudioTimeStamp mOtherTime = {};
  AudioBufferList mList = {};
  UInt32 mSize = 4;
  UInt32 mData = 0;
  const AudioObjectPropertyAddress mGood = {'good', 'glob', 0};
};
