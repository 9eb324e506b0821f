// Single moments of an access to the shared settings that go wrong, and what they cost.

#include <errno.h>
#include <sys/file.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <numeric>

#include "FailuresFixture.h"
#include "persistence/CASettingsFile.h"
#include "persistence/CASettingsStorage.h"
#include "support/CACFNumber.h"
#include "support/CACFString.h"

namespace tembra::test {
namespace {

class Moments : public FailuresTest {
 protected:
  CASettingsStorage Make(bool inSingleProcess = false, bool inReadOnly = false) {
    return CASettingsStorage(mFile.c_str(), 0640, kCFPropertyListXMLFormat_v1_0, inSingleProcess,
                             inReadOnly);
  }
  // Has "k" stored as 1 and the file read: a storage that made its file still reads it once.
  static void MakeCurrent(CASettingsStorage& inStorage) {
    Set(inStorage, 1);
    EXPECT_EQ(Number(inStorage), 1);
  }
  static SInt32 Number(CASettingsStorage& inStorage, const char* inKey = "k") {
    SInt32 value = 12345;
    inStorage.CopySInt32Value(CACFString(inKey).GetCFString(), value, -1);
    return value;
  }
  static void Set(CASettingsStorage& inStorage, SInt32 inValue, const char* inKey = "k") {
    inStorage.SetSInt32Value(CACFString(inKey).GetCFString(), inValue);
  }
  SInt32 Stored(const char* inKey = "k") {
    CASettingsStorage fresh(mFile.c_str(), 0, kCFPropertyListXMLFormat_v1_0, false, true);
    return Number(fresh, inKey);
  }
  static std::string K(int inValue) { return List(Entry("k", inValue)); }

  // Runs an action right before the call of that name, the first or a later one.
  static auto Before(const std::string& inName, std::function<void()> inAction, int inSkipped = 0) {
    return [inName, inAction = std::move(inAction), inSkipped](const std::string& inCalled,
                                                               size_t) mutable {
      if (inCalled == inName && inSkipped-- == 0) inAction();
      return Calls::kGoOn;
    };
  }
  static auto Fail(const std::string& inName, int inError, int inSkipped = 0, int inTimes = 1) {
    return [=](const std::string& inCalled, size_t) mutable {
      if (inCalled != inName || inSkipped-- > 0 || inTimes-- <= 0) return Calls::kGoOn;
      return inError;
    };
  }
  static long Count(const std::string& inName) {
    const std::vector<std::string>& names = Calls::Get().mNames;
    return std::count(names.begin(), names.end(), inName);
  }
};

// The lock of another process, as far as flock tells them apart.
class Hostage {
 public:
  explicit Hostage(const fs::path& inFile) : mFile(open(inFile.c_str(), O_RDONLY | O_CLOEXEC)) {
    EXPECT_EQ(flock(mFile, LOCK_EX | LOCK_NB), 0);
  }
  ~Hostage() { close(mFile); }
  Hostage(const Hostage&) = delete;
  Hostage& operator=(const Hostage&) = delete;

