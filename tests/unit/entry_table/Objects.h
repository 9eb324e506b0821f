#pragma once

#include <functional>
#include <string>
#include <vector>

#include "device/HP_Device.h"
#include "formats/HP_Stream.h"
#include "objects/HP_HardwarePlugIn.h"
#include "support/CAException.h"
#include "support/CAMutex.h"

// What the objects below were asked to do, in order; mAct runs in the middle of each call.
struct Record {
  std::vector<std::string> mCalls;
  std::vector<AudioObjectPropertyAddress> mAddresses;
  std::function<void()> mAct;

  void Call(std::string inCall) {
    mCalls.push_back(std::move(inCall));
    if (mAct) mAct();
  }
};
extern Record gRecord;

// A device that writes down what the entries ask of it. 'good' is its property: 4 bytes, value
// 0x11223344, settable.
class RecordingDevice : public HP_Device {
 public:
  explicit RecordingDevice(AudioObjectID inID, AudioClassID inClass = 'adev')
      : HP_Device(inID, inClass, nullptr, 0, false) {}

  void Show() const override { gRecord.Call("Show"); }

  bool HasProperty(const AudioObjectPropertyAddress& inAddress) const override {
    gRecord.mAddresses.push_back(inAddress);
    gRecord.Call("HasProperty");
    return inAddress.mSelector == 'good';
  }
  bool IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const override {
    gRecord.mAddresses.push_back(inAddress);
    gRecord.Call("IsPropertySettable");
    return mSettable;
  }
  UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                             const void* inQualifier) const override {
    gRecord.mAddresses.push_back(inAddress);
    mQualifierSize = inQualifierSize;
    mQualifier = inQualifier;
    gRecord.Call("GetPropertyDataSize");
    return 4;
  }
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                       const void* inQualifier, UInt32& ioSize, void* outData) const override {
    gRecord.mAddresses.push_back(inAddress);
    mQualifierSize = inQualifierSize;
    mQualifier = inQualifier;
    gRecord.Call("GetPropertyData");
    if (ioSize < 4) throw CAException('!siz');
    ioSize = 4;
    *static_cast<UInt32*>(outData) = 0x11223344;
  }
  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                       const void* inQualifier, UInt32 inSize, const void* inData,
                       const AudioTimeStamp* inWhen) override {
    gRecord.mAddresses.push_back(inAddress);
    mQualifierSize = inQualifierSize;
    mQualifier = inQualifier;
    mSize = inSize;
    mData = inData;
    mWhen = inWhen;
    gRecord.Call("SetPropertyData");
  }

  AudioDeviceIOProcID Do_CreateIOProcID(AudioDeviceIOProc inProc, void* inClientData) override {
    mProc = inProc;
    mClientData = inClientData;
    gRecord.Call("Do_CreateIOProcID");
    return inProc;
  }
  AudioDeviceIOProcID Do_CreateIOProcIDWithBlock(dispatch_queue_t inQueue,
                                                 AudioDeviceIOBlock inBlock) override {
    mQueue = inQueue;
    mBlock = inBlock;
    gRecord.Call("Do_CreateIOProcIDWithBlock");
    return mAnswerID;
  }
  void Do_DestroyIOProcID(AudioDeviceIOProcID inID) override {
    mProc = inID;
    gRecord.Call("Do_DestroyIOProcID");
  }
  void Do_AddIOProc(AudioDeviceIOProc inProc, void* inClientData) override {
    mProc = inProc;
    mClientData = inClientData;
    gRecord.Call("Do_AddIOProc");
  }
  void Do_RemoveIOProc(AudioDeviceIOProcID inID) override {
    mProc = inID;
    gRecord.Call("Do_RemoveIOProc");
  }
  void Do_StartIOProc(AudioDeviceIOProcID inID) override {
    mProc = inID;
    gRecord.Call("Do_StartIOProc");
  }
  void Do_StartIOProcAtTime(AudioDeviceIOProcID inID, AudioTimeStamp& ioTime,
                            UInt32 inFlags) override {
    mProc = inID;
    mFlags = inFlags;
    gRecord.Call("Do_StartIOProcAtTime");
    ioTime.mSampleTime += 1;
  }
  void Do_StopIOProc(AudioDeviceIOProcID inID) override {
    mProc = inID;
    gRecord.Call("Do_StopIOProc");
  }
  void Read(const AudioTimeStamp& inTime, AudioBufferList* outData) override {
    mWhen = &inTime;
    mData = outData;
    gRecord.Call("Read");
  }
  void GetCurrentTime(AudioTimeStamp&) override { gRecord.Call("GetCurrentTime"); }
  void SafeGetCurrentTime(AudioTimeStamp& outTime) override {
    gRecord.Call("SafeGetCurrentTime");
    outTime.mSampleTime = 17;
  }
  void TranslateTime(const AudioTimeStamp& inTime, AudioTimeStamp& outTime) override {
    gRecord.Call("TranslateTime");
    outTime.mSampleTime = inTime.mSampleTime + 1;
  }
  void GetNearestStartTime(AudioTimeStamp& ioTime, UInt32 inFlags) override {
    mFlags = inFlags;
    gRecord.Call("GetNearestStartTime");
    ioTime.mSampleTime += 2;
  }

  bool mSettable = true;
  AudioDeviceIOProcID mAnswerID = nullptr;
  AudioDeviceIOProcID mProc = nullptr;
  void* mClientData = nullptr;
  dispatch_queue_t mQueue = nullptr;
  AudioDeviceIOBlock mBlock = nullptr;
  mutable UInt32 mQualifierSize = 0;
  mutable const void* mQualifier = nullptr;
  UInt32 mSize = 0;
  const void* mData = nullptr;
  const AudioTimeStamp* mWhen = nullptr;
  UInt32 mFlags = 0;
};

