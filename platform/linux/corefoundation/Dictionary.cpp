#include "corefoundation/Dictionary.h"

#include <CoreFoundation/CFString.h>

#include <algorithm>

#include "corefoundation/String.h"

using namespace tembra::cf;

namespace {

constexpr UInt32 kEmptySlot = 0xFFFFFFFF;
// A capacity is only a hint, which may come from anywhere.
constexpr CFIndex kMaxReserved = 1024;

const void* RetainObject(CFAllocatorRef, const void* inValue) {
  return CFRetain(inValue);
}
const void* CopyString(CFAllocatorRef inAllocator, const void* inValue) {
  return CFStringCreateCopy(inAllocator, static_cast<CFStringRef>(inValue));
}
void ReleaseObject(CFAllocatorRef, const void* inValue) {
  CFRelease(inValue);
}

__CFDictionary* CreateDictionary(CFAllocatorRef inAllocator, bool inIsMutable, CFIndex inCapacity,
                                 const CFDictionaryKeyCallBacks* inKeyCallBacks,
                                 const CFDictionaryValueCallBacks* inValueCallBacks) {
  if (inCapacity < 0) return nullptr;
  Owned<CFMutableDictionaryRef> dictionary(
      Create<__CFDictionary>(inAllocator, inKeyCallBacks, inValueCallBacks, inIsMutable));
  if (dictionary && inCapacity > 0) {
    dictionary.Get()->Reserve(static_cast<size_t>(std::min(inCapacity, kMaxReserved)));
  }
  return dictionary.Detach();
}

__CFDictionary* CreateCopy(CFAllocatorRef inAllocator, bool inIsMutable, CFIndex inCapacity,
                           CFDictionaryRef inDictionary) {
  Owned<CFMutableDictionaryRef> copy(CreateDictionary(inAllocator, inIsMutable, inCapacity,
                                                      &inDictionary->mKeyCallBacks,
                                                      &inDictionary->mValueCallBacks));
  if (!copy) return nullptr;
  copy.Get()->Reserve(static_cast<size_t>(inDictionary->mCount));
  inDictionary->ForEach([&](const __CFDictionary::Entry& inEntry) {
    copy.Get()->Put(inEntry.mKey, inEntry.mValue, __CFDictionary::Mode::kAdd);
  });
  return copy.Detach();
}

void PutGuarded(CFMutableDictionaryRef inDictionary, const void* inKey, const void* inValue,
                __CFDictionary::Mode inMode) {
  if (!inDictionary->mIsMutable) return;
  Guarded([&] {
    inDictionary->Put(inKey, inValue, inMode);
    return true;
  });
}

}  // namespace

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0, RetainObject, ReleaseObject, CFCopyDescription, CFEqual, CFHash};
const CFDictionaryKeyCallBacks kCFCopyStringDictionaryKeyCallBacks = {
    0, CopyString, ReleaseObject, CFCopyDescription, CFEqual, CFHash};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, RetainObject, ReleaseObject,
                                                                    CFCopyDescription, CFEqual};

__CFDictionary::__CFDictionary(const CFDictionaryKeyCallBacks* inKeyCallBacks,
                               const CFDictionaryValueCallBacks* inValueCallBacks, bool inIsMutable)
    : mKeyCallBacks(inKeyCallBacks ? *inKeyCallBacks : CFDictionaryKeyCallBacks{}),
      mValueCallBacks(inValueCallBacks ? *inValueCallBacks : CFDictionaryValueCallBacks{}),
      mIsMutable(inIsMutable) {}

__CFDictionary::~__CFDictionary() {
  Clear();
}

const void* __CFDictionary::RetainKey(const void* inKey) const {
  return mKeyCallBacks.retain ? mKeyCallBacks.retain(GetAllocator(), inKey) : inKey;
}
const void* __CFDictionary::RetainValue(const void* inValue) const {
  return mValueCallBacks.retain ? mValueCallBacks.retain(GetAllocator(), inValue) : inValue;
}
void __CFDictionary::ReleaseKey(const void* inKey) const {
  if (mKeyCallBacks.release) mKeyCallBacks.release(GetAllocator(), inKey);
}
void __CFDictionary::ReleaseValue(const void* inValue) const {
  if (mValueCallBacks.release) mValueCallBacks.release(GetAllocator(), inValue);
}

CFHashCode __CFDictionary::HashKey(const void* inKey) const {
  CFHashCode hash = reinterpret_cast<CFHashCode>(inKey);
  if (mKeyCallBacks.hash == CFHash && CFGetTypeID(inKey) == kTypeString) {
    hash = static_cast<CFStringRef>(inKey)->KeyHash();
  } else if (mKeyCallBacks.hash) {
    hash = mKeyCallBacks.hash(inKey);
  }
  // Foreign hashes may differ in their high bits alone.
  hash *= 0x9e3779b97f4a7c15UL;
  return hash ^ hash >> 32;
}

