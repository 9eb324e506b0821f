// The way of hosts whose code is not patched: the HAL's entries hand each call to an interposer.
// This program has those entries and the installation for them, whichever way the build takes.

#include <CoreAudio/AudioHardwareInterposition.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <thread>

#include "hal/ObjectAPI.h"
#include "runtime/TMBACLNO.h"
#include "support/PrivateRuntime.h"

namespace {

// What the HAL's own bodies saw last.
struct Call {
  AudioObjectID mObject = 0;
  const AudioObjectPropertyAddress* mAddress = nullptr;
  UInt32 mQualifierSize = 0;
  const void* mQualifier = nullptr;
  const void* mData = nullptr;
  bool operator==(const Call&) const = default;
};
Call gRead;
Call gWrite;

}  // namespace

// A user without an account: the environment names the home.
extern "C" int getpwuid_r(uid_t, struct passwd*, char*, size_t, struct passwd** outFound) {
  *outFound = nullptr;
  return 0;
}

OSStatus TembraHALGetPropertyData(AudioObjectID inObject,
                                  const AudioObjectPropertyAddress* inAddress,
                                  UInt32 inQualifierSize, const void* inQualifier, UInt32* ioSize,
                                  void* outData) {
  gRead = {inObject, inAddress, inQualifierSize, inQualifier, outData};
  if (ioSize && *ioSize >= 4 && outData) memcpy(outData, "this", 4);
  return 'read';
}

OSStatus TembraHALSetPropertyData(AudioObjectID inObject,
                                  const AudioObjectPropertyAddress* inAddress,
                                  UInt32 inQualifierSize, const void* inQualifier, UInt32,
                                  const void* inData) {
  gWrite = {inObject, inAddress, inQualifierSize, inQualifier, inData};
  return 'writ';
}

namespace {

// One process has one interposer for good, so the order of these steps matters: one test.
TEST(Interposition, LeadsEachCallThroughTheProxiesAndOn) {
  tembra::test::PrivateRuntime runtime;
  const AudioObjectPropertyAddress address{'dOut', 'glob', 0};
  const UInt32 qualifier = 9;
  UInt32 size = 4;
  AudioObjectID value = 0;

  // Before: straight to the bodies.
  EXPECT_EQ(AudioObjectGetPropertyData(1, &address, 4, &qualifier, &size, &value),
            OSStatus{'read'});
  EXPECT_EQ(gRead, (Call{1, &address, 4, &qualifier, &value}));
  EXPECT_EQ(AudioObjectSetPropertyData(1, &address, 4, &qualifier, 4, &value), OSStatus{'writ'});
  EXPECT_EQ(gWrite, (Call{1, &address, 4, &qualifier, &value}));

  // Null pointers are refused and change nothing.
  AudioObjectGetPropertyDataInterposer native = nullptr;
  EXPECT_EQ(AudioObjectInterposeGetPropertyData(nullptr, &native),
            OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(AudioObjectInterposeGetPropertyData(&tmbclno_aogpd_proxy, nullptr),
            OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(native, nullptr);

  EXPECT_EQ(tmbclno_override_aogpd(), 0);
  EXPECT_EQ(tmbclno_override_aospd(), 0);
  EXPECT_EQ(tmbclno_aogpd_entry, &TembraHALGetPropertyData);
  EXPECT_EQ(tmbclno_aospd_entry, &TembraHALSetPropertyData);
  EXPECT_EQ(tmbclno_override_aogpd(), 0) << "done is done";

  // What the proxy does not answer passes on, all six arguments as they were.
  gRead = {};
  EXPECT_EQ(AudioObjectGetPropertyData(5, &address, 4, &qualifier, &size, &value),
            OSStatus{'read'});
  EXPECT_EQ(gRead, (Call{5, &address, 4, &qualifier, &value}));
  gWrite = {};
  EXPECT_EQ(AudioObjectSetPropertyData(5, &address, 4, &qualifier, 4, &value), OSStatus{'writ'});
  EXPECT_EQ(gWrite, (Call{5, &address, 4, &qualifier, &value}));

  // A read of the default output is answered by the preference, on any thread.
  TMBACLNO_Initialize(42);
  ASSERT_EQ(mkdir(runtime.File("Library").c_str(), 0700), 0);
  ASSERT_EQ(mkdir(runtime.File("Library/Preferences").c_str(), 0700), 0);
  setenv("HOME", runtime.Path().c_str(), 1);
  std::ofstream(runtime.File("Library/Preferences/com.tembra.tmbsound.rte.plist"))
      << R"(<plist version="1.0"><dict><key>isDefaultOutput</key><true/></dict></plist>)";
  gRead = {};
  std::thread([&] {
    EXPECT_EQ(AudioObjectGetPropertyData(1, &address, 0, nullptr, &size, &value), 0);
  }).join();
  EXPECT_EQ(value, 42U);
  EXPECT_EQ(gRead, Call{});
  // A write is recorded and goes on.
  value = 7;
  EXPECT_EQ(AudioObjectSetPropertyData(1, &address, 0, nullptr, 4, &value), OSStatus{'writ'});
  EXPECT_EQ(AudioObjectGetPropertyData(1, &address, 0, nullptr, &size, &value), OSStatus{'read'});

  // There is one interposer.
  EXPECT_EQ(AudioObjectInterposeGetPropertyData(&TembraHALGetPropertyData, &native),
            OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(native, nullptr);
  tmbclno_aogpd_entry = nullptr;
  EXPECT_EQ(tmbclno_override_aogpd(), OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(tmbclno_aogpd_entry, nullptr);
}

}  // namespace
