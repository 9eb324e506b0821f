#include "corefoundation/PropertyListNodes.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFNumber.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "corefoundation/Array.h"
#include "corefoundation/Dictionary.h"
#include "corefoundation/Number.h"
#include "corefoundation/PropertyListCheck.h"
#include "corefoundation/PropertyListDates.h"
#include "corefoundation/String.h"

namespace tembra::cf {

namespace {

using Text = std::unique_ptr<char, decltype(&std::free)>;

// Nodes keep 64 bits and, behind their interface, whether the top one is a sign. Written out they
// tell.
bool IsWrittenNegative(plist_t inNode) {
  char* text = nullptr;
  uint32_t size = 0;
  plist_to_xml(inNode, &text, &size);
  Text owned(text, std::free);
  const char* value = text ? std::strstr(text, "<integer>") : nullptr;
  return value && value[std::strlen("<integer>")] == '-';
}

// Writing every node out would let a short list keep the reader busy for long. Nodes of one value
// are equal if they agree about the sign, so it is enough to know what a new one is.
bool IsNegative(plist_t inNode, uint64_t inValue) {
  static const bool sIsNewNegative = IsWrittenNegative(Node(plist_new_uint(UINT64_MAX)).get());
  const Node same(plist_new_uint(inValue));
  return plist_compare_node_value(inNode, same.get()) ? sIsNewNegative : !sIsNewNegative;
}

Node CreateIntegerNode(SInt64 inValue, bool inIsUnsigned) {
  if (inValue >= 0) return Node(plist_new_uint(static_cast<uint64_t>(inValue)));
  std::string text =
      "<plist version=\"1.0\"><integer>" +
      (inIsUnsigned ? std::to_string(static_cast<UInt64>(inValue)) : std::to_string(inValue)) +
      "</integer></plist>";
  plist_t node = nullptr;
  plist_from_xml(text.data(), static_cast<uint32_t>(text.size()), &node);
  return Node(node);
}

class Reader {
 public:
  Reader(CFAllocatorRef inAllocator, CFOptionFlags inOptions)
      : mAllocator(inAllocator),
        mMutableLeaves(inOptions & kCFPropertyListMutableContainersAndLeaves),
        mMutableContainers(mMutableLeaves || (inOptions & kCFPropertyListMutableContainers)) {}

  Owned<CFPropertyListRef> Read(plist_t inNode, size_t inDepth) {
    if (inDepth > kMaxListDepth || ++mCount > 2 * kMaxListObjects) {
      return Fail("the property list is too large");
    }
    switch (plist_get_node_type(inNode)) {
      case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(inNode, &value);
        return Ref(CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse));
      }
      case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(inNode, &value);
        auto bits = static_cast<SInt64>(value);
        return bits < 0 && !IsNegative(inNode, value)
                   ? Ref(CreateUnsignedNumber(mAllocator, value))
                   : Ref(CFNumberCreate(mAllocator, kCFNumberSInt64Type, &bits));
      }
      case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(inNode, &value);
        return Ref(CFNumberCreate(mAllocator, kCFNumberFloat64Type, &value));
      }
      case PLIST_STRING: {
        char* value = nullptr;
        plist_get_string_val(inNode, &value);
        return ReadText(value, mMutableLeaves);
      }
      case PLIST_DATE: {
        double time = 0;
        if (!ReadDate(inNode, time)) return Fail("a date is out of range");
        return Ref(CFDateCreate(mAllocator, time));
      }
      case PLIST_DATA:
        return ReadData(inNode);
      case PLIST_ARRAY:
        return ReadArray(inNode, inDepth);
      case PLIST_DICT:
        return ReadDictionary(inNode, inDepth);
      default:
        return Fail("the property list holds an object of no known type");
    }
  }
  const char* mError = nullptr;

 private:
  Owned<CFPropertyListRef> Fail(const char* inError) {
    if (!mError) mError = inError;
    return {};
  }
  Owned<CFPropertyListRef> Ref(CFTypeRef inRef) {
    return inRef ? Owned<CFPropertyListRef>(inRef) : Fail("memory ran out");
  }

  // Takes the text over.
  Owned<CFPropertyListRef> ReadText(char* inText, bool inIsMutable) {
    Text owned(inText, std::free);
    if (!inText) return Fail("memory ran out");
    Owned<CFStringRef> string(CFStringCreateWithCString(mAllocator, inText, kCFStringEncodingUTF8));
    if (!string) return Fail("a string is not valid text");
    if (!inIsMutable) return Ref(string.Detach());
    return Ref(CFStringCreateMutableCopy(mAllocator, 0, string));
  }

  Owned<CFPropertyListRef> ReadData(plist_t inNode) {
    char* value = nullptr;
    uint64_t size = 0;
    plist_get_data_val(inNode, &value, &size);
    Text owned(value, std::free);
    Owned<CFDataRef> data(CFDataCreate(mAllocator, reinterpret_cast<const UInt8*>(value),
                                       value ? static_cast<CFIndex>(size) : 0));
    if (!mMutableLeaves || !data) return Ref(data.Detach());
    return Ref(CFDataCreateMutableCopy(mAllocator, 0, data));
  }

  Owned<CFPropertyListRef> ReadArray(plist_t inNode, size_t inDepth) {
    Owned<CFMutableArrayRef> array(CFArrayCreateMutable(mAllocator, 0, &kCFTypeArrayCallBacks));
    plist_array_iter state = nullptr;
    plist_array_new_iter(inNode, &state);
    std::unique_ptr<void, decltype(&std::free)> iterator(state, std::free);
    if (!array || !state) return Fail("memory ran out");
    for (;;) {
      plist_t item = nullptr;
      plist_array_next_item(inNode, state, &item);
      if (!item) break;
      Owned<CFPropertyListRef> value = Read(item, inDepth + 1);
      if (!value) return {};
      CFArrayAppendValue(array, value);
    }
    if (mMutableContainers) return Ref(array.Detach());
    return Ref(CFArrayCreateCopy(mAllocator, array));
  }

  Owned<CFPropertyListRef> ReadDictionary(plist_t inNode, size_t inDepth) {
    Owned<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
        mAllocator, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    plist_dict_iter state = nullptr;
    plist_dict_new_iter(inNode, &state);
    std::unique_ptr<void, decltype(&std::free)> iterator(state, std::free);
    if (!dictionary || !state) return Fail("memory ran out");
    for (;;) {
      char* text = nullptr;
      plist_t item = nullptr;
      plist_dict_next_item(inNode, state, &text, &item);
      if (!item) {
        std::free(text);
        break;
      }
      Owned<CFPropertyListRef> key = ReadText(text, false);
      if (!key) return {};
      Owned<CFPropertyListRef> value = Read(item, inDepth + 1);
      if (!value) return {};
      CFDictionaryAddValue(dictionary, key, value);
    }
    if (mMutableContainers) return Ref(dictionary.Detach());
    return Ref(CFDictionaryCreateCopy(mAllocator, dictionary));
  }

  const CFAllocatorRef mAllocator;
  const bool mMutableLeaves;
  const bool mMutableContainers;
  size_t mCount = 0;
};

