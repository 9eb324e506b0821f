#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <optional>
#include <thread>

#include "support/CACFDictionary.h"
#include "support/CACFMessagePort.h"
#include "support/CAException.h"
#include "support/CAProcess.h"
#include "support/device/SimulatedDevice.h"
#include "support/telemetry/Telemetry.h"
#include "unit/telemetry/Platform.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr UInt32 kUnknownProperty = 0x77686F3F;   // 'who?'
constexpr UInt32 kIllegalOperation = 0x6E6F7065;  // 'nope'
constexpr UInt32 kUnspecified = 0x77686174;       // 'what'

// A property request, as its two numbers; a number that is not there is not in the dictionary.
struct Request {
  std::optional<UInt32> mID;
  std::optional<UInt32> mValue;
};

CFDataRef CopyData(const Request& inRequest) {
  CACFDictionary request(true);
  if (inRequest.mID) request.AddUInt32(CFSTR("property id"), *inRequest.mID);
  if (inRequest.mValue) request.AddUInt32(CFSTR("property value"), *inRequest.mValue);
  return CFPropertyListCreateXMLData(kCFAllocatorDefault, request.GetCFDictionary());
}

struct Reply {
  bool mIsThere = false;
  bool mIsXML = false;
  UInt32 mNumberKeys = 0;
  std::optional<UInt32> mValue;
  std::optional<UInt32> mError;
};

Reply ReplyOf(CFDataRef inData) {
  Reply reply;
  if (inData == nullptr) return reply;
  reply.mIsThere = true;
  const auto* text = reinterpret_cast<const char*>(CFDataGetBytePtr(inData));
  reply.mIsXML = std::string(text, 5) == "<?xml";
  const CACFDictionary dictionary(
      static_cast<CFDictionaryRef>(CFPropertyListCreateFromXMLData(
          kCFAllocatorDefault, inData, kCFPropertyListImmutable, nullptr)),
      true);
  CFRelease(inData);
  reply.mNumberKeys = dictionary.Size();
  UInt32 number = 0;
  if (dictionary.GetUInt32(CFSTR("property value"), number)) reply.mValue = number;
  if (dictionary.GetUInt32(CFSTR("return error"), number)) reply.mError = number;
  return reply;
}

class TelemetryServer : public testing::Test {
 protected:
  TelemetryServer() {
    SimulatedPlatform::Get().Reset();
    unsetenv("CoreAudio_HAL_Enable_Telemetry");
    mDevice.mUID = "TMBAudioCln_Plugin";
    Platform().mCalls.clear();
  }
  ~TelemetryServer() override {
    // The next test's device is made before anything else.
    SimulatedPlatform::Get().Reset();
    unsetenv("CoreAudio_HAL_Enable_Telemetry");
  }

  SimulatedPlatform& Platform() { return SimulatedPlatform::Get(); }

  std::unique_ptr<HP_IOCycleTelemetry> Make(bool inIsAllowed = true) {
    if (inIsAllowed) setenv("CoreAudio_HAL_Enable_Telemetry", "1", 1);
    auto telemetry = std::make_unique<HP_IOCycleTelemetry>(&mDevice);
    telemetry->Initialize(nullptr);
    return telemetry;
  }

  // As the port calls.
  CFDataRef Send(HP_IOCycleTelemetry& ioTelemetry, UInt32 inMessageID, CFDataRef inData,
                 CFMessagePortRef inPort = SimulatedPlatform::GetPort()) {
    return HP_TelemetryServer::MessageHandlerEntry(inPort, static_cast<SInt32>(inMessageID), inData,
                                                   &ioTelemetry);
  }
  Reply Ask(HP_IOCycleTelemetry& ioTelemetry, UInt32 inMessageID, const Request& inRequest) {
    CFDataRef data = CopyData(inRequest);
    const Reply reply = ReplyOf(Send(ioTelemetry, inMessageID, data));
    CFRelease(data);
    return reply;
  }
  std::optional<UInt32> IsCapturing(HP_IOCycleTelemetry& ioTelemetry) {
    return Ask(ioTelemetry, 'getp', {'capt', {}}).mValue;
  }

