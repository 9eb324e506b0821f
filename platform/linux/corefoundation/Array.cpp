#include "corefoundation/Array.h"

#include <CoreFoundation/CFString.h>

#include <algorithm>

using namespace tembra::cf;

namespace {

// Enough for any list of this system; more grows as it is used.
constexpr CFIndex kMaxReserved = 1024;

const void* RetainValue(CFAllocatorRef, const void* inValue) {
  return CFRetain(inValue);
}
void ReleaseValue(CFAllocatorRef, const void* inValue) {
  CFRelease(inValue);
}

bool IsWithin(CFArrayRef inArray, CFRange inRange) {
  return inRange.location >= 0 && inRange.length >= 0 && inRange.location <= inArray->Count() &&
         inRange.length <= inArray->Count() - inRange.location;
}

__CFArray* CreateArray(CFAllocatorRef inAllocator, const CFArrayCallBacks* inCallBacks,
                       bool inIsMutable, CFIndex inCapacity) {
  if (inCapacity < 0) return nullptr;
  auto* array = Create<__CFArray>(inAllocator, inCallBacks, inIsMutable);
  if (array) array->mValues.reserve(static_cast<size_t>(std::min(inCapacity, kMaxReserved)));
  return array;
}

CFIndex Find(CFArrayRef inArray, CFRange inRange, const void* inValue, CFIndex inFrom,
             CFIndex inStep) {
  if (!IsWithin(inArray, inRange)) return kCFNotFound;
  for (CFIndex i = 0, at = inFrom; i < inRange.length; ++i, at += inStep) {
    if (inArray->AreEqual(inArray->mValues[static_cast<size_t>(at)], inValue)) return at;
  }
  return kCFNotFound;
}

}  // namespace

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, RetainValue, ReleaseValue, CFCopyDescription,
                                                CFEqual};

__CFArray::__CFArray(const CFArrayCallBacks* inCallBacks, bool inIsMutable)
    : mCallBacks(inCallBacks ? *inCallBacks : CFArrayCallBacks{}), mIsMutable(inIsMutable) {}

__CFArray::~__CFArray() {
  for (const void* value : mValues) Release(value);
}

bool __CFArray::IsEqual(const Object& inOther) const {
  const auto& other = static_cast<const __CFArray&>(inOther);
  return mCallBacks.equal == other.mCallBacks.equal &&
         std::equal(mValues.begin(), mValues.end(), other.mValues.begin(), other.mValues.end(),
                    [this](const void* a, const void* b) { return AreEqual(a, b); });
}

CFStringRef __CFArray::CopyDescription() const {
  return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("<CFArray %p>{count = %ld}"), this,
                                  Count());
}

void __CFArray::Replace(CFRange inRange, const void* const* inValues, CFIndex inCount) {
  if (!mIsMutable || !IsWithin(this, inRange) || inCount < 0) return;
  std::vector<const void*> added;
  added.reserve(static_cast<size_t>(inCount));
  mValues.reserve(mValues.size() + static_cast<size_t>(inCount));
  for (CFIndex i = 0; i < inCount; ++i) added.push_back(Retain(inValues[i]));
  auto first = mValues.begin() + inRange.location;
  std::vector<const void*> removed(first, first + inRange.length);
  first = mValues.erase(first, first + inRange.length);
  mValues.insert(first, added.begin(), added.end());
  // Last, since a release may run foreign code that looks at this array.
  for (const void* value : removed) Release(value);
}

CFTypeID CFArrayGetTypeID() {
  return kTypeArray;
}

CFArrayRef CFArrayCreate(CFAllocatorRef inAllocator, const void** inValues, CFIndex inCount,
                         const CFArrayCallBacks* inCallBacks) {
  return Guarded([&]() -> CFArrayRef {
    if (inCount < 0 || (inCount > 0 && !inValues)) return nullptr;
    Owned<CFMutableArrayRef> array(CreateArray(inAllocator, inCallBacks, false, 0));
    if (!array) return nullptr;
    array.Get()->mValues.reserve(static_cast<size_t>(inCount));
    for (CFIndex i = 0; i < inCount; ++i) {
      array.Get()->mValues.push_back(array.Get()->Retain(inValues[i]));
    }
    return array.Detach();
  });
}

CFArrayRef CFArrayCreateCopy(CFAllocatorRef inAllocator, CFArrayRef inArray) {
  return CFArrayCreate(inAllocator, const_cast<const void**>(inArray->mValues.data()),
                       inArray->Count(), &inArray->mCallBacks);
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef inAllocator, CFIndex inCapacity,
                                       const CFArrayCallBacks* inCallBacks) {
  return Guarded([&] { return CreateArray(inAllocator, inCallBacks, true, inCapacity); });
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef inAllocator, CFIndex inCapacity,
                                           CFArrayRef inArray) {
  return Guarded([&]() -> CFMutableArrayRef {
    Owned<CFMutableArrayRef> copy(CreateArray(inAllocator, &inArray->mCallBacks, true, inCapacity));
    if (!copy) return nullptr;
    copy.Get()->Replace(CFRangeMake(0, 0), inArray->mValues.data(), inArray->Count());
    return copy.Detach();
  });
}

