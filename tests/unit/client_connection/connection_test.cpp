#include <gmock/gmock.h>

#include "ConnectionTest.h"
#include "client/TMBAudioClientInfo.h"
#include "formats/HP_FormatList.h"
#include "formats/HP_Stream.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Names and codes.

TEST_F(Connection, IDsAreMadeOfTheTextAndTheNumbers) {
  const std::string user = std::to_string(getuid());
  CFStringRef listener = CFTmbSndCopyListenerID();
  CFStringRef port = CFTmbSndCopyPortID(1234);
  char buffer[100];
  ASSERT_TRUE(CFStringGetCString(listener, buffer, sizeof(buffer), kCFStringEncodingUTF8));
  EXPECT_EQ(buffer, "com.tembra.tmbasrv." + user);
  ASSERT_TRUE(CFStringGetCString(port, buffer, sizeof(buffer), kCFStringEncodingUTF8));
  EXPECT_EQ(buffer, "com.tembra.tmbasrv." + user + ".1234");
  EXPECT_EQ(CFGetRetainCount(listener), 1);
  EXPECT_EQ(CFGetRetainCount(port), 1);
  CFRelease(listener);
  CFRelease(port);
}

TEST_F(Connection, NotificationVocabulary) {
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotification, CFSTR("TMBAudioServerNotification")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerConnectionEventKey, CFSTR("Event")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotificationSrvUIDKey, CFSTR("SrvUID")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotificationSrvPIDKey, CFSTR("SrvPID")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotificationSrvIDKey, CFSTR("SrvID")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotificationClientPIDKey, CFSTR("ClnPID")));
}

TEST_F(Connection, EventCodes) {
  EXPECT_EQ(kTMBAudioServerEventStart, 1937011316);
  EXPECT_EQ(kTMBAudioServerEventFinish, 1718514536);
  EXPECT_EQ(kTMBAudioServerEventClientAdded, 1667327076);
  EXPECT_EQ(kTMBAudioServerEventClientDeleted, 1667523948);
  EXPECT_EQ(kTMBAudioServerEventClientCheck, 1667459179);
}

TEST_F(Connection, MessageIDsSpellTheirStoredTexts) {
  const auto stored = [](SInt32 inID) {
    return std::string(reinterpret_cast<const char*>(&inID), sizeof(inID));
  };
  EXPECT_EQ(kTMBAudioMessageAddID, 1667327076);
  EXPECT_EQ(stored(kTMBAudioMessageAddID), "ddac");
  EXPECT_EQ(kTMBAudioMessageEchoID, 1701013615);
  EXPECT_EQ(stored(kTMBAudioMessageEchoID), "ohce");
  EXPECT_EQ(kTMBAudioMessageDisposeID, 1667523948);
  EXPECT_EQ(stored(kTMBAudioMessageDisposeID), "ledc");
}

// Starting and stopping.

TEST_F(Connection, ADeviceThatNeverStartsNeverTalks) {
  mServer.mHasListener = mServer.mHasDataPort = true;
  // It does not observe either; were it told of events all the same, it would not act.
  EXPECT_EQ(mServer.GetObservations(), 0u);
  mServer.mObservations = {{&Device(), TMBACLN_Device::__tmbAudioNotificationCallBack}};
  for (const int event : {'strt', 'fnsh', 'cadd', 'cdel', 'cchk'}) {
    mServer.PostEvent(event, getpid());
    EXPECT_EQ(State(), 0u);
  }
  mServer.mObservations.clear();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, AnEventThatComesAfterTheStopIsIgnoredAlsoWithAPortLeftOpen) {
  Enter(4);
  const std::vector<FakeServer::Observation> observations = mServer.mObservations;
  Device().StopHardware();
  ASSERT_EQ(mServer.GetOpenPorts("listener"), 1);
  mServer.mHasDataPort = true;
  mServer.TakeLog();
  mServer.mObservations = observations;
  for (const int event : {'cchk', 'cadd', 'cdel', 'fnsh', 'strt'}) {
    mServer.PostEvent(event, getpid());
    EXPECT_EQ(State(), 0u);
  }
  mServer.mObservations.clear();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
}

