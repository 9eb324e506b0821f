// Holds size and offsets of every structure that crosses a border: to the HAL, to another process,
// to the kernel. Compiled for each target that src/ is compiled for, never linked and never run: a
// layout that differs does not compile.

#include <CoreAudio/AudioHardwarePlugIn.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <mach/mach.h>
#include <mach/mach_time.h>

#include <cstddef>
#include <type_traits>

#include "client/Snd.h"
#include "client/TMBAudioServer.h"
#include "telemetry/CAHALIOCycleRawTelemetryEvent.h"

namespace {

template <typename T, size_t inSize>
constexpr bool kIs =
    sizeof(T) == inSize&& std::is_trivially_copyable_v<T>&& std::is_standard_layout_v<T>;

// Numbers
static_assert(sizeof(void*) == 8 && sizeof(long) == 8);
static_assert(sizeof(Boolean) == 1 && sizeof(UniChar) == 2 && sizeof(OSErr) == 2);
static_assert(sizeof(SInt32) == 4 && sizeof(UInt32) == 4 && sizeof(OSStatus) == 4);
static_assert(sizeof(SInt64) == 8 && sizeof(UInt64) == 8);
static_assert(sizeof(Float32) == 4 && sizeof(Float64) == 8);
static_assert(sizeof(CFIndex) == 8 && sizeof(CFTypeID) == 8 && sizeof(CFOptionFlags) == 8);
static_assert(sizeof(CFComparisonResult) == 8 && sizeof(CFRunLoopRunResult) == 4);
static_assert(std::is_same_v<CFAbsoluteTime, double> && std::is_same_v<CFTimeInterval, double>);
static_assert(std::is_signed_v<OSStatus> && std::is_signed_v<SInt32> && std::is_signed_v<CFIndex>);
// A four-character code's text reads from the high byte down.
static_assert('cadd' == 0x63616464 && static_cast<OSStatus>('who?') == 0x77686F3F);
static_assert(std::is_same_v<AudioObjectID, UInt32> && std::is_same_v<AudioClassID, UInt32>);

// Times and formats
static_assert(kIs<SMPTETime, 24>);
static_assert(offsetof(SMPTETime, mSubframes) == 0);
static_assert(offsetof(SMPTETime, mSubframeDivisor) == 2);
static_assert(offsetof(SMPTETime, mCounter) == 4);
static_assert(offsetof(SMPTETime, mType) == 8);
static_assert(offsetof(SMPTETime, mFlags) == 12);
static_assert(offsetof(SMPTETime, mHours) == 16);
static_assert(offsetof(SMPTETime, mMinutes) == 18);
static_assert(offsetof(SMPTETime, mSeconds) == 20);
static_assert(offsetof(SMPTETime, mFrames) == 22);

static_assert(kIs<AudioTimeStamp, 64>);
static_assert(offsetof(AudioTimeStamp, mSampleTime) == 0);
static_assert(offsetof(AudioTimeStamp, mHostTime) == 8);
static_assert(offsetof(AudioTimeStamp, mRateScalar) == 16);
static_assert(offsetof(AudioTimeStamp, mWordClockTime) == 24);
static_assert(offsetof(AudioTimeStamp, mSMPTETime) == 32);
static_assert(offsetof(AudioTimeStamp, mFlags) == 56);
static_assert(offsetof(AudioTimeStamp, mReserved) == 60);

static_assert(kIs<AudioStreamBasicDescription, 40>);
static_assert(offsetof(AudioStreamBasicDescription, mSampleRate) == 0);
static_assert(offsetof(AudioStreamBasicDescription, mFormatID) == 8);
static_assert(offsetof(AudioStreamBasicDescription, mFormatFlags) == 12);
static_assert(offsetof(AudioStreamBasicDescription, mBytesPerPacket) == 16);
static_assert(offsetof(AudioStreamBasicDescription, mFramesPerPacket) == 20);
static_assert(offsetof(AudioStreamBasicDescription, mBytesPerFrame) == 24);
static_assert(offsetof(AudioStreamBasicDescription, mChannelsPerFrame) == 28);
static_assert(offsetof(AudioStreamBasicDescription, mBitsPerChannel) == 32);
static_assert(offsetof(AudioStreamBasicDescription, mReserved) == 36);

static_assert(kIs<AudioStreamRangedDescription, 56>);
static_assert(offsetof(AudioStreamRangedDescription, mFormat) == 0);
static_assert(offsetof(AudioStreamRangedDescription, mSampleRateRange) == 40);

static_assert(kIs<AudioValueRange, 16>);
static_assert(offsetof(AudioValueRange, mMinimum) == 0);
static_assert(offsetof(AudioValueRange, mMaximum) == 8);

static_assert(kIs<AudioValueTranslation, 32>);
static_assert(offsetof(AudioValueTranslation, mInputData) == 0);
static_assert(offsetof(AudioValueTranslation, mInputDataSize) == 8);
static_assert(offsetof(AudioValueTranslation, mOutputData) == 16);
static_assert(offsetof(AudioValueTranslation, mOutputDataSize) == 24);

// Buffers and layouts; each ends in the first of a variable number of entries
static_assert(kIs<AudioBuffer, 16>);
static_assert(offsetof(AudioBuffer, mNumberChannels) == 0);
static_assert(offsetof(AudioBuffer, mDataByteSize) == 4);
static_assert(offsetof(AudioBuffer, mData) == 8);
static_assert(kIs<AudioBufferList, 24>);
static_assert(offsetof(AudioBufferList, mNumberBuffers) == 0);
static_assert(offsetof(AudioBufferList, mBuffers) == 8);

static_assert(kIs<AudioChannelDescription, 20>);
static_assert(offsetof(AudioChannelDescription, mChannelLabel) == 0);
static_assert(offsetof(AudioChannelDescription, mChannelFlags) == 4);
static_assert(offsetof(AudioChannelDescription, mCoordinates) == 8);
static_assert(kIs<AudioChannelLayout, 32>);
static_assert(offsetof(AudioChannelLayout, mChannelLayoutTag) == 0);
static_assert(offsetof(AudioChannelLayout, mChannelBitmap) == 4);
static_assert(offsetof(AudioChannelLayout, mNumberChannelDescriptions) == 8);
static_assert(offsetof(AudioChannelLayout, mChannelDescriptions) == 12);

static_assert(kIs<AudioHardwareIOProcStreamUsage, 16>);
static_assert(offsetof(AudioHardwareIOProcStreamUsage, mIOProc) == 0);
static_assert(offsetof(AudioHardwareIOProcStreamUsage, mNumberStreams) == 8);
static_assert(offsetof(AudioHardwareIOProcStreamUsage, mStreamIsOn) == 12);

// Objects
static_assert(kIs<AudioObjectPropertyAddress, 12>);
static_assert(offsetof(AudioObjectPropertyAddress, mSelector) == 0);
static_assert(offsetof(AudioObjectPropertyAddress, mScope) == 4);
static_assert(offsetof(AudioObjectPropertyAddress, mElement) == 8);

// The plug-in's interface: the reserved word and 30 entries, in this order.
using Vector = AudioHardwarePlugInInterface;
constexpr size_t Word(size_t inIndex) {
  return inIndex * sizeof(void*);
}
static_assert(kIs<Vector, 31 * 8>);
static_assert(offsetof(Vector, _reserved) == Word(0));
static_assert(offsetof(Vector, QueryInterface) == Word(1));
static_assert(offsetof(Vector, AddRef) == Word(2));
static_assert(offsetof(Vector, Release) == Word(3));
static_assert(offsetof(Vector, Initialize) == Word(4));
static_assert(offsetof(Vector, Teardown) == Word(5));
static_assert(offsetof(Vector, DeviceAddIOProc) == Word(6));
static_assert(offsetof(Vector, DeviceRemoveIOProc) == Word(7));
static_assert(offsetof(Vector, DeviceStart) == Word(8));
static_assert(offsetof(Vector, DeviceStop) == Word(9));
static_assert(offsetof(Vector, DeviceRead) == Word(10));
static_assert(offsetof(Vector, DeviceGetCurrentTime) == Word(11));
static_assert(offsetof(Vector, DeviceTranslateTime) == Word(12));
static_assert(offsetof(Vector, DeviceGetPropertyInfo) == Word(13));
static_assert(offsetof(Vector, DeviceGetProperty) == Word(14));
static_assert(offsetof(Vector, DeviceSetProperty) == Word(15));
static_assert(offsetof(Vector, StreamGetPropertyInfo) == Word(16));
static_assert(offsetof(Vector, StreamGetProperty) == Word(17));
static_assert(offsetof(Vector, StreamSetProperty) == Word(18));
static_assert(offsetof(Vector, DeviceStartAtTime) == Word(19));
static_assert(offsetof(Vector, DeviceGetNearestStartTime) == Word(20));
static_assert(offsetof(Vector, InitializeWithObjectID) == Word(21));
static_assert(offsetof(Vector, ObjectShow) == Word(22));
static_assert(offsetof(Vector, ObjectHasProperty) == Word(23));
static_assert(offsetof(Vector, ObjectIsPropertySettable) == Word(24));
static_assert(offsetof(Vector, ObjectGetPropertyDataSize) == Word(25));
static_assert(offsetof(Vector, ObjectGetPropertyData) == Word(26));
static_assert(offsetof(Vector, ObjectSetPropertyData) == Word(27));
static_assert(offsetof(Vector, DeviceCreateIOProcID) == Word(28));
static_assert(offsetof(Vector, DeviceDestroyIOProcID) == Word(29));
static_assert(offsetof(Vector, DeviceCreateIOProcIDWithBlock) == Word(30));

// What is handed to CoreFoundation
static_assert(kIs<CFRange, 16>);
static_assert(offsetof(CFRange, location) == 0 && offsetof(CFRange, length) == 8);
static_assert(kIs<CFUUIDBytes, 16>);
static_assert(offsetof(CFUUIDBytes, byte0) == 0 && offsetof(CFUUIDBytes, byte15) == 15);

static_assert(kIs<CFAllocatorContext, 72>);
static_assert(offsetof(CFAllocatorContext, version) == 0);
static_assert(offsetof(CFAllocatorContext, info) == 8);
static_assert(offsetof(CFAllocatorContext, retain) == 16);
static_assert(offsetof(CFAllocatorContext, release) == 24);
static_assert(offsetof(CFAllocatorContext, copyDescription) == 32);
static_assert(offsetof(CFAllocatorContext, allocate) == 40);
static_assert(offsetof(CFAllocatorContext, reallocate) == 48);
static_assert(offsetof(CFAllocatorContext, deallocate) == 56);
static_assert(offsetof(CFAllocatorContext, preferredSize) == 64);

static_assert(kIs<CFMessagePortContext, 40>);
static_assert(offsetof(CFMessagePortContext, version) == 0);
static_assert(offsetof(CFMessagePortContext, info) == 8);
static_assert(offsetof(CFMessagePortContext, retain) == 16);
static_assert(offsetof(CFMessagePortContext, release) == 24);
static_assert(offsetof(CFMessagePortContext, copyDescription) == 32);

static_assert(kIs<CFRunLoopTimerContext, 40>);
static_assert(offsetof(CFRunLoopTimerContext, version) == 0);
static_assert(offsetof(CFRunLoopTimerContext, info) == 8);
static_assert(offsetof(CFRunLoopTimerContext, retain) == 16);
static_assert(offsetof(CFRunLoopTimerContext, release) == 24);
static_assert(offsetof(CFRunLoopTimerContext, copyDescription) == 32);

static_assert(kIs<CFRunLoopSourceContext, 80>);
static_assert(offsetof(CFRunLoopSourceContext, version) == 0);
static_assert(offsetof(CFRunLoopSourceContext, info) == 8);
static_assert(offsetof(CFRunLoopSourceContext, retain) == 16);
static_assert(offsetof(CFRunLoopSourceContext, release) == 24);
static_assert(offsetof(CFRunLoopSourceContext, copyDescription) == 32);
static_assert(offsetof(CFRunLoopSourceContext, equal) == 40);
static_assert(offsetof(CFRunLoopSourceContext, hash) == 48);
static_assert(offsetof(CFRunLoopSourceContext, schedule) == 56);
static_assert(offsetof(CFRunLoopSourceContext, cancel) == 64);
static_assert(offsetof(CFRunLoopSourceContext, perform) == 72);

static_assert(kIs<CFArrayCallBacks, 40>);
static_assert(offsetof(CFArrayCallBacks, version) == 0);
static_assert(offsetof(CFArrayCallBacks, retain) == 8);
static_assert(offsetof(CFArrayCallBacks, release) == 16);
static_assert(offsetof(CFArrayCallBacks, copyDescription) == 24);
static_assert(offsetof(CFArrayCallBacks, equal) == 32);
static_assert(kIs<CFDictionaryKeyCallBacks, 48>);
static_assert(offsetof(CFDictionaryKeyCallBacks, retain) == 8);
static_assert(offsetof(CFDictionaryKeyCallBacks, release) == 16);
static_assert(offsetof(CFDictionaryKeyCallBacks, copyDescription) == 24);
static_assert(offsetof(CFDictionaryKeyCallBacks, equal) == 32);
static_assert(offsetof(CFDictionaryKeyCallBacks, hash) == 40);
static_assert(kIs<CFDictionaryValueCallBacks, 40>);
static_assert(offsetof(CFDictionaryValueCallBacks, equal) == 32);

// What is handed to the kernel; the other platform's own headers say the same
static_assert(kIs<mach_timebase_info_data_t, 8>);
static_assert(offsetof(mach_timebase_info_data_t, numer) == 0);
static_assert(offsetof(mach_timebase_info_data_t, denom) == 4);
static_assert(sizeof(vm_address_t) == 8 && sizeof(vm_size_t) == 8 && sizeof(mach_port_t) == 4);
static_assert(kIs<vm_region_basic_info_data_64_t, 36>);
static_assert(offsetof(vm_region_basic_info_data_64_t, protection) == 0);
static_assert(offsetof(vm_region_basic_info_data_64_t, max_protection) == 4);
static_assert(offsetof(vm_region_basic_info_data_64_t, offset) == 20);
static_assert(VM_REGION_BASIC_INFO_64 == 9 && VM_REGION_BASIC_INFO_COUNT_64 == 9);
static_assert(VM_PROT_READ == 1 && VM_PROT_WRITE == 2 && VM_PROT_EXECUTE == 4 &&
              VM_PROT_COPY == 0x10);
static_assert(VM_FLAGS_FIXED == 0 && VM_FLAGS_ANYWHERE == 1);
static_assert(kIs<thread_time_constraint_policy_data_t, 16>);
static_assert(offsetof(thread_time_constraint_policy_data_t, period) == 0);
static_assert(offsetof(thread_time_constraint_policy_data_t, computation) == 4);
static_assert(offsetof(thread_time_constraint_policy_data_t, constraint) == 8);
static_assert(offsetof(thread_time_constraint_policy_data_t, preemptible) == 12);
static_assert(THREAD_TIME_CONSTRAINT_POLICY == 2 && THREAD_TIME_CONSTRAINT_POLICY_COUNT == 4);
static_assert(kIs<thread_extended_policy_data_t, 4> && THREAD_EXTENDED_POLICY == 1);
static_assert(kIs<thread_precedence_policy_data_t, 4> && THREAD_PRECEDENCE_POLICY == 3);
static_assert(THREAD_BASIC_INFO == 3 && THREAD_BASIC_INFO_COUNT == 10);
static_assert(offsetof(thread_basic_info_data_t, policy) == 20);
static_assert(THREAD_SCHED_TIMESHARE_INFO == 10 && POLICY_TIMESHARE_INFO_COUNT == 5);
static_assert(THREAD_SCHED_RR_INFO == 11 && POLICY_RR_INFO_COUNT == 5);
static_assert(THREAD_SCHED_FIFO_INFO == 12 && POLICY_FIFO_INFO_COUNT == 4);
static_assert(POLICY_TIMESHARE == 1 && POLICY_RR == 2 && POLICY_FIFO == 4);

// What goes to another process
static_assert(kIs<CAHALIOCycleRawTelemetryEvent, 72>);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mTime) == 0);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mKind) == 8);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mIOCycle) == 12);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mValues) == 16);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mWideValues) == 48);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mError) == 64);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mFlags) == 68);

// The block: the time stamp as it stands and the count of records, then for each its channels and
// bytes.
static_assert(kSndBlockHeaderSize == 68 && kSndRecordHeaderSize == 8);

// Message and event codes
static_assert(kTMBAudioMessageAddID == 0x63616464 && kTMBAudioMessageEchoID == 0x6563686F);
static_assert(kTMBAudioMessageDisposeID == 0x6364656C && kTMBAudioMessageDataID == 0);
static_assert(kTMBAudioServerEventStart == 0x73747274 && kTMBAudioServerEventFinish == 0x666E7368);
static_assert(kTMBAudioServerEventClientAdded == 0x63616464 &&
              kTMBAudioServerEventClientDeleted == 0x6364656C &&
              kTMBAudioServerEventClientCheck == 0x6363686B);

}  // namespace
