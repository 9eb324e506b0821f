#pragma once

#include <CoreFoundation/CFDictionary.h>

#include <vector>

#include "corefoundation/Object.h"

// A hash table that keeps the order of insertion: the entries stand in a row, and an open-addressed
// index of a power of two slots finds them. A removed entry stays as a gap until the next rehash.
struct __CFDictionary : tembra::cf::Object {
  struct Entry {
    const void* mKey;
    const void* mValue;
    CFHashCode mHash;
    bool mIsLive;
  };

  __CFDictionary(const CFDictionaryKeyCallBacks* inKeyCallBacks,
                 const CFDictionaryValueCallBacks* inValueCallBacks, bool inIsMutable);
  ~__CFDictionary() override;
  CFTypeID GetTypeID() const override { return tembra::cf::kTypeDictionary; }
  bool IsEqual(const Object& inOther) const override;
  CFHashCode Hash() const override { return static_cast<CFHashCode>(mCount); }
  CFStringRef CopyDescription() const override;

  const Entry* Find(const void* inKey) const;
  enum class Mode { kAdd, kReplace, kSet };
  void Put(const void* inKey, const void* inValue, Mode inMode);
  void Remove(const void* inKey);
  void Clear();
  void Reserve(size_t inCount);

  template <class Function>
  void ForEach(Function inFunction) const {
    for (const Entry& entry : mEntries) {
      if (entry.mIsLive) inFunction(entry);
    }
  }
  bool AreValuesEqual(const void* inFirst, const void* inSecond) const {
    return inFirst == inSecond ||
           (mValueCallBacks.equal && mValueCallBacks.equal(inFirst, inSecond));
  }

  const CFDictionaryKeyCallBacks mKeyCallBacks;
  const CFDictionaryValueCallBacks mValueCallBacks;
  const bool mIsMutable;
  CFIndex mCount = 0;

 private:
  CFHashCode HashKey(const void* inKey) const;
  // The slot that holds the key's entry, or the empty one where it would go.
  size_t FindSlot(const void* inKey, CFHashCode inHash) const;
  void Rehash(size_t inSlots);
  const void* RetainKey(const void* inKey) const;
  const void* RetainValue(const void* inValue) const;
  void ReleaseKey(const void* inKey) const;
  void ReleaseValue(const void* inValue) const;

  std::vector<Entry> mEntries;
  std::vector<UInt32> mSlots;
};
