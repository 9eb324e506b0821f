#include "corefoundation/PropertyListCheck.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>
#include <vector>

namespace tembra::cf {

namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kTrailerSize = 32;
constexpr const char* kBadReference = "an object lies outside of the property list";
constexpr const char* kTooLarge = "the property list holds too much";
constexpr const char* kTooDeep = "the property list is nested too deeply";

UInt64 BigEndian(const UInt8* inBytes, size_t inSize) {
  UInt64 value = 0;
  for (size_t i = 0; i < inSize; ++i) value = value << 8 | inBytes[i];
  return value;
}

class BinaryChecker {
 public:
  BinaryChecker(const UInt8* inBytes, size_t inSize) : mBytes(inBytes), mSize(inSize) {}

  const char* Run() {
    if (mSize < kHeaderSize + 2 + kTrailerSize) return "the property list is too short";
    const UInt8* trailer = mBytes + mSize - kTrailerSize;
    mOffsetSize = trailer[6];
    mReferenceSize = trailer[7];
    UInt64 count = BigEndian(trailer + 8, 8);
    UInt64 top = BigEndian(trailer + 16, 8);
    UInt64 table = BigEndian(trailer + 24, 8);
    if (mOffsetSize < 1 || mOffsetSize > 8 || mReferenceSize < 1 || mReferenceSize > 8) {
      return "the property list has no valid trailer";
    }
    mEnd = mSize - kTrailerSize;
    if (table < kHeaderSize || table >= mEnd || count == 0 || top >= count) return kBadReference;
    if (count > (mEnd - table) / mOffsetSize) return kBadReference;
    if (count > kMaxListObjects) return kTooLarge;
    mTable = mBytes + table;
    // Objects stand before the table.
    mEnd = table;
    mObjects.resize(count);
    Visit(top, 1);
    return mError;
  }

 private:
  struct Seen {
    enum { kNew, kOpen, kDone } mState = kNew;
    // Of the tree below, this object included; saturated at the limits.
    UInt32 mHeight = 0;
    UInt64 mCount = 0;
    UInt64 mBytes = 0;
    bool mIsString = false;
  };

  bool Fail(const char* inError) {
    if (!mError) mError = inError;
    return false;
  }

  bool Visit(UInt64 inIndex, size_t inDepth) {
    if (inIndex >= mObjects.size()) return Fail(kBadReference);
    if (inDepth > kMaxListDepth) return Fail(kTooDeep);
    Seen& seen = mObjects[inIndex];
    if (seen.mState == Seen::kOpen) return Fail("the property list contains itself");
    if (seen.mState == Seen::kDone) {
      return inDepth + seen.mHeight - 1 > kMaxListDepth ? Fail(kTooDeep) : true;
    }
    seen.mState = Seen::kOpen;
    if (!Measure(inIndex, inDepth, seen)) return false;
    seen.mState = Seen::kDone;
    return true;
  }

  bool Measure(UInt64 inIndex, size_t inDepth, Seen& outSeen) {
    UInt64 offset = BigEndian(mTable + inIndex * mOffsetSize, mOffsetSize);
    if (offset < kHeaderSize || offset >= mEnd) return Fail(kBadReference);
    const UInt8* at = mBytes + offset;
    UInt8 kind = *at >> 4, low = *at & 0xF;
    ++at;
    outSeen.mHeight = 1;
    outSeen.mCount = 1;
    switch (kind) {
      case 0x0:
        return low == 8 || low == 9 || Fail("the property list holds an unknown kind of object");
      case 0x1:
        return low <= 4 ? Fits(at, UInt64{1} << low) : Fail("an integer is too wide");
      case 0x2:
        return low == 2 || low == 3 ? Fits(at, UInt64{1} << low) : Fail("a real is too wide");
      case 0x3:
        return low == 3 ? Fits(at, 8) && CheckDate(at) : Fail("a date has no valid width");
      case 0x4:
      case 0x5:
      case 0x6: {
        UInt64 count;
        if (!TakeCount(at, low, count)) return false;
        if (count > mSize || !Fits(at, kind == 0x6 ? count * 2 : count)) return Fail(kBadReference);
        outSeen.mIsString = kind != 0x4;
        // Text grows on its way to UTF-8.
        outSeen.mBytes = kind == 0x6 ? count * 3 : count;
        // Strings may overlap, so they are not looked at before this bounds the work.
        mStringBytes += outSeen.mBytes;
        if (mStringBytes > kMaxListExpandedBytes) return Fail(kTooLarge);
        if (outSeen.mIsString && HoldsNull(at, count, kind == 0x6)) {
          return Fail("a string holds a null character");
        }
        return true;
      }
      case 0xA:
      case 0xD:
        return MeasureContainer(at, low, kind == 0xD, inDepth, outSeen);
      default:
        return Fail("the property list holds an unknown kind of object");
    }
  }

  bool Fits(const UInt8* inAt, UInt64 inSize) {
    return inSize <= static_cast<UInt64>(mBytes + mEnd - inAt) ? true : Fail(kBadReference);
  }

  // The parser keeps text as C strings, and aborts the process where one is not as long as said.
  static bool HoldsNull(const UInt8* inAt, UInt64 inCount, bool inIsWide) {
    if (!inIsWide) return inCount > 0 && std::memchr(inAt, 0, inCount) != nullptr;
    for (UInt64 i = 0; i < inCount; ++i) {
      if (inAt[2 * i] == 0 && inAt[2 * i + 1] == 0) return true;
    }
    return false;
  }