  SimulatedDevice mDevice;
};

// Allowed or not.

TEST_F(TelemetryServer, IsOffWithNeitherTheVariableNorTheMarkerFile) {
  auto telemetry = Make(false);
  EXPECT_FALSE(telemetry->IsEnabled());
  EXPECT_EQ(telemetry->GetMessagePort(), nullptr);
  EXPECT_THAT(Platform().mCalls, IsEmpty());
  // Nor can it be switched on from within.
  CFDataRef data = CopyData({'capt', 1});
  const CACFDictionary request(static_cast<CFDictionaryRef>(CFPropertyListCreateFromXMLData(
                                   kCFAllocatorDefault, data, 0, nullptr)),
                               true);
  CFRelease(data);
  EXPECT_EQ(ReplyOf(telemetry->HandleMessage('setp', request)).mError, 0u);
  EXPECT_FALSE(telemetry->IsCapturing());
  EXPECT_EQ(SimulatedPlatform::GetMadeChunks(), 0);
  EXPECT_EQ(Send(*telemetry, 'tele', nullptr), nullptr) << "there is no server port";
}

TEST_F(TelemetryServer, IsOnWithTheVariableWhateverItsValue) {
  for (const char* value : {"1", "0", "", "no"}) {
    setenv("CoreAudio_HAL_Enable_Telemetry", value, 1);
    EXPECT_TRUE(Make(false)->IsEnabled()) << value;
  }
}

TEST_F(TelemetryServer, IsOnWithTheMarkerFile) {
  Platform().mHasMarkerFile = true;
  EXPECT_TRUE(Make(false)->IsEnabled());
}

TEST_F(TelemetryServer, ASetUserIDProcessDoesNotReadTheVariable) {
  Platform().mIsSetUserID = true;
  EXPECT_FALSE(Make()->IsEnabled());
  Platform().mHasMarkerFile = true;
  EXPECT_TRUE(Make()->IsEnabled()) << "root alone makes that file";
}

TEST_F(TelemetryServer, IsDecidedWhenItIsMade) {
  auto telemetry = Make();
  unsetenv("CoreAudio_HAL_Enable_Telemetry");
  EXPECT_TRUE(telemetry->IsEnabled());
}

TEST_F(TelemetryServer, ItsQueueHasItsNameAndWithoutAQueueThereIsNoServer) {
  EXPECT_EQ((Make(), Platform().mQueueLabel), "com.apple.audio.HP_TelemetryServer");
  Platform().mQueueFails = true;
  EXPECT_EQ(StatusOf([&] { HP_IOCycleTelemetry telemetry(&mDevice); }),
            static_cast<OSStatus>(kIllegalOperation));
}

// The port.

TEST_F(TelemetryServer, ThePortIsNamedAfterTheProcessAndTheDevicesUID) {
  // The hash as computed by hand, the sum of the characters.
  char name[128];
  std::snprintf(name, sizeof name,
                "create com.apple.audio.CoreAudio.pid-%d.6417128929657487900.1728."
                "Telemetry.IOCycle",
                static_cast<int>(CAProcess::GetPID()));
  auto telemetry = Make();
  EXPECT_THAT(Platform().mCalls, ElementsAre(name, "queue"));
}

TEST_F(TelemetryServer, TheSumIsOverTheUTF16ValuesOfTheUID) {
  // U+00E9, U+20AC and U+1F600, which are two units: 0xD83D and 0xDE00.
  mDevice.mUID = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  auto telemetry = Make();
  EXPECT_THAT(Platform().mCalls[0],
              testing::HasSubstr("." + std::to_string(0xE9 + 0x20AC + 0xD83D + 0xDE00) + "."));
}

TEST_F(TelemetryServer, ADeviceWithoutUIDHasAPortAllTheSame) {
  mDevice.mUID = nullptr;
  auto telemetry = Make();
  EXPECT_THAT(Platform().mCalls[0], testing::HasSubstr(".0.0.Telemetry.IOCycle"));
}

