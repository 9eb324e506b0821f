#include <gtest/gtest.h>
#include <mach/mach.h>
#include <mach/mach_time.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <future>
#include <limits>
#include <string>
#include <thread>

namespace {

std::string NameSetTo(const char* inName) {
  std::string name;
  std::thread([&] {
    char text[16] = {};
    EXPECT_EQ(pthread_setname_np(inName), 0);
    pthread_getname_np(pthread_self(), text, sizeof text);
    name = text;
  }).join();
  return name;
}

TEST(ThreadPort, IsTheKernelsThreadID) {
  EXPECT_EQ(mach_thread_self(), static_cast<mach_port_t>(gettid()));
  EXPECT_EQ(pthread_mach_thread_np(pthread_self()), static_cast<mach_port_t>(gettid()));
}

TEST(ThreadPort, OfAnotherThread) {
  std::promise<pid_t> told;
  std::promise<void> done;
  std::thread other([&] {
    told.set_value(gettid());
    done.get_future().wait();
  });
  EXPECT_EQ(pthread_mach_thread_np(other.native_handle()),
            static_cast<mach_port_t>(told.get_future().get()));
  done.set_value();
  other.join();
}

TEST(ThreadPort, IsANewOneInAForkedChild) {
  const mach_port_t before = mach_thread_self();
  const pid_t child = fork();
  if (child == 0) {
    const bool right =
        mach_thread_self() == static_cast<mach_port_t>(gettid()) && mach_thread_self() != before;
    _exit(right ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(ThreadName, KeepsTheTellingEnd) {
  EXPECT_EQ(NameSetTo("short"), "short");
  EXPECT_EQ(NameSetTo("fifteen letters"), "fifteen letters");
  EXPECT_EQ(NameSetTo("com.tembra.audio.IOThread"), ".audio.IOThread");
  EXPECT_EQ(NameSetTo(""), "");
}

TEST(ThreadName, IsCutBetweenCharacters) {
  // The last 15 bytes begin inside the two bytes of the umlaut.
  EXPECT_EQ(NameSetTo("xx\xC3\xBC"
                      "12345678901234"),
            "12345678901234");
}

TEST(RelativeWait, IsOverAtOnceForNoTime) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
  pthread_mutex_lock(&mutex);
  const timespec none = {0, 0};
  EXPECT_EQ(pthread_cond_timedwait_relative_np(&condition, &mutex, &none), ETIMEDOUT);
  const timespec past = {-5, 0};
  EXPECT_EQ(pthread_cond_timedwait_relative_np(&condition, &mutex, &past), ETIMEDOUT);
  pthread_mutex_unlock(&mutex);
}

TEST(RelativeWait, RefusesNanosecondsOutOfRange) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
  pthread_mutex_lock(&mutex);
  const timespec tooMany = {0, 1000000000};
  const timespec negative = {0, -1};
  EXPECT_EQ(pthread_cond_timedwait_relative_np(&condition, &mutex, &tooMany), EINVAL);
  EXPECT_EQ(pthread_cond_timedwait_relative_np(&condition, &mutex, &negative), EINVAL);
  pthread_mutex_unlock(&mutex);
}

TEST(RelativeWait, EndsWithASignalHoweverLongItMayTake) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
  bool isSet = false;
  pthread_mutex_lock(&mutex);
  std::thread other([&] {
    pthread_mutex_lock(&mutex);
    isSet = true;
    pthread_cond_signal(&condition);
    pthread_mutex_unlock(&mutex);
  });
  const timespec forever = {std::numeric_limits<time_t>::max(), 999999999};
  int status = 0;
  while (!isSet && status == 0) {
    status = pthread_cond_timedwait_relative_np(&condition, &mutex, &forever);
  }
  pthread_mutex_unlock(&mutex);
  other.join();
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(isSet);
}

TEST(HostClock, CountsNanosecondsAndNeverGoesBack) {
  mach_timebase_info_data_t timebase{};
  ASSERT_EQ(mach_timebase_info(&timebase), KERN_SUCCESS);
  EXPECT_EQ(timebase.numer, 1U);
  EXPECT_EQ(timebase.denom, 1U);
  EXPECT_EQ(mach_timebase_info(nullptr), KERN_INVALID_ARGUMENT);
  uint64_t last = mach_absolute_time();
  for (int i = 0; i < 1000; ++i) {
    const uint64_t now = mach_absolute_time();
    ASSERT_GE(now, last);
    last = now;
  }
  timespec monotonic;
  clock_gettime(CLOCK_MONOTONIC, &monotonic);
  const uint64_t nanos = static_cast<uint64_t>(monotonic.tv_sec) * 1000000000U +
                         static_cast<uint64_t>(monotonic.tv_nsec);
  EXPECT_GE(nanos, last);
  EXPECT_LE(mach_absolute_time() - last, 60U * 1000000000U);
}

}  // namespace
