#include "client/Snd.h"

#include <mach/mach_time.h>
#include <sys/sysctl.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static_assert(sizeof(AudioTimeStamp) == 64 && offsetof(AudioTimeStamp, mHostTime) == 8 &&
                  offsetof(AudioTimeStamp, mRateScalar) == 16 &&
                  offsetof(AudioTimeStamp, mWordClockTime) == 24 &&
                  offsetof(AudioTimeStamp, mSMPTETime) == 32 &&
                  offsetof(AudioTimeStamp, mFlags) == 56,
              "the time stamp leaves the process as it stands");
static_assert(sizeof(AudioBuffer) == 16 && offsetof(AudioBufferList, mBuffers) == 8);

namespace {

constexpr size_t kCountSize = sizeof(UInt32);

bool IsSplit(const AudioBufferList& inList, bool inDeinterleave) {
  return inDeinterleave && inList.mNumberBuffers == 1 && inList.mBuffers[0].mNumberChannels >= 2;
}

void PutUInt32(std::byte* outTarget, UInt32 inValue) {
  std::memcpy(outTarget, &inValue, sizeof(inValue));
}

UInt32 TakeUInt32(const std::byte* inSource) {
  UInt32 value;
  std::memcpy(&value, inSource, sizeof(value));
  return value;
}

void PutRecordHeader(std::byte* outTarget, UInt32 inChannels, UInt32 inByteSize) {
  PutUInt32(outTarget, inChannels);
  PutUInt32(outTarget + sizeof(UInt32), inByteSize);
}

// A plain loop over whole frames of two 4-byte samples: compilers vectorise it.
void SplitStereo(const std::byte* __restrict inSource, std::byte* __restrict outLeft,
                 std::byte* __restrict outRight, size_t inFrames) {
  for (size_t frame = 0; frame < inFrames; ++frame) {
    UInt32 left;
    UInt32 right;
    std::memcpy(&left, inSource + 8 * frame, 4);
    std::memcpy(&right, inSource + 8 * frame + 4, 4);
    std::memcpy(outLeft + 4 * frame, &left, 4);
    std::memcpy(outRight + 4 * frame, &right, 4);
  }
}

// Where the samples of one channel go. The walk may run one sample past the record's end: into the
// next record, which is written later, or past the block, where it is cut off.
struct ChannelTarget {
  std::byte* mRecord;
  size_t mRecordSize;
  std::byte* mBlockEnd;
};

// Gathers one channel from interleaved samples (zeros if inSource is null) and returns the bytes
// that the walk stepped over in the target.
uint64_t GatherChannel(const ChannelTarget& inTarget, const std::byte* inSource,
                       uint64_t inSourceSize, uint64_t inChannel, uint64_t inSampleSize,
                       uint64_t inStride) {
  if (inSampleSize == 0 || inStride == 0) return 0;
  const uint64_t room = static_cast<uint64_t>(inTarget.mBlockEnd - inTarget.mRecord);
  uint64_t written = 0;
  for (uint64_t walked = inChannel * inSampleSize;
       walked < inSourceSize && written <= inTarget.mRecordSize; walked += inStride) {
    const uint64_t wanted = written < room ? std::min<uint64_t>(inSampleSize, room - written) : 0;
    const uint64_t there =
        inSource != nullptr ? std::min<uint64_t>(wanted, inSourceSize - walked) : 0;
    if (there > 0) std::memcpy(inTarget.mRecord + written, inSource + walked, there);
    if (wanted > there) std::memset(inTarget.mRecord + written + there, 0, wanted - there);
    written += inSampleSize;
  }
  return written;
}

void PutSplitRecords(const AudioStreamBasicDescription& inFormat, const AudioBuffer& inBuffer,
                     std::byte* outRecords, std::byte* inBlockEnd) {
  const UInt32 channels = inBuffer.mNumberChannels;
  const UInt32 byteSize = inBuffer.mDataByteSize / channels;
  const std::byte* source = static_cast<const std::byte*>(inBuffer.mData);
  UInt32 sampleSize = inFormat.mBytesPerFrame;
  if ((inFormat.mFormatFlags & kAudioFormatFlagIsNonInterleaved) == 0) {
    sampleSize = inFormat.mChannelsPerFrame != 0 ? sampleSize / inFormat.mChannelsPerFrame : 0;
  }

  if (channels == 2 && sampleSize == 4 && source != nullptr && inBuffer.mDataByteSize % 8 == 0) {
    std::byte* left = outRecords + kSndRecordHeaderSize;
    std::byte* right = left + byteSize + kSndRecordHeaderSize;
    PutRecordHeader(outRecords, 1, byteSize);
    PutRecordHeader(left + byteSize, 1, byteSize);
    SplitStereo(source, left, right, byteSize / 4);
    return;
  }

  std::byte* record = outRecords;
  std::byte* touched = outRecords;  // the end of what the walk of an earlier channel reached
  for (UInt32 channel = 0; channel < channels; ++channel) {
    std::byte* samples = record + kSndRecordHeaderSize;
    std::byte* recordEnd = samples + byteSize;
    PutRecordHeader(record, 1, byteSize);
    const uint64_t written =
        GatherChannel({samples, byteSize, inBlockEnd}, source, inBuffer.mDataByteSize, channel,
                      sampleSize, static_cast<uint64_t>(sampleSize) * channels);
    const uint64_t room = static_cast<uint64_t>(inBlockEnd - samples);
    touched = std::max(touched, samples + std::min(written, room));
    if (touched < recordEnd) {
      std::memset(touched, 0, static_cast<size_t>(recordEnd - touched));
      touched = recordEnd;
    }
    record = recordEnd;
  }
}

void PutRecord(const AudioBuffer& inBuffer, std::byte* outRecord) {
  PutRecordHeader(outRecord, inBuffer.mNumberChannels, inBuffer.mDataByteSize);
  if (inBuffer.mDataByteSize == 0) return;
  if (inBuffer.mData != nullptr) {
    std::memcpy(outRecord + kSndRecordHeaderSize, inBuffer.mData, inBuffer.mDataByteSize);
  } else {
    std::memset(outRecord + kSndRecordHeaderSize, 0, inBuffer.mDataByteSize);
  }
}

struct FormatTag {
  unsigned int mTag;
  unsigned int mFormatID;
};

constexpr FormatTag kFormatTags[] = {
    {1, kAudioFormatLinearPCM}, {2, kAudioFormatAppleIMA4},   {6, kAudioFormatALaw},
    {7, kAudioFormatULaw},      {85, kAudioFormatMPEGLayer3},
};

// Host ticks to the unit that inUnit (units for each nanosecond) names; 0.0 while the ratio cannot
// be had, and then the next call asks again. Two threads may compute the same value.
double GetHostFactor(std::atomic<double>& ioFactor, double inUnit) {
  double factor = ioFactor.load(std::memory_order_relaxed);
  if (factor == 0.0) {
    mach_timebase_info_data_t info = {0, 0};
    if (mach_timebase_info(&info) != 0 || info.denom == 0) return 0.0;
    factor = static_cast<double>(info.numer) * inUnit / static_cast<double>(info.denom);
    ioFactor.store(factor, std::memory_order_relaxed);
  }
  return factor;
}

}  // namespace

