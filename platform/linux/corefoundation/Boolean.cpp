#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFString.h>

#include "corefoundation/Object.h"

using namespace tembra::cf;

// One of the two truth values.
struct __CFBoolean : Object {
  constexpr __CFBoolean() : Object(true) {}
  CFTypeID GetTypeID() const override { return kTypeBoolean; }
  CFHashCode Hash() const override { return this == kCFBooleanTrue ? 1 : 0; }
  CFStringRef CopyDescription() const override {
    return this == kCFBooleanTrue ? CFSTR("true") : CFSTR("false");
  }
};

namespace {
constinit Immortal<__CFBoolean> sTrue;
constinit Immortal<__CFBoolean> sFalse;
}  // namespace

constinit const CFBooleanRef kCFBooleanTrue = &sTrue.mValue;
constinit const CFBooleanRef kCFBooleanFalse = &sFalse.mValue;

CFTypeID CFBooleanGetTypeID() {
  return kTypeBoolean;
}

Boolean CFBooleanGetValue(CFBooleanRef inBoolean) {
  return inBoolean == kCFBooleanTrue;
}
