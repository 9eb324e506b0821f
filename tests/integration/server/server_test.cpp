#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <random>

#include "FakeClient.h"
#include "ServerFixture.h"
#include "client/Snd.h"
#include "client/TMBAudioClientInfo.h"
#include "client/TMBAudioServer.h"
#include "server/EventPoster.h"
#include "server/ServerPort.h"
#include "support/tools/RenderedFiles.h"

namespace tembra::test {

namespace {

std::vector<float> Ramp(size_t inFrames, float inStart = 0.0f) {
  std::vector<float> samples(inFrames * 2);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = inStart + static_cast<float>(i) * 1e-4f;
  return samples;
}

UInt64 Blocks(const nlohmann::json& inJSON) {
  UInt64 blocks = 0;
  for (const auto& client : inJSON["clients"]) blocks += client["blocks"].get<UInt64>();
  for (const auto& client : inJSON["ended"]) blocks += client["blocks"].get<UInt64>();
  return blocks;
}

size_t CountDescriptors(pid_t inPID) {
  const auto folder = std::filesystem::directory_iterator("/proc/" + std::to_string(inPID) + "/fd");
  return static_cast<size_t>(std::distance(begin(folder), end(folder)));
}

}  // namespace

class Server : public ServerFixture {};

TEST_F(Server, PostsFinishAndStartTwiceAtItsStartAndFinishAtItsEnd) {
  FakeClient client;
  auto server = StartServer();
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventStart, 2));
  EXPECT_EQ(End(*server), 0);
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventFinish, 3));
  std::vector<int> codes;
  for (const Event& event : client.Events()) {
    codes.push_back(event.mCode);
    EXPECT_EQ(event.mClientPID, -1);
    EXPECT_EQ(event.mServerUID, static_cast<SInt32>(getuid()));
    EXPECT_EQ(event.mServerPID, server->Pid());
  }
  EXPECT_THAT(codes, testing::ElementsAre('fnsh', 'strt', 'fnsh', 'strt', 'fnsh'));
}

TEST_F(Server, EndsCleanlyOnInterrupt) {
  auto server = StartServer();
  EXPECT_EQ(End(*server, SIGINT), 0);
  const nlohmann::json json = Statistics();
  EXPECT_EQ(json["final"], true);
}

TEST_F(Server, DataPortExistsBeforeTheClientIsTold) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  for (const Event& event : client.Events()) {
    if (event.mCode != kTMBAudioServerEventClientAdded) continue;
    EXPECT_EQ(event.mClientPID, getpid());
    EXPECT_TRUE(event.mDataPortExisted);
  }
  EXPECT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) {
    return inJSON["clients"].size() == 1 && inJSON["clients"][0]["state"] == "streaming";
  }));
}

TEST_F(Server, RecordsWhatWasSentBitForBit) {
  auto server = StartServer({"--record", File("mix.wav"), "--record-dir", File("clients")});
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  std::vector<float> wanted;
  for (int block = 0; block < 20; ++block) {
    std::vector<float> samples = Ramp(512, static_cast<float>(block));
    samples[7] = -0.0f;
    samples[8] = 1e-42f;
    ASSERT_TRUE(WaitUntil([&] { return client.SendBlock(512.0 * block, samples); }));
    wanted.insert(wanted.end(), samples.begin(), samples.end());
  }
  // A gap of three buffers.
  ASSERT_TRUE(client.SendBlock(512.0 * 23, Ramp(512)));
  wanted.resize(wanted.size() + 3 * 1024, 0.0f);
  const std::vector<float> last = Ramp(512);
  wanted.insert(wanted.end(), last.begin(), last.end());
  ASSERT_TRUE(client.SendDispose());
  client.CloseData();
  client.CloseListener();
  ASSERT_TRUE(
      WaitForStatistics([](const nlohmann::json& inJSON) { return inJSON["ended"].size() == 1; }));
  EXPECT_EQ(End(*server), 0);

  const nlohmann::json ended = Statistics()["ended"][0];
  EXPECT_EQ(ended["state"], "ended");
  EXPECT_EQ(ended["pid"], getpid());
  EXPECT_EQ(ended["blocks"], 21);
  EXPECT_EQ(ended["frames"], 21 * 512);
  EXPECT_EQ(ended["gaps"], 1);
  EXPECT_EQ(ended["silence_frames"], 3 * 512);
  EXPECT_EQ(ended["rejected"], 0);
  for (const std::string& path : {File("mix.wav"), ended["recording"].get<std::string>()}) {
    const std::vector<float> read = ReadSound(path);
    ASSERT_EQ(read.size(), wanted.size()) << path;
    EXPECT_EQ(std::memcmp(read.data(), wanted.data(), read.size() * sizeof(float)), 0) << path;
  }
}

