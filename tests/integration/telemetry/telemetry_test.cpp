// Telemetry between processes: the command, the port, what another language reads of it, and
// readers that are slow, many, foreign or gone.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "Roles.h"
#include "base/Descriptor.h"
#include "ports/PortNames.h"
#include "ports/PortWire.h"
#include "support/PrivateRuntime.h"
#include "support/Program.h"
#include "support/Sanitizers.h"
#include "tools/TelemetryReader.h"

namespace tembra::test {
namespace {

using testing::HasSubstr;

constexpr const char* kVariable = "CoreAudio_HAL_Enable_Telemetry";
constexpr const char* kMarkerFile = "/var/db/.com.apple.audio.telemetryenabled";

class Telemetry : public testing::Test {
 protected:
  Telemetry() { unsetenv(kVariable); }

  PrivateRuntime& Runtime() {
    // The platform finds the runtime directory once for the process.
    static auto& sRuntime = *new PrivateRuntime;
    return sRuntime;
  }
  std::string NewPrefix() { return mFiles.File("program" + std::to_string(++mPrograms)); }

  // A process that says that it is ready.
  Program Start(const std::string& inRole, bool inIsAllowed = true) {
    if (inIsAllowed) setenv(kVariable, "1", 1);
    Program program("/proc/self/exe", {"--role", inRole}, NewPrefix());
    unsetenv(kVariable);
    EXPECT_TRUE(WaitUntil([&] { return program.Output().find("ready") != std::string::npos; }))
        << program.Errors();
    return program;
  }

  struct Result {
    int mStatus;
    std::string mOutput;
    std::string mErrors;
  };
  Result Run(std::vector<std::string> inArguments) {
    inArguments.insert(inArguments.begin(), "telemetry");
    Program program("tmbaudio", inArguments, NewPrefix());
    const int status = program.Wait();
    return {status, program.Output(), program.Errors()};
  }
  static std::string Pid(const Program& inProgram) { return std::to_string(inProgram.Pid()); }

  PrivateRuntime& mFiles = Runtime();
  int mPrograms = 0;
};

std::vector<nlohmann::json> Lines(const std::string& inText) {
  std::vector<nlohmann::json> lines;
  std::istringstream text(inText);
  for (std::string line; std::getline(text, line);) lines.push_back(nlohmann::json::parse(line));
  return lines;
}

// A request as bytes, its reply as bytes; nothing for no reply.
std::optional<std::string> Ask(CFMessagePortRef inPort, std::uint32_t inMessage,
                               const std::string& inData) {
  CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(inData.data()),
                                static_cast<CFIndex>(inData.size()));
  CFDataRef reply = nullptr;
  EXPECT_EQ(CFMessagePortSendRequest(inPort, static_cast<SInt32>(inMessage), data, 20.0, 20.0,
                                     kCFRunLoopDefaultMode, &reply),
            0);
  CFRelease(data);
  if (reply == nullptr) return std::nullopt;
  std::string bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(reply)),
                    static_cast<size_t>(CFDataGetLength(reply)));
  CFRelease(reply);
  return bytes;
}

std::string PortName(pid_t inProcess, CFStringRef inUID) {
  long long sum = 0;
  for (CFIndex i = 0; i < CFStringGetLength(inUID); ++i) {
    sum += CFStringGetCharacterAtIndex(inUID, i);
  }
  return "com.apple.audio.CoreAudio.pid-" + std::to_string(inProcess) + "." +
         std::to_string(CFHash(inUID)) + "." + std::to_string(sum) + ".Telemetry.IOCycle";
}

CFMessagePortRef OpenPort(pid_t inProcess) {
  CFStringRef name = CFStringCreateWithCString(
      nullptr, PortName(inProcess, CFSTR("TMBAudioCln_Plugin")).c_str(), kCFStringEncodingUTF8);
  CFMessagePortRef port = CFMessagePortCreateRemote(nullptr, name);
  CFRelease(name);
  return port;
}

// The command.

