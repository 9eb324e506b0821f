#include "Fixture.h"

namespace tembra::test {
namespace {

TEST_F(Ports, RepliesComeBack) {
  auto server = StartServer(mRuntime, "echo");
  auto remote = Remote("echo");
  std::string reply;
  for (const std::string& text : {std::string("hello"), std::string(), std::string(1 << 20, 'x')}) {
    EXPECT_EQ(Ask(remote, 1, text, &reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, text);
  }
}

TEST_F(Ports, SeveralThreadsGetTheirOwnReplies) {
  auto server = StartServer(mRuntime, "echo");
  auto remote = Remote("echo");
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const std::string text = std::to_string(t) + "." + std::to_string(i);
        std::string reply;
        if (Ask(remote, i + 100, text, &reply) != 0 || reply != text) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(Ports, AReceiverInTheSameThreadAnswersWhenTheReplyModeServesIt) {
  Receiver receiver("self");
  receiver.mReply = [](SInt32, CFDataRef) { return Data("answer").Detach(); };
  auto remote = Remote("self");
  CFDataRef reply = nullptr;
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 5, 20, kCFRunLoopDefaultMode, &reply), 0);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(Bytes(reply), "answer");
  CFRelease(reply);
}

TEST_F(Ports, APortGivenUpWhileItWaitsForTheReplyStillBringsIt) {
  Receiver receiver("self");
  CFMessagePortRef remote = Remote("self").Detach();
  receiver.mReply = [remote](SInt32, CFDataRef) {
    CFRelease(remote);
    return Data("answer").Detach();
  };
  CFDataRef reply = nullptr;
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 5, 20, kCFRunLoopDefaultMode, &reply), 0);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(Bytes(reply), "answer");
  CFRelease(reply);
}

TEST_F(Ports, NoReplyDataIsNull) {
  Receiver receiver("self");
  auto remote = Remote("self");
  CFDataRef reply = reinterpret_cast<CFDataRef>(1);
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 5, 20, kCFRunLoopDefaultMode, &reply), 0);
  EXPECT_EQ(reply, nullptr);
}

TEST_F(Ports, AnUnansweredRequestTimesOut) {
  auto server = StartServer(mRuntime, "mute");
  auto remote = Remote("mute");
  std::string reply;
  EXPECT_EQ(Ask(remote, 8, "", &reply, 0.05), kCFMessagePortReceiveTimeout);
  EXPECT_EQ(reply, "(null)");
  EXPECT_EQ(Ask(remote, 8, "", &reply, 0), kCFMessagePortReceiveTimeout);
}

TEST_F(Ports, APeerThatDiesBeforeItAnswersMakesThePortInvalid) {
  auto server = StartServer(mRuntime, "dying");
  auto remote = Remote("dying");
  EXPECT_EQ(Ask(remote, 9, "", nullptr), kCFMessagePortBecameInvalidError);
  EXPECT_FALSE(CFMessagePortIsValid(remote));
  EXPECT_EQ(server->Wait(Seconds(20)), 9);
}

TEST_F(Ports, WhatIsTooLongIsATransportError) {
  Receiver receiver("limit");
  auto remote = Remote("limit");
  EXPECT_EQ(SendNow(remote, 1, std::string((1 << 20) + 1, 'x')), kCFMessagePortTransportError);
  EXPECT_TRUE(CFMessagePortIsValid(remote));
  EXPECT_EQ(SendNow(remote, 1, std::string(1 << 20, 'x')), kCFMessagePortSuccess);
  EXPECT_TRUE(receiver.RunUntilMessages(1));
  receiver.mReply = [](SInt32, CFDataRef) {
    return Data(std::string((1 << 20) + 1, 'r')).Detach();
  };
  CFDataRef reply = nullptr;
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 5, 20, kCFRunLoopDefaultMode, &reply),
            kCFMessagePortTransportError);
  EXPECT_EQ(reply, nullptr);
}

TEST_F(Ports, ALocalPortIsNothingToSendOn) {
  Receiver receiver("local");
  EXPECT_FALSE(CFMessagePortIsRemote(receiver.Port()));
  EXPECT_EQ(SendNow(receiver.Port(), 1), kCFMessagePortTransportError);
}

TEST_F(Ports, ResultCodesHaveTheirPublishedValues) {
  EXPECT_EQ(kCFMessagePortSuccess, 0);
  EXPECT_EQ(kCFMessagePortSendTimeout, -1);
  EXPECT_EQ(kCFMessagePortReceiveTimeout, -2);
  EXPECT_EQ(kCFMessagePortIsInvalid, -3);
  EXPECT_EQ(kCFMessagePortTransportError, -4);
  EXPECT_EQ(kCFMessagePortBecameInvalidError, -5);
}

}  // namespace
}  // namespace tembra::test
