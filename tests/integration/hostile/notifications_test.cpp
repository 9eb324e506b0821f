// A hundred thousand hostile datagrams to the notification sockets of a process that observes, from
// its own user and from another one, while somebody plays.

#include <CoreFoundation/CFNotificationCenterPriv.h>
#include <CoreFoundation/CoreFoundation.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <future>

#include "DatagramAttack.h"
#include "Playing.h"
#include "Roles.h"
#include "corefoundation/Object.h"

namespace tembra::test {
namespace {

cf::Owned<CFStringRef> String(const char* inText) {
  return cf::Owned<CFStringRef>(CFStringCreateWithCString(nullptr, inText, kCFStringEncodingUTF8));
}

CFNotificationCenterRef Center() {
  return CFNotificationCenterGetDistributedCenter();
}

// Counts its calls.
class Observer {
 public:
  Observer(const char* inName, const char* inObject) {
    CFNotificationCenterAddObserver(Center(), this, Called, String(inName),
                                    inObject ? String(inObject).Get() : nullptr,
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
  }
  std::uint64_t Calls() const { return mCalls; }

 private:
  static void Called(CFNotificationCenterRef, void* inObserver, CFNotificationName, const void*,
                     CFDictionaryRef) {
    ++static_cast<Observer*>(inObserver)->mCalls;
  }
  std::atomic<std::uint64_t> mCalls{0};
};

class HostileDatagrams : public testing::Test {
 protected:
  static CFNotificationCenterStatistics Statistics() {
    CFNotificationCenterStatistics statistics{};
    CFNotificationCenterGetStatistics(Center(), &statistics);
    return statistics;
  }
  // As ROLE of Roles.h; a tally, or null.
  static nlohmann::json Flood(const std::string& inFirst, const std::string& inSecond,
                              unsigned inCount, std::uint64_t inSeed, const char* inUser) {
    return RunRole(
        {"post", inFirst, inSecond, std::to_string(inCount), std::to_string(inSeed), inUser});
  }
  // While a flood runs, this user's own posts arrive.
  void ExpectPostsArriveDuring(std::future<nlohmann::json>& inFlood) {
    unsigned arrived = 0;
    do {
      ASSERT_NO_FATAL_FAILURE(ExpectPostArrives());
      ++arrived;
    } while (inFlood.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready);
    std::printf("%u posts of our own arrived meanwhile\n", arrived);
  }
  // What was sent came, and each datagram met the fate that it was made for; only the limits on
  // what may wait excuse a difference.
  void ExpectFates(const CFNotificationCenterStatistics& inBefore, const nlohmann::json& inTally,
                   bool inForeign) {
    auto number = [&](const char* inKey) { return inTally[inKey].get<std::uint64_t>(); };
    const std::uint64_t takers = number("delivered") + (inForeign ? 0 : number("named"));
    Flush();
    const CFNotificationCenterStatistics now = Statistics();
    const std::uint64_t malformed = now.malformed - inBefore.malformed;
    const std::uint64_t lost = now.overflowed - inBefore.overflowed;
    const std::uint64_t delivered = mOpen.Calls() + mNamed.Calls() - mCallsBefore;
    EXPECT_GE(now.received - inBefore.received, number("sent"));
    EXPECT_GE(delivered + malformed + lost,
              number("malformed") + number("malformed_late") + takers);
    EXPECT_GE(malformed, number("malformed"));
    EXPECT_LE(malformed, number("malformed") + number("malformed_late"));
    EXPECT_LE(delivered, takers);
    EXPECT_GT(delivered, 0u);
    std::printf("%llu malformed, %llu delivered, %llu beyond the limits\n",
                static_cast<unsigned long long>(malformed),
                static_cast<unsigned long long>(delivered), static_cast<unsigned long long>(lost));
  }
  // All that was sent before has been received and delivered: this user's socket and the queue of
  // deliveries keep the order, and the shared socket is emptied between any two turns of the first.
  void Flush() {
    for (int turn = 0; turn < 2; ++turn) ASSERT_NO_FATAL_FAILURE(ExpectPostArrives());
  }
  void ExpectPostArrives() {
    const std::uint64_t before = mOwn.Calls();
    // Where every queue is full a post may be lost; another one follows.
    ASSERT_TRUE(WaitUntil([&] {
      CFNotificationCenterPostNotification(Center(), String("hostile.own"), nullptr, nullptr, true);
      return WaitUntil([&] { return mOwn.Calls() > before; }, std::chrono::seconds(2));
    }));
  }
  void NoteCalls() { mCallsBefore = mOpen.Calls() + mNamed.Calls(); }

