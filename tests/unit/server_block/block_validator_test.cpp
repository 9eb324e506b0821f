#include "server/BlockValidator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "client/Snd.h"
#include "server/ClientFormat.h"

namespace tembra {
namespace {

using Bytes = std::vector<UInt8>;

template <typename T>
void Append(Bytes& ioBytes, const T& inValue) {
  const UInt8* bytes = reinterpret_cast<const UInt8*>(&inValue);
  ioBytes.insert(ioBytes.end(), bytes, bytes + sizeof(inValue));
}

AudioTimeStamp Stamp() {
  AudioTimeStamp time = {};
  time.mSampleTime = 1024.0;
  time.mHostTime = 5000;
  time.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
  return time;
}

Bytes Header(UInt32 inCount, const AudioTimeStamp& inTime = Stamp()) {
  Bytes block;
  Append(block, inTime);
  Append(block, inCount);
  return block;
}

void AppendRecord(Bytes& ioBlock, UInt32 inChannels, UInt32 inSize) {
  Append(ioBlock, inChannels);
  Append(ioBlock, inSize);
  ioBlock.resize(ioBlock.size() + inSize, 0x11);
}

Bytes Stereo(UInt32 inFrames, const AudioTimeStamp& inTime = Stamp()) {
  Bytes block = Header(2, inTime);
  AppendRecord(block, 1, 4 * inFrames);
  AppendRecord(block, 1, 4 * inFrames);
  return block;
}

BlockVerdict Check(const Bytes& inBlock, UInt32 inChannels = 2) {
  BlockShape shape;
  return BlockValidator(inChannels).Check(inBlock.data(), inBlock.size(), shape);
}

}  // namespace

TEST(BlockValidator, GoodBlockTellsItsShape) {
  BlockShape shape;
  Bytes block = Stereo(512);
  ASSERT_EQ(BlockValidator(2).Check(block.data(), block.size(), shape), BlockVerdict::kOk);
  EXPECT_EQ(shape.mFrames, 512u);
  EXPECT_EQ(shape.mBuffers, 2u);
  EXPECT_EQ(shape.mSampleTime, 1024.0);
  EXPECT_EQ(shape.mHostTime, 5000u);
}

TEST(BlockValidator, InterleavedAndMixedRecordsAreGood) {
  Bytes block = Header(1);
  AppendRecord(block, 2, 64);
  EXPECT_EQ(Check(block), BlockVerdict::kOk);
  block = Header(2);
  AppendRecord(block, 2, 64);
  AppendRecord(block, 1, 32);
  EXPECT_EQ(Check(block, 3), BlockVerdict::kOk);
}

TEST(BlockValidator, WithoutHostTimeItIsZero) {
  AudioTimeStamp time = Stamp();
  time.mFlags = kAudioTimeStampSampleTimeValid;
  BlockShape shape;
  Bytes block = Stereo(16, time);
  ASSERT_EQ(BlockValidator(2).Check(block.data(), block.size(), shape), BlockVerdict::kOk);
  EXPECT_EQ(shape.mHostTime, 0u);
}

TEST(BlockValidator, ShortHeadersAreRefused) {
  for (size_t size = 0; size < 68; ++size) {
    EXPECT_EQ(Check(Bytes(size, 1)), BlockVerdict::kTooShort) << size;
  }
}

TEST(BlockValidator, NoBuffers) {
  EXPECT_EQ(Check(Header(0)), BlockVerdict::kNoBuffers);
}

TEST(BlockValidator, MoreBuffersThanChannels) {
  Bytes block = Header(3);
  for (int i = 0; i < 3; ++i) AppendRecord(block, 1, 64);
  EXPECT_EQ(Check(block), BlockVerdict::kTooManyBuffers);
  EXPECT_EQ(Check(Header(0xFFFFFFFF)), BlockVerdict::kTooManyBuffers);
}

TEST(BlockValidator, EveryPrefixIsRefused) {
  const Bytes whole = Stereo(16);
  for (size_t size = 0; size < whole.size(); ++size) {
    const BlockVerdict verdict = Check(Bytes(whole.begin(), whole.begin() + size));
    EXPECT_EQ(verdict, size < 68 ? BlockVerdict::kTooShort : BlockVerdict::kTruncated) << size;
  }
}

TEST(BlockValidator, RecordThatClaimsMoreThanThereIs) {
  Bytes block = Stereo(16);
  const UInt32 claim = 0xFFFFFFFC;
  std::memcpy(block.data() + 72, &claim, 4);
  EXPECT_EQ(Check(block), BlockVerdict::kTruncated);
}

TEST(BlockValidator, BytesBehindTheLastRecord) {
  Bytes block = Stereo(16);
  block.push_back(0);
  EXPECT_EQ(Check(block), BlockVerdict::kTrailingBytes);
}

TEST(BlockValidator, ChannelsMustBeThoseAnnounced) {
  EXPECT_EQ(Check(Stereo(16), 3), BlockVerdict::kWrongChannels);
  Bytes block = Header(1);
  AppendRecord(block, 0, 64);
  EXPECT_EQ(Check(block), BlockVerdict::kWrongChannels);
  block = Header(1);
  AppendRecord(block, 0x40000000, 64);
  EXPECT_EQ(Check(block), BlockVerdict::kWrongChannels);
}

TEST(BlockValidator, RecordsMustHoldWholeSamplesAndAsManyFrames) {
  Bytes block = Header(1);
  AppendRecord(block, 1, 63);
  EXPECT_EQ(Check(block, 1), BlockVerdict::kUnevenBuffers);
  block = Header(1);
  AppendRecord(block, 2, 68);
  EXPECT_EQ(Check(block, 2), BlockVerdict::kUnevenBuffers);
  block = Header(2);
  AppendRecord(block, 1, 64);
  AppendRecord(block, 1, 68);
  EXPECT_EQ(Check(block), BlockVerdict::kUnevenBuffers);
}

TEST(BlockValidator, TooManyFrames) {
  EXPECT_EQ(Check(Stereo(kMaxBlockFrames)), BlockVerdict::kOk);
  EXPECT_EQ(Check(Stereo(kMaxBlockFrames + 1)), BlockVerdict::kTooManyFrames);
}

TEST(BlockValidator, NoFrames) {
  EXPECT_EQ(Check(Stereo(0)), BlockVerdict::kTooSmall);
}

// What passes the check, the reader takes; what is too small for the reader is told apart.
TEST(BlockValidator, AgreesWithTheReaderOnSmallBlocks) {
  for (UInt32 frames = 0; frames <= 6; ++frames) {
    for (UInt32 channels : {1u, 2u}) {
      Bytes block = Header(channels);
      for (UInt32 i = 0; i < channels; ++i) AppendRecord(block, 1, 4 * frames);
      AudioBufferList* list =
          SndAllocateAudioBufferList(block.data(), static_cast<int>(block.size()), nullptr, false);
      EXPECT_EQ(Check(block, channels) == BlockVerdict::kOk, list != nullptr)
          << frames << " frames, " << channels << " channels";
      SndFreeABLPointer(list, false);
    }
  }
}

TEST(BlockValidator, TimeMustBeThereFiniteAndInRange) {
  AudioTimeStamp time = Stamp();
  time.mFlags = kAudioTimeStampHostTimeValid;
  EXPECT_EQ(Check(Stereo(16, time)), BlockVerdict::kBadTime);
  for (double bad : {std::nan(""), std::numeric_limits<double>::infinity(),
                     -std::numeric_limits<double>::infinity(), 9007199254740992.0, -1e300}) {
    time = Stamp();
    time.mSampleTime = bad;
    EXPECT_EQ(Check(Stereo(16, time)), BlockVerdict::kBadTime) << bad;
  }
  time = Stamp();
  time.mSampleTime = -5.0;
  EXPECT_EQ(Check(Stereo(16, time)), BlockVerdict::kOk);
}

TEST(BlockValidator, RandomBytesNeverReachTheReaderUnsafely) {
  const unsigned seed = std::random_device()();
  RecordProperty("seed", std::to_string(seed));
  std::mt19937 random(seed);
  size_t accepted = 0;
  for (int round = 0; round < 100000; ++round) {
    Bytes block = Stereo(1 + random() % 16);
    const unsigned flips = 1 + random() % 4;
    for (unsigned i = 0; i < flips; ++i) {
      block[random() % block.size()] = static_cast<UInt8>(random());
    }
    if (random() % 4 == 0) block.resize(random() % (block.size() + 40));
    // Exact storage, so that a sanitizer sees each byte too far.
    auto exact = std::make_unique<UInt8[]>(block.size());
    std::copy(block.begin(), block.end(), exact.get());
    BlockShape shape;
    if (BlockValidator(2).Check(exact.get(), block.size(), shape) != BlockVerdict::kOk) continue;
    ++accepted;
    AudioTimeStamp time;
    AudioBufferList* list =
        SndAllocateAudioBufferList(exact.get(), static_cast<int>(block.size()), &time, true);
    ASSERT_NE(list, nullptr) << "seed " << seed;
    std::vector<float> frames(size_t{shape.mFrames} * 2);
    InterleaveList(*list, 2, shape.mFrames, frames.data());
    SndFreeABLPointer(list, true);
  }
  EXPECT_GT(accepted, 0u);
}

TEST(BlockVerdictNames, AreAllDifferent) {
  std::set<std::string> names;
  for (size_t i = 0; i < kBlockVerdicts; ++i) {
    names.insert(GetBlockVerdictName(static_cast<BlockVerdict>(i)));
  }
  EXPECT_EQ(names.size(), kBlockVerdicts);
  EXPECT_EQ(names.count("unknown"), 0u);
}

TEST(InterleaveList, PutsChannelsInOrder) {
  float left[] = {1, 2};
  float right[] = {3, 4};
  std::vector<UInt8> storage(sizeof(AudioBufferList) + sizeof(AudioBuffer));
  auto* list = reinterpret_cast<AudioBufferList*>(storage.data());
  list->mNumberBuffers = 2;
  list->mBuffers[0] = {1, 8, left};
  list->mBuffers[1] = {1, 8, right};
  float out[4];
  InterleaveList(*list, 2, 2, out);
  EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{1, 3, 2, 4}));

  float pairs[] = {1, 2, 3, 4};
  list->mBuffers[0] = {2, 16, pairs};
  list->mBuffers[1] = {1, 8, right};
  float three[6];
  InterleaveList(*list, 3, 2, three);
  EXPECT_EQ(std::vector<float>(three, three + 6), (std::vector<float>{1, 2, 3, 3, 4, 4}));
}