CFIndex CFArrayGetCount(CFArrayRef inArray) {
  return inArray->Count();
}

CFIndex CFArrayGetCountOfValue(CFArrayRef inArray, CFRange inRange, const void* inValue) {
  CFIndex count = 0;
  if (!IsWithin(inArray, inRange)) return 0;
  for (CFIndex i = 0; i < inRange.length; ++i) {
    const void* value = inArray->mValues[static_cast<size_t>(inRange.location + i)];
    if (inArray->AreEqual(value, inValue)) ++count;
  }
  return count;
}

Boolean CFArrayContainsValue(CFArrayRef inArray, CFRange inRange, const void* inValue) {
  return CFArrayGetFirstIndexOfValue(inArray, inRange, inValue) != kCFNotFound;
}

const void* CFArrayGetValueAtIndex(CFArrayRef inArray, CFIndex inIndex) {
  return inIndex >= 0 && inIndex < inArray->Count() ? inArray->mValues[static_cast<size_t>(inIndex)]
                                                    : nullptr;
}

void CFArrayGetValues(CFArrayRef inArray, CFRange inRange, const void** outValues) {
  if (!IsWithin(inArray, inRange)) return;
  std::copy_n(inArray->mValues.begin() + inRange.location, inRange.length, outValues);
}

void CFArrayApplyFunction(CFArrayRef inArray, CFRange inRange, CFArrayApplierFunction inApplier,
                          void* inContext) {
  if (!IsWithin(inArray, inRange)) return;
  for (CFIndex i = 0; i < inRange.length; ++i) {
    inApplier(inArray->mValues[static_cast<size_t>(inRange.location + i)], inContext);
  }
}

CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef inArray, CFRange inRange, const void* inValue) {
  return Find(inArray, inRange, inValue, inRange.location, 1);
}

CFIndex CFArrayGetLastIndexOfValue(CFArrayRef inArray, CFRange inRange, const void* inValue) {
  return Find(inArray, inRange, inValue, inRange.location + inRange.length - 1, -1);
}

void CFArrayAppendValue(CFMutableArrayRef inArray, const void* inValue) {
  CFArrayReplaceValues(inArray, CFRangeMake(inArray->Count(), 0), &inValue, 1);
}

void CFArrayInsertValueAtIndex(CFMutableArrayRef inArray, CFIndex inIndex, const void* inValue) {
  CFArrayReplaceValues(inArray, CFRangeMake(inIndex, 0), &inValue, 1);
}

void CFArraySetValueAtIndex(CFMutableArrayRef inArray, CFIndex inIndex, const void* inValue) {
  CFIndex replaced = inIndex == inArray->Count() ? 0 : 1;
  CFArrayReplaceValues(inArray, CFRangeMake(inIndex, replaced), &inValue, 1);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef inArray, CFIndex inIndex) {
  CFArrayReplaceValues(inArray, CFRangeMake(inIndex, 1), nullptr, 0);
}

void CFArrayRemoveAllValues(CFMutableArrayRef inArray) {
  CFArrayReplaceValues(inArray, CFRangeMake(0, inArray->Count()), nullptr, 0);
}

void CFArrayReplaceValues(CFMutableArrayRef inArray, CFRange inRange, const void** inValues,
                          CFIndex inCount) {
  Guarded([&] {
    inArray->Replace(inRange, inValues, inCount);
    return true;
  });
}

void CFArrayExchangeValuesAtIndices(CFMutableArrayRef inArray, CFIndex inFirst, CFIndex inSecond) {
  if (!inArray->mIsMutable || inFirst < 0 || inSecond < 0 || inFirst >= inArray->Count() ||
      inSecond >= inArray->Count()) {
    return;
  }
  std::swap(inArray->mValues[static_cast<size_t>(inFirst)],
            inArray->mValues[static_cast<size_t>(inSecond)]);
}

void CFArraySortValues(CFMutableArrayRef inArray, CFRange inRange, CFComparatorFunction inCompare,
                       void* inContext) {
  if (!inArray->mIsMutable || !IsWithin(inArray, inRange)) return;
  // A stable sort by merging never leaves the range, however the comparison answers.
  Guarded([&] {
    auto first = inArray->mValues.begin() + inRange.location;
    std::stable_sort(first, first + inRange.length, [&](const void* a, const void* b) {
      return inCompare(a, b, inContext) == kCFCompareLessThan;
    });
    return true;
  });
}

void CFArrayAppendArray(CFMutableArrayRef inArray, CFArrayRef inOther, CFRange inRange) {
  if (!IsWithin(inOther, inRange)) return;
  Guarded([&] {
    auto first = inOther->mValues.begin() + inRange.location;
    std::vector<const void*> values(first, first + inRange.length);
    inArray->Replace(CFRangeMake(inArray->Count(), 0), values.data(), inRange.length);
    return true;
  });
}