TEST_F(Telemetry, TheCommandStartsDrainsSumsUpAndStops) {
  Program player = Start("play");
  Result result = Run({"start"});
  ASSERT_EQ(result.mStatus, 0) << result.mErrors;
  EXPECT_THAT(result.mOutput, HasSubstr("process " + Pid(player)));
  EXPECT_THAT(result.mOutput, HasSubstr("capture is on"));

  // A chunk of 256 events is full after some 30 cycles.
  std::vector<nlohmann::json> events;
  ASSERT_TRUE(WaitUntil(
      [&] {
        result = Run({"drain", "--pid", Pid(player)});
        EXPECT_EQ(result.mStatus, 0) << result.mErrors;
        events = Lines(result.mOutput);
        return !events.empty();
      },
      std::chrono::seconds(60)));
  EXPECT_EQ(events.size() % 256, 0u);
  std::uint64_t last = 0;
  std::map<std::string, int> counts;
  for (const nlohmann::json& event : events) {
    EXPECT_GE(event["time"].get<std::uint64_t>(), last);
    last = event["time"].get<std::uint64_t>();
    ++counts[event["kind"].get<std::string>()];
    if (event["kind"] == "wrke") {
      EXPECT_GT(event["wake_up"]["host_time"].get<std::uint64_t>(),
                event["now"]["host_time"].get<std::uint64_t>());
      EXPECT_EQ(event["event"], "cycle_end");
    }
    if (event["kind"] == "wrkb") EXPECT_GT(event["now"]["host_time"].get<std::uint64_t>(), 0u);
    if (event["kind"] == "iiob")
      EXPECT_THAT(event["procedure"].get<std::string>(), HasSubstr("0x"));
  }
  for (const char* kind : {"wrkb", "wrke", "iopb", "iope", "iiob", "iioe", "outp", "sync"}) {
    EXPECT_GT(counts[kind], 0) << kind;
  }

  nlohmann::json summary;
  ASSERT_TRUE(WaitUntil(
      [&] {
        result = Run({"summary", "--json"});
        EXPECT_EQ(result.mStatus, 0) << result.mErrors;
        summary = nlohmann::json::parse(result.mOutput);
        return summary["cycles"].get<int>() > 0;
      },
      std::chrono::seconds(60)));
  EXPECT_EQ(summary["pid"], player.Pid());
  EXPECT_GT(summary["lateness"]["count"].get<int>(), 0);
  EXPECT_GT(summary["time_in_procedures"]["count"].get<int>(), 0);
  EXPECT_GT(summary["outputs"].get<int>(), 0);
  ASSERT_EQ(summary["procedures"].size(), 1u);
  EXPECT_GT(summary["procedures"][0]["count"].get<int>(), 0);

  result = Run({"summary"});
  EXPECT_EQ(result.mStatus, 0);
  for (const char* text : {"cycles", "overloads", "lateness", "time in procedures"}) {
    EXPECT_THAT(result.mOutput, HasSubstr(text));
  }

  result = Run({"stop"});
  EXPECT_EQ(result.mStatus, 0);
  EXPECT_THAT(result.mOutput, HasSubstr("capture is off"));
  result = Run({"drain"});
  EXPECT_EQ(result.mStatus, 1);
  EXPECT_THAT(result.mErrors, HasSubstr("tmbaudio telemetry start --pid " + Pid(player)));
}

TEST_F(Telemetry, TheCommandNamesTheRemedyWhereTelemetryIsNotEnabled) {
  Program player = Start("play", false);
  for (const char* verb : {"start", "stop", "drain", "summary"}) {
    const Result result = Run({verb, "--pid", Pid(player)});
    EXPECT_EQ(result.mStatus, 1);
    EXPECT_THAT(result.mErrors, HasSubstr("process " + Pid(player)));
    EXPECT_THAT(result.mErrors, HasSubstr("CoreAudio_HAL_Enable_Telemetry=1"));
  }
  const Result result = Run({"start"});
  EXPECT_EQ(result.mStatus, 1);
  EXPECT_THAT(result.mErrors, HasSubstr("no process of this user has telemetry enabled"));
  EXPECT_THAT(result.mErrors, HasSubstr(kMarkerFile));
}