size_t SndGetABLSerializedSize(const AudioBufferList& inList, bool inDeinterleave) noexcept {
  uint64_t size = kSndBlockHeaderSize;
  if (IsSplit(inList, inDeinterleave)) {
    const uint64_t channels = inList.mBuffers[0].mNumberChannels;
    size += channels * (kSndRecordHeaderSize + inList.mBuffers[0].mDataByteSize / channels);
  } else {
    for (UInt32 i = 0; i < inList.mNumberBuffers; ++i) {
      size += kSndRecordHeaderSize + inList.mBuffers[i].mDataByteSize;
    }
  }
  return size <= INT_MAX ? static_cast<size_t>(size) : 0;
}

size_t SndSerializeABL(const AudioTimeStamp& inTime, const AudioStreamBasicDescription& inFormat,
                       const AudioBufferList& inList, bool inDeinterleave, void* outStorage,
                       size_t inStorageSize) noexcept {
  const size_t size = SndGetABLSerializedSize(inList, inDeinterleave);
  if (size == 0 || size > inStorageSize || outStorage == nullptr) return 0;

  std::byte* block = static_cast<std::byte*>(outStorage);
  std::byte* record = block + kSndBlockHeaderSize;
  std::memcpy(block, &inTime, sizeof(inTime));
  if (IsSplit(inList, inDeinterleave)) {
    PutUInt32(block + sizeof(inTime), inList.mBuffers[0].mNumberChannels);
    PutSplitRecords(inFormat, inList.mBuffers[0], record, block + size);
  } else {
    PutUInt32(block + sizeof(inTime), inList.mNumberBuffers);
    for (UInt32 i = 0; i < inList.mNumberBuffers; ++i) {
      PutRecord(inList.mBuffers[i], record);
      record += kSndRecordHeaderSize + inList.mBuffers[i].mDataByteSize;
    }
  }
  return size;
}