class RecordingStream : public HP_Stream {
 public:
  explicit RecordingStream(AudioObjectID inID) : HP_Stream(inID, nullptr, nullptr, false, 1) {}

  bool HasProperty(const AudioObjectPropertyAddress& inAddress) const override {
    gRecord.mAddresses.push_back(inAddress);
    gRecord.Call("HasProperty");
    return inAddress.mSelector == 'good';
  }
  bool IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const override {
    gRecord.mAddresses.push_back(inAddress);
    gRecord.Call("IsPropertySettable");
    return false;
  }
  UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress, UInt32,
                             const void*) const override {
    gRecord.mAddresses.push_back(inAddress);
    gRecord.Call("GetPropertyDataSize");
    return 8;
  }
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                       const void* inQualifier, UInt32& ioSize, void* outData) const override {
    EXPECT_EQ(0u, inQualifierSize);
    EXPECT_EQ(nullptr, inQualifier);
    gRecord.mAddresses.push_back(inAddress);
    gRecord.Call("GetPropertyData");
    ioSize = 4;
    *static_cast<UInt32*>(outData) = 0x55667788;
  }
  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                       const void* inQualifier, UInt32 inSize, const void* inData,
                       const AudioTimeStamp* inWhen) override {
    EXPECT_EQ(0u, inQualifierSize);
    EXPECT_EQ(nullptr, inQualifier);
    gRecord.mAddresses.push_back(inAddress);
    mSize = inSize;
    mData = inData;
    mWhen = inWhen;
    gRecord.Call("SetPropertyData");
  }

  UInt32 mSize = 0;
  const void* mData = nullptr;
  const AudioTimeStamp* mWhen = nullptr;
};

class RecordingPlugIn : public HP_HardwarePlugIn {
 public:
  explicit RecordingPlugIn(bool* outDeleted = nullptr)
      : HP_HardwarePlugIn(kAudioHardwarePlugInTypeID), mDeleted(outDeleted) {}
  ~RecordingPlugIn() override {
    if (mDeleted != nullptr) *mDeleted = true;
  }

  void Initialize() override {
    gRecord.Call("Initialize");
    HP_HardwarePlugIn::Initialize();
  }
  void Teardown() override {
    gRecord.Call("Teardown");
    HP_HardwarePlugIn::Teardown();
  }
  OSStatus InitializeWithObjectID(AudioObjectID inID) override {
    gRecord.Call("InitializeWithObjectID " + std::to_string(inID));
    OSStatus theError = HP_HardwarePlugIn::InitializeWithObjectID(inID);
    return theError != 0 ? theError : mAnswer;
  }
  UInt32 Retain() override {
    gRecord.Call("Retain");
    return HP_HardwarePlugIn::Retain();
  }
  UInt32 Release() override {
    gRecord.Call("Release");
    return HP_HardwarePlugIn::Release();
  }

  OSStatus mAnswer = 0;

 private:
  bool* mDeleted;
};
