// Preferred channels between processes: each has the real plug-in in a HAL of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "Roles.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr char kProgram[] = TEMBRA_BINARY_DIR "/tests/integration_preferred_channels";
constexpr std::uint64_t kSecond = 1000000000;

std::string Prefix(const std::string& inName) {
  static int sNumber = 0;
  return std::string(getenv("HOME")) + "/" + inName + std::to_string(sNumber++);
}

std::string RunAs(std::vector<std::string> inRole) {
  inRole.insert(inRole.begin(), "--role");
  Program program(kProgram, inRole, Prefix("role"));
  EXPECT_EQ(program.Wait(), 0) << program.Errors();
  return program.Output();
}

struct Heard {
  std::uint64_t mTime;
  std::string mWhat;  // "dch2 outp 2 1"
};

// Another process that listens, for as long as this object lives.
class ListeningProcess {
 public:
  explicit ListeningProcess(const char* inRole = "listen")
      : mProgram(kProgram, {"--role", inRole}, Prefix("listener")) {
    EXPECT_TRUE(WaitUntil([this] { return IsReady() || !mProgram.Running(); }));
    if (!IsReady()) mStatus = mProgram.Wait();
    EXPECT_TRUE(IsReady() || mStatus == kThereIsNoOther) << mProgram.Errors();
  }
  bool IsReady() const { return mProgram.Output().find("ready\n") == 0; }

  std::vector<Heard> GetHeard() const {
    std::vector<Heard> heard;
    std::istringstream lines(mProgram.Output());
    std::string line;
    std::getline(lines, line);  // "ready"
    while (std::getline(lines, line) && !lines.eof()) {
      const size_t space = line.find(' ');
      heard.push_back({std::stoull(line.substr(0, space)), line.substr(space + 1)});
    }
    return heard;
  }
  // Waits until that many changes were heard; the answer has no fewer.
  std::vector<Heard> WaitFor(size_t inCount) const {
    EXPECT_TRUE(WaitUntil([&] { return GetHeard().size() >= inCount; })) << mProgram.Output();
    std::vector<Heard> heard = GetHeard();
    if (heard.size() < inCount) heard.resize(inCount, {0, "nothing"});
    return heard;
  }

 private:
  Program mProgram;
  int mStatus = -1;
};

class Processes : public testing::Test {
 protected:
  Processes() : mDevice(FindDevice()) { EXPECT_NE(mDevice, 0u); }
  ~Processes() override {
    EXPECT_EQ(AudioHardwareUnload(), 0);
    std::error_code ignored;
    fs::remove_all("/Library/Preferences", ignored);
  }

  AudioObjectID mDevice;
};

TEST_F(Processes, TheDeviceHasThePropertiesOfItsDirections) {
  for (const UInt32 scope : {'inpt', 'outp'}) {
    for (const UInt32 selector : {'dch2', 'srnd', 'srdd'}) {
      const AudioObjectPropertyAddress address = {selector, scope, 0};
      EXPECT_TRUE(AudioObjectHasProperty(mDevice, &address));
      Boolean isSettable = 0;
      EXPECT_EQ(AudioObjectIsPropertySettable(mDevice, &address, &isSettable), 0);
      EXPECT_EQ(isSettable != 0, selector != 'srdd');
      UInt32 size = 0;
      EXPECT_EQ(AudioObjectGetPropertyDataSize(mDevice, &address, 0, nullptr, &size), 0);
      EXPECT_EQ(size, selector == 'dch2' ? 8u : 52u);
      size = 7;
      UInt8 data[64];
      EXPECT_EQ(AudioObjectGetPropertyData(mDevice, &address, 0, nullptr, &size, data), '!siz');
    }
  }
  const AudioObjectPropertyAddress global = {'dch2', 'glob', 0};
  EXPECT_FALSE(AudioObjectHasProperty(mDevice, &global));
  const AudioObjectPropertyAddress standard = {'srdd', 'outp', 0};
  UInt8 data[52] = {};
  EXPECT_NE(AudioObjectSetPropertyData(mDevice, &standard, 0, nullptr, sizeof(data), data), 0);
}

