#include <CoreAudio/CoreAudio.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "library/sys/mac/mach_override/mach_override.h"
#include "unit/mach_override/CodePages.h"

// Functions that are patched while another thread calls them, and the two of the host.

namespace mach_override_tests {
namespace {

// nop of five bytes; lea rax,[rdi+rsi]; ret, on a 16-byte border
const char* const kFiveBytesFirst = "0F 1F 44 00 00 48 8D 04 37 C3";

TEST(PatchedWhileRunning, EachCallIsTheOldOrTheNewAndInTheEndTheNew) {
  constexpr int kRounds = 200;
  std::vector<std::unique_ptr<Code>> codes;
  for (int i = 0; i < kRounds; ++i) {
    codes.push_back(std::make_unique<Code>(Bytes(kFiveBytesFirst), 16 * (i % 200)));
  }
  std::atomic<int> round{0};
  std::atomic<int64_t> calls{0};
  std::atomic<int64_t> odd{0};
  std::atomic<int64_t> back{0};  // old again after the new
  std::thread caller([&] {
    int mine = 0;
    bool isNew = false;
    for (int now = 0; (now = round.load()) < kRounds;) {
      if (now != mine) {
        mine = now;
        isNew = false;
      }
      const long answer = codes[static_cast<size_t>(now)]->Call();
      if (answer != 12 && answer != kReplaced) odd.fetch_add(1);
      if (isNew && answer == 12) back.fetch_add(1);
      isNew = answer == kReplaced;
      calls.fetch_add(1);
    }
  });
  const auto letItRun = [&] {
    for (const int64_t until = calls.load() + 50; calls.load() < until;) std::this_thread::yield();
  };
  for (int i = 0; i < kRounds; ++i) {
    round.store(i);
    letItRun();
    void* reentry = nullptr;
    EXPECT_EQ(mach_override_ptr(codes[static_cast<size_t>(i)]->Pointer(),
                                reinterpret_cast<const void*>(&Replacement), &reentry),
              0);
    letItRun();
    EXPECT_EQ(codes[static_cast<size_t>(i)]->Call(), kReplaced);
    EXPECT_EQ(CallAt(reentry), 12);
  }
  round.store(kRounds);
  caller.join();
  EXPECT_EQ(odd.load(), 0);
  EXPECT_EQ(back.load(), 0);
}

// The host's two functions

decltype(&AudioObjectGetPropertyData) sGet;
decltype(&AudioObjectSetPropertyData) sSet;
int sGets;
int sSets;

OSStatus CountedGet(AudioObjectID inObject, const AudioObjectPropertyAddress* inAddress,
                    UInt32 inQualifierSize, const void* inQualifier, UInt32* ioSize,
                    void* outData) {
  ++sGets;
  return sGet(inObject, inAddress, inQualifierSize, inQualifier, ioSize, outData);
}

OSStatus CountedSet(AudioObjectID inObject, const AudioObjectPropertyAddress* inAddress,
                    UInt32 inQualifierSize, const void* inQualifier, UInt32 inSize,
                    const void* inData) {
  ++sSets;
  return sSet(inObject, inAddress, inQualifierSize, inQualifier, inSize, inData);
}

TEST(PatchedHost, PropertiesPassThroughTheReplacementWithAllSixArguments) {
  const AudioObjectPropertyAddress address = {'user', kAudioObjectPropertyScopeGlobal, 0};
  const AudioObjectPropertyAddress unknown = {'zzzz', kAudioObjectPropertyScopeGlobal, 0};
  UInt32 plain = 77, size = sizeof plain;
  const OSStatus status =
      AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &plain);
  const OSStatus error =
      AudioObjectSetPropertyData(kAudioObjectSystemObject, &unknown, 0, nullptr, 4, &plain);

  void* reentry = nullptr;
  ASSERT_EQ(mach_override_ptr(reinterpret_cast<void*>(&AudioObjectGetPropertyData),
                              reinterpret_cast<const void*>(&CountedGet), &reentry),
            0);
  sGet = reinterpret_cast<decltype(sGet)>(reentry);
  ASSERT_EQ(mach_override_ptr(reinterpret_cast<void*>(&AudioObjectSetPropertyData),
                              reinterpret_cast<const void*>(&CountedSet), &reentry),
            0);
  sSet = reinterpret_cast<decltype(sSet)>(reentry);

  UInt32 patched = 88;
  size = sizeof patched;
  EXPECT_EQ(
      AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &patched),
      status);
  EXPECT_EQ(sGets, 1);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(size, sizeof patched);
  EXPECT_EQ(patched, plain);
  EXPECT_NE(error, 0);
  EXPECT_EQ(AudioObjectSetPropertyData(kAudioObjectSystemObject, &unknown, 0, nullptr, 4, &plain),
            error);
  EXPECT_EQ(sSets, 1);
}

}  // namespace
}  // namespace mach_override_tests
