#include "device/HP_Command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/device/SimulatedDevice.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

OSStatus Proc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
              AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

// Notes what the commands call.
class RecordingDevice : public SimulatedDevice {
 public:
  void AddIOProc(AudioDeviceIOProc inProc, void* inData) override {
    mCalls.push_back("add " + Text(inProc == Proc) + Text(inData == this));
  }
  void RemoveIOProc(AudioDeviceIOProcID inID) override {
    mCalls.push_back("remove " + Text(inID == Proc));
  }
  void SetIOProcStreamUsage(AudioDeviceIOProcID inID, bool inIsInput, UInt32 inCount,
                            const bool* inUsage) override {
    std::string theCall = "usage " + Text(inID == Proc) + Text(inIsInput) + ":";
    for (UInt32 i = 0; i < inCount; ++i) theCall += Text(inUsage[i]);
    mCalls.push_back(theCall);
  }
  void StartIOProc(AudioDeviceIOProcID inID) override {
    mCalls.push_back("start " + Text(inID == Proc));
  }
  void StartIOProcAtTime(AudioDeviceIOProcID inID, const AudioTimeStamp& inTime,
                         UInt32 inFlags) override {
    mCalls.push_back("start " + Text(inID == Proc) + " at " +
                     std::to_string(static_cast<int>(inTime.mSampleTime)) + " with " +
                     std::to_string(inFlags));
  }
  void StopIOProc(AudioDeviceIOProcID inID) override {
    mCalls.push_back("stop " + Text(inID == Proc));
  }
  void StopAllIOProcs() override { mCalls.push_back("stop all"); }

  std::vector<std::string> mCalls;

 private:
  static std::string Text(bool inValue) { return inValue ? "1" : "0"; }
};

// A command that notes its run and its deletion.
class NotingCommand : public HP_Command {
 public:
  NotingCommand(
      std::string inName, std::vector<std::string>& inLog, std::function<void()> inWork = [] {})
      : HP_Command('test'), mName(std::move(inName)), mLog(inLog), mWork(std::move(inWork)) {}
  ~NotingCommand() override { mLog.push_back("~" + mName); }
  void Execute(HP_Device*) override {
    mLog.push_back(mName);
    mWork();
  }

  const std::string mName;

 private:
  std::vector<std::string>& mLog;
  std::function<void()> mWork;
};

TEST(Command, IDsAreTheFourCharacterCodes) {
  AudioTimeStamp theTime = {};
  EXPECT_EQ(HP_AddIOProcCommand(Proc, nullptr).GetID(), 0x2B696F70u);
  EXPECT_EQ(HP_RemoveIOProcCommand(Proc).GetID(), 0x2D696F70u);
  EXPECT_EQ(HP_ChangeIOProcStreamUsageCommand(Proc, true, 0, nullptr).GetID(), 0x73757365u);
  EXPECT_EQ(HP_StartIOProcCommand(Proc).GetID(), 0x3E696F70u);
  EXPECT_EQ(HP_StartIOProcCommand(Proc, theTime, 0).GetID(), 0x3E696F70u);
  EXPECT_EQ(HP_StopIOProcCommand(Proc).GetID(), 0x3C696F70u);
  EXPECT_EQ(HP_StopAllIOProcsCommand().GetID(), 0x7361696Fu);
  EXPECT_EQ(HP_ChangeBufferSizeCommand(1, true).GetID(), 0x62756673u);
}

TEST(Command, EachCallsItsOperationOfTheDevice) {
  RecordingDevice theDevice;
  HP_AddIOProcCommand(Proc, &theDevice).Execute(&theDevice);
  HP_RemoveIOProcCommand(Proc).Execute(&theDevice);
  UInt32 theUsage[] = {0, 2, 1};
  HP_ChangeIOProcStreamUsageCommand theUsageCommand(Proc, true, 3, theUsage);
  theUsage[0] = 1;  // it has a copy
  theUsageCommand.Execute(&theDevice);
  HP_StartIOProcCommand(Proc).Execute(&theDevice);
  AudioTimeStamp theTime = {};
  theTime.mSampleTime = 42;
  HP_StartIOProcCommand(Proc, theTime, 3).Execute(&theDevice);
  HP_StopIOProcCommand(Proc).Execute(&theDevice);
  HP_StopAllIOProcsCommand().Execute(&theDevice);
  EXPECT_THAT(theDevice.mCalls, ElementsAre("add 11", "remove 1", "usage 11:011", "start 1",
                                            "start 1 at 42 with 3", "stop 1", "stop all"));
}