TEST_F(Processes, ASetPairIsHeardInAnotherProcessWithinASecond) {
  const ListeningProcess listener;
  std::uint64_t quickest = ~std::uint64_t{0};
  for (UInt32 i = 0; i < 6; ++i) {
    const UInt32 left = 1 + i % 2;
    const std::uint64_t begin = Now();
    ASSERT_EQ(SetPair(mDevice, 'outp', 3 - left, left), 0);
    const std::vector<Heard> heard = listener.WaitFor(i + 1);
    ASSERT_EQ(heard.size(), i + 1);
    EXPECT_EQ(heard[i].mWhat, "dch2 outp " + std::to_string(3 - left) + " " + std::to_string(left));
    quickest = std::min(quickest, heard[i].mTime - begin);
  }
  std::printf("heard after %.1f ms at the earliest\n", static_cast<double>(quickest) / 1e6);
  EXPECT_LT(quickest, kSecond);
}

TEST_F(Processes, WhatAnotherProcessSetsIsHeardHere) {
  static std::atomic<int> sCalls;
  sCalls = 0;
  const AudioObjectPropertyAddress address = {'dch2', 'outp', 0};
  const AudioObjectPropertyListenerProc count =
      [](AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void*) -> OSStatus {
    ++sCalls;
    return 0;
  };
  ASSERT_EQ(AudioObjectAddPropertyListener(mDevice, &address, count, nullptr), 0);
  RunAs({"pair", "2", "1"});
  EXPECT_TRUE(WaitUntil([] { return sCalls == 1; }));
  UInt32 left = 0;
  UInt32 right = 0;
  EXPECT_TRUE(GetPair(mDevice, 'outp', left, right));
  EXPECT_EQ(left, 2u);
  EXPECT_EQ(right, 1u);
  EXPECT_EQ(AudioObjectRemovePropertyListener(mDevice, &address, count, nullptr), 0);
}

TEST_F(Processes, AValueSetAgainIsToldToNobodyElse) {
  const ListeningProcess listener;
  ASSERT_EQ(SetPair(mDevice, 'outp', 2, 1), 0);
  listener.WaitFor(1);
  ASSERT_EQ(SetPair(mDevice, 'outp', 2, 1), 0);
  // Notifications come in order: after this one the one before was heard if it ever is.
  ASSERT_EQ(SetPair(mDevice, 'inpt', 2, 2), 0);
  const std::vector<Heard> heard = listener.WaitFor(2);
  ASSERT_EQ(heard.size(), 2u);
  EXPECT_EQ(heard[0].mWhat, "dch2 outp 2 1");
  EXPECT_EQ(heard[1].mWhat, "dch2 inpt 2 2");
}

TEST_F(Processes, ASetPairIsHeardByAnotherUser) {
  const ListeningProcess listener("listen-as-another");
  if (!listener.IsReady()) GTEST_SKIP() << "there is one user only";
  ASSERT_EQ(SetPair(mDevice, 'outp', 2, 1), 0);
  EXPECT_EQ(listener.WaitFor(1)[0].mWhat, "dch2 outp 2 1");
}

TEST_F(Processes, ASetLayoutIsHeardInAnotherProcess) {
  const ListeningProcess listener;
  const Layout layout(CAAudioChannelLayout::Create(2));
  AudioChannelDescription* descriptions = layout->mChannelDescriptions;
  descriptions[0].mChannelLabel = 5;
  descriptions[1].mChannelLabel = 6;
  ASSERT_EQ(SetLayout(mDevice, 'outp', *layout), 0);
  EXPECT_EQ(listener.WaitFor(1)[0].mWhat, "srnd outp 5 6");
}

TEST_F(Processes, ANewProcessFindsWhatWasSet) {
  EXPECT_EQ(RunAs({"read"}),
            "dch2 inpt 1 2\ndch2 outp 1 2\nsrnd inpt 1 2\nsrnd outp 1 2\n"
            "srdd inpt 1 2\nsrdd outp 1 2\n");
  ASSERT_EQ(SetPair(mDevice, 'outp', 2, 1), 0);
  ASSERT_EQ(SetPair(mDevice, 'inpt', 0, 9), 0);
  const Layout layout(CAAudioChannelLayout::Create(2));
  AudioChannelDescription* descriptions = layout->mChannelDescriptions;
  descriptions[0].mChannelLabel = 5;
  descriptions[1].mChannelLabel = 6;
  ASSERT_EQ(SetLayout(mDevice, 'inpt', *layout), 0);
  EXPECT_EQ(RunAs({"read"}),
            "dch2 inpt 1 2\ndch2 outp 2 1\nsrnd inpt 5 6\nsrnd outp 1 2\n"
            "srdd inpt 1 2\nsrdd outp 1 2\n");
}