 private:
  int mFile;
};

long long Slept() {
  const std::vector<long long>& sleeps = Calls::Get().mSleeps;
  return std::accumulate(sleeps.begin(), sleeps.end(), 0LL);
}

// The lock.

TEST_F(Moments, AReaderWaitsASecondForTheLockAndThenLittle) {
  Write(K(1));
  CASettingsStorage storage = Make();
  EXPECT_EQ(Number(storage), 1);
  Replace(K(2));
  {
    const Hostage hostage(mFile);
    storage.ForceRefresh();
    {
      const Watch watch;
      EXPECT_EQ(Number(storage), 1) << "what is in hand must do";
    }
    EXPECT_GT(Slept(), 980000000);
    EXPECT_LT(Slept(), 1003000000);
    {
      const Watch watch;
      EXPECT_EQ(Number(storage), 1);
    }
    EXPECT_GT(Slept(), 15000000);
    EXPECT_LT(Slept(), 23000000);
  }
  EXPECT_EQ(Content(), K(2));
  // Had again, the lock is worth waiting for again.
  EXPECT_EQ(Number(storage), 2);
  storage.ForceRefresh();
  const Hostage hostage(mFile);
  const Watch watch;
  EXPECT_EQ(Number(storage), 2);
  EXPECT_GT(Slept(), 980000000);
}

TEST_F(Moments, TheWaitsForTheLockGrowToTwoMilliseconds) {
  Write(K(1));
  const Hostage hostage(mFile);
  CASettingsStorage storage = Make();
  const Watch watch;
  EXPECT_EQ(Number(storage), -1);
  const std::vector<long long>& sleeps = Calls::Get().mSleeps;
  ASSERT_GT(sleeps.size(), 10u);
  EXPECT_EQ(
      std::vector<long long>(sleeps.begin(), sleeps.begin() + 8),
      (std::vector<long long>{50000, 100000, 200000, 400000, 800000, 1600000, 2000000, 2000000}));
  EXPECT_EQ(*std::max_element(sleeps.begin(), sleeps.end()), 2000000);
}

TEST_F(Moments, ALockThatComesFreeInTimeIsTaken) {
  Write(K(1));
  auto hostage = std::make_unique<Hostage>(mFile);
  CASettingsStorage storage = Make();
  const Watch watch(Before(
      "nanosleep", [&] { hostage.reset(); }, 20));
  EXPECT_EQ(Number(storage), 1);
  EXPECT_EQ(Calls::Get().mSleeps.size(), 21u);
}

TEST_F(Moments, ASaveWhoseLockIsHeldLeavesTheFileEmptied) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  {
    const Hostage hostage(mFile);
    const Watch watch;
    Set(storage, 2);
  }
  EXPECT_EQ(Content(), "");
  EXPECT_EQ(Number(storage), 2);
  EXPECT_EQ(Stored(), 2);
}

TEST_F(Moments, AReplacementWhoseLockIsHeldWritesNothing) {
  CASettingsStorage storage = Make();
  Set(storage, 1);
  Write("junk");
  std::unique_ptr<Hostage> hostage;
  storage.ForceRefresh();
  {
    const Watch watch(Before(
        "lock", [&] { hostage = std::make_unique<Hostage>(mFile); }, 1));
    EXPECT_EQ(Number(storage), -1);
  }
  EXPECT_EQ(Content(), "junk");
}

TEST_F(Moments, AFileSystemWithoutLocksLeavesWhatIsInHand) {
  Write(K(1));
  CASettingsStorage storage = Make();
  {
    const Watch watch(Fail("lock", ENOLCK, 0, 100));
    EXPECT_EQ(Number(storage), -1);
    EXPECT_EQ(Calls::Get().mSleeps.size(), 0u);
  }
  EXPECT_EQ(Content(), K(1));
  EXPECT_EQ(Number(storage), 1);
}

// The file at the path is another one.

TEST_F(Moments, AFileThatIsReplacedWhileItIsOpenedIsReadAnew) {
  for (const bool isReadOnly : {false, true}) {
    for (const bool isMovedAside : {false, true}) {
      Write(K(1));
      CASettingsStorage storage = Make(false, isReadOnly);
      // Between the opening and the look at the path.
      const Watch watch(Before("lstat", [&] {
        if (isMovedAside) fs::rename(mFile, mFolder / "aside");
        Replace(K(2));
      }));
      EXPECT_EQ(Number(storage), 2);
      EXPECT_EQ(Content(), K(2)) << "nothing was written over it";
    }
  }
}

TEST_F(Moments, AFileThatIsReplacedBeforeItIsOpenedIsReadAnew) {
  for (const bool isReadOnly : {false, true}) {
    Write(K(1));
    CASettingsStorage storage = Make(false, isReadOnly);
    const Watch watch([&](const std::string& inName, size_t inNumber) {
      if (inName == "open" && inNumber == 1) fs::remove(mFile);
      if (inName == "stat" && inNumber == 2) Write(K(2));
      return Calls::kGoOn;
    });
    EXPECT_EQ(Number(storage), 2);
    EXPECT_EQ(Content(), K(2)) << "nothing was written over it";
  }
}

TEST_F(Moments, AFileThatIsReplacedWhileItIsOpenedForReplacingIsReadAnew) {
  Write("junk");
  CASettingsStorage storage = Make();
  // The first two looks at the path are those of the reading.
  const Watch watch(Before(
      "lstat", [&] { Replace(K(2)); }, 2));
  EXPECT_EQ(Number(storage), 2);
  EXPECT_EQ(Content(), K(2));
}

TEST_F(Moments, AFileThatAppearsWhileItIsCreatedIsRead) {
  CASettingsStorage storage = Make();
  const Watch watch(Before("create", [&] { Write(K(2)); }));
  EXPECT_EQ(Number(storage), 2);
  EXPECT_EQ(Content(), K(2));
}

TEST_F(Moments, ASaveFollowsAFileThatIsReplacedWhileItIsOpened) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  std::string before = Content();
  {
    const Watch watch(Before("lstat", [&] {
      fs::rename(mFile, mFolder / "aside");
      Write(K(2));
    }));
    Set(storage, 3);
  }
  EXPECT_EQ(Stored(), 3);
  EXPECT_EQ(ReadFile(mFolder / "aside"), before);
}

