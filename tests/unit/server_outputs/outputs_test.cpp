#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <mutex>

#include "server/FileWriter.h"
#include "server/LiveOutput.h"
#include "server/LiveQueue.h"
#include "server/RecordingFile.h"

namespace tembra {
namespace {

using Samples = std::vector<float>;
using testing::ElementsAre;

class Files : public testing::Test {
 protected:
  Files() {
    std::string pattern = std::string(TEMBRA_BINARY_DIR) + "/outputs-XXXXXX";
    mFolder = mkdtemp(pattern.data());
  }
  ~Files() override { std::filesystem::remove_all(mFolder); }
  std::string Path(const std::string& inName) const { return mFolder + "/" + inName; }

  static Samples Read(const std::string& inPath, SF_INFO* outInfo = nullptr) {
    SF_INFO info = {};
    SNDFILE* file = sf_open(inPath.c_str(), SFM_READ, &info);
    if (file == nullptr) return {};
    Samples samples(static_cast<size_t>(info.frames * info.channels));
    EXPECT_EQ(sf_readf_float(file, samples.data(), info.frames), info.frames);
    sf_close(file);
    if (outInfo != nullptr) *outInfo = info;
    return samples;
  }

  std::string mFolder;
};

}  // namespace

TEST_F(Files, WavHoldsExactlyWhatCame) {
  std::string error;
  auto file = RecordingFile::Create(Path("a.wav"), 44100.0, 2, error);
  ASSERT_NE(file, nullptr) << error;
  Samples samples = {-0.0f, 5e-45f, 1.5f, -2.5f, 1e30f, -1e-30f};
  EXPECT_TRUE(file->Write(samples.data(), 3));
  EXPECT_TRUE(file->WriteSilence(5000));
  EXPECT_EQ(file->GetFrames(), 5003u);
  file.reset();
  SF_INFO info;
  Samples read = Read(Path("a.wav"), &info);
  EXPECT_EQ(info.samplerate, 44100);
  EXPECT_EQ(info.channels, 2);
  EXPECT_EQ(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
  EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, SF_FORMAT_WAVEX);
  ASSERT_EQ(read.size(), 10006u);
  EXPECT_EQ(std::memcmp(read.data(), samples.data(), samples.size() * sizeof(float)), 0);
  EXPECT_THAT(Samples(read.begin() + 6, read.end()), testing::Each(0.0f));
}

TEST_F(Files, FlacHoldsTwentyFourBits) {
  std::string error;
  auto file = RecordingFile::Create(Path("a.FLAC"), 48000.0, 1, error);
  ASSERT_NE(file, nullptr) << error;
  Samples samples = {0.5f, -0.25f, 2.0f, -2.0f};
  EXPECT_TRUE(file->Write(samples.data(), 4));
  file.reset();
  Samples read = Read(Path("a.FLAC"));
  ASSERT_EQ(read.size(), 4u);
  EXPECT_NEAR(read[0], 0.5f, 1e-6f);
  EXPECT_NEAR(read[1], -0.25f, 1e-6f);
  EXPECT_NEAR(read[2], 1.0f, 1e-6f);
  EXPECT_NEAR(read[3], -1.0f, 1e-6f);
}

TEST_F(Files, GrowingFileCanBeReadAfterAFlush) {
  std::string error;
  auto file = RecordingFile::Create(Path("a.wav"), 44100.0, 1, error);
  ASSERT_NE(file, nullptr) << error;
  Samples samples = {1, 2, 3};
  file->Write(samples.data(), 3);
  file->Flush();
  EXPECT_EQ(Read(Path("a.wav")), samples);
}

TEST_F(Files, ErrorsNameCauseAndMend) {
  std::string error;
  EXPECT_EQ(RecordingFile::Create(Path("a.mp3"), 44100.0, 2, error), nullptr);
  EXPECT_NE(error.find(".wav"), std::string::npos) << error;
  EXPECT_EQ(RecordingFile::Create(Path("missing/a.wav"), 44100.0, 2, error), nullptr);
  EXPECT_NE(error.find("missing/a.wav"), std::string::npos) << error;
  EXPECT_EQ(RecordingFile::Create(Path("a.flac"), 44100.0, 20, error), nullptr);
  EXPECT_NE(error.find("20 channels"), std::string::npos) << error;
  EXPECT_TRUE(IsRecordingName("x.Wav"));
  EXPECT_FALSE(IsRecordingName(".wav"));
  EXPECT_FALSE(IsRecordingName("wav"));
}

TEST_F(Files, WriterWritesInOrderAndSilenceFirst) {
  std::vector<std::string> errors;
  {
    FileWriter writer(1 << 20, [&](const std::string& inText) { errors.push_back(inText); });
    auto first = writer.Open(Path("1.wav"), 44100.0, 1);
    auto second = writer.Open(Path("2.wav"), 44100.0, 2);
    Samples samples = {1, 2};
    EXPECT_TRUE(writer.Write(first, 0, samples.data(), 2));
    EXPECT_TRUE(writer.Write(second, 1, samples.data(), 1));
    EXPECT_TRUE(writer.Write(first, 2, samples.data(), 1));
    writer.Close(second);
    EXPECT_FALSE(writer.Write(second, 0, samples.data(), 1));
    writer.Drain();
    EXPECT_EQ(writer.GetWaitingBytes(), 0u);
    EXPECT_THAT(Read(Path("2.wav")), ElementsAre(0, 0, 1, 2));
  }
  EXPECT_THAT(Read(Path("1.wav")), ElementsAre(1, 2, 0, 0, 1));
  EXPECT_THAT(errors, testing::IsEmpty());
}

TEST_F(Files, WriterThatCannotKeepUpPutsSilenceForWhatItLost) {
  std::promise<void> go;
  std::shared_future<void> gone = go.get_future().share();
  std::promise<void> blocked;
  bool told = false;
  {
    // The error of the first file holds the writer's thread, as a slow disk would.
    FileWriter writer(4 * sizeof(float), [&](const std::string&) {
      if (std::exchange(told, true)) return;
      blocked.set_value();
      gone.wait();
    });
    writer.Open(Path("missing/1.wav"), 44100.0, 1);
    blocked.get_future().wait();
    auto file = writer.Open(Path("2.wav"), 44100.0, 1);
    Samples samples = {1, 2, 3};
    EXPECT_TRUE(writer.Write(file, 0, samples.data(), 3));
    EXPECT_FALSE(writer.Write(file, 1, samples.data(), 3));
    EXPECT_TRUE(writer.Write(file, 1, samples.data(), 1));
    EXPECT_FALSE(writer.Write(file, 0, samples.data(), 2));
    EXPECT_EQ(writer.GetLostFrames(), 5u);
    writer.Close(file);
    go.set_value();
  }
  EXPECT_THAT(Read(Path("2.wav")), ElementsAre(1, 2, 3, 0, 0, 0, 0, 0, 1, 0, 0));
}

TEST_F(Files, WriterTellsOnceOfAFileThatCannotBeOpened) {
  std::vector<std::string> errors;
  {
    FileWriter writer(1 << 20, [&](const std::string& inText) { errors.push_back(inText); });
    auto file = writer.Open(Path("missing/1.wav"), 44100.0, 1);
    Samples samples = {1};
    writer.Write(file, 0, samples.data(), 1);
    writer.Write(file, 0, samples.data(), 1);
    writer.Close(file);
  }
  EXPECT_EQ(errors.size(), 1u);
}

TEST_F(Files, FullDiskIsToldOnce) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  std::filesystem::create_symlink("/dev/full", Path("full.wav"));
  std::vector<std::string> errors;
  {
    FileWriter writer(8 << 20, [&](const std::string& inText) { errors.push_back(inText); });
    auto file = writer.Open(Path("full.wav"), 44100.0, 1);
    Samples samples(65536, 0.5f);
    for (int i = 0; i < 8; ++i) writer.Write(file, 0, samples.data(), 65536);
  }
  EXPECT_EQ(errors.size(), 1u);
}