size_t __CFDictionary::FindSlot(const void* inKey, CFHashCode inHash) const {
  size_t mask = mSlots.size() - 1;
  size_t slot = inHash & mask;
  for (; mSlots[slot] != kEmptySlot; slot = (slot + 1) & mask) {
    const Entry& entry = mEntries[mSlots[slot]];
    if (entry.mIsLive && entry.mHash == inHash &&
        (entry.mKey == inKey || (mKeyCallBacks.equal && mKeyCallBacks.equal(entry.mKey, inKey)))) {
      return slot;
    }
  }
  return slot;
}

const __CFDictionary::Entry* __CFDictionary::Find(const void* inKey) const {
  if (mCount == 0) return nullptr;
  size_t slot = FindSlot(inKey, HashKey(inKey));
  return mSlots[slot] == kEmptySlot ? nullptr : &mEntries[mSlots[slot]];
}

void __CFDictionary::Rehash(size_t inSlots) {
  std::vector<UInt32> slots(inSlots, kEmptySlot);
  std::erase_if(mEntries, [](const Entry& inEntry) { return !inEntry.mIsLive; });
  mEntries.reserve(inSlots / 2);
  for (size_t i = 0; i < mEntries.size(); ++i) {
    size_t slot = mEntries[i].mHash & (inSlots - 1);
    while (slots[slot] != kEmptySlot) slot = (slot + 1) & (inSlots - 1);
    slots[slot] = static_cast<UInt32>(i);
  }
  mSlots = std::move(slots);
}

void __CFDictionary::Reserve(size_t inCount) {
  size_t slots = 8;
  while (slots / 2 < inCount) slots *= 2;
  if (slots > mSlots.size()) Rehash(slots);
}

void __CFDictionary::Put(const void* inKey, const void* inValue, Mode inMode) {
  CFHashCode hash = HashKey(inKey);
  if (mSlots.empty()) Reserve(1);
  size_t slot = FindSlot(inKey, hash);
  if (mSlots[slot] != kEmptySlot) {
    if (inMode == Mode::kAdd) return;
    const void* added = RetainValue(inValue);
    const void* removed = std::exchange(mEntries[mSlots[slot]].mValue, added);
    ReleaseValue(removed);
    return;
  }
  if (inMode == Mode::kReplace) return;
  // Gaps count as well: the index must keep empty slots for a search to end at.
  if (mEntries.size() + 1 > mSlots.size() / 2) {
    size_t live = static_cast<size_t>(mCount) + 1;
    Rehash(live > mSlots.size() / 4 ? mSlots.size() * 2 : mSlots.size());
    slot = FindSlot(inKey, hash);
  }
  const void* key = RetainKey(inKey);
  if (!key && inKey) throw std::bad_alloc();  // a key that is copied
  mEntries.push_back({key, RetainValue(inValue), hash, true});
  mSlots[slot] = static_cast<UInt32>(mEntries.size() - 1);
  ++mCount;
}

void __CFDictionary::Remove(const void* inKey) {
  const Entry* found = Find(inKey);
  if (!found) return;
  Entry removed = *found;
  mEntries[static_cast<size_t>(found - mEntries.data())] = {nullptr, nullptr, 0, false};
  --mCount;
  // Last, since a release may run foreign code that looks at this dictionary.
  ReleaseKey(removed.mKey);
  ReleaseValue(removed.mValue);
}

void __CFDictionary::Clear() {
  std::vector<Entry> entries;
  entries.swap(mEntries);
  mSlots.clear();
  mCount = 0;
  for (const Entry& entry : entries) {
    if (!entry.mIsLive) continue;
    ReleaseKey(entry.mKey);
    ReleaseValue(entry.mValue);
  }
}

bool __CFDictionary::IsEqual(const Object& inOther) const {
  const auto& other = static_cast<const __CFDictionary&>(inOther);
  if (mCount != other.mCount || mKeyCallBacks.equal != other.mKeyCallBacks.equal ||
      mKeyCallBacks.hash != other.mKeyCallBacks.hash ||
      mValueCallBacks.equal != other.mValueCallBacks.equal) {
    return false;
  }
  return std::all_of(mEntries.begin(), mEntries.end(), [&](const Entry& inEntry) {
    if (!inEntry.mIsLive) return true;
    const Entry* entry = other.Find(inEntry.mKey);
    return entry && AreValuesEqual(inEntry.mValue, entry->mValue);
  });
}

CFStringRef __CFDictionary::CopyDescription() const {
  return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("<CFDictionary %p>{count = %ld}"), this,
                                  mCount);
}

