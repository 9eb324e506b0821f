#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "corefoundation/Encoding.h"
#include "corefoundation/String.h"

using namespace tembra::cf;

namespace {

enum class Length { kNone, kChar, kShort, kLong, kLongLong, kSize, kPtrDiff, kMax, kLongDouble };
enum class Kind { kNone, kInt, kLong, kReal, kLongReal, kPointer };

constexpr int kUnset = -1;
// Far beyond any format in use; keeps positions from outside from growing the table of arguments.
constexpr int kMaxArguments = 64;
constexpr int kMaxWidth = 4096;

struct Spec {
  std::string mFlags;
  int mWidth = kUnset;
  int mPrecision = kUnset;
  // Indexes of the arguments, or kUnset.
  int mWidthArgument = kUnset;
  int mPrecisionArgument = kUnset;
  int mArgument = kUnset;
  Length mLength = Length::kNone;
  char mConversion = 0;
};

union Value {
  SInt64 mInteger;
  double mReal;
  long double mLongReal;
  const void* mPointer;
};

// A va_list that can be passed by reference on every machine.
struct Arguments {
  va_list mList;
};

struct Argument {
  Kind mKind = Kind::kNone;
  Value mValue{};
};

class Formatter {
 public:
  Formatter(std::vector<UniChar>& ioText, CFStringRef inFormat)
      : mText(ioText), mFormat(inFormat->mCharacters), mSize(inFormat->mLength) {}

  void Run(va_list inArguments) {
    // The kinds of all arguments must be known before the first can be fetched, since a format may
    // name them in any order.
    Walk([](UniChar) {}, [this](const Spec& inSpec) { Note(inSpec); });
    Arguments arguments;
    va_copy(arguments.mList, inArguments);
    for (Argument& argument : mArguments) Fetch(argument, arguments);
    va_end(arguments.mList);
    Walk([this](UniChar inUnit) { mText.push_back(inUnit); },
         [this](const Spec& inSpec) { Put(inSpec); });
  }

 private:
  bool AtDigit() const { return mAt < mSize && mFormat[mAt] >= '0' && mFormat[mAt] <= '9'; }
  bool Take(char inCharacter) {
    if (mAt >= mSize || mFormat[mAt] != static_cast<UniChar>(inCharacter)) return false;
    ++mAt;
    return true;
  }
  int Number(int inMax) {
    int number = 0;
    for (; AtDigit(); ++mAt) number = std::min(number * 10 + (mFormat[mAt] - '0'), inMax);
    return number;
  }
  // "3$" at the present place: the index of that argument, otherwise nothing is taken.
  int Position() {
    CFIndex start = mAt;
    if (AtDigit()) {
      int position = Number(kMaxArguments + 1);
      if (Take('$') && position >= 1 && position <= kMaxArguments) return position - 1;
    }
    mAt = start;
    return kUnset;
  }
  int Star() {
    int position = Position();
    return position != kUnset ? position : mNext++;
  }

  Spec Parse() {
    Spec spec;
    spec.mArgument = Position();
    while (mAt < mSize && std::strchr("-+ #0'", mFormat[mAt] < 0x80 ? mFormat[mAt] : 1) &&
           mFormat[mAt] != 0) {
      spec.mFlags += static_cast<char>(mFormat[mAt++]);
    }
    if (Take('*')) {
      spec.mWidthArgument = Star();
    } else if (AtDigit()) {
      spec.mWidth = Number(kMaxWidth);
    }
    if (Take('.')) {
      if (Take('*')) {
        spec.mPrecisionArgument = Star();
      } else {
        spec.mPrecision = Number(kMaxWidth);
      }
    }
    if (Take('h')) {
      spec.mLength = Take('h') ? Length::kChar : Length::kShort;
    } else if (Take('l')) {
      spec.mLength = Take('l') ? Length::kLongLong : Length::kLong;
    } else if (Take('q')) {
      spec.mLength = Length::kLongLong;
    } else if (Take('z')) {
      spec.mLength = Length::kSize;
    } else if (Take('t')) {
      spec.mLength = Length::kPtrDiff;
    } else if (Take('j')) {
      spec.mLength = Length::kMax;
    } else if (Take('L')) {
      spec.mLength = Length::kLongDouble;
    }
    if (mAt < mSize) {
      UniChar conversion = mFormat[mAt++];
      spec.mConversion = conversion < 0x80 ? static_cast<char>(conversion) : '?';
    }
    if (KindOf(spec) != Kind::kNone && spec.mArgument == kUnset) spec.mArgument = mNext++;
    return spec;
  }

  template <class OnUnit, class OnSpec>
  void Walk(OnUnit inOnUnit, OnSpec inOnSpec) {
    mAt = 0;
    mNext = 0;
    while (mAt < mSize) {
      if (mFormat[mAt] != '%') {
        inOnUnit(mFormat[mAt++]);
        continue;
      }
      ++mAt;
      inOnSpec(Parse());
    }
  }

