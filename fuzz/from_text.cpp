// Any text is a format, or is refused; the parser and what follows it stay within their memory.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "formats/CAStreamBasicDescription.h"

namespace {

void Require(bool inHolds) {
  if (!inHolds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  const std::string theText(reinterpret_cast<const char*>(inData), inSize);
  CAStreamBasicDescription theFormat;
  if (!CAStreamBasicDescription::FromText(theText.c_str(), theFormat)) return 0;

  Require(theFormat.mReserved == 0);
  Require(theFormat == theFormat);
  Require(!(theFormat < theFormat));

  // What was read can be shown in a buffer of any size.
  const size_t theSize = inSize % 160 + 1;
  for (const bool theChoice : {false, true}) {
    std::string theShown(theSize, '#');
    Require(theFormat.AsString(theShown.data(), theSize, theChoice) == theShown.data());
    Require(std::memchr(theShown.data(), '\0', theSize) != nullptr);
    for (const bool includesRate : {false, true}) {
      std::string theName(theSize, '#');
      CAStreamBasicDescription::GetSimpleName(
          theFormat, theName.data(), static_cast<UInt32>(theSize), theChoice, includesRate);
      Require(std::memchr(theName.data(), '\0', theSize) != nullptr);
    }
  }

  CAStreamBasicDescription theVirtualFormat(theFormat);
  CAStreamBasicDescription::NormalizeLinearPCMFormat(theVirtualFormat);
  Require(CAStreamBasicDescription::IsMixable(theVirtualFormat) ==
          CAStreamBasicDescription::IsMixable(theFormat));
  SanityCheck(theFormat);
  return 0;
}
