#include <cstdio>

#include "HALTest.h"

namespace {

using testing::ElementsAre;

OSStatus Procedure(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*,
                   const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

std::string Text(const void* inPointer) {
  char text[32];
  snprintf(text, sizeof text, "%zx", reinterpret_cast<size_t>(inPointer));
  return text;
}

class DeviceCalls : public HALTest {
 protected:
  DeviceCalls() : mDevice(Device()), mID(std::to_string(mDevice)) { mFake->TakeLog(); }
  ~DeviceCalls() override { mFake->TakeLog(); }

  const AudioObjectID mDevice;
  const std::string mID;
  const std::string mProc = Text(reinterpret_cast<void*>(&Procedure));
};

TEST_F(DeviceCalls, ReachTheirEntriesWithTheirArguments) {
  AudioTimeStamp in{}, out{};
  AudioBufferList list{};
  AudioDeviceIOProcID id = nullptr;
  int data = 0;
  EXPECT_EQ(AudioDeviceCreateIOProcID(mDevice, Procedure, &data, &id), 0);
  EXPECT_EQ(id, Procedure);
  EXPECT_EQ(AudioDeviceStart(mDevice, id), 0);
  EXPECT_EQ(AudioDeviceStartAtTime(mDevice, id, &in, 5), 0);
  EXPECT_EQ(AudioDeviceGetCurrentTime(mDevice, &out), 0);
  EXPECT_EQ(AudioDeviceTranslateTime(mDevice, &in, &out), 0);
  EXPECT_EQ(AudioDeviceGetNearestStartTime(mDevice, &out, 6), 0);
  EXPECT_EQ(AudioDeviceRead(mDevice, &in, &list), 0);
  EXPECT_EQ(AudioDeviceStop(mDevice, id), 0);
  EXPECT_EQ(AudioDeviceDestroyIOProcID(mDevice, id), 0);
  EXPECT_EQ(AudioDeviceAddIOProc(mDevice, Procedure, &data), 0);
  EXPECT_EQ(AudioDeviceRemoveIOProc(mDevice, Procedure), 0);
  EXPECT_THAT(mFake->TakeLog(),
              ElementsAre("CreateIOProcID " + mID + " " + mProc + " " + Text(&data),
                          "Start " + mID + " " + mProc,
                          "StartAtTime " + mID + " " + mProc + " " + Text(&in) + " 5",
                          "GetCurrentTime " + mID + " " + Text(&out),
                          "TranslateTime " + mID + " " + Text(&in) + " " + Text(&out),
                          "GetNearestStartTime " + mID + " " + Text(&out) + " 6",
                          "Read " + mID + " " + Text(&in) + " " + Text(&list),
                          "Stop " + mID + " " + mProc, "DestroyIOProcID " + mID + " " + mProc,
                          "AddIOProc " + mID + " " + mProc + " " + Text(&data),
                          "RemoveIOProc " + mID + " " + mProc));
}

TEST_F(DeviceCalls, ABlockGoesWithItsQueue) {
  const dispatch_queue_t queue = dispatch_queue_create("test", DISPATCH_QUEUE_SERIAL);
  const AudioDeviceIOBlock block =
      ^(const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*, AudioBufferList*,
        const AudioTimeStamp*) {
      };
  AudioDeviceIOProcID id = nullptr;
  EXPECT_EQ(AudioDeviceCreateIOProcIDWithBlock(&id, mDevice, queue, block), 0);
  EXPECT_THAT(mFake->TakeLog(),
              ElementsAre("CreateIOProcIDWithBlock " + mID + " " + Text(&id) + " " + Text(queue) +
                          " " + Text(reinterpret_cast<void*>(block))));
  EXPECT_EQ(AudioDeviceCreateIOProcIDWithBlock(&id, 31337, queue, block),
            OSStatus{kAudioHardwareBadDeviceError});
  dispatch_release(queue);
}

TEST_F(DeviceCalls, OlderPropertyFormsReachTheOlderEntries) {
  UInt32 size = 0;
  Boolean writable = false;
  AudioTimeStamp when{};
  EXPECT_EQ(AudioDeviceGetPropertyInfo(mDevice, 3, true, 'volm', &size, &writable), 0);
  EXPECT_EQ(size, 40U);
  EXPECT_TRUE(writable);
  EXPECT_EQ(AudioDeviceGetProperty(mDevice, 1, false, 'fsiz', &size, &when), 0);
  EXPECT_EQ(AudioDeviceSetProperty(mDevice, &when, 2, true, 'fsiz', 4, &size), 0);
  EXPECT_EQ(AudioStreamGetPropertyInfo(mDevice, 0, 'sfmt', &size, nullptr), 0);
  EXPECT_EQ(size, 41U);
  EXPECT_EQ(AudioStreamGetProperty(mDevice, 7, 'sfmt', &size, &when), 0);
  EXPECT_EQ(AudioStreamSetProperty(mDevice, &when, 8, 'sfmt', 40, &size), 0);
  EXPECT_THAT(mFake->TakeLog(),
              ElementsAre("DeviceGetPropertyInfo " + mID + " 3 1 volm",
                          "DeviceGetProperty " + mID + " 1 0 fsiz 40",
                          "DeviceSetProperty " + mID + " " + Text(&when) + " 2 1 fsiz 4",
                          "StreamGetPropertyInfo " + mID + " 0 sfmt",
                          "StreamGetProperty " + mID + " 7 sfmt 41",
                          "StreamSetProperty " + mID + " " + Text(&when) + " 8 sfmt 40"));
}

TEST_F(DeviceCalls, OlderFormsAskTheHostForWhatItKeeps) {
  UInt32 size = 0;
  Boolean writable = true;
  UInt32 value = 0;
  EXPECT_EQ(AudioDeviceGetPropertyInfo(mDevice, 0, false, 'clas', &size, &writable), 0);
  EXPECT_EQ(size, 4U);
  EXPECT_FALSE(writable);
  EXPECT_EQ(AudioDeviceGetProperty(mDevice, 0, false, 'clas', &size, &value), 0);
  EXPECT_EQ(value, UInt32{'adev'});
  EXPECT_EQ(AudioStreamGetProperty(mDevice, 0, kAudioStreamPropertyOwningDevice, &size, &value), 0);
  EXPECT_EQ(value, kSystem);
  EXPECT_EQ(AudioDeviceSetProperty(mDevice, nullptr, 0, false, 'clas', 4, &value),
            OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(AudioStreamSetProperty(mDevice, nullptr, 0, 'clas', 4, &value),
            OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_THAT(mFake->TakeLog(), testing::IsEmpty());
}

TEST_F(DeviceCalls, OlderPropertyFormsRefuseNullPointers) {
  const OSStatus refused = kAudioHardwareIllegalOperationError;
  UInt32 size = 4;
  UInt32 value = 0;
  for (const UInt32 selector : {'clas', 'fsiz'}) {
    EXPECT_EQ(AudioDeviceGetProperty(mDevice, 0, false, selector, nullptr, &value), refused);
    EXPECT_EQ(AudioDeviceGetProperty(mDevice, 0, false, selector, &size, nullptr), refused);
    EXPECT_EQ(AudioDeviceSetProperty(mDevice, nullptr, 0, false, selector, 4, nullptr), refused);
    EXPECT_EQ(AudioStreamGetProperty(mDevice, 0, selector, nullptr, &value), refused);
    EXPECT_EQ(AudioStreamGetProperty(mDevice, 0, selector, &size, nullptr), refused);
    EXPECT_EQ(AudioStreamSetProperty(mDevice, nullptr, 0, selector, 4, nullptr), refused);
  }
  for (const UInt32 selector : {'clas', 'pmut'}) {
    EXPECT_EQ(AudioHardwareGetProperty(selector, nullptr, &value), refused);
    EXPECT_EQ(AudioHardwareGetProperty(selector, &size, nullptr), refused);
    EXPECT_EQ(AudioHardwareSetProperty(selector, 4, nullptr), refused);
  }
  EXPECT_EQ(size, 4U);
  EXPECT_THAT(mFake->TakeLog(), testing::IsEmpty()) << "the plug-in does not see them";
}

TEST_F(DeviceCalls, OlderPropertyFormsTakeNullForNoData) {
  UInt32 none = 0;
  EXPECT_EQ(AudioDeviceGetPropertyInfo(mDevice, 0, false, 'fsiz', nullptr, nullptr), 0);
  EXPECT_EQ(AudioDeviceGetProperty(mDevice, 0, false, 'fsiz', &none, nullptr), 0);
  EXPECT_EQ(AudioDeviceSetProperty(mDevice, nullptr, 0, false, 'fsiz', 0, nullptr), 0);
  EXPECT_EQ(AudioStreamGetPropertyInfo(mDevice, 0, 'sfmt', nullptr, nullptr), 0);
  EXPECT_EQ(AudioStreamGetProperty(mDevice, 0, 'sfmt', &none, nullptr), 0);
  EXPECT_EQ(AudioStreamSetProperty(mDevice, nullptr, 0, 'sfmt', 0, nullptr), 0);
  EXPECT_EQ(AudioHardwareGetPropertyInfo('dev#', nullptr, nullptr), 0);
  EXPECT_THAT(mFake->TakeLog(),
              ElementsAre("DeviceGetPropertyInfo " + mID + " 0 0 fsiz",
                          "DeviceGetProperty " + mID + " 0 0 fsiz 0",
                          "DeviceSetProperty " + mID + " " + Text(nullptr) + " 0 0 fsiz 0",
                          "StreamGetPropertyInfo " + mID + " 0 sfmt",
                          "StreamGetProperty " + mID + " 0 sfmt 0",
                          "StreamSetProperty " + mID + " " + Text(nullptr) + " 0 sfmt 0"));
}

TEST(HostTime, IsTheMonotonicClockInNanoseconds) {
  const UInt64 before = AudioGetCurrentHostTime();
  EXPECT_GE(AudioGetCurrentHostTime(), before);
  EXPECT_EQ(AudioGetHostClockFrequency(), 1e9);
  EXPECT_EQ(AudioGetHostClockMinimumTimeDelta(), 1U);
  EXPECT_EQ(AudioConvertHostTimeToNanos(123456789012345), 123456789012345U);
  EXPECT_EQ(AudioConvertNanosToHostTime(~UInt64{0}), ~UInt64{0});
}

}  // namespace