// The blocks lie in one socket, the good-bye in another.
TEST_F(Server, DisposeDoesNotOvertakeTheBlocksBeforeIt) {
  auto server = StartServer();
  for (int round = 0; round < 20; ++round) {
    FakeClient client;
    // Half of the time the server has not even seen that the data port was opened.
    const bool early = round % 2 == 0;
    if (early) {
      ASSERT_TRUE(client.OpenListener() && client.SendAdd());
      ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientAdded));
    } else {
      ASSERT_TRUE(client.Connect());
    }
    server->Signal(SIGSTOP);
    if (early) {
      ASSERT_TRUE(client.OpenData(getpid()));
    }
    UInt64 sent = 0;
    for (int block = 0; block < 8; ++block) {
      if (client.SendBlock(512.0 * block, Ramp(512))) ++sent;
    }
    ASSERT_GT(sent, 0u);
    ASSERT_TRUE(client.SendDispose());
    client.CloseData();
    client.CloseListener();
    server->Signal(SIGCONT);
    ASSERT_TRUE(WaitForStatistics([&](const nlohmann::json& inJSON) {
      return inJSON["server"]["clients_seen"] == round + 1 && inJSON["clients"].empty();
    }));
    ASSERT_EQ(Statistics()["ended"].back()["blocks"], sent) << round;
  }
}

TEST_F(Server, BlocksOnTheirWayWhenItEndsAreTakenIn) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  server->Signal(SIGSTOP);
  UInt64 sent = 0;
  for (int block = 0; block < 8; ++block) {
    if (client.SendBlock(512.0 * block, Ramp(512))) ++sent;
  }
  server->Signal(SIGTERM);
  server->Signal(SIGCONT);
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventFinish));
  client.CloseData();
  client.CloseListener();
  EXPECT_EQ(server->Wait(std::chrono::seconds(20)), 0);
  EXPECT_EQ(Blocks(Statistics()), sent);
}

TEST_F(Server, ClientThatCameAgainStartsANewSession) {
  auto server = StartServer();
  FakeClient client;
  for (UInt64 round = 1; round <= 3; ++round) {
    ASSERT_TRUE(client.Connect());
    ASSERT_TRUE(client.SendBlock(0.0, Ramp(512)));
    ASSERT_TRUE(client.SendDispose());
    client.CloseData();
    client.CloseListener();
  }
  ASSERT_TRUE(
      WaitForStatistics([](const nlohmann::json& inJSON) { return inJSON["ended"].size() == 3; }));
  const nlohmann::json json = Statistics();
  for (const auto& session : json["ended"]) EXPECT_EQ(session["blocks"], 1);
}

TEST_F(Server, SecondServerSaysSoAndDisturbsNobody) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  const size_t finishes = client.Count(kTMBAudioServerEventFinish);
  Program second("tmbasrv", {"--private", "--record", File("second.wav")}, File("second"));
  EXPECT_EQ(second.Wait(), 5);
  EXPECT_NE(second.Errors().find("another audio server"), std::string::npos) << second.Errors();
  EXPECT_FALSE(std::filesystem::exists(File("second.wav")));
  ASSERT_TRUE(client.SendBlock(0.0, Ramp(512)));
  ASSERT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) { return Blocks(inJSON) == 1; }));
  EXPECT_EQ(client.Count(kTMBAudioServerEventFinish), finishes);
}

