#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <cstddef>
#include <cstdint>

namespace tembra {

// What a block from another process turned out to be. All but kOk are refusals.
enum class BlockVerdict {
  kOk,
  kWrongMessage,  // not an audio message
  kWrongSender,   // sent by another process than the port's client
  kTooShort,      // no room for the header
  kNoBuffers,
  kTooManyBuffers,
  kTruncated,      // a record reaches past the end
  kTrailingBytes,  // bytes follow the last record
  kWrongChannels,  // not the channels that the client announced
  kUnevenBuffers,  // no whole samples, or not as many frames in each record
  kTooManyFrames,  // more than kMaxBlockFrames
  kTooSmall,       // so few bytes that the block's reader refuses it
  kBadTime,        // no sample time, or one that is not finite or out of range
  kCount
};

constexpr size_t kBlockVerdicts = static_cast<size_t>(BlockVerdict::kCount);
constexpr UInt32 kMaxBlockFrames = 1u << 16;

// A name that statistics use, "too_short".
const char* GetBlockVerdictName(BlockVerdict inVerdict);

// What the server needs to know of a block beside its samples.
struct BlockShape {
  double mSampleTime = 0.0;  // frames on the client's clock
  uint64_t mHostTime = 0;    // nanoseconds; 0 if the block does not tell
  UInt32 mFrames = 0;
  UInt32 mBuffers = 0;
};

// Checks a block whole, before anything that trusts the sizes in it: header, each record's place,
// channels and frames as the client announced them, a usable time stamp, nothing left over.
//
// Thread: any. Ownership: none; the bytes are only read. Units: bytes and frames.
// Failure: the first thing found wrong is the verdict, and the shape is then not set.
class BlockValidator {
 public:
  explicit BlockValidator(UInt32 inChannels) : mChannels(inChannels) {}

  BlockVerdict Check(const void* inBytes, size_t inSize, BlockShape& outShape) const;

 private:
  UInt32 mChannels;
};

// Writes the samples of a list that passed the check as interleaved frames.
void InterleaveList(const AudioBufferList& inList, UInt32 inChannels, UInt32 inFrames,
                    float* outFrames);

}  // namespace tembra