TEST(Command, BufferSizeCommandSetsTheSizeWithAndWithoutNotifications) {
  SimulatedDevice theDevice;
  HP_ChangeBufferSizeCommand(256, true).Execute(&theDevice);
  EXPECT_EQ(theDevice.GetIOBufferFrameSize(), 256u);
  EXPECT_THAT(theDevice.TakeEvents(), ElementsAre("size changed", "properties"));
  HP_ChangeBufferSizeCommand(128, false).Execute(&theDevice);
  EXPECT_EQ(theDevice.GetIOBufferFrameSize(), 128u);
  EXPECT_THAT(theDevice.TakeEvents(), ElementsAre("size changed quietly"));
}

TEST(Command, StartCommandKnowsItsTimeAndDirection) {
  AudioTimeStamp theTime = {};
  EXPECT_FALSE(HP_StartIOProcCommand(Proc).HasStartTime());
  EXPECT_TRUE(HP_StartIOProcCommand(Proc, theTime, 0).HasStartTime());
  EXPECT_FALSE(HP_StartIOProcCommand(Proc, theTime, 2).IsInput());
  EXPECT_TRUE(HP_StartIOProcCommand(Proc, theTime, 3).IsInput());
}

TEST(Command, NullDeviceIsLeftAlone) {
  AudioTimeStamp theTime = {};
  const UInt32 theUsage[] = {1};
  HP_Command(0).Execute(nullptr);
  HP_AddIOProcCommand(Proc, nullptr).Execute(nullptr);
  HP_RemoveIOProcCommand(Proc).Execute(nullptr);
  HP_ChangeIOProcStreamUsageCommand(Proc, true, 1, theUsage).Execute(nullptr);
  HP_StartIOProcCommand(Proc).Execute(nullptr);
  HP_StartIOProcCommand(Proc, theTime, 0).Execute(nullptr);
  HP_StopIOProcCommand(Proc).Execute(nullptr);
  HP_StopAllIOProcsCommand().Execute(nullptr);
  HP_ChangeBufferSizeCommand(1, true).Execute(nullptr);
}

class CommandQueueTest : public testing::Test {
 protected:
  HP_Command* Note(
      const std::string& inName, std::function<void()> inWork = [] {}) {
    return new NotingCommand(inName, mLog, std::move(inWork));
  }
  void Defer(
      const std::string& inName, std::function<void()> inWork = [] {}) {
    mDevice.mIsSafe = false;
    mDevice.ExecuteCommand(Note(inName, std::move(inWork)));
    mDevice.mIsSafe = true;
  }

  std::vector<std::string> mLog;
  SimulatedDevice mDevice;
};

TEST_F(CommandQueueTest, ASafeCommandRunsAtOnceUnderTheGuard) {
  bool theGuardWasHeld = false;
  mDevice.ExecuteCommand(
      Note("a", [&] { theGuardWasHeld = mDevice.mGuard.IsOwnedByCurrentThread(); }));
  EXPECT_TRUE(theGuardWasHeld);
  EXPECT_TRUE(mDevice.mGuard.IsFree());
  EXPECT_THAT(mLog, ElementsAre("a", "~a"));
  EXPECT_THAT(mDevice.TakeEvents(), ElementsAre("begin", "end"));
}

TEST_F(CommandQueueTest, AGuardThatWasHeldBeforeStaysHeld) {
  CAMutex::Locker theLocker(mDevice.mGuard);
  mDevice.ExecuteCommand(Note("a"));
  EXPECT_TRUE(mDevice.mGuard.IsOwnedByCurrentThread());
}

TEST_F(CommandQueueTest, AnUnsafeCommandWaitsForExecuteAll) {
  Defer("a");
  EXPECT_THAT(mLog, IsEmpty());
  EXPECT_THAT(mDevice.TakeEvents(), IsEmpty()) << "no execution was begun";
  mDevice.ExecuteAllCommands();
  EXPECT_THAT(mLog, ElementsAre("a", "~a"));
  mDevice.ExecuteAllCommands();
  EXPECT_EQ(mLog.size(), 2u);
}

TEST_F(CommandQueueTest, ACommandThatIsNotPermittedIsDeferredToo) {
  mDevice.mIsPermitted = [](HP_Command*) { return false; };
  mDevice.ExecuteCommand(Note("a"));
  EXPECT_THAT(mLog, IsEmpty());
  EXPECT_TRUE(mDevice.mGuard.IsFree());
  mDevice.mIsPermitted = [](HP_Command*) { return true; };
  mDevice.ExecuteAllCommands();
  EXPECT_THAT(mLog, ElementsAre("a", "~a"));
}

TEST_F(CommandQueueTest, DeferredCommandsRunOldestFirst) {
  Defer("a");
  Defer("b");
  Defer("c");
  mDevice.ExecuteAllCommands();
  EXPECT_THAT(mLog, ElementsAre("a", "~a", "b", "~b", "c", "~c"));
}

TEST_F(CommandQueueTest, ACommandDeferredWhileTheyRunIsRunInTheSameSweep) {
  Defer("a", [&] { Defer("b"); });
  mDevice.ExecuteAllCommands();
  EXPECT_THAT(mLog, ElementsAre("a", "~a", "b", "~b"));
}