TEST_F(Server, MessageOfAnotherIdentityIsRefused) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.OpenListener());
  const AudioStreamBasicDescription format = TMBAudioClientInfo().GetStreamDescription();
  for (const TMBAudioClientInfo& info : {TMBAudioClientInfo(getuid(), getpid() + 1, format),
                                         TMBAudioClientInfo(getuid() + 1, getpid(), format)}) {
    CFDataRef data = info.CopyMessageData(true);
    ASSERT_TRUE(client.SendMessage(kTMBAudioMessageAddID, data));
    CFRelease(data);
  }
  ASSERT_TRUE(client.SendMessage('junk', {1, 2, 3}));
  ASSERT_TRUE(WaitForStatistics(
      [](const nlohmann::json& inJSON) { return inJSON["server"]["bad_messages"] == 3; }));
  EXPECT_TRUE(Statistics()["clients"].empty());
  EXPECT_EQ(client.Count(kTMBAudioServerEventClientAdded), 0u);
}

TEST_F(Server, FormatThatItCannotTakeIsRefused) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.OpenListener());
  ASSERT_TRUE(client.SendAdd(0.0));
  ASSERT_TRUE(WaitForStatistics(
      [](const nlohmann::json& inJSON) { return inJSON["server"]["clients_refused"] == 1; }));
  EXPECT_EQ(client.Count(kTMBAudioServerEventClientAdded), 0u);
  EXPECT_NE(server->Errors().find("is refused: its sample rate"), std::string::npos);
  EXPECT_TRUE(client.SendAdd());
  EXPECT_TRUE(client.WaitFor(kTMBAudioServerEventClientAdded));
}

TEST_F(Server, KilledClientIsDroppedAndItsPortCloses) {
  auto server = StartServer({"--record-dir", File("killed")});
  auto role = StartRole({"connect"});
  ASSERT_TRUE(WaitUntil([&] { return role->Output().find("connected") != std::string::npos; }));
  const size_t before = CountDescriptors(server->Pid());
  role->Signal(SIGKILL);
  ASSERT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) {
    return inJSON["server"]["clients_dropped"] == 1 && inJSON["clients"].empty();
  }));
  CFStringRef name = CFTmbSndCopyPortID(role->Pid());
  EXPECT_TRUE(WaitUntil([&] {
    CFMessagePortRef port = CFMessagePortCreateRemote(kCFAllocatorDefault, name);
    if (port == nullptr) return true;
    CFMessagePortInvalidate(port);
    CFRelease(port);
    return false;
  }));
  CFRelease(name);
  EXPECT_TRUE(WaitUntil([&] { return CountDescriptors(server->Pid()) < before; }));
}

TEST_F(Server, SilentClientIsAskedAndDroppedAndComesBack) {
  auto server = StartServer({"--check-interval", "0.3"});
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientCheck));
  // An answer keeps it.
  ASSERT_TRUE(client.SendEcho());
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientCheck, 2));
  EXPECT_EQ(client.Count(kTMBAudioServerEventClientDeleted), 0u);
  // None ends it.
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientDeleted));
  ASSERT_TRUE(
      WaitForStatistics([](const nlohmann::json& inJSON) { return inJSON["clients"].empty(); }));
  EXPECT_TRUE(WaitUntil([&] { return !client.IsDataOpen(); }));
  // It is still connected, so it is asked again, and its echo adds it.
  const size_t asked = client.Count(kTMBAudioServerEventClientCheck);
  const size_t added = client.Count(kTMBAudioServerEventClientAdded);
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientCheck, asked + 1));
  ASSERT_TRUE(client.SendEcho());
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientAdded, added + 1));
  EXPECT_TRUE(client.OpenData(getpid()));
}

