#include <CoreFoundation/CFDate.h>
#include <time.h>

#include <bit>
#include <cmath>

#include "corefoundation/Object.h"

using namespace tembra::cf;

struct __CFDate : Object {
  explicit __CFDate(CFAbsoluteTime inTime) : mTime(inTime) {}
  CFTypeID GetTypeID() const override { return kTypeDate; }
  bool IsEqual(const Object& inOther) const override {
    return mTime == static_cast<const __CFDate&>(inOther).mTime;
  }
  CFHashCode Hash() const override {
    return std::bit_cast<UInt64>(std::floor(mTime) + 0.0) * 0x9e3779b97f4a7c15UL;
  }

  const CFAbsoluteTime mTime;
};

constinit const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = 978307200.0;
constinit const CFTimeInterval kCFAbsoluteTimeIntervalSince1904 = 3061152000.0;

CFAbsoluteTime CFAbsoluteTimeGetCurrent() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) - kCFAbsoluteTimeIntervalSince1970 +
         static_cast<double>(now.tv_nsec) * 1e-9;
}

CFTypeID CFDateGetTypeID() {
  return kTypeDate;
}

CFDateRef CFDateCreate(CFAllocatorRef inAllocator, CFAbsoluteTime inTime) {
  return Create<__CFDate>(inAllocator, inTime);
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef inDate) {
  return inDate->mTime;
}

CFTimeInterval CFDateGetTimeIntervalSinceDate(CFDateRef inDate, CFDateRef inOther) {
  return inDate->mTime - inOther->mTime;
}

CFComparisonResult CFDateCompare(CFDateRef inDate, CFDateRef inOther, void*) {
  if (inDate->mTime < inOther->mTime) return kCFCompareLessThan;
  return inDate->mTime > inOther->mTime ? kCFCompareGreaterThan : kCFCompareEqualTo;
}
