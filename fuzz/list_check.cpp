// The checks that stand before the parser of property lists: any bytes are let through or refused
// with a text, within their memory, and what is let through is bounded.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "corefoundation/PropertyListCheck.h"

namespace {

using namespace tembra::cf;

void Require(bool inHolds) {
  if (!inHolds) std::abort();
}

using Check = const char* (*)(const UInt8*, size_t);

bool IsLetThrough(Check inCheck, const std::string& inBytes) {
  const char* const wrong = inCheck(reinterpret_cast<const UInt8*>(inBytes.data()), inBytes.size());
  Require(wrong == nullptr || *wrong != 0);
  return wrong == nullptr;
}

// A depth of containers that is more than is allowed.
std::string TooDeep() {
  std::string text = "<plist>";
  for (size_t i = 0; i <= kMaxListDepth; ++i) text += "<array>";
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  const std::string bytes(reinterpret_cast<const char*>(inData), inSize);
  if (IsLetThrough(CheckBinaryList, bytes)) {
    Require(LooksBinary(inData, inSize));
    // One is not the other: its beginning has bytes that no text has.
    Require(!IsLetThrough(CheckXMLList, bytes));
    // It needs its end, which says where everything is.
    Require(!IsLetThrough(CheckBinaryList, bytes.substr(0, 8)));
  }
  if (IsLetThrough(CheckXMLList, bytes)) {
    Require(bytes.find("<plist") != std::string::npos);
    Require(!IsLetThrough(CheckXMLList, bytes + std::string(1, '\0')));
    Require(!IsLetThrough(CheckXMLList, bytes + "<plist"));
    // Whatever stands before them, so many beginnings are too many.
    Require(!IsLetThrough(CheckXMLList, TooDeep() + bytes));
  }
  return 0;
}
