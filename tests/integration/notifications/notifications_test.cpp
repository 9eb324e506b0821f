#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNotificationCenterPriv.h>
#include <CoreFoundation/CFNumber.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "Roles.h"
#include "corefoundation/Object.h"
#include "notifications/NotificationWire.h"
#include "support/PrivateRuntime.h"
#include "support/Program.h"
#include "support/Sanitizers.h"

namespace tembra::test {
namespace {

using cf::Owned;
using Seconds = std::chrono::seconds;

Owned<CFStringRef> String(const std::string& inText) {
  return Owned<CFStringRef>(
      CFStringCreateWithCString(nullptr, inText.c_str(), kCFStringEncodingUTF8));
}

CFNotificationCenterRef Center() {
  return CFNotificationCenterGetDistributedCenter();
}

CFNotificationCenterStatistics Statistics() {
  CFNotificationCenterStatistics statistics;
  CFNotificationCenterGetStatistics(Center(), &statistics);
  return statistics;
}

// One place for the whole process: its sockets stay where they were first made. Not a plain static,
// whose end in a forked child would remove it.
PrivateRuntime* sRuntime = nullptr;

class OneRuntime : public testing::Environment {
 public:
  void SetUp() override { sRuntime = new PrivateRuntime; }
  void TearDown() override { delete sRuntime; }
};

[[maybe_unused]] const testing::Environment* const sEnvironment =
    testing::AddGlobalTestEnvironment(new OneRuntime);

const PrivateRuntime& Runtime() {
  return *sRuntime;
}

void Post(const std::string& inName, const char* inObject = nullptr,
          CFDictionaryRef inInfo = nullptr, CFOptionFlags inOptions = 1) {
  Owned<CFStringRef> object;
  if (inObject) object = String(inObject);
  CFNotificationCenterPostNotificationWithOptions(Center(), String(inName), object.Get(), inInfo,
                                                  inOptions);
}

// Notes what it is told.
class Observer {
 public:
  Observer(const char* inName, const char* inObject) {
    Owned<CFStringRef> name, object;
    if (inName) name = String(inName);
    if (inObject) object = String(inObject);
    CFNotificationCenterAddObserver(Center(), this, Note, name, object.Get(),
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
  }
  ~Observer() {
    CFNotificationCenterRemoveEveryObserver(Center(), this);
    // A call that began before is over once another one has come and gone.
    Flush();
  }

  // Everything that was posted before has been delivered.
  static void Flush() {
    static std::atomic<int> sFlushed{0};
    const int before = sFlushed;
    auto note = [](CFNotificationCenterRef, void*, CFNotificationName, const void*,
                   CFDictionaryRef) { ++sFlushed; };
    CFNotificationCenterAddObserver(Center(), &sFlushed, note, CFSTR("test.flush"), nullptr,
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
    Post("test.flush");
    EXPECT_TRUE(WaitUntil([&] { return sFlushed > before; }, Seconds(30)));
    CFNotificationCenterRemoveObserver(Center(), &sFlushed, CFSTR("test.flush"), nullptr);
  }

  std::vector<std::string> Heard() {
    std::lock_guard<std::mutex> lock(mLock);
    return mHeard;
  }
  size_t Count() { return Heard().size(); }

  // What to do at each call besides noting it.
  void Do(std::function<void(CFDictionaryRef)> inAction) {
    std::lock_guard<std::mutex> lock(mLock);
    mAction = std::move(inAction);
  }

 private:
  static void Note(CFNotificationCenterRef inCenter, void* inObserver, CFNotificationName inName,
                   const void* inObject, CFDictionaryRef inInfo) {
    auto* observer = static_cast<Observer*>(inObserver);
    EXPECT_EQ(inCenter, Center());
    char name[128], object[128] = "-";
    CFStringGetCString(inName, name, sizeof name, kCFStringEncodingUTF8);
    if (inObject) {
      CFStringGetCString(static_cast<CFStringRef>(inObject), object, sizeof object,
                         kCFStringEncodingUTF8);
    }
    std::function<void(CFDictionaryRef)> action;
    {
      std::lock_guard<std::mutex> lock(observer->mLock);
      observer->mHeard.push_back(std::string(name) + " " + object + (inInfo ? " info" : ""));
      action = observer->mAction;
    }
    if (action) action(inInfo);
  }

  std::mutex mLock;
  std::vector<std::string> mHeard;
  std::function<void(CFDictionaryRef)> mAction;
};

using Texts = std::vector<std::string>;

class Notifications : public testing::Test {
 protected:
  static std::string Place() { return Runtime().File("runtime/tembra/notifications"); }
  static size_t CountReceivers() {
    size_t count = 0;
    if (!std::filesystem::exists(Place())) return 0;
    for ([[maybe_unused]] auto& entry : std::filesystem::directory_iterator(Place())) ++count;
    return count;
  }
  static Program Start(const Texts& inArguments) {
    static int sCount = 0;
    Texts arguments{"--role"};
    arguments.insert(arguments.end(), inArguments.begin(), inArguments.end());
    Program program("/proc/self/exe", arguments,
                    Runtime().File("process" + std::to_string(++sCount)));
    if (inArguments[0] == "observe" || inArguments[0] == "robbed") {
      WaitUntil([&] { return !program.Output().empty(); }, Seconds(20));
    }
    return program;
  }
  static size_t Lines(const Program& inProgram) {
    const std::string output = inProgram.Output();
    return static_cast<size_t>(std::count(output.begin(), output.end(), '\n'));
  }
};

TEST_F(Notifications, ReachThePostersOwnProcessWithNameObjectAndDictionary) {
  Observer observer("own", nullptr);
  const void* keys[] = {CFSTR("text"), CFSTR("flag")};
  const void* values[] = {CFSTR("value"), kCFBooleanTrue};
  Owned<CFDictionaryRef> info(CFDictionaryCreate(
      nullptr, keys, values, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  std::atomic<int> equal{0};
  observer.Do([&](CFDictionaryRef inInfo) { equal = CFEqual(inInfo, info) ? 1 : -1; });
  Post("own", "thing", info);
  ASSERT_TRUE(WaitUntil([&] { return equal != 0; }, Seconds(20)));
  EXPECT_EQ(equal, 1);
  EXPECT_EQ(observer.Heard(), Texts{"own thing info"});
}

TEST_F(Notifications, WithoutADictionaryBringNone) {
  Observer observer("none", nullptr);
  Post("none");
  Observer::Flush();
  EXPECT_EQ(observer.Heard(), Texts{"none -"});
}

TEST_F(Notifications, MatchByNameAndObject) {
  Observer all(nullptr, nullptr);
  Observer named("match", nullptr);
  Observer both("match", "x");
  Observer thing(nullptr, "x");
  Post("match");
  Post("match", "x");
  Post("match", "y");
  Post("other", "x");
  Observer::Flush();
  EXPECT_EQ(named.Heard(), (Texts{"match -", "match x", "match y"}));
  EXPECT_EQ(both.Heard(), Texts{"match x"});
  EXPECT_EQ(thing.Heard(), (Texts{"match x", "other x"}));
  EXPECT_EQ(all.Heard(), (Texts{"match -", "match x", "match y", "other x", "test.flush -"}));
}

TEST_F(Notifications, AnObserverAddedTwiceIsCalledTwice) {
  Observer observer("twice", nullptr);
  auto count = [](CFNotificationCenterRef, void* inCount, CFNotificationName, const void*,
                  CFDictionaryRef) { ++*static_cast<std::atomic<int>*>(inCount); };
  std::atomic<int> calls{0};
  for (int i = 0; i < 2; ++i) {
    CFNotificationCenterAddObserver(Center(), &calls, count, CFSTR("twice"), nullptr,
                                    CFNotificationSuspensionBehaviorDrop);
  }
  Post("twice");
  Observer::Flush();
  EXPECT_EQ(calls, 2);
  CFNotificationCenterRemoveObserver(Center(), &calls, CFSTR("twice"), nullptr);
}

TEST_F(Notifications, RunOnTheDeliveryThreadWithItsSignalsBlocked) {
  Observer observer("thread", nullptr);
  static char sName[16];
  static sigset_t sMask;
  observer.Do([](CFDictionaryRef) {
    prctl(PR_GET_NAME, sName);
    pthread_sigmask(SIG_SETMASK, nullptr, &sMask);
  });
  Post("thread");
  Observer::Flush();
  EXPECT_STREQ(sName, "tembra.notify");
  EXPECT_EQ(sigismember(&sMask, SIGINT), 1);
}

TEST_F(Notifications, NoCallBeginsAfterRemoval) {
  Observer observer("removed", "x");
  Post("removed", "x");
  Observer::Flush();
  // Another name or object is another registration.
  CFNotificationCenterRemoveObserver(Center(), &observer, CFSTR("other"), nullptr);
  CFNotificationCenterRemoveObserver(Center(), &observer, CFSTR("removed"), CFSTR("y"));
  Post("removed", "x");
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 2u);
  CFNotificationCenterRemoveObserver(Center(), &observer, CFSTR("removed"), CFSTR("x"));
  Post("removed", "x");
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 2u);
}

TEST_F(Notifications, RemovalForNoObjectRemovesEveryOne) {
  Observer observer("removed", "x");
  CFNotificationCenterRemoveObserver(Center(), &observer, CFSTR("removed"), nullptr);
  Post("removed", "x");
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 0u);
}

TEST_F(Notifications, ACallbackMayRemoveItselfAddOthersAndPost) {
  Observer observer("reenter", nullptr);
  std::unique_ptr<Observer> added;
  observer.Do([&](CFDictionaryRef) {
    CFNotificationCenterRemoveEveryObserver(Center(), &observer);
    added = std::make_unique<Observer>("from.callback", nullptr);
    Post("from.callback");
  });
  Post("reenter");
  Post("reenter");
  Observer::Flush();
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 1u);
  EXPECT_EQ(added->Count(), 1u);
}

TEST_F(Notifications, ABurstOfAThousandLosesNoneAndKeepsItsOrder) {
  Observer observer("burst", nullptr);
  std::vector<SInt32> numbers;
  observer.Do([&](CFDictionaryRef inInfo) {
    SInt32 number = -1;
    CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(inInfo, CFSTR("n"))),
                     kCFNumberSInt32Type, &number);
    numbers.push_back(number);
    // Slower than the poster: the burst waits in memory, not in the kernel's queue.
    if (number % 100 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  });
  EXPECT_EQ(Start({"post", "burst", "-", "1000"}).Wait(Seconds(60)), 0);
  ASSERT_TRUE(WaitUntil([&] { return observer.Count() == 1000; }, Seconds(30)));
  Observer::Flush();
  ASSERT_EQ(numbers.size(), 1000u);
  for (SInt32 i = 0; i < 1000; ++i) ASSERT_EQ(numbers[static_cast<size_t>(i)], i);
}

TEST_F(Notifications, ABurstReachesSeveralLiveProcesses) {
  std::vector<Program> observers;
  for (int i = 0; i < 3; ++i) observers.push_back(Start({"observe", "burst3", "me"}));
  EXPECT_EQ(Start({"post", "burst3", "me", "1000"}).Wait(Seconds(60)), 0);
  for (Program& program : observers) {
    EXPECT_TRUE(WaitUntil([&] { return Lines(program) == 1001; }, Seconds(30)));
    EXPECT_EQ(program.Output().substr(0, 18), "ready\nme 0\nme 1\nme");
  }
}

TEST_F(Notifications, AStoppedReceiverHoldsThePosterUpOnceAndNobodyElse) {
  Program stopped = Start({"observe", "stop"});
  Program live = Start({"observe", "stop"});
  stopped.Signal(SIGSTOP);
  int status = 0;
  ASSERT_EQ(waitpid(stopped.Pid(), &status, WUNTRACED), stopped.Pid());
  ASSERT_TRUE(WIFSTOPPED(status));
  const auto begin = std::chrono::steady_clock::now();
  const UInt64 lostBefore = Statistics().postsLost;
  for (int i = 0; i < 300; ++i) Post("stop");
  const auto spent = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(spent, Seconds(5));
  EXPECT_GT(Statistics().postsLost, lostBefore);
  EXPECT_TRUE(WaitUntil([&] { return Lines(live) == 301; }, Seconds(30)));
  EXPECT_EQ(Lines(stopped), 1u);
  stopped.Signal(SIGCONT);
  // What its queue held, and then again all that is new.
  EXPECT_TRUE(WaitUntil([&] { return Lines(stopped) > 5; }, Seconds(30)));
  Post("stop", "again");
  EXPECT_TRUE(
      WaitUntil([&] { return stopped.Output().find("again") != std::string::npos; }, Seconds(30)));
}

TEST_F(Notifications, WhatTheDeadLeftIsSweptAndJunkIsLeftAlone) {
  Observer observer("sweep", nullptr);
  Post("other");  // removes what the tests before this one left
  const size_t before = CountReceivers();
  {
    std::vector<Program> dead;
    for (int i = 0; i < 5; ++i) dead.push_back(Start({"observe", "sweep"}));
    EXPECT_EQ(CountReceivers(), before + 5);
    for (Program& program : dead) program.Signal(SIGKILL);
    for (Program& program : dead) program.Wait(Seconds(20));
  }
  EXPECT_EQ(CountReceivers(), before + 5);
  const std::string junk[] = {Place() + "/junk", Place() + "/123.abc", Place() + "/9.folder"};
  close(open(junk[0].c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  close(open(junk[1].c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  mkdir(junk[2].c_str(), 0700);
  symlink("/dev/log", (Place() + "/77.77").c_str());
  const UInt64 swept = Statistics().swept;
  Post("sweep");
  EXPECT_EQ(CountReceivers(), before + 4);
  EXPECT_EQ(Statistics().swept, swept + 5);
  for (const std::string& file : junk) EXPECT_TRUE(std::filesystem::exists(file));
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 1u);
  for (const std::string& file : junk) std::filesystem::remove(file);
  unlink((Place() + "/77.77").c_str());
}

// How often the receiving thread of a process went to sleep of its own will; -1 if it is awake.
long SleepsOfReceiver(pid_t inProcess) {
  const std::string tasks = "/proc/" + std::to_string(inProcess) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    bool isReceiver = false, sleeps = false;
    std::ifstream status(task.path() / "status");
    for (std::string key, value; status >> key && std::getline(status, value);) {
      if (key == "Name:") isReceiver = value == "\ttembra.nrecv";
      if (key == "State:") sleeps = value.find('S') != std::string::npos;
      if (key == "voluntary_ctxt_switches:" && isReceiver) return sleeps ? std::stol(value) : -1;
    }
  }
  return -1;
}

TEST_F(Notifications, AReceiverWhoseDescriptorsWereClosedGoesBackToSleep) {
  Program robbed = Start({"robbed", "test.robbed"});
  Post("test.robbed");
  ASSERT_TRUE(WaitUntil([&] { return Lines(robbed) == 2; }, Seconds(20)));
  long before = -1;
  ASSERT_TRUE(
      WaitUntil([&] { return (before = SleepsOfReceiver(robbed.Pid())) >= 0; }, Seconds(20)));
  // Wakes it, and finds nothing of its own.
  Post("test.robbed");
  EXPECT_TRUE(WaitUntil([&] { return SleepsOfReceiver(robbed.Pid()) > before; }, Seconds(20)));
}

TEST_F(Notifications, AProcessThatEndsLeavesNothing) {
  const size_t before = CountReceivers();
  EXPECT_EQ(Start({"leave", "end"}).Wait(Seconds(20)), 0);
  EXPECT_EQ(CountReceivers(), before);
}

TEST_F(Notifications, WhatIsTooLongIsRefusedWhole) {
  Observer observer("long", nullptr);
  const UInt64 before = Statistics().refused;
  std::string bytes(60000, 'b');
  Owned<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<UInt8*>(bytes.data()), 60000));
  const void* key = CFSTR("k");
  const void* value = data.Get();
  Owned<CFDictionaryRef> info(CFDictionaryCreate(
      nullptr, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  Post("long", nullptr, info);
  Post(std::string(1025, 'n'));
  CFNotificationCenterPostNotification(Center(), nullptr, nullptr, nullptr, true);
  EXPECT_EQ(Statistics().refused, before + 3);
  Post("long");
  Observer::Flush();
  EXPECT_EQ(observer.Heard(), Texts{"long -"});
}

// A datagram as anybody may send it.
void SendRaw(const std::string& inPath, const std::string& inBytes) {
  const int file = open(inPath.c_str(), O_PATH | O_CLOEXEC);
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", file);
  sendto(socket, inBytes.data(), inBytes.size(), MSG_NOSIGNAL,
         reinterpret_cast<sockaddr*>(&address), sizeof address);
  close(socket);
  close(file);
}

// This process's own socket in a directory.
std::string OwnSocket(const std::string& inPlace) {
  const std::string prefix = std::to_string(getpid()) + ".";
  for (auto& entry : std::filesystem::directory_iterator(inPlace)) {
    if (entry.path().filename().string().rfind(prefix, 0) == 0) return entry.path();
  }
  return {};
}

TEST_F(Notifications, HostileDatagramsAreCountedAndDropped) {
  Observer observer("hostile", nullptr);
  const std::string path = OwnSocket(Place());
  ASSERT_FALSE(path.empty());
  notifications::Notification notification;
  notification.name = "hostile";
  const std::string good = notifications::EncodeNotification(notification);
  notification.hasInfo = true;
  notification.info = "no property list";
  const std::string badInfo = notifications::EncodeNotification(notification);
  notification.hasInfo = false;
  notification.info = {};
  notification.name = "\xff\xfe";
  const std::string badText = notifications::EncodeNotification(notification);
  const UInt64 before = Statistics().malformed;
  const Texts attempts = {"",
                          "x",
                          good + "x",
                          good.substr(0, good.size() - 1),
                          std::string(notifications::kMaxDatagram + 1, 'x'),
                          badInfo,
                          badText};
  for (const std::string& attempt : attempts) SendRaw(path, attempt);
  SendRaw(path, good);
  ASSERT_TRUE(WaitUntil([&] { return observer.Count() == 1; }, Seconds(20)));
  EXPECT_EQ(Statistics().malformed, before + attempts.size());
  EXPECT_EQ(observer.Heard(), Texts{"hostile -"});
}

// Runs a body in a child process that has become another user.
int AsOtherUser(const std::function<int()>& inBody) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) _exit(90);
    prctl(PR_SET_DUMPABLE, 1);
    _exit(inBody());
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

constexpr char kShared[] = "/tmp/tembra-notifications";

TEST_F(Notifications, TheSharedPlaceIsStickyAndOpenToAll) {
  Observer observer("shared", nullptr);
  struct stat status;
  ASSERT_EQ(stat(kShared, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 01777u);
  const std::string path = OwnSocket(kShared);
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0666u);
  ASSERT_EQ(stat(OwnSocket(Place()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(Notifications, AnotherUsersPostReachesOnlyObserversThatNamedNoObject) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Observer open("foreign", nullptr);
  Observer named("foreign", "x");
  const std::string runtime = "/tmp/other-user";
  mkdir(runtime.c_str(), 0700);
  ASSERT_EQ(chown(runtime.c_str(), 65534, 65534), 0);
  const UInt64 before = Statistics().posted;
  EXPECT_EQ(AsOtherUser([&] {
              setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
              Post("foreign", "x");  // his own processes only
              Post("foreign", "x", nullptr, 3);
              Post("foreign", nullptr, nullptr, 3);
              return Statistics().posted == before + 2 ? 0 : 1;
            }),
            0);
  ASSERT_TRUE(WaitUntil([&] { return open.Count() == 2; }, Seconds(20)));
  Observer::Flush();
  EXPECT_EQ(open.Heard(), (Texts{"foreign x", "foreign -"}));
  EXPECT_EQ(named.Count(), 0u);
}

TEST_F(Notifications, APostToAllUsersReachesThisUserOnce) {
  Observer observer("all", "x");
  Post("all", "x", nullptr, 3);
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 1u);
}

TEST_F(Notifications, APostToAllUsersReachesThisUsersProcessesOfAnotherSession) {
  Observer observer("sessions", "x");
  const std::string runtime = "/tmp/another-session";
  mkdir(runtime.c_str(), 0700);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    Post("sessions", "x");  // to that session alone
    Post("sessions", "x", nullptr, 3);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  ASSERT_TRUE(WaitUntil([&] { return observer.Count() == 1; }, Seconds(20)));
  Observer::Flush();
  EXPECT_EQ(observer.Heard(), Texts{"sessions x"});
}

TEST_F(Notifications, ThePlaceOfAUserIsClosedToOthersHoweverTheyGetThere) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Observer observer("closed", nullptr);
  const std::string path = OwnSocket(Place());
  notifications::Notification notification;
  notification.name = "closed";
  const std::string good = notifications::EncodeNotification(notification);
  // Even with the socket in hand and its mode loosened the sender is who he is.
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  const int file = open(path.c_str(), O_PATH | O_CLOEXEC);
  const UInt64 before = Statistics().unauthorized;
  EXPECT_EQ(AsOtherUser([&] {
              SendRaw("/proc/self/fd/" + std::to_string(file), good);
              return 0;
            }),
            0);
  close(file);
  chmod(path.c_str(), 0600);
  EXPECT_TRUE(WaitUntil([&] { return Statistics().unauthorized == before + 1; }, Seconds(20)));
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 0u);
}

TEST_F(Notifications, AFloodFromAnotherUserIsBoundedAndTheUsersOwnPostsComeThrough) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Observer observer("mine", nullptr);
  Observer flood("flood", nullptr);
  std::atomic<bool> hold{true};
  flood.Do([&](CFDictionaryRef) {
    while (hold) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  const UInt64 before = Statistics().overflowed;
  const std::string runtime = "/tmp/other-user";
  EXPECT_EQ(AsOtherUser([&] {
              setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
              for (int i = 0; i < 400; ++i) Post("flood", nullptr, nullptr, 3);
              return 0;
            }),
            0);
  EXPECT_TRUE(WaitUntil([&] { return Statistics().overflowed > before; }, Seconds(20)));
  Post("mine");
  hold = false;
  EXPECT_TRUE(WaitUntil([&] { return observer.Count() == 1; }, Seconds(20)));
  EXPECT_LE(flood.Count(), 257u);
}

// Ends a forked child with all exit handlers; a leak checker there would miss the parent's threads.
[[noreturn]] void EndChild(int inCode) {
  if (kAddressSanitizer) _exit(inCode);
  exit(inCode);
}

TEST_F(Notifications, AForkedChildHasNoObserversAndCanPost) {
  Observer observer("forked", nullptr);
  const size_t before = CountReceivers();
  const UInt64 posted = Statistics().posted;
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    Post("forked");
    EndChild(Statistics().posted > posted ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(WaitUntil([&] { return observer.Count() == 1; }, Seconds(20)));
  // The child's end removed nothing of the parent's.
  EXPECT_EQ(CountReceivers(), before);
  Observer::Flush();
}

}  // namespace
}  // namespace tembra::test
