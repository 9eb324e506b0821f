#include <gmock/gmock.h>

#include "ConnectionTest.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(Connection, AnotherClientsEventsChangeNothing) {
  Enter(4);
  const UInt32 retries = Device().GetDataPortRetries();
  ASSERT_NE(retries, 0u);
  for (const int event : {'cadd', 'cchk', 'cdel'}) mServer.PostEvent(event, getpid() + 1);
  EXPECT_EQ(State(), 4u);
  EXPECT_EQ(Device().GetDataPortRetries(), retries);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, ACheckWithoutAClientAsksEveryClient) {
  Enter(3);
  mServer.PostEvent('cchk');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("send echo"));
  mServer.PostEvent('cchk', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("send echo"));
}

TEST_F(Connection, ACheckInIdleIsDroppedByTheMissingPort) {
  Enter(1);
  mServer.PostEvent('cchk');
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, AddedAndDroppedWithoutAClientAreIgnored) {
  Enter(3);
  mServer.mHasDataPort = true;
  mServer.PostEvent('cadd');
  EXPECT_EQ(State(), 3u);
  Device().StopHardware();
  Enter(5);
  mServer.PostEvent('cdel');
  EXPECT_EQ(State(), 5u);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, AnUnknownEventIsIgnored) {
  Enter(3);
  mServer.PostEvent('what', getpid());
  mServer.PostEvent(0, getpid());
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, AMissingEventIsIgnored) {
  Enter(3);
  CFStringRef object = CFTmbSndCopyListenerID();
  CFDictionaryRef empty =
      CFDictionaryCreate(nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                         &kCFTypeDictionaryValueCallBacks);
  mServer.PostDictionary(kTMBAudioServerNotification, object, empty);
  mServer.PostDictionary(kTMBAudioServerNotification, object, nullptr);
  CFRelease(empty);
  CFRelease(object);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, AnEventThatIsNoNumberReadsAsNone) {
  Enter(3);
  CFStringRef object = CFTmbSndCopyListenerID();
  const void* keys[] = {CFSTR("Event")};
  const void* values[] = {CFSTR("fnsh")};
  CFDictionaryRef info = CFDictionaryCreate(
      nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  mServer.PostDictionary(kTMBAudioServerNotification, object, info);
  CFRelease(info);
  CFRelease(object);
  EXPECT_EQ(State(), 3u);
}

const int kSomeNumber = 7;

class ForeignNotification : public Connection {
 protected:
  void Post(CFStringRef inName, const void* inObject) {
    const int event = 'fnsh';
    CFNumberRef number = CFNumberCreate(nullptr, kCFNumberIntType, &event);
    const void* keys[] = {CFSTR("Event")};
    const void* values[] = {number};
    CFDictionaryRef info = CFDictionaryCreate(
        nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    mServer.PostDictionary(inName, inObject, info);
    CFRelease(info);
    CFRelease(number);
  }
};

TEST_F(ForeignNotification, IsDroppedUnlessNameAndObjectAreRight) {
  Enter(3);
  CFStringRef own = CFTmbSndCopyListenerID();
  CFNumberRef number = CFNumberCreate(nullptr, kCFNumberIntType, &kSomeNumber);
  Post(kTMBAudioServerNotification, CFSTR("com.tembra.tmbasrv.4294967294"));
  Post(kTMBAudioServerNotification, number);
  Post(kTMBAudioServerNotification, nullptr);
  Post(CFSTR("TMBAudioServerNotificatioN"), own);
  Post(nullptr, own);
  EXPECT_EQ(State(), 3u);
  Post(kTMBAudioServerNotification, own);
  EXPECT_EQ(State(), 1u);
  CFRelease(number);
  CFRelease(own);
}

TEST_F(ForeignNotification, IsDroppedByADeviceThatHasNoIDYet) {
  const ClientDevice unfinished(false);
  mServer.mObservations = {{&*unfinished, TMBACLN_Device::__tmbAudioNotificationCallBack}};
  Post(kTMBAudioServerNotification, CFSTR(""));
  mServer.mObservations.clear();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(unfinished->GetClientState(), 0u);
}

TEST_F(Connection, AnEventForADeviceThatHasGoneTouchesNothing) {
  Enter(3);
  const std::vector<FakeServer::Observation> observations = mServer.mObservations;
  Device().StopHardware();
  mDevice.reset();
  mServer.TakeLog();
  mServer.mObservations = observations;
  mServer.PostEvent('cchk', getpid());
  mServer.mObservations.clear();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

}  // namespace
}  // namespace tembra::test
