// Making an I/O procedure while memory is short: in this executable operator new fails on demand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <utility>

#include "support/Sanitizers.h"
#include "support/device/SimulatedDevice.h"

namespace {

thread_local int sAllocationThatFails = 0;  // counted from 1; 0 for none

[[maybe_unused]] void* Allocate(std::size_t inSize) {
  if (sAllocationThatFails > 0 && --sAllocationThatFails == 0) throw std::bad_alloc();
  if (void* theMemory = std::malloc(inSize == 0 ? 1 : inSize)) return theMemory;
  throw std::bad_alloc();
}

}  // namespace

// ThreadSanitizer has its own, so there is nothing to fail with there.
#if !__has_feature(thread_sanitizer)
void* operator new(std::size_t inSize) {
  return Allocate(inSize);
}
void* operator new[](std::size_t inSize) {
  return Allocate(inSize);
}
void operator delete(void* inMemory) noexcept {
  std::free(inMemory);
}
void operator delete[](void* inMemory) noexcept {
  std::free(inMemory);
}
void operator delete(void* inMemory, std::size_t) noexcept {
  std::free(inMemory);
}
void operator delete[](void* inMemory, std::size_t) noexcept {
  std::free(inMemory);
}
#endif

namespace tembra::test {
namespace {

OSStatus Proc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
              AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

// Memory runs short when the command has begun.
class ShortDevice : public SimulatedDevice {
 public:
  bool StartCommandExecution(void** outToken) override {
    const bool theAnswer = SimulatedDevice::StartCommandExecution(outToken);
    sAllocationThatFails = std::exchange(mAllocationThatFails, 0);
    return theAnswer;
  }

  int mAllocationThatFails = 0;
};

// By the allocation that fails: that of the record, then that of the list's place for it.
class DeviceAllocations : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    if (kThreadSanitizer) GTEST_SKIP() << "the sanitizer's allocator does not fail on demand";
  }

  template <class Create>
  void FailsAndLeavesNothing(Create inCreate) {
    mDevice.mAllocationThatFails = GetParam();
    EXPECT_EQ(StatusOf(inCreate), 'what');
    EXPECT_EQ(sAllocationThatFails, 0) << "it did fail";
    EXPECT_TRUE(mDevice.mGuard.IsFree());
    EXPECT_THAT(mDevice.TakeEvents(), testing::ElementsAre("begin", "end"));
    EXPECT_EQ(mDevice.GetIOProcList()->GetNumberIOProcs(), 0u);

    EXPECT_EQ(StatusOf(inCreate), 0) << "with memory again";
    EXPECT_EQ(mDevice.GetIOProcList()->GetNumberIOProcs(), 1u);
  }

  ShortDevice mDevice;
};

TEST_P(DeviceAllocations, AProcedureThatCannotBeMadeIsAnErrorOfTheCall) {
  FailsAndLeavesNothing([&] { mDevice.Do_CreateIOProcID(Proc, nullptr); });
}

TEST_P(DeviceAllocations, ABlockThatCannotBeTakenIsAnErrorOfTheCall) {
  const dispatch_queue_t theQueue = dispatch_queue_create("q", DISPATCH_QUEUE_SERIAL);
  AudioDeviceIOBlock theBlock = ^(const AudioTimeStamp*, const AudioBufferList*,
                                  const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*) {
  };
  FailsAndLeavesNothing([&] { mDevice.Do_CreateIOProcIDWithBlock(theQueue, theBlock); });
  dispatch_release(theQueue);
}

INSTANTIATE_TEST_SUITE_P(Each, DeviceAllocations, testing::Values(1, 2));

}  // namespace
}  // namespace tembra::test
