#include <gtest/gtest.h>

#include <cstring>

#include "support/CACFData.h"
#include "support/CACFMessagePort.h"
#include "support/PrivateRuntime.h"

namespace {

class RealPort : public testing::Test {
 protected:
  static void SetUpTestSuite() { sRuntime = new tembra::test::PrivateRuntime; }
  static void TearDownTestSuite() {
    delete sRuntime;
    sRuntime = nullptr;
  }

  static tembra::test::PrivateRuntime* sRuntime;
};
tembra::test::PrivateRuntime* RealPort::sRuntime = nullptr;

struct Received {
  int mCount = 0;
  SInt32 mMessageID = 0;
  std::string mText;
};

CFDataRef Receive(CFMessagePortRef, SInt32 inMessageID, CFDataRef inData, void* inInfo) {
  auto* theReceived = static_cast<Received*>(inInfo);
  ++theReceived->mCount;
  theReceived->mMessageID = inMessageID;
  CACFData theData(inData, false);
  theReceived->mText.assign(static_cast<const char*>(theData.GetDataPtr()), theData.GetSize());
  return nullptr;
}

TEST_F(RealPort, OfATakenNameIsInvalidUntilTheNameIsFree) {
  {
    CACFLocalMessagePort theFirst(CFSTR("com.tembra.test.taken"), Receive, nullptr, nullptr);
    ASSERT_TRUE(theFirst.IsValid());
    CACFLocalMessagePort theSecond(CFSTR("com.tembra.test.taken"), Receive, nullptr, nullptr);
    EXPECT_FALSE(theSecond.IsValid());
  }
  CACFLocalMessagePort theThird(CFSTR("com.tembra.test.taken"), Receive, nullptr, nullptr);
  EXPECT_TRUE(theThird.IsValid());
}

TEST_F(RealPort, OfNobodyIsInvalid) {
  CACFRemoteMessagePort thePort(CFSTR("com.tembra.test.nobody"), nullptr);
  EXPECT_FALSE(thePort.IsValid());
}

TEST_F(RealPort, SourceIsTheSameTwiceAndDelivers) {
  Received theReceived;
  CACFLocalMessagePort theLocal(CFSTR("com.tembra.test.source"), Receive, nullptr, &theReceived);
  ASSERT_TRUE(theLocal.IsValid());
  CFRunLoopSourceRef theSource = theLocal.GetRunLoopSource();
  ASSERT_NE(nullptr, theSource);
  EXPECT_EQ(theSource, theLocal.GetRunLoopSource());
  CFRunLoopAddSource(CFRunLoopGetCurrent(), theSource, kCFRunLoopDefaultMode);

  CACFRemoteMessagePort theRemote(CFSTR("com.tembra.test.source"), nullptr);
  ASSERT_TRUE(theRemote.IsValid());
  CACFData theData("hello", 5);
  ASSERT_EQ(kCFMessagePortSuccess,
            CFMessagePortSendRequest(theRemote.GetMessagePortRef(), 42, theData.GetCFData(), 0, 0,
                                     nullptr, nullptr));
  const CFAbsoluteTime theLimit = CFAbsoluteTimeGetCurrent() + 30;
  while (theReceived.mCount == 0 && CFAbsoluteTimeGetCurrent() < theLimit) {
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, true);
  }
  EXPECT_EQ(1, theReceived.mCount);
  EXPECT_EQ(42, theReceived.mMessageID);
  EXPECT_EQ("hello", theReceived.mText);
}

TEST_F(RealPort, InvalidationCallbackRunsInTheDestructor) {
  static int sInvalidations = 0;
  {
    CACFLocalMessagePort thePort(
        CFSTR("com.tembra.test.end"), Receive, [](CFMessagePortRef, void*) { ++sInvalidations; },
        nullptr);
    ASSERT_TRUE(thePort.IsValid());
    EXPECT_EQ(0, sInvalidations);
  }
  EXPECT_EQ(1, sInvalidations);
}

}  // namespace
