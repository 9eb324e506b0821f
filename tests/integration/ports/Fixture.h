#pragma once

#include <CoreFoundation/CFMessagePort.h>
#include <CoreFoundation/CFMessagePortPriv.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Roles.h"
#include "corefoundation/Object.h"

namespace tembra::test {

using cf::Owned;
using Seconds = std::chrono::seconds;

inline Owned<CFStringRef> String(const std::string& inText) {
  return Owned<CFStringRef>(
      CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(inText.data()),
                              static_cast<CFIndex>(inText.size()), kCFStringEncodingUTF8, false));
}

inline Owned<CFDataRef> Data(const std::string& inBytes) {
  return Owned<CFDataRef>(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(inBytes.data()),
                                       static_cast<CFIndex>(inBytes.size())));
}

inline std::string Bytes(CFDataRef inData) {
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(inData)),
          static_cast<size_t>(CFDataGetLength(inData))};
}

inline Owned<CFMessagePortRef> Remote(const std::string& inName) {
  return Owned<CFMessagePortRef>(CFMessagePortCreateRemote(nullptr, String(inName)));
}

inline SInt32 SendNow(CFMessagePortRef inPort, SInt32 inIdentifier,
                      const std::string& inData = {}) {
  return CFMessagePortSendRequest(inPort, inIdentifier, Data(inData), 0, 0, nullptr, nullptr);
}

inline SInt32 Ask(CFMessagePortRef inPort, SInt32 inIdentifier, const std::string& inData,
                  std::string* outReply, double inTimeout = 20) {
  CFDataRef reply = nullptr;
  const SInt32 result = CFMessagePortSendRequest(inPort, inIdentifier, Data(inData), 5, inTimeout,
                                                 CFSTR("reply"), &reply);
  if (outReply) *outReply = reply ? Bytes(reply) : "(null)";
  if (reply) CFRelease(reply);
  return result;
}

// A local port of this process that notes what it gets.
class Receiver {
 public:
  explicit Receiver(const std::string& inName) {
    CFMessagePortContext context{};
    context.info = this;
    mPort.Reset(CFMessagePortCreateLocal(nullptr, String(inName), OnMessage, &context, nullptr));
    if (!mPort) return;
    CFMessagePortSetPeerCallBack(mPort, OnPeer);
    mSource.Reset(CFMessagePortCreateRunLoopSource(nullptr, mPort, 0));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource, kCFRunLoopDefaultMode);
  }
  ~Receiver() {
    if (mPort) CFMessagePortInvalidate(mPort);
  }

  CFMessagePortRef Port() const { return mPort; }
  CFMessagePortStatistics Statistics() const {
    CFMessagePortStatistics statistics;
    CFMessagePortGetStatistics(mPort, &statistics);
    return statistics;
  }
  // Runs this thread's loop until the condition holds.
  bool RunUntil(const std::function<bool()>& inCondition, Seconds inLimit = Seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + inLimit;
    while (!inCondition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
    }
    return true;
  }
  bool RunUntilMessages(size_t inCount) {
    return RunUntil([&] { return mMessages.size() >= inCount; });
  }

  struct Message {
    SInt32 identifier;
    std::string data;
    CFMessagePortPeer peer;
    bool hasPeer;
  };
  struct PeerEvent {
    CFMessagePortPeerEvent event;
    CFMessagePortPeer peer;
  };
  std::vector<Message> mMessages;
  std::vector<PeerEvent> mPeers;
  std::function<CFDataRef(SInt32, CFDataRef)> mReply;

 private:
  static CFDataRef OnMessage(CFMessagePortRef, SInt32 inIdentifier, CFDataRef inData,
                             void* inReceiver) {
    auto* receiver = static_cast<Receiver*>(inReceiver);
    Message message{inIdentifier, Bytes(inData), {}, false};
    message.hasPeer = CFMessagePortGetCurrentPeer(&message.peer);
    receiver->mMessages.push_back(message);
    return receiver->mReply ? receiver->mReply(inIdentifier, inData) : nullptr;
  }
  static void OnPeer(CFMessagePortRef, CFMessagePortPeerEvent inEvent,
                     const CFMessagePortPeer* inPeer, void* inReceiver) {
    static_cast<Receiver*>(inReceiver)->mPeers.push_back({inEvent, *inPeer});
  }

  Owned<CFMessagePortRef> mPort;
  Owned<CFRunLoopSourceRef> mSource;
};

class Ports : public testing::Test {
 protected:
  std::string PortFile(const std::string& inName) const {
    return mRuntime.File("runtime/tembra/ports/" + inName);
  }
  PrivateRuntime mRuntime;
};

}  // namespace tembra::test