TEST(LiveQueue, TakesInOrder) {
  LiveQueue queue(2, 4);
  Samples samples = {1, 2, 3, 4, 5, 6};
  queue.Put(samples.data(), 3);
  EXPECT_EQ(queue.GetWaitingFrames(), 3u);
  Samples out(8);
  EXPECT_EQ(queue.Take(out.data(), 2, 0), 2u);
  queue.Put(samples.data(), 3);
  EXPECT_EQ(queue.Take(out.data() + 4, 2, 0), 2u);
  EXPECT_THAT(out, ElementsAre(1, 2, 3, 4, 5, 6, 1, 2));
  EXPECT_EQ(queue.GetDroppedFrames(), 0u);
}

TEST(LiveQueue, OldestFramesGiveWay) {
  LiveQueue queue(1, 4);
  Samples samples = {1, 2, 3};
  queue.Put(samples.data(), 3);
  queue.Put(samples.data(), 3);
  EXPECT_EQ(queue.GetDroppedFrames(), 2u);
  Samples out(4);
  EXPECT_EQ(queue.Take(out.data(), 4, 0), 4u);
  EXPECT_THAT(out, ElementsAre(3, 1, 2, 3));
  Samples many = {1, 2, 3, 4, 5, 6, 7};
  queue.Put(many.data(), 7);
  EXPECT_EQ(queue.Take(out.data(), 4, 0), 4u);
  EXPECT_THAT(out, ElementsAre(4, 5, 6, 7));
  EXPECT_EQ(queue.GetDroppedFrames(), 5u);
}