class ClientFormat : public testing::Test {
 protected:
  ClientFormat() { FillOutASBDForLPCM(mFormat, 44100.0, 2, 32, 32, true, false, true); }
  AudioStreamBasicDescription mFormat = {};
};

TEST_F(ClientFormat, WhatTheDeviceAnnouncesIsGood) {
  EXPECT_EQ(mFormat.mFormatFlags, 41u);
  EXPECT_EQ(WhyFormatIsRefused(mFormat), "");
  FillOutASBDForLPCM(mFormat, 96000.0, 8, 32, 32, true, false, false);
  EXPECT_EQ(WhyFormatIsRefused(mFormat), "");
}

TEST_F(ClientFormat, OtherKindsOfSamplesAreRefused) {
  mFormat.mFormatID = 'alac';
  EXPECT_NE(WhyFormatIsRefused(mFormat), "");
  FillOutASBDForLPCM(mFormat, 44100.0, 2, 16, 16, false, false, true);
  EXPECT_NE(WhyFormatIsRefused(mFormat), "");
  FillOutASBDForLPCM(mFormat, 44100.0, 2, 32, 32, true, true, true);
  EXPECT_NE(WhyFormatIsRefused(mFormat), "");
  FillOutASBDForLPCM(mFormat, 44100.0, 2, 64, 64, true, false, true);
  EXPECT_NE(WhyFormatIsRefused(mFormat), "");
}

TEST_F(ClientFormat, RatesOutsideReasonAreRefused) {
  for (double rate :
       {0.0, -44100.0, 999.0, 768001.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
    mFormat.mSampleRate = rate;
    EXPECT_NE(WhyFormatIsRefused(mFormat), "") << rate;
  }
}

TEST_F(ClientFormat, ChannelsAndSizesMustFit) {
  for (UInt32 channels : {0u, 65u, 0xFFFFFFFFu}) {
    mFormat.mChannelsPerFrame = channels;
    EXPECT_NE(WhyFormatIsRefused(mFormat), "") << channels;
  }
  mFormat.mChannelsPerFrame = 64;
  EXPECT_EQ(WhyFormatIsRefused(mFormat), "");
  mFormat.mBytesPerFrame = 8;
  EXPECT_NE(WhyFormatIsRefused(mFormat), "");
  mFormat.mBytesPerFrame = 4;
  mFormat.mBytesPerPacket = 0;
  EXPECT_NE(WhyFormatIsRefused(mFormat), "");
  mFormat.mBytesPerPacket = 4;
  mFormat.mFramesPerPacket = 2;
  EXPECT_NE(WhyFormatIsRefused(mFormat), "");
}

}  // namespace tembra
