// What somebody else may have put where the owners' file should be.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "Worker.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

namespace fs = std::filesystem;

constexpr char kUID[] = "hostile";
constexpr char kVictim[] = "/tmp/somebody/victim";
constexpr char kTreasure[] = "all that a user has";
constexpr off_t kHuge = off_t{1} << 40;

void WriteFile(const std::string& inPath, const std::string& inText) {
  std::ofstream(inPath, std::ios::binary | std::ios::trunc) << inText;
}

// The victim's file, which belongs to who claims the device.
void MakeVictim(uid_t inUser) {
  fs::create_directories(kVictimFolder);
  WriteFile(kVictim, kTreasure);
  ASSERT_EQ(chmod(kVictim, 0600), 0);
  ASSERT_EQ(chown(kVictim, inUser, inUser), 0);
  ASSERT_EQ(chmod(kVictimFolder, 0755), 0);
  ASSERT_EQ(chown(kVictimFolder, inUser, inUser), 0);
}

std::string ListWithOwner(pid_t inOwner) {
  return std::string("<plist version=\"1.0\"><dict><key>") + kHogKeyPrefix + kUID +
         "</key><integer>" + std::to_string(inOwner) + "</integer></dict></plist>";
}

struct Plant {
  const char* name;
  void (*make)();
  // What is planted still stands as it was after someone claimed the device.
  bool stays;
};

void PrintTo(const Plant& inPlant, std::ostream* outStream) {
  *outStream << inPlant.name;
}