TEST_F(Server, ClientThatSendsIsNotAsked) {
  auto server = StartServer({"--check-interval", "0.4"});
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  int block = 0;
  ASSERT_TRUE(WaitUntil([&] {
    client.SendBlock(512.0 * block++, Ramp(512));
    const nlohmann::json json = Statistics();
    return json.is_object() && json["server"]["uptime_s"].get<double>() > 2.0;
  }));
  EXPECT_EQ(client.Count(kTMBAudioServerEventClientCheck), 0u);
  EXPECT_EQ(client.Count(kTMBAudioServerEventClientDeleted), 0u);
}

TEST_F(Server, ConnectedButUnregisteredProcessIsAskedAndItsEchoCountsAsAnAdd) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.OpenListener());
  // Shows the server that somebody is there, without registering.
  ASSERT_TRUE(client.SendMessage('junk', {1}));
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientCheck));
  ASSERT_TRUE(client.SendEcho());
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientAdded));
  EXPECT_TRUE(client.OpenData(getpid()));
}

TEST_F(Server, ClientThatDoesNotOpenItsDataPortIsToldAgain) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.OpenListener());
  ASSERT_TRUE(client.SendAdd());
  ASSERT_TRUE(client.WaitFor(kTMBAudioServerEventClientAdded, 2));
  std::vector<int> codes;
  for (const Event& event : client.Events()) {
    if (event.mClientPID == getpid()) codes.push_back(event.mCode);
  }
  EXPECT_THAT(codes, testing::ElementsAre('cadd', 'cdel', 'cadd'));
}

TEST_F(Server, ProcessThatSpeaksOnAnothersPortIsTurnedAway) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  auto intruder = StartRole({"intrude", std::to_string(getpid())});
  EXPECT_EQ(intruder->Wait(), 0);
  ASSERT_TRUE(client.SendBlock(0.0, Ramp(512)));
  ASSERT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) { return Blocks(inJSON) == 1; }));
  EXPECT_EQ(Statistics()["clients"][0]["rejected_by_reason"]["wrong_sender"], 1);
}

TEST_F(Server, SixteenProcessesAreAllThereAndMixedToTheirSum) {
  auto server = StartServer(
      {"--record", File("sum.wav"), "--record-dir", File("sixteen"), "--mix-delay", "10"});
  constexpr int kBlocks = 50;
  std::vector<std::unique_ptr<Program>> roles;
  double sum = 0.0;
  for (int i = 1; i <= 16; ++i) {
    sum += i;
    roles.push_back(StartRole({"stream", std::to_string(kBlocks), std::to_string(i)}));
  }
  for (auto& role : roles) EXPECT_EQ(role->Wait(), 0);
  ASSERT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) {
    return inJSON["ended"].size() == 16 && inJSON["clients"].empty();
  }));
  EXPECT_EQ(End(*server), 0);
  const nlohmann::json json = Statistics();
  double total = 0.0;
  for (const auto& client : json["ended"]) {
    EXPECT_EQ(client["blocks"], kBlocks) << client.dump() << server->Errors();
    EXPECT_EQ(client["rejected"], 0);
    EXPECT_EQ(client["lost"], 0);
    const std::vector<float> samples = ReadSound(client["recording"]);
    ASSERT_EQ(samples.size(), size_t{kBlocks} * 1024);
    EXPECT_THAT(samples, testing::Each(samples[0]));
    total += static_cast<double>(samples[0]);
  }
  EXPECT_EQ(total, sum);
  double mixed = 0.0;
  for (float sample : ReadSound(File("sum.wav"))) mixed += static_cast<double>(sample);
  EXPECT_EQ(mixed, sum * kBlocks * 1024);
}

