#include "support/CAAudioBufferList.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

// Client memory may lie anywhere, so words and samples are read by memcpy.
UInt32 ReadWord(const void* inData, size_t inIndex) {
  UInt32 theWord;
  std::memcpy(&theWord, static_cast<const UInt8*>(inData) + inIndex * sizeof(UInt32),
              sizeof(theWord));
  return theWord;
}

bool HasNonzeroWord(const void* inData, size_t inNumberWords) {
  // In strides that the compiler can vectorise.
  constexpr size_t kStride = 16;
  size_t theIndex = 0;
  for (; theIndex + kStride <= inNumberWords; theIndex += kStride) {
    UInt32 theSum = 0;
    for (size_t i = 0; i < kStride; ++i) theSum |= ReadWord(inData, theIndex + i);
    if (theSum != 0) return true;
  }
  for (; theIndex < inNumberWords; ++theIndex) {
    if (ReadWord(inData, theIndex) != 0) return true;
  }
  return false;
}

UInt32 GetNumberFrames(const AudioBuffer& inBuffer) {
  return inBuffer.mNumberChannels != 0
             ? inBuffer.mDataByteSize / sizeof(Float32) / inBuffer.mNumberChannels
             : 0;
}

}  // namespace

AudioBufferList* CAAudioBufferList::Create(UInt32 inNumberBuffers) {
  auto* theList = static_cast<AudioBufferList*>(std::calloc(1, CalculateByteSize(inNumberBuffers)));
  if (theList != nullptr) theList->mNumberBuffers = inNumberBuffers;
  return theList;
}

void CAAudioBufferList::Destroy(AudioBufferList* inBufferList) {
  std::free(inBufferList);
}

const AudioBufferList* CAAudioBufferList::GetEmptyBufferList() {
  static constexpr AudioBufferList sEmptyBufferList{};
  static_assert(sizeof(sEmptyBufferList) == 24);
  return &sEmptyBufferList;
}

bool CAAudioBufferList::HasData(const AudioBufferList* inBufferList) {
  for (UInt32 i = 0; i < inBufferList->mNumberBuffers; ++i) {
    const AudioBuffer& theBuffer = inBufferList->mBuffers[i];
    if (theBuffer.mData != nullptr &&
        HasNonzeroWord(theBuffer.mData, theBuffer.mDataByteSize / sizeof(UInt32))) {
      return true;
    }
  }
  return false;
}

void CAAudioBufferList::Clear(AudioBufferList* ioBufferList) {
  for (UInt32 i = 0; i < ioBufferList->mNumberBuffers; ++i) {
    AudioBuffer& theBuffer = ioBufferList->mBuffers[i];
    if (theBuffer.mData != nullptr) std::memset(theBuffer.mData, 0, theBuffer.mDataByteSize);
  }
}

void CAAudioBufferList::Copy(const AudioBufferList& inSource, UInt32 inStartingSourceChannel,
                             AudioBufferList& ioDestination, UInt32 inStartingDestinationChannel) {
  UInt32 theSourceBuffer;
  UInt32 theSourceChannel;
  UInt32 theDestinationBuffer;
  UInt32 theDestinationChannel;
  for (UInt32 i = 0; GetBufferForChannel(inSource, inStartingSourceChannel + i, theSourceBuffer,
                                         theSourceChannel) &&
                     GetBufferForChannel(ioDestination, inStartingDestinationChannel + i,
                                         theDestinationBuffer, theDestinationChannel);
       ++i) {
    CopyChannel(inSource.mBuffers[theSourceBuffer], theSourceChannel,
                ioDestination.mBuffers[theDestinationBuffer], theDestinationChannel);
  }
}

void CAAudioBufferList::CopyChannel(const AudioBuffer& inSource, UInt32 inSourceChannel,
                                    AudioBuffer& ioDestination, UInt32 inDestinationChannel) {
  if (inSource.mData == nullptr || ioDestination.mData == nullptr ||
      inSourceChannel >= inSource.mNumberChannels ||
      inDestinationChannel >= ioDestination.mNumberChannels) {
    return;
  }
  const UInt8* theSource =
      static_cast<const UInt8*>(inSource.mData) + size_t{inSourceChannel} * sizeof(Float32);
  UInt8* theDestination =
      static_cast<UInt8*>(ioDestination.mData) + size_t{inDestinationChannel} * sizeof(Float32);
  const size_t theSourceStride = size_t{inSource.mNumberChannels} * sizeof(Float32);
  const size_t theDestinationStride = size_t{ioDestination.mNumberChannels} * sizeof(Float32);
  const UInt32 theNumberFrames =
      std::min(GetNumberFrames(inSource), GetNumberFrames(ioDestination));
  for (UInt32 i = 0; i < theNumberFrames; ++i) {
    std::memcpy(theDestination + i * theDestinationStride, theSource + i * theSourceStride,
                sizeof(Float32));
  }
}

void CAAudioBufferList::Sum(const AudioBufferList& inSource, AudioBufferList& ioSum) {
  const UInt32 theNumberBuffers = std::min(inSource.mNumberBuffers, ioSum.mNumberBuffers);
  for (UInt32 i = 0; i < theNumberBuffers; ++i) {
    const AudioBuffer& theSource = inSource.mBuffers[i];
    AudioBuffer& theSum = ioSum.mBuffers[i];
    if (theSource.mData == nullptr || theSum.mData == nullptr) continue;
    const size_t theNumberSamples =
        std::min(theSource.mDataByteSize, theSum.mDataByteSize) / sizeof(Float32);
    const auto* theIn = static_cast<const UInt8*>(theSource.mData);
    auto* theOut = static_cast<UInt8*>(theSum.mData);
    for (size_t j = 0; j < theNumberSamples; ++j) {
      Float32 theLeft;
      Float32 theRight;
      std::memcpy(&theLeft, theIn + j * sizeof(Float32), sizeof(Float32));
      std::memcpy(&theRight, theOut + j * sizeof(Float32), sizeof(Float32));
      theRight += theLeft;
      std::memcpy(theOut + j * sizeof(Float32), &theRight, sizeof(Float32));
    }
  }
}

UInt32 CAAudioBufferList::GetTotalNumberChannels(const AudioBufferList& inBufferList) {
  UInt32 theNumberChannels = 0;
  for (UInt32 i = 0; i < inBufferList.mNumberBuffers; ++i) {
    theNumberChannels += inBufferList.mBuffers[i].mNumberChannels;
  }
  return theNumberChannels;
}

bool CAAudioBufferList::GetBufferForChannel(const AudioBufferList& inBufferList, UInt32 inChannel,
                                            UInt32& outBufferNumber, UInt32& outBufferChannel) {
  UInt32 theChannel = inChannel;
  for (UInt32 i = 0; i < inBufferList.mNumberBuffers; ++i) {
    const UInt32 theNumberChannels = inBufferList.mBuffers[i].mNumberChannels;
    if (theChannel < theNumberChannels) {
      outBufferNumber = i;
      outBufferChannel = theChannel;
      return true;
    }
    theChannel -= theNumberChannels;
  }
  return false;
}
