#include "corefoundation/StringsFile.h"

#include <CoreFoundation/CFPropertyList.h>

#include <vector>

#include "corefoundation/Encoding.h"
#include "corefoundation/PropertyListCheck.h"
#include "corefoundation/String.h"

namespace tembra::cf {

namespace {

// Far beyond any table of texts.
constexpr size_t kMaxTextSize = size_t{4} << 20;

class Parser {
 public:
  explicit Parser(const std::vector<UniChar>& inText) : mText(inText) {}

  CFDictionaryRef Run() {
    Owned<CFMutableDictionaryRef> texts(CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (;;) {
      if (!SkipSpace()) return nullptr;
      if (mAt == mText.size()) return texts.Detach();
      Owned<CFStringRef> key = TakeString();
      if (!key || !SkipSpace()) return nullptr;
      Owned<CFStringRef> value = Owned<CFStringRef>::Retained(key);
      // A key alone stands for itself.
      if (Take('=')) {
        if (!SkipSpace()) return nullptr;
        value = TakeString();
        if (!value || !SkipSpace()) return nullptr;
      }
      if (!Take(';')) return nullptr;
      CFDictionarySetValue(texts, key, value);
    }
  }

 private:
  UniChar Peek(size_t inAhead = 0) const {
    return mAt + inAhead < mText.size() ? mText[mAt + inAhead] : 0;
  }
  bool Take(UniChar inUnit) {
    if (mAt >= mText.size() || mText[mAt] != inUnit) return false;
    ++mAt;
    return true;
  }

  // Also skips comments; false if one does not end.
  bool SkipSpace() {
    while (mAt < mText.size()) {
      UniChar unit = Peek();
      if (unit == ' ' || (unit >= '\t' && unit <= '\r') || unit == 0x2028 || unit == 0x2029) {
        ++mAt;
      } else if (unit == '/' && Peek(1) == '/') {
        while (mAt < mText.size() && Peek() != '\n' && Peek() != '\r') ++mAt;
      } else if (unit == '/' && Peek(1) == '*') {
        mAt += 2;
        while (!(Peek() == '*' && Peek(1) == '/')) {
          if (mAt >= mText.size()) return false;
          ++mAt;
        }
        mAt += 2;
      } else {
        return true;
      }
    }
    return true;
  }

  static bool IsBare(UniChar inUnit) {
    return (inUnit >= 'a' && inUnit <= 'z') || (inUnit >= 'A' && inUnit <= 'Z') ||
           (inUnit >= '0' && inUnit <= '9') || inUnit == '_' || inUnit == '$' || inUnit == '/' ||
           inUnit == ':' || inUnit == '.' || inUnit == '-';
  }

  Owned<CFStringRef> TakeString() {
    std::vector<UniChar> text;
    UniChar quote = Peek();
    if (quote != '"' && quote != '\'') {
      while (IsBare(Peek())) text.push_back(mText[mAt++]);
      if (text.empty()) return {};
      return Make(text);
    }
    ++mAt;
    while (mAt < mText.size()) {
      UniChar unit = mText[mAt++];
      if (unit == quote) return Make(text);
      if (unit != '\\') {
        text.push_back(unit);
      } else if (mAt < mText.size()) {
        text.push_back(TakeEscape());
      }
    }
    return {};
  }

  static Owned<CFStringRef> Make(const std::vector<UniChar>& inText) {
    return Owned<CFStringRef>(
        CreateString(nullptr, inText.data(), static_cast<CFIndex>(inText.size())));
  }

  // What stands behind a backslash; there is at least one unit.
  UniChar TakeEscape() {
    UniChar unit = mText[mAt++];
    switch (unit) {
      case 'a':
        return '\a';
      case 'b':
        return '\b';
      case 'f':
        return '\f';
      case 'n':
        return '\n';
      case 'r':
        return '\r';
      case 't':
        return '\t';
      case 'v':
        return '\v';
      case 'u':
      case 'U':
        return TakeDigits(0, 4, 16);
      default:
        if (unit >= '0' && unit <= '7') return TakeDigits(unit - '0', 2, 8);
        return unit;
    }
  }

  UniChar TakeDigits(int inValue, int inCount, int inBase) {
    int value = inValue;
    for (int i = 0; i < inCount; ++i) {
      UniChar unit = Peek();
      int digit = unit >= '0' && unit <= '9'   ? unit - '0'
                  : unit >= 'a' && unit <= 'f' ? unit - 'a' + 10
                  : unit >= 'A' && unit <= 'F' ? unit - 'A' + 10
                                               : inBase;
      if (digit >= inBase) break;
      value = value * inBase + digit;
      ++mAt;
    }
    return static_cast<UniChar>(value);
  }

  const std::vector<UniChar>& mText;
  size_t mAt = 0;
};

bool HoldsStringsOnly(CFTypeRef inList) {
  if (!IsType(inList, kTypeDictionary)) return false;
  bool isGood = true;
  CFDictionaryApplyFunction(
      static_cast<CFDictionaryRef>(inList),
      [](const void*, const void* inValue, void* ioGood) {
        if (!IsType(inValue, kTypeString)) *static_cast<bool*>(ioGood) = false;
      },
      &isGood);
  return isGood;
}

bool StartsWithMark(const UInt8* inBytes, size_t inSize) {
  return inSize >= 2 &&
         ((inBytes[0] == 0xFE && inBytes[1] == 0xFF) || (inBytes[0] == 0xFF && inBytes[1] == 0xFE));
}

}  // namespace

CFDictionaryRef CreateFromStringsFile(const UInt8* inBytes, size_t inSize) {
  return Guarded([&]() -> CFDictionaryRef {
    if (inSize > kMaxTextSize) return nullptr;
    if (LooksBinary(inBytes, inSize) || (inSize > 0 && inBytes[0] == '<')) {
      Owned<CFDataRef> data(CFDataCreateWithBytesNoCopy(
          nullptr, inBytes, static_cast<CFIndex>(inSize), kCFAllocatorNull));
      Owned<CFTypeRef> list(CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr));
      if (!HoldsStringsOnly(list)) return nullptr;
      return static_cast<CFDictionaryRef>(list.Detach());
    }
    std::vector<UniChar> text;
    CFStringEncoding encoding =
        StartsWithMark(inBytes, inSize) ? kCFStringEncodingUTF16 : kCFStringEncodingUTF8;
    if (!Decode(inBytes, inSize, encoding, true, text)) return nullptr;
    return Parser(text).Run();
  });
}

}  // namespace tembra::cf