TEST_F(Server, HostileMessagesHarmNobody) {
  auto server = StartServer();
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  ASSERT_TRUE(client.SendBlock(0.0, Ramp(512)));
  ASSERT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) { return Blocks(inJSON) == 1; }));
  const size_t descriptors = CountDescriptors(server->Pid());
  const char* given = std::getenv("TEMBRA_SEED");
  const unsigned seed =
      given != nullptr ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
  RecordProperty("seed", std::to_string(seed));
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  CFDataRef good = TMBAudioClientInfo().CopyMessageData(true);
  const std::vector<UInt8> add(CFDataGetBytePtr(good),
                               CFDataGetBytePtr(good) + CFDataGetLength(good));
  CFRelease(good);
  UInt64 sent = 0;
  for (int round = 0; round < 100000; ++round) {
    std::vector<UInt8> bytes = random() % 2 == 0 ? add : std::vector<UInt8>(random() % 300);
    if (bytes.size() != add.size()) {
      for (UInt8& byte : bytes) byte = static_cast<UInt8>(random());
    }
    if (!bytes.empty()) bytes[random() % bytes.size()] ^= static_cast<UInt8>(1 + random() % 255);
    if (!bytes.empty() && random() % 3 == 0) bytes.resize(random() % bytes.size());
    const SInt32 id = random() % 2 == 0 ? 0 : static_cast<SInt32>(random());
    // What finds the queue full is lost; wait now and then so that most arrive.
    const bool queued =
        random() % 2 == 0 ? client.SendMessage(id, bytes) : client.SendBytes(id, bytes);
    if (queued) {
      ++sent;
    } else {
      usleep(200);
    }
  }
  EXPECT_GT(sent, 50000u);
  ASSERT_TRUE(server->Running()) << server->Errors();
  ASSERT_TRUE(WaitUntil([&] { return client.SendBlock(512.0, Ramp(512)); }));
  EXPECT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) { return Blocks(inJSON) == 2; }));
  const nlohmann::json json = Statistics();
  EXPECT_GT(json["server"]["bad_messages"].get<UInt64>(), 1000u);
  EXPECT_GT(json["clients"][0]["rejected"].get<UInt64>(), 1000u);
  EXPECT_LE(CountDescriptors(server->Pid()), descriptors + 2);
  EXPECT_EQ(End(*server), 0);
}

TEST_F(Server, KilledServerIsFollowedByOneThatCallsEverybodyBack) {
  FakeClient client;
  auto first = StartServer();
  ASSERT_TRUE(client.Connect());
  first->Signal(SIGKILL);
  EXPECT_EQ(first->Wait(), 128 + SIGKILL);
  const size_t finishes = client.Count(kTMBAudioServerEventFinish);
  auto second = StartServer();
  EXPECT_TRUE(client.WaitFor(kTMBAudioServerEventFinish, finishes + 2));
  client.CloseData();
  client.CloseListener();
  ASSERT_TRUE(client.Connect());
  ASSERT_TRUE(client.SendBlock(0.0, Ramp(512)));
  EXPECT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) { return Blocks(inJSON) == 1; }));
}

// A server that died between telling a client that it was added and opening its data port leaves
// the client with a dead listener port that counts as open: a single start would find it deaf.
TEST_F(Server, ClientCaughtWaitingForItsDataPortIsBroughtBack) {
  const std::string sound = File("noise.wav");
  WriteFloatSound(sound, 44100, 2, std::vector<float>(size_t{44100} * 20 * 2, 0.25f));

  CFStringRef name = CFTmbSndCopyListenerID();
  bool added = false;
  ServerPort::Handler handler;
  handler.mOpened = [](const CFMessagePortPeer&) {};
  handler.mClosed = [](const CFMessagePortPeer&) {};
  handler.mMessage = [&](SInt32 inID, CFDataRef, const CFMessagePortPeer&) {
    added = added || inID == kTMBAudioMessageAddID;
  };
  auto dying = ServerPort::Create(name, handler);
  CFRelease(name);
  ASSERT_NE(dying, nullptr);
  dying->Schedule(CFRunLoopGetCurrent());
  Program player("tmbaudio", {"play", sound}, File("player"));
  ASSERT_TRUE(WaitUntil([&] {
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
    return added;
  })) << player.Errors();
  {
    EventPoster events;
    events.PostAbout(kTMBAudioServerEventClientAdded, player.Pid());
  }
  dying.reset();
  auto server = StartServer();
  EXPECT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) { return Blocks(inJSON) >= 10; }))
      << Statistics().dump();
}

