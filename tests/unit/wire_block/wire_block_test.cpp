#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "client/Snd.h"

namespace {

using Bytes = std::vector<UInt8>;

AudioTimeStamp Stamp() {
  AudioTimeStamp time = {};
  time.mSampleTime = 12345.0;
  time.mHostTime = 9876543210;
  time.mRateScalar = 1.0;
  time.mWordClockTime = 4242;
  time.mSMPTETime.mSubframes = 1;
  time.mSMPTETime.mSubframeDivisor = 2;
  time.mSMPTETime.mCounter = 3;
  time.mSMPTETime.mType = 4;
  time.mSMPTETime.mFlags = 5;
  time.mSMPTETime.mHours = 6;
  time.mSMPTETime.mMinutes = 7;
  time.mSMPTETime.mSeconds = 8;
  time.mSMPTETime.mFrames = 9;
  time.mFlags = 0x1F;
  return time;
}

AudioStreamBasicDescription Float(UInt32 inChannels) {
  AudioStreamBasicDescription format = {};
  FillOutASBDForLPCM(format, 44100.0, inChannels, 32, 32, true, false, false);
  return format;
}

AudioStreamBasicDescription NonInterleaved(UInt32 inSampleSize) {
  AudioStreamBasicDescription format = {};
  FillOutASBDForLPCM(format, 44100.0, 2, 32, 32, true, false, true);
  format.mBytesPerFrame = inSampleSize;
  format.mBytesPerPacket = inSampleSize;
  return format;
}

// A list in storage of its own.
class List {
 public:
  explicit List(UInt32 inBuffers)
      : mStorage(sizeof(AudioBufferList) + inBuffers * sizeof(AudioBuffer)) {
    Get().mNumberBuffers = inBuffers;
  }
  AudioBufferList& Get() { return *reinterpret_cast<AudioBufferList*>(mStorage.data()); }
  List& Set(UInt32 inIndex, UInt32 inChannels, UInt32 inSize, void* inData) {
    Get().mBuffers[inIndex] = {inChannels, inSize, inData};
    return *this;
  }