  bool CheckDate(const UInt8* inAt) {
    double date = std::bit_cast<double>(BigEndian(inAt, 8));
    return IsListDate(date) ? true : Fail("a date is out of range");
  }

  bool TakeCount(const UInt8*& ioAt, UInt8 inLow, UInt64& outCount) {
    outCount = inLow;
    if (inLow != 0xF) return true;
    if (!Fits(ioAt, 1)) return false;
    UInt8 marker = *ioAt++;
    if (marker >> 4 != 1 || (marker & 0xF) > 3) return Fail("a length is no integer");
    size_t width = size_t{1} << (marker & 0xF);
    if (!Fits(ioAt, width)) return false;
    outCount = BigEndian(ioAt, width);
    ioAt += width;
    return true;
  }

  bool MeasureContainer(const UInt8* inAt, UInt8 inLow, bool inIsDictionary, size_t inDepth,
                        Seen& outSeen) {
    UInt64 count;
    if (!TakeCount(inAt, inLow, count)) return false;
    UInt64 references = count;
    if (count > kMaxListObjects) return Fail(kTooLarge);
    if (inIsDictionary) references *= 2;
    if (!Fits(inAt, references * mReferenceSize)) return false;
    // Every object that is met once stands in the tree at least once, so this bounds the work too.
    mReferences += references;
    if (mReferences > kMaxListObjects) return Fail(kTooLarge);
    for (UInt64 i = 0; i < references; ++i) {
      UInt64 index = BigEndian(inAt + i * mReferenceSize, mReferenceSize);
      if (!Visit(index, inDepth + 1)) return false;
      const Seen& child = mObjects[index];
      if (inIsDictionary && i < count && !child.mIsString) {
        return Fail("a key is not a string");
      }
      outSeen.mHeight = std::max(outSeen.mHeight, child.mHeight + 1);
      outSeen.mCount += child.mCount;
      outSeen.mBytes += child.mBytes;
      if (outSeen.mCount > kMaxListObjects || outSeen.mBytes > kMaxListExpandedBytes) {
        return Fail(kTooLarge);
      }
    }
    return true;
  }

  const UInt8* mBytes;
  size_t mSize;
  size_t mEnd = 0;
  const UInt8* mTable = nullptr;
  size_t mOffsetSize = 0;
  size_t mReferenceSize = 0;
  UInt64 mReferences = 0;
  UInt64 mStringBytes = 0;  // of all strings and data met so far
  std::vector<Seen> mObjects;
  const char* mError = nullptr;
};

bool IsTag(std::string_view inTag, std::string_view inName) {
  return inTag.substr(0, inName.size()) == inName &&
         (inTag.size() == inName.size() ||
          std::string_view(" \t\r\n/").find(inTag[inName.size()]) != std::string_view::npos);
}

bool OpensContainer(std::string_view inTag) {
  return (IsTag(inTag, "array") || IsTag(inTag, "dict")) && inTag.back() != '/';
}

}  // namespace

bool LooksBinary(const UInt8* inBytes, size_t inSize) {
  return inSize >= kHeaderSize && std::memcmp(inBytes, "bplist", 6) == 0;
}

const char* CheckBinaryList(const UInt8* inBytes, size_t inSize) {
  if (inSize > kMaxListBytes) return kTooLarge;
  if (inSize < kHeaderSize || std::memcmp(inBytes, "bplist00", kHeaderSize) != 0) {
    return "the version of the property list is unknown";
  }
  return BinaryChecker(inBytes, inSize).Run();
}

const char* CheckXMLList(const UInt8* inBytes, size_t inSize) {
  if (inSize > kMaxListBytes) return kTooLarge;
  std::string_view text(reinterpret_cast<const char*>(inBytes), inSize);
  if (text.find('\0') != std::string_view::npos) return "the property list is not text";
  if (text.find("<plist") == std::string_view::npos) return "the data is not a property list";
  // An estimate that errs on the safe side: tags count wherever they stand, comments included,
  // and an end only where the parser cannot miss it.
  size_t depth = 0, tags = 0;
  size_t skippedTo = 0;
  size_t end = 0;
  for (size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
    if (++tags > 2 * kMaxListObjects) return kTooLarge;
    // The end that was found for a tag before is this one's too, if it still lies ahead.
    if (end < at) end = text.find('>', at);
    if (end == std::string_view::npos) return "a tag does not end";
    std::string_view tag = text.substr(at + 1, end - at - 1);
    if (OpensContainer(tag)) {
      if (++depth > kMaxListDepth) return kTooDeep;
    } else if (at >= skippedTo && (tag == "/array" || tag == "/dict")) {
      if (depth == 0) return "a tag ends that did not begin";
      --depth;
    }
    std::string_view rest = text.substr(at);
    auto skip = [&](std::string_view inStart, std::string_view inEnd) {
      if (at < skippedTo || !rest.starts_with(inStart)) return;
      size_t found = text.find(inEnd, at + inStart.size());
      skippedTo = found == std::string_view::npos ? text.size() : found;
    };
    skip("<!--", "-->");
    skip("<![CDATA[", "]]>");
    skip("<?", "?>");
    skip("<!DOCTYPE", ">");
  }
  return nullptr;
}

}  // namespace tembra::cf
