#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "HALTest.h"

namespace {

using testing::ExitedWithCode;

class Process : public HALTest {
 protected:
  // Tells what the system object says at the end, where nothing else can be looked at any more.
  void SpeakAtTeardown() {
    mFake->duringTeardown = [] {
      fprintf(stderr, "[teardown inot=%u mast=%u]", Number(kSystem, 'inot'),
              Number(kSystem, 'mast'));
    };
  }

  // Runs the body in a forked child; its answer, or 1000 and the signal that ended it.
  template <typename Body>
  static int InAChild(const Body& inBody) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      _exit(inBody());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }
};

// Each of these begins a program anew, up to the statement in question.
class AtExit : public Process {
 protected:
  AtExit() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(AtExit, ThePlugInIsTakenDownWithInotSet) {
  EXPECT_EXIT(
      {
        SpeakAtTeardown();
        Device();
        exit(3);
      },
      ExitedWithCode(3), "\\[teardown inot=1 mast=1\\]");
}

TEST_F(AtExit, NothingIsTakenDownThatWasNotUp) {
  EXPECT_EXIT(
      {
        mFake->duringTeardown = [] { _exit(9); };
        exit(0);
      },
      ExitedWithCode(0), "");
}

TEST_F(AtExit, ExitFromInsideAListenerWorks) {
  EXPECT_EXIT(
      {
        SpeakAtTeardown();
        const AudioObjectID device = Device();
        const AudioObjectPropertyAddress address = Address('fsiz');
        AudioObjectAddPropertyListener(
            device, &address,
            [](AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void*) -> OSStatus {
              exit(4);
            },
            nullptr);
        Set(device, 'fsiz', 128);
        for (;;) {
          pause();
        }
      },
      ExitedWithCode(4), "\\[teardown inot=1 mast=1\\]");
}

TEST_F(AtExit, ACallThatStaysInsideIsNotPulledFromUnder) {
  EXPECT_EXIT(
      {
        mFake->duringTeardown = [] { _exit(9); };
        const AudioObjectID device = Device();
        mFake->duringGet = [] { exit(5); };
        Number(device, 'wait');
      },
      ExitedWithCode(5), "");
}

OSStatus EndWithNine(AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void*) {
  _exit(9);
}

TEST_F(AtExit, ListenersHearNothingMore) {
  const AudioObjectPropertyAddress address = Address('livn');
  mFake->duringTeardown = [this] {
    const AudioObjectPropertyAddress changed = Address('livn');
    AudioObjectPropertiesChanged(mFake->self, mFake->Devices()[0], 1, &changed);
  };
  EXPECT_EXIT(
      {
        AudioObjectAddPropertyListener(Device(), &address, EndWithNine, nullptr);
        exit(0);
      },
      ExitedWithCode(0), "");
}

TEST_F(Process, AForkedChildIsRefusedAtOnceAndTheParentGoesOn) {
  const AudioObjectID device = Device();
  const int status = InAChild([&] {
    const OSStatus stopped = kAudioHardwareNotRunningError;
    const AudioObjectPropertyAddress address = Address('fsiz');
    UInt32 value = 0;
    UInt32 size = 4;
    Boolean flag = false;
    AudioDeviceIOProcID id = nullptr;
    AudioTimeStamp time{};
    int failed = 0;
    failed += Get(device, 'fsiz', value) != stopped;
    failed += Get(kSystem, 'dev#', value) != stopped;
    failed += Set(device, 'fsiz', 1) != stopped;
    failed += Set(kSystem, 'pmut', 1) != stopped;
    failed += AudioObjectHasProperty(device, &address);
    failed += AudioObjectIsPropertySettable(device, &address, &flag) != stopped;
    failed += AudioObjectGetPropertyDataSize(device, &address, 0, nullptr, &size) != stopped;
    failed += AudioDeviceCreateIOProcID(device, nullptr, nullptr, &id) != stopped;
    failed += AudioDeviceStart(device, nullptr) != stopped;
    failed += AudioDeviceStop(device, nullptr) != stopped;
    failed += AudioDeviceGetCurrentTime(device, &time) != stopped;
    failed += AudioDeviceGetProperty(device, 0, false, 'fsiz', &size, &value) != stopped;
    failed += AudioObjectAddPropertyListener(
                  device, &address,
                  [](AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void*) {
                    return OSStatus{0};
                  },
                  nullptr) != stopped;
    failed += AudioObjectPropertiesChanged(mFake->self, device, 1, &address) != stopped;
    failed += AudioHardwareUnload() != stopped;
    AudioObjectShow(device);
    return failed;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Number(device, 'fsiz'), 512U);
  EXPECT_EQ(Number(kSystem, 'mast'), 1U) << "the child has not taken the lock with it";
}

TEST_F(Process, AForkedChildMayExit) {
  Device();
  mFake->duringTeardown = [] { _exit(9); };
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0) << "and leaves the parent's plug-in alone";
  mFake->duringTeardown = nullptr;
}

TEST_F(Process, ForkWhileOthersCallNeverHangsTheChild) {
  const AudioObjectID device = Device();
  std::atomic<bool> goOn{true};
  std::vector<std::thread> callers;
  for (int i = 0; i < 3; ++i) {
    callers.emplace_back([&] {
      const AudioObjectPropertyAddress address = Address('fsiz');
      const auto ignore = [](AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void*) {
        return OSStatus{0};
      };
      while (goOn) {
        Set(device, 'fsiz', 512);
        AudioObjectAddPropertyListener(device, &address, ignore, nullptr);
        AudioObjectRemovePropertyListener(device, &address, ignore, nullptr);
        Number(kSystem, 'dOut');
      }
    });
  }
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(InAChild([&] {
                UInt32 value = 0;
                return Get(device, 'fsiz', value) == OSStatus{kAudioHardwareNotRunningError} ? 0
                                                                                             : 1;
              }),
              0);
  }
  goOn = false;
  for (std::thread& caller : callers) {
    caller.join();
  }
}