TEST_F(Connection, StartObservesThenOpensAndAdds) {
  mServer.mHasListener = true;
  Device().StartHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("observe", "open listener", "send cadd"));
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, StopSendsDisposeOnTheOpenPortAfterTheObserverHasGone) {
  Enter(5);
  Device().StopHardware();
  EXPECT_THAT(mServer.TakeLog(),
              ElementsAre("unobserve", "send cdel", "close data", "close listener"));
  EXPECT_EQ(State(), 0u);
}

TEST_F(Connection, StopEndsInStateZeroFromEveryState) {
  for (UInt32 state = 0; state <= 5; ++state) {
    Enter(state);
    Device().StopHardware();
    EXPECT_EQ(State(), 0u) << state;
    EXPECT_EQ(mServer.GetPendingTimers(), 0) << state;
    EXPECT_EQ(mServer.GetObservations(), 0u) << state;
    EXPECT_EQ(mServer.GetOpenPorts("data"), 0) << state;
    // Without a data port to close, nothing closes the listener port.
    EXPECT_EQ(mServer.GetOpenPorts("listener"), state == 4 ? 1 : 0) << state;
    EXPECT_EQ(Device().GetListenerPortRetries(), 0u) << state;
    EXPECT_EQ(Device().GetDataPortRetries(), 0u) << state;
    mDevice.reset();
    mDevice = std::make_unique<ClientDevice>();
  }
}

TEST_F(Connection, StopWithAPendingDataTimerDropsIt) {
  Enter(4);
  ASSERT_EQ(mServer.GetPendingTimers(), 1);
  Device().StopHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("unobserve", "send cdel", "drop timer"));
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
  // The listener port stays open across the stop: nothing closed it.
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
}

TEST_F(Connection, AddEchoAndDisposeCarryTheirForms) {
  mServer.mHasListener = true;
  Device().StartHardware();
  mServer.PostEvent('cchk', getpid());
  Device().StopHardware();
  const std::vector<FakeServer::Message> messages = mServer.TakeMessages();
  ASSERT_EQ(messages.size(), 3u);
  const SInt32 ids[] = {kTMBAudioMessageAddID, kTMBAudioMessageEchoID, kTMBAudioMessageDisposeID};
  const CFIndex keys[] = {11, 11, 2};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(messages[i].mID, ids[i]);
    CFDataRef data = CFDataCreate(nullptr, messages[i].mBytes.data(),
                                  static_cast<CFIndex>(messages[i].mBytes.size()));
    CFPropertyListRef list = CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(static_cast<CFDictionaryRef>(list)), keys[i]);
    CFRelease(list);
    CFRelease(data);
  }
}

class ToldFormat : public Connection {
 protected:
  void SetCurrentFormat(const AudioStreamBasicDescription& inFormat) {
    Device().GetStreamByIndex(false, 0)->GetFormatList()->SetCurrentPhysicalFormat(inFormat, false);
  }

  // Starts, and reads what the server is told of this client.
  TMBAudioClientInfo Start() {
    mServer.mHasListener = true;
    Device().StartHardware();
    const std::vector<FakeServer::Message> messages = mServer.TakeMessages();
    EXPECT_EQ(messages.size(), 1u);
    if (messages.empty()) return TMBAudioClientInfo(0, 0, {});
    CFDataRef data = CFDataCreate(nullptr, messages[0].mBytes.data(),
                                  static_cast<CFIndex>(messages[0].mBytes.size()));
    const TMBAudioClientInfo info(data);
    CFRelease(data);
    return info;
  }
};

TEST_F(ToldFormat, IsNonInterleaved) {
  const TMBAudioClientInfo info = Start();
  const AudioStreamBasicDescription format = info.GetStreamDescription();
  EXPECT_EQ(format.mSampleRate, 44100.0);
  EXPECT_EQ(format.mFormatFlags, 41u);
  EXPECT_EQ(format.mBytesPerFrame, 4u);
  EXPECT_EQ(format.mBytesPerPacket, 4u);
  EXPECT_EQ(format.mFramesPerPacket, 1u);
  EXPECT_EQ(format.mChannelsPerFrame, 2u);
  EXPECT_EQ(format.mBitsPerChannel, 32u);
  EXPECT_EQ(info.GetBufferFrames(), 512u);
  EXPECT_EQ(info.GetClientPID(), getpid());
  EXPECT_EQ(info.GetClientUID(), getuid());
}

