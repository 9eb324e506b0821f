// Many processes that write one file, and processes that are killed as they write.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Storage.h"
#include "corefoundation/Object.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

constexpr int kWriters = 8;
constexpr SInt32 kValues = 1000;
constexpr SInt32 kKeys = 16;
constexpr int kParts = 4;
constexpr int kKills = 500 / kParts;

std::string KeyOf(int inWriter, SInt32 inValue) {
  return "writer " + std::to_string(inWriter) + " key " + std::to_string(inValue % kKeys);
}

bool AllHaveEnded(const std::vector<pid_t>& inProcesses) {
  return std::all_of(inProcesses.begin(), inProcesses.end(), [](pid_t inProcess) {
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(inProcess), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == inProcess;
  });
}

class Writers : public StorageTest {
 protected:
  // As the storage reads: under the lock. A writer empties the file before it waits for the lock,
  // so that what is not whole must be gone when looked at again.
  void LookIn(int& ioWhole, int& ioEmpty) const {
    const int file = open(mFile.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return;
    ASSERT_EQ(flock(file, LOCK_EX), 0);
    std::string text = DescribeFile(mFile);
    if (text == "(unreadable)") text = DescribeFile(mFile);
    if (text == "(unreadable)") {
      struct stat status = {};
      EXPECT_EQ(fstat(file, &status), 0);
      EXPECT_EQ(status.st_size, 0) << ReadFile(mFile);
      ++ioEmpty;
    } else {
      ++ioWhole;
    }
    flock(file, LOCK_UN);
    close(file);
  }
};

TEST_F(Writers, EightThatKnowNothingOfEachOtherNeverLeaveTheFileUnreadable) {
  std::vector<pid_t> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.push_back(Start([&] {
      CASettingsStorage storage = Make();
      for (SInt32 value = 1; value <= kValues; ++value) {
        Set(storage, KeyOf(writer, value), value);
      }
    }));
  }
  int whole = 0;
  int empty = 0;
  while (!AllHaveEnded(writers)) {
    LookIn(whole, empty);
    usleep(500);
  }
  for (const pid_t writer : writers) ExpectGoodEnd(writer);

  // At rest. Each value is one that its writer wrote, and the last of all is there.
  CASettingsStorage storage = Make();
  UInt32 found = 0;
  int complete = 0;
  for (int writer = 0; writer < kWriters; ++writer) {
    for (SInt32 key = 0; key < kKeys; ++key) {
      const SInt32 value = Get(storage, KeyOf(writer, key));
      if (value == -1) continue;
      ++found;
      EXPECT_GE(value, 1);
      EXPECT_LE(value, kValues);
      EXPECT_EQ(value % kKeys, key);
    }
    complete += Get(storage, KeyOf(writer, kValues)) == kValues ? 1 : 0;
  }
  EXPECT_EQ(storage.GetNumberKeys(), found) << "and no other key";
  EXPECT_GE(complete, 1);
  EXPECT_EQ(Python("print(describe(plistlib.load(open(sys.argv[1], 'rb'))))", mFile),
            DescribeFile(mFile) + "\n");
  std::printf("seen %d times whole and %d times just emptied; %u of %d keys kept, %d last values\n",
              whole, empty, found, kWriters * kKeys, complete);
  EXPECT_GT(whole, 0);
}

TEST_F(Writers, EightThatTakeTurnsLoseNothing) {
  const std::string turn = mFolder / "turn";
  std::vector<pid_t> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.push_back(Start([&] {
      const int file = open(turn.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
      ASSERT_GE(file, 0);
      CASettingsStorage storage = Make();
      for (SInt32 value = 1; value <= kValues; ++value) {
        ASSERT_EQ(flock(file, LOCK_EX), 0);
        // Two changes may fall into one tick of the file's clock.
        storage.ForceRefresh();
        const SInt32 count = Get(storage, "count");
        Set(storage, "count", count == -1 ? 1 : count + 1);
        if (value > kValues - kKeys) Set(storage, KeyOf(writer, value), value);
        ASSERT_EQ(flock(file, LOCK_UN), 0);
      }
    }));
  }
  for (const pid_t writer : writers) ExpectGoodEnd(writer);
  CASettingsStorage storage = Make();
  EXPECT_EQ(Get(storage, "count"), kWriters * kValues);
  EXPECT_EQ(storage.GetNumberKeys(), UInt32{kWriters * kKeys + 1});
  for (int writer = 0; writer < kWriters; ++writer) {
    for (SInt32 value = kValues - kKeys + 1; value <= kValues; ++value) {
      EXPECT_EQ(Get(storage, KeyOf(writer, value)), value);
    }
  }
}