// A program of its own that says whether it is the master and then waits to be killed.
class Master : public HALTest {
 protected:
  // Its runtime directory is below that of this process, which may be the master of its own.
  tembra::test::Program Start(const std::string& inRuntime, const std::string& inName) const {
    setenv("XDG_RUNTIME_DIR", inRuntime.c_str(), 1);
    tembra::test::Program program(
        "/proc/self/exe",
        {"--gtest_also_run_disabled_tests", "--gtest_filter=MasterChild.DISABLED_SaysAndWaits"},
        mRuntime + "/" + inName);
    setenv("XDG_RUNTIME_DIR", mRuntime.c_str(), 1);
    return program;
  }
  std::string MakeRuntime() const {
    std::string path = mRuntime + "/masters-XXXXXX";
    EXPECT_NE(mkdtemp(path.data()), nullptr);
    return path;
  }
  static std::string WhatItSays(const tembra::test::Program& inProgram) {
    std::string said;
    tembra::test::WaitUntil([&] {
      const std::string output = inProgram.Output();
      const size_t at = output.find("master=");
      said = at == std::string::npos ? "" : output.substr(at, 8);
      return said.size() == 8;
    });
    return said;
  }

  const std::string mRuntime = getenv("XDG_RUNTIME_DIR");
};

TEST(MasterChild, DISABLED_SaysAndWaits) {
  setenv("TEMBRA_HAL_PLUGIN_PATH", "", 1);
  UInt32 master = 7;
  UInt32 size = sizeof master;
  AudioHardwareGetProperty('mast', &size, &master);
  printf("master=%u\n", master);
  fflush(stdout);
  for (;;) {
    pause();
  }
}

TEST_F(Master, IsOneProcessUntilItDies) {
  const std::string runtime = MakeRuntime();
  tembra::test::Program first = Start(runtime, "first");
  EXPECT_EQ(WhatItSays(first), "master=1");
  EXPECT_EQ(WhatItSays(Start(runtime, "second")), "master=0");
  first.Signal(SIGKILL);
  first.Wait();
  EXPECT_EQ(WhatItSays(Start(runtime, "third")), "master=1");
}

TEST_F(Master, IsNobodyWithoutARuntimeDirectory) {
  EXPECT_EQ(WhatItSays(Start("/does/not/exist", "nowhere")), "master=0");
}

TEST_F(Master, DoesNotFollowALinkInPlaceOfTheFile) {
  const std::string runtime = MakeRuntime();
  ASSERT_EQ(mkdir((runtime + "/tembra").c_str(), 0700), 0);
  const std::string target = mRuntime + "/target";
  ASSERT_EQ(symlink(target.c_str(), (runtime + "/tembra/hal.master").c_str()), 0);
  EXPECT_EQ(WhatItSays(Start(runtime, "linked-out")), "master=0");
  EXPECT_NE(access(target.c_str(), F_OK), 0);
}

}  // namespace
