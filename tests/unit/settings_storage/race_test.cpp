// What happens when others are at work on the file between two steps of an access, or stand a trap
// at its path, or the machine has run out of something.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "SettingsFixture.h"

namespace tembra::test {
namespace {

class Race : public SettingsTest {
 protected:
  static Interposed& Calls() { return Interposed::Get(); }
  // Another process that opens, writes and closes in a moment.
  std::function<void()> Rewrites(const std::string& inText) {
    return [this, inText] { Write(inText); };
  }
  // A list from another process takes the place of the file.
  std::function<void()> Replaces(const std::string& inText) {
    return [this, inText] {
      std::ofstream(mFolder / "new") << inText;
      std::filesystem::rename(mFolder / "new", mFile);
    };
  }
  // The file's second access to its lock: the first look found it wanting.
  void AtSecondLock(std::function<void()> inHook) {
    Calls().mBeforeLock = [inHook = std::move(inHook)] { Calls().mBeforeLock = inHook; };
  }
  void PlantVictim() { std::ofstream(mFolder / "victim") << "precious"; }
  std::string Victim() { return ReadFile(mFolder / "victim"); }
};

TEST_F(Race, WhatIsWrittenToAnEmptyFileMeanwhileIsTakenOver) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  Write("");
  storage.ForceRefresh();
  AtSecondLock(Rewrites(List("k", 2)));
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_EQ(ReadFile(mFile), List("k", 2));
}

TEST_F(Race, WhatIsWrittenToACorruptFileMeanwhileIsTakenOver) {
  CASettingsStorage storage = Make();
  Write("junk");
  AtSecondLock(Rewrites(List("k", 2)));
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_EQ(ReadFile(mFile), List("k", 2));
}

TEST_F(Race, WhatTakesTheCorruptFilesPlaceIsTakenOver) {
  CASettingsStorage storage = Make();
  Write("junk");
  AtSecondLock(Replaces(List("k", 2)));
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_EQ(ReadFile(mFile), List("k", 2));
}

TEST_F(Race, WhatIsWrittenToANewFileMeanwhileIsTakenOver) {
  CASettingsStorage storage = Make();
  Calls().mBeforeLock = Rewrites(List("k", 2));
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_EQ(ReadFile(mFile), List("k", 2));
}

TEST_F(Race, AFileThatTakesThePlaceOfTheOneBeingReadIsRead) {
  Write(List("k", 1));
  CASettingsStorage storage = Make();
  Calls().mBeforeLock = Replaces(List("k", 2));
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_EQ(ReadFile(mFile), List("k", 2));
}

TEST_F(Race, AFileThatVanishesWhileItIsReadIsWrittenAnew) {
  Write(List("k", 1));
  CASettingsStorage storage = Make();
  Calls().mBeforeLock = [this] { std::filesystem::remove(mFile); };
  EXPECT_EQ(Number(storage, "k"), -1);
  EXPECT_NE(ReadFile(mFile).find("<dict/>"), std::string::npos);
}

TEST_F(Race, OfTwoSaversTheLaterHasTheWholeFile) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  // The other is done between this one's opening and its lock; its text is the longer one.
  Calls().mBeforeLock = Rewrites(List(std::string(5000, 'x'), 2));
  Set(storage, "k", 3);
  EXPECT_EQ(Stored("k"), 3);
  EXPECT_EQ(ReadFile(mFile).find("xxx"), std::string::npos);
}

TEST_F(Race, ASaverEmptiesTheFileBeforeItHasTheLock) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  std::string seen = "nothing";
  Calls().mBeforeLock = [&] { seen = ReadFile(mFile); };
  Set(storage, "k", 2);
  EXPECT_EQ(seen, "");
}

TEST_F(Race, ASaveFollowsAFileThatTookThePlace) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  Calls().mBeforeLock = Replaces(List("k", 2));
  Set(storage, "k", 3);
  EXPECT_EQ(Stored("k"), 3);
  EXPECT_EQ(Status().st_nlink, 1u);
}

TEST_F(Race, ASaveMakesTheFileThatVanished) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  Calls().mBeforeLock = [this] { std::filesystem::remove(mFile); };
  Set(storage, "k", 3);
  EXPECT_EQ(Stored("k"), 3);
}

TEST_F(Race, AFileThatNeverStandsStillIsGivenUp) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  int replacements = 0;
  std::function<void()> again = [&] {
    Replaces(List("k", ++replacements))();
    Calls().mBeforeLock = again;
  };
  Calls().mBeforeLock = again;
  storage.ForceRefresh();
  EXPECT_EQ(Number(storage, "k"), 1);
  EXPECT_LT(replacements, 20);
  Set(storage, "k", 9);
  EXPECT_LT(replacements, 50);
  Calls().mBeforeLock = nullptr;
  EXPECT_NE(Stored("k"), 9);
}

TEST_F(Race, AnInterruptedLockIsTriedAgain) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  Calls().mLockErrors = 3;
  Calls().mLockError = EINTR;
  Set(storage, "k", 2);
  EXPECT_EQ(Stored("k"), 2);
}

TEST_F(Race, ASaveThatGetsNoLockLeavesTheFileEmptied) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  Calls().mLockErrors = 1;
  Calls().mLockError = ENOLCK;
  Set(storage, "k", 2);
  EXPECT_EQ(ReadFile(mFile), "");
  // Whoever looks next puts back what he has.
  SetTime({Time().tv_sec + 1, 0});
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_EQ(Stored("k"), 2);
}

