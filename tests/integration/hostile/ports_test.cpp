// A hundred thousand hostile messages to the ports of a running server, from its own user and from
// another one, while somebody plays.

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Playing.h"
#include "PortAttack.h"
#include "Roles.h"
#include "client/TMBAudioServer.h"
#include "corefoundation/Object.h"

namespace tembra::test {
namespace {

std::string FileOf(CFStringRef inOwnedName) {
  cf::Owned<CFStringRef> name(inOwnedName);
  char text[128] = {};
  CFStringGetCString(name, text, sizeof text, kCFStringEncodingUTF8);
  return PortFile(text);
}

// A port counted what an attack says, and at most the uncertain ones besides.
bool Agrees(const nlohmann::json& inPort, const PortAttack::Tally& inTally) {
  const auto malformed = inPort["malformed"].get<std::uint64_t>();
  return malformed >= inTally.malformed &&
         malformed <= inTally.malformed + inTally.maybeMalformed &&
         inPort["oversized"] == inTally.oversized;
}

// Waits until the server has taken in all of an attack and counted it as it was meant.
void ExpectCounted(const Playing& inPlaying, const PortAttack& inAttack) {
  const PortAttack::Tally& listener = inAttack.To(Target::kListener);
  const PortAttack::Tally& data = inAttack.To(Target::kOwnData);
  auto isCounted = [&](const nlohmann::json& inStatistics) {
    const nlohmann::json& server = inStatistics["server"];
    const nlohmann::json client = Playing::FindClient(inStatistics, getpid());
    if (!client.is_object()) return false;
    return server["bad_messages"] == inAttack.BadMessages() &&
           server["clients_refused"] == inAttack.RefusedFormats() &&
           Agrees(server["listener_port"], listener) && Agrees(client["data_port"], data) &&
           client["blocks"].get<std::uint64_t>() + client["rejected"].get<std::uint64_t>() ==
               data.messages;
  };
  EXPECT_TRUE(inPlaying.WaitForStatistics(isCounted))
      << inPlaying.Statistics().dump(1) << "bad messages " << inAttack.BadMessages() << ", refused "
      << inAttack.RefusedFormats() << "; listener: malformed " << listener.malformed << " to "
      << listener.malformed + listener.maybeMalformed << ", oversized " << listener.oversized
      << "; data: malformed " << data.malformed << " to " << data.malformed + data.maybeMalformed
      << ", oversized " << data.oversized << ", blocks " << data.messages;
}

TEST(HostileMessages, OfTheServersOwnUserDoNoHarmAndAreCounted) {
  Playing playing;
  PortAttack attack(Seed());
  ASSERT_TRUE(attack.BecomeClient());
  // A short one first: what the server keeps for good, it has then.
  ASSERT_TRUE(attack.Send(kFlood / 20)) << "after " << attack.Sent() << playing.Server().Errors();
  attack.CloseConnections();
  ExpectCounted(playing, attack);
  const Footprint server(playing.Server().Pid());

  playing.StartPlayer();
  attack.AimAtClient(playing.Player().Pid());
  const std::uint64_t before = attack.Sent();
  ASSERT_TRUE(attack.Send(kFlood))
      << "after " << attack.Sent() - before << playing.Server().Errors();
  EXPECT_EQ(attack.Sent() - before, kFlood);
  EXPECT_EQ(playing.Player().Wait(std::chrono::seconds(150)), 0) << playing.Player().Errors();
  attack.CloseConnections();
  ExpectCounted(playing, attack);
  server.ExpectSame();

  const nlohmann::json statistics = playing.Statistics();
  const nlohmann::json own = Playing::FindClient(statistics, getpid());
  for (const auto& [reason, count] : attack.Rejected()) {
    EXPECT_GT(count, 0u);
    EXPECT_GE(own["rejected_by_reason"][reason].get<std::uint64_t>(), count) << reason;
  }
  // All that came to the other client's port came from a stranger to it.
  const nlohmann::json other = Playing::FindClient(statistics, playing.Player().Pid());
  const PortAttack::Tally& tally = attack.To(Target::kOtherData);
  EXPECT_GT(other["rejected"], 0);
  EXPECT_EQ(other["rejected"], other["rejected_by_reason"]["wrong_sender"]);
  EXPECT_LE(other["rejected"], tally.messages);
  EXPECT_GT(other["data_port"]["malformed"], 0);
  EXPECT_LE(other["data_port"]["malformed"], tally.malformed + tally.maybeMalformed);
  std::printf("sent %llu to the listener, %llu to a data port, %llu to another's\n",
              static_cast<unsigned long long>(attack.To(Target::kListener).sent),
              static_cast<unsigned long long>(attack.To(Target::kOwnData).sent),
              static_cast<unsigned long long>(tally.sent));
  EXPECT_EQ(statistics["server"]["writer_lost_frames"], 0);
  playing.ExpectUndisturbed();
}

TEST(HostileMessages, OfAnotherUserAreTurnedAwayUnread) {
  if (geteuid() != 0) GTEST_SKIP() << "another user needs root";
  Playing playing;
  const std::string listener = FileOf(CFTmbSndCopyListenerID());
  // No way leads to the port; who had its file could still not use it.
  const nlohmann::json tried = RunRole({"reach", listener});
  EXPECT_EQ(tried["path"], EACCES);
  EXPECT_EQ(tried["stream"], EACCES);

  // Now both the way and the file are opened to everybody: the port itself must tell who comes.
  ASSERT_EQ(chmod(listener.c_str(), 0666), 0);
  ASSERT_TRUE(RunRole({"connect", listener, listener, "1000", std::to_string(Seed())}).is_object());
  ASSERT_TRUE(playing.WaitForStatistics([](const nlohmann::json& inStatistics) {
    return inStatistics["server"]["listener_port"]["refused_user"] == 1000;
  }));
  const Footprint server(playing.Server().Pid());

  playing.StartPlayer();
  const std::string data = FileOf(CFTmbSndCopyPortID(playing.Player().Pid()));
  ASSERT_EQ(chmod(data.c_str(), 0666), 0);
  const nlohmann::json sent =
      RunRole({"connect", data, listener, std::to_string(kFlood / 4), std::to_string(Seed() + 1)});
  ASSERT_TRUE(sent.is_object());
  EXPECT_EQ(sent["messages"], kFlood);
  const std::uint64_t expected = 1000 + sent["second"].get<std::uint64_t>();
  EXPECT_TRUE(playing.WaitForStatistics([&](const nlohmann::json& inStatistics) {
    return inStatistics["server"]["listener_port"]["refused_user"] == expected;
  })) << expected
      << playing.Statistics().dump(1);
  EXPECT_EQ(playing.Player().Wait(std::chrono::seconds(150)), 0) << playing.Player().Errors();
  ASSERT_TRUE(playing.WaitForStatistics(
      [](const nlohmann::json& inStatistics) { return inStatistics["clients"].empty(); }));
  server.ExpectSame();

  const nlohmann::json statistics = playing.Statistics();
  const nlohmann::json& port = statistics["server"]["listener_port"];
  EXPECT_EQ(port["malformed"], 0);
  // The player's own.
  EXPECT_LE(port["accepted"], 4);
  EXPECT_EQ(statistics["server"]["bad_messages"], 0);
  EXPECT_EQ(statistics["server"]["clients_seen"], 1);
  const nlohmann::json client = Playing::FindClient(statistics, playing.Player().Pid());
  EXPECT_GT(client["data_port"]["refused_user"], 0);
  EXPECT_LE(client["data_port"]["refused_user"], sent["first"]);
  EXPECT_EQ(client["data_port"]["malformed"], 0);
  EXPECT_EQ(client["rejected"], 0);
  playing.ExpectUndisturbed();
}

}  // namespace
}  // namespace tembra::test
