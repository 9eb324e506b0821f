// I/O procedure buffers where the platform answers otherwise than it usually does: this executable
// has its own vm_allocate and its own system properties.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mach/mach.h>

#include <cstdlib>
#include <cstring>
#include <map>

#include "device/HP_IOProc.h"
#include "support/HP_SystemInfo.h"
#include "support/device/SimulatedDevice.h"

namespace {

int sAllocationThatFails = 0;  // counted from 1; 0 for none
int sAllocations = 0;
std::map<vm_address_t, vm_size_t> sAllocated;  // the size of what is not given back yet
UInt32 sSystemPropertyValue = 1;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) kern_return_t vm_allocate(vm_map_t, vm_address_t* outAddress,
                                                                 vm_size_t inSize, int inFlags) {
  EXPECT_EQ(inFlags, 1);
  if (++sAllocations == sAllocationThatFails) return KERN_NO_SPACE;
  // Memory of this kind is not always zero.
  void* theMemory = std::malloc(inSize);
  std::memset(theMemory, 0xEE, inSize);
  *outAddress = reinterpret_cast<vm_address_t>(theMemory);
  sAllocated[*outAddress] = inSize;
  return KERN_SUCCESS;
}

__attribute__((visibility("default"))) kern_return_t vm_deallocate(vm_map_t, vm_address_t inAddress,
                                                                   vm_size_t inSize) {
  const auto theAllocation = sAllocated.extract(inAddress);
  if (theAllocation.empty()) {
    ADD_FAILURE() << "not allocated";
    return KERN_INVALID_ADDRESS;
  }
  EXPECT_EQ(inSize, theAllocation.mapped());
  std::memset(reinterpret_cast<void*>(inAddress), 0xDD, theAllocation.mapped());
  std::free(reinterpret_cast<void*>(inAddress));
  return KERN_SUCCESS;
}

__attribute__((visibility("default"))) OSStatus AudioObjectGetPropertyData(
    AudioObjectID, const AudioObjectPropertyAddress*, UInt32, const void*, UInt32* ioSize,
    void* outData) {
  EXPECT_EQ(*ioSize, 4u);
  std::memcpy(outData, &sSystemPropertyValue, 4);
  return 0;
}
}

namespace tembra::test {
namespace {

OSStatus Proc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
              AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

class IOProcPlatformTest : public testing::Test {
 protected:
  IOProcPlatformTest() : mIOProc(&mDevice, Proc, nullptr, true, 1, true, false) {
    sAllocationThatFails = sAllocations = 0;
    SetSystemProperty('pmut', 1);
    mIOProc.Start();
  }
  ~IOProcPlatformTest() override {
    mIOProc.Stop();
    mIOProc.DeallocateBufferLists();
    EXPECT_THAT(sAllocated, testing::IsEmpty());
    SetSystemProperty('pmut', 1);
  }
  static void SetSystemProperty(UInt32 inSelector, UInt32 inValue) {
    sSystemPropertyValue = inValue;
    const AudioObjectPropertyAddress theAddress = {inSelector, kAudioObjectPropertyScopeGlobal, 0};
    HP_SystemInfo::SystemListener(kAudioObjectSystemObject, 1, &theAddress, nullptr);
  }

  SimulatedDevice mDevice;
  HP_IOProc mIOProc;
};

TEST_F(IOProcPlatformTest, MemoryIsZeroedWholeBeforeUse) {
  mDevice.mPadding = 2;
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  mIOProc.AllocateBufferList(false);
  const auto* theData = static_cast<const UInt8*>(mIOProc.GetIOBufferList(false)[0]->GetData());
  for (int i = 0; i < 514 * 4; ++i) ASSERT_EQ(theData[i], 0) << i;
}

TEST_F(IOProcPlatformTest, MemoryIsForHeaderDataAndPaddingAndGoesBackWhole) {
  mDevice.mPadding = 2;
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  mIOProc.AllocateBufferList(false);
  EXPECT_THAT(sAllocated, testing::ElementsAre(testing::Pair(testing::_, 16u + 514 * 4)));
  // What was rendered last says nothing of the size of the memory.
  mIOProc.SetIOBufferActualDataSize(false, 0, 8, 2);
  mIOProc.FreeBufferList(false);
  EXPECT_THAT(sAllocated, testing::IsEmpty());
}

TEST_F(IOProcPlatformTest, AMissingBufferLeavesItsEntryEmptyAndMovesTheLaterOnesUp) {
  SimulatedStream* theFirst = mDevice.AddSimulatedStream(false, FloatFormat(1));
  SimulatedStream* theSecond = mDevice.AddSimulatedStream(false, FloatFormat(1));
  SimulatedStream* theThird = mDevice.AddSimulatedStream(false, FloatFormat(2));
  sAllocationThatFails = 2;
  mIOProc.AllocateBufferList(false);
  const AudioBufferList* theList = mIOProc.GetAudioBufferList(false);
  ASSERT_NE(theList, nullptr);
  EXPECT_EQ(theList->mNumberBuffers, 3u);
  const AudioBuffer* theEntries = theList->mBuffers;
  EXPECT_NE(theEntries[0].mData, nullptr);
  EXPECT_EQ(theEntries[1].mNumberChannels, 0u);
  EXPECT_EQ(theEntries[1].mDataByteSize, 0u);
  EXPECT_EQ(theEntries[1].mData, nullptr);
  EXPECT_EQ(theEntries[2].mDataByteSize, 512u * 8);
  ASSERT_EQ(mIOProc.GetIOBufferList(false).size(), 2u);
  EXPECT_EQ(mIOProc.GetIOBufferList(false)[1]->GetData(), theEntries[2].mData);
  EXPECT_EQ(theFirst->mRegistrations.size(), 1u);
  EXPECT_EQ(theSecond->mRegistrations.size(), 0u);
  EXPECT_EQ(theThird->mRegistrations.size(), 1u);

  // A refresh goes by the places in the vector.
  mIOProc.RefreshBufferList(false);
  EXPECT_EQ(theEntries[1].mData, mIOProc.GetIOBufferList(false)[1]->GetData());
  EXPECT_EQ(theEntries[2].mData, nullptr);
}

TEST_F(IOProcPlatformTest, InputIsClearedWhileTheProcessDoesNoIO) {
  mDevice.AddSimulatedStream(true, FloatFormat(1));
  mIOProc.AllocateBufferList(true);
  auto* theSamples = static_cast<float*>(mIOProc.GetAudioBufferList(true)->mBuffers[0].mData);
  theSamples[0] = 1.0f;
  mIOProc.RefreshBufferList(true);
  EXPECT_EQ(theSamples[0], 1.0f);
  SetSystemProperty('pmut', 0);
  ASSERT_FALSE(HP_SystemInfo::IsCurrentProcessDoingIO());
  mIOProc.RefreshBufferList(true);
  EXPECT_EQ(theSamples[0], 0.0f);
}

}  // namespace
}  // namespace tembra::test
