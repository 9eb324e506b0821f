#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFUUID.h>
#include <sys/random.h>

#include <array>
#include <cstring>
#include <map>

#include "base/Mutex.h"
#include "corefoundation/String.h"

using namespace tembra::cf;

namespace {

using Bytes = std::array<UInt8, 16>;

// The live objects by value, weakly held. They are shared, so they never come from one caller's
// allocator.
struct Table {
  tembra::Mutex mMutex;
  std::map<Bytes, __CFUUID*> mObjects TEMBRA_GUARDED_BY(mMutex);
};

Table& SharedTable() {
  static Table& sTable = *new Table;
  return sTable;
}

}  // namespace

// Equal values are the same object, so the identity of objects is their equality.
struct __CFUUID : Object {
  explicit __CFUUID(const Bytes& inBytes) : mBytes(inBytes) {}
  ~__CFUUID() override {
    Table& table = SharedTable();
    tembra::MutexLock lock(table.mMutex);
    auto found = table.mObjects.find(mBytes);
    // A successor may stand there already, made after the last reference to this one had gone.
    if (found != table.mObjects.end() && found->second == this) table.mObjects.erase(found);
  }
  CFTypeID GetTypeID() const override { return kTypeUUID; }
  bool IsEqual(const Object& inOther) const override {
    return mBytes == static_cast<const __CFUUID&>(inOther).mBytes;
  }
  CFHashCode Hash() const override {
    UInt64 words[2];
    std::memcpy(words, mBytes.data(), sizeof(words));
    return words[0] ^ words[1];
  }
  CFStringRef CopyDescription() const override { return CFUUIDCreateString(nullptr, this); }

  const Bytes mBytes;
};

namespace {

CFUUIDRef CreateUnique(const Bytes& inBytes, bool inIsConstant) {
  return Guarded([&]() -> CFUUIDRef {
    Table& table = SharedTable();
    tembra::MutexLock lock(table.mMutex);
    auto found = table.mObjects.find(inBytes);
    if (found != table.mObjects.end() && found->second->TryRetain()) {
      // One more reference that is never released keeps a shared object for ever; the immortal
      // mark may only be set before others know it.
      return found->second;
    }
    auto* uuid = Create<__CFUUID>(nullptr, inBytes);
    if (!uuid) return nullptr;
    if (inIsConstant) uuid->MakeImmortal();
    try {
      table.mObjects.insert_or_assign(inBytes, uuid);
    } catch (const std::bad_alloc&) {
      // Not shared then, but a UUID all the same.
    }
    return uuid;
  });
}

int HexDigit(UniChar inUnit) {
  if (inUnit >= '0' && inUnit <= '9') return inUnit - '0';
  UniChar lower = inUnit | 0x20;
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

CFTypeID CFUUIDGetTypeID() {
  return kTypeUUID;
}

CFUUIDRef CFUUIDCreate(CFAllocatorRef) {
  Bytes bytes;
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    return nullptr;
  }
  // Version 4, variant 1.
  bytes[6] = static_cast<UInt8>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<UInt8>((bytes[8] & 0x3F) | 0x80);
  return CreateUnique(bytes, false);
}

CFUUIDRef CFUUIDCreateWithBytes(CFAllocatorRef, UInt8 b0, UInt8 b1, UInt8 b2, UInt8 b3, UInt8 b4,
                                UInt8 b5, UInt8 b6, UInt8 b7, UInt8 b8, UInt8 b9, UInt8 b10,
                                UInt8 b11, UInt8 b12, UInt8 b13, UInt8 b14, UInt8 b15) {
  return CreateUnique({b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10, b11, b12, b13, b14, b15},
                      false);
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef, UInt8 b0, UInt8 b1, UInt8 b2, UInt8 b3,
                                         UInt8 b4, UInt8 b5, UInt8 b6, UInt8 b7, UInt8 b8, UInt8 b9,
                                         UInt8 b10, UInt8 b11, UInt8 b12, UInt8 b13, UInt8 b14,
                                         UInt8 b15) {
  return CreateUnique({b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10, b11, b12, b13, b14, b15}, true);
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef, CFStringRef inText) {
  if (!inText || inText->mLength != 36) return nullptr;
  Bytes bytes;
  size_t count = 0;
  for (CFIndex i = 0; i < 36;) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (inText->mCharacters[i++] != '-') return nullptr;
      continue;
    }
    int high = HexDigit(inText->mCharacters[i]), low = HexDigit(inText->mCharacters[i + 1]);
    if (high < 0 || low < 0) return nullptr;
    bytes[count++] = static_cast<UInt8>(high << 4 | low);
    i += 2;
  }
  return CreateUnique(bytes, false);
}

CFStringRef CFUUIDCreateString(CFAllocatorRef inAllocator, CFUUIDRef inUUID) {
  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  UniChar text[36];
  size_t at = 0;
  for (size_t i = 0; i < inUUID->mBytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text[at++] = '-';
    text[at++] = kDigits[inUUID->mBytes[i] >> 4];
    text[at++] = kDigits[inUUID->mBytes[i] & 15];
  }
  return CreateString(inAllocator, text, 36);
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef inUUID) {
  CFUUIDBytes bytes;
  std::memcpy(&bytes, inUUID->mBytes.data(), sizeof(bytes));
  return bytes;
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef, CFUUIDBytes inBytes) {
  Bytes bytes;
  std::memcpy(bytes.data(), &inBytes, bytes.size());
  return CreateUnique(bytes, false);
}