  static Kind KindOf(const Spec& inSpec) {
    switch (inSpec.mConversion) {
      case 'd':
      case 'i':
      case 'u':
      case 'o':
      case 'x':
      case 'X':
      case 'D':
      case 'U':
      case 'O':
        return inSpec.mLength == Length::kNone || inSpec.mLength == Length::kChar ||
                       inSpec.mLength == Length::kShort
                   ? Kind::kInt
                   : Kind::kLong;
      case 'c':
      case 'C':
        return Kind::kInt;
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        return inSpec.mLength == Length::kLongDouble ? Kind::kLongReal : Kind::kReal;
      case '@':
      case 's':
      case 'S':
      case 'p':
        return Kind::kPointer;
      default:
        return Kind::kNone;
    }
  }

  void Note(int inIndex, Kind inKind) {
    if (inIndex < 0 || inIndex >= kMaxArguments) return;
    if (mArguments.size() <= static_cast<size_t>(inIndex)) {
      mArguments.resize(static_cast<size_t>(inIndex) + 1);
    }
    mArguments[static_cast<size_t>(inIndex)].mKind = inKind;
  }
  void Note(const Spec& inSpec) {
    Note(inSpec.mWidthArgument, Kind::kInt);
    Note(inSpec.mPrecisionArgument, Kind::kInt);
    Note(inSpec.mArgument, KindOf(inSpec));
  }

  static void Fetch(Argument& outArgument, Arguments& ioArguments) {
    Value& value = outArgument.mValue;
    switch (outArgument.mKind) {
      case Kind::kNone:  // never used, so its kind is unknown: an int, as printf takes it
      case Kind::kInt:
        value.mInteger = va_arg(ioArguments.mList, int);
        break;
      case Kind::kLong:
        value.mInteger = va_arg(ioArguments.mList, long);
        break;
      case Kind::kReal:
        value.mReal = va_arg(ioArguments.mList, double);
        break;
      case Kind::kLongReal:
        value.mLongReal = va_arg(ioArguments.mList, long double);
        break;
      case Kind::kPointer:
        value.mPointer = va_arg(ioArguments.mList, const void*);
        break;
    }
  }
  Value Get(int inIndex) const {
    return inIndex >= 0 && static_cast<size_t>(inIndex) < mArguments.size()
               ? mArguments[static_cast<size_t>(inIndex)].mValue
               : Value{};
  }

  void PutASCII(const char* inText, size_t inSize) {
    mText.insert(mText.end(), inText, inText + inSize);
  }
  void PutPadded(const std::vector<UniChar>& inText, const Spec& inSpec) {
    size_t width = inSpec.mWidth > 0 ? static_cast<size_t>(inSpec.mWidth) : 0;
    size_t padding = width > inText.size() ? width - inText.size() : 0;
    bool left = inSpec.mFlags.find('-') != std::string::npos;
    if (!left) mText.insert(mText.end(), padding, ' ');
    mText.insert(mText.end(), inText.begin(), inText.end());
    if (left) mText.insert(mText.end(), padding, ' ');
  }

  template <class T>
  void PutPrintf(const Spec& inSpec, const char* inLength, char inConversion, T inValue) {
    std::string format = "%" + inSpec.mFlags;
    if (inSpec.mWidth != kUnset) format += std::to_string(inSpec.mWidth);
    if (inSpec.mPrecision != kUnset) format += "." + std::to_string(inSpec.mPrecision);
    format += inLength;
    format += inConversion;
    char small[128];
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-nonliteral"
    int size = std::snprintf(small, sizeof(small), format.c_str(), inValue);
    if (size < 0) return;
    if (static_cast<size_t>(size) < sizeof(small)) {
      PutASCII(small, static_cast<size_t>(size));
      return;
    }
    std::string large(static_cast<size_t>(size) + 1, 0);
    std::snprintf(large.data(), large.size(), format.c_str(), inValue);
#pragma clang diagnostic pop
    PutASCII(large.data(), static_cast<size_t>(size));
  }

  // The argument at the width of its length modifier, as a signed 64-bit integer.
  static SInt64 Signed(SInt64 inValue, Length inLength) {
    if (inLength == Length::kChar) return static_cast<SInt8>(inValue);
    if (inLength == Length::kShort) return static_cast<SInt16>(inValue);
    return inLength == Length::kNone ? static_cast<SInt32>(inValue) : inValue;
  }
  static UInt64 Unsigned(SInt64 inValue, Length inLength) {
    if (inLength == Length::kChar) return static_cast<UInt8>(inValue);
    if (inLength == Length::kShort) return static_cast<UInt16>(inValue);
    return inLength == Length::kNone ? static_cast<UInt32>(inValue) : static_cast<UInt64>(inValue);
  }