void* SndAllocateABLSerilizedBuffer(const AudioTimeStamp& inTime,
                                    const AudioStreamBasicDescription& inFormat,
                                    const AudioBufferList& inList, int* outSize,
                                    bool inDeinterleave) {
  if (outSize != nullptr) *outSize = 0;
  const size_t size = SndGetABLSerializedSize(inList, inDeinterleave);
  void* block = size != 0 ? std::malloc(size) : nullptr;
  if (block != nullptr) {
    SndSerializeABL(inTime, inFormat, inList, inDeinterleave, block, size);
    if (outSize != nullptr) *outSize = static_cast<int>(size);
  }
  return block;
}

void SndFreeABLSerializedBuffer(void* inBlock) {
  std::free(inBlock);
}

AudioBufferList* SndAllocateAudioBufferList(void* inBlock, int inSize, AudioTimeStamp* outTime,
                                            bool inCopyData) {
  // The limits are narrower and wider than the block's layout, and the sender relies on them. A
  // negative size is a very large one.
  uint64_t remaining = static_cast<uint64_t>(static_cast<int64_t>(inSize));
  if (inBlock == nullptr || remaining < sizeof(AudioBufferList)) return nullptr;
  if (outTime != nullptr) *outTime = AudioTimeStamp();

  std::byte* position = static_cast<std::byte*>(inBlock);
  if (remaining <= sizeof(AudioTimeStamp)) return nullptr;
  AudioTimeStamp time;
  std::memcpy(&time, position, sizeof(time));
  position += sizeof(time);
  remaining -= sizeof(time);

  if (remaining <= kCountSize) return nullptr;
  const UInt32 count = TakeUInt32(position);
  position += kCountSize;
  remaining -= kCountSize;
  if (count == 0) return nullptr;

  // Zeroed, so that an early refusal frees no pointer that was never set.
  auto* list = static_cast<AudioBufferList*>(
      std::calloc(1, sizeof(AudioBufferList) + sizeof(AudioBuffer) * (size_t{count} - 1)));
  if (list == nullptr) return nullptr;
  list->mNumberBuffers = count;

  for (UInt32 i = 0; i < count; ++i) {
    AudioBuffer& buffer = list->mBuffers[i];
    if (remaining <= 16) {
      SndFreeABLPointer(list, inCopyData);
      return nullptr;
    }
    buffer.mNumberChannels = TakeUInt32(position);
    buffer.mDataByteSize = TakeUInt32(position + sizeof(UInt32));
    position += kSndRecordHeaderSize;
    remaining -= kSndRecordHeaderSize;
    if (inCopyData) {
      buffer.mData = std::malloc(buffer.mDataByteSize);
      if (buffer.mData == nullptr && buffer.mDataByteSize != 0) {
        SndFreeABLPointer(list, inCopyData);
        return nullptr;
      }
      if (buffer.mDataByteSize != 0) std::memcpy(buffer.mData, position, buffer.mDataByteSize);
    } else {
      buffer.mData = position;
    }
    position += buffer.mDataByteSize;
    remaining -= buffer.mDataByteSize;
  }
  if (outTime != nullptr) *outTime = time;
  return list;
}

