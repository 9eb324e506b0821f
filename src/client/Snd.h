#pragma once

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>

// The codec of the data port: an AudioBufferList and its time stamp as one flat block, and back;
// beside it the small time and format conversions that the device and the server share.
//
// The block, little-endian and unaligned:
//
//   0        64         68              72               76
//   | stamp  | buffers  | channels      | bytes          | samples ... | next record
//   | 64     | uint32   | uint32        | uint32         | bytes       |
//
// Thread: any; no state but two cached factors.
// Ownership: what an Allocate, Create or Copy function returns is the caller's.
// Units: bytes; wave time stamps are seconds.
// Failure: null, 0, or as told; nothing is thrown.

// What stands before a block's first record, and before a record's samples.
inline constexpr size_t kSndBlockHeaderSize = sizeof(AudioTimeStamp) + sizeof(UInt32);
inline constexpr size_t kSndRecordHeaderSize = 2 * sizeof(UInt32);

// The size of the block that the list makes; 0 if it would not fit an int.
size_t SndGetABLSerializedSize(const AudioBufferList& inList, bool inDeinterleave) noexcept;

// Writes the block into storage of at least SndGetABLSerializedSize bytes and returns that size, or
// 0 if the storage is too small. Allocates nothing, takes no lock, makes no system call: the I/O
// thread's way. Bytes of a record that no sample reaches are zero.
size_t SndSerializeABL(const AudioTimeStamp& inTime, const AudioStreamBasicDescription& inFormat,
                       const AudioBufferList& inList, bool inDeinterleave, void* outStorage,
                       size_t inStorageSize) noexcept;

// A block from malloc, or null. With inDeinterleave, the one buffer of two or more channels goes
// out as one record for each channel; a null mData then stands for silence. Any other list goes out
// as it is and may have no null mData. inFormat must not have zero channels. outSize may be null.
void* SndAllocateABLSerilizedBuffer(const AudioTimeStamp& inTime,
                                    const AudioStreamBasicDescription& inFormat,
                                    const AudioBufferList& inList, int* outSize,
                                    bool inDeinterleave);
void SndFreeABLSerializedBuffer(void* inBlock);

// A list from malloc, or null. The sizes that stand in the block are believed: who takes blocks
// from another process checks them first. Without inCopyData the list's mData lead into the block.
// outTime may be null.
AudioBufferList* SndAllocateAudioBufferList(void* inBlock, int inSize, AudioTimeStamp* outTime,
                                            bool inCopyData);
// inDataCopied must be the flag that the list was made with.
void SndFreeABLPointer(AudioBufferList* inList, bool inDataCopied);

// The same two with the block in a CFData, which must outlive a list whose data were not copied.
CFDataRef CFDataCreateWithABL(const AudioTimeStamp& inTime,
                              const AudioStreamBasicDescription& inFormat,
                              const AudioBufferList& inList, bool inDeinterleave);
AudioBufferList* CFDataCopyABL(const __CFData* inData, AudioTimeStamp* outTime, bool inCopyData);

double SndWaveTimeStampFromNanosec(unsigned long long inNanosec);
// Truncates; what is outside the range gives the nearest end of it.
unsigned long long SndWaveTimeStampToNanosec(double inSeconds);
double SndWaveTimeStampFromWin(unsigned short inMilliseconds);
// Milliseconds modulo 65536.
unsigned short SndWaveTimeStampToWin(double inSeconds);
// Seconds since the system started.
double SndGetUptime();
// The host clock, in nanoseconds, in seconds and in milliseconds modulo 65536.
unsigned long long SndGetHostTime();
double SndGetWaveTimeStamp();
unsigned short SndGetWinWaveTimeStamp();

// RDP wave format tags and format IDs; 0 for what has no counterpart.
unsigned int SndCAAudioFormatIDFromRDP(unsigned int inTag);
unsigned int SndCAAudioFormatIDToRDP(unsigned int inFormatID);