TEST_F(Telemetry, TheCommandSaysThatThereIsNoSuchProcess) {
  Program player = Start("play");
  player.Signal(SIGKILL);
  player.Wait();
  const Result result = Run({"drain", "--pid", Pid(player)});
  EXPECT_EQ(result.mStatus, 1);
  EXPECT_THAT(result.mErrors, HasSubstr("there is no process " + Pid(player)));
  EXPECT_EQ(Run({"drain", "--pid", "0"}).mStatus, 2);
  EXPECT_EQ(Run({}).mStatus, 2);
}

TEST_F(Telemetry, TheCommandLetsOneChooseAmongProcessesAndDoesNotCountItself) {
  Program first = Start("play");
  Program second = Start("play");
  setenv(kVariable, "1", 1);
  const Result result = Run({"start"});
  EXPECT_EQ(result.mStatus, 2);
  EXPECT_THAT(result.mErrors, HasSubstr(Pid(first)));
  EXPECT_THAT(result.mErrors, HasSubstr(Pid(second)));
  EXPECT_EQ(Run({"start", "--pid", Pid(second)}).mStatus, 0);
  second.Signal(SIGKILL);
  second.Wait();
  const Result alone = Run({"start"});
  EXPECT_EQ(alone.mStatus, 0) << alone.mErrors;
  EXPECT_THAT(alone.mOutput, HasSubstr(Pid(first)));
}

TEST_F(Telemetry, TheCommandFailsWhereItsOutputGoesNowhere) {
  Program player = Start("play");
  ASSERT_EQ(Run({"start"}).mStatus, 0);
  Program full(
      "/bin/sh",
      {"-c", "exec \"$0\" telemetry summary > /dev/full", TEMBRA_BINARY_DIR "/bin/tmbaudio"},
      NewPrefix());
  EXPECT_EQ(full.Wait(), 1);
  EXPECT_THAT(full.Errors(), HasSubstr("standard output cannot be written"));
}

TEST_F(Telemetry, TheCommandsHelpSaysHowToEnableTelemetryAndWhatItsStatusMeans) {
  const Result result = Run({"--help"});
  EXPECT_EQ(result.mStatus, 0);
  for (const char* text : {"start", "stop", "drain", "summary", kVariable, kMarkerFile,
                           "Exit status: 0 ok, 1 failed, 2 usage."}) {
    EXPECT_THAT(result.mOutput, HasSubstr(text));
  }
}

TEST_F(Telemetry, AStoppedProcessIsGivenUp) {
  Program player = Start("play");
  player.Signal(SIGSTOP);
  const Result result = Run({"start", "--pid", Pid(player)});
  player.Signal(SIGCONT);
  EXPECT_EQ(result.mStatus, 1);
  EXPECT_THAT(result.mErrors, HasSubstr("does not answer"));
}

TEST_F(Telemetry, IsEnabledByTheMarkerFile) {
  std::ofstream(kMarkerFile) << "";
  Program player = Start("play", false);
  ASSERT_EQ(unlink(kMarkerFile), 0);
  const Result result = Run({"start", "--pid", Pid(player)});
  EXPECT_EQ(result.mStatus, 0) << result.mErrors;
}

// Another language as the witness.

