#include "corefoundation/Object.h"

#include <CoreFoundation/CFString.h>

#include <cstdlib>

#include "corefoundation/Allocator.h"

namespace tembra::cf {

void* Object::AllocateStorage(CFAllocatorRef inAllocator, size_t inBytes) {
  if (!inAllocator) return std::malloc(inBytes);
  return CFAllocatorAllocate(inAllocator, static_cast<CFIndex>(inBytes), 0);
}

void Object::FreeStorage(CFAllocatorRef inAllocator, void* inStorage) {
  if (!inAllocator) {
    std::free(inStorage);
  } else {
    CFAllocatorDeallocate(inAllocator, inStorage);
  }
}

CFAllocatorRef Object::RetainAllocator(CFAllocatorRef inAllocator) {
  inAllocator = NormalAllocator(inAllocator);
  if (inAllocator) inAllocator->Retain();
  return inAllocator;
}

void Object::Destroy() {
  CFAllocatorRef allocator = mAllocator;
  this->~Object();
  FreeStorage(allocator, this);
  if (allocator) allocator->Release();
}

}  // namespace tembra::cf

using namespace tembra::cf;

namespace {

// A null reference is the caller's error; going on would only hide it.
const Object& Checked(CFTypeRef inRef) {
  if (!inRef) __builtin_trap();
  return *AsObject(inRef);
}

const char* TypeName(CFTypeID inType) {
  switch (inType) {
    case kTypeAllocator:
      return "CFAllocator";
    case kTypeString:
      return "CFString";
    case kTypeNull:
      return "CFNull";
    case kTypeDictionary:
      return "CFDictionary";
    case kTypeArray:
      return "CFArray";
    case kTypeData:
      return "CFData";
    case kTypeBoolean:
      return "CFBoolean";
    case kTypeNumber:
      return "CFNumber";
    case kTypeError:
      return "CFError";
    case kTypeURL:
      return "CFURL";
    case kTypeUUID:
      return "CFUUID";
    case kTypeDate:
      return "CFDate";
    case kTypeReadStream:
      return "CFReadStream";
    case kTypeWriteStream:
      return "CFWriteStream";
    case kTypeBundle:
      return "CFBundle";
    case kTypeRunLoop:
      return "CFRunLoop";
    case kTypeRunLoopSource:
      return "CFRunLoopSource";
    case kTypeRunLoopTimer:
      return "CFRunLoopTimer";
    case kTypeMessagePort:
      return "CFMessagePort";
    case kTypeNotificationCenter:
      return "CFNotificationCenter";
    default:
      return "CFType";
  }
}

}  // namespace

struct __CFNull : Object {
  constexpr __CFNull() : Object(true) {}
  CFTypeID GetTypeID() const override { return kTypeNull; }
};

namespace {
constinit Immortal<__CFNull> sNull;
}

constinit const CFNullRef kCFNull = &sNull.mValue;

CFTypeID CFNullGetTypeID() {
  return kTypeNull;
}

CFTypeID CFGetTypeID(CFTypeRef inRef) {
  return Checked(inRef).GetTypeID();
}

CFTypeRef CFRetain(CFTypeRef inRef) {
  Checked(inRef).Retain();
  return inRef;
}

void CFRelease(CFTypeRef inRef) {
  Checked(inRef).Release();
}

CFIndex CFGetRetainCount(CFTypeRef inRef) {
  return Checked(inRef).RetainCount();
}

Boolean CFEqual(CFTypeRef inFirst, CFTypeRef inSecond) {
  if (inFirst == inSecond) return true;
  if (!inFirst || !inSecond) return false;
  const Object& first = *AsObject(inFirst);
  const Object& second = *AsObject(inSecond);
  return first.GetTypeID() == second.GetTypeID() && first.IsEqual(second);
}

CFHashCode CFHash(CFTypeRef inRef) {
  return Checked(inRef).Hash();
}

CFAllocatorRef CFGetAllocator(CFTypeRef inRef) {
  CFAllocatorRef allocator = Checked(inRef).GetAllocator();
  return allocator ? allocator : kCFAllocatorSystemDefault;
}

CFStringRef CFCopyTypeIDDescription(CFTypeID inType) {
  return CFStringCreateWithCString(nullptr, TypeName(inType), kCFStringEncodingASCII);
}

CFStringRef CFCopyDescription(CFTypeRef inRef) {
  if (!inRef) return nullptr;
  if (CFStringRef own = AsObject(inRef)->CopyDescription()) return own;
  return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("<%s %p>"),
                                  TypeName(AsObject(inRef)->GetTypeID()), inRef);
}
