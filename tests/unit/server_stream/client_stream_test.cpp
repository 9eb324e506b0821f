#include "server/ClientStream.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "client/Snd.h"

namespace tembra {
namespace {

constexpr uint64_t kMilli = 1000000;

AudioStreamBasicDescription Format() {
  AudioStreamBasicDescription format = {};
  FillOutASBDForLPCM(format, 44100.0, 2, 32, 32, true, false, true);
  return format;
}

class ClientStreamTest : public testing::Test {
 protected:
  ClientStreamTest()
      : mOutputs({[](const std::string& inText) { ADD_FAILURE() << inText; },
                  [](const std::string& inText) { ADD_FAILURE() << inText; },
                  [](const std::string& inText) { ADD_FAILURE() << inText; }}) {}

  // A block of two channels that hold the value and its negative.
  static CFDataRef Block(double inSampleTime, uint64_t inHostTime, UInt32 inFrames, float inValue) {
    AudioTimeStamp time = {};
    time.mSampleTime = inSampleTime;
    time.mHostTime = inHostTime;
    time.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
    std::vector<float> samples(size_t{inFrames} * 2);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = i % 2 == 0 ? inValue : -inValue;
    AudioBufferList list;
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {2, inFrames * 8, samples.data()};
    return CFDataCreateWithABL(time, Format(), list, true);
  }

  BlockVerdict Accept(ClientStream& ioStream, double inSampleTime, float inValue,
                      uint64_t inHostTime = 100 * kMilli, uint64_t inNow = 90 * kMilli) {
    CFDataRef block = Block(inSampleTime, inHostTime, 512, inValue);
    const BlockVerdict verdict = ioStream.Accept(block, inNow);
    CFRelease(block);
    return verdict;
  }

  Outputs mOutputs;
  TMBAudioClientInfo mInfo{0, 77, Format()};
};

}  // namespace

TEST_F(ClientStreamTest, CountsBlocksFramesBytesAndGaps) {
  ClientStream stream(1, mInfo, mOutputs, false, 60.0);
  EXPECT_EQ(Accept(stream, 0.0, 0.5f), BlockVerdict::kOk);
  EXPECT_EQ(Accept(stream, 512.0, 0.5f), BlockVerdict::kOk);
  EXPECT_EQ(Accept(stream, 2048.0, 0.5f), BlockVerdict::kOk);
  ClientReport report;
  stream.Report(report);
  EXPECT_EQ(report.mSession, 1u);
  EXPECT_EQ(report.mPID, 77);
  EXPECT_EQ(report.mBlocks, 3u);
  EXPECT_EQ(report.mFrames, 1536u);
  EXPECT_EQ(report.mBytes, 3u * (68 + 2 * (8 + 2048)));
  EXPECT_EQ(report.mGaps, 1u);
  EXPECT_EQ(report.mSilenceFrames, 1024u);
  EXPECT_EQ(report.mLate, 0u);
  EXPECT_EQ(report.mLost, 0u);
  EXPECT_EQ(report.GetRejected(), 0u);
  EXPECT_FALSE(report.mHasLevels);
}

TEST_F(ClientStreamTest, DelayIsSignedAndLateIsBehindItsTime) {
  ClientStream stream(1, mInfo, mOutputs, false, 60.0);
  Accept(stream, 0.0, 0.5f, 100 * kMilli, 90 * kMilli);
  Accept(stream, 512.0, 0.5f, 100 * kMilli, 100 * kMilli);
  Accept(stream, 1024.0, 0.5f, 100 * kMilli, 103 * kMilli);
  ClientReport report;
  stream.Report(report);
  EXPECT_EQ(report.mLate, 1u);
  EXPECT_EQ(report.mDelays, 3u);
  EXPECT_EQ(report.mDelayMedian, 0);
  EXPECT_EQ(report.mDelayMax, static_cast<SInt64>(3 * kMilli));
  EXPECT_EQ(report.mSinceCycleMedian, 11609977);
}

TEST_F(ClientStreamTest, RefusedBlocksAreCountedByReasonAndChangeNothingElse) {
  ClientStream stream(1, mInfo, mOutputs, false, 60.0);
  UInt8 junk[100] = {};
  CFDataRef block = CFDataCreate(kCFAllocatorDefault, junk, sizeof(junk));
  EXPECT_EQ(stream.Accept(block, 0), BlockVerdict::kNoBuffers);
  CFRelease(block);
  block = CFDataCreate(kCFAllocatorDefault, junk, 0);
  EXPECT_EQ(stream.Accept(block, 0), BlockVerdict::kTooShort);
  CFRelease(block);
  stream.CountRejected(BlockVerdict::kWrongSender);
  ClientReport report;
  stream.Report(report);
  EXPECT_EQ(report.mBlocks, 0u);
  EXPECT_EQ(report.mRejected[static_cast<size_t>(BlockVerdict::kNoBuffers)], 1u);
  EXPECT_EQ(report.mRejected[static_cast<size_t>(BlockVerdict::kTooShort)], 1u);
  EXPECT_EQ(report.mRejected[static_cast<size_t>(BlockVerdict::kWrongSender)], 1u);
  EXPECT_EQ(report.GetRejected(), 3u);
}

TEST_F(ClientStreamTest, LevelsCountTheSilenceToo) {
  ClientStream stream(1, mInfo, mOutputs, true, 60.0);
  Accept(stream, 0.0, 0.5f);
  Accept(stream, 512.0 * 4, 0.5f);
  ClientReport report;
  stream.Report(report);
  EXPECT_TRUE(report.mHasLevels);
  EXPECT_EQ(report.mPeak, 0.5f);
  EXPECT_EQ(report.mRecentPeak, 0.5f);
  EXPECT_NEAR(report.mRootMeanSquare, 0.5 * std::sqrt(2.0 / 5.0), 1e-6);
  stream.Report(report);
  EXPECT_EQ(report.mRecentPeak, 0.0f);
}

TEST_F(ClientStreamTest, RecordsClientAndMixSampleForSample) {
  std::string pattern = std::string(TEMBRA_BINARY_DIR) + "/stream-XXXXXX";
  const std::string folder = mkdtemp(pattern.data());
  ClientReport report;
  {
    Outputs outputs({[](const std::string& inText) { ADD_FAILURE() << inText; },
                     [](const std::string& inText) { ADD_FAILURE() << inText; },
                     [](const std::string& inText) { ADD_FAILURE() << inText; }});
    Options options;
    options.mRecord = folder + "/mix.wav";
    options.mRecordDir = folder + "/clients";
    std::string error;
    ASSERT_TRUE(outputs.Open(options, error)) << error;
    ASSERT_TRUE(outputs.WantsSamples());
    ClientStream stream(3, mInfo, outputs, false, 60.0);
    Accept(stream, 0.0, 0.25f);
    Accept(stream, 1024.0, -0.5f);
    // The clock starts again; the sound goes on behind what was there.
    Accept(stream, 512.0, 0.75f, 90 * kMilli);
    stream.Report(report);
    EXPECT_EQ(report.mResets, 1u);
    stream.Finish(95 * kMilli);
  }
  EXPECT_EQ(report.mRecording, folder + "/clients/client-77-3.wav");
  for (const std::string& path : {report.mRecording, folder + "/mix.wav"}) {
    SF_INFO info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr) << path;
    ASSERT_EQ(info.frames, 2048) << path;
    std::vector<float> samples(4096);
    sf_readf_float(file, samples.data(), 2048);
    sf_close(file);
    const float wanted[] = {0.25f, 0.0f, -0.5f, 0.75f};
    for (size_t i = 0; i < samples.size(); ++i) {
      const float value = wanted[i / 1024];
      ASSERT_EQ(samples[i], i % 2 == 0 ? value : -value) << path << " at " << i;
    }
  }
  std::filesystem::remove_all(folder);
}