void MakeSocket() {
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, kHogFile);
  ASSERT_EQ(bind(file, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(file);
}

void MakeHuge() {
  WriteFile(kHogFile, ListWithOwner(1));
  // tmpfs sets its own limits to holes; what it takes is huge enough.
  off_t size = kHuge;
  while (truncate(kHogFile, size) != 0 && size > (off_t{1} << 30)) size /= 2;
  ASSERT_GE(fs::file_size(kHogFile), std::uintmax_t{1} << 30);
}

const Plant kPlants[] = {
    {"LinkToAFile", [] { fs::create_symlink(kVictim, kHogFile); }, true},
    {"LinkToNothing", [] { fs::create_symlink(std::string(kVictimFolder) + "/new", kHogFile); },
     true},
    {"LinkToItself", [] { fs::create_symlink(kHogFile, kHogFile); }, true},
    {"LinkToADevice", [] { fs::create_symlink("/dev/zero", kHogFile); }, true},
    {"HardLink", [] { fs::create_hard_link(kVictim, kHogFile); }, true},
    {"Pipe", [] { ASSERT_EQ(mkfifo(kHogFile, 0666), 0); }, true},
    {"Folder", [] { fs::create_directory(kHogFile); }, true},
    {"FullFolder", [] { fs::create_directories(std::string(kHogFile) + "/a/b"); }, true},
    {"Socket", MakeSocket, true},
    {"ClosedFile",
     [] {
       WriteFile(kHogFile, ListWithOwner(1));
       ASSERT_EQ(chmod(kHogFile, 0600), 0);
     },
     true},
    {"Garbage", [] { WriteFile(kHogFile, std::string(5000, '\xFF')); }, false},
    {"DeepNest",
     [] {
       std::string text = "<plist>";
       for (int i = 0; i < 100000; ++i) text += "<array>";
       WriteFile(kHogFile, text);
     },
     false},
    {"Huge", MakeHuge, false},
    {"Empty", [] { WriteFile(kHogFile, ""); }, false},
    {"KeyOfTheWrongKind",
     [] {
       WriteFile(kHogFile, std::string("<plist version=\"1.0\"><dict><key>") + kHogKeyPrefix +
                               kUID + "</key><string>1</string></dict></plist>");
     },
     false},
    {"NumberOfAThousandDigits",
     [] {
       WriteFile(kHogFile, std::string("<plist version=\"1.0\"><dict><key>") + kHogKeyPrefix +
                               kUID + "</key><integer>" + std::string(1000, '9') +
                               "</integer></dict></plist>");
     },
     false},
};

class Hostile : public testing::TestWithParam<Plant> {
 protected:
  void SetUp() override {
    if (!HasOtherUsers()) GTEST_SKIP() << "needs processes of other users";
    fs::remove_all(kHogFile);
    MakeVictim(kUser);
    GetParam().make();
    // Open to all where its kind has modes, and somebody else's.
    const fs::file_type type = fs::symlink_status(kHogFile).type();
    if (type == fs::file_type::regular && fs::hard_link_count(kHogFile) == 1) {
      if (!GetParam().stays) {
        ASSERT_EQ(chmod(kHogFile, 0666), 0);
      }
      ASSERT_EQ(lchown(kHogFile, kOtherUser, kOtherUser), 0);
    } else if (type != fs::file_type::regular) {
      ASSERT_EQ(lchown(kHogFile, kOtherUser, kOtherUser), 0);
    }
    ASSERT_EQ(lstat(kHogFile, &mBefore), 0);
    ASSERT_EQ(stat(kVictim, &mVictimBefore), 0);
  }
  void TearDown() override {
    mWorker.reset();
    fs::remove_all(kHogFile);
    fs::remove_all(kVictimFolder);
  }

  void ExpectNoHarm() {
    struct stat now;
    ASSERT_EQ(stat(kVictim, &now), 0);
    EXPECT_EQ(ReadFile(kVictim), kTreasure);
    EXPECT_EQ(now.st_ino, mVictimBefore.st_ino);
    EXPECT_EQ(now.st_mode, mVictimBefore.st_mode);
    EXPECT_EQ(now.st_uid, mVictimBefore.st_uid);
    EXPECT_EQ(now.st_mtim.tv_nsec, mVictimBefore.st_mtim.tv_nsec);
    EXPECT_FALSE(fs::exists(fs::symlink_status(std::string(kVictimFolder) + "/new")));
    ASSERT_EQ(lstat(kHogFile, &now), 0) << "who planted it is the only one to remove it";
    EXPECT_EQ(now.st_ino, mBefore.st_ino);
    if (!GetParam().stays) return;
    EXPECT_EQ(now.st_mode, mBefore.st_mode);
    EXPECT_EQ(now.st_size, mBefore.st_size);
    EXPECT_EQ(now.st_mtim.tv_nsec, mBefore.st_mtim.tv_nsec);
  }

  struct stat mBefore = {};
  struct stat mVictimBefore = {};
  std::unique_ptr<Worker> mWorker;
};

INSTANTIATE_TEST_SUITE_P(, Hostile, testing::ValuesIn(kPlants),
                         [](const auto& inInfo) { return std::string(inInfo.param.name); });

TEST_P(Hostile, HurtsNothingAndTheDeviceIsOwnedWithoutIt) {
  mWorker = std::make_unique<Worker>(kUser, [] { return StartHogMode(kUID); });
  const std::int32_t ownerBefore = OwnerInFile(kUID);
  const Answer first = mWorker->Ask('o');
  EXPECT_EQ(first.owner, -1);
  ExpectNoHarm();
  for (int i = 0; i < 3; ++i) {
    const Answer taken = mWorker->Ask('t');
    EXPECT_EQ(taken.isOwner, 1);
    EXPECT_EQ(OwnerInFile(kUID), GetParam().stays ? ownerBefore : mWorker->Pid());
    ExpectNoHarm();
    const Answer released = mWorker->Ask('r');
    EXPECT_EQ(released.owner, -1);
    ExpectNoHarm();
  }
  EXPECT_TRUE(WaitUntil([&] { return mWorker->Ask('o').descriptors == 0; })) << "left open";
  // With the thing gone, the claim is kept for all to see again.
  fs::remove_all(kHogFile);
  EXPECT_EQ(mWorker->Ask('t').isOwner, 1);
  EXPECT_EQ(OwnerInFile(kUID), mWorker->Pid());
  struct stat status;
  ASSERT_EQ(lstat(kHogFile, &status), 0);
  EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0666});
  EXPECT_EQ(status.st_uid, kUser);
}

