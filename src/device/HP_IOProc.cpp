#include "device/HP_IOProc.h"

#include <Block.h>

#include <algorithm>

#include "device/HP_Device.h"
#include "support/CAAudioBufferList.h"
#include "telemetry/HP_IOCycleTelemetry.h"

HP_IOProc::HP_IOProc(HP_Device* inDevice, AudioDeviceIOProc inIOProc, void* inClientData,
                     bool inIsClientDataRelevant, UInt32 inIOBufferSetID, bool inAllocateBuffers,
                     bool inIOBufferSetIncludesHeader)
    : mDevice(inDevice),
      mIOProc(inIOProc),
      mClientData(inClientData),
      mIsClientDataRelevant(inIsClientDataRelevant),
      mDispatchQueue(nullptr),
      mIOBlock(nullptr),
      mIOBufferSetID(inIOBufferSetID),
      mAllocateBuffers(inAllocateBuffers),
      mIOBufferSetIncludesHeader(inIOBufferSetIncludesHeader),
      mIsEnabled(false),
      mStartTime(),
      mStartTimeFlags(0),
      mInputBufferList(nullptr),
      mOutputBufferList(nullptr) {}

HP_IOProc::HP_IOProc(HP_Device* inDevice, dispatch_queue_t inDispatchQueue,
                     AudioDeviceIOBlock inIOBlock, UInt32 inIOBufferSetID, bool inAllocateBuffers,
                     bool inIOBufferSetIncludesHeader)
    : HP_IOProc(inDevice, nullptr, nullptr, false, inIOBufferSetID, inAllocateBuffers,
                inIOBufferSetIncludesHeader) {
  if (inDispatchQueue != nullptr) dispatch_retain(inDispatchQueue);
  mDispatchQueue = inDispatchQueue;
  mIOBlock = Block_copy(inIOBlock);
}

HP_IOProc::HP_IOProc(const HP_IOProc& inIOProc)
    : HP_IOProc(inIOProc.mDevice, inIOProc.mIOProc, inIOProc.mClientData,
                inIOProc.mIsClientDataRelevant, inIOProc.mIOBufferSetID, inIOProc.mAllocateBuffers,
                inIOProc.mIOBufferSetIncludesHeader) {
  *this = inIOProc;
}

HP_IOProc& HP_IOProc::operator=(const HP_IOProc& inIOProc) {
  if (this == &inIOProc) return *this;
  if (inIOProc.mDispatchQueue != nullptr) dispatch_retain(inIOProc.mDispatchQueue);
  if (mDispatchQueue != nullptr) dispatch_release(mDispatchQueue);
  mDispatchQueue = inIOProc.mDispatchQueue;
  const AudioDeviceIOBlock theBlock =
      inIOProc.mIOBlock != nullptr ? Block_copy(inIOProc.mIOBlock) : AudioDeviceIOBlock();
  if (mIOBlock != nullptr) Block_release(mIOBlock);
  mIOBlock = theBlock;

  mDevice = inIOProc.mDevice;
  mIOProc = inIOProc.mIOProc;
  mClientData = inIOProc.mClientData;
  mIsClientDataRelevant = inIOProc.mIsClientDataRelevant;
  mIOBufferSetID = inIOProc.mIOBufferSetID;
  mAllocateBuffers = inIOProc.mAllocateBuffers;
  mIOBufferSetIncludesHeader = inIOProc.mIOBufferSetIncludesHeader;
  mIsEnabled = inIOProc.mIsEnabled;
  mStartTime = inIOProc.mStartTime;
  mStartTimeFlags = inIOProc.mStartTimeFlags;
  mInputStreamUsage = inIOProc.mInputStreamUsage;
  mOutputStreamUsage = inIOProc.mOutputStreamUsage;
  mInputIOBuffers = inIOProc.mInputIOBuffers;
  mInputBufferList = inIOProc.mInputBufferList;
  mOutputIOBuffers = inIOProc.mOutputIOBuffers;
  mOutputBufferList = inIOProc.mOutputBufferList;
  return *this;
}

HP_IOProc::~HP_IOProc() {
  if (mDispatchQueue != nullptr) dispatch_release(mDispatchQueue);
  if (mIOBlock != nullptr) Block_release(mIOBlock);
}

bool HP_IOProc::IsCallable(const AudioTimeStamp& inInputTime,
                           const AudioTimeStamp& inOutputTime) const {
  if (!mIsEnabled) return false;
  if (mStartTimeFlags == 0) return true;
  const bool theTimeIsInput = (mStartTimeFlags & kAudioDeviceStartTimeIsInputFlag) != 0;
  const AudioTimeStamp& theTime = theTimeIsInput ? inInputTime : inOutputTime;
  return theTime.mSampleTime >= mStartTime.mSampleTime;
}

