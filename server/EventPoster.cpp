#include "server/EventPoster.h"

#include <unistd.h>

#include "client/TMBAudioServer.h"

namespace tembra {

namespace {

void AddNumber(CFMutableDictionaryRef ioDictionary, CFStringRef inKey, SInt32 inValue) {
  CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &inValue);
  if (number == nullptr) return;
  CFDictionarySetValue(ioDictionary, inKey, number);
  CFRelease(number);
}

}  // namespace

EventPoster::EventPoster()
    : mListenerID(CFTmbSndCopyListenerID()),
      mQueue(dispatch_queue_create("com.tembra.tmbasrv.events", DISPATCH_QUEUE_SERIAL)) {}

EventPoster::~EventPoster() {
  Drain();
  dispatch_release(mQueue);
  CFRelease(mListenerID);
}

void EventPoster::Post(int inEvent) {
  PostDictionary(inEvent, nullptr);
}

void EventPoster::PostAbout(int inEvent, SInt32 inClientPID) {
  PostDictionary(inEvent, &inClientPID);
}

void EventPoster::Drain() {
  dispatch_sync(mQueue, ^{
                });
}

void EventPoster::PostDictionary(int inEvent, const SInt32* inClientPID) {
  CFMutableDictionaryRef info = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  if (info == nullptr) return;
  AddNumber(info, kTMBAudioServerConnectionEventKey, inEvent);
  AddNumber(info, kTMBAudioServerNotificationSrvUIDKey, static_cast<SInt32>(getuid()));
  AddNumber(info, kTMBAudioServerNotificationSrvPIDKey, getpid());
  AddNumber(info, kTMBAudioServerNotificationSrvIDKey, getpid());
  if (inClientPID != nullptr) {
    AddNumber(info, kTMBAudioServerNotificationClientPIDKey, *inClientPID);
  }
  CFStringRef object = mListenerID;
  dispatch_async(mQueue, ^{
    CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
    if (center != nullptr) {
      CFNotificationCenterPostNotificationWithOptions(center, kTMBAudioServerNotification, object,
                                                      info, kCFNotificationDeliverImmediately);
    }
    CFRelease(info);
  });
}

}  // namespace tembra
