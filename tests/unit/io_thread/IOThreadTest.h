#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ThreadedDevice.h"

// What the tests of the I/O thread share.
namespace tembra::test {

constexpr UInt32 kTimeConstraints = THREAD_TIME_CONSTRAINT_POLICY;
constexpr UInt32 kPrecedence = THREAD_PRECEDENCE_POLICY;

inline std::vector<Float64> CallTimes(const ThreadedDevice& inDevice) {
  std::vector<Float64> theTimes;
  for (const auto& theCall : inDevice.mCalls) theTimes.push_back(theCall.mNow);
  return theTimes;
}

inline std::vector<UInt32> Cycles(const ThreadedDevice& inDevice) {
  std::vector<UInt32> theCycles;
  for (const auto& theCall : inDevice.mCalls) theCycles.push_back(theCall.mCycle);
  return theCycles;
}

inline std::vector<UInt32> Flavors() {
  std::vector<UInt32> theFlavors;
  for (const PolicyCall& theCall : SimulatedTime::Get().GetPolicies()) {
    theFlavors.push_back(theCall.mFlavor);
  }
  return theFlavors;
}

inline const ThreadedDevice::Step kWhole = ThreadedDevice::SleepWhole;

inline OSStatus Proc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*,
                     const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

class NotingCommand : public HP_Command {
 public:
  NotingCommand(ThreadedDevice& inDevice, std::string inText)
      : HP_Command('test'), mDevice(inDevice), mText(std::move(inText)) {}
  void Execute(HP_Device*) override { mDevice.Log(mText); }

 private:
  ThreadedDevice& mDevice;
  std::string mText;
};

// A sleep that lasts until someone asks for the stop.
inline int SleepUntilStopped(ThreadedDevice& inDevice) {
  while (!inDevice.mThread->HasBeenStopped()) std::this_thread::yield();
  return 0;
}

}  // namespace tembra::test