TEST_F(Race, AReaderThatGetsNoLockKeepsWhatIsInHand) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  SetElsewhere("k", 2);
  Calls().mLockErrors = 1;
  Calls().mLockError = ENOLCK;
  EXPECT_EQ(Number(storage, "k"), 1);
  EXPECT_EQ(Number(storage, "k"), 2);
}

TEST_F(Race, ADiskThatFillsUpLeavesNoHalfFile) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  for (const long limit : {0L, 1L, 50L}) {
    Calls().mWriteLimit = limit;
    Set(storage, "k", 2);
    EXPECT_EQ(ReadFile(mFile), "") << limit;
    EXPECT_EQ(Number(storage, "k"), 2);
  }
  // With room again, the next access brings it in.
  Calls().mWriteLimit = -1;
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_EQ(Stored("k"), 2);
}

TEST_F(Race, WithoutDescriptorsTheFileIsLeftAlone) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  SetElsewhere("k", 2);
  for (const int error : {EMFILE, ENFILE, ENOMEM}) {
    Calls().mReadingError = error;
    EXPECT_EQ(Number(storage, "k"), 1);
    EXPECT_EQ(ReadFile(mFile).find("<dict/>"), std::string::npos);
  }
  Calls().mReadingError = 0;
  EXPECT_EQ(Number(storage, "k"), 2);
}

TEST_F(Race, AFileThatCannotBeOpenedForAWhileIsLeftAlone) {
  Write(List("k", 1));
  CASettingsStorage storage = Make();
  Calls().mReadingError = EACCES;
  EXPECT_EQ(Number(storage, "k"), -1);
  Calls().mReadingError = 0;
  EXPECT_EQ(ReadFile(mFile), List("k", 1));
  EXPECT_EQ(Number(storage, "k"), 1);
}

TEST_F(Race, AFileThatMayBeReadButNotWrittenIsRead) {
  Write(List("k", 1));
  CASettingsStorage storage = Make();
  Calls().mWritingError = EACCES;
  EXPECT_EQ(Number(storage, "k"), 1);
  Set(storage, "k", 2);
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_EQ(ReadFile(mFile), List("k", 1));
}

// Traps.

TEST_F(Race, ALinkIsNeitherReadNorWrittenThrough) {
  PlantVictim();
  std::ofstream(mFolder / "list") << List("k", 4);
  for (const char* target : {"victim", "list", "nothing"}) {
    std::filesystem::remove(mFile);
    std::filesystem::create_symlink(mFolder / target, mFile);
    CASettingsStorage storage = Make();
    EXPECT_EQ(Number(storage, "k"), -1) << target;
    Set(storage, "k", 5);
    EXPECT_EQ(Number(storage, "k"), 5) << target;
    EXPECT_TRUE(std::filesystem::is_symlink(mFile));
  }
  EXPECT_EQ(Victim(), "precious");
  EXPECT_EQ(ReadFile(mFolder / "list"), List("k", 4));
  EXPECT_FALSE(std::filesystem::exists(mFolder / "nothing"));
}

TEST_F(Race, ASecondLinkToAFileIsNotWritten) {
  PlantVictim();
  std::filesystem::create_hard_link(mFolder / "victim", mFile);
  CASettingsStorage storage = Make();
  EXPECT_EQ(Number(storage, "k"), -1);
  Set(storage, "k", 5);
  EXPECT_EQ(Number(storage, "k"), 5);
  EXPECT_EQ(Victim(), "precious");
}

TEST_F(Race, ALinkPlantedWhileTheLockIsWaitedForIsNotWritten) {
  PlantVictim();
  for (const bool isSymbolic : {true, false}) {
    std::filesystem::remove(mFile);
    CASettingsStorage storage = Make();
    MakeCurrent(storage);
    Calls().mBeforeLock = [&] {
      std::filesystem::remove(mFile);
      if (isSymbolic) {
        std::filesystem::create_symlink(mFolder / "victim", mFile);
      } else {
        std::filesystem::create_hard_link(mFolder / "victim", mFile);
      }
    };
    Set(storage, "k", 2);
    EXPECT_EQ(Victim(), "precious");
    EXPECT_EQ(Number(storage, "k"), 2);
  }
}

TEST_F(Race, SpecialFilesAreNotOpenedForLong) {
  const auto expectFree = [&](const char* inKind) {
    CASettingsStorage storage = Make();
    EXPECT_EQ(Number(storage, "k"), -1) << inKind;
    Set(storage, "k", 5);
    EXPECT_EQ(Number(storage, "k"), 5) << inKind;
  };
  ASSERT_EQ(mkfifo(mFile.c_str(), 0666), 0);
  expectFree("FIFO");
  EXPECT_TRUE(S_ISFIFO(Status().st_mode));
  std::filesystem::remove(mFile);
  std::filesystem::create_directory(mFile);
  expectFree("directory");
  EXPECT_TRUE(S_ISDIR(Status().st_mode));
  std::filesystem::remove(mFile);
  ASSERT_EQ(mknod(mFile.c_str(), S_IFSOCK | 0666, 0), 0);
  expectFree("socket");
  EXPECT_TRUE(S_ISSOCK(Status().st_mode));
}

TEST_F(Race, NoDescriptorIsLeftOpen) {
  const auto count = [] {
    int number = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      number += entry.path().empty() ? 0 : 1;
    }
    return number;
  };
  const int before = count();
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  Write("junk");
  storage.ForceRefresh();
  EXPECT_EQ(Number(storage, "k"), -1);
  Calls().mLockErrors = 1;
  Calls().mLockError = ENOLCK;
  Set(storage, "k", 1);
  Calls().mBeforeLock = Replaces(List("k", 2));
  Set(storage, "k", 1);
  EXPECT_EQ(count(), before);
}

}  // namespace
}  // namespace tembra::test
