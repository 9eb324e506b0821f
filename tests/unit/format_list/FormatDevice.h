#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "device/HP_Device.h"
#include "formats/HP_FormatList.h"
#include "formats/HP_Stream.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"
#include "support/CAMutex.h"
#include "unit/stream_description/Values.h"

namespace tembra {

// A stream whose hardware does as the test says.
class FormatStream : public HP_Stream {
 public:
  using HP_Stream::HP_Stream;

  bool TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription& inFormat) override {
    mTold.push_back(inFormat);
    if (mOnTell) mOnTell();
    return mHardwareAgrees;
  }

  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32 inDataSize, const void* inData,
                       const AudioTimeStamp* inWhen) override {
    mWritten = inAddress;
    HP_Stream::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                               inWhen);
  }

  HP_FormatList& Formats() const { return *GetFormatList(); }

  // Adds a physical format with a range of rates.
  void Add(const CAStreamBasicDescription& inFormat, double inMinimum, double inMaximum) {
    AudioStreamRangedDescription theFormat = {};
    theFormat.mFormat = inFormat;
    theFormat.mSampleRateRange = {inMinimum, inMaximum};
    Formats().AddPhysicalFormat(theFormat);
  }

  CAStreamBasicDescription Physical() const {
    CAStreamBasicDescription theFormat;
    GetCurrentPhysicalFormat(theFormat);
    return theFormat;
  }

  CAStreamBasicDescription Virtual() const {
    CAStreamBasicDescription theFormat;
    GetCurrentVirtualFormat(theFormat);
    return theFormat;
  }

  CAPropertyAddress mWritten;  // the address of the last write
  std::vector<CAStreamBasicDescription> mTold;
  std::function<void()> mOnTell;
  bool mHardwareAgrees = true;
};

// A device with nothing but streams.
class FormatDevice : public HP_Device {
 public:
  FormatDevice() : HP_Device(0, kAudioDeviceClassID, nullptr, 0, false) { Initialize(); }

  ~FormatDevice() override {
    for (const auto& theStream : mStreams) {
      RemoveStream(theStream.get());
      theStream->Teardown();
    }
    Teardown();
  }

  // The streams' channels follow each other in the order in which they are added.
  FormatStream& AddFormatStream(bool inIsInput, UInt32 inStartingChannel = 1,
                                UInt32 inChannelOffset = 0) {
    mStreams.push_back(std::make_unique<FormatStream>(0, nullptr, this, inIsInput,
                                                      inStartingChannel, inChannelOffset));
    FormatStream& theStream = *mStreams.back();
    theStream.Initialize();
    AddStream(&theStream);
    return theStream;
  }

  // A stream with one format, which is the current one.
  FormatStream& AddStreamWithFormat(bool inIsInput, const CAStreamBasicDescription& inFormat,
                                    double inMinimum, double inMaximum,
                                    UInt32 inStartingChannel = 1) {
    FormatStream& theStream = AddFormatStream(inIsInput, inStartingChannel);
    theStream.Add(inFormat, inMinimum, inMaximum);
    theStream.Formats().SetCurrentPhysicalFormat(inFormat, false);
    return theStream;
  }

  FormatStream& Stream(size_t inIndex) { return *mStreams[inIndex]; }

 private:
  std::deque<std::unique_ptr<FormatStream>> mStreams;
};

// The status that an operation throws, 0 if it throws none.
template <class Operation>
OSStatus StatusOf(Operation inOperation) {
  try {
    inOperation();
  } catch (const CAException& theException) {
    return theException.GetError();
  }
  return 0;
}

// Reads one value of a property of an object or a helper of one.
template <class Value, class Owner>
Value ReadValue(const Owner& inOwner, const CAPropertyAddress& inAddress,
                const Value& inQuestion = Value()) {
  Value theValue = inQuestion;
  UInt32 theSize = sizeof(Value);
  inOwner.GetPropertyData(inAddress, 0, nullptr, theSize, &theValue);
  EXPECT_EQ(theSize, sizeof(Value));
  return theValue;
}

// Reads a list with room for inRoom bytes, and checks that nothing beyond them is touched.
template <class Value, class Owner>
std::vector<Value> ReadList(const Owner& inOwner, const CAPropertyAddress& inAddress,
                            UInt32 inRoom) {
  std::vector<unsigned char> theBytes(inRoom + 64, 0xA5);
  UInt32 theSize = inRoom;
  inOwner.GetPropertyData(inAddress, 0, nullptr, theSize, theBytes.data());
  EXPECT_LE(theSize, inRoom);
  EXPECT_EQ(theSize % sizeof(Value), 0u);
  for (size_t theIndex = theSize; theIndex < theBytes.size(); ++theIndex) {
    EXPECT_EQ(theBytes[theIndex], 0xA5) << theIndex;
  }
  std::vector<Value> theList(theSize / sizeof(Value));
  if (!theList.empty()) std::memcpy(theList.data(), theBytes.data(), theSize);
  return theList;
}

template <class Value, class Owner>
void WriteValue(Owner& inOwner, const CAPropertyAddress& inAddress, const Value& inValue) {
  inOwner.SetPropertyData(inAddress, 0, nullptr, sizeof(Value), &inValue, nullptr);
}

using RatePairs = std::vector<std::pair<double, double>>;

// Ranges in a form that shows itself in a test's message.
template <class Range>
RatePairs Pairs(const std::vector<Range>& inList) {
  RatePairs thePairs;
  for (const Range& theRange : inList) thePairs.emplace_back(theRange.mMinimum, theRange.mMaximum);
  return thePairs;
}

// Every field, without wildcards.
inline void ExpectSame(const CAStreamBasicDescription& inFormat,
                       const CAStreamBasicDescription& inExpected) {
  char theText[2][256];
  EXPECT_TRUE(inFormat.IsEqual(inExpected, false))
      << inFormat.AsString(theText[0], sizeof(theText[0]), false) << "\nexpected\n"
      << inExpected.AsString(theText[1], sizeof(theText[1]), false);
}

inline CAStreamBasicDescription Int16Format(double inRate, UInt32 inChannels = 2,
                                            UInt32 inFlags = 0) {
  return LinearPCM(16, kSigned | kPacked | inFlags, inChannels, inRate);
}

inline CAStreamBasicDescription Float32Format(double inRate, UInt32 inChannels = 2) {
  return LinearPCM(32, kFloat | kPacked, inChannels, inRate);
}

inline CAStreamBasicDescription AC3(double inRate) {
  return CAStreamBasicDescription(inRate, 'cac3', 6144, 1536, 4, 2, 16, 0x4E);
}

}  // namespace tembra
