#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

namespace tembra::test {

// One of the server's events as a client saw it.
struct Event {
  int mCode = 0;
  SInt32 mClientPID = -1;  // -1 if the event speaks of none
  SInt32 mServerUID = -1;
  SInt32 mServerPID = -1;
  bool mDataPortExisted = false;  // when the event came
};

// The client's half of the protocol, spoken by this process step by step over real ports, without
// the device and its state machine.
class FakeClient {
 public:
  FakeClient();
  ~FakeClient();
  FakeClient(const FakeClient&) = delete;
  FakeClient& operator=(const FakeClient&) = delete;

  bool OpenListener();
  void CloseListener();
  bool SendAdd(double inRate = 44100.0, UInt32 inChannels = 2);
  bool SendEcho();
  bool SendDispose();
  bool SendMessage(SInt32 inID, const std::vector<UInt8>& inBytes);
  bool SendMessage(SInt32 inID, CFDataRef inData);

  bool OpenData(pid_t inOwner);
  bool IsDataOpen() const;
  void CloseData();
  // A stereo block of inFrames frames; samples are interleaved. True if it was queued.
  bool SendBlock(double inSampleTime, const std::vector<float>& inSamples);
  bool SendBytes(SInt32 inID, const std::vector<UInt8>& inBytes);

  // Opens the listener port, adds this process, waits for the answer and opens the data port.
  bool Connect();

  std::vector<Event> Events();
  size_t Count(int inCode);
  // Waits until the event has come at least so often in all.
  bool WaitFor(int inCode, size_t inTimes = 1);

 private:
  static void Receive(CFNotificationCenterRef inCenter, void* inSelf, CFStringRef inName,
                      const void* inObject, CFDictionaryRef inInfo);

  CFStringRef mListenerID;
  CFMessagePortRef mListener = nullptr;
  CFMessagePortRef mData = nullptr;
  std::mutex mMutex;
  std::vector<Event> mEvents;
};

}  // namespace tembra::test
