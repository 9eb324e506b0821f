#include "corefoundation/Data.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "corefoundation/Allocator.h"

using namespace tembra::cf;

__CFData::~__CFData() {
  switch (mKind) {
    case Kind::kInline:
      break;
    case Kind::kForeign:
      CFAllocatorDeallocate(mBytesDeallocator, mBytes);
      if (mBytesDeallocator) mBytesDeallocator->Release();
      break;
    case Kind::kMutable:
      std::free(mBytes);
      break;
  }
}

bool __CFData::IsEqual(const Object& inOther) const {
  const auto& other = static_cast<const __CFData&>(inOther);
  return mLength == other.mLength &&
         (mLength == 0 || std::memcmp(mBytes, other.mBytes, static_cast<size_t>(mLength)) == 0);
}

CFHashCode __CFData::Hash() const {
  // The beginning and the length tell most data apart; all of a large block would cost too much.
  CFHashCode hash = 0xcbf29ce484222325UL ^ static_cast<CFHashCode>(mLength);
  for (CFIndex i = 0; i < std::min<CFIndex>(mLength, 80); ++i) {
    hash = (hash ^ mBytes[i]) * 0x100000001b3UL;
  }
  return hash;
}

bool __CFData::Resize(CFIndex inLength) {
  if (inLength < 0 || (mLimit > 0 && inLength > mLimit)) return false;
  if (inLength > mCapacity) {
    CFIndex capacity = std::max(inLength, mCapacity > LONG_MAX / 2 ? inLength : mCapacity * 2);
    auto* bytes = static_cast<UInt8*>(std::realloc(mBytes, static_cast<size_t>(capacity)));
    if (!bytes) return false;
    mBytes = bytes;
    mCapacity = capacity;
  }
  if (inLength > mLength) {
    std::memset(mBytes + mLength, 0, static_cast<size_t>(inLength - mLength));
  }
  mLength = inLength;
  return true;
}

namespace {

bool IsMutable(CFDataRef inData) {
  return inData->mKind == __CFData::Kind::kMutable;
}

bool InRange(CFDataRef inData, CFRange inRange) {
  return inRange.location >= 0 && inRange.length >= 0 && inRange.location <= inData->mLength &&
         inRange.length <= inData->mLength - inRange.location;
}

}  // namespace

CFTypeID CFDataGetTypeID() {
  return kTypeData;
}

CFDataRef CFDataCreate(CFAllocatorRef inAllocator, const UInt8* inBytes, CFIndex inLength) {
  if (inLength < 0 || (inLength > 0 && !inBytes)) return nullptr;
  auto* data = CreateWithExtra<__CFData>(inAllocator, static_cast<size_t>(inLength),
                                         __CFData::Kind::kInline);
  if (!data) return nullptr;
  data->mBytes = reinterpret_cast<UInt8*>(data + 1);
  data->mLength = inLength;
  if (inLength > 0) std::memcpy(data->mBytes, inBytes, static_cast<size_t>(inLength));
  return data;
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef inAllocator, const UInt8* inBytes,
                                      CFIndex inLength, CFAllocatorRef inBytesDeallocator) {
  if (inLength < 0 || (inLength > 0 && !inBytes)) return nullptr;
  auto* data = Create<__CFData>(inAllocator, __CFData::Kind::kForeign);
  if (!data) return nullptr;
  data->mBytes = const_cast<UInt8*>(inBytes);
  data->mLength = inLength;
  data->mBytesDeallocator = NormalAllocator(inBytesDeallocator);
  if (data->mBytesDeallocator) data->mBytesDeallocator->Retain();
  return data;
}

CFDataRef CFDataCreateCopy(CFAllocatorRef inAllocator, CFDataRef inData) {
  // Bytes that somebody else holds may go before the copy does.
  if (inData->mKind == __CFData::Kind::kInline &&
      NormalAllocator(inAllocator) == inData->GetAllocator()) {
    return static_cast<CFDataRef>(CFRetain(inData));
  }
  return CFDataCreate(inAllocator, inData->mBytes, inData->mLength);
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef inAllocator, CFIndex inCapacity) {
  if (inCapacity < 0) return nullptr;
  auto* data = Create<__CFData>(inAllocator, __CFData::Kind::kMutable);
  if (!data) return nullptr;
  data->mCapacity = 0;
  data->mLimit = inCapacity;
  return data;
}

CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef inAllocator, CFIndex inCapacity,
                                         CFDataRef inData) {
  if (inCapacity > 0 && inData->mLength > inCapacity) return nullptr;
  Owned<CFMutableDataRef> copy(CFDataCreateMutable(inAllocator, inCapacity));
  if (!copy || !copy.Get()->Resize(inData->mLength)) return nullptr;
  if (inData->mLength > 0) {
    std::memcpy(copy.Get()->mBytes, inData->mBytes, static_cast<size_t>(inData->mLength));
  }
  return copy.Detach();
}

CFIndex CFDataGetLength(CFDataRef inData) {
  return inData->mLength;
}

const UInt8* CFDataGetBytePtr(CFDataRef inData) {
  return inData->mBytes;
}

UInt8* CFDataGetMutableBytePtr(CFMutableDataRef inData) {
  return IsMutable(inData) ? inData->mBytes : nullptr;
}

void CFDataGetBytes(CFDataRef inData, CFRange inRange, UInt8* outBytes) {
  if (!InRange(inData, inRange) || inRange.length == 0) return;
  std::memcpy(outBytes, inData->mBytes + inRange.location, static_cast<size_t>(inRange.length));
}

void CFDataSetLength(CFMutableDataRef inData, CFIndex inLength) {
  if (IsMutable(inData)) inData->Resize(inLength);
}

void CFDataIncreaseLength(CFMutableDataRef inData, CFIndex inExtraLength) {
  if (inExtraLength >= 0 && inExtraLength <= LONG_MAX - inData->mLength) {
    CFDataSetLength(inData, inData->mLength + inExtraLength);
  }
}

void CFDataAppendBytes(CFMutableDataRef inData, const UInt8* inBytes, CFIndex inLength) {
  CFDataReplaceBytes(inData, CFRangeMake(inData->mLength, 0), inBytes, inLength);
}

void CFDataDeleteBytes(CFMutableDataRef inData, CFRange inRange) {
  CFDataReplaceBytes(inData, inRange, nullptr, 0);
}

void CFDataReplaceBytes(CFMutableDataRef inData, CFRange inRange, const UInt8* inBytes,
                        CFIndex inLength) {
  if (!IsMutable(inData) || !InRange(inData, inRange) || inLength < 0) return;
  CFIndex oldLength = inData->mLength;
  CFIndex kept = oldLength - inRange.length;
  if (inLength > LONG_MAX - kept) return;
  CFIndex newLength = kept + inLength;
  CFIndex tail = oldLength - inRange.location - inRange.length;
  if (newLength > oldLength && !inData->Resize(newLength)) return;
  if (UInt8* at = inData->mBytes) {
    at += inRange.location;
    std::memmove(at + inLength, at + inRange.length, static_cast<size_t>(tail));
    if (inLength > 0) std::memcpy(at, inBytes, static_cast<size_t>(inLength));
  }
  inData->mLength = newLength;
}
