#include <CoreServices/CoreServices.h>
#include <CoreServices/GestaltPriv.h>
#include <gtest/gtest.h>
#include <libproc.h>
#include <string.h>
#include <sys/sysctl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

std::string Comm() {
  std::ifstream file("/proc/self/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

TEST(ProcName, IsThisProgramsOwn) {
  char name[32];
  EXPECT_EQ(proc_name(getpid(), name, sizeof name), static_cast<int>(Comm().size()));
  EXPECT_EQ(name, Comm());
}

TEST(ProcName, IsCutToFit) {
  char name[6] = "?????";
  EXPECT_EQ(proc_name(getpid(), name, 5), 4);
  EXPECT_EQ(name, Comm().substr(0, 4));
  EXPECT_EQ(name[5], 0);
}

TEST(ProcName, FailsWithoutProcessOrRoom) {
  char name[4] = "abc";
  EXPECT_EQ(proc_name(0x7FFFFFFF, name, sizeof name), 0);
  EXPECT_EQ(errno, ESRCH);
  EXPECT_EQ(proc_name(-1, name, sizeof name), 0);
  EXPECT_EQ(proc_name(getpid(), name, 0), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(proc_name(getpid(), nullptr, 4), 0);
  EXPECT_STREQ(name, "abc");
}

TEST(Sysctl, BootTimeIsTheKernels) {
  timeval boot{};
  size_t size = sizeof boot;
  ASSERT_EQ(sysctlbyname("kern.boottime", &boot, &size, nullptr, 0), 0);
  EXPECT_EQ(size, 16U);
  std::ifstream stat("/proc/stat");
  std::string word;
  long btime = 0;
  while (stat >> word) {
    if (word == "btime") {
      stat >> btime;
      break;
    }
  }
  ASSERT_GT(btime, 0);
  EXPECT_NEAR(static_cast<double>(boot.tv_sec), static_cast<double>(btime), 1.0);
  EXPECT_GE(boot.tv_usec, 0);
  EXPECT_LT(boot.tv_usec, 1000000);
}

TEST(Sysctl, TextsAndNumbers) {
  utsname system{};
  uname(&system);
  char text[256];
  size_t size = sizeof text;
  ASSERT_EQ(sysctlbyname("kern.osversion", text, &size, nullptr, 0), 0);
  EXPECT_STREQ(text, system.release);
  EXPECT_EQ(size, strlen(system.release) + 1);
  int number = 0;
  size = sizeof number;
  ASSERT_EQ(sysctlbyname("hw.pagesize", &number, &size, nullptr, 0), 0);
  EXPECT_EQ(number, sysconf(_SC_PAGESIZE));
  size = sizeof text;
  ASSERT_EQ(sysctlbyname("hw.model", text, &size, nullptr, 0), 0);
  EXPECT_GT(size, 1U);
}

TEST(Sysctl, ItsFailures) {
  char text[2];
  size_t size = sizeof text;
  EXPECT_EQ(sysctlbyname("kern.osversion", text, &size, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(sysctlbyname("kern.nonsense", text, &size, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(sysctlbyname("kern.osversion", nullptr, nullptr, text, 1), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(sysctlbyname(nullptr, nullptr, nullptr, nullptr, 0), -1);
  EXPECT_EQ(errno, EFAULT);
  size = 0;
  EXPECT_EQ(sysctlbyname("kern.boottime", nullptr, &size, nullptr, 0), 0);
  EXPECT_EQ(size, sizeof(timeval));
}

class GestaltTest : public testing::Test {
 protected:
  ~GestaltTest() override { TembraGestaltSetSystemVersion(10, 13, 6); }

  static SInt32 Ask(OSType inSelector) {
    SInt32 value = -1;
    EXPECT_EQ(Gestalt(inSelector, &value), noErr);
    return value;
  }
};

TEST_F(GestaltTest, StandsFor10_13_6) {
  EXPECT_EQ(Ask('sys1'), 10);
  EXPECT_EQ(Ask('sys2'), 13);
  EXPECT_EQ(Ask('sys3'), 6);
  EXPECT_EQ(Ask('sysv'), 0x1096);
}

TEST_F(GestaltTest, TestsCanMakeItAnother) {
  TembraGestaltSetSystemVersion(11, 0, 1);
  EXPECT_EQ(Ask(gestaltSystemVersionMajor), 11);
  EXPECT_EQ(Ask(gestaltSystemVersionMinor), 0);
  EXPECT_EQ(Ask(gestaltSystemVersionBugFix), 1);
  EXPECT_EQ(Ask(gestaltSystemVersion), 0x1101);
}

TEST_F(GestaltTest, KnowsNothingElse) {
  SInt32 value = 42;
  EXPECT_EQ(Gestalt('cpuf', &value), gestaltUndefSelectorErr);
  EXPECT_EQ(value, 42);
}

TEST(Text, StrlcpyTruncatesAndTerminates) {
  char text[5];
  memset(text, 'x', sizeof text);
  EXPECT_EQ(strlcpy(text, "abcdef", 4), 6U);
  EXPECT_STREQ(text, "abc");
  EXPECT_EQ(text[4], 'x');
  EXPECT_EQ(strlcpy(text, "ab", sizeof text), 2U);
  EXPECT_STREQ(text, "ab");
  EXPECT_EQ(strlcpy(text, "zz", 0), 2U);
  EXPECT_STREQ(text, "ab");
}

TEST(Text, StrlcatAppendsWhatFits) {
  char text[6] = "ab";
  EXPECT_EQ(strlcat(text, "cdefg", sizeof text), 7U);
  EXPECT_STREQ(text, "abcde");
  EXPECT_EQ(strlcat(text, "x", 3), 4U) << "no terminator within the size";
  EXPECT_STREQ(text, "abcde");
}

}  // namespace
