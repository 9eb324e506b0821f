// A message on the listener port from a hostile client: read into a client's identity and format,
// and judged as the server does.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "client/TMBAudioClientInfo.h"
#include "server/ClientFormat.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  CFDataRef data = CFDataCreate(kCFAllocatorDefault, inData, static_cast<CFIndex>(inSize));
  if (data == nullptr) return 0;
  const TMBAudioClientInfo made(data);
  TMBAudioClientInfo assigned;
  assigned = data;
  if (tembra::WhyFormatIsRefused(made.GetStreamDescription()).empty()) {
    // A format that was found good survives the way back.
    CFDataRef written = made.CopyMessageData(true);
    if (written == nullptr) std::abort();
    const TMBAudioClientInfo again(written);
    if (again.GetClientPID() != made.GetClientPID() ||
        again.GetStreamDescription().mSampleRate != made.GetStreamDescription().mSampleRate) {
      std::abort();
    }
    CFRelease(written);
  }
  CFRelease(data);
  return 0;
}
