#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <utility>
#include <vector>

namespace tembra::test {

// What a connection must do at each step, written as tables of states: the yardstick of the random
// walks. It knows the server's side and keeps the time of its own timers.
//
// Thread: one.
// Units: simulated seconds.
// Failure: none; the walk compares.
class ConnectionModel {
 public:
  // The server's side.
  bool mHasListener = false;
  bool mHasDataPort = false;
  bool mPortsAreDead = false;
  double mNow = 1000.0;

  // The connection.
  int mState = 0;
  bool mListenerIsOpen = false;
  bool mDataIsOpen = false;
  UInt32 mListenerRetries = 0;
  UInt32 mDataRetries = 0;

  void Start();
  void Stop();
  void Event(int inEvent, bool inIsForThisClient);
  bool FireNextTimer();
  void Advance(double inSeconds);

  bool IsStarted() const { return mState != 0; }
  bool MaySendAudio() const { return mState == 5 && mDataIsOpen && !mPortsAreDead; }
  int GetPendingTimers() const { return mListenerTimer.mIsPending + mDataTimer.mIsPending; }
  // The calls that the connection made of its platform, in order.
  std::vector<std::string> TakeLog() { return std::exchange(mLog, {}); }

 private:
  struct Timer {
    bool mIsPending = false;
    double mFireDate = 0;
    int mNumber = 0;
  };

  void Note(const char* inText) { mLog.emplace_back(inText); }
  void Send(const char* inText);
  void Arm(Timer& outTimer);
  void Drop(Timer& ioTimer);
  Timer* GetNextTimer();

  void Register();
  void Unregister();
  void Accept();
  void Refuse();
  void WantListener();
  void WantData();
  bool TryListener();
  bool TryData();
  void CloseListener();
  void CloseData();

  Timer mListenerTimer;
  Timer mDataTimer;
  int mNumberTimers = 0;
  std::vector<std::string> mLog;
};

}  // namespace tembra::test
