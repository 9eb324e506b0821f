// The buffers of I/O procedures: the records' own, and the general operations that the list uses
// for its shared ones.

#include <mach/mach.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "device/HP_Device.h"
#include "device/HP_IOProc.h"
#include "formats/HP_Stream.h"
#include "support/CAAudioBufferList.h"
#include "support/HP_SystemInfo.h"

namespace {

using IOBuffer = HP_IOProc::IOBuffer;

constexpr UInt32 kHeaderByteSize = sizeof(IOBuffer);

IOBuffer* AllocateIOBuffer(UInt32 inDataByteSize, UInt32 inPaddingByteSize, UInt32 inFrameSize) {
  const vm_size_t theByteSize =
      static_cast<vm_size_t>(inDataByteSize) + kHeaderByteSize + inPaddingByteSize;
  vm_address_t theAddress = 0;
  if (vm_allocate(mach_task_self(), &theAddress, theByteSize, VM_FLAGS_ANYWHERE) != KERN_SUCCESS ||
      theAddress == 0) {
    return nullptr;
  }
  IOBuffer* theBuffer = std::bit_cast<IOBuffer*>(theAddress);
  std::memset(static_cast<void*>(theBuffer), 0, theByteSize);
  theBuffer->mActualDataByteSize = inDataByteSize;
  theBuffer->mActualDataFrameSize = inFrameSize;
  theBuffer->mCapacityByteSize = inDataByteSize + inPaddingByteSize;
  theBuffer->mNominalDataByteSize = inDataByteSize;
  return theBuffer;
}

void DeallocateIOBuffer(IOBuffer* inBuffer) {
  vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(inBuffer),
                static_cast<vm_size_t>(inBuffer->mCapacityByteSize) + kHeaderByteSize);
}

// What a stream is told of a buffer, the same when it comes and when it goes.
struct Registration {
  UInt32 mByteSize;
  void* mStart;
};

Registration GetRegistration(IOBuffer* inBuffer, bool inIncludesHeader) {
  if (inIncludesHeader) return {inBuffer->mCapacityByteSize + kHeaderByteSize, inBuffer};
  return {inBuffer->mCapacityByteSize, inBuffer->GetData()};
}

void SetEntry(AudioBuffer& outEntry, const HP_Stream& inStream, UInt32 inByteSize, void* inData) {
  outEntry.mNumberChannels = inStream.GetCurrentNumberChannels();
  outEntry.mDataByteSize = inByteSize;
  outEntry.mData = inData;
}

}  // namespace

void HP_IOProc::AllocateBufferLists() {
  AllocateBufferList(true);
  AllocateBufferList(false);
}

// For a stopped record this frees, for a started one it rebuilds: allocation looks at the state.
void HP_IOProc::DeallocateBufferLists() {
  ReallocateBufferLists();
}

void HP_IOProc::ReallocateBufferLists() {
  FreeBufferList(true);
  AllocateBufferList(true);
  FreeBufferList(false);
  AllocateBufferList(false);
}

void HP_IOProc::AllocateBufferList(bool inIsInput) {
  if (!mIsEnabled) return;
  (inIsInput ? mInputBufferList : mOutputBufferList) = AllocateBufferList(
      *mDevice, inIsInput, GetStreamUsage(inIsInput), mIOBufferSetID,
      inIsInput ? mInputIOBuffers : mOutputIOBuffers, mIOBufferSetIncludesHeader, mAllocateBuffers);
}

void HP_IOProc::FreeBufferList(bool inIsInput) {
  AudioBufferList*& theList = inIsInput ? mInputBufferList : mOutputBufferList;
  FreeBufferList(*mDevice, inIsInput, mIOBufferSetID, theList,
                 inIsInput ? mInputIOBuffers : mOutputIOBuffers, mIOBufferSetIncludesHeader);
  theList = nullptr;
}

void HP_IOProc::RefreshBufferList(bool inIsInput) {
  AudioBufferList* theList = GetAudioBufferList(inIsInput);
  if (theList != nullptr) {
    RefreshBufferList(*mDevice, inIsInput, theList, GetIOBufferList(inIsInput));
  }
}

void HP_IOProc::GetIOBufferActualDataSize(bool inIsInput, UInt32 inStreamIndex, UInt32& outByteSize,
                                          UInt32& outFrameSize) const {
  GetIOBufferActualDataSize(*mDevice, inIsInput, GetIOBufferList(inIsInput), inStreamIndex,
                            outByteSize, outFrameSize);
}

void HP_IOProc::SetIOBufferActualDataSize(bool inIsInput, UInt32 inStreamIndex, UInt32 inByteSize,
                                          UInt32 inFrameSize) {
  SetIOBufferActualDataSize(GetIOBufferList(inIsInput), GetAudioBufferList(inIsInput),
                            inStreamIndex, inByteSize, inFrameSize);
}