TEST_F(TelemetryServer, TheGivenNameIsNotUsed) {
  setenv("CoreAudio_HAL_Enable_Telemetry", "1", 1);
  HP_IOCycleTelemetry telemetry(&mDevice);
  telemetry.Initialize(CFSTR("given"));
  EXPECT_THAT(Platform().mCalls[0], StartsWith("create com.apple.audio.CoreAudio.pid-"));
}

TEST_F(TelemetryServer, APortThatCannotBeMadeLeavesTelemetryOutOfReach) {
  Platform().mPortFails = true;
  auto telemetry = Make();
  EXPECT_EQ(telemetry->GetMessagePort(), nullptr);
  EXPECT_EQ(Platform().mCalls.size(), 1u) << "no queue, no invalidation";
  EXPECT_EQ(Send(*telemetry, 'getp', nullptr), nullptr);
  telemetry->IOCycleInitializeBegin(0);
  telemetry->Teardown();
}

TEST_F(TelemetryServer, TeardownClosesThePortOnce) {
  auto telemetry = Make();
  Platform().mCalls.clear();
  telemetry->Teardown();
  EXPECT_THAT(Platform().mCalls, ElementsAre("no queue", "invalidate"));
  EXPECT_EQ(telemetry->GetMessagePort(), nullptr);
  telemetry->Teardown();
  telemetry.reset();
  EXPECT_EQ(Platform().mCalls.size(), 2u);
}

TEST_F(TelemetryServer, DestructionClosesThePortToo) {
  auto telemetry = Make();
  Platform().mCalls.clear();
  telemetry.reset();
  EXPECT_THAT(Platform().mCalls, ElementsAre("no queue", "invalidate"));
}

TEST_F(TelemetryServer, TeardownWaitsForTheHandlerThatRuns) {
  auto telemetry = Make();
  StartCapture(*telemetry);
  telemetry->IOCycleInitializeBegin(0);
  dispatch_queue_t queue = telemetry->GetMessagePort()->GetDispatchQueue();
  std::atomic<bool> begun{false};
  std::atomic<bool> mayGoOn{false};
  std::atomic<bool> ended{false};
  std::atomic<bool>* begunAt = &begun;
  std::atomic<bool>* mayGoOnAt = &mayGoOn;
  std::atomic<bool>* endedAt = &ended;
  HP_IOCycleTelemetry* server = telemetry.get();
  dispatch_async(queue, ^{
    *begunAt = true;
    begunAt->notify_one();
    mayGoOnAt->wait(false);
    CFDataRef reply = HP_TelemetryServer::MessageHandlerEntry(SimulatedPlatform::GetPort(), 'tele',
                                                              nullptr, server);
    *endedAt = reply != nullptr;
    if (reply != nullptr) CFRelease(reply);
  });
  begun.wait(false);
  // The handler goes on once no further one can begin.
  Platform().mOnSetDispatchQueue = [&](bool inHasQueue) {
    EXPECT_FALSE(inHasQueue);
    EXPECT_FALSE(ended);
    mayGoOn = true;
    mayGoOn.notify_one();
  };
  telemetry->Teardown();
  EXPECT_TRUE(ended) << "the handler had its port and its ring to its end";
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
}

// Messages.

TEST_F(TelemetryServer, AnswersTelemetryAsRawEvents) {
  auto telemetry = Make();
  StartCapture(*telemetry);
  telemetry->IOCycleTeardownBegin(5);
  EXPECT_THAT(TextsOf(EventsOf(Send(*telemetry, 0x74656C65, nullptr))), ElementsAre("trdb 5"));
  EXPECT_EQ(Send(*telemetry, 0x74656C65, nullptr), nullptr);
}

TEST_F(TelemetryServer, AnswersClearingWithNothing) {
  auto telemetry = Make();
  StartCapture(*telemetry);
  telemetry->IOCycleTeardownBegin(5);
  EXPECT_EQ(Send(*telemetry, 0x636C7274, nullptr), nullptr);
  EXPECT_EQ(Send(*telemetry, 'tele', nullptr), nullptr);
}