class Writer {
 public:
  Node Write(CFPropertyListRef inList, size_t inDepth) {
    // A container that holds itself ends here too.
    if (inDepth > kMaxListDepth || ++mCount > 2 * kMaxListObjects) {
      return Fail("the property list is too large or contains itself");
    }
    if (!inList) return Fail("a null reference is not a property list");
    switch (CFGetTypeID(inList)) {
      case kTypeBoolean:
        return Node(plist_new_bool(inList == kCFBooleanTrue));
      case kTypeNumber: {
        auto number = static_cast<CFNumberRef>(inList);
        return number->IsReal() ? Node(plist_new_real(number->mReal))
                                : CreateIntegerNode(number->mInteger, number->mIsUnsigned);
      }
      case kTypeString: {
        std::string text;
        if (!Convert(static_cast<CFStringRef>(inList), text)) return nullptr;
        return Node(plist_new_string(text.c_str()));
      }
      case kTypeData: {
        auto data = static_cast<CFDataRef>(inList);
        // The library copies, and wants a pointer even to nothing.
        const UInt8* bytes =
            CFDataGetLength(data) > 0 ? CFDataGetBytePtr(data) : reinterpret_cast<const UInt8*>("");
        return Node(plist_new_data(reinterpret_cast<const char*>(bytes),
                                   static_cast<uint64_t>(CFDataGetLength(data))));
      }
      case kTypeDate: {
        Node date = CreateDateNode(CFDateGetAbsoluteTime(static_cast<CFDateRef>(inList)));
        return date ? std::move(date) : Fail("a date is out of range");
      }
      case kTypeArray:
        return WriteArray(static_cast<CFArrayRef>(inList), inDepth);
      case kTypeDictionary:
        return WriteDictionary(static_cast<CFDictionaryRef>(inList), inDepth);
      default:
        return Fail("an object is of no type that a property list can hold");
    }
  }
  const char* mError = nullptr;

 private:
  Node Fail(const char* inError) {
    if (!mError) mError = inError;
    return nullptr;
  }

  bool Convert(CFStringRef inString, std::string& outText) {
    CFIndex size = 0;
    CFRange all = CFRangeMake(0, inString->mLength);
    if (CFStringGetBytes(inString, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size) !=
        inString->mLength) {
      Fail("a string holds an unpaired surrogate");
      return false;
    }
    outText = ToUTF8(inString);
    if (outText.find('\0') != std::string::npos) {
      Fail("a string holds a null character");
      return false;
    }
    return true;
  }

  Node WriteArray(CFArrayRef inArray, size_t inDepth) {
    Node array(plist_new_array());
    for (const void* value : inArray->mValues) {
      Node item = Write(value, inDepth + 1);
      if (!item) return nullptr;
      plist_array_append_item(array.get(), item.release());
    }
    return array;
  }

  Node WriteDictionary(CFDictionaryRef inDictionary, size_t inDepth) {
    Node dictionary(plist_new_dict());
    bool isGood = true;
    inDictionary->ForEach([&](const __CFDictionary::Entry& inEntry) {
      if (!isGood) return;
      std::string key;
      if (!IsType(inEntry.mKey, kTypeString)) {
        Fail("a key is not a string");
        isGood = false;
        return;
      }
      isGood = Convert(static_cast<CFStringRef>(inEntry.mKey), key);
      Node item = isGood ? Write(inEntry.mValue, inDepth + 1) : nullptr;
      isGood = item != nullptr;
      if (isGood) plist_dict_set_item(dictionary.get(), key.c_str(), item.release());
    });
    if (!isGood) return nullptr;
    return dictionary;
  }

  size_t mCount = 0;
};

}  // namespace

CFPropertyListRef CreateFromNode(CFAllocatorRef inAllocator, plist_t inNode,
                                 CFOptionFlags inOptions, const char*& outError) {
  Reader reader(inAllocator, inOptions);
  Owned<CFPropertyListRef> list = reader.Read(inNode, 1);
  outError = reader.mError;
  return list.Detach();
}

Node CreateNode(CFPropertyListRef inList, const char*& outError) {
  Writer writer;
  Node node = writer.Write(inList, 1);
  outError = writer.mError;
  return node;
}

}  // namespace tembra::cf
