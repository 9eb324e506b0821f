#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "corefoundation/Object.h"

namespace {

using Data = tembra::cf::Owned<CFDataRef>;
using MutableData = tembra::cf::Owned<CFMutableDataRef>;
using tembra::cf::Owned;

const UInt8* Bytes(const char* inText) {
  return reinterpret_cast<const UInt8*>(inText);
}

std::string Text(CFDataRef inData) {
  return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(inData)),
                     static_cast<size_t>(CFDataGetLength(inData)));
}

// An allocator over one block, which counts and never touches the heap.
struct Arena {
  alignas(16) char mBlock[512];
  bool mIsTaken = false;
  int mAllocations = 0;
  int mFrees = 0;
  int mReleases = 0;

  CFAllocatorRef MakeAllocator() {
    CFAllocatorContext context = {};
    context.info = this;
    context.release = [](const void* inInfo) {
      ++const_cast<Arena*>(static_cast<const Arena*>(inInfo))->mReleases;
    };
    context.allocate = [](CFIndex inSize, CFOptionFlags, void* inInfo) -> void* {
      auto* arena = static_cast<Arena*>(inInfo);
      if (arena->mIsTaken || inSize > static_cast<CFIndex>(sizeof(mBlock))) return nullptr;
      arena->mIsTaken = true;
      ++arena->mAllocations;
      return arena->mBlock;
    };
    context.deallocate = [](void* inPointer, void* inInfo) {
      auto* arena = static_cast<Arena*>(inInfo);
      EXPECT_EQ(inPointer, arena->mBlock);
      arena->mIsTaken = false;
      ++arena->mFrees;
    };
    return CFAllocatorCreate(nullptr, &context);
  }
};

TEST(CFData, CopiesItsBytes) {
  char text[] = "abc";
  Data data(CFDataCreate(nullptr, Bytes(text), 3));
  text[0] = 'x';
  EXPECT_EQ(Text(data), "abc");
  Data empty(CFDataCreate(nullptr, nullptr, 0));
  EXPECT_EQ(CFDataGetLength(empty), 0);
  EXPECT_EQ(CFDataCreate(nullptr, nullptr, 3), nullptr);
  EXPECT_EQ(CFDataCreate(nullptr, Bytes(text), -1), nullptr);
}

TEST(CFData, LeavesForeignBytesInPlaceAndFreesThemAsTold) {
  static char text[] = "static";
  Data borrowed(CFDataCreateWithBytesNoCopy(nullptr, Bytes(text), 6, kCFAllocatorNull));
  EXPECT_EQ(CFDataGetBytePtr(borrowed), Bytes(text));
  borrowed.Reset(nullptr);
  auto* heap = static_cast<char*>(std::malloc(4));
  std::memcpy(heap, "heap", 4);
  // Freed with the object: the leak checker sees it if it is not.
  Data taken(CFDataCreateWithBytesNoCopy(nullptr, Bytes(heap), 4, nullptr));
  EXPECT_EQ(Text(taken), "heap");
  Arena arena;
  Owned<CFAllocatorRef> allocator(arena.MakeAllocator());
  void* block = CFAllocatorAllocate(allocator, 16, 0);
  Data custom(CFDataCreateWithBytesNoCopy(nullptr, static_cast<UInt8*>(block), 16, allocator));
  EXPECT_EQ(arena.mFrees, 0);
  custom.Reset(nullptr);
  EXPECT_EQ(arena.mFrees, 1);
}

TEST(CFData, TakesAllItsMemoryFromTheGivenAllocator) {
  Arena arena;
  CFAllocatorRef allocator = arena.MakeAllocator();
  static char text[] = "payload";
  CFDataRef data = CFDataCreateWithBytesNoCopy(allocator, Bytes(text), 7, kCFAllocatorNull);
  ASSERT_EQ(reinterpret_cast<const char*>(data), arena.mBlock);
  EXPECT_EQ(CFGetAllocator(data), allocator);
  EXPECT_EQ(arena.mAllocations, 1);
  // A second object finds no memory and is refused.
  EXPECT_EQ(CFDataCreateWithBytesNoCopy(allocator, Bytes(text), 7, kCFAllocatorNull), nullptr);
  CFRetain(data);
  CFRelease(data);
  EXPECT_EQ(arena.mFrees, 0);
  CFRelease(data);
  EXPECT_EQ(arena.mFrees, 1);
  // Again from the same block, and with the bytes in it.
  data = CFDataCreate(allocator, Bytes(text), 7);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(Text(data), "payload");
  EXPECT_GE(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), arena.mBlock);
  EXPECT_LT(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            arena.mBlock + sizeof(arena.mBlock));
  // The object keeps its allocator alive.
  CFRelease(allocator);
  EXPECT_EQ(arena.mReleases, 0);
  CFRelease(data);
  EXPECT_EQ(arena.mFrees, 2);
  EXPECT_EQ(arena.mReleases, 1);
}

TEST(CFData, IsEqualByBytes) {
  Data first(CFDataCreate(nullptr, Bytes("abc"), 3));
  MutableData second(CFDataCreateMutable(nullptr, 0));
  CFDataAppendBytes(second, Bytes("abc"), 3);
  EXPECT_TRUE(CFEqual(first, second));
  EXPECT_EQ(CFHash(first), CFHash(second));
  CFDataAppendBytes(second, Bytes("d"), 1);
  EXPECT_FALSE(CFEqual(first, second));
  EXPECT_FALSE(CFEqual(first, CFSTR("abc")));
}

