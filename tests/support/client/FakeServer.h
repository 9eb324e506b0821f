#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tembra::test {

// The audio server's side of a client and the services between them, in simulated time: message
// ports, the notification center, timers and the clock. A call that the device has no business to
// make fails the test.
//
// An executable takes it by compiling FakeServer.cpp as one of its own sources. All but
// PostEvent, Advance and the like may be called on any thread.
class FakeServer {
 public:
  struct Message {
    std::string mPort;  // "listener" or "data"
    SInt32 mID;
    std::vector<UInt8> mBytes;
  };
  struct Observation {
    const void* mObserver;
    CFNotificationCallback mCallBack;
  };

  static FakeServer& Get();
  // Forgets everything; what the device still holds is a failure.
  void Reset();

  // What there is at the server's end.
  bool mHasListener = false;
  bool mHasDataPort = false;
  // What a send answers, once for each entry, then 0.
  std::vector<SInt32> mSendResults;
  // Open ports answer that they are no longer valid: the server died.
  bool mPortsAreDead = false;
  // Runs once, within the next try to open a port: what comes in between.
  std::function<void()> mOnOpen;

  // What there is of the services between them.
  bool mHasCenter = true;
  bool mHasTimers = true;

  // Simulated time.
  double mNow = 1000.0;
  // Fires what is due, in order, also what is added meanwhile.
  void Advance(double inSeconds);
  // Fires the timer that stands longest, whenever it is due; false if there is none.
  bool FireNextTimer();

  // Delivers an event to all observers. The pid is left out if there is none.
  void PostEvent(int inEvent, std::optional<int> inPID = std::nullopt);
  void PostDictionary(CFStringRef inName, const void* inObject, CFDictionaryRef inUserInfo);

  // What the device has open.
  int GetOpenPorts(const std::string& inPort) const;
  int GetPendingTimers() const;
  size_t GetObservations() const;
  // Runs when an observation of whatever name ends, if it is set.
  std::function<void(const std::string& inName)> mOnUnobserve;
  int CountMessages(const std::string& inPort, SInt32 inID) const;
  // What happened since the last call: "observe", "unobserve", "open listener", "no listener",
  // "close data", "timer", "no timer", "drop timer", "send cadd" ...
  std::vector<std::string> TakeLog();
  std::vector<Message> TakeMessages();
  // Sends on the data port are not written to the log, nor are their bytes kept.
  bool mDiscardsAudio = false;
  // The receiver of audio holds on to the data objects; the test releases them.
  bool mKeepsData = false;
  std::vector<CFDataRef> mKeptData;
  // Off for long runs, where only the counts below are of use.
  bool mKeepsLog = true;
  unsigned long mListenerOpenings = 0;
  unsigned long mOpeningsWhileDead = 0;
  unsigned long mAdds = 0;
  // Lines in the system log; any is a failure, since a connection has nothing to say.
  std::atomic<unsigned int> mSystemLogLines{0};
  std::string mListenerName;
  std::string mDataName;

  struct Port {
    CFTypeRef mHandle;  // stands for the port; one reference is ours
    std::string mName;
    bool mIsInvalidated;
  };
  struct Timer {
    CFTypeRef mHandle;
    double mFireDate;
    CFRunLoopTimerCallBack mCallBack;
    void* mInfo;
    CFRunLoopRef mLoop;
    bool mIsValid;
  };

  Port* FindPort(CFTypeRef inHandle);
  Timer* FindTimer(CFTypeRef inHandle);
  void Note(const std::string& inText);
  void Sweep();

  mutable std::recursive_mutex mMutex;
  std::vector<Port> mPorts;
  std::vector<Timer> mTimers;
  std::vector<Observation> mObservations;
  std::vector<std::string> mLog;
  std::vector<Message> mMessages;
  unsigned int mAudioSends = 0;
};

}  // namespace tembra::test