void HP_IOProc::Start() {
  mIsEnabled = true;
  mStartTime = AudioTimeStamp();
  mStartTimeFlags = 0;
}

void HP_IOProc::StartAtTime(const AudioTimeStamp& inStartTime, UInt32 inStartTimeFlags) {
  mIsEnabled = true;
  mStartTime = inStartTime;
  mStartTimeFlags = inStartTimeFlags;
}

void HP_IOProc::Stop() {
  mIsEnabled = false;
}

bool HP_IOProc::IsStreamEnabled(bool inIsInput, UInt32 inStreamIndex) const {
  const StreamUsage& theUsage = GetStreamUsage(inIsInput);
  return inStreamIndex >= theUsage.size() || theUsage[inStreamIndex];
}

bool HP_IOProc::IsAnyStreamEnabled(bool inIsInput) const {
  const StreamUsage& theUsage = GetStreamUsage(inIsInput);
  return mDevice->GetNumberStreams(inIsInput) > theUsage.size() ||
         std::find(theUsage.begin(), theUsage.end(), true) != theUsage.end();
}

void HP_IOProc::GetStreamUsage(bool inIsInput, UInt32 inNumberStreams, bool* outStreamUsage) const {
  const UInt32 theNumberStreams = mDevice->GetNumberStreams(inIsInput);
  for (UInt32 i = 0; i < inNumberStreams; ++i) {
    outStreamUsage[i] = i < theNumberStreams && IsStreamEnabled(inIsInput, i);
  }
}

void HP_IOProc::SetStreamUsage(bool inIsInput, UInt32 inNumberStreams, const bool* inStreamUsage) {
  StreamUsage& theUsage = inIsInput ? mInputStreamUsage : mOutputStreamUsage;
  const UInt32 theCount = std::min(inNumberStreams, mDevice->GetNumberStreams(inIsInput));
  theUsage.assign(inStreamUsage, inStreamUsage + theCount);
}

bool HP_IOProc::BufferListHasData(bool inIsInput) const {
  const AudioBufferList* theList = GetAudioBufferList(inIsInput);
  return theList != nullptr && CAAudioBufferList::HasData(theList);
}

void HP_IOProc::Call(const AudioTimeStamp& inCurrentTime, const AudioTimeStamp& inInputTime,
                     const AudioBufferList* inInputData, const AudioTimeStamp& inOutputTime,
                     AudioBufferList* outOutputData) {
  const AudioBufferList* theInputData = inInputData;
  if (theInputData == nullptr && mInputBufferList != nullptr) {
    RefreshBufferList(true);
    theInputData = mInputBufferList;
  }
  if (theInputData == nullptr) theInputData = CAAudioBufferList::GetEmptyBufferList();

  AudioBufferList* theOutputData = outOutputData;
  if (theOutputData == nullptr && mOutputBufferList != nullptr) {
    RefreshBufferList(false);
    theOutputData = mOutputBufferList;
  }
  // It has no buffer that a client could write to.
  if (theOutputData == nullptr) {
    theOutputData = const_cast<AudioBufferList*>(CAAudioBufferList::GetEmptyBufferList());
  }

  if (!IsCallable(inInputTime, inOutputTime)) return;

  HP_IOCycleTelemetry& theTelemetry = *mDevice->GetIOCycleTelemetry();
  theTelemetry.IOCycleIOProcCallBegin(mDevice->GetIOCycleNumber(), mIOProc);
  if (mIOProc != nullptr) {
    mIOProc(mDevice->GetObjectID(), &inCurrentTime, theInputData, &inInputTime, theOutputData,
            &inOutputTime, mClientData);
  } else if (mIOBlock != nullptr) {
    if (mDispatchQueue != nullptr) {
      const AudioTimeStamp* theCurrentTime = &inCurrentTime;
      const AudioTimeStamp* theInputTime = &inInputTime;
      const AudioTimeStamp* theOutputTime = &inOutputTime;
      const AudioDeviceIOBlock theBlock = mIOBlock;
      dispatch_sync(mDispatchQueue, ^{
        theBlock(theCurrentTime, theInputData, theInputTime, theOutputData, theOutputTime);
      });
    } else {
      mIOBlock(&inCurrentTime, theInputData, &inInputTime, theOutputData, &inOutputTime);
    }
  }
  theTelemetry.IOCycleIOProcCallEnd(mDevice->GetIOCycleNumber());
}
