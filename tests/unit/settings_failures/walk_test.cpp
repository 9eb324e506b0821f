// Each call that an access to the shared settings makes fails in its turn.

#include <errno.h>
#include <sys/file.h>

#include <array>
#include <functional>
#include <new>
#include <optional>
#include <set>

#include "FailuresFixture.h"
#include "persistence/CASettingsStorage.h"
#include "support/CACFString.h"

namespace tembra::test {
namespace {

constexpr std::array kErrors = {EIO, ENOSPC, EACCES, ENOENT, ENOMEM, EMFILE};

SInt32 Number(CASettingsStorage& inStorage, const char* inKey) {
  SInt32 value = 12345;
  inStorage.CopySInt32Value(CACFString(inKey).GetCFString(), value, -1);
  return value;
}

void Set(CASettingsStorage& inStorage, const char* inKey, SInt32 inValue) {
  inStorage.SetSInt32Value(CACFString(inKey).GetCFString(), inValue);
}

// What stands at the path, what a process has in hand, and what it does.
struct Scenario {
  const char* mName;
  std::optional<std::string> mBefore;  // no file if none
  bool mHasIt;                         // the storage has read "kept" and "k" before
  std::function<void(CASettingsStorage&)> mDo;
  SInt32 mK;     // what "k" is afterwards,
  SInt32 mKept;  // and "kept", if nothing fails

  friend void PrintTo(const Scenario& inScenario, std::ostream* outText) {
    *outText << inScenario.mName;
  }
};

class Walk : public FailuresTest, public testing::WithParamInterface<Scenario> {
 protected:
  struct Ended {
    std::string mContent;
    SInt32 mK = 0;
    SInt32 mKept = 0;
    std::vector<std::string> mNames;
  };