 private:
  std::vector<std::byte> mStorage;
};

struct Freer {
  void operator()(void* inBlock) const { SndFreeABLSerializedBuffer(inBlock); }
};

// The block as the allocating writer makes it; checks it against the writer into given storage.
Bytes Write(const AudioStreamBasicDescription& inFormat, const AudioBufferList& inList,
            bool inDeinterleave) {
  int size = -1;
  std::unique_ptr<void, Freer> block(
      SndAllocateABLSerilizedBuffer(Stamp(), inFormat, inList, &size, inDeinterleave));
  if (block == nullptr) return {};
  EXPECT_GT(size, 0);
  const UInt8* bytes = static_cast<const UInt8*>(block.get());
  Bytes result(bytes, bytes + size);

  EXPECT_EQ(SndGetABLSerializedSize(inList, inDeinterleave), result.size());
  Bytes given(result.size() + 8, 0xA5);
  EXPECT_EQ(SndSerializeABL(Stamp(), inFormat, inList, inDeinterleave, given.data(), result.size()),
            result.size());
  EXPECT_TRUE(std::equal(result.begin(), result.end(), given.begin()));
  EXPECT_THAT(Bytes(given.end() - 8, given.end()), testing::Each(0xA5));
  return result;
}

template <typename T>
T At(const Bytes& inBlock, size_t inOffset) {
  T value;
  EXPECT_LE(inOffset + sizeof(T), inBlock.size());
  std::memcpy(&value, inBlock.data() + inOffset, sizeof(T));
  return value;
}

template <typename T>
void Append(Bytes& ioBytes, const T& inValue) {
  const UInt8* bytes = reinterpret_cast<const UInt8*>(&inValue);
  ioBytes.insert(ioBytes.end(), bytes, bytes + sizeof(inValue));
}

Bytes Header(UInt32 inCount) {
  Bytes block;
  Append(block, Stamp());
  Append(block, inCount);
  return block;
}

void AppendRecord(Bytes& ioBlock, UInt32 inChannels, const Bytes& inData) {
  Append(ioBlock, inChannels);
  Append(ioBlock, static_cast<UInt32>(inData.size()));
  ioBlock.insert(ioBlock.end(), inData.begin(), inData.end());
}

Bytes Ramp(size_t inSize, UInt8 inStart = 1) {
  Bytes bytes(inSize);
  for (size_t i = 0; i < inSize; ++i) bytes[i] = static_cast<UInt8>(inStart + i);
  return bytes;
}

Bytes ReadFile(const std::string& inPath) {
  std::ifstream file(inPath, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

AudioBufferList* Read(Bytes& ioBlock, AudioTimeStamp* outTime, bool inCopy) {
  return SndAllocateAudioBufferList(ioBlock.data(), static_cast<int>(ioBlock.size()), outTime,
                                    inCopy);
}

}  // namespace

TEST(WireBlockWriter, TimeStampStandsFirstAsItIs) {
  Bytes samples = Ramp(8);
  Bytes block = Write(Float(2), List(1).Set(0, 1, 8, samples.data()).Get(), true);
  ASSERT_EQ(block.size(), 68u + 8 + 8);
  EXPECT_EQ(At<double>(block, 0), 12345.0);
  EXPECT_EQ(At<UInt64>(block, 8), 9876543210u);
  EXPECT_EQ(At<double>(block, 16), 1.0);
  EXPECT_EQ(At<UInt64>(block, 24), 4242u);
  EXPECT_EQ(At<SInt16>(block, 32), 1);
  EXPECT_EQ(At<SInt16>(block, 54), 9);
  EXPECT_EQ(At<UInt32>(block, 56), 0x1Fu);
  EXPECT_EQ(At<UInt32>(block, 60), 0u);
  EXPECT_EQ(At<UInt32>(block, 64), 1u);
}

TEST(WireBlockWriter, OneMonoBufferGoesOutAsItStandsWhateverTheFlag) {
  Bytes samples = Ramp(64);
  for (bool deinterleave : {false, true}) {
    Bytes wanted = Header(1);
    AppendRecord(wanted, 1, samples);
    // The format plays no part then.
    for (const AudioStreamBasicDescription& format : {Float(1), Float(2), NonInterleaved(0)}) {
      EXPECT_EQ(Write(format, List(1).Set(0, 1, 64, samples.data()).Get(), deinterleave), wanted);
    }
  }
}

TEST(WireBlockWriter, TwoBuffersStayTwoRecordsEvenWithDeinterleave) {
  Bytes first = Ramp(16);
  Bytes second = Ramp(24, 100);
  Bytes wanted = Header(2);
  AppendRecord(wanted, 2, first);
  AppendRecord(wanted, 3, second);
  for (bool deinterleave : {false, true}) {
    EXPECT_EQ(
        Write(Float(2), List(2).Set(0, 2, 16, first.data()).Set(1, 3, 24, second.data()).Get(),
              deinterleave),
        wanted);
  }
}

TEST(WireBlockWriter, InterleavedStereoWithoutDeinterleaveStaysOneRecord) {
  Bytes samples = Ramp(16);
  Bytes wanted = Header(1);
  AppendRecord(wanted, 2, samples);
  EXPECT_EQ(Write(Float(2), List(1).Set(0, 2, 16, samples.data()).Get(), false), wanted);
}

TEST(WireBlockWriter, StereoIsSplitIntoTwoRecords) {
  std::vector<float> samples(1024);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<float>(i) + 0.5f;
  Bytes block = Write(Float(2), List(1).Set(0, 2, 4096, samples.data()).Get(), true);
  ASSERT_EQ(block.size(), 68u + 2 * (8 + 2048));
  EXPECT_EQ(At<UInt32>(block, 64), 2u);
  for (size_t channel = 0; channel < 2; ++channel) {
    const size_t record = 68 + channel * (8 + 2048);
    EXPECT_EQ(At<UInt32>(block, record), 1u);
    EXPECT_EQ(At<UInt32>(block, record + 4), 2048u);
    for (size_t frame = 0; frame < 512; ++frame) {
      ASSERT_EQ(At<float>(block, record + 8 + 4 * frame), samples[2 * frame + channel]);
    }
  }
}

TEST(WireBlockWriter, FormatAlreadyNonInterleavedIsNotDividedAgain) {
  Bytes samples = Ramp(16);
  Bytes wanted = Header(2);
  AppendRecord(wanted, 1, {1, 2, 3, 4, 9, 10, 11, 12});
  AppendRecord(wanted, 1, {5, 6, 7, 8, 13, 14, 15, 16});
  EXPECT_EQ(Write(NonInterleaved(4), List(1).Set(0, 2, 16, samples.data()).Get(), true), wanted);
}

TEST(WireBlockWriter, SamplesOfTwoBytesAreSplit) {
  AudioStreamBasicDescription format = {};
  FillOutASBDForLPCM(format, 44100.0, 3, 16, 16, false, false, false);
  Bytes samples = Ramp(12);
  Bytes wanted = Header(3);
  AppendRecord(wanted, 1, {1, 2, 7, 8});
  AppendRecord(wanted, 1, {3, 4, 9, 10});
  AppendRecord(wanted, 1, {5, 6, 11, 12});
  EXPECT_EQ(Write(format, List(1).Set(0, 3, 12, samples.data()).Get(), true), wanted);
}

TEST(WireBlockWriter, NullSourceOfManyChannelsGivesZeros) {
  Bytes wanted = Header(2);
  AppendRecord(wanted, 1, Bytes(16, 0));
  AppendRecord(wanted, 1, Bytes(16, 0));
  EXPECT_EQ(Write(Float(2), List(1).Set(0, 2, 32, nullptr).Get(), true), wanted);
}

TEST(WireBlockWriter, SampleSizeOfZeroLeavesTheSamplesZero) {
  Bytes samples = Ramp(16);
  Bytes wanted = Header(2);
  AppendRecord(wanted, 1, Bytes(8, 0));
  AppendRecord(wanted, 1, Bytes(8, 0));
  EXPECT_EQ(Write(NonInterleaved(0), List(1).Set(0, 2, 16, samples.data()).Get(), true), wanted);
}

TEST(WireBlockWriter, FormatOfNoChannelsDividesByNothing) {
  Bytes samples = Ramp(16);
  AudioStreamBasicDescription format = Float(2);
  format.mChannelsPerFrame = 0;
  Bytes wanted = Header(2);
  AppendRecord(wanted, 1, Bytes(8, 0));
  AppendRecord(wanted, 1, Bytes(8, 0));
  EXPECT_EQ(Write(format, List(1).Set(0, 2, 16, samples.data()).Get(), true), wanted);
}

// Three samples for two channels: the first channel's walk takes two samples where its record has
// room for one and a half. The next record is written over what ran past, the second channel stops
// at the source's end.
TEST(WireBlockWriter, WalkMayRunOneSamplePastARecordThatIsNoWholeNumberOfSamples) {
  auto samples = std::make_unique<UInt8[]>(12);
  for (UInt8 i = 0; i < 12; ++i) samples[i] = static_cast<UInt8>(i + 1);
  Bytes wanted = Header(2);
  AppendRecord(wanted, 1, {1, 2, 3, 4, 9, 10});
  AppendRecord(wanted, 1, {5, 6, 7, 8, 0, 0});
  EXPECT_EQ(Write(Float(2), List(1).Set(0, 2, 12, samples.get()).Get(), true), wanted);
}

TEST(WireBlockWriter, WalkPastTheLastRecordStaysInsideTheBlock) {
  // A stride of two samples in a buffer of four whole ones plus two odd bytes: the second channel's
  // second sample ends one byte past the block.
  auto samples = std::make_unique<UInt8[]>(15);
  for (UInt8 i = 0; i < 15; ++i) samples[i] = static_cast<UInt8>(i + 1);
  Bytes wanted = Header(2);
  AppendRecord(wanted, 1, {1, 2, 3, 4, 9, 10, 11});
  AppendRecord(wanted, 1, {5, 6, 7, 8, 13, 14, 15});
  EXPECT_EQ(Write(Float(2), List(1).Set(0, 2, 15, samples.get()).Get(), true), wanted);
}

// The stop is "more than the size", so a sample size larger than the format's true one takes one
// sample more than fits before it stops.
TEST(WireBlockWriter, WrittenBytesMustExceedTheSizeToStop) {
  // Sample size 2 where two channels of four bytes lie: stride 4, four steps for channel 0 through
  // 16 bytes, all 8 bytes of the record.
  Bytes samples = Ramp(16);
  Bytes wanted = Header(2);
  AppendRecord(wanted, 1, {1, 2, 5, 6, 9, 10, 13, 14});
  AppendRecord(wanted, 1, {3, 4, 7, 8, 11, 12, 15, 16});
  EXPECT_EQ(Write(NonInterleaved(2), List(1).Set(0, 2, 16, samples.data()).Get(), true), wanted);
}

TEST(WireBlockWriter, SampleLargerThanTheRecordIsCutAtTheBlocksEnd) {
  // Sample size 8, records of 4 bytes: channel 0 writes its sample over the next record's header,
  // which is then written; channel 1 starts at the source's end and writes nothing, so its record
  // keeps what ran past.
  Bytes samples = Ramp(8);
  Bytes wanted = Header(2);
  AppendRecord(wanted, 1, {1, 2, 3, 4});
  AppendRecord(wanted, 1, {0, 0, 0, 0});
  EXPECT_EQ(Write(NonInterleaved(8), List(1).Set(0, 2, 8, samples.data()).Get(), true), wanted);

  Bytes long_samples = Ramp(16);
  wanted = Header(2);
  AppendRecord(wanted, 1, Ramp(8));
  AppendRecord(wanted, 1, Ramp(8, 9));
  EXPECT_EQ(Write(NonInterleaved(8), List(1).Set(0, 2, 16, long_samples.data()).Get(), true),
            wanted);
}

TEST(WireBlockWriter, WhatRanPastIntoTheNextRecordsSamplesStaysUnlessWrittenOver) {
  // Sample size 16, three channels, records of 6 bytes: channel 0's sample covers the next record's
  // header and two of its samples; channel 1 reads two bytes of the source and nothing is left.
  auto samples = std::make_unique<UInt8[]>(18);
  for (UInt8 i = 0; i < 18; ++i) samples[i] = static_cast<UInt8>(i + 1);
  Bytes wanted = Header(3);
  AppendRecord(wanted, 1, {1, 2, 3, 4, 5, 6});
  AppendRecord(wanted, 1, {17, 18, 0, 0, 0, 0});
  AppendRecord(wanted, 1, {0, 0, 0, 0, 0, 0});
  Bytes got = Write(NonInterleaved(16), List(1).Set(0, 3, 18, samples.get()).Get(), true);
  EXPECT_EQ(got, wanted);
}

TEST(WireBlockWriter, EmptyListIsAHeaderAlone) {
  EXPECT_EQ(Write(Float(2), List(0).Get(), true), Header(0));
}

TEST(WireBlockWriter, EmptyBufferIsARecordWithoutSamples) {
  Bytes wanted = Header(1);
  AppendRecord(wanted, 1, {});
  EXPECT_EQ(Write(Float(2), List(1).Set(0, 1, 0, nullptr).Get(), true), wanted);
  wanted = Header(2);
  AppendRecord(wanted, 1, {});
  AppendRecord(wanted, 1, {});
  EXPECT_EQ(Write(Float(2), List(1).Set(0, 2, 0, nullptr).Get(), true), wanted);
}

TEST(WireBlockWriter, BlockBeyondAnIntIsRefused) {
  int size = 77;
  UInt8 byte = 0;
  List owner(1);
  owner.Set(0, 1, INT_MAX - 70, &byte);
  EXPECT_EQ(SndAllocateABLSerilizedBuffer(Stamp(), Float(2), owner.Get(), &size, true), nullptr);
  EXPECT_EQ(size, 0);
  owner.Set(0, UINT_MAX, UINT_MAX, &byte);
  EXPECT_EQ(SndGetABLSerializedSize(owner.Get(), true), 0u);
  EXPECT_EQ(CFDataCreateWithABL(Stamp(), Float(2), owner.Get(), true), nullptr);
}

TEST(WireBlockWriter, SizeOutMayBeNull) {
  Bytes samples = Ramp(8);
  List list(1);
  list.Set(0, 1, 8, samples.data());
  void* block = SndAllocateABLSerilizedBuffer(Stamp(), Float(1), list.Get(), nullptr, false);
  ASSERT_NE(block, nullptr);
  SndFreeABLSerializedBuffer(block);
}

TEST(WireBlockWriter, TooLittleStorageIsNotWritten) {
  Bytes samples = Ramp(8);
  List list(1);
  list.Set(0, 1, 8, samples.data());
  Bytes storage(68 + 8 + 7, 0xA5);
  EXPECT_EQ(SndSerializeABL(Stamp(), Float(1), list.Get(), false, storage.data(), storage.size()),
            0u);
  EXPECT_THAT(storage, testing::Each(0xA5));
  EXPECT_EQ(SndSerializeABL(Stamp(), Float(1), list.Get(), false, nullptr, 1000), 0u);
}

TEST(WireBlockWriter, MatchesTheGoldenBlock) {
  Bytes golden = ReadFile(TEMBRA_SOURCE_DIR "/tests/golden/stereo_block.bin");
  ASSERT_EQ(golden.size(), 148u);
  std::vector<float> samples;
  for (int frame = 0; frame < 8; ++frame) {
    samples.push_back((static_cast<float>(frame) + 1) / 16);
    samples.push_back(-samples.back());
  }
  EXPECT_EQ(Write(Float(2), List(1).Set(0, 2, 64, samples.data()).Get(), true), golden);
}

TEST(WireBlockReader, ReadsTheGoldenBlock) {
  Bytes golden = ReadFile(TEMBRA_SOURCE_DIR "/tests/golden/stereo_block.bin");
  for (bool copy : {false, true}) {
    AudioTimeStamp time;
    AudioBufferList* list = Read(golden, &time, copy);
    ASSERT_NE(list, nullptr);
    AudioTimeStamp wanted = Stamp();
    EXPECT_EQ(std::memcmp(&time, &wanted, sizeof(time)), 0);
    ASSERT_EQ(list->mNumberBuffers, 2u);
    for (UInt32 channel = 0; channel < 2; ++channel) {
      const AudioBuffer& buffer = list->mBuffers[channel];
      EXPECT_EQ(buffer.mNumberChannels, 1u);
      ASSERT_EQ(buffer.mDataByteSize, 32u);
      EXPECT_EQ(std::memcmp(buffer.mData, golden.data() + 76 + 40 * channel, 32), 0);
      EXPECT_EQ(buffer.mData == golden.data() + 76 + 40 * channel, !copy);
    }
    SndFreeABLPointer(list, copy);
  }
}

TEST(WireBlockReader, NullBlockGivesNothing) {
  AudioTimeStamp time = Stamp();
  EXPECT_EQ(SndAllocateAudioBufferList(nullptr, 1000, &time, true), nullptr);
  EXPECT_EQ(time.mSampleTime, 12345.0);
}

TEST(WireBlockReader, BelowTwentyFourBytesTheTimeIsNotEvenZeroed) {
  Bytes block = Header(1);
  AudioTimeStamp time = Stamp();
  EXPECT_EQ(SndAllocateAudioBufferList(block.data(), 23, &time, true), nullptr);
  EXPECT_EQ(time.mSampleTime, 12345.0);
  EXPECT_EQ(SndAllocateAudioBufferList(block.data(), 24, &time, true), nullptr);
  EXPECT_EQ(time.mSampleTime, 0.0);
  EXPECT_EQ(time.mFlags, 0u);
}

TEST(WireBlockReader, HeaderNeedsMoreThanItsOwnSize) {
  Bytes block = Header(0);
  block.resize(200);
  for (int size : {64, 65, 68}) {
    AudioTimeStamp time = Stamp();
    EXPECT_EQ(SndAllocateAudioBufferList(block.data(), size, &time, true), nullptr) << size;
    EXPECT_EQ(time.mHostTime, 0u) << size;
  }
}

TEST(WireBlockReader, BlockOfExactlySixtyEightBytesIsRefused) {
  Bytes block = Header(1);
  ASSERT_EQ(block.size(), 68u);
  EXPECT_EQ(Read(block, nullptr, true), nullptr);
}

TEST(WireBlockReader, CountOfZeroIsRefusedAndLeavesTheTimeZero) {
  Bytes block = Header(0);
  AppendRecord(block, 1, Ramp(64));
  AudioTimeStamp time = Stamp();
  EXPECT_EQ(Read(block, &time, false), nullptr);
  EXPECT_EQ(time.mSampleTime, 0.0);
}

TEST(WireBlockReader, LastBufferOfEightBytesOrFewerIsRefused) {
  for (size_t size : {0u, 1u, 8u}) {
    for (bool copy : {false, true}) {
      Bytes block = Header(1);
      AppendRecord(block, 1, Ramp(size));
      AudioTimeStamp time = Stamp();
      EXPECT_EQ(Read(block, &time, copy), nullptr) << size;
      EXPECT_EQ(time.mSampleTime, 0.0);
    }
  }
  Bytes block = Header(1);
  AppendRecord(block, 1, Ramp(9));
  AudioBufferList* list = Read(block, nullptr, true);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->mBuffers[0].mDataByteSize, 9u);
  SndFreeABLPointer(list, true);
}

TEST(WireBlockReader, RefusalAtALaterRecordFreesWhatWasMade) {
  Bytes block = Header(3);
  AppendRecord(block, 1, Ramp(32));
  AppendRecord(block, 1, Ramp(4));
  EXPECT_EQ(Read(block, nullptr, true), nullptr);
  EXPECT_EQ(Read(block, nullptr, false), nullptr);
}

TEST(WireBlockReader, SmallBufferIsReadWhenAnotherFollows) {
  Bytes block = Header(2);
  AppendRecord(block, 5, Ramp(1));
  AppendRecord(block, 6, Ramp(12));
  AudioBufferList* list = Read(block, nullptr, true);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->mBuffers[0].mNumberChannels, 5u);
  EXPECT_EQ(list->mBuffers[0].mDataByteSize, 1u);
  EXPECT_EQ(*static_cast<UInt8*>(list->mBuffers[0].mData), 1);
  EXPECT_EQ(list->mBuffers[1].mNumberChannels, 6u);
  SndFreeABLPointer(list, true);
}

