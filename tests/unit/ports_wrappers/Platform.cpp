#include "unit/ports_wrappers/Platform.h"

SimulatedPlatform gPlatform;

namespace {

CFMutableStringRef Make() {
  return CFStringCreateMutable(kCFAllocatorDefault, 0);
}

std::string Text(CFStringRef inString) {
  char theText[256] = "";
  CFStringGetCString(inString, theText, sizeof(theText), kCFStringEncodingUTF8);
  return theText;
}

CFMessagePortRef CreatePort() {
  if (gPlatform.mCreateFails) return nullptr;
  return reinterpret_cast<CFMessagePortRef>(const_cast<void*>(CFRetain(GetFakePort())));
}

}  // namespace

CFTypeRef GetFakePort() {
  static CFMutableStringRef sPort = Make();
  return sPort;
}

CFTypeRef GetFakeSource() {
  static CFMutableStringRef sSource = Make();
  return sSource;
}

CFNotificationCenterRef GetFakeCenter() {
  static int sCenter = 0;
  return reinterpret_cast<CFNotificationCenterRef>(&sCenter);
}

extern "C" {

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef, CFStringRef inName,
                                          CFMessagePortCallBack inCallBack,
                                          CFMessagePortContext* inContext,
                                          Boolean* outShouldFreeInfo) {
  gPlatform.mCalls.push_back("CreateLocal " + Text(inName));
  gPlatform.mCallBack = inCallBack;
  gPlatform.mContext = *inContext;
  gPlatform.mHadFreeInfoArgument = outShouldFreeInfo != nullptr;
  return CreatePort();
}

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef, CFStringRef inName) {
  gPlatform.mCalls.push_back("CreateRemote " + Text(inName));
  return CreatePort();
}

void CFMessagePortSetInvalidationCallBack(CFMessagePortRef inPort,
                                          CFMessagePortInvalidationCallBack inCallBack) {
  gPlatform.mCalls.push_back(inPort == GetFakePort() ? "SetInvalidationCallBack" : "other port");
  gPlatform.mInvalidationCallBack = inCallBack;
}

void CFMessagePortInvalidate(CFMessagePortRef inPort) {
  gPlatform.mCalls.push_back("Invalidate, source references " +
                             std::to_string(CFGetRetainCount(GetFakeSource())));
  if (gPlatform.mInvalidationCallBack != nullptr) {
    gPlatform.mInvalidationCallBack(inPort, gPlatform.mContext.info);
  }
}

CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef, CFMessagePortRef inPort,
                                                    CFIndex inOrder) {
  gPlatform.mCalls.push_back(inPort == GetFakePort() && inOrder == 0 ? "CreateRunLoopSource"
                                                                     : "other source");
  return reinterpret_cast<CFRunLoopSourceRef>(const_cast<void*>(CFRetain(GetFakeSource())));
}

void CFMessagePortSetDispatchQueue(CFMessagePortRef inPort, dispatch_queue_t inQueue) {
  gPlatform.mCalls.push_back(inPort == GetFakePort() ? "SetDispatchQueue" : "other port");
  gPlatform.mQueue = inQueue;
}

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter() {
  return GetFakeCenter();
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef inCenter, const void* inObserver,
                                     CFNotificationCallback inCallback, CFStringRef inName,
                                     const void* inObject,
                                     CFNotificationSuspensionBehavior inBehavior) {
  gPlatform.mCalls.push_back(inCenter == GetFakeCenter() ? "AddObserver" : "other center");
  gPlatform.mObserver = inObserver;
  gPlatform.mNotificationCallback = inCallback;
  gPlatform.mName = Text(inName);
  gPlatform.mObject = inObject;
  gPlatform.mBehavior = inBehavior;
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef inCenter, const void* inObserver,
                                        CFStringRef inName, const void* inObject) {
  gPlatform.mCalls.push_back(inCenter == GetFakeCenter() ? "RemoveObserver" : "other center");
  gPlatform.mObserver = inObserver;
  gPlatform.mName = Text(inName);
  gPlatform.mObject = inObject;
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef inCenter,
                                                     CFStringRef inName, const void* inObject,
                                                     CFDictionaryRef inUserInfo,
                                                     CFOptionFlags inOptions) {
  gPlatform.mCalls.push_back(inCenter == GetFakeCenter() ? "Post" : "other center");
  gPlatform.mName = Text(inName);
  gPlatform.mObject = inObject;
  gPlatform.mUserInfo = inUserInfo;
  gPlatform.mOptions = inOptions;
}

}  // extern "C"
