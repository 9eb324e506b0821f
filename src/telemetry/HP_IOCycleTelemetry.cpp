#include "telemetry/HP_IOCycleTelemetry.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "device/HP_Device.h"
#include "support/CAHostTimeBase.h"
#include "support/CAProcess.h"

namespace {

SInt64 SumOfCharacters(CFStringRef inText) {
  SInt64 theSum = 0;
  const CFIndex theLength = CFStringGetLength(inText);
  for (CFIndex i = 0; i < theLength; ++i) theSum += CFStringGetCharacterAtIndex(inText, i);
  return theSum;
}

CFStringRef CreatePortName(CFStringRef inDeviceUID) {
  const CFHashCode theHash = inDeviceUID != nullptr ? CFHash(inDeviceUID) : 0;
  const SInt64 theSum = inDeviceUID != nullptr ? SumOfCharacters(inDeviceUID) : 0;
  return CFStringCreateWithFormat(
      kCFAllocatorDefault, nullptr,
      CFSTR("com.apple.audio.CoreAudio.pid-%d.%lu.%qd.Telemetry.IOCycle"),
      static_cast<int>(CAProcess::GetPID()), static_cast<unsigned long>(theHash),
      static_cast<long long>(theSum));
}

}  // namespace

HP_IOCycleTelemetry::HP_IOCycleTelemetry(HP_Device* inDevice)
    : mDevice(inDevice),
      mGuard("IOCycleTelemetryGuard"),
      mEventChunks(),
      mWriteChunk(0),
      mWriteIndex(0),
      mReadChunk(0) {}

HP_IOCycleTelemetry::~HP_IOCycleTelemetry() {
  HP_IOCycleTelemetry::Teardown();
}

void HP_IOCycleTelemetry::Initialize(CFStringRef /*inPortName*/) {
  const CACFString theDeviceUID(mDevice->CopyDeviceUID());
  mOwnPortName = CreatePortName(theDeviceUID.GetCFString());
  HP_TelemetryServer::Initialize(mOwnPortName.GetCFString());
}

void HP_IOCycleTelemetry::Teardown() {
  HP_TelemetryServer::Teardown();
  FreeRing();
}

void HP_IOCycleTelemetry::StartCapturing() {
  if (IsCapturing()) return;
  std::vector<std::unique_ptr<Event[]>> theNewChunks;
  theNewChunks.reserve(kNumberChunks);
  for (UInt32 i = 0; i < kNumberChunks; ++i) {
    theNewChunks.push_back(std::make_unique<Event[]>(kEventsPerChunk));
  }
  Event* theChunks[kNumberChunks];
  for (UInt32 i = 0; i < kNumberChunks; ++i) theChunks[i] = theNewChunks[i].release();
  ExchangeRing(theChunks);
  // What a capture left that was only switched off.
  for (Event* theChunk : theChunks) delete[] theChunk;
}

void HP_IOCycleTelemetry::StopCapturing() {
  if (IsCapturing()) FreeRing();
}

void HP_IOCycleTelemetry::FreeRing() {
  Event* theChunks[kNumberChunks] = {};
  ExchangeRing(theChunks);
  for (Event* theChunk : theChunks) delete[] theChunk;
}

// 9 MB are made and freed without the guard, which the I/O thread may want.
void HP_IOCycleTelemetry::ExchangeRing(Event* (&ioEventChunks)[kNumberChunks]) {
  CAGuard::Locker theLocker(mGuard);
  std::swap(mEventChunks, ioEventChunks);
  mWriteChunk = 0;
  mWriteIndex = 0;
  mReadChunk = 0;
}

CFDataRef HP_IOCycleTelemetry::GetTelemetry() {
  if (!IsEnabled()) return nullptr;
  std::array<Event, kEventsPerChunk> theEvents;
  UInt32 theNumberEvents = 0;
  {
    CAGuard::Locker theLocker(mGuard);
    theNumberEvents = TakeEvents(theEvents.data());
  }
  if (theNumberEvents == 0) return nullptr;
  return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(theEvents.data()),
                      static_cast<CFIndex>(theNumberEvents * sizeof(Event)));
}