  // The observers of all tests; a callback may still run when one of them ends.
  static Observer& Open() {
    static auto* sObserver = new Observer(kOpenName, nullptr);
    return *sObserver;
  }
  static Observer& Named() {
    static auto* sObserver = new Observer(kNamedName, kNamedObject);
    return *sObserver;
  }
  static Observer& Own() {
    static auto* sObserver = new Observer("hostile.own", nullptr);
    return *sObserver;
  }

  Observer& mOpen = Open();
  Observer& mNamed = Named();
  Observer& mOwn = Own();
  std::uint64_t mCallsBefore = 0;
};

TEST_F(HostileDatagrams, OfThisUserDoNoHarmAndAreCounted) {
  Playing playing;
  const std::string mine = FindReceiver(getpid(), false);
  ASSERT_FALSE(mine.empty());
  ASSERT_TRUE(Flood(mine, mine, kFlood / 20, Seed(), "own").is_object());
  Flush();

  playing.StartPlayer();
  const std::string player = FindReceiver(playing.Player().Pid(), false);
  ASSERT_FALSE(player.empty());
  const Footprint observing(getpid());
  NoteCalls();
  const CFNotificationCenterStatistics before = Statistics();
  auto flood = std::async(std::launch::async,
                          [&] { return Flood(mine, player, kFlood, Seed() + 1, "own"); });
  ExpectPostsArriveDuring(flood);
  const nlohmann::json tally = flood.get();
  ASSERT_TRUE(tally.is_object());
  EXPECT_EQ(tally["sent"], kFlood);
  ExpectFates(before, tally, false);
  EXPECT_EQ(Statistics().unauthorized, before.unauthorized);
  observing.ExpectSame();
  playing.ExpectUndisturbed();
}

TEST_F(HostileDatagrams, OfAnotherUserReachOnlyTheSharedPlaceAndAreCounted) {
  if (geteuid() != 0) GTEST_SKIP() << "another user needs root";
  Playing playing;
  const std::string mine = FindReceiver(getpid(), false);
  const std::string shared = FindReceiver(getpid(), true);
  ASSERT_FALSE(mine.empty());
  ASSERT_FALSE(shared.empty());
  const nlohmann::json tried = RunRole({"reach", mine});
  EXPECT_EQ(tried["path"], EACCES);
  EXPECT_EQ(tried["datagram"], EACCES);
  EXPECT_EQ(RunRole({"reach", shared})["datagram"], 0);

  playing.StartPlayer();
  const std::string player = FindReceiver(playing.Player().Pid(), true);
  const std::string playersOwn = FindReceiver(playing.Player().Pid(), false);
  ASSERT_FALSE(player.empty());
  ASSERT_FALSE(playersOwn.empty());
  ASSERT_TRUE(Flood(shared, shared, kFlood / 20, Seed(), "other").is_object());
  Flush();
  const Footprint observing(getpid());

  // The user's own place with its file opened to everybody: nothing is believed.
  ASSERT_EQ(chmod(mine.c_str(), 0666), 0);
  ASSERT_EQ(chmod(playersOwn.c_str(), 0666), 0);
  CFNotificationCenterStatistics before = Statistics();
  auto flood = std::async(std::launch::async,
                          [&] { return Flood(mine, playersOwn, kFlood / 2, Seed() + 1, "other"); });
  ExpectPostsArriveDuring(flood);
  nlohmann::json tally = flood.get();
  ASSERT_TRUE(tally.is_object());
  EXPECT_TRUE(WaitUntil([&] {
    return Statistics().unauthorized == before.unauthorized + kFlood / 2;
  })) << Statistics().unauthorized - before.unauthorized;
  EXPECT_EQ(Statistics().malformed, before.malformed);

  // The shared place: what is in order comes to those who listen to anybody.
  const std::uint64_t named = mNamed.Calls();
  NoteCalls();
  before = Statistics();
  flood = std::async(std::launch::async,
                     [&] { return Flood(shared, player, kFlood / 2, Seed() + 2, "other"); });
  ExpectPostsArriveDuring(flood);
  tally = flood.get();
  ASSERT_TRUE(tally.is_object());
  ExpectFates(before, tally, true);
  EXPECT_EQ(mNamed.Calls(), named);
  EXPECT_EQ(Statistics().unauthorized, before.unauthorized);
  observing.ExpectSame();
  playing.ExpectUndisturbed();
}

}  // namespace
}  // namespace tembra::test
