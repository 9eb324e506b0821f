#include <CoreFoundation/CFError.h>

#include <cstring>

#include "corefoundation/String.h"

using namespace tembra::cf;

struct __CFError : Object {
  __CFError(CFErrorDomain inDomain, CFIndex inCode, CFDictionaryRef inUserInfo)
      : mDomain(CFStringCreateCopy(nullptr, inDomain)), mCode(inCode) {
    if (inUserInfo) mUserInfo.Reset(CFDictionaryCreateCopy(nullptr, inUserInfo));
  }
  CFTypeID GetTypeID() const override { return kTypeError; }
  bool IsEqual(const Object& inOther) const override {
    const auto& other = static_cast<const __CFError&>(inOther);
    return mCode == other.mCode && CFEqual(mDomain, other.mDomain) &&
           CFEqual(mUserInfo, other.mUserInfo);
  }
  CFHashCode Hash() const override { return static_cast<CFHashCode>(mCode); }
  CFStringRef CopyDescription() const override {
    return CFErrorCopyDescription(const_cast<__CFError*>(this));
  }
  CFStringRef Info(CFStringRef inKey) const {
    const void* value = mUserInfo ? CFDictionaryGetValue(mUserInfo, inKey) : nullptr;
    return IsType(value, kTypeString) ? static_cast<CFStringRef>(value) : nullptr;
  }

  Owned<CFStringRef> mDomain;
  const CFIndex mCode;
  Owned<CFDictionaryRef> mUserInfo;
};

constinit const CFErrorDomain kCFErrorDomainPOSIX = Constant<"NSPOSIXErrorDomain">();
constinit const CFErrorDomain kCFErrorDomainOSStatus = Constant<"NSOSStatusErrorDomain">();
constinit const CFErrorDomain kCFErrorDomainMach = Constant<"NSMachErrorDomain">();
constinit const CFErrorDomain kCFErrorDomainCocoa = Constant<"NSCocoaErrorDomain">();
constinit const CFStringRef kCFErrorLocalizedDescriptionKey = Constant<"NSLocalizedDescription">();
constinit const CFStringRef kCFErrorLocalizedFailureReasonKey =
    Constant<"NSLocalizedFailureReason">();
constinit const CFStringRef kCFErrorLocalizedRecoverySuggestionKey =
    Constant<"NSLocalizedRecoverySuggestion">();
constinit const CFStringRef kCFErrorDescriptionKey = Constant<"NSDescription">();
constinit const CFStringRef kCFErrorUnderlyingErrorKey = Constant<"NSUnderlyingError">();
constinit const CFStringRef kCFErrorURLKey = Constant<"NSURL">();
constinit const CFStringRef kCFErrorFilePathKey = Constant<"NSFilePath">();

CFTypeID CFErrorGetTypeID() {
  return kTypeError;
}

CFErrorRef CFErrorCreate(CFAllocatorRef inAllocator, CFErrorDomain inDomain, CFIndex inCode,
                         CFDictionaryRef inUserInfo) {
  if (!inDomain) return nullptr;
  return Create<__CFError>(inAllocator, inDomain, inCode, inUserInfo);
}

CFErrorDomain CFErrorGetDomain(CFErrorRef inError) {
  return inError->mDomain;
}

CFIndex CFErrorGetCode(CFErrorRef inError) {
  return inError->mCode;
}

CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef inError) {
  if (!inError->mUserInfo) {
    return CFDictionaryCreate(nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                              &kCFTypeDictionaryValueCallBacks);
  }
  return static_cast<CFDictionaryRef>(CFRetain(inError->mUserInfo));
}

CFStringRef CFErrorCopyDescription(CFErrorRef inError) {
  for (CFStringRef key : {kCFErrorLocalizedDescriptionKey, kCFErrorDescriptionKey}) {
    if (CFStringRef text = inError->Info(key)) return static_cast<CFStringRef>(CFRetain(text));
  }
  const char* reason = "";
  char buffer[128];
  if (CFEqual(inError->mDomain, kCFErrorDomainPOSIX)) {
    reason = strerror_r(static_cast<int>(inError->mCode), buffer, sizeof(buffer));
  }
  return CFStringCreateWithFormat(nullptr, nullptr,
                                  CFSTR("The operation couldn%C"
                                        "t be completed. (%@ error %ld%s%s)"),
                                  0x2019, inError->mDomain.Get(), inError->mCode,
                                  *reason ? " - " : "", reason);
}

CFStringRef CFErrorCopyFailureReason(CFErrorRef inError) {
  CFStringRef text = inError->Info(kCFErrorLocalizedFailureReasonKey);
  return text ? static_cast<CFStringRef>(CFRetain(text)) : nullptr;
}
