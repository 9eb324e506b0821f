// Untrusted bytes as a property list, binary or XML: refused, or a tree that can be walked, copied
// and written, and that is the same when it is read again.

#include <CoreFoundation/CoreFoundation.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

void Require(bool inHolds) {
  if (!inHolds) std::abort();
}

size_t WalkText(CFStringRef inString) {
  const CFIndex length = CFStringGetLength(inString);
  size_t sum = static_cast<size_t>(length);
  for (CFIndex i = 0; i < length; ++i) sum += CFStringGetCharacterAtIndex(inString, i);
  return sum;
}

struct Pairs {
  explicit Pairs(CFDictionaryRef inDictionary)
      : keys(static_cast<size_t>(CFDictionaryGetCount(inDictionary))), values(keys.size()) {
    CFDictionaryGetKeysAndValues(inDictionary, keys.data(), values.data());
  }
  std::vector<const void*> keys, values;
};

// Reads every byte that the tree holds.
size_t Walk(CFTypeRef inObject) {
  Require(inObject != nullptr);
  const CFTypeID type = CFGetTypeID(inObject);
  size_t sum = 0;
  if (type == CFStringGetTypeID()) {
    sum = WalkText(static_cast<CFStringRef>(inObject));
  } else if (type == CFDataGetTypeID()) {
    auto data = static_cast<CFDataRef>(inObject);
    const UInt8* bytes = CFDataGetBytePtr(data);
    for (CFIndex i = 0; i < CFDataGetLength(data); ++i) sum += bytes[i];
  } else if (type == CFArrayGetTypeID()) {
    auto array = static_cast<CFArrayRef>(inObject);
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i)
      sum += Walk(CFArrayGetValueAtIndex(array, i));
  } else if (type == CFDictionaryGetTypeID()) {
    auto dictionary = static_cast<CFDictionaryRef>(inObject);
    const Pairs pairs(dictionary);
    for (size_t i = 0; i < pairs.keys.size(); ++i) {
      Require(CFGetTypeID(pairs.keys[i]) == CFStringGetTypeID());
      Require(CFDictionaryGetValue(dictionary, pairs.keys[i]) == pairs.values[i]);
      sum += Walk(pairs.keys[i]) + Walk(pairs.values[i]);
    }
  } else {
    Require(type == CFNumberGetTypeID() || type == CFBooleanGetTypeID() ||
            type == CFDateGetTypeID());
  }
  return sum;
}

// Dates are written in whole seconds as XML and in microseconds otherwise.
bool IsSame(CFTypeRef inOne, CFTypeRef inOther, CFPropertyListFormat inFormat) {
  const CFTypeID type = CFGetTypeID(inOne);
  if (type != CFGetTypeID(inOther)) return false;
  if (type == CFDateGetTypeID()) {
    const double apart = CFDateGetAbsoluteTime(static_cast<CFDateRef>(inOne)) -
                         CFDateGetAbsoluteTime(static_cast<CFDateRef>(inOther));
    return std::fabs(apart) <= (inFormat == kCFPropertyListXMLFormat_v1_0 ? 1.0 : 3e-6);
  }
  if (type == CFNumberGetTypeID()) {
    auto one = static_cast<CFNumberRef>(inOne), other = static_cast<CFNumberRef>(inOther);
    if (CFNumberIsFloatType(one) != CFNumberIsFloatType(other)) return false;
    double first = 0, second = 0;
    CFNumberGetValue(one, kCFNumberFloat64Type, &first);
    CFNumberGetValue(other, kCFNumberFloat64Type, &second);
    return CFEqual(one, other) || (std::isnan(first) && std::isnan(second));
  }
  if (type == CFArrayGetTypeID()) {
    auto one = static_cast<CFArrayRef>(inOne), other = static_cast<CFArrayRef>(inOther);
    if (CFArrayGetCount(one) != CFArrayGetCount(other)) return false;
    for (CFIndex i = 0; i < CFArrayGetCount(one); ++i) {
      if (!IsSame(CFArrayGetValueAtIndex(one, i), CFArrayGetValueAtIndex(other, i), inFormat)) {
        return false;
      }
    }
    return true;
  }
  if (type == CFDictionaryGetTypeID()) {
    auto one = static_cast<CFDictionaryRef>(inOne), other = static_cast<CFDictionaryRef>(inOther);
    if (CFDictionaryGetCount(one) != CFDictionaryGetCount(other)) return false;
    const Pairs pairs(one);
    for (size_t i = 0; i < pairs.keys.size(); ++i) {
      const void* value = CFDictionaryGetValue(other, pairs.keys[i]);
      if (value == nullptr || !IsSame(pairs.values[i], value, inFormat)) return false;
    }
    return true;
  }
  return CFEqual(inOne, inOther);
}

void WriteAndReadAgain(CFPropertyListRef inList, CFPropertyListFormat inFormat) {
  CFDataRef written = CFPropertyListCreateData(nullptr, inList, inFormat, 0, nullptr);
  Require(written != nullptr);
  CFPropertyListFormat format{};
  CFPropertyListRef again =
      CFPropertyListCreateWithData(nullptr, written, kCFPropertyListImmutable, &format, nullptr);
  Require(again != nullptr && format == inFormat && IsSame(inList, again, inFormat));
  CFRelease(again);
  CFRelease(written);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  constexpr CFOptionFlags kOptions[] = {kCFPropertyListImmutable, kCFPropertyListMutableContainers,
                                        kCFPropertyListMutableContainersAndLeaves};
  CFDataRef data = CFDataCreate(nullptr, inData, static_cast<CFIndex>(inSize));
  CFPropertyListFormat format{};
  CFErrorRef error = nullptr;
  CFPropertyListRef list =
      CFPropertyListCreateWithData(nullptr, data, kOptions[inSize % 3], &format, &error);
  CFRelease(data);
  Require((list == nullptr) == (error != nullptr));
  if (list == nullptr) {
    CFRelease(error);
    return 0;
  }
  const size_t sum = Walk(list);
  Require(CFPropertyListIsValid(list, format));
  CFPropertyListRef copy = CFPropertyListCreateDeepCopy(nullptr, list, kOptions[inSize % 3]);
  Require(copy != nullptr && Walk(copy) == sum && IsSame(list, copy, format));
  CFRelease(copy);
  WriteAndReadAgain(list, kCFPropertyListBinaryFormat_v1_0);
  WriteAndReadAgain(list, kCFPropertyListXMLFormat_v1_0);
  CFRelease(list);
  return 0;
}
