#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/CACFDistributedNotification.h"
#include "support/CACFMessagePort.h"
#include "unit/ports_wrappers/Platform.h"

namespace {

using testing::ElementsAre;

CFDataRef CallBack(CFMessagePortRef, SInt32, CFDataRef, void*) {
  return nullptr;
}

int sInvalidations = 0;
void* sInvalidationInfo = nullptr;
void Invalidated(CFMessagePortRef, void* inInfo) {
  ++sInvalidations;
  sInvalidationInfo = inInfo;
}

class MessagePort : public testing::Test {
 protected:
  void SetUp() override {
    gPlatform = {};
    sInvalidations = 0;
    sInvalidationInfo = nullptr;
    ASSERT_EQ(1, CFGetRetainCount(GetFakePort()));
    ASSERT_EQ(1, CFGetRetainCount(GetFakeSource()));
  }
  // Each test leaves no reference behind.
  void TearDown() override {
    EXPECT_EQ(1, CFGetRetainCount(GetFakePort()));
    EXPECT_EQ(1, CFGetRetainCount(GetFakeSource()));
  }
  void* GetInfo() { return this; }
};

TEST_F(MessagePort, LocalIsMadeWithItsInfoAndNoFreeInfoArgument) {
  CACFLocalMessagePort thePort(CFSTR("a port"), CallBack, Invalidated, GetInfo());
  EXPECT_TRUE(thePort.IsValid());
  EXPECT_EQ(GetFakePort(), thePort.GetMessagePortRef());
  EXPECT_EQ(&CallBack, gPlatform.mCallBack);
  EXPECT_EQ(0, gPlatform.mContext.version);
  EXPECT_EQ(GetInfo(), gPlatform.mContext.info);
  EXPECT_EQ(nullptr, gPlatform.mContext.retain);
  EXPECT_EQ(nullptr, gPlatform.mContext.release);
  EXPECT_EQ(nullptr, gPlatform.mContext.copyDescription);
  EXPECT_FALSE(gPlatform.mHadFreeInfoArgument);
  EXPECT_EQ(&Invalidated, gPlatform.mInvalidationCallBack);
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("CreateLocal a port", "SetInvalidationCallBack"));
}

TEST_F(MessagePort, WithoutAnInvalidationCallbackSetsNone) {
  {
    CACFLocalMessagePort theLocal(CFSTR("l"), CallBack, nullptr, nullptr);
    CACFRemoteMessagePort theRemote(CFSTR("r"), nullptr);
    EXPECT_THAT(gPlatform.mCalls, ElementsAre("CreateLocal l", "CreateRemote r"));
  }
  EXPECT_EQ(0, sInvalidations);
}

TEST_F(MessagePort, LocalThatCannotBeMadeIsInvalid) {
  gPlatform.mCreateFails = true;
  {
    CACFLocalMessagePort thePort(CFSTR("taken"), CallBack, Invalidated, nullptr);
    EXPECT_FALSE(thePort.IsValid());
    EXPECT_EQ(nullptr, thePort.GetMessagePortRef());
    EXPECT_EQ(nullptr, thePort.GetRunLoopSource());
    thePort.SetDispatchQueue(nullptr);
  }
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("CreateLocal taken"));
}

TEST_F(MessagePort, RemoteThatCannotBeMadeIsInvalid) {
  gPlatform.mCreateFails = true;
  {
    CACFRemoteMessagePort thePort(CFSTR("missing"), Invalidated);
    EXPECT_FALSE(thePort.IsValid());
    EXPECT_EQ(nullptr, thePort.GetMessagePortRef());
    EXPECT_EQ(nullptr, thePort.GetRunLoopSource());
    thePort.SetDispatchQueue(nullptr);
  }
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("CreateRemote missing"));
}

TEST_F(MessagePort, RemoteIsMadeWithItsCallback) {
  CACFRemoteMessagePort thePort(CFSTR("r"), Invalidated);
  EXPECT_TRUE(thePort.IsValid());
  EXPECT_EQ(GetFakePort(), thePort.GetMessagePortRef());
  EXPECT_EQ(&Invalidated, gPlatform.mInvalidationCallBack);
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("CreateRemote r", "SetInvalidationCallBack"));
}

template <class Port>
void ExpectOneSource(Port& inPort) {
  gPlatform.mCalls.clear();
  EXPECT_EQ(GetFakeSource(), inPort.GetRunLoopSource());
  EXPECT_EQ(GetFakeSource(), inPort.GetRunLoopSource());
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("CreateRunLoopSource"));
  EXPECT_EQ(2, CFGetRetainCount(GetFakeSource()));
}