AudioBufferList* HP_IOProc::AllocateBufferList(const HP_Device& inDevice, bool inIsInput,
                                               const StreamUsage& inStreamUsage,
                                               UInt32 inIOBufferSetID, IOBufferList& ioBuffers,
                                               bool inIOBufferSetIncludesHeader,
                                               bool inAllocateBuffers) {
  ioBuffers.clear();
  const UInt32 theFrameSize = inDevice.GetIOBufferFrameSize();
  const UInt32 thePadding = inDevice.GetIOBufferFrameSizePadding();
  const UInt32 theNumberStreams = inDevice.GetNumberStreams(inIsInput);
  ioBuffers.reserve(theNumberStreams);
  AudioBufferList* theList = CAAudioBufferList::Create(theNumberStreams);
  if (theList == nullptr) return nullptr;

  for (UInt32 i = 0; i < theNumberStreams; ++i) {
    HP_Stream* theStream = inDevice.GetStreamByIndex(inIsInput, i);
    const UInt32 theByteSize = theStream->CalculateIOBufferByteSize(theFrameSize);
    const UInt32 thePaddingByteSize = theStream->CalculateIOBufferByteSize(thePadding);
    const bool theStreamIsWanted = i >= inStreamUsage.size() || inStreamUsage[i];
    if (!theStreamIsWanted || !inAllocateBuffers) {
      ioBuffers.push_back(nullptr);
      SetEntry(theList->mBuffers[i], *theStream, theByteSize, nullptr);
      continue;
    }
    IOBuffer* theBuffer = AllocateIOBuffer(theByteSize, thePaddingByteSize, theFrameSize);
    // Without memory the entry stays empty, and so do the later streams' buffers come one place
    // too early: they are found by their number in ioBuffers.
    if (theBuffer == nullptr) continue;
    const Registration theRegistration = GetRegistration(theBuffer, inIOBufferSetIncludesHeader);
    theStream->RegisterIOBuffer(inIOBufferSetID, theRegistration.mByteSize, theRegistration.mStart);
    ioBuffers.push_back(theBuffer);
    SetEntry(theList->mBuffers[i], *theStream, theBuffer->mActualDataByteSize,
             theBuffer->GetData());
  }
  return theList;
}

void HP_IOProc::FreeBufferList(const HP_Device& inDevice, bool inIsInput, UInt32 inIOBufferSetID,
                               AudioBufferList* inBufferList, IOBufferList& ioBuffers,
                               bool inIOBufferSetIncludesHeader) {
  if (inBufferList != nullptr) CAAudioBufferList::Destroy(inBufferList);
  for (UInt32 i = 0; i < ioBuffers.size(); ++i) {
    IOBuffer* theBuffer = ioBuffers[i];
    if (theBuffer == nullptr) continue;
    HP_Stream* theStream = inDevice.GetStreamByIndex(inIsInput, i);
    if (theStream != nullptr) {
      const Registration theRegistration = GetRegistration(theBuffer, inIOBufferSetIncludesHeader);
      theStream->UnregisterIOBuffer(inIOBufferSetID, theRegistration.mByteSize,
                                    theRegistration.mStart);
    }
    DeallocateIOBuffer(theBuffer);
  }
  ioBuffers.clear();
}

void HP_IOProc::RefreshBufferList(const HP_Device& inDevice, bool inIsInput,
                                  AudioBufferList* ioBufferList, const IOBufferList& inBuffers) {
  const UInt32 theNumberStreams =
      std::min(inDevice.GetNumberStreams(inIsInput), ioBufferList->mNumberBuffers);
  const bool theDataIsCleared = !inIsInput || !HP_SystemInfo::IsCurrentProcessDoingIO();
  for (UInt32 i = 0; i < theNumberStreams; ++i) {
    const HP_Stream* theStream = inDevice.GetStreamByIndex(inIsInput, i);
    IOBuffer* theBuffer = i < inBuffers.size() ? inBuffers[i] : nullptr;
    if (theBuffer == nullptr) {
      SetEntry(ioBufferList->mBuffers[i], *theStream,
               theStream->CalculateIOBufferByteSize(inDevice.GetIOBufferFrameSize()), nullptr);
      continue;
    }
    if (theDataIsCleared) std::memset(theBuffer->GetData(), 0, theBuffer->mCapacityByteSize);
    SetEntry(ioBufferList->mBuffers[i], *theStream, theBuffer->mNominalDataByteSize,
             theBuffer->GetData());
  }
}

void HP_IOProc::GetIOBufferActualDataSize(const HP_Device& inDevice, bool inIsInput,
                                          const IOBufferList& inBuffers, UInt32 inStreamIndex,
                                          UInt32& outByteSize, UInt32& outFrameSize) {
  outByteSize = 0;
  outFrameSize = 0;
  const HP_Stream* theStream = inDevice.GetStreamByIndex(inIsInput, inStreamIndex);
  if (theStream == nullptr) return;
  const IOBuffer* theBuffer = inStreamIndex < inBuffers.size() ? inBuffers[inStreamIndex] : nullptr;
  if (theBuffer != nullptr) {
    outByteSize = theBuffer->mActualDataByteSize;
    outFrameSize = theBuffer->mActualDataFrameSize;
  } else {
    outFrameSize = inDevice.GetIOBufferFrameSize();
    outByteSize = theStream->CalculateIOBufferByteSize(outFrameSize);
  }
}

void HP_IOProc::SetIOBufferActualDataSize(const IOBufferList& inBuffers,
                                          AudioBufferList* ioBufferList, UInt32 inStreamIndex,
                                          UInt32 inByteSize, UInt32 inFrameSize) {
  if (inStreamIndex < inBuffers.size() && inBuffers[inStreamIndex] != nullptr) {
    inBuffers[inStreamIndex]->mActualDataByteSize = inByteSize;
    inBuffers[inStreamIndex]->mActualDataFrameSize = inFrameSize;
  }
  if (ioBufferList != nullptr && inStreamIndex < ioBufferList->mNumberBuffers) {
    ioBufferList->mBuffers[inStreamIndex].mDataByteSize = inByteSize;
  }
}
