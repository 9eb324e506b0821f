#include <gtest/gtest.h>
#include <mach/mach.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "mach/MemoryMap.h"

namespace {

using tembra::ForEachMappedRegion;
using tembra::MappedRegion;
using tembra::ParseMappedRegion;

vm_size_t PageSize() {
  return static_cast<vm_size_t>(sysconf(_SC_PAGESIZE));
}

struct Region {
  kern_return_t mStatus;
  vm_address_t mAddress;
  vm_size_t mSize;
  vm_region_basic_info_data_64_t mInfo;
};

Region RegionAt(vm_address_t inAddress) {
  Region region{KERN_FAILURE, inAddress, 0, {}};
  mach_msg_type_number_t count = VM_REGION_BASIC_INFO_COUNT_64;
  mach_port_t name = 77;
  region.mStatus =
      vm_region_64(mach_task_self(), &region.mAddress, &region.mSize, VM_REGION_BASIC_INFO_64,
                   reinterpret_cast<vm_region_info_t>(&region.mInfo), &count, &name);
  return region;
}

// Pages of this test's own, some of which the tests take away or protect.
class Pages {
 public:
  explicit Pages(vm_size_t inCount) : mSize(inCount * PageSize()) {
    EXPECT_EQ(vm_allocate(mach_task_self(), &mAddress, mSize, VM_FLAGS_ANYWHERE), KERN_SUCCESS);
  }
  ~Pages() { EXPECT_EQ(vm_deallocate(mach_task_self(), mAddress, mSize), KERN_SUCCESS); }
  vm_address_t At(vm_size_t inPage) const { return mAddress + inPage * PageSize(); }
  char* Bytes(vm_size_t inPage = 0) const { return reinterpret_cast<char*>(At(inPage)); }