void SndFreeABLPointer(AudioBufferList* inList, bool inDataCopied) {
  if (inList == nullptr) return;
  if (inDataCopied) {
    for (UInt32 i = 0; i < inList->mNumberBuffers; ++i) std::free(inList->mBuffers[i].mData);
  }
  std::free(inList);
}

CFDataRef CFDataCreateWithABL(const AudioTimeStamp& inTime,
                              const AudioStreamBasicDescription& inFormat,
                              const AudioBufferList& inList, bool inDeinterleave) {
  int size = 0;
  void* block = SndAllocateABLSerilizedBuffer(inTime, inFormat, inList, &size, inDeinterleave);
  if (block == nullptr) return nullptr;
  CFDataRef data = CFDataCreate(kCFAllocatorDefault, static_cast<const UInt8*>(block), size);
  SndFreeABLSerializedBuffer(block);
  return data;
}

AudioBufferList* CFDataCopyABL(const __CFData* inData, AudioTimeStamp* outTime, bool inCopyData) {
  if (inData == nullptr || CFGetTypeID(inData) != CFDataGetTypeID()) return nullptr;
  // The list may point into the data but nothing here writes through it.
  return SndAllocateAudioBufferList(const_cast<UInt8*>(CFDataGetBytePtr(inData)),
                                    static_cast<int>(CFDataGetLength(inData)), outTime, inCopyData);
}

double SndWaveTimeStampFromNanosec(unsigned long long inNanosec) {
  return static_cast<double>(inNanosec) * 1e-9;
}

unsigned long long SndWaveTimeStampToNanosec(double inSeconds) {
  const double nanos = inSeconds * 1e9;
  if (!(nanos > 0.0)) return 0;
  if (nanos >= 18446744073709551616.0) return ULLONG_MAX;
  return static_cast<unsigned long long>(nanos);
}

double SndWaveTimeStampFromWin(unsigned short inMilliseconds) {
  return static_cast<double>(inMilliseconds) / 1000.0;
}

unsigned short SndWaveTimeStampToWin(double inSeconds) {
  const double milliseconds = inSeconds * 1000.0;
  if (!(milliseconds >= -9223372036854775808.0 && milliseconds < 9223372036854775808.0)) return 0;
  return static_cast<unsigned short>(static_cast<int64_t>(milliseconds));
}

double SndGetUptime() {
  timeval bootTime = {};
  size_t size = sizeof(bootTime);
  double boot = 0.0;
  if (sysctlbyname("kern.boottime", &bootTime, &size, nullptr, 0) == 0) {
    boot = static_cast<double>(bootTime.tv_sec) + static_cast<double>(bootTime.tv_usec) / 1000000.0;
  } else {
    std::printf("error: sysctlbyname failed!");
  }
  return CFAbsoluteTimeGetCurrent() + 978307200.0 - boot;
}

unsigned long long SndGetHostTime() {
  static std::atomic<double> sFactor{0.0};
  const double factor = GetHostFactor(sFactor, 1.0);
  return static_cast<unsigned long long>(static_cast<double>(mach_absolute_time()) * factor);
}

double SndGetWaveTimeStamp() {
  static std::atomic<double> sFactor{0.0};
  const double factor = GetHostFactor(sFactor, 1e-9);
  return static_cast<double>(mach_absolute_time()) * factor;
}

unsigned short SndGetWinWaveTimeStamp() {
  return SndWaveTimeStampToWin(SndGetWaveTimeStamp());
}

unsigned int SndCAAudioFormatIDFromRDP(unsigned int inTag) {
  for (const FormatTag& entry : kFormatTags) {
    if (entry.mTag == inTag) return entry.mFormatID;
  }
  return 0;
}

unsigned int SndCAAudioFormatIDToRDP(unsigned int inFormatID) {
  for (const FormatTag& entry : kFormatTags) {
    if (entry.mFormatID == inFormatID) return entry.mTag;
  }
  return 0;
}