TEST_F(Moments, ASaveFollowsAFileThatAppearsWhileItIsCreated) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  {
    const Watch watch([&, opened = 0](const std::string& inName, size_t) mutable {
      if (inName == "open" && opened++ == 0) fs::remove(mFile);
      if (inName == "create") Write(K(2));
      return Calls::kGoOn;
    });
    Set(storage, 3);
  }
  EXPECT_EQ(Stored(), 3);
}

TEST_F(Moments, AFileWithANewLinkIsNeitherReadNorWritten) {
  Write(K(1));
  CASettingsStorage storage = Make();
  {
    // The file itself is looked at once it is open, and once it is locked.
    const Watch watch(Before(
        "fstat", [&] { fs::create_hard_link(mFile, mFolder / "other"); }, 1));
    EXPECT_EQ(Number(storage), -1);
  }
  EXPECT_EQ(Content(), K(1));
  fs::remove(mFolder / "other");
  EXPECT_EQ(Number(storage), 1);
}

TEST_F(Moments, AFileIsInPlaceOnlyWhereThePathLeadsToIt) {
  const fs::path folder = mFolder / "folder";
  fs::create_symlink(mFolder, folder);
  std::ofstream(mFolder / "status") << K(1);
  const std::string path = folder / "status";
  CASettingsFile file(path.c_str());
  ASSERT_TRUE(file.OpenForReading());
  EXPECT_TRUE(file.IsInPlace());
  // Of the same number, but on another file system.
  Calls::Get().mIsElsewhere = true;
  EXPECT_FALSE(file.IsInPlace());
  EXPECT_EQ(errno, ESTALE);
  Calls::Get().mIsElsewhere = false;
  EXPECT_TRUE(file.IsInPlace());
  fs::rename(path, mFolder / "aside");
  EXPECT_FALSE(file.IsInPlace());
  EXPECT_EQ(errno, ENOENT);
  fs::copy_file(mFolder / "aside", path);
  EXPECT_FALSE(file.IsInPlace());
  EXPECT_EQ(errno, ESTALE);
  fs::rename(mFolder / "aside", path);
  EXPECT_TRUE(file.IsInPlace());
  fs::remove(folder);
  EXPECT_FALSE(file.IsInPlace());
  EXPECT_EQ(errno, ENOENT);
  fs::create_symlink(mFolder, folder);
  EXPECT_TRUE(file.IsInPlace());
}

TEST_F(Moments, WhyAFileIsNotUsedIsKnownAlsoWhereItsClosingFails) {
  Write(K(1));
  fs::create_hard_link(mFile, mFolder / "other");
  CASettingsFile file(mFile.c_str());
  {
    const Watch watch(Fail("close", EIO));
    EXPECT_FALSE(file.OpenForReading());
    EXPECT_EQ(errno, EPERM);
  }
  fs::remove(mFolder / "other");
  const Watch watch([&](const std::string& inName, size_t) {
    if (inName == "lstat") Replace(K(2));
    return inName == "unlock" ? EIO : Calls::kGoOn;
  });
  EXPECT_FALSE(file.OpenForReading());
  EXPECT_EQ(errno, ESTALE);
}

// What cannot be read.

TEST_F(Moments, AFileThatIsEmptiedWhileItIsReadCostsNobodyWhatHeHas) {
  CASettingsStorage storage = Make();
  Set(storage, 1);
  Write(List(Entry("k", 2) + Entry("x", 3)));
  storage.ForceRefresh();
  {
    const Watch watch([&, reads = 0](const std::string& inName, size_t) mutable {
      if (inName != "pread") return Calls::kGoOn;
      // One byte has been read when another process opens the file to write it.
      if (reads++ == 1) fs::resize_file(mFile, 0);
      return Calls::kOneByte;
    });
    EXPECT_EQ(Number(storage), 1);
  }
  EXPECT_EQ(Stored(), 1);
}

TEST_F(Moments, ADiskThatFailsAMomentIsReadAgain) {
  for (const char* name : {"stat", "open", "fstat", "lstat", "pread"}) {
    Write(K(4));
    CASettingsStorage storage = Make();
    const Watch watch(Fail(name, EIO));
    EXPECT_EQ(Number(storage), 4) << name;
    EXPECT_EQ(Content(), K(4)) << name;
  }
}

TEST_F(Moments, WhatCannotBeReadAtAllIsCorrupt) {
  CASettingsStorage storage = Make();
  Set(storage, 1);
  Write(K(2));
  storage.ForceRefresh();
  {
    const Watch watch(Fail("pread", EIO, 0, 100));
    EXPECT_EQ(Number(storage), -1);
  }
  EXPECT_NE(Content().find("<dict/>"), std::string::npos) << Content();
}

TEST_F(Moments, AProcessWithoutMemoryLeavesTheFileAloneAndReadsItLater) {
  Write(K(2));
  CASettingsStorage storage = Make();
  {
    const Watch watch(Fail("make data", ENOMEM));
    EXPECT_THROW(Set(storage, 3), std::bad_alloc);
  }
  EXPECT_EQ(Content(), K(2));
  EXPECT_EQ(Number(storage), 2);
}