TEST_F(TelemetryServer, AnswersAnUnknownMessageWithNothing) {
  auto telemetry = Make();
  for (const UInt32 id : {0u, 1u, static_cast<UInt32>('telf'), 0xFFFFFFFFu}) {
    EXPECT_EQ(Send(*telemetry, id, nullptr), nullptr) << id;
    EXPECT_EQ(StatusOf([&] { telemetry->HandleMessage(id, CACFDictionary(true)); }),
              static_cast<OSStatus>(kIllegalOperation));
  }
}

TEST_F(TelemetryServer, AnswersNothingOnAnotherPort) {
  auto telemetry = Make();
  StartCapture(*telemetry);
  telemetry->IOCycleTeardownBegin(5);
  EXPECT_EQ(Send(*telemetry, 'tele', nullptr, SimulatedPlatform::GetOtherPort()), nullptr);
  EXPECT_NE(EventsOf(Send(*telemetry, 'tele', nullptr)).size(), 0u);
}

TEST_F(TelemetryServer, AnswersNothingWithoutAServer) {
  EXPECT_EQ(HP_TelemetryServer::MessageHandlerEntry(SimulatedPlatform::GetPort(), 'tele', nullptr,
                                                    nullptr),
            nullptr);
}

TEST_F(TelemetryServer, ThePortCallsTheHandlerWithTheServer) {
  auto telemetry = Make();
  EXPECT_EQ(Platform().mCallBack, &HP_TelemetryServer::MessageHandlerEntry);
  EXPECT_EQ(Platform().mInfo, static_cast<HP_TelemetryServer*>(telemetry.get()));
}

TEST_F(TelemetryServer, ABaseAnswersNoTelemetry) {
  setenv("CoreAudio_HAL_Enable_Telemetry", "1", 1);
  HP_TelemetryServer server;
  server.Initialize(CFSTR("base"));
  EXPECT_THAT(Platform().mCalls, ElementsAre("create base", "queue"));
  EXPECT_TRUE(CFEqual(server.GetPortName(), CFSTR("base")));
  const CACFDictionary message(true);
  EXPECT_EQ(server.HandleMessage('tele', message), nullptr);
  EXPECT_EQ(server.HandleMessage('clrt', message), nullptr);
  server.StartCapturing();
  server.StopCapturing();
  EXPECT_FALSE(server.IsCapturing());
}

// Properties.

TEST_F(TelemetryServer, CaptureIsSwitchedOnAndOffAndRead) {
  auto telemetry = Make();
  EXPECT_EQ(IsCapturing(*telemetry), 0u);
  Reply reply = Ask(*telemetry, 0x73657470, {0x63617074, 1});
  EXPECT_TRUE(reply.mIsXML);
  EXPECT_EQ(reply.mError, 0u);
  EXPECT_EQ(reply.mNumberKeys, 1u);
  EXPECT_TRUE(telemetry->IsCapturing());
  reply = Ask(*telemetry, 0x67657470, {0x63617074, {}});
  EXPECT_TRUE(reply.mIsXML);
  EXPECT_EQ(reply.mValue, 1u);
  EXPECT_EQ(reply.mError, 0u);
  EXPECT_EQ(reply.mNumberKeys, 2u);
  EXPECT_EQ(Ask(*telemetry, 'setp', {'capt', 0}).mError, 0u);
  EXPECT_FALSE(telemetry->IsCapturing());
  EXPECT_EQ(IsCapturing(*telemetry), 0u);
}

TEST_F(TelemetryServer, SwitchingOnTwiceAllocatesOnce) {
  auto telemetry = Make();
  Ask(*telemetry, 'setp', {'capt', 1});
  telemetry->IOCycleInitializeBegin(0);
  EXPECT_EQ(Ask(*telemetry, 'setp', {'capt', 0xFFFFFFFF}).mError, 0u);
  EXPECT_EQ(SimulatedPlatform::GetMadeChunks(), 512);
  EXPECT_EQ(TakeAll(*telemetry).size(), 1u);
}

