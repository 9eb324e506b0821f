#include <gtest/gtest.h>
#include <mach/mach.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "base/Descriptor.h"

// What VM_PROT_COPY promises: what is written afterwards is this process's own.

namespace {

constexpr vm_prot_t kOwnCopy = VM_PROT_READ | VM_PROT_WRITE | VM_PROT_COPY;

vm_size_t PageSize() {
  return static_cast<vm_size_t>(sysconf(_SC_PAGESIZE));
}

// Three pages of a file, each beginning with its number as text, mapped shared.
class SharedPages {
 public:
  explicit SharedPages(int inProtection) : mFile(memfd_create("pages", MFD_CLOEXEC)) {
    EXPECT_EQ(ftruncate(mFile.Get(), static_cast<off_t>(3 * PageSize())), 0);
    for (vm_size_t i = 0; i < 3; ++i) {
      const std::string text = "page " + std::to_string(i);
      EXPECT_EQ(pwrite(mFile.Get(), text.c_str(), text.size() + 1, OffsetOf(i)),
                static_cast<ssize_t>(text.size() + 1));
    }
    mMemory = mmap(nullptr, 3 * PageSize(), inProtection, MAP_SHARED, mFile.Get(), 0);
    EXPECT_NE(mMemory, MAP_FAILED);
  }
  ~SharedPages() { munmap(mMemory, 3 * PageSize()); }

  vm_address_t At(vm_size_t inPage) const {
    return reinterpret_cast<vm_address_t>(mMemory) + inPage * PageSize();
  }
  char* Text(vm_size_t inPage) const { return reinterpret_cast<char*>(At(inPage)); }
  std::string InFile(vm_size_t inPage) const {
    char text[16] = {};
    EXPECT_EQ(pread(mFile.Get(), text, sizeof text - 1, OffsetOf(inPage)),
              static_cast<ssize_t>(sizeof text - 1));
    return text;
  }
  void WriteToFile(vm_size_t inPage, const char* inText) const {
    EXPECT_GT(pwrite(mFile.Get(), inText, strlen(inText) + 1, OffsetOf(inPage)), 0);
  }
  void CutFile() const { EXPECT_EQ(ftruncate(mFile.Get(), 0), 0); }

 private:
  static off_t OffsetOf(vm_size_t inPage) { return static_cast<off_t>(inPage * PageSize()); }

  tembra::Descriptor mFile;
  void* mMemory;
};

bool IsShared(vm_address_t inAddress) {
  vm_size_t size = 0;
  vm_region_basic_info_data_64_t info{};
  mach_msg_type_number_t count = VM_REGION_BASIC_INFO_COUNT_64;
  EXPECT_EQ(vm_region_64(mach_task_self(), &inAddress, &size, VM_REGION_BASIC_INFO_64,
                         reinterpret_cast<vm_region_info_t>(&info), &count, nullptr),
            KERN_SUCCESS);
  return info.shared;
}

TEST(VMProtectCopy, WritesToASharedFileStayInThisProcess) {
  const SharedPages pages(PROT_READ);
  ASSERT_EQ(vm_protect(mach_task_self(), pages.At(1), 8, false, kOwnCopy), KERN_SUCCESS);
  EXPECT_STREQ(pages.Text(1), "page 1");
  strcpy(pages.Text(1), "mine");
  EXPECT_EQ(pages.InFile(1), "page 1");
  EXPECT_FALSE(IsShared(pages.At(1)));
  // Its neighbours are what they were.
  EXPECT_TRUE(IsShared(pages.At(0)));
  EXPECT_TRUE(IsShared(pages.At(2)));
  pages.WriteToFile(2, "theirs");
  EXPECT_STREQ(pages.Text(2), "theirs");
}

TEST(VMProtectCopy, WithoutItASharedFileIsWrittenTo) {
  const SharedPages pages(PROT_READ);
  ASSERT_EQ(vm_protect(mach_task_self(), pages.At(1), 8, false, VM_PROT_READ | VM_PROT_WRITE),
            KERN_SUCCESS);
  strcpy(pages.Text(1), "ours");
  EXPECT_EQ(pages.InFile(1), "ours");
}

TEST(VMProtectCopy, WithoutTheRightToWriteNothingIsCopied) {
  const SharedPages pages(PROT_READ);
  ASSERT_EQ(vm_protect(mach_task_self(), pages.At(1), 8, false, VM_PROT_READ | VM_PROT_COPY),
            KERN_SUCCESS);
  EXPECT_TRUE(IsShared(pages.At(1)));
}

TEST(VMProtectCopy, ARangeOfPrivateAndSharedParts) {
  const SharedPages pages(PROT_READ);
  ASSERT_EQ(vm_protect(mach_task_self(), pages.At(1), PageSize(), false, kOwnCopy), KERN_SUCCESS);
  strcpy(pages.Text(1), "kept");
  ASSERT_EQ(vm_protect(mach_task_self(), pages.At(0), 3 * PageSize(), false, kOwnCopy),
            KERN_SUCCESS);
  EXPECT_STREQ(pages.Text(0), "page 0");
  EXPECT_STREQ(pages.Text(1), "kept");
  EXPECT_STREQ(pages.Text(2), "page 2");
  for (vm_size_t i = 0; i < 3; ++i) {
    pages.Text(i)[0] = 'X';
    EXPECT_EQ(pages.InFile(i)[0], 'p');
  }
}

TEST(VMProtectCopy, SharedCodeStaysExecutable) {
  const SharedPages pages(PROT_READ | PROT_EXEC);
  ASSERT_EQ(vm_protect(mach_task_self(), pages.At(1), 8, false, kOwnCopy | VM_PROT_EXECUTE),
            KERN_SUCCESS);
  EXPECT_FALSE(IsShared(pages.At(1)));
  // Without it the code would be taken from under a thread.
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(2), 8, false, kOwnCopy), KERN_PROTECTION_FAILURE);
  EXPECT_TRUE(IsShared(pages.At(2)));
}

TEST(VMProtectCopy, PagesBehindAFilesEndAreRefused) {
  const SharedPages pages(PROT_READ);
  pages.CutFile();
  EXPECT_EQ(vm_protect(mach_task_self(), pages.At(1), 8, false, kOwnCopy), KERN_PROTECTION_FAILURE);
  EXPECT_TRUE(IsShared(pages.At(1)));
}

// Where the map of the process cannot be read, nobody knows what is shared.
TEST(VMProtectCopy, WhatIsSharedNobodyKnowsWithoutTheMap) {
  const SharedPages pages(PROT_READ | PROT_EXEC);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    const kern_return_t result =
        vm_protect(mach_task_self(), pages.At(1), 8, false, kOwnCopy | VM_PROT_EXECUTE);
    _exit(result == KERN_PROTECTION_FAILURE ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(VMAllocate, NothingIsGivenNearNull) {
  for (vm_address_t address : {vm_address_t{0}, vm_address_t{1}, vm_address_t{0xF000}}) {
    EXPECT_EQ(vm_allocate(mach_task_self(), &address, PageSize(), VM_FLAGS_FIXED),
              KERN_INVALID_ADDRESS);
  }
}

}  // namespace