TEST(WireBlockReader, ClaimedSizeIsNotComparedWithTheBlock) {
  Bytes block = Header(1);
  Append(block, UInt32{1});
  Append(block, UInt32{1000});
  block.resize(block.size() + 9);
  AudioBufferList* list = Read(block, nullptr, false);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->mBuffers[0].mDataByteSize, 1000u);
  EXPECT_EQ(list->mBuffers[0].mData, block.data() + 76);
  SndFreeABLPointer(list, false);
}

TEST(WireBlockReader, NegativeSizePassesTheTests) {
  Bytes block = Header(1);
  AppendRecord(block, 1, Ramp(4));
  AudioTimeStamp time;
  AudioBufferList* list = SndAllocateAudioBufferList(block.data(), -1, &time, false);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(time.mSampleTime, 12345.0);
  EXPECT_EQ(list->mBuffers[0].mDataByteSize, 4u);
  SndFreeABLPointer(list, false);
}

TEST(WireBlockReader, WithoutCopyTheBlockIsUntouched) {
  Bytes block = Header(2);
  AppendRecord(block, 1, Ramp(32));
  AppendRecord(block, 1, Ramp(32, 50));
  const Bytes before = block;
  AudioBufferList* list = Read(block, nullptr, false);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->mBuffers[0].mData, block.data() + 76);
  SndFreeABLPointer(list, false);
  EXPECT_EQ(block, before);
}