TEST_F(Telemetry, PythonReadsTheRepliesAndTheRecordsAndWritesTheRequests) {
  Program player = Start("play");
  CFMessagePortRef port = OpenPort(player.Pid());
  ASSERT_NE(port, nullptr);
  const auto python = [&](const std::string& inCode, const std::string& inFile) {
    Program program("/usr/bin/python3",
                    {"-c", "import sys, plistlib, json, struct\n" + inCode, inFile}, NewPrefix());
    EXPECT_EQ(program.Wait(), 0) << program.Errors();
    return program.Output();
  };
  const std::string file = mFiles.File("exchange");
  const auto request = [&](const std::string& inDictionary) {
    python("plistlib.dump(" + inDictionary + ", open(sys.argv[1], 'wb'))", file);
    return ReadFile(file);
  };
  const auto read = [&](const std::optional<std::string>& inReply) {
    if (!inReply) return nlohmann::json();
    std::ofstream(file, std::ios::binary) << *inReply;
    return nlohmann::json::parse(
        python("d = open(sys.argv[1], 'rb').read()\n"
               "assert d.startswith(b'<?xml')\n"
               "print(json.dumps(plistlib.loads(d, fmt=plistlib.FMT_XML)))",
               file));
  };
  const std::string capture = std::to_string(0x63617074);
  EXPECT_EQ(read(Ask(port, 'getp', request("{'property id': " + capture + "}"))),
            nlohmann::json({{"property value", 0}, {"return error", 0}}));
  EXPECT_EQ(
      read(Ask(port, 'setp', request("{'property id': " + capture + ", 'property value': 1}"))),
      nlohmann::json({{"return error", 0}}));
  EXPECT_EQ(read(Ask(port, 'getp', request("{'property id': " + capture + "}"))),
            nlohmann::json({{"property value", 1}, {"return error", 0}}));
  EXPECT_EQ(read(Ask(port, 'getp', request("{'property id': 1}"))),
            nlohmann::json({{"return error", 0x77686F3F}}));
  EXPECT_EQ(read(Ask(port, 'setp', request("{'property id': 0x656E6469}"))),
            nlohmann::json({{"return error", 0x77686F3F}}));
  EXPECT_EQ(read(Ask(port, 'getp', request("{}"))), nlohmann::json({{"return error", 0x6E6F7065}}));
  EXPECT_EQ(Ask(port, 'nono', ""), std::nullopt);
  EXPECT_EQ(Ask(port, 'clrt', ""), std::nullopt);

  std::optional<std::string> events;
  ASSERT_TRUE(WaitUntil([&] { return (events = Ask(port, 'tele', "")).has_value(); }));
  std::ofstream(file, std::ios::binary) << *events;
  const nlohmann::json seen = nlohmann::json::parse(python(
      "d = open(sys.argv[1], 'rb').read()\n"
      "r = list(struct.iter_unpack('<Q4sI4d2QII', d))\n"
      "masks = {e[1][::-1].decode(): e[-1] for e in r}\n"
      "ok = all(a[0] <= b[0] for a, b in zip(r, r[1:])) and all(e[-2] == 0 for e in r)\n"
      "begins = [e for e in r if e[1] == b'bkrw']\n"
      "ok = ok and all(e[3] == 1.0 and e[4] == 0 and e[7] > 0 and e[8] == 0 for e in begins)\n"
      "print(json.dumps([len(r), masks, ok]))",
      file));
  EXPECT_EQ(seen[0], 256);
  EXPECT_EQ(seen[1]["wrkb"], 0x15);
  EXPECT_EQ(seen[1]["wrke"], 0x3F);
  EXPECT_EQ(seen[1]["iiob"], 0x10);
  EXPECT_EQ(seen[1]["iioe"], 0);
  EXPECT_EQ(seen[2], true);
  CFRelease(port);
}

// Readers.

TEST_F(Telemetry, AReaderInAnotherProcessGetsWholeRecordsOfARunThatWraps) {
  Program writer = Start("write");
  CFStringRef uid = CFStringCreateWithCString(nullptr, kWriterUID, kCFStringEncodingUTF8);
  tools::TelemetryReader reader(writer.Pid(), uid);
  CFRelease(uid);
  reader.SetCapturing(true);
  std::size_t read = 0;
  std::size_t torn = 0;
  const auto drain = [&] {
    for (const tools::TelemetryRecord& record : reader.Drain()) {
      CAHALIOCycleRawTelemetryEvent event;
      static_assert(sizeof event == sizeof record);
      std::memcpy(&event, &record, sizeof event);
      ++read;
      torn += IsWhole(event) ? 0 : 1;
    }
  };
  ASSERT_TRUE(WaitUntil(
      [&] {
        drain();
        return writer.Output().find("done") != std::string::npos;
      },
      std::chrono::seconds(60)));
  drain();
  EXPECT_GT(read, 0u);
  EXPECT_LE(read, kWrittenEvents);
  EXPECT_EQ(torn, 0u);
  RecordProperty("read", static_cast<int>(read));
}