TEST_F(Server, StandardOutputCarriesTheMix) {
  auto server = StartServer({"--stdout"});
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  const std::vector<float> samples = Ramp(512, 1.0f);
  ASSERT_TRUE(client.SendBlock(0.0, samples));
  ASSERT_TRUE(WaitUntil([&] { return server->Output().size() == samples.size() * 4; }));
  EXPECT_EQ(std::memcmp(server->Output().data(), samples.data(), samples.size() * 4), 0);
  EXPECT_EQ(End(*server), 0);
}

TEST_F(Server, EndsByItselfAfterItsDuration) {
  auto server = StartServer({"--duration", "0.2"});
  EXPECT_EQ(server->Wait(std::chrono::seconds(20)), 0);
}

TEST_F(Server, FlacRecordingIsReadable) {
  auto server = StartServer({"--record", File("mix.flac")});
  FakeClient client;
  ASSERT_TRUE(client.Connect());
  ASSERT_TRUE(client.SendBlock(0.0, std::vector<float>(1024, 0.25f)));
  ASSERT_TRUE(WaitForStatistics([](const nlohmann::json& inJSON) { return Blocks(inJSON) == 1; }));
  client.SendDispose();
  client.CloseData();
  client.CloseListener();
  EXPECT_EQ(End(*server), 0);
  const std::vector<float> read = ReadSound(File("mix.flac"));
  ASSERT_EQ(read.size(), 1024u);
  EXPECT_NEAR(read[100], 0.25f, 1e-6f);
}

TEST_F(Server, HelpIsCompleteAndUsageErrorsAreTwo) {
  Program help("tmbasrv", {"--help"}, File("help"));
  EXPECT_EQ(help.Wait(), 0);
  for (const char* word :
       {"--record ", "--record-dir", "--play", "--stdout", "--stats", "--json", "--meter",
        "--latency", "--mix-delay", "--max-gap", "--check-interval", "--duration", "--ready-fd",
        "--block-log", "--private", "Exit status", "SIGTERM", "5 another"}) {
    EXPECT_NE(help.Output().find(word), std::string::npos) << word;
  }
  Program unknown("tmbasrv", {"--nonsense"}, File("unknown"));
  EXPECT_EQ(unknown.Wait(), 2);
  Program ending("tmbasrv", {"--record", "x.mp3"}, File("ending"));
  EXPECT_EQ(ending.Wait(), 2);
  EXPECT_NE(ending.Errors().find(".flac"), std::string::npos);
  Program both("tmbasrv", {"--stdout", "--json"}, File("both"));
  EXPECT_EQ(both.Wait(), 2);
}

TEST_F(Server, FailuresNameTheCauseAndEndWithOne) {
  Program folder("tmbasrv", {"--private", "--record", "/nonexistent/x.wav"}, File("folder"));
  EXPECT_EQ(folder.Wait(), 1);
  EXPECT_NE(folder.Errors().find("/nonexistent/x.wav"), std::string::npos) << folder.Errors();
}

TEST_F(Server, ReadyDescriptorTells) {
  const std::string path = File("ready");
  const int file = open(path.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(file, 0);
  ASSERT_EQ(dup2(file, 19), 19);
  Program server("tmbasrv", {"--private", "--ready-fd", "19", "--quiet"}, File("quiet"));
  EXPECT_TRUE(WaitUntil([&] { return ReadFile(path) == "ready\n"; }));
  EXPECT_EQ(End(server), 0);
  EXPECT_EQ(server.Errors(), "");
  close(19);
  close(file);
}

}  // namespace tembra::test