TEST_F(MessagePort, RunLoopSourceIsMadeOnFirstUseAndKept) {
  CACFLocalMessagePort theLocal(CFSTR("l"), CallBack, nullptr, nullptr);
  ExpectOneSource(theLocal);
}

TEST_F(MessagePort, RemoteRunLoopSourceIsMadeOnFirstUseAndKept) {
  CACFRemoteMessagePort theRemote(CFSTR("r"), nullptr);
  ExpectOneSource(theRemote);
}

TEST_F(MessagePort, DispatchQueueIsStoredAndSet) {
  auto theQueue = reinterpret_cast<dispatch_queue_t>(this);
  CACFLocalMessagePort theLocal(CFSTR("l"), CallBack, nullptr, nullptr);
  EXPECT_EQ(nullptr, theLocal.GetDispatchQueue());
  theLocal.SetDispatchQueue(theQueue);
  EXPECT_EQ(theQueue, theLocal.GetDispatchQueue());
  EXPECT_EQ(theQueue, gPlatform.mQueue);
  gPlatform.mQueue = nullptr;
  CACFRemoteMessagePort theRemote(CFSTR("r"), nullptr);
  theRemote.SetDispatchQueue(theQueue);
  EXPECT_EQ(theQueue, theRemote.GetDispatchQueue());
  EXPECT_EQ(theQueue, gPlatform.mQueue);
}

TEST_F(MessagePort, DestructorReleasesTheSourceThenInvalidatesThePort) {
  {
    CACFLocalMessagePort thePort(CFSTR("l"), CallBack, Invalidated, GetInfo());
    thePort.GetRunLoopSource();
    gPlatform.mCalls.clear();
  }
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("Invalidate, source references 1"));
  EXPECT_EQ(1, sInvalidations);
  EXPECT_EQ(GetInfo(), sInvalidationInfo);
}

TEST_F(MessagePort, RemoteDestructorReleasesTheSourceThenInvalidatesThePort) {
  {
    CACFRemoteMessagePort thePort(CFSTR("r"), Invalidated);
    thePort.GetRunLoopSource();
    gPlatform.mCalls.clear();
  }
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("Invalidate, source references 1"));
  EXPECT_EQ(1, sInvalidations);
}

class DistributedNotification : public testing::Test {
 protected:
  void SetUp() override { gPlatform = {}; }
};

void Observe(CFNotificationCenterRef, void*, CFStringRef, const void*, CFDictionaryRef) {}

TEST_F(DistributedNotification, ObserverIsAddedForAnyObject) {
  CACFDistributedNotification::AddObserver(this, Observe, CFSTR("a name"),
                                           CFNotificationSuspensionBehaviorHold);
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("AddObserver"));
  EXPECT_EQ(this, gPlatform.mObserver);
  EXPECT_EQ(&Observe, gPlatform.mNotificationCallback);
  EXPECT_EQ("a name", gPlatform.mName);
  EXPECT_EQ(nullptr, gPlatform.mObject);
  EXPECT_EQ(CFNotificationSuspensionBehaviorHold, gPlatform.mBehavior);
}

TEST_F(DistributedNotification, ObserverIsRemovedForAnyObject) {
  gPlatform.mObject = this;
  CACFDistributedNotification::RemoveObserver(this, CFSTR("a name"));
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("RemoveObserver"));
  EXPECT_EQ(this, gPlatform.mObserver);
  EXPECT_EQ("a name", gPlatform.mName);
  EXPECT_EQ(nullptr, gPlatform.mObject);
}

TEST_F(DistributedNotification, PostIsDeliveredImmediately) {
  auto theUserInfo = reinterpret_cast<CFDictionaryRef>(this);
  gPlatform.mObject = this;
  CACFDistributedNotification::PostNotification(CFSTR("a name"), theUserInfo, false);
  EXPECT_THAT(gPlatform.mCalls, ElementsAre("Post"));
  EXPECT_EQ("a name", gPlatform.mName);
  EXPECT_EQ(nullptr, gPlatform.mObject);
  EXPECT_EQ(theUserInfo, gPlatform.mUserInfo);
  EXPECT_EQ(1u, gPlatform.mOptions);
}

TEST_F(DistributedNotification, PostToAllUsersHasTheOptionsThree) {
  CACFDistributedNotification::PostNotification(CFSTR("a name"), nullptr, true);
  EXPECT_EQ(3u, gPlatform.mOptions);
}

}  // namespace
