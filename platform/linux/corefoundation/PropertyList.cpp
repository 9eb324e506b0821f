#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPropertyList.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "corefoundation/Array.h"
#include "corefoundation/Dictionary.h"
#include "corefoundation/PropertyListCheck.h"
#include "corefoundation/PropertyListNodes.h"
#include "corefoundation/String.h"

using namespace tembra::cf;

namespace {

constexpr const char* kNoMemory = "memory ran out";

void SetError(CFErrorRef* outError, CFIndex inCode, const char* inText) {
  if (!outError) return;
  Owned<CFStringRef> text(CreateString(inText ? inText : kNoMemory));
  const void* key = kCFErrorDescriptionKey;
  const void* value = text.Get();
  Owned<CFDictionaryRef> info(CFDictionaryCreate(nullptr, &key, &value, text ? 1 : 0,
                                                 &kCFTypeDictionaryKeyCallBacks,
                                                 &kCFTypeDictionaryValueCallBacks));
  *outError = CFErrorCreate(nullptr, kCFErrorDomainCocoa, inCode, info);
}

CFPropertyListRef Parse(CFAllocatorRef inAllocator, const UInt8* inBytes, size_t inSize,
                        CFOptionFlags inOptions, CFPropertyListFormat* outFormat,
                        const char*& outError) {
  bool isBinary = LooksBinary(inBytes, inSize);
  outError = isBinary ? CheckBinaryList(inBytes, inSize) : CheckXMLList(inBytes, inSize);
  if (outError) return nullptr;
  PlainLocale locale;
  plist_t parsed = nullptr;
  const auto* text = reinterpret_cast<const char*>(inBytes);
  if (isBinary) {
    plist_from_bin(text, static_cast<uint32_t>(inSize), &parsed);
  } else {
    plist_from_xml(text, static_cast<uint32_t>(inSize), &parsed);
  }
  Node node(parsed);
  if (!node) {
    outError = "the data is not a property list";
    return nullptr;
  }
  CFPropertyListRef list = CreateFromNode(inAllocator, node.get(), inOptions, outError);
  if (list && outFormat) {
    *outFormat = isBinary ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
  }
  return list;
}

CFDataRef Serialize(CFAllocatorRef inAllocator, CFPropertyListRef inList,
                    CFPropertyListFormat inFormat, const char*& outError) {
  if (inFormat != kCFPropertyListBinaryFormat_v1_0 && inFormat != kCFPropertyListXMLFormat_v1_0) {
    outError = "the format is not one that can be written";
    return nullptr;
  }
  PlainLocale locale;
  Node node = CreateNode(inList, outError);
  if (!node) return nullptr;
  char* bytes = nullptr;
  uint32_t size = 0;
  if (inFormat == kCFPropertyListBinaryFormat_v1_0) {
    plist_to_bin(node.get(), &bytes, &size);
  } else {
    plist_to_xml(node.get(), &bytes, &size);
  }
  std::unique_ptr<char, decltype(&std::free)> owned(bytes, std::free);
  if (!bytes) return nullptr;
  return CFDataCreate(inAllocator, reinterpret_cast<const UInt8*>(bytes), size);
}

// Whether a list is one at all and within the limits, which also end the walk through a container
// that holds itself.
bool IsValid(CFPropertyListRef inList, size_t inDepth, size_t& ioCount) {
  if (!inList || inDepth > kMaxListDepth || ++ioCount > kMaxListObjects) return false;
  switch (CFGetTypeID(inList)) {
    case kTypeBoolean:
    case kTypeNumber:
    case kTypeString:
    case kTypeData:
    case kTypeDate:
      return true;
    case kTypeArray: {
      const auto& values = static_cast<CFArrayRef>(inList)->mValues;
      return std::all_of(values.begin(), values.end(), [&](const void* inValue) {
        return IsValid(inValue, inDepth + 1, ioCount);
      });
    }
    case kTypeDictionary: {
      bool isValid = true;
      static_cast<CFDictionaryRef>(inList)->ForEach([&](const __CFDictionary::Entry& inEntry) {
        isValid = isValid && IsType(inEntry.mKey, kTypeString) &&
                  IsValid(inEntry.mValue, inDepth + 1, ioCount);
      });
      return isValid;
    }
    default:
      return false;
  }
}

bool IsValid(CFPropertyListRef inList) {
  size_t count = 0;
  return IsValid(inList, 1, count);
}

Owned<CFPropertyListRef> DeepCopy(CFAllocatorRef inAllocator, CFPropertyListRef inList,
                                  bool inMutableContainers, bool inMutableLeaves) {
  using Result = Owned<CFPropertyListRef>;
  switch (CFGetTypeID(inList)) {
    case kTypeString: {
      auto string = static_cast<CFStringRef>(inList);
      if (inMutableLeaves) return Result(CFStringCreateMutableCopy(inAllocator, 0, string));
      return Result(CFStringCreateCopy(inAllocator, string));
    }
    case kTypeData: {
      auto data = static_cast<CFDataRef>(inList);
      if (inMutableLeaves) return Result(CFDataCreateMutableCopy(inAllocator, 0, data));
      return Result(CFDataCreateCopy(inAllocator, data));
    }
    case kTypeArray: {
      Owned<CFMutableArrayRef> copy(CFArrayCreateMutable(inAllocator, 0, &kCFTypeArrayCallBacks));
      if (!copy) return {};
      for (const void* value : static_cast<CFArrayRef>(inList)->mValues) {
        Result item = DeepCopy(inAllocator, value, inMutableContainers, inMutableLeaves);
        if (!item) return {};
        CFArrayAppendValue(copy, item);
      }
      if (inMutableContainers) return Result(copy.Detach());
      return Result(CFArrayCreateCopy(inAllocator, copy));
    }
    case kTypeDictionary: {
      Owned<CFMutableDictionaryRef> copy(CFDictionaryCreateMutable(
          inAllocator, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
      if (!copy) return {};
      bool isGood = true;
      static_cast<CFDictionaryRef>(inList)->ForEach([&](const __CFDictionary::Entry& inEntry) {
        if (!isGood) return;
        Result key(CFStringCreateCopy(inAllocator, static_cast<CFStringRef>(inEntry.mKey)));
        Result value = DeepCopy(inAllocator, inEntry.mValue, inMutableContainers, inMutableLeaves);
        isGood = key && value;
        if (isGood) CFDictionaryAddValue(copy, key, value);
      });
      if (!isGood) return {};
      if (inMutableContainers) return Result(copy.Detach());
      return Result(CFDictionaryCreateCopy(inAllocator, copy));
    }
    default:
      return Result::Retained(inList);
  }
}

}  // namespace

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef inAllocator, CFDataRef inData,
                                               CFOptionFlags inOptions,
                                               CFPropertyListFormat* outFormat,
                                               CFErrorRef* outError) {
  const char* error = inData ? nullptr : "there is no data";
  CFPropertyListRef list = Guarded([&]() -> CFPropertyListRef {
    if (!inData) return nullptr;
    return Parse(inAllocator, CFDataGetBytePtr(inData),
                 static_cast<size_t>(CFDataGetLength(inData)), inOptions, outFormat, error);
  });
  if (!list) SetError(outError, kCFPropertyListReadCorruptError, error);
  return list;
}

CFPropertyListRef CFPropertyListCreateWithStream(CFAllocatorRef inAllocator,
                                                 CFReadStreamRef inStream, CFIndex inLength,
                                                 CFOptionFlags inOptions,
                                                 CFPropertyListFormat* outFormat,
                                                 CFErrorRef* outError) {
  const char* error = nullptr;
  CFIndex code = kCFPropertyListReadStreamError;
  CFPropertyListRef list = Guarded([&]() -> CFPropertyListRef {
    if (!inStream || CFReadStreamGetStatus(inStream) != kCFStreamStatusOpen) {
      error = "the stream is not open";
      return nullptr;
    }
    // A length of 0 means up to the end.
    size_t wanted = inLength > 0 ? static_cast<size_t>(inLength) : kMaxListBytes + 1;
    std::vector<UInt8> bytes;
    while (bytes.size() < wanted) {
      size_t size = bytes.size();
      size_t step = std::min<size_t>(wanted - size, 65536);
      bytes.resize(size + step);
      CFIndex count = CFReadStreamRead(inStream, bytes.data() + size, static_cast<CFIndex>(step));
      if (count < 0) {
        error = "the stream cannot be read";
        return nullptr;
      }
      bytes.resize(size + static_cast<size_t>(count));
      if (count == 0) break;
      if (bytes.size() > kMaxListBytes) {
        error = "the property list holds too much";
        return nullptr;
      }
    }
    code = kCFPropertyListReadCorruptError;
    return Parse(inAllocator, bytes.data(), bytes.size(), inOptions, outFormat, error);
  });
  if (!list) SetError(outError, code, error);
  return list;
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef inAllocator, CFPropertyListRef inList,
                                   CFPropertyListFormat inFormat, CFOptionFlags,
                                   CFErrorRef* outError) {
  const char* error = nullptr;
  CFDataRef data = Guarded([&] { return Serialize(inAllocator, inList, inFormat, error); });
  if (!data) SetError(outError, kCFPropertyListWriteStreamError, error);
  return data;
}

CFIndex CFPropertyListWrite(CFPropertyListRef inList, CFWriteStreamRef inStream,
                            CFPropertyListFormat inFormat, CFOptionFlags inOptions,
                            CFErrorRef* outError) {
  Owned<CFDataRef> data(CFPropertyListCreateData(nullptr, inList, inFormat, inOptions, outError));
  if (!data) return 0;
  CFIndex size = CFDataGetLength(data);
  if (!inStream || CFWriteStreamWrite(inStream, CFDataGetBytePtr(data), size) != size) {
    SetError(outError, kCFPropertyListWriteStreamError, "the stream cannot be written");
    return 0;
  }
  return size;
}

CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef inAllocator, CFPropertyListRef inList,
                                               CFOptionFlags inOptions) {
  return Guarded([&]() -> CFPropertyListRef {
    if (!IsValid(inList)) return nullptr;
    bool leaves = inOptions & kCFPropertyListMutableContainersAndLeaves;
    bool containers = leaves || (inOptions & kCFPropertyListMutableContainers);
    return DeepCopy(inAllocator, inList, containers, leaves).Detach();
  });
}

Boolean CFPropertyListIsValid(CFPropertyListRef inList, CFPropertyListFormat inFormat) {
  return (inFormat == kCFPropertyListBinaryFormat_v1_0 ||
          inFormat == kCFPropertyListXMLFormat_v1_0) &&
         IsValid(inList);
}

CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef inAllocator, CFDataRef inData,
                                                  CFOptionFlags inOptions,
                                                  CFStringRef* outErrorText) {
  CFErrorRef error = nullptr;
  CFPropertyListRef list = CFPropertyListCreateWithData(inAllocator, inData, inOptions, nullptr,
                                                        outErrorText ? &error : nullptr);
  if (outErrorText) *outErrorText = error ? CFErrorCopyDescription(error) : nullptr;
  if (error) CFRelease(error);
  return list;
}

CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef inAllocator, CFPropertyListRef inList) {
  return CFPropertyListCreateData(inAllocator, inList, kCFPropertyListXMLFormat_v1_0, 0, nullptr);
}
