#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include <string>
#include <vector>

// This test's own ports and notification center: each call is written down, and a call that a test
// did not foresee shows in the record.
struct SimulatedPlatform {
  std::vector<std::string> mCalls;
  bool mCreateFails = false;
  CFMessagePortCallBack mCallBack = nullptr;
  CFMessagePortContext mContext = {};
  bool mHadFreeInfoArgument = false;
  CFMessagePortInvalidationCallBack mInvalidationCallBack = nullptr;
  dispatch_queue_t mQueue = nullptr;

  const void* mObserver = nullptr;
  CFNotificationCallback mNotificationCallback = nullptr;
  std::string mName;
  const void* mObject = nullptr;
  CFNotificationSuspensionBehavior mBehavior = {};
  CFDictionaryRef mUserInfo = nullptr;
  CFOptionFlags mOptions = 0;
};

extern SimulatedPlatform gPlatform;

// What the fakes hand out: real objects, so that their references count.
CFTypeRef GetFakePort();
CFTypeRef GetFakeSource();
CFNotificationCenterRef GetFakeCenter();