TEST_F(TelemetryServer, SwitchingOffWhatIsOffIsNothing) {
  auto telemetry = Make();
  EXPECT_EQ(Ask(*telemetry, 'setp', {'capt', 0}).mError, 0u);
  EXPECT_FALSE(telemetry->IsCapturing());
}

TEST_F(TelemetryServer, AMissingValueIsNoError) {
  auto telemetry = Make();
  EXPECT_EQ(Ask(*telemetry, 'setp', {'capt', {}}).mError, 0u);
  EXPECT_FALSE(telemetry->IsCapturing());
}

TEST_F(TelemetryServer, EndiIsReadAs0AndCannotBeSet) {
  auto telemetry = Make();
  const Reply reply = Ask(*telemetry, 'getp', {0x656E6469, {}});
  EXPECT_EQ(reply.mValue, 0u);
  EXPECT_EQ(reply.mError, 0u);
  EXPECT_EQ(Ask(*telemetry, 'setp', {0x656E6469, 1}).mError, kUnknownProperty);
}

TEST_F(TelemetryServer, AnUnknownPropertyIsAnsweredWithItsError) {
  auto telemetry = Make();
  for (const UInt32 message : {'getp', 'setp'}) {
    const Reply reply = Ask(*telemetry, message, {'nono', 1});
    EXPECT_EQ(reply.mError, kUnknownProperty);
    EXPECT_FALSE(reply.mValue.has_value());
  }
}

TEST_F(TelemetryServer, ARequestWithoutPropertyIsAnsweredWithItsError) {
  auto telemetry = Make();
  for (const UInt32 message : {'getp', 'setp'}) {
    EXPECT_EQ(Ask(*telemetry, message, {{}, 1}).mError, kIllegalOperation);
    EXPECT_EQ(ReplyOf(Send(*telemetry, message, nullptr)).mError, kIllegalOperation);
  }
}

TEST_F(TelemetryServer, DataThatIsNoDictionaryCountsAsAnEmptyOne) {
  auto telemetry = Make();
  CFDataRef list = CFPropertyListCreateXMLData(kCFAllocatorDefault, CFSTR("text"));
  for (const char* text : {"", "junk", "<plist>", "bplist00"}) {
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text),
                                  static_cast<CFIndex>(std::strlen(text)));
    EXPECT_EQ(ReplyOf(Send(*telemetry, 'setp', data)).mError, kIllegalOperation) << text;
    CFRelease(data);
  }
  EXPECT_EQ(ReplyOf(Send(*telemetry, 'getp', list)).mError, kIllegalOperation);
  CFRelease(list);
}

TEST_F(TelemetryServer, ANumberOfAnotherKindIsReadAndATextIsNone) {
  auto telemetry = Make();
  CACFDictionary request(true);
  request.AddUInt64(CFSTR("property id"), 'capt');
  request.AddString(CFSTR("property value"), CFSTR("1"));
  EXPECT_EQ(ReplyOf(telemetry->HandleMessage('setp', request)).mError, 0u);
  EXPECT_FALSE(telemetry->IsCapturing());
  request.AddFloat64(CFSTR("property value"), 1.0);
  EXPECT_EQ(ReplyOf(telemetry->HandleMessage('setp', request)).mError, 0u);
  EXPECT_TRUE(telemetry->IsCapturing());
}

TEST_F(TelemetryServer, WithoutMemoryForTheRingTheReplySaysSoAndCaptureStaysOff) {
  if (!SimulatedPlatform::OwnsTheAllocator()) GTEST_SKIP() << "a sanitizer has the allocator";
  auto telemetry = Make();
  SimulatedPlatform::LimitChunks(100);
  EXPECT_EQ(Ask(*telemetry, 'setp', {'capt', 1}).mError, kUnspecified);
  EXPECT_FALSE(telemetry->IsCapturing());
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
  SimulatedPlatform::LimitChunks(-1);
  EXPECT_EQ(Ask(*telemetry, 'setp', {'capt', 1}).mError, 0u);
  EXPECT_TRUE(telemetry->IsCapturing());
}

}  // namespace
}  // namespace tembra::test