CFTypeID CFDictionaryGetTypeID() {
  return kTypeDictionary;
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef inAllocator, const void** inKeys,
                                   const void** inValues, CFIndex inCount,
                                   const CFDictionaryKeyCallBacks* inKeyCallBacks,
                                   const CFDictionaryValueCallBacks* inValueCallBacks) {
  return Guarded([&]() -> CFDictionaryRef {
    if (inCount < 0 || (inCount > 0 && (!inKeys || !inValues))) return nullptr;
    Owned<CFMutableDictionaryRef> dictionary(
        CreateDictionary(inAllocator, false, 0, inKeyCallBacks, inValueCallBacks));
    if (!dictionary) return nullptr;
    dictionary.Get()->Reserve(static_cast<size_t>(inCount));
    for (CFIndex i = 0; i < inCount; ++i) {
      dictionary.Get()->Put(inKeys[i], inValues[i], __CFDictionary::Mode::kAdd);
    }
    return dictionary.Detach();
  });
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef inAllocator, CFDictionaryRef inDictionary) {
  return Guarded([&] { return CreateCopy(inAllocator, false, 0, inDictionary); });
}

CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef inAllocator, CFIndex inCapacity, const CFDictionaryKeyCallBacks* inKeyCallBacks,
    const CFDictionaryValueCallBacks* inValueCallBacks) {
  return Guarded([&] {
    return CreateDictionary(inAllocator, true, inCapacity, inKeyCallBacks, inValueCallBacks);
  });
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef inAllocator, CFIndex inCapacity,
                                                     CFDictionaryRef inDictionary) {
  return Guarded([&] { return CreateCopy(inAllocator, true, inCapacity, inDictionary); });
}

CFIndex CFDictionaryGetCount(CFDictionaryRef inDictionary) {
  return inDictionary->mCount;
}

CFIndex CFDictionaryGetCountOfKey(CFDictionaryRef inDictionary, const void* inKey) {
  return inDictionary->Find(inKey) ? 1 : 0;
}

CFIndex CFDictionaryGetCountOfValue(CFDictionaryRef inDictionary, const void* inValue) {
  CFIndex count = 0;
  inDictionary->ForEach([&](const __CFDictionary::Entry& inEntry) {
    if (inDictionary->AreValuesEqual(inEntry.mValue, inValue)) ++count;
  });
  return count;
}

Boolean CFDictionaryContainsKey(CFDictionaryRef inDictionary, const void* inKey) {
  return inDictionary->Find(inKey) != nullptr;
}

Boolean CFDictionaryContainsValue(CFDictionaryRef inDictionary, const void* inValue) {
  return CFDictionaryGetCountOfValue(inDictionary, inValue) > 0;
}

const void* CFDictionaryGetValue(CFDictionaryRef inDictionary, const void* inKey) {
  const __CFDictionary::Entry* entry = inDictionary->Find(inKey);
  return entry ? entry->mValue : nullptr;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef inDictionary, const void* inKey,
                                      const void** outValue) {
  const __CFDictionary::Entry* entry = inDictionary->Find(inKey);
  if (entry && outValue) *outValue = entry->mValue;
  return entry != nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef inDictionary, const void** outKeys,
                                  const void** outValues) {
  inDictionary->ForEach([&](const __CFDictionary::Entry& inEntry) {
    if (outKeys) *outKeys++ = inEntry.mKey;
    if (outValues) *outValues++ = inEntry.mValue;
  });
}

void CFDictionaryApplyFunction(CFDictionaryRef inDictionary, CFDictionaryApplierFunction inApplier,
                               void* inContext) {
  inDictionary->ForEach([&](const __CFDictionary::Entry& inEntry) {
    inApplier(inEntry.mKey, inEntry.mValue, inContext);
  });
}

void CFDictionaryAddValue(CFMutableDictionaryRef inDictionary, const void* inKey,
                          const void* inValue) {
  PutGuarded(inDictionary, inKey, inValue, __CFDictionary::Mode::kAdd);
}

void CFDictionarySetValue(CFMutableDictionaryRef inDictionary, const void* inKey,
                          const void* inValue) {
  PutGuarded(inDictionary, inKey, inValue, __CFDictionary::Mode::kSet);
}

void CFDictionaryReplaceValue(CFMutableDictionaryRef inDictionary, const void* inKey,
                              const void* inValue) {
  PutGuarded(inDictionary, inKey, inValue, __CFDictionary::Mode::kReplace);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef inDictionary, const void* inKey) {
  if (inDictionary->mIsMutable) inDictionary->Remove(inKey);
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef inDictionary) {
  if (inDictionary->mIsMutable) inDictionary->Clear();
}
