#include "corefoundation/PropertyListDates.h"

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "corefoundation/PropertyListCheck.h"

namespace tembra::cf {

namespace {

// A binary list of one date: the kind, then the seconds, most significant byte first; the table of
// the one offset, and the trailer: sizes of offsets and references, one object, which is the root,
// and where the table lies.
constexpr size_t kDateAt = 9;
constexpr unsigned char kDateList[] =
    "bplist00\x33"
    "\0\0\0\0\0\0\0\0"
    "\x08"
    "\0\0\0\0\0\0\x01\x01"
    "\0\0\0\0\0\0\0\x01"
    "\0\0\0\0\0\0\0\0"
    "\0\0\0\0\0\0\0\x11";
constexpr size_t kDateListSize = sizeof kDateList - 1;
static_assert(kDateListSize == 50);

bool ReadFarDate(plist_t inNode, double& outTime) {
  char* bytes = nullptr;
  uint32_t size = 0;
  plist_to_bin(inNode, &bytes, &size);
  const std::unique_ptr<char, decltype(&std::free)> owned(bytes, std::free);
  if (!bytes || size != kDateListSize || std::memcmp(bytes, kDateList, kDateAt) != 0) return false;
  uint64_t bits = 0;
  for (size_t i = 0; i < sizeof bits; ++i) {
    bits = bits << 8 | static_cast<unsigned char>(bytes[kDateAt + i]);
  }
  outTime = std::bit_cast<double>(bits);
  return true;
}

Node CreateFarDateNode(double inTime) {
  char bytes[kDateListSize];
  std::memcpy(bytes, kDateList, kDateListSize);
  auto bits = std::bit_cast<uint64_t>(inTime);
  for (size_t i = sizeof bits; i-- > 0; bits >>= 8) bytes[kDateAt + i] = static_cast<char>(bits);
  plist_t node = nullptr;
  plist_from_bin(bytes, kDateListSize, &node);
  return Node(node);
}

}  // namespace

bool ReadDate(plist_t inNode, double& outTime) {
  int32_t seconds = 0, microseconds = 0;
  plist_get_date_val(inNode, &seconds, &microseconds);
  if (seconds == INT32_MIN || seconds == INT32_MAX) {
    // Either end stands for all that lies beyond.
    return ReadFarDate(inNode, outTime) && IsListDate(outTime);
  }
  // The fraction comes without its sign.
  const double fraction = microseconds * 1e-6;
  outTime = seconds < 0 ? seconds - fraction : seconds + fraction;
  return true;
}

Node CreateDateNode(double inTime) {
  if (!IsListDate(inTime)) return nullptr;
  if (std::fabs(inTime) >= 0x1p31 - 1) return CreateFarDateNode(inTime);
  const double seconds = std::floor(inTime);
  return Node(plist_new_date(static_cast<int32_t>(seconds),
                             static_cast<int32_t>((inTime - seconds) * 1e6)));
}

}  // namespace tembra::cf
