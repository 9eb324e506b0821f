#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace mach_override_tests {

inline constexpr size_t kPage = 4096;

// An address with 5 GiB of nothing on both sides, another one with each call: a test knows what
// lies around it.
uintptr_t LonelyPlace();

// Bytes from hexadecimal digits as an assembler lists them.
std::vector<uint8_t> Bytes(std::string_view inDigits);

// Pages of this test, taken with one protection and given back; what another mapping of the test
// took over meanwhile is not touched.
class Pages {
 public:
  // inPlace: an address, or 0 for anywhere.
  Pages(size_t inCount, int inProtection, uintptr_t inPlace = 0);
  ~Pages();
  Pages(const Pages&) = delete;
  Pages& operator=(const Pages&) = delete;

  uintptr_t Begin() const { return mBegin; }
  uintptr_t End() const { return mBegin + mSize; }
  void Protect(int inProtection) const;
  void Write(uintptr_t inAddress, const std::vector<uint8_t>& inBytes) const;

 private:
  uintptr_t mBegin;
  size_t mSize;
};

// A function in a page of its own, which ends with the function if inAtEnd is set: what follows is
// mapped and cannot be read.
class Code {
 public:
  explicit Code(const std::vector<uint8_t>& inBytes, size_t inOffset = 0, uintptr_t inPlace = 0);
  static Code AtPageEnd(const std::vector<uint8_t>& inBytes) {
    return Code(inBytes, kPage - inBytes.size());
  }

  uintptr_t Address() const { return mAddress; }
  void* Pointer() const { return reinterpret_cast<void*>(mAddress); }
  std::vector<uint8_t> Now(size_t inCount) const;
  long Call(long inA = 7, long inB = 5) const;

 private:
  Pages mGuard;  // the page of the code and one behind it
  uintptr_t mAddress;
};

long CallAt(const void* inCode, long inA = 7, long inB = 5);
std::vector<uint8_t> BytesAt(const void* inAddress, size_t inCount);

// What stands in the place of a patched function.
long Replacement(long inA, long inB);
inline constexpr long kReplaced = 1075;  // its answer for 7 and 5

// How the page at inAddress is protected: "r-x"; "" if it is not mapped.
std::string ProtectionAt(uintptr_t inAddress);

// The lines on standard error of one error at these stages.
std::string ErrorLines(const char* inCode, const std::vector<int>& inLines);
inline const std::vector<int> kAllLines = {239, 252, 258, 272, 277};

}  // namespace mach_override_tests