TEST_F(ToldFormat, WithoutAnOutputStreamIsTheDefaultOne) {
  HP_Stream* stream = Device().GetStreamByIndex(false, 0);
  Device().RemoveStream(stream);
  const AudioStreamBasicDescription format = Start().GetStreamDescription();
  Device().AddStream(stream);
  EXPECT_EQ(format.mFormatFlags, 9u);
  EXPECT_EQ(format.mBytesPerFrame, 8u);
  EXPECT_EQ(format.mBytesPerPacket, 8u);
  EXPECT_EQ(format.mChannelsPerFrame, 2u);
}

// A format that is not mixable is its own virtual format.

TEST_F(ToldFormat, OfANonInterleavedStreamIsTheStreamsOwn) {
  SetCurrentFormat({48000.0, 'lpcm', 1 | 8 | 32 | 64, 4, 1, 4, 2, 32, 0});
  const AudioStreamBasicDescription format = Start().GetStreamDescription();
  EXPECT_EQ(format.mSampleRate, 48000.0);
  EXPECT_EQ(format.mFormatFlags, 1u | 8u | 32u | 64u);
  EXPECT_EQ(format.mBytesPerPacket, 4u);
  EXPECT_EQ(format.mBytesPerFrame, 4u);
  EXPECT_EQ(format.mChannelsPerFrame, 2u);
}

TEST_F(ToldFormat, IsDividedByItsChannels) {
  SetCurrentFormat({48000.0, 'lpcm', 4 | 8 | 64, 12, 1, 12, 6, 16, 0});
  const AudioStreamBasicDescription format = Start().GetStreamDescription();
  EXPECT_EQ(format.mFormatFlags, 4u | 8u | 32u | 64u);
  EXPECT_EQ(format.mBytesPerPacket, 2u);
  EXPECT_EQ(format.mBytesPerFrame, 2u);
  EXPECT_EQ(format.mChannelsPerFrame, 6u);
}

TEST_F(ToldFormat, WithoutChannelsIsDividedByNothing) {
  SetCurrentFormat({48000.0, 'lpcm', 4 | 8 | 64, 12, 1, 12, 0, 16, 0});
  const AudioStreamBasicDescription format = Start().GetStreamDescription();
  EXPECT_EQ(format.mFormatFlags, 4u | 8u | 32u | 64u);
  EXPECT_EQ(format.mBytesPerPacket, 12u);
  EXPECT_EQ(format.mBytesPerFrame, 12u);
  EXPECT_EQ(format.mChannelsPerFrame, 0u);
}

// Sending.

TEST_F(Connection, ADictionaryGoesOutAsABinaryPropertyList) {
  Enter(3);
  const void* keys[] = {CFSTR("key")};
  const void* values[] = {CFSTR("value")};
  CFDictionaryRef dictionary = CFDictionaryCreate(
      nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  Device().SendAudioListenerNotification(77, dictionary);
  const std::vector<FakeServer::Message> messages = mServer.TakeMessages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].mID, 77);
  ASSERT_GE(messages[0].mBytes.size(), 8u);
  EXPECT_EQ(std::string(messages[0].mBytes.begin(), messages[0].mBytes.begin() + 8), "bplist00");
  CFRelease(dictionary);
}

TEST_F(Connection, NoDataIsNotSent) {
  Enter(3);
  Device().SendAudioListenerNotification(77, static_cast<CFDataRef>(nullptr));
  EXPECT_THAT(mServer.TakeMessages(), IsEmpty());
}

TEST_F(Connection, AFailedSendOnTheListenerPortIsIgnored) {
  mServer.mHasListener = true;
  mServer.mSendResults = {kCFMessagePortSendTimeout};
  Device().StartHardware();
  EXPECT_EQ(State(), 3u);
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
}

// The end.

TEST_F(Connection, TheDestructorLeavesNoPortAndNoTimer) {
  // Without StopHardware, from every state; what is left fails in Reset.
  for (UInt32 state = 1; state <= 5; ++state) {
    Enter(state);
    mDevice.reset();
    EXPECT_EQ(mServer.GetPendingTimers(), 0) << state;
    EXPECT_EQ(mServer.GetOpenPorts("listener"), 0) << state;
    EXPECT_EQ(mServer.GetOpenPorts("data"), 0) << state;
    mServer.mObservations.clear();
    mServer.Reset();
    mDevice = std::make_unique<ClientDevice>();
  }
}

}  // namespace
}  // namespace tembra::test
