#include <CoreServices/CoreServices.h>
#include <CoreServices/GestaltPriv.h>

#include <algorithm>
#include <atomic>

namespace {

std::atomic<SInt32> sMajor{10};
std::atomic<SInt32> sMinor{13};
std::atomic<SInt32> sBugFix{6};

// Two decimal digits, as two hexadecimal ones.
SInt32 BinaryCodedDecimal(SInt32 inNumber) {
  const SInt32 number = std::clamp(inNumber, 0, 99);
  return ((number / 10) << 4) | (number % 10);
}

// Has one digit for each of minor and fix, so greater ones show as 9.
SInt32 PackedVersion() {
  return (BinaryCodedDecimal(sMajor) << 8) | (std::clamp(sMinor.load(), 0, 9) << 4) |
         std::clamp(sBugFix.load(), 0, 9);
}

}  // namespace

OSErr Gestalt(OSType selector, SInt32* response) {
  SInt32 value = 0;
  switch (selector) {
    case gestaltSystemVersion:
      value = PackedVersion();
      break;
    case gestaltSystemVersionMajor:
      value = sMajor;
      break;
    case gestaltSystemVersionMinor:
      value = sMinor;
      break;
    case gestaltSystemVersionBugFix:
      value = sBugFix;
      break;
    default:
      return gestaltUndefSelectorErr;
  }
  if (response) {
    *response = value;
  }
  return noErr;
}

void TembraGestaltSetSystemVersion(SInt32 inMajor, SInt32 inMinor, SInt32 inBugFix) {
  sMajor = inMajor;
  sMinor = inMinor;
  sBugFix = inBugFix;
}