TEST_F(Processes, ManyProcessesAgreeInTheEnd) {
  std::vector<Program> writers;
  for (int i = 0; i < 4; ++i) {
    writers.emplace_back(kProgram,
                         std::vector<std::string>{"--role", "pair", std::to_string(1 + i % 2),
                                                  std::to_string(1 + i / 2)},
                         Prefix("writer"));
  }
  for (Program& writer : writers) ASSERT_EQ(writer.Wait(), 0) << writer.Errors();
  const std::string read = RunAs({"read"});
  EXPECT_TRUE(WaitUntil([&] {
    UInt32 left = 0;
    UInt32 right = 0;
    return GetPair(mDevice, 'outp', left, right) &&
           read.find("dch2 outp " + std::to_string(left) + " " + std::to_string(right) + "\n") !=
               std::string::npos;
  }));
}

TEST_F(Processes, TheStoredFileIsOneThatPythonReads) {
  ASSERT_EQ(SetPair(mDevice, 'outp', 2, 1), 0);
  const Layout layout(CAAudioChannelLayout::Create(2));
  ASSERT_EQ(SetLayout(mDevice, 'inpt', *layout), 0);
  const std::string prefix = Prefix("python");
  std::ofstream(prefix + ".py")
      << "import glob, plistlib\n"
         "f, = [g for g in glob.glob('/Library/Preferences/ByHost/.GlobalPreferences.*.plist')]\n"
         "d = plistlib.load(open(f, 'rb'))\n"
         "for k in sorted(d): print(k, d[k])\n";
  Program python("/usr/bin/python3", {prefix + ".py"}, prefix);
  ASSERT_EQ(python.Wait(), 0) << python.Errors();
  EXPECT_THAT(
      python.Output(),
      HasSubstr(
          "com.apple.audio.CoreAudio.PreferredStereoChannels.Output.TMBAudioCln_Plugin [2, 1]"));
  EXPECT_THAT(
      python.Output(),
      HasSubstr("com.apple.audio.CoreAudio.PreferredChannelLayout.Input.TMBAudioCln_Plugin {"));
}

TEST_F(Processes, WhatPythonWroteIsFoundByANewProcess) {
  // Any preference file of the host; its name is this host's secret, so one is made first.
  ASSERT_EQ(SetPair(mDevice, 'outp', 2, 1), 0);
  const std::string prefix = Prefix("python");
  std::ofstream(prefix + ".py")
      << "import glob, plistlib\n"
         "f, = glob.glob('/Library/Preferences/ByHost/.GlobalPreferences.*.plist')\n"
         "k = 'com.apple.audio.CoreAudio.Preferred'\n"
         "plistlib.dump({k + 'StereoChannels.Output.TMBAudioCln_Plugin': [7],\n"
         " k + 'StereoChannels.Input.TMBAudioCln_Plugin': [2, 2, 3],\n"
         " k + 'ChannelLayout.Output.TMBAudioCln_Plugin': {'channel layout tag': 0,\n"
         "  'number channels': 9, 'channel descriptions': [{'channel label': 11}, 5,\n"
         "  {'channel label': 13}]},\n"
         " k + 'ChannelLayout.Input.TMBAudioCln_Plugin': 'text'}, open(f, 'wb'))\n";
  Program python("/usr/bin/python3", {prefix + ".py"}, prefix);
  ASSERT_EQ(python.Wait(), 0) << python.Errors();
  EXPECT_EQ(RunAs({"read"}),
            "dch2 inpt 2 2\ndch2 outp 1 2\nsrnd inpt 1 2\nsrnd outp 11 2\n"
            "srdd inpt 1 2\nsrdd outp 1 2\n");
}

TEST_F(Processes, AListenersProcessMayEndAtAnyTime) {
  { const ListeningProcess listener; }
  ASSERT_EQ(SetPair(mDevice, 'outp', 2, 1), 0);
  const ListeningProcess listener;
  ASSERT_EQ(SetPair(mDevice, 'outp', 1, 1), 0);
  EXPECT_EQ(listener.WaitFor(1)[0].mWhat, "dch2 outp 1 1");
}

}  // namespace
}  // namespace tembra::test