TEST(CFData, EditsMutableBytes) {
  MutableData data(CFDataCreateMutable(nullptr, 0));
  CFDataAppendBytes(data, Bytes("hello"), 5);
  CFDataReplaceBytes(data, CFRangeMake(1, 3), Bytes("EYEY"), 4);
  EXPECT_EQ(Text(data), "hEYEYo");
  CFDataDeleteBytes(data, CFRangeMake(1, 4));
  EXPECT_EQ(Text(data), "ho");
  CFDataSetLength(data, 4);
  EXPECT_EQ(Text(data), std::string("ho\0\0", 4));
  CFDataIncreaseLength(data, 1);
  EXPECT_EQ(CFDataGetLength(data), 5);
  CFDataSetLength(data, 1);
  CFDataGetMutableBytePtr(data)[0] = 'z';
  EXPECT_EQ(Text(data), "z");
  // A shrunk buffer shows no old bytes when it grows.
  CFDataSetLength(data, 3);
  EXPECT_EQ(Text(data), std::string("z\0\0", 3));
  CFDataReplaceBytes(data, CFRangeMake(2, 5), Bytes("bad"), 3);
  EXPECT_EQ(CFDataGetLength(data), 3);
}

TEST(CFData, KeepsToItsCapacityAndImmutableDataDoesNotChange) {
  MutableData data(CFDataCreateMutable(nullptr, 4));
  CFDataAppendBytes(data, Bytes("abc"), 3);
  CFDataAppendBytes(data, Bytes("de"), 2);
  EXPECT_EQ(Text(data), "abc");
  Data fixed(CFDataCreate(nullptr, Bytes("abc"), 3));
  auto* forced = const_cast<CFMutableDataRef>(fixed.Get());
  CFDataSetLength(forced, 1);
  CFDataAppendBytes(forced, Bytes("x"), 1);
  EXPECT_EQ(CFDataGetMutableBytePtr(forced), nullptr);
  EXPECT_EQ(Text(fixed), "abc");
}

TEST(CFData, CopiesAreIndependent) {
  MutableData data(CFDataCreateMutable(nullptr, 0));
  CFDataAppendBytes(data, Bytes("abc"), 3);
  Data frozen(CFDataCreateCopy(nullptr, data));
  CFDataSetLength(data, 0);
  EXPECT_EQ(Text(frozen), "abc");
  Data same(CFDataCreateCopy(nullptr, frozen));
  EXPECT_EQ(same.Get(), frozen.Get());
  UInt8 out[2];
  CFDataGetBytes(frozen, CFRangeMake(1, 2), out);
  EXPECT_THAT(out, testing::ElementsAre('b', 'c'));
}

TEST(CFAllocator, DefaultsServeAndNullServesNothing) {
  void* block = CFAllocatorAllocate(nullptr, 100, 0);
  ASSERT_NE(block, nullptr);
  block = CFAllocatorReallocate(kCFAllocatorDefault, block, 1000, 0);
  ASSERT_NE(block, nullptr);
  CFAllocatorDeallocate(kCFAllocatorSystemDefault, block);
  EXPECT_EQ(CFAllocatorAllocate(kCFAllocatorNull, 10, 0), nullptr);
  EXPECT_EQ(CFDataCreate(kCFAllocatorNull, Bytes("abc"), 3), nullptr);
  EXPECT_EQ(CFAllocatorAllocate(nullptr, 0, 0), nullptr);
  EXPECT_EQ(CFAllocatorGetDefault(), kCFAllocatorSystemDefault);
  Data data(CFDataCreate(kCFAllocatorMalloc, Bytes("abc"), 3));
  EXPECT_EQ(CFGetAllocator(data), kCFAllocatorSystemDefault);
}

TEST(CFType, CountsReferencesFromManyThreads) {
  Data data(CFDataCreate(nullptr, Bytes("abc"), 3));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 10000; ++n) {
        CFRetain(data);
        CFRelease(data);
      }
      CFRetain(data);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(CFGetRetainCount(data), 5);
  for (int i = 0; i < 4; ++i) CFRelease(data);
}

TEST(CFType, TellsTypesApart) {
  Data data(CFDataCreate(nullptr, Bytes("abc"), 3));
  EXPECT_EQ(CFGetTypeID(data), CFDataGetTypeID());
  EXPECT_EQ(CFGetTypeID(CFSTR("abc")), CFStringGetTypeID());
  EXPECT_EQ(CFGetTypeID(kCFNull), CFNullGetTypeID());
  EXPECT_FALSE(CFEqual(data, CFSTR("abc")));
  EXPECT_FALSE(CFEqual(data, nullptr));
  EXPECT_TRUE(CFEqual(kCFNull, kCFNull));
}

TEST(CFTypeDeathTest, ANullReferenceEndsTheProcess) {
  EXPECT_DEATH(CFRelease(nullptr), "");
  EXPECT_DEATH(CFRetain(nullptr), "");
}

}  // namespace
