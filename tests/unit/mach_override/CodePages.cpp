#include "unit/mach_override/CodePages.h"

#include <gtest/gtest.h>
#include <mach/mach.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace mach_override_tests {

uintptr_t LonelyPlace() {
  constexpr uintptr_t kApart = uintptr_t{12} << 30;
  static uintptr_t sNext = 0x7E84'0000'0000;
  return std::exchange(sNext, sNext + kApart);
}

std::vector<uint8_t> Bytes(std::string_view inDigits) {
  std::vector<uint8_t> bytes;
  unsigned value = 0;
  int digits = 0;
  for (const char digit : inDigits) {
    if (digit == ' ') continue;
    value = value * 16 + static_cast<unsigned>(digit <= '9' ? digit - '0' : digit - 'A' + 10);
    if (++digits == 2) {
      bytes.push_back(static_cast<uint8_t>(value));
      digits = 0;
      value = 0;
    }
  }
  return bytes;
}

Pages::Pages(size_t inCount, int inProtection, uintptr_t inPlace) : mSize(inCount * kPage) {
  const int flags =
      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | (inPlace == 0 ? 0 : MAP_FIXED_NOREPLACE);
  void* const pages = mmap(reinterpret_cast<void*>(inPlace), mSize, inProtection, flags, -1, 0);
  mBegin = reinterpret_cast<uintptr_t>(pages);
  if (pages == MAP_FAILED || (inPlace != 0 && mBegin != inPlace)) {
    ADD_FAILURE() << "no pages at " << inPlace;
    abort();
  }
}

Pages::~Pages() {
  munmap(reinterpret_cast<void*>(mBegin), mSize);
}

void Pages::Protect(int inProtection) const {
  EXPECT_EQ(mprotect(reinterpret_cast<void*>(mBegin), mSize, inProtection), 0);
}

void Pages::Write(uintptr_t inAddress, const std::vector<uint8_t>& inBytes) const {
  memcpy(reinterpret_cast<void*>(inAddress), inBytes.data(), inBytes.size());
}

Code::Code(const std::vector<uint8_t>& inBytes, size_t inOffset, uintptr_t inPlace)
    : mGuard(2 + (inOffset + inBytes.size() - 1) / kPage, PROT_READ | PROT_WRITE, inPlace),
      mAddress(mGuard.Begin() + inOffset) {
  mGuard.Write(mAddress, inBytes);
  mGuard.Protect(PROT_READ | PROT_EXEC);
  mprotect(reinterpret_cast<void*>(mGuard.End() - kPage), kPage, PROT_NONE);
}

std::vector<uint8_t> Code::Now(size_t inCount) const {
  return BytesAt(Pointer(), inCount);
}

long Code::Call(long inA, long inB) const {
  return CallAt(Pointer(), inA, inB);
}

long CallAt(const void* inCode, long inA, long inB) {
  return reinterpret_cast<long (*)(long, long)>(const_cast<void*>(inCode))(inA, inB);
}

std::vector<uint8_t> BytesAt(const void* inAddress, size_t inCount) {
  const auto* const bytes = static_cast<const uint8_t*>(inAddress);
  return {bytes, bytes + inCount};
}

long Replacement(long inA, long inB) {
  return 1000 + 10 * inA + inB;
}

std::string ProtectionAt(uintptr_t inAddress) {
  vm_address_t begin = inAddress;
  vm_size_t size = 0;
  vm_region_basic_info_data_64_t info{};
  mach_msg_type_number_t count = VM_REGION_BASIC_INFO_COUNT_64;
  if (vm_region_64(mach_task_self(), &begin, &size, VM_REGION_BASIC_INFO_64,
                   reinterpret_cast<vm_region_info_t>(&info), &count, nullptr) != KERN_SUCCESS ||
      begin > inAddress) {
    return "";
  }
  return std::string(info.protection & VM_PROT_READ ? "r" : "-") +
         (info.protection & VM_PROT_WRITE ? "w" : "-") +
         (info.protection & VM_PROT_EXECUTE ? "x" : "-");
}

std::string ErrorLines(const char* inCode, const std::vector<int>& inLines) {
  std::string lines;
  for (const int line : inLines) {
    lines += std::string("err = ") + inCode +
             " src/library/sys/mac/mach_override/mach_override.cpp:" + std::to_string(line) + "\n";
  }
  return lines;
}

}  // namespace mach_override_tests