TEST(LiveQueue, TakesLessWhenThereIsLess) {
  LiveQueue queue(1, 4);
  Samples out(4);
  EXPECT_EQ(queue.Take(out.data(), 4, 0), 0u);
  Samples samples = {1};
  queue.Put(samples.data(), 1);
  EXPECT_EQ(queue.Take(out.data(), 4, 0), 1u);
}

TEST(LiveQueue, EndFreesWhoWaits) {
  LiveQueue queue(1, 4);
  auto waiter = std::async(std::launch::async, [&] {
    Samples out(4);
    return queue.Take(out.data(), 4, 3600ull * 1000000000ull);
  });
  queue.End();
  EXPECT_EQ(waiter.get(), 0u);
  EXPECT_TRUE(queue.HasEnded());
}

TEST(RawOutput, WritesFramesAsTheyAre) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Samples samples = {1, -2, 3.5f, -0.0f};
  {
    RawOutput output(ends[1], 2, 100, [](const std::string& inText) { ADD_FAILURE() << inText; });
    output.Put(samples.data(), 2);
  }
  Samples read(4);
  EXPECT_EQ(::read(ends[0], read.data(), 16), 16);
  EXPECT_EQ(std::memcmp(read.data(), samples.data(), 16), 0);
  close(ends[0]);
  close(ends[1]);
}

TEST(RawOutput, TellsWhenNobodyReadsAnyMore) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  signal(SIGPIPE, SIG_IGN);
  std::promise<std::string> told;
  {
    RawOutput output(ends[1], 1, 100, [&](const std::string& inText) { told.set_value(inText); });
    float sample = 1.0f;
    output.Put(&sample, 1);
    EXPECT_NE(told.get_future().get().find("standard output"), std::string::npos);
  }
  close(ends[1]);
}

TEST(PlaybackOutput, UnknownDeviceIsExplained) {
  std::string error;
  EXPECT_EQ(PlaybackOutput::Open(
                "no_such_device", 44100.0, 2, 1000, [](const std::string&) {}, error),
            nullptr);
  EXPECT_NE(error.find("no_such_device"), std::string::npos);
  EXPECT_NE(error.find("aplay -L"), std::string::npos);
}

TEST(PlaybackOutput, NullDevicePlaysAndEnds) {
  std::string error;
  auto output = PlaybackOutput::Open(
      "null", 44100.0, 2, 4096, [](const std::string& inText) { ADD_FAILURE() << inText; }, error);
  ASSERT_NE(output, nullptr) << error;
  Samples samples(8192, 0.25f);
  output->Put(samples.data(), 4096);
  // The null device takes all at once; the queue empties down to less than a period.
  while (output->GetWaitingFrames() >= 512) std::this_thread::yield();
  EXPECT_EQ(output->GetDroppedFrames(), 0u);
}

}  // namespace tembra
