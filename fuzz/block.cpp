// A block from a hostile client: whatever passes the check must be safe for the reader that trusts
// it. The first byte chooses the channels that the client announced.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "client/Snd.h"
#include "server/BlockValidator.h"
#include "server/Timeline.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  if (inSize == 0) return 0;
  const UInt32 channels = 1 + inData[0] % 64;
  const size_t size = inSize - 1;
  // Storage of exactly this size, so that each byte too far is seen.
  auto block = std::make_unique<UInt8[]>(size);
  std::copy(inData + 1, inData + inSize, block.get());

  tembra::BlockShape shape;
  if (tembra::BlockValidator(channels).Check(block.get(), size, shape) !=
      tembra::BlockVerdict::kOk) {
    return 0;
  }
  for (bool copy : {false, true}) {
    AudioTimeStamp time;
    AudioBufferList* list =
        SndAllocateAudioBufferList(block.get(), static_cast<int>(size), &time, copy);
    if (list == nullptr) std::abort();
    if (list->mNumberBuffers != shape.mBuffers || time.mSampleTime != shape.mSampleTime) {
      std::abort();
    }
    std::vector<float> frames(size_t{shape.mFrames} * channels);
    tembra::InterleaveList(*list, channels, shape.mFrames, frames.data());
    SndFreeABLPointer(list, copy);
  }
  tembra::Timeline timeline(44100 * 60);
  timeline.Accept(0.0, shape.mFrames);
  const tembra::TimelineStep step = timeline.Accept(shape.mSampleTime, shape.mFrames);
  if (step.mSilence > 44100 * 60 + uint64_t{shape.mFrames}) std::abort();
  return 0;
}
