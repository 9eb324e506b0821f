// Writers that are killed, disks that are full, files that may not be written.

#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <chrono>
#include <random>
#include <thread>

#include "DeviceSettingsTest.h"
#include "support/CACFObject.h"
#include "support/OtherUser.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;

// With many controls, so that a write takes its time.
void AddControls(ControlledDevice& ioDevice, UInt32 inChannels) {
  ioDevice.AddControlledStream(false, FloatFormat(inChannels));
  for (UInt32 channel = 0; channel <= inChannels; ++channel) {
    ioDevice.mControls.Add('volm', 'outp', channel, 0.5f);
  }
}

// The root dictionary; null if the file is not one.
CACFObject<CFDictionaryRef> Parse(const std::string& inContent) {
  const CACFObject<CFDataRef> data(CFDataCreate(nullptr,
                                                reinterpret_cast<const UInt8*>(inContent.data()),
                                                static_cast<CFIndex>(inContent.size())));
  CFPropertyListRef root = CFPropertyListCreateFromXMLData(nullptr, data.GetObject(), 0, nullptr);
  if (root != nullptr && CFGetTypeID(root) != CFDictionaryGetTypeID()) {
    CFRelease(root);
    root = nullptr;
  }
  return CACFObject<CFDictionaryRef>(static_cast<CFDictionaryRef>(root));
}

TEST_F(SettingsFile, AWriterKilledAtAnyMomentLeavesAWholeFile) {
  constexpr int kRounds = 500;
  const unsigned seed = std::random_device{}();
  std::mt19937 random(seed);
  SCOPED_TRACE("seed " + std::to_string(seed));
  ControlledDevice device("One");
  AddControls(device, 40);
  Save(device);
  int leftovers = 0;
  for (int round = 0; round < kRounds; ++round) {
    int started[2];
    ASSERT_EQ(pipe(started), 0);
    const pid_t writer = fork();
    if (writer == 0) {
      for (bool isFirst = true;; isFirst = false) {
        if (isFirst && write(started[1], "x", 1) != 1) _exit(1);
        Save(device);
      }
    }
    char byte = 0;
    ASSERT_EQ(read(started[0], &byte, 1), 1);
    close(started[0]);
    close(started[1]);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
    kill(writer, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer fell by itself: " << status;
    leftovers += Names().size() > 1 ? 1 : 0;
    ASSERT_TRUE(Parse(Content()).IsValid()) << "round " << round;
  }
  Save(device);
  EXPECT_THAT(Names(), ElementsAre(mName)) << "the next writer sweeps what was left";
  std::printf("%d writers killed, %d left a temporary file, none an unreadable one\n", kRounds,
              leftovers);
}

TEST_F(SettingsFile, WritersAtOnceLeaveAWholeFileAtEachMoment) {
  constexpr int kWriters = 4;
  // Made here: a forked process makes no threads.
  const std::string names[kWriters] = {"0", "1", "2", "3"};
  std::vector<std::unique_ptr<ControlledDevice>> devices;
  for (const std::string& name : names) {
    devices.push_back(std::make_unique<ControlledDevice>(name.c_str()));
    AddControls(*devices.back(), 20);
  }
  Save(*devices[0]);
  std::vector<pid_t> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.push_back(fork());
    if (writers.back() != 0) continue;
    for (int i = 0; i < 100; ++i) Save(*devices[writer]);
    _exit(0);
  }
  size_t living = writers.size();
  long looks = 0;
  while (living > 0) {
    ASSERT_TRUE(Parse(Content()).IsValid()) << "look " << looks;
    ++looks;
    int status = 0;
    const pid_t ended = waitpid(-1, &status, WNOHANG);
    if (ended <= 0) continue;
    EXPECT_EQ(status, 0);
    --living;
  }
  EXPECT_THAT(Names(), ElementsAre(mName));
}

TEST_F(SettingsFile, AFullDiskLeavesTheOldFile) {
  if (mount("tmpfs", mFolder.c_str(), "tmpfs", 0, "size=16k,mode=0755") != 0) {
    GTEST_SKIP() << "needs a small disk: " << strerror(errno);
  }
  ControlledDevice device("One");
  AddControls(device, 2);
  Save(device);
  const std::string before = Content();
  EXPECT_TRUE(Parse(before).IsValid());
  // More than what is left, and then nothing left at all.
  AddControls(device, 500);
  Save(device);
  EXPECT_EQ(Content(), before);
  EXPECT_THAT(Names(), ElementsAre(mName));
  std::ofstream(mFolder / "filler") << std::string(64 << 10, 'x');
  Save(device);
  EXPECT_EQ(Content(), before);
  fs::remove(mFolder / "filler");
  EXPECT_THAT(Names(), ElementsAre(mName));
  umount(mFolder.c_str());
}

TEST_F(SettingsFile, AReadOnlyDiskLeavesTheOldFile) {
  if (mount("tmpfs", mFolder.c_str(), "tmpfs", 0, "mode=0755") != 0) {
    GTEST_SKIP() << "needs a disk of its own: " << strerror(errno);
  }
  ControlledDevice device("One");
  Save(device);
  const std::string before = Content();
  ASSERT_EQ(mount(nullptr, mFolder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  device.mControls.Add('volm', 'inpt', 0, 0.5f);
  Save(device);
  EXPECT_EQ(Content(), before);
  umount(mFolder.c_str());
}

TEST_F(SettingsFile, WhoMayNotWriteChangesNothing) {
  ControlledDevice device("One");
  Save(device);
  const std::string before = Content();
  device.mControls.Add('volm', 'inpt', 0, 0.5f);
  const auto save = [&] {
    Save(device);
    return 0;
  };
  // The directory may not be written.
  if (RunAsUser(kNobody, save) == kNoOtherUser) GTEST_SKIP() << "there is one user only";
  EXPECT_EQ(Content(), before);
  // The file may be, the directory still not.
  ASSERT_EQ(chmod(mFile.c_str(), 0666), 0);
  EXPECT_EQ(RunAsUser(kNobody, save), 0);
  EXPECT_EQ(Content(), before);
  // The directory may be, but not the file: it is not replaced behind its owner's back.
  ASSERT_EQ(chmod(mFile.c_str(), 0644), 0);
  ASSERT_EQ(chmod(mFolder.c_str(), 0777), 0);
  EXPECT_EQ(RunAsUser(kNobody, save), 0);
  EXPECT_EQ(Content(), before);
  // Not even read: that is no reason to begin anew.
  ASSERT_EQ(chmod(mFile.c_str(), 0), 0);
  EXPECT_EQ(RunAsUser(kNobody, save), 0);
  EXPECT_EQ(Content(), before);
  // Both may be.
  ASSERT_EQ(chmod(mFile.c_str(), 0666), 0);
  EXPECT_EQ(RunAsUser(kNobody, save), 0);
  EXPECT_NE(Content(), before);
  EXPECT_EQ(Mode(), 0666u);
  EXPECT_THAT(Names(), ElementsAre(mName));
}

}  // namespace
}  // namespace tembra::test