  void PutBytes(const char* inBytes, const Spec& inSpec) {
    if (!inBytes) inBytes = "(null)";
    size_t size = inSpec.mPrecision >= 0 ? strnlen(inBytes, static_cast<size_t>(inSpec.mPrecision))
                                         : std::strlen(inBytes);
    std::vector<UniChar> text;
    const auto* bytes = reinterpret_cast<const UInt8*>(inBytes);
    if (!Decode(bytes, size, kCFStringEncodingUTF8, false, text)) {
      text.clear();
      Decode(bytes, size, kCFStringEncodingMacRoman, false, text);
    }
    PutPadded(text, inSpec);
  }

  void PutObject(const void* inObject, const Spec& inSpec) {
    Owned<CFStringRef> description(inObject ? CFCopyDescription(inObject) : nullptr);
    CFStringRef text = description ? description.Get() : Constant<"(null)">();
    CFIndex length = text->mLength;
    if (inSpec.mPrecision >= 0) length = std::min<CFIndex>(length, inSpec.mPrecision);
    PutPadded(std::vector<UniChar>(text->mCharacters, text->mCharacters + length), inSpec);
  }

  void PutCharacters(const UniChar* inCharacters, const Spec& inSpec) {
    std::vector<UniChar> text;
    for (CFIndex i = 0; inCharacters && inCharacters[i] != 0; ++i) {
      if (inSpec.mPrecision >= 0 && i >= inSpec.mPrecision) break;
      text.push_back(inCharacters[i]);
    }
    PutPadded(text, inSpec);
  }

  void Put(Spec inSpec) {
    if (inSpec.mWidthArgument != kUnset) {
      SInt64 width = Get(inSpec.mWidthArgument).mInteger;
      if (width < 0) inSpec.mFlags += '-';
      inSpec.mWidth = static_cast<int>(std::min<SInt64>(width < 0 ? -width : width, kMaxWidth));
    }
    if (inSpec.mPrecisionArgument != kUnset) {
      SInt64 precision = Get(inSpec.mPrecisionArgument).mInteger;
      inSpec.mPrecision =
          precision < 0 ? kUnset : static_cast<int>(std::min<SInt64>(precision, kMaxWidth));
    }
    Value value = Get(inSpec.mArgument);
    switch (inSpec.mConversion) {
      case '%':
        mText.push_back('%');
        break;
      case 'd':
      case 'i':
      case 'D':
        PutPrintf(inSpec, "ll", 'd',
                  static_cast<long long>(Signed(value.mInteger, inSpec.mLength)));
        break;
      case 'u':
      case 'o':
      case 'x':
      case 'X':
      case 'U':
      case 'O': {
        char conversion = inSpec.mConversion == 'U'   ? 'u'
                          : inSpec.mConversion == 'O' ? 'o'
                                                      : inSpec.mConversion;
        PutPrintf(inSpec, "ll", conversion, Unsigned(value.mInteger, inSpec.mLength));
        break;
      }
      case 'c':
        PutPadded({static_cast<UniChar>(value.mInteger & 0xFF)}, inSpec);
        break;
      case 'C':
        PutPadded({static_cast<UniChar>(value.mInteger)}, inSpec);
        break;
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        if (inSpec.mLength == Length::kLongDouble) {
          PutPrintf(inSpec, "L", inSpec.mConversion, value.mLongReal);
        } else {
          PutPrintf(inSpec, "", inSpec.mConversion, value.mReal);
        }
        break;
      case 's':
        PutBytes(static_cast<const char*>(value.mPointer), inSpec);
        break;
      case 'S':
        PutCharacters(static_cast<const UniChar*>(value.mPointer), inSpec);
        break;
      case 'p':
        PutASCII("0x", 2);
        PutPrintf(inSpec, "l", 'x', reinterpret_cast<uintptr_t>(value.mPointer));
        break;
      case '@':
        PutObject(value.mPointer, inSpec);
        break;
      default:
        // Not a conversion: nothing is fetched and nothing is put.
        break;
    }
  }

  std::vector<UniChar>& mText;
  const UniChar* mFormat;
  CFIndex mSize;
  CFIndex mAt = 0;
  int mNext = 0;
  std::vector<Argument> mArguments;
};

}  // namespace

namespace tembra::cf {

void AppendFormat(std::vector<UniChar>& ioText, CFStringRef inFormat, va_list inArguments) {
  Formatter(ioText, inFormat).Run(inArguments);
}

}  // namespace tembra::cf

CFStringRef CFStringCreateWithFormat(CFAllocatorRef inAllocator, CFDictionaryRef inOptions,
                                     CFStringRef inFormat, ...) {
  va_list arguments;
  va_start(arguments, inFormat);
  CFStringRef string =
      CFStringCreateWithFormatAndArguments(inAllocator, inOptions, inFormat, arguments);
  va_end(arguments);
  return string;
}

CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef inAllocator, CFDictionaryRef,
                                                 CFStringRef inFormat, va_list inArguments) {
  return Guarded([&]() -> CFStringRef {
    std::vector<UniChar> text;
    AppendFormat(text, inFormat, inArguments);
    return CreateString(inAllocator, text.data(), static_cast<CFIndex>(text.size()));
  });
}