TEST_F(ClientStreamTest, ClientOfAnotherRateIsRecordedButNotMixed) {
  std::string pattern = std::string(TEMBRA_BINARY_DIR) + "/stream-XXXXXX";
  const std::string folder = mkdtemp(pattern.data());
  std::vector<std::string> notes;
  {
    Outputs outputs({[&](const std::string& inText) { notes.push_back(inText); },
                     [](const std::string& inText) { ADD_FAILURE() << inText; },
                     [](const std::string& inText) { ADD_FAILURE() << inText; }});
    Options options;
    options.mRecord = folder + "/mix.wav";
    options.mRate = 48000.0;
    std::string error;
    ASSERT_TRUE(outputs.Open(options, error)) << error;
    ClientStream stream(3, mInfo, outputs, false, 60.0);
    Accept(stream, 0.0, 0.25f);
    EXPECT_EQ(outputs.GetMixFrames(), 0u);
  }
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_NE(notes[0].find("--rate"), std::string::npos);
  std::filesystem::remove_all(folder);
}

TEST_F(ClientStreamTest, BlockLogHasALineForEachBlock) {
  std::string pattern = std::string(TEMBRA_BINARY_DIR) + "/stream-XXXXXX";
  const std::string folder = mkdtemp(pattern.data());
  {
    Outputs outputs({[](const std::string& inText) { ADD_FAILURE() << inText; },
                     [](const std::string& inText) { ADD_FAILURE() << inText; },
                     [](const std::string& inText) { ADD_FAILURE() << inText; }});
    Options options;
    options.mBlockLog = folder + "/blocks.csv";
    std::string error;
    ASSERT_TRUE(outputs.Open(options, error)) << error;
    EXPECT_FALSE(outputs.WantsSamples());
    ClientStream stream(3, mInfo, outputs, false, 60.0);
    Accept(stream, 0.0, 0.25f);
    Accept(stream, 512.5, 0.25f, 7, 8);
  }
  std::ifstream file(folder + "/blocks.csv");
  std::stringstream text;
  text << file.rdbuf();
  EXPECT_EQ(text.str(), "77,0,100000000,90000000,512\n77,512.5,7,8,512\n");
  std::filesystem::remove_all(folder);
}

TEST(Outputs, SayWhatCannotBeOpened) {
  const Outputs::TellFunction fail = [](const std::string& inText) { ADD_FAILURE() << inText; };
  std::string error;
  Options options;
  options.mRecord = "/nonexistent/mix.wav";
  EXPECT_FALSE(Outputs({fail, fail, fail}).Open(options, error));
  EXPECT_NE(error.find("/nonexistent/mix.wav"), std::string::npos);
  options = {};
  options.mRecordDir = "/nonexistent/folder";
  EXPECT_FALSE(Outputs({fail, fail, fail}).Open(options, error));
  EXPECT_NE(error.find("/nonexistent/folder"), std::string::npos);
  options = {};
  options.mBlockLog = "/nonexistent/blocks.csv";
  EXPECT_FALSE(Outputs({fail, fail, fail}).Open(options, error));
  EXPECT_NE(error.find("/nonexistent/blocks.csv"), std::string::npos);
  options = {};
  options.mPlay = "no_such_device";
  EXPECT_FALSE(Outputs({fail, fail, fail}).Open(options, error));
  EXPECT_NE(error.find("no_such_device"), std::string::npos);
}

}  // namespace tembra