TEST_F(Moments, AForcedRefreshThatFailsForWantOfMemoryIsStillWanted) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  Write(K(2));
  SetTime({1, 0});  // older than what is in hand
  storage.ForceRefresh();
  {
    const Watch watch(Fail("make data", ENOMEM));
    EXPECT_THROW(Number(storage), std::bad_alloc);
  }
  EXPECT_EQ(Number(storage), 2);
}

TEST_F(Moments, AStorageThatCannotBeMadeSaysSo) {
  const Watch watch(Fail("make dictionary", ENOMEM));
  EXPECT_THROW(Make(), std::bad_alloc);
}

// What cannot be written.

TEST_F(Moments, AListThatCannotBeMadeLeavesTheFile) {
  CASettingsStorage storage = Make();
  Set(storage, 1);
  {
    const Watch watch(Fail("make list", ENOMEM));
    Set(storage, 2);
  }
  EXPECT_EQ(Stored(), 1);
  EXPECT_EQ(Number(storage), 2);
}

TEST_F(Moments, AFileThatCannotBeEmptiedStaysAsItWas) {
  CASettingsStorage storage = Make();
  Set(storage, 1);
  const std::string before = Content();
  {
    const Watch watch(Fail("ftruncate", EIO));
    Set(storage, 2);
  }
  EXPECT_EQ(Content(), before);
  EXPECT_EQ(Number(storage), 2) << "the change stands in memory";
}

TEST_F(Moments, AFileThatCannotBeEmptiedAgainUnderItsLockIsNotMixed) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  const std::string theirs = K(7) + std::string(4000, ' ');
  {
    const Watch watch([&](const std::string& inName, size_t) {
      if (inName == "lock") Write(theirs);
      return inName == "ftruncate" && Count("lock") == 1 ? EIO : Calls::kGoOn;
    });
    Set(storage, 2);
  }
  EXPECT_EQ(Content(), theirs);
  // With no time set, the next access takes over what stands there.
  EXPECT_EQ(Number(storage), 7);
}

TEST_F(Moments, AWriteWhoseTimeIsUnknownIsReadBack) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  {
    // Opened, in place, and then asked for its time.
    const Watch watch(Fail("fstat", EIO, 2));
    Set(storage, 2);
    EXPECT_EQ(Count("fstat"), 3);
    EXPECT_EQ(Count("lock"), 1);
  }
  EXPECT_EQ(Stored(), 2);
  {
    const Watch watch;
    EXPECT_EQ(Number(storage), 2);
    EXPECT_EQ(Count("pread"), 1);
  }
  const Watch watch;
  EXPECT_EQ(Number(storage), 2);
  EXPECT_EQ(Count("pread"), 0);
}

TEST_F(Moments, AModeThatMayNotBeSetIsNoReasonNotToSave) {
  CASettingsStorage storage = Make();
  {
    const Watch watch(Fail("fchmod", EPERM, 0, 10));
    Set(storage, 1);
  }
  EXPECT_EQ(Stored(), 1);
}

TEST_F(Moments, AFileThatMayNotBeCreatedIsTriedOnce) {
  CASettingsStorage storage = Make();
  const Watch watch(Fail("create", EACCES, 0, 100));
  EXPECT_EQ(Number(storage), -1);
  EXPECT_EQ(Count("create"), 1);
  Set(storage, 1);
  EXPECT_EQ(Number(storage), 1);
  EXPECT_FALSE(fs::exists(mFile));
}

// Values and times.

TEST_F(Moments, SettingNothingKeepsWhatIsThere) {
  CASettingsStorage storage = Make();
  Set(storage, 1);
  fs::remove(mFile);
  storage.SetNumberValue(CFSTR("k"), nullptr);
  storage.SetStringValue(CFSTR("new"), nullptr);
  EXPECT_EQ(Stored(), 1);
  EXPECT_EQ(storage.GetNumberKeys(), 1u);
}

TEST_F(Moments, ATimeOfNanosecondsOnlyIsATime) {
  Write(K(1));
  SetTime({0, 5});
  CASettingsStorage storage = Make(true);
  EXPECT_EQ(Number(storage), 1);
  Write(K(2));
  EXPECT_EQ(Number(storage), 1) << "the only process does not look again";
}

TEST_F(Moments, ATimeOfZeroIsNone) {
  Write(K(1));
  SetTime({0, 0});
  CASettingsStorage storage = Make(true);
  EXPECT_EQ(Number(storage), 1);
  Write(K(2));
  EXPECT_EQ(Number(storage), 2);
}

}  // namespace
}  // namespace tembra::test
