#include "server/BlockValidator.h"

#include <cmath>
#include <cstring>

namespace tembra {

namespace {

constexpr size_t kHeaderSize = sizeof(AudioTimeStamp) + sizeof(UInt32);
constexpr size_t kRecordHeaderSize = 2 * sizeof(UInt32);
// The block's reader wants more than this before each record, headers included.
constexpr size_t kReaderMinimum = 16;
constexpr double kMaxSampleTime = 9007199254740992.0;  // 2^53: whole frames stay exact

UInt32 ReadUInt32(const std::byte* inSource) {
  UInt32 value;
  std::memcpy(&value, inSource, sizeof(value));
  return value;
}

bool IsTimeUsable(const AudioTimeStamp& inTime) {
  return (inTime.mFlags & kAudioTimeStampSampleTimeValid) != 0 &&
         std::isfinite(inTime.mSampleTime) && std::fabs(inTime.mSampleTime) < kMaxSampleTime;
}

}  // namespace

const char* GetBlockVerdictName(BlockVerdict inVerdict) {
  switch (inVerdict) {
    case BlockVerdict::kOk:
      return "ok";
    case BlockVerdict::kWrongMessage:
      return "wrong_message";
    case BlockVerdict::kWrongSender:
      return "wrong_sender";
    case BlockVerdict::kTooShort:
      return "too_short";
    case BlockVerdict::kNoBuffers:
      return "no_buffers";
    case BlockVerdict::kTooManyBuffers:
      return "too_many_buffers";
    case BlockVerdict::kTruncated:
      return "truncated";
    case BlockVerdict::kTrailingBytes:
      return "trailing_bytes";
    case BlockVerdict::kWrongChannels:
      return "wrong_channels";
    case BlockVerdict::kUnevenBuffers:
      return "uneven_buffers";
    case BlockVerdict::kTooManyFrames:
      return "too_many_frames";
    case BlockVerdict::kTooSmall:
      return "too_small";
    case BlockVerdict::kBadTime:
      return "bad_time";
    case BlockVerdict::kCount:
      break;
  }
  return "unknown";
}

BlockVerdict BlockValidator::Check(const void* inBytes, size_t inSize, BlockShape& outShape) const {
  if (inSize < kHeaderSize) return BlockVerdict::kTooShort;
  const std::byte* bytes = static_cast<const std::byte*>(inBytes);
  const UInt32 count = ReadUInt32(bytes + sizeof(AudioTimeStamp));
  if (count == 0) return BlockVerdict::kNoBuffers;
  if (count > mChannels) return BlockVerdict::kTooManyBuffers;

  size_t position = kHeaderSize;
  uint64_t channels = 0;
  uint64_t frames = 0;
  bool tooSmall = false;
  for (UInt32 i = 0; i < count; ++i) {
    if (inSize - position < kRecordHeaderSize) return BlockVerdict::kTruncated;
    tooSmall = tooSmall || inSize - position <= kReaderMinimum;
    const UInt32 recordChannels = ReadUInt32(bytes + position);
    const UInt32 recordSize = ReadUInt32(bytes + position + sizeof(UInt32));
    position += kRecordHeaderSize;
    if (inSize - position < recordSize) return BlockVerdict::kTruncated;
    position += recordSize;
    if (recordChannels == 0 || recordChannels > mChannels) return BlockVerdict::kWrongChannels;
    const uint64_t frameSize = uint64_t{4} * recordChannels;
    if (recordSize % frameSize != 0) return BlockVerdict::kUnevenBuffers;
    if (i > 0 && recordSize / frameSize != frames) return BlockVerdict::kUnevenBuffers;
    frames = recordSize / frameSize;
    channels += recordChannels;
  }
  if (position != inSize) return BlockVerdict::kTrailingBytes;
  if (channels != mChannels) return BlockVerdict::kWrongChannels;
  if (frames > kMaxBlockFrames) return BlockVerdict::kTooManyFrames;
  if (tooSmall || frames == 0) return BlockVerdict::kTooSmall;

  AudioTimeStamp time;
  std::memcpy(&time, bytes, sizeof(time));
  if (!IsTimeUsable(time)) return BlockVerdict::kBadTime;
  outShape.mSampleTime = time.mSampleTime;
  outShape.mHostTime = (time.mFlags & kAudioTimeStampHostTimeValid) != 0 ? time.mHostTime : 0;
  outShape.mFrames = static_cast<UInt32>(frames);
  outShape.mBuffers = count;
  return BlockVerdict::kOk;
}

void InterleaveList(const AudioBufferList& inList, UInt32 inChannels, UInt32 inFrames,
                    float* outFrames) {
  UInt32 first = 0;
  for (UInt32 i = 0; i < inList.mNumberBuffers; ++i) {
    const AudioBuffer& buffer = inList.mBuffers[i];
    // The samples lie wherever the block put them, aligned or not.
    const std::byte* source = static_cast<const std::byte*>(buffer.mData);
    float* target = outFrames + first;
    if (buffer.mNumberChannels == 1) {
      for (size_t frame = 0; frame < inFrames; ++frame) {
        std::memcpy(target + frame * inChannels, source + 4 * frame, 4);
      }
    } else {
      const size_t frameSize = size_t{4} * buffer.mNumberChannels;
      for (size_t frame = 0; frame < inFrames; ++frame) {
        std::memcpy(target + frame * inChannels, source + frame * frameSize, frameSize);
      }
    }
    first += buffer.mNumberChannels;
  }
}

}  // namespace tembra