// Copies the next events to hand out, at most a chunk; answers how many there are.
UInt32 HP_IOCycleTelemetry::TakeEvents(Event* outEvents) {
  const UInt32 theChunk = mReadChunk;
  UInt32 theNumberEvents = kEventsPerChunk;
  if (mDevice->IsIOEngineRunning()) {
    // The chunk in progress stays.
    if (mReadChunk == mWriteChunk) return 0;
    ++mReadChunk;
    if (mReadChunk >= kNumberChunks) mReadChunk = 0;
  } else if (mReadChunk == mWriteChunk) {
    theNumberEvents = mWriteIndex;
    mWriteIndex = 0;
  } else {
    // Readers know that one answer without data does not end a drain: the place past the ring's
    // end has its turn here.
    ++mReadChunk;
    if (mReadChunk > kNumberChunks) mReadChunk = 0;
  }
  const Event* theEvents = theChunk < kNumberChunks ? mEventChunks[theChunk] : nullptr;
  if (theEvents == nullptr) return 0;
  std::copy_n(theEvents, theNumberEvents, outEvents);
  return theNumberEvents;
}

CFDataRef HP_IOCycleTelemetry::ClearTelemetry() {
  CAGuard::Locker theLocker(mGuard);
  mReadChunk = mWriteChunk;
  mWriteIndex = 0;
  return nullptr;
}

void HP_IOCycleTelemetry::SaveTelemetryItem(UInt32 inKind, UInt32 inIOCycle, Float64 inFirst,
                                            Float64 inSecond, Float64 inThird, Float64 inFourth,
                                            UInt64 inFirstWide, UInt64 inSecondWide, UInt32 inError,
                                            UInt32 inFlags) {
  if (!IsEnabled()) return;
  CAGuard::Locker theLocker(mGuard);
  // Capture may have ended since the recorder looked.
  Event* theEvents = mEventChunks[mWriteChunk];
  if (theEvents == nullptr) return;
  theEvents[mWriteIndex] = {CAHostTimeBase::GetTheCurrentTime(),
                            inKind,
                            inIOCycle,
                            {inFirst, inSecond, inThird, inFourth},
                            {inFirstWide, inSecondWide},
                            inError,
                            inFlags};
  if (++mWriteIndex < kEventsPerChunk) return;
  mWriteIndex = 0;
  if (++mWriteChunk >= kNumberChunks) mWriteChunk = 0;
}

void HP_IOCycleTelemetry::Save(UInt32 inKind, UInt32 inIOCycle) {
  SaveTelemetryItem(inKind, inIOCycle, 0, 0, 0, 0, 0, 0, 0, Event::kNoValues);
}

void HP_IOCycleTelemetry::Save(UInt32 inKind, UInt32 inIOCycle, const AudioTimeStamp& inTime) {
  SaveTelemetryItem(inKind, inIOCycle, inTime.mRateScalar, 0, inTime.mSampleTime, 0,
                    inTime.mHostTime, 0, 0, Event::kOneTime);
}

void HP_IOCycleTelemetry::Save(UInt32 inKind, UInt32 inIOCycle, const AudioTimeStamp& inFirstTime,
                               const AudioTimeStamp& inSecondTime) {
  SaveTelemetryItem(inKind, inIOCycle, inFirstTime.mRateScalar, inSecondTime.mRateScalar,
                    inFirstTime.mSampleTime, inSecondTime.mSampleTime, inFirstTime.mHostTime,
                    inSecondTime.mHostTime, 0, Event::kTwoTimes);
}

void HP_IOCycleTelemetry::Save(UInt32 inKind, UInt32 inIOCycle, AudioDeviceIOProc inIOProc) {
  SaveTelemetryItem(inKind, inIOCycle, 0, 0, 0, 0, reinterpret_cast<UInt64>(inIOProc), 0, 0,
                    Event::kFirstWideValue);
}

void HP_IOCycleTelemetry::Save(UInt32 inKind, UInt32 inIOCycle, Float64 inFrameSize) {
  SaveTelemetryItem(inKind, inIOCycle, 0, 0, inFrameSize, 0, 0, 0, 0, Event::kThirdValue);
}