// Some pages long, and it shows if it is not of one piece.
cf::Owned<CFDictionaryRef> Record(SInt32 inNumber) {
  const std::string number = std::to_string(inNumber);
  std::string fill;
  while (fill.size() < 12000) fill += number + ",";
  const void* keys[] = {CFSTR("number"), CFSTR("fill")};
  const CACFString first(number.c_str());
  const CACFString second(fill.c_str());
  const void* values[] = {first.GetCFString(), second.GetCFString()};
  return cf::Owned<CFDictionaryRef>(CFDictionaryCreate(
      nullptr, keys, values, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

std::string TextAt(CFDictionaryRef inRecord, CFStringRef inKey) {
  const auto string = static_cast<CFStringRef>(CFDictionaryGetValue(inRecord, inKey));
  std::vector<char> text(20000);
  EXPECT_TRUE(CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()),
                                 kCFStringEncodingUTF8));
  return text.data();
}

class Killed : public Writers, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Part, Killed, testing::Range(1, kParts + 1));

TEST_P(Killed, FiveHundredThatAreKilledAsTheyWriteHarmNobody) {
  const unsigned seed = std::random_device()();
  std::mt19937 random(seed);
  std::uniform_int_distribution<useconds_t> delay(0, 2000);
  const std::filesystem::path after = mFolder / "after";
  std::filesystem::create_directory(after);
  int whole = 0;
  int empty = 0;
  int half = 0;
  for (int kill_ = 0; kill_ < kKills; ++kill_) {
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t writer = Start([&] {
      CASettingsStorage storage = Make();
      for (SInt32 number = 1;; ++number) {
        storage.SetDictionaryValue(CFSTR("record"), Record(number).Get());
        if (number == 1 && write(ready[1], "r", 1) != 1) return;
      }
    });
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    usleep(delay(random));
    ASSERT_EQ(kill(writer, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    ASSERT_TRUE(WIFSIGNALED(status));

    const std::string found = DescribeFile(mFile);
    if (found != "(unreadable)") {
      ++whole;
    } else {
      ++(std::filesystem::file_size(mFile) == 0 ? empty : half);
    }
    // The next one that looks finds a record of one piece or none, and the file is whole by then.
    CASettingsStorage storage = Make();
    CFDictionaryRef record = nullptr;
    storage.CopyDictionaryValue(CFSTR("record"), record, nullptr);
    EXPECT_EQ(record != nullptr, found != "(unreadable)");
    if (record != nullptr) {
      const std::string number = TextAt(record, CFSTR("number"));
      EXPECT_EQ(TextAt(record, CFSTR("fill")),
                TextAt(Record(std::atoi(number.c_str())).Get(), CFSTR("fill")));
      CFRelease(record);
    }
    ASSERT_NE(DescribeFile(mFile), "(unreadable)");
    char name[8];
    std::snprintf(name, sizeof name, "%04d", kill_);
    std::filesystem::copy_file(mFile, after / name);
    // Half of them find a file, half make one.
    if (kill_ % 2 != 0) std::filesystem::remove(mFile);
  }
  const std::string lines = Witness(after);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), kKills);
  std::printf("seed %u: of %d killed %d left the file whole, %d empty, %d in part\n", seed, kKills,
              whole, empty, half);
  EXPECT_GT(whole, 0);
}

}  // namespace
}  // namespace tembra::test
