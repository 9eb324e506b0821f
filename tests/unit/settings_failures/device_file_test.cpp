// Each call that reads or replaces the file of device settings fails in its turn.

#include <errno.h>
#include <sys/wait.h>

#include <array>
#include <set>

#include "FailuresFixture.h"
#include "persistence/HP_DeviceSettings_File.h"

namespace tembra::test {
namespace {

constexpr std::array kErrors = {EIO, ENOSPC, EACCES, ENOENT, ENOMEM, EMFILE};
const std::string kOld = "the old content";
const std::string kNew = "the new content, which is longer";

class DeviceFile : public FailuresTest {
 protected:
  using OnCall = std::function<int(const std::string&, size_t)>;

  void Replace() const {
    const CACFObject<CFDataRef> data(CFDataCreate(
        nullptr, reinterpret_cast<const UInt8*>(kNew.data()), static_cast<CFIndex>(kNew.size())));
    HP_DeviceSettings_File::Replace(mFile.c_str(), data.GetObject());
  }
  void Replace(OnCall inOnCall) const {
    const size_t descriptors = CountDescriptors();
    {
      const Watch watch(std::move(inOnCall));
      Replace();
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
  }
  std::string Copy(bool& outExists, OnCall inOnCall = nullptr) const {
    const size_t descriptors = CountDescriptors();
    std::string content = "null";
    {
      const Watch watch(std::move(inOnCall));
      const CACFObject<CFDataRef> data(
          HP_DeviceSettings_File::CopyContent(mFile.c_str(), outExists));
      if (data.IsValid()) {
        content.assign(reinterpret_cast<const char*>(CFDataGetBytePtr(data.GetObject())),
                       static_cast<size_t>(CFDataGetLength(data.GetObject())));
      }
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    return content;
  }
  void WriteOld() const {
    fs::remove(mFile);
    Write(kOld);
    EXPECT_EQ(chmod(mFile.c_str(), 0640), 0);
  }
  mode_t Mode() const {
    struct stat status = {};
    EXPECT_EQ(lstat(mFile.c_str(), &status), 0);
    return status.st_mode & 07777;
  }
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(mFolder)) names.insert(entry.path().filename());
    return names;
  }
  std::string Hidden(const std::string& inRest) const {
    return "." + mFile.filename().string() + "." + inRest;
  }
  void Plant(const std::string& inName) const { std::ofstream(mFolder / inName) << "half"; }