  // Does it in a fresh place, with what a process has in hand already, and then looks at it with
  // nothing in the way.
  Ended Run(const std::function<int(const std::string&, size_t)>& inOnCall) {
    const Scenario& scenario = GetParam();
    fs::remove(mFile);
    const size_t descriptors = CountDescriptors();
    Ended ended;
    {
      CASettingsStorage storage(mFile.c_str(), 0640, kCFPropertyListXMLFormat_v1_0, false, false);
      if (scenario.mHasIt) {
        Write(List(Entry("kept", 7) + Entry("k", 1)));
        SetTime({1000, 0});
        EXPECT_EQ(Number(storage, "k"), 1);
        fs::remove(mFile);
      }
      if (scenario.mBefore) {
        Write(*scenario.mBefore);
        SetTime({2000, 0});
      }
      {
        const Watch watch([&](const std::string& inName, size_t inNumber) {
          // A parser without memory cannot be told from one that finds no list.
          return inOnCall && inName != "make dictionary" ? inOnCall(inName, inNumber)
                                                         : Calls::kGoOn;
        });
        try {
          scenario.mDo(storage);
        } catch (const std::bad_alloc&) {
        }
      }
      ended.mNames = Calls::Get().mNames;
      ended.mContent = fs::exists(mFile) ? Content() : "";
      EXPECT_TRUE(LockIsFree());
      // What became of it is seen with the next access, and no later change is in the way.
      ended.mK = Number(storage, "k");
      ended.mKept = Number(storage, "kept");
      Set(storage, "later", 3);
    }
    CASettingsStorage fresh(mFile.c_str(), 0, kCFPropertyListXMLFormat_v1_0, false, true);
    EXPECT_EQ(Number(fresh, "later"), 3);
    EXPECT_EQ(Number(fresh, "k"), ended.mK) << "what is in hand is not what is in the file";
    EXPECT_EQ(Number(fresh, "kept"), ended.mKept);
    EXPECT_EQ(CountDescriptors(), descriptors);
    return ended;
  }
  bool LockIsFree() const {
    const int file = open(mFile.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return errno == ENOENT;
    const bool isFree = flock(file, LOCK_EX | LOCK_NB) == 0;
    close(file);
    return isFree;
  }
  // Whole, or as it was, or empty: no other process is made to lose what it has.
  void ExpectReadable(const std::string& inContent) const {
    EXPECT_TRUE(inContent.empty() || inContent == GetParam().mBefore || IsList(inContent))
        << inContent;
  }
  void ExpectDone(const Ended& inEnded) const {
    EXPECT_TRUE(IsList(inEnded.mContent)) << inEnded.mContent;
    EXPECT_EQ(inEnded.mK, GetParam().mK);
    EXPECT_EQ(inEnded.mKept, GetParam().mKept);
  }
};

const std::string kList =
    "<plist version=\"1.0\"><dict><key>kept</key><integer>7</integer><key>k</key>"
    "<integer>1</integer></dict></plist>";
const auto kLook = [](CASettingsStorage& ioStorage) { Number(ioStorage, "k"); };
const auto kSet = [](CASettingsStorage& ioStorage) { Set(ioStorage, "k", 2); };
const auto kRemove = [](CASettingsStorage& ioStorage) { ioStorage.RemoveValue(CFSTR("k")); };

INSTANTIATE_TEST_SUITE_P(
    , Walk,
    testing::Values(Scenario{"FirstLook", kList, false, kLook, 1, 7},
                    Scenario{"FirstLookWithoutAFile", std::nullopt, false, kLook, -1, -1},
                    Scenario{"FirstChange", kList, false, kSet, 2, 7},
                    Scenario{"LookAfterAChangeElsewhere", kList, true, kLook, 1, 7},
                    Scenario{"LookAtAnEmptyFile", "", true, kLook, 1, 7},
                    Scenario{"LookAtACorruptFile", "junk", true, kLook, -1, -1},
                    Scenario{"LookForAFileThatIsGone", std::nullopt, true, kLook, 1, 7},
                    Scenario{"Change", kList, true, kSet, 2, 7},
                    Scenario{"Removal", kList, true, kRemove, -1, 7}),
    [](const auto& inInfo) { return std::string(inInfo.param.mName); });

TEST_P(Walk, WithNothingInTheWayItIsDone) {
  const Ended ended = Run(nullptr);
  ExpectDone(ended);
  EXPECT_GT(ended.mNames.size(), 8u);
}

TEST_P(Walk, NoCallShowsThatASignalInterruptedIt) {
  const std::string content = Run(nullptr).mContent;
  std::set<std::string> interrupted;
  for (size_t step = 0;; ++step) {
    int interruptions = 3;
    const Ended ended = Run([&](const std::string& inName, size_t inNumber) {
      // A close is not to be made again, and the unlocking before it is for a forked child only.
      const bool isOne = inName == "open" || inName == "create" || inName == "lock" ||
                         inName == "pread" || inName == "pwrite" || inName == "ftruncate" ||
                         inName == "fchmod" || inName == "nanosleep";
      if (inNumber < step || !isOne || interruptions == 0) return Calls::kGoOn;
      --interruptions;
      interrupted.insert(inName);
      return EINTR;
    });
    SCOPED_TRACE("step " + std::to_string(step));
    ExpectDone(ended);
    EXPECT_EQ(ended.mContent, content);
    if (interruptions == 3) break;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GE(interrupted.size(), 2u);
}

TEST_P(Walk, AnyCallMayMoveASingleByte) {
  const std::string content = Run(nullptr).mContent;
  const Ended ended = Run([](const std::string&, size_t) { return Calls::kOneByte; });
  ExpectDone(ended);
  EXPECT_EQ(ended.mContent, content);
}

TEST_P(Walk, OneFailureCostsNoKeyOfTheFile) {
  for (const int error : kErrors) {
    bool isOver = false;
    for (size_t step = 0; !isOver; ++step) {
      std::string failed = "nothing";
      const Ended ended = Run([&](const std::string& inName, size_t inNumber) {
        if (inNumber != step) return Calls::kGoOn;
        failed = inName;
        return error;
      });
      isOver = step >= ended.mNames.size();
      SCOPED_TRACE(failed + " fails with " + strerrorname_np(error) + " at step " +
                   std::to_string(step));
      ExpectReadable(ended.mContent);
      // The change is made, or the file is ahead of it.
      EXPECT_TRUE(ended.mK == GetParam().mK || ended.mK == 1) << ended.mK;
      // A first change that could not look at the file first has nothing but itself to write.
      if (failed != "lock" || GetParam().mHasIt) EXPECT_EQ(ended.mKept, GetParam().mKept);
      ASSERT_FALSE(HasFailure());
    }
  }
}

TEST_P(Walk, AMachineThatFailsFromSomeCallOnLeavesAReadableFile) {
  for (const int error : kErrors) {
    bool isOver = false;
    for (size_t step = 0; !isOver; ++step) {
      const Ended ended = Run([&](const std::string&, size_t inNumber) {
        return inNumber < step ? Calls::kGoOn : error;
      });
      isOver = step >= ended.mNames.size();
      SCOPED_TRACE(std::string("from step ") + std::to_string(step) + " on " +
                   strerrorname_np(error));
      ExpectReadable(ended.mContent);
      EXPECT_TRUE(ended.mK == GetParam().mK || ended.mK == 1) << ended.mK;
      EXPECT_EQ(ended.mKept, GetParam().mKept);
      ASSERT_FALSE(HasFailure());
    }
  }
}

TEST_P(Walk, ACallThatAlwaysFailsLeavesAReadableFile) {
  const Ended whole = Run(nullptr);
  for (const std::string& name : std::set<std::string>(whole.mNames.begin(), whole.mNames.end())) {
    for (const int error : kErrors) {
      const Ended ended = Run(
          [&](const std::string& inName, size_t) { return inName == name ? error : Calls::kGoOn; });
      SCOPED_TRACE(name + " always fails with " + strerrorname_np(error));
      ExpectReadable(ended.mContent);
      ASSERT_FALSE(HasFailure());
    }
  }
}

}  // namespace
}  // namespace tembra::test
