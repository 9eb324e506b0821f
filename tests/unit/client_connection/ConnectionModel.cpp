#include "ConnectionModel.h"

#include <algorithm>

namespace tembra::test {
namespace {

constexpr double kTry = 0.10000000149011612;
constexpr UInt32 kTries = 10;

}  // namespace

void ConnectionModel::Start() {
  mListenerRetries = mDataRetries = 0;
  mState = 1;
  Note("observe");
  Register();
}

void ConnectionModel::Stop() {
  Note("unobserve");
  Send("send cdel");
  Unregister();
  Drop(mDataTimer);
  Drop(mListenerTimer);
  mState = 0;
  mListenerRetries = mDataRetries = 0;
}

void ConnectionModel::Event(int inEvent, bool inIsForThisClient) {
  if (mState == 0) return;
  switch (inEvent) {
    case 'strt':
      mListenerRetries = mDataRetries = 0;
      Register();
      break;
    case 'fnsh':
      Unregister();
      break;
    case 'cadd':
      if (!inIsForThisClient) break;
      mDataRetries = 0;
      Accept();
      break;
    case 'cdel':
      if (inIsForThisClient) Refuse();
      break;
    case 'cchk':
      if (inIsForThisClient) Send("send echo");
      break;
    default:
      break;
  }
}

void ConnectionModel::Register() {
  if (mState != 1) return;
  mState = 2;
  WantListener();
}

void ConnectionModel::Unregister() {
  switch (mState) {
    case 2:
      Drop(mListenerTimer);
      CloseListener();
      mState = 1;
      break;
    case 3:
      CloseListener();
      mState = 1;
      break;
    case 4:
      Drop(mDataTimer);
      mState = 1;
      Refuse();
      break;
    case 5:
      mState = 1;
      Refuse();
      break;
    default:
      break;
  }
}

void ConnectionModel::Accept() {
  const int from = mState;
  if (from < 1 || from > 3) return;
  mState = 4;
  if (from == 1) WantListener();
  if (from == 3) WantData();
}

void ConnectionModel::Refuse() {
  switch (mState) {
    case 0:
    case 1:
    case 3:
      CloseData();
      break;
    case 4:
      Drop(mDataTimer);
      CloseData();
      mState = 3;
      break;
    case 5:
      CloseData();
      mState = 3;
      break;
    default:
      break;
  }
}

void ConnectionModel::WantListener() {
  if (mListenerRetries == 0 && TryListener()) return;
  if (mListenerRetries >= kTries) {
    if (!mListenerIsOpen && mState > 1) mState = 1;
    return;
  }
  ++mListenerRetries;
  Drop(mListenerTimer);
  Arm(mListenerTimer);
}

void ConnectionModel::WantData() {
  if (mDataRetries == 0 && TryData()) return;
  if (mDataRetries >= kTries) {
    if (!mDataIsOpen && mState > 3) mState = 3;
    return;
  }
  ++mDataRetries;
  Drop(mDataTimer);
  Arm(mDataTimer);
}

bool ConnectionModel::TryListener() {
  if (mListenerIsOpen) return true;
  Note(mHasListener ? "open listener" : "no listener");
  if (!mHasListener) return false;
  mListenerIsOpen = true;
  if (mState == 2) mState = 3;
  Send("send cadd");
  if (mState == 4) WantData();
  return true;
}

bool ConnectionModel::TryData() {
  if (mDataIsOpen) return true;
  Note(mHasDataPort ? "open data" : "no data");
  if (!mHasDataPort) return false;
  mDataIsOpen = true;
  if (mState == 4) mState = 5;
  return true;
}

void ConnectionModel::CloseListener() {
  if (!mListenerIsOpen) return;
  Note("close listener");
  mListenerIsOpen = false;
  if (mState >= 2) mState = 1;
}

void ConnectionModel::CloseData() {
  if (!mDataIsOpen) return;
  Note("close data");
  mDataIsOpen = false;
  if (mState > 3) mState = 3;
  if (mState < 3) CloseListener();
}

void ConnectionModel::Send(const char* inText) {
  if (mListenerIsOpen && !mPortsAreDead) Note(inText);
}

void ConnectionModel::Arm(Timer& outTimer) {
  Note("timer");
  outTimer = {true, mNow + kTry, ++mNumberTimers};
}

void ConnectionModel::Drop(Timer& ioTimer) {
  if (ioTimer.mIsPending) Note("drop timer");
  ioTimer.mIsPending = false;
}

ConnectionModel::Timer* ConnectionModel::GetNextTimer() {
  Timer* next = nullptr;
  for (Timer* timer : {&mListenerTimer, &mDataTimer}) {
    if (!timer->mIsPending) continue;
    if (next == nullptr || timer->mFireDate < next->mFireDate ||
        (timer->mFireDate == next->mFireDate && timer->mNumber < next->mNumber)) {
      next = timer;
    }
  }
  return next;
}

bool ConnectionModel::FireNextTimer() {
  Timer* timer = GetNextTimer();
  if (timer == nullptr) return false;
  timer->mIsPending = false;
  mNow = std::max(mNow, timer->mFireDate);
  if (timer == &mListenerTimer) {
    if (mState > 1 && !TryListener()) WantListener();
  } else {
    if (mState > 3 && !TryData()) WantData();
  }
  return true;
}

void ConnectionModel::Advance(double inSeconds) {
  const double end = mNow + inSeconds;
  for (;;) {
    const Timer* timer = GetNextTimer();
    if (timer == nullptr || timer->mFireDate > end) break;
    FireNextTimer();
  }
  mNow = end;
}

}  // namespace tembra::test
