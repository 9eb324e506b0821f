// A datagram on a notification socket, which anybody may have sent: what is taken for a
// notification is exactly what its bytes say, and what observers would be given can be made of it
// or is refused.

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "notifications/NotificationWire.h"

namespace {

using namespace tembra::notifications;

void Require(bool inHolds) {
  if (!inHolds) std::abort();
}

void MakeText(std::string_view inText) {
  CFStringRef string =
      CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(inText.data()),
                              static_cast<CFIndex>(inText.size()), kCFStringEncodingUTF8, false);
  if (string == nullptr) return;
  // A text that was accepted is given back byte for byte.
  UInt8 bytes[kMaxText];
  CFIndex used = 0;
  const CFIndex length = CFStringGetLength(string);
  Require(CFStringGetBytes(string, CFRangeMake(0, length), kCFStringEncodingUTF8, 0, false, bytes,
                           sizeof bytes, &used) == length);
  Require(std::string_view(reinterpret_cast<char*>(bytes), static_cast<size_t>(used)) == inText);
  CFRelease(string);
}

void MakeDictionary(std::string_view inInfo) {
  CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(inInfo.data()),
                                static_cast<CFIndex>(inInfo.size()));
  CFPropertyListRef list =
      CFPropertyListCreateWithData(nullptr, data, kCFPropertyListImmutable, nullptr, nullptr);
  if (list != nullptr) {
    Require(CFPropertyListIsValid(list, kCFPropertyListBinaryFormat_v1_0));
    CFRelease(list);
  }
  CFRelease(data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  Notification notification;
  if (!DecodeNotification(inData, inSize, notification)) return 0;

  const char* begin = reinterpret_cast<const char*>(inData);
  Require(!notification.name.empty() && notification.name.data() == begin + sizeof(Header));
  Require(notification.info.data() + notification.info.size() == begin + inSize);
  Require(notification.hasObject || notification.object.empty());
  Require(notification.hasInfo || notification.info.empty());
  Require(EncodeNotification(notification) == std::string_view(begin, inSize));

  MakeText(notification.name);
  if (notification.hasObject) MakeText(notification.object);
  if (notification.hasInfo) MakeDictionary(notification.info);
  return 0;
}