TEST_F(CommandQueueTest, HeldBackCommandsRunNewestFirstNextTime) {
  mDevice.mIsPermitted = [](HP_Command*) { return false; };
  for (const char* theName : {"a", "b", "c"}) Defer(theName);
  mDevice.ExecuteAllCommands();
  EXPECT_THAT(mLog, IsEmpty());
  mDevice.mIsPermitted = [](HP_Command*) { return true; };
  mDevice.ExecuteAllCommands();
  EXPECT_THAT(mLog, ElementsAre("c", "~c", "b", "~b", "a", "~a"));
}

TEST_F(CommandQueueTest, OnlyTheOnesNotPermittedAreHeldBack) {
  Defer("a");
  Defer("b");
  mDevice.mIsPermitted = [](HP_Command* inCommand) {
    return static_cast<NotingCommand*>(inCommand)->mName != "a";
  };
  mDevice.ExecuteAllCommands();
  EXPECT_THAT(mLog, ElementsAre("b", "~b"));
  mDevice.ClearAllCommands();
  EXPECT_THAT(mLog, ElementsAre("b", "~b", "~a"));
}

TEST_F(CommandQueueTest, ClearDropsDeferredWorkUnrun) {
  Defer("a");
  Defer("b");
  mDevice.ClearAllCommands();
  EXPECT_THAT(mLog, testing::UnorderedElementsAre("~a", "~b"));
  mDevice.ExecuteAllCommands();
  EXPECT_EQ(mLog.size(), 2u);
}

TEST_F(CommandQueueTest, AnErrorReachesTheCallerAfterTheGuardIsReleased) {
  const OSStatus theError =
      StatusOf([&] { mDevice.ExecuteCommand(Note("a", [] { throw CAException('!dat'); })); });
  EXPECT_EQ(theError, '!dat');
  EXPECT_TRUE(mDevice.mGuard.IsFree());
  EXPECT_THAT(mLog, ElementsAre("a", "~a"));
  EXPECT_THAT(mDevice.TakeEvents(), ElementsAre("begin", "end"));
}

TEST_F(CommandQueueTest, AnythingElseThrownBecomesUnspecified) {
  EXPECT_EQ(StatusOf([&] { mDevice.ExecuteCommand(Note("a", [] { throw 5; })); }), 'what');
}

TEST_F(CommandQueueTest, FinishFollowsAlsoARefusedStart) {
  mDevice.mStartAnswer = false;
  mDevice.ExecuteCommand(Note("a"));
  EXPECT_THAT(mLog, ElementsAre("~a"));
  EXPECT_THAT(mDevice.TakeEvents(), ElementsAre("begin", "end"));
  EXPECT_TRUE(mDevice.mGuard.IsFree());
}

TEST_F(CommandQueueTest, AThrowInExecuteAllDeletesTheCommandAndKeepsTheRest) {
  Defer("held");
  Defer("bad", [] { throw CAException('nope'); });
  Defer("later");
  mDevice.mIsPermitted = [](HP_Command* inCommand) {
    return static_cast<NotingCommand*>(inCommand)->mName != "held";
  };
  EXPECT_EQ(StatusOf([&] { mDevice.ExecuteAllCommands(); }), 'nope');
  EXPECT_THAT(mLog, ElementsAre("bad", "~bad"));
  mDevice.mIsPermitted = [](HP_Command*) { return true; };
  mDevice.ExecuteAllCommands();
  EXPECT_THAT(mLog, ElementsAre("bad", "~bad", "held", "~held", "later", "~later"));
}

TEST_F(CommandQueueTest, CommandsLeftOverAreDeletedWithTheDevice) {
  {
    SimulatedDevice theDevice;
    theDevice.mIsSafe = false;
    theDevice.ExecuteCommand(Note("left"));
  }
  EXPECT_THAT(mLog, ElementsAre("~left"));
}

class PlainDevice : public HP_Device {
 public:
  PlainDevice() : HP_Device(4500, kAudioDeviceClassID, nullptr, 1, false) {}
};

TEST(CommandQueueOfThePlainDevice, RunsEverythingAtOnce) {
  PlainDevice theDevice;
  EXPECT_TRUE(theDevice.IsSafeToExecuteCommand());
  EXPECT_TRUE(theDevice.IsPermittedToExecuteCommand(nullptr));
  void* theToken = &theDevice;
  EXPECT_TRUE(theDevice.StartCommandExecution(&theToken));
  theDevice.FinishCommandExecution(theToken);
  std::vector<std::string> theLog;
  theDevice.ExecuteCommand(new NotingCommand("a", theLog));
  EXPECT_THAT(theLog, ElementsAre("a", "~a"));
}

}  // namespace
}  // namespace tembra::test