  static OnCall FailAt(size_t inStep, int inError, std::string& outFailed) {
    return [=, &outFailed](const std::string& inName, size_t inNumber) {
      if (inNumber != inStep) return Calls::kGoOn;
      outFailed = inName;
      return inError;
    };
  }
  static OnCall Fail(const std::string& inName, int inError) {
    return [=](const std::string& inCalled, size_t) {
      return inCalled == inName ? inError : Calls::kGoOn;
    };
  }
};

// The id of a process that has ended.
pid_t Ended() {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  int status = 0;
  waitpid(child, &status, 0);
  return child;
}

// Reading.

TEST_F(DeviceFile, WhatCannotBeReadExistsAllTheSame) {
  WriteOld();
  for (const int error : kErrors) {
    bool isOver = false;
    for (size_t step = 0; !isOver; ++step) {
      std::string failed = "nothing";
      bool exists = false;
      const std::string content = Copy(exists, FailAt(step, error, failed));
      isOver = failed == "nothing";
      SCOPED_TRACE(failed + " fails with " + strerrorname_np(error));
      // A save is not to begin anew because of it.
      EXPECT_EQ(exists, failed != "open" || error != ENOENT);
      EXPECT_EQ(content, isOver || failed == "close" ? kOld : "null");
      ASSERT_FALSE(HasFailure());
    }
  }
}

TEST_F(DeviceFile, AnInterruptedReadIsMadeAgain) {
  WriteOld();
  for (const char* name : {"open", "read", "close"}) {
    bool exists = false;
    EXPECT_EQ(Copy(exists,
                   [&, left = 3](const std::string& inName, size_t) mutable {
                     return inName == name && left-- > 0 ? EINTR : Calls::kGoOn;
                   }),
              kOld)
        << name;
    EXPECT_TRUE(exists);
  }
}

TEST_F(DeviceFile, AReadMayGiveOneByteAtATime) {
  WriteOld();
  bool exists = false;
  EXPECT_EQ(Copy(exists, [](const std::string&, size_t) { return Calls::kOneByte; }), kOld);
}

TEST_F(DeviceFile, AFileThatShrinksWhileItIsReadIsNotRead) {
  WriteOld();
  bool exists = false;
  EXPECT_EQ(Copy(exists,
                 [&](const std::string& inName, size_t) {
                   if (inName == "read") fs::resize_file(mFile, 3);
                   return Calls::kGoOn;
                 }),
            "null");
  EXPECT_TRUE(exists);
}

TEST_F(DeviceFile, OnlyNoFileAndAnEmptyOneAreNone) {
  bool exists = true;
  EXPECT_EQ(Copy(exists), "null");
  EXPECT_FALSE(exists);
  Write("");
  EXPECT_EQ(Copy(exists), "null");
  EXPECT_FALSE(exists);
  fs::resize_file(mFile, (std::uintmax_t{64} << 20) + 1);
  EXPECT_EQ(Copy(exists), "null");
  EXPECT_TRUE(exists);
  fs::remove(mFile);
  fs::create_directory(mFile);
  EXPECT_EQ(Copy(exists), "null");
  EXPECT_TRUE(exists);
}

// Replacing.

TEST_F(DeviceFile, AFailureLeavesTheOldFileOrTheNewOne) {
  const std::string leftover = Hidden(std::to_string(Ended()) + ".0");
  size_t replaced = 0;
  for (const bool isThere : {true, false}) {
    for (const int error : kErrors) {
      bool isOver = false;
      for (size_t step = 0; !isOver; ++step) {
        fs::remove(mFile);
        if (isThere) WriteOld();
        Plant(leftover);
        std::string failed = "nothing";
        Replace(FailAt(step, error, failed));
        isOver = failed == "nothing";
        SCOPED_TRACE(failed + " fails with " + strerrorname_np(error) + " at step " +
                     std::to_string(step) + (isThere ? "" : ", no file"));
        const bool isNew = fs::exists(mFile) && Content() == kNew;
        replaced += isNew ? 1 : 0;
        if (isThere) {
          EXPECT_TRUE(isNew || Content() == kOld) << Content();
          // Whoever is told that there is no file makes a new one.
          if (failed != "open" || error != ENOENT) EXPECT_EQ(Mode(), 0640u);
        } else {
          EXPECT_TRUE(isNew || !fs::exists(mFile));
        }
        // Nobody is told of these, and none is a reason not to save.
        if (failed == "kill" || failed == "unlink" || failed == "lstat" || failed == "fchown") {
          EXPECT_TRUE(isNew);
        }
        if (failed == "write" || failed == "rename" || failed == "fchmod" || failed == "fstat") {
          EXPECT_FALSE(isNew);
        }
        // Nothing else is left behind.
        fs::remove(mFolder / leftover);
        EXPECT_EQ(Names().size(), isThere || isNew ? 1u : 0u);
        ASSERT_FALSE(HasFailure());
      }
    }
  }
  EXPECT_GT(replaced, 2 * kErrors.size());
}

TEST_F(DeviceFile, AMachineThatFailsFromSomeCallOnLeavesTheOldFileOrTheNewOne) {
  for (const int error : kErrors) {
    bool isOver = false;
    for (size_t step = 0; !isOver; ++step) {
      WriteOld();
      isOver = true;
      Replace([&](const std::string&, size_t inNumber) {
        if (inNumber < step) return Calls::kGoOn;
        isOver = false;
        return error;
      });
      EXPECT_TRUE(Content() == kOld || Content() == kNew) << Content();
      EXPECT_EQ(Mode(), 0640u);
      // What could not be removed goes with some later process.
      for (const std::string& name : Names()) {
        if (name != mFile.filename()) fs::remove(mFolder / name);
      }
    }
  }
}

TEST_F(DeviceFile, AnInterruptedWriteIsMadeAgain) {
  for (const char* name : {"open", "create", "write", "fchown", "fchmod", "close"}) {
    WriteOld();
    int left = 3;
    Replace([&](const std::string& inName, size_t) {
      return inName == name && left-- > 0 ? EINTR : Calls::kGoOn;
    });
    EXPECT_LT(left, 3) << name;
    EXPECT_EQ(Content(), kNew) << name;
    EXPECT_EQ(Mode(), 0640u) << name;
    EXPECT_EQ(Names().size(), 1u) << name;
  }
}

TEST_F(DeviceFile, AWriteMayTakeOneByteAtATime) {
  WriteOld();
  Replace([](const std::string&, size_t) { return Calls::kOneByte; });
  EXPECT_EQ(Content(), kNew);
}

TEST_F(DeviceFile, ADiskThatTellsOnlyAtTheEndThatItIsFullLeavesTheOldFile) {
  WriteOld();
  int files = 0;
  Replace([&](const std::string& inName, size_t) {
    if (inName == "create") ++files;
    return inName == "close" && files > 0 ? ENOSPC : Calls::kGoOn;
  });
  EXPECT_EQ(files, 1);
  EXPECT_EQ(Content(), kOld);
  EXPECT_EQ(Names().size(), 1u);
}

TEST_F(DeviceFile, AnOwnerThatMayNotBeGivenIsNoReasonNotToSave) {
  WriteOld();
  Replace(Fail("fchown", EPERM));
  EXPECT_EQ(Content(), kNew);
  EXPECT_EQ(Mode(), 0640u);
}

TEST_F(DeviceFile, TheOwnerIsKeptWhereItMayBe) {
  WriteOld();
  if (chown(mFile.c_str(), 12345, 54321) != 0) GTEST_SKIP() << "may not give files away";
  Replace();
  struct stat status = {};
  ASSERT_EQ(lstat(mFile.c_str(), &status), 0);
  EXPECT_EQ(Content(), kNew);
  EXPECT_EQ(status.st_uid, 12345u);
  EXPECT_EQ(status.st_gid, 54321u);
}

// What others left.

TEST_F(DeviceFile, WhatEndedProcessesLeftGoesAndNothingElse) {
  WriteOld();
  const std::string gone = std::to_string(Ended());
  const std::set<std::string> kept = {
      Hidden(std::to_string(getpid()) + ".x"),  // a living one's
      Hidden("1.0"),                            // a living one's of another user
      Hidden(gone),                             // no number follows
      Hidden(gone + "x0"),
      Hidden(".0"),  // no process
      Hidden("x.0"),
      Hidden("0.0"),
      Hidden("-" + gone + ".0"),
      Hidden("99999999999999999999.0"),
      ".other.plist." + gone + ".0",
      mFile.filename(),
  };
  for (const std::string& name : kept) {
    if (name != mFile.filename()) Plant(name);
  }
  Plant(Hidden(gone + ".0"));
  Plant(Hidden(gone + ".17"));
  Replace();
  EXPECT_EQ(Names(), kept);
}

TEST_F(DeviceFile, AnotherUsersLivingProcessKeepsWhatItWrites) {
  WriteOld();
  const std::string name = Hidden(std::to_string(Ended()) + ".0");
  Plant(name);
  Replace(Fail("kill", EPERM));
  EXPECT_EQ(Names(), (std::set<std::string>{mFile.filename(), name}));
  Replace();
  EXPECT_EQ(Names(), std::set<std::string>{mFile.filename()});
}

TEST_F(DeviceFile, WhatAnEarlierProcessWithThisIdLeftIsNotInTheWay) {
  WriteOld();
  // Where the next numbers start.
  std::string path;
  Replace([&](const std::string& inName, size_t) {
    if (inName == "rename") {
      for (const std::string& name : Names()) {
        if (name != mFile.filename()) path = name;
      }
    }
    return Calls::kGoOn;
  });
  const size_t dot = path.rfind('.');
  ASSERT_NE(dot, std::string::npos) << path;
  const int number = std::stoi(path.substr(dot + 1));
  WriteOld();
  for (int i = 1; i <= 3; ++i) Plant(path.substr(0, dot + 1) + std::to_string(number + i));
  Replace();
  EXPECT_EQ(Content(), kNew);
  EXPECT_EQ(Names().size(), 4u) << "they may be a living one's";
}

}  // namespace
}  // namespace tembra::test