// Root may open what others may not: it is hurt by nothing either.
TEST_P(Hostile, HurtsRootAsLittle) {
  mWorker = std::make_unique<Worker>(0, [] { return StartHogMode(kUID); });
  EXPECT_EQ(mWorker->Ask('t').isOwner, mWorker->Ask('o').owner == 1 ? 0 : 1);
  EXPECT_EQ(ReadFile(kVictim), kTreasure);
  struct stat now;
  ASSERT_EQ(stat(kVictim, &now), 0);
  EXPECT_EQ(now.st_mode, mVictimBefore.st_mode);
  EXPECT_EQ(now.st_uid, mVictimBefore.st_uid);
  EXPECT_FALSE(fs::exists(fs::symlink_status(std::string(kVictimFolder) + "/new")));
  ASSERT_EQ(lstat(kHogFile, &now), 0);
  EXPECT_EQ(now.st_ino, mBefore.st_ino);
  EXPECT_EQ(now.st_mode & S_IFMT, mBefore.st_mode & S_IFMT);
}

class Foreign : public testing::Test {
 protected:
  void SetUp() override {
    if (!HasOtherUsers()) GTEST_SKIP() << "needs processes of other users";
    fs::remove_all(kHogFile);
  }
  void TearDown() override { fs::remove_all(kHogFile); }
  static void Make(const std::string& inText, mode_t inMode) {
    WriteFile(kHogFile, inText);
    ASSERT_EQ(chmod(kHogFile, inMode), 0);
    ASSERT_EQ(chown(kHogFile, kOtherUser, kOtherUser), 0);
  }
};

TEST_F(Foreign, AFileThatMayOnlyBeReadIsRead) {
  // Any user can deny the device to all others; that is all that he can do.
  Make(ListWithOwner(getpid()), 0644);
  Worker worker(kUser, [] { return StartHogMode(kUID); });
  EXPECT_EQ(worker.Ask('o').owner, getpid());
  EXPECT_EQ(worker.Ask('t').isOwner, 0);
  EXPECT_EQ(ReadFile(kHogFile), ListWithOwner(getpid()));
}

TEST_F(Foreign, AStaleClaimThatCannotBeClearedReadsAsFreeAndCannotBeReplaced) {
  Make(ListWithOwner(0x7FFFFFFF), 0644);
  Worker worker(kUser, [] { return StartHogMode(kUID); });
  EXPECT_EQ(worker.Ask('o').owner, -1);
  worker.Ask('t');
  // What it tells itself in the end is what the file says.
  EXPECT_TRUE(WaitUntil([&] { return worker.Ask('o').owner == -1; }));
  EXPECT_EQ(ReadFile(kHogFile), ListWithOwner(0x7FFFFFFF));
}

TEST_F(Foreign, AnotherDevicesClaimsAreKept) {
  const std::string other = "<key>else</key>";
  Make("<plist version=\"1.0\"><dict>" + other + "<integer>1</integer></dict></plist>", 0666);
  Worker worker(kUser, [] { return StartHogMode(kUID); });
  EXPECT_EQ(worker.Ask('t').isOwner, 1);
  EXPECT_NE(ReadFile(kHogFile).find(other), std::string::npos);
  EXPECT_EQ(OwnerInFile(kUID), worker.Pid());
}

TEST_F(Foreign, ALockThatIsHeldHostageHoldsUpNobodyForLong) {
  Make(ListWithOwner(0x7FFFFFFF), 0666);
  const int file = open(kHogFile, O_RDONLY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  ASSERT_EQ(flock(file, LOCK_EX), 0);
  {
    Worker worker(kUser, [] { return StartHogMode(kUID); });
    EXPECT_EQ(worker.Ask('t').isOwner, 1);
    // Once it is known to be of no use, the lock is hardly waited for at all.
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(worker.Ask('r').owner, -1);
      EXPECT_EQ(worker.Ask('t').isOwner, 1);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    // One is inherited.
    EXPECT_TRUE(WaitUntil([&] { return worker.Ask('o').descriptors == 1; }));
    // The worker has inherited the descriptor: closing it here is not enough.
    ASSERT_EQ(flock(file, LOCK_UN), 0);
    close(file);
    EXPECT_EQ(worker.Ask('r').owner, -1);
    EXPECT_EQ(worker.Ask('t').isOwner, 1);
    EXPECT_EQ(OwnerInFile(kUID), worker.Pid());
  }
}

}  // namespace
}  // namespace tembra::test