 private:
  vm_address_t mAddress = 0;
  vm_size_t mSize;
};

TEST(VMAllocate, AnywhereGivesZeroedWholePages) {
  vm_address_t address = 0;
  ASSERT_EQ(vm_allocate(mach_task_self(), &address, PageSize() + 1, VM_FLAGS_ANYWHERE),
            KERN_SUCCESS);
  EXPECT_EQ(address % PageSize(), 0U);
  auto* const bytes = reinterpret_cast<unsigned char*>(address);
  for (vm_size_t i = 0; i < 2 * PageSize(); ++i) {
    ASSERT_EQ(bytes[i], 0) << i;
  }
  bytes[2 * PageSize() - 1] = 1;
  EXPECT_EQ(vm_deallocate(mach_task_self(), address, PageSize() + 1), KERN_SUCCESS);
}

TEST(VMAllocate, NothingIsGivenAsNothing) {
  vm_address_t address = 1234;
  EXPECT_EQ(vm_allocate(mach_task_self(), &address, 0, VM_FLAGS_ANYWHERE), KERN_SUCCESS);
  EXPECT_EQ(address, 0U);
}

TEST(VMAllocate, FixedTakesAFreePlace) {
  vm_address_t place = 0;
  ASSERT_EQ(vm_allocate(mach_task_self(), &place, PageSize(), VM_FLAGS_ANYWHERE), KERN_SUCCESS);
  ASSERT_EQ(vm_deallocate(mach_task_self(), place, PageSize()), KERN_SUCCESS);
  vm_address_t address = place + 17;
  ASSERT_EQ(vm_allocate(mach_task_self(), &address, PageSize(), VM_FLAGS_FIXED), KERN_SUCCESS);
  EXPECT_EQ(address, place);
  EXPECT_EQ(*reinterpret_cast<char*>(address), 0);
  EXPECT_EQ(vm_deallocate(mach_task_self(), address, PageSize()), KERN_SUCCESS);
}

TEST(VMAllocate, FixedNeverReplacesALiveMapping) {
  const Pages pages(2);
  strcpy(pages.Bytes(), "precious");
  vm_address_t address = pages.At(0);
  EXPECT_EQ(vm_allocate(mach_task_self(), &address, PageSize(), VM_FLAGS_FIXED), KERN_NO_SPACE);
  EXPECT_EQ(address, pages.At(0));
  EXPECT_STREQ(pages.Bytes(), "precious");
}

TEST(VMAllocate, FixedWhereNothingMayBe) {
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
  GTEST_SKIP() << "ThreadSanitizer ends a process that maps at such an address";
#endif
#endif
  vm_address_t address = ~vm_address_t{0} & ~(PageSize() - 1);
  EXPECT_EQ(vm_allocate(mach_task_self(), &address, 2 * PageSize(), VM_FLAGS_FIXED),
            KERN_INVALID_ADDRESS);
  address = vm_address_t{1} << 62;
  EXPECT_EQ(vm_allocate(mach_task_self(), &address, PageSize(), VM_FLAGS_FIXED),
            KERN_INVALID_ADDRESS);
}

TEST(VMAllocate, MoreThanThereIs) {
  vm_address_t address = 5;
  EXPECT_EQ(vm_allocate(mach_task_self(), &address, ~vm_size_t{0}, VM_FLAGS_ANYWHERE),
            KERN_NO_SPACE);
  EXPECT_EQ(address, 5U);
}

TEST(VMCalls, RefuseAnotherTask) {
  vm_address_t address = 0;
  vm_size_t size = 0;
  mach_msg_type_number_t count = VM_REGION_BASIC_INFO_COUNT_64;
  int info[VM_REGION_BASIC_INFO_COUNT_64];
  const vm_map_t other = mach_task_self() + 1;
  EXPECT_EQ(vm_allocate(other, &address, PageSize(), VM_FLAGS_ANYWHERE), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(vm_deallocate(other, address, PageSize()), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(vm_protect(other, address, PageSize(), false, VM_PROT_READ), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(vm_region_64(other, &address, &size, VM_REGION_BASIC_INFO_64, info, &count, nullptr),
            KERN_INVALID_ARGUMENT);
}

TEST(VMDeallocate, GivesThePagesBack) {
  Pages pages(3);
  EXPECT_EQ(vm_deallocate(mach_task_self(), pages.At(1), PageSize()), KERN_SUCCESS);
  const Region region = RegionAt(pages.At(1));
  ASSERT_EQ(region.mStatus, KERN_SUCCESS);
  EXPECT_GE(region.mAddress, pages.At(2));
  EXPECT_EQ(vm_deallocate(mach_task_self(), pages.At(1), 0), KERN_SUCCESS);
  EXPECT_EQ(vm_deallocate(mach_task_self(), ~vm_address_t{0}, PageSize()), KERN_INVALID_ADDRESS);
}

TEST(VMProtect, ChangesProtection) {
  const Pages pages(1);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(0), 8, false, VM_PROT_READ), KERN_SUCCESS);
  EXPECT_EQ(RegionAt(pages.At(0)).mInfo.protection, VM_PROT_READ);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(0), 8, false,
                       VM_PROT_READ | VM_PROT_WRITE | VM_PROT_EXECUTE | VM_PROT_COPY),
            KERN_SUCCESS);
  EXPECT_EQ(RegionAt(pages.At(0)).mInfo.protection, VM_PROT_ALL);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(0), 8, false, VM_PROT_READ | VM_PROT_EXECUTE),
            KERN_SUCCESS);
  EXPECT_EQ(RegionAt(pages.At(0)).mInfo.protection, VM_PROT_READ | VM_PROT_EXECUTE);
}

TEST(VMProtect, NeverTakesExecutionFromCodeItMakesWritable) {
  const Pages pages(3);
  ASSERT_EQ(
      vm_protect(mach_task_self(), pages.At(1), PageSize(), false, VM_PROT_READ | VM_PROT_EXECUTE),
      KERN_SUCCESS);
  const vm_prot_t asked = VM_PROT_READ | VM_PROT_WRITE | VM_PROT_COPY;
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(1), 8, false, asked), KERN_PROTECTION_FAILURE);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(0), 3 * PageSize(), false, asked),
            KERN_PROTECTION_FAILURE);
  EXPECT_EQ(RegionAt(pages.At(1)).mInfo.protection, VM_PROT_READ | VM_PROT_EXECUTE);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(0), PageSize(), false, asked), KERN_SUCCESS);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(2), PageSize(), false, asked), KERN_SUCCESS);
}

TEST(VMProtect, ItsStatuses) {
  Pages pages(1);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(0), PageSize(), true, VM_PROT_READ),
            KERN_NOT_SUPPORTED);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(0), PageSize(), false, 0x40),
            KERN_INVALID_ARGUMENT);
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(0), 0, false, VM_PROT_READ), KERN_SUCCESS);
  EXPECT_EQ(vm_protect(mach_task_self(), vm_address_t{1} << 62, PageSize(), false, VM_PROT_READ),
            KERN_INVALID_ADDRESS);
  EXPECT_EQ(vm_protect(mach_task_self(), ~vm_address_t{0}, PageSize(), false, VM_PROT_READ),
            KERN_INVALID_ADDRESS);
}