TEST(WireBlockReader, FreeingNothingIsHarmless) {
  SndFreeABLPointer(nullptr, true);
  SndFreeABLSerializedBuffer(nullptr);
}

TEST(WireBlockData, WritesAndReadsThroughData) {
  std::vector<float> samples = {1, -1, 2, -2, 3, -3, 4, -4};
  List source(1);
  source.Set(0, 2, 32, samples.data());
  CFDataRef data = CFDataCreateWithABL(Stamp(), Float(2), source.Get(), true);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(CFDataGetLength(data), 68 + 2 * (8 + 16));
  for (bool copy : {false, true}) {
    AudioTimeStamp time;
    AudioBufferList* list = CFDataCopyABL(data, &time, copy);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(time.mHostTime, 9876543210u);
    ASSERT_EQ(list->mNumberBuffers, 2u);
    EXPECT_EQ(static_cast<float*>(list->mBuffers[1].mData)[3], -4.0f);
    EXPECT_EQ(list->mBuffers[0].mData == CFDataGetBytePtr(data) + 76, !copy);
    SndFreeABLPointer(list, copy);
  }
  CFRelease(data);
}

TEST(WireBlockData, NullAndOtherKindsGiveNothing) {
  AudioTimeStamp time = Stamp();
  EXPECT_EQ(CFDataCopyABL(nullptr, &time, true), nullptr);
  EXPECT_EQ(CFDataCopyABL(reinterpret_cast<CFDataRef>(CFSTR("text")), &time, true), nullptr);
  EXPECT_EQ(time.mSampleTime, 12345.0);
}

TEST(WireFormatTags, EachRowBothWays) {
  const std::pair<unsigned int, unsigned int> rows[] = {
      {1, 1819304813}, {2, 1768775988}, {6, 1634492791}, {7, 1970037111}, {85, 778924083}};
  for (const auto& [tag, format] : rows) {
    EXPECT_EQ(SndCAAudioFormatIDFromRDP(tag), format);
    EXPECT_EQ(SndCAAudioFormatIDToRDP(format), tag);
  }
}

TEST(WireFormatTags, AnythingElseIsZero) {
  EXPECT_EQ(SndCAAudioFormatIDToRDP(0), 0u);
  EXPECT_EQ(SndCAAudioFormatIDToRDP(1), 0u);
  EXPECT_EQ(SndCAAudioFormatIDFromRDP(0), 0u);
  EXPECT_EQ(SndCAAudioFormatIDFromRDP(3), 0u);
  EXPECT_EQ(SndCAAudioFormatIDFromRDP(1819304813), 0u);
}