TEST_F(Telemetry, AnotherUsersReaderGetsNothingAndTakesNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  Program writer = Start("write");
  CFStringRef uid = CFStringCreateWithCString(nullptr, kWriterUID, kCFStringEncodingUTF8);
  tools::TelemetryReader reader(writer.Pid(), uid);
  const std::string socket =
      mFiles.File("runtime/tembra/ports/") + ports::EncodePortName(PortName(writer.Pid(), uid));
  CFRelease(uid);
  reader.SetCapturing(true);
  ASSERT_TRUE(WaitUntil([&] { return writer.Output().find("done") != std::string::npos; },
                        std::chrono::seconds(60)));
  Program stranger("/proc/self/exe", {"--role", "stranger", socket}, NewPrefix());
  EXPECT_EQ(stranger.Wait(), 0) << stranger.Errors();
  EXPECT_EQ(stranger.Output(), "0\n");
  // 200,000 events wrapped the ring once: what lies between the reader and the writer is there.
  EXPECT_EQ(reader.Drain().size(), kWrittenEvents - 131072u);
}

TEST_F(Telemetry, RecordingMakesNoSystemCall) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer makes calls of its own";
  setenv(kVariable, "1", 1);
  Program told("/proc/self/exe", {"--role", "confined", "and call"}, NewPrefix());
  const int status = told.Wait();
  if (status == kNotConfined) GTEST_SKIP() << "system calls cannot be forbidden here";
  EXPECT_EQ(status, 128 + SIGSYS) << "a call is seen";
  EXPECT_EQ(Program("/proc/self/exe", {"--role", "confined"}, NewPrefix()).Wait(), 0);
  unsetenv(kVariable);
}

// One that asks and asks and takes no answer.
Descriptor FloodWithoutReading(const std::string& inSocket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const Descriptor file(open(inSocket.c_str(), O_PATH | O_CLOEXEC));
  std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", file.Get());
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  EXPECT_EQ(connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const ports::Header hello = ports::MakeHeader(ports::Kind::kHello, 0, 0, 0, 0);
  EXPECT_GT(send(socket.Get(), &hello, sizeof hello, MSG_NOSIGNAL), 0);
  for (std::uint64_t sequence = 1; sequence <= 2000; ++sequence) {
    const ports::Header request = ports::MakeHeader(ports::Kind::kRequest, 'tele', 0, sequence, 0);
    if (send(socket.Get(), &request, sizeof request, MSG_NOSIGNAL) < 0) break;
  }
  return socket;
}

TEST_F(Telemetry, CyclesGoOnWhileReadersTakeNoAnswersOrDie) {
  Program player = Start("play");
  tools::TelemetryReader reader(player.Pid(), CFSTR("TMBAudioCln_Plugin"));
  reader.SetCapturing(true);
  const std::string socket =
      mFiles.File("runtime/tembra/ports/") +
      ports::EncodePortName(PortName(player.Pid(), CFSTR("TMBAudioCln_Plugin")));
  std::vector<Descriptor> slow;
  for (int i = 0; i < 8; ++i) slow.push_back(FloodWithoutReading(socket));
  { const Descriptor dead = FloodWithoutReading(socket); }

  // The cycles that this reader still sees: they count on.
  std::uint32_t first = 0;
  std::uint32_t last = 0;
  ASSERT_TRUE(WaitUntil(
      [&] {
        for (const tools::TelemetryRecord& record : reader.Drain()) {
          if (first == 0) first = record.cycle;
          last = record.cycle;
        }
        return last > first + 60;
      },
      std::chrono::seconds(60)));
  reader.SetCapturing(false);
  EXPECT_FALSE(reader.IsCapturing());
}

TEST_F(Telemetry, AProcessThatEndsClosesItsTelemetry) {
  Program player = Start("play");
  tools::TelemetryReader reader(player.Pid(), CFSTR("TMBAudioCln_Plugin"));
  reader.SetCapturing(true);
  player.Signal(SIGKILL);
  player.Wait();
  try {
    reader.Drain();
    ADD_FAILURE() << "a dead process answered";
  } catch (const std::exception& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("has closed its telemetry"));
  }
}

}  // namespace
}  // namespace tembra::test