TEST(VMRegion, FindsTheRegionThatContainsAnAddress) {
  const Pages pages(3);
  ASSERT_EQ(vm_protect(mach_task_self(), pages.At(1), PageSize(), false, VM_PROT_NONE),
            KERN_SUCCESS);
  const Region region = RegionAt(pages.At(1) + 100);
  ASSERT_EQ(region.mStatus, KERN_SUCCESS);
  EXPECT_EQ(region.mAddress, pages.At(1));
  EXPECT_EQ(region.mSize, PageSize());
  EXPECT_EQ(region.mInfo.protection, VM_PROT_NONE);
  EXPECT_EQ(region.mInfo.max_protection, VM_PROT_ALL);
  EXPECT_EQ(region.mInfo.inheritance, VM_INHERIT_COPY);
  EXPECT_FALSE(region.mInfo.shared);
}

TEST(VMRegion, FindsTheNextRegionFromAHole) {
  const Pages pages(3);
  ASSERT_EQ(vm_protect(mach_task_self(), pages.At(2), PageSize(), false, VM_PROT_READ),
            KERN_SUCCESS);
  ASSERT_EQ(vm_deallocate(mach_task_self(), pages.At(1), PageSize()), KERN_SUCCESS);
  const Region region = RegionAt(pages.At(1));
  ASSERT_EQ(region.mStatus, KERN_SUCCESS);
  EXPECT_EQ(region.mAddress, pages.At(2));
}

TEST(VMRegion, TellsSharedMemory) {
  void* const shared = mmap(nullptr, PageSize(), PROT_READ, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  const Region region = RegionAt(reinterpret_cast<vm_address_t>(shared));
  EXPECT_TRUE(region.mInfo.shared);
  EXPECT_EQ(region.mInfo.inheritance, VM_INHERIT_SHARE);
  munmap(shared, PageSize());
}

TEST(VMRegion, NothingBehindTheLast) {
  EXPECT_EQ(RegionAt(~vm_address_t{0} & ~(PageSize() - 1)).mStatus, KERN_INVALID_ADDRESS);
}

TEST(VMRegion, RefusesOtherFlavoursAndShortResults) {
  vm_address_t address = 0;
  vm_size_t size = 0;
  int info[VM_REGION_BASIC_INFO_COUNT_64];
  mach_msg_type_number_t count = VM_REGION_BASIC_INFO_COUNT_64;
  EXPECT_EQ(vm_region_64(mach_task_self(), &address, &size, 10, info, &count, nullptr),
            KERN_INVALID_ARGUMENT);
  count = VM_REGION_BASIC_INFO_COUNT_64 - 1;
  EXPECT_EQ(vm_region_64(mach_task_self(), &address, &size, VM_REGION_BASIC_INFO_64, info, &count,
                         nullptr),
            KERN_INVALID_ARGUMENT);
}

TEST(VMRegion, WalksTheWholeMapUpwards) {
  vm_address_t address = 0;
  int regions = 0;
  for (;; ++regions) {
    const Region region = RegionAt(address);
    if (region.mStatus != KERN_SUCCESS) {
      EXPECT_EQ(region.mStatus, KERN_INVALID_ADDRESS);
      break;
    }
    ASSERT_GE(region.mAddress, address);
    address = region.mAddress + region.mSize;
  }
  EXPECT_GT(regions, 10);
}

TEST(MemoryMap, ParsesALine) {
  MappedRegion region;
  ASSERT_TRUE(
      ParseMappedRegion("7f00dead0000-7f00dead2000 r-xp 0001f000 fe:00 1234  /a b", region));
  EXPECT_EQ(region.mStart, 0x7f00dead0000U);
  EXPECT_EQ(region.mEnd, 0x7f00dead2000U);
  EXPECT_TRUE(region.mReadable);
  EXPECT_FALSE(region.mWritable);
  EXPECT_TRUE(region.mExecutable);
  EXPECT_FALSE(region.mShared);
  EXPECT_EQ(region.mOffset, 0x1f000U);
}

TEST(MemoryMap, RefusesOtherLines) {
  MappedRegion region;
  EXPECT_FALSE(ParseMappedRegion("", region));
  EXPECT_FALSE(ParseMappedRegion("nonsense", region));
  EXPECT_FALSE(ParseMappedRegion("2000-1000 r-xp 0 fe:00 0", region));
  EXPECT_FALSE(ParseMappedRegion("1000-2000 r-x 0 fe:00 0", region));
}

TEST(MemoryMap, StopsWhenTold) {
  int seen = 0;
  EXPECT_TRUE(ForEachMappedRegion([&](const MappedRegion&) { return ++seen < 3; }));
  EXPECT_EQ(seen, 3);
}

}  // namespace
