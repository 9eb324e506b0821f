#include "client/TMBAudioClientInfo.h"

#include <unistd.h>

#include "support/cfarptr.h"

const CFStringRef kTMBAudioMessageDataClientUIDKey = CFSTR("uid");
const CFStringRef kTMBAudioMessageDataClientPIDKey = CFSTR("pid");
const CFStringRef kTMBAudioMessageDataBufferFramesKey = CFSTR("frsz");
const CFStringRef kTMBAudioMessageDataSampleRateKey = CFSTR("rate");
const CFStringRef kTMBAudioMessageDataFormatIDKey = CFSTR("format");
const CFStringRef kTMBAudioMessageDataFormatFlagsKey = CFSTR("flags");
const CFStringRef kTMBAudioMessageDataBytesPerPacketKey = CFSTR("bpp");
const CFStringRef kTMBAudioMessageDataFramesPerPacketKey = CFSTR("fpp");
const CFStringRef kTMBAudioMessageDataBytesPerFrameKey = CFSTR("bpf");
const CFStringRef kTMBAudioMessageDataBitsPerChannelKey = CFSTR("bpch");
const CFStringRef kTMBAudioMessageDataChannelsPerFrameKey = CFSTR("chpf");

namespace {

// What every object starts with. It stands in the message all the same, whatever the device's
// buffer size is.
constexpr UInt32 kBufferFrames = 512;

void AddNumber(CFMutableDictionaryRef ioDictionary, CFStringRef inKey, CFNumberType inType,
               const void* inValue) {
  cfarptr<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, inType, inValue), false);
  if (number != nullptr) CFDictionaryAddValue(ioDictionary, inKey, number);
}

// The number under a key. The message comes from another process, so what is no number counts as
// missing.
CFNumberRef GetNumber(CFDictionaryRef inDictionary, CFStringRef inKey) {
  CFTypeRef value = CFDictionaryGetValue(inDictionary, inKey);
  if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID()) return nullptr;
  return static_cast<CFNumberRef>(value);
}

// Identity is only taken from a number that fits.
template <typename T>
void ReadExactly(CFDictionaryRef inDictionary, CFStringRef inKey, T& ioField) {
  static_assert(sizeof(T) == sizeof(SInt32));
  SInt32 value = 0;
  CFNumberRef number = GetNumber(inDictionary, inKey);
  if (number != nullptr && CFNumberGetValue(number, kCFNumberSInt32Type, &value)) {
    ioField = static_cast<T>(value);
  }
}

void ReadInto(CFDictionaryRef inDictionary, CFStringRef inKey, CFNumberType inType,
              void* outField) {
  if (CFNumberRef number = GetNumber(inDictionary, inKey)) {
    CFNumberGetValue(number, inType, outField);
  }
}

// The dictionary that a message holds, or null; the caller releases it.
CFDictionaryRef CopyDictionary(const __CFData* inMessage) {
  if (inMessage == nullptr || CFGetTypeID(inMessage) != CFDataGetTypeID()) return nullptr;
  CFPropertyListFormat format = kCFPropertyListBinaryFormat_v1_0;
  cfarptr<CFPropertyListRef> list(
      __TMBCFPropertyListCreateWithData(kCFAllocatorDefault, inMessage, 0, &format, nullptr),
      false);
  if (list == nullptr || CFGetTypeID(list) != CFDictionaryGetTypeID()) return nullptr;
  return static_cast<CFDictionaryRef>(CFRetain(list));
}

}  // namespace

CFDataRef __TMBCFPropertyListCreateData(CFAllocatorRef inAllocator, CFPropertyListRef inList,
                                        CFPropertyListFormat inFormat, CFOptionFlags inOptions,
                                        CFErrorRef* outError) {
  return CFPropertyListCreateData(inAllocator, inList, inFormat, inOptions, outError);
}

CFPropertyListRef __TMBCFPropertyListCreateWithData(CFAllocatorRef inAllocator, CFDataRef inData,
                                                    CFOptionFlags inOptions,
                                                    CFPropertyListFormat* outFormat,
                                                    CFStringRef* outErrorString) {
  CFErrorRef error = nullptr;
  CFPropertyListRef list =
      CFPropertyListCreateWithData(inAllocator, inData, inOptions, outFormat, &error);
  if (outErrorString != nullptr) {
    *outErrorString = error != nullptr ? CFErrorCopyDescription(error) : nullptr;
  }
  if (error != nullptr) CFRelease(error);
  return list;
}

TMBAudioClientInfo::TMBAudioClientInfo()
    : mClientUID(getuid()), mClientPID(getpid()), mBufferFrames(kBufferFrames), mStreamFormat() {
  ResetFormat();
}

TMBAudioClientInfo::TMBAudioClientInfo(unsigned int inUID, int inPID,
                                       const AudioStreamBasicDescription& inFormat)
    : mClientUID(inUID), mClientPID(inPID), mBufferFrames(kBufferFrames), mStreamFormat(inFormat) {}

TMBAudioClientInfo::TMBAudioClientInfo(const __CFData* inMessage)
    : mClientUID(getuid()), mClientPID(getpid()), mBufferFrames(kBufferFrames), mStreamFormat() {
  cfarptr<CFDictionaryRef> dictionary(CopyDictionary(inMessage), false);
  if (dictionary != nullptr) {
    *this = inMessage;
  } else {
    ResetFormat();
  }
}

TMBAudioClientInfo::TMBAudioClientInfo(const TMBAudioClientInfo& inOther)
    : mClientUID(getuid()), mClientPID(getpid()), mBufferFrames(kBufferFrames), mStreamFormat() {
  *this = inOther;
}

TMBAudioClientInfo& TMBAudioClientInfo::operator=(const AudioStreamBasicDescription& inFormat) {
  mStreamFormat = inFormat;
  return *this;
}

TMBAudioClientInfo& TMBAudioClientInfo::operator=(const TMBAudioClientInfo& inOther) {
  mClientUID = inOther.mClientUID;
  mClientPID = inOther.mClientPID;
  mStreamFormat = inOther.mStreamFormat;
  return *this;
}

TMBAudioClientInfo& TMBAudioClientInfo::operator=(const __CFData* inMessage) {
  cfarptr<CFDictionaryRef> dictionary(CopyDictionary(inMessage), false);
  if (dictionary != nullptr) ReadDictionary(dictionary);
  return *this;
}

void TMBAudioClientInfo::ResetFormat() {
  FillOutASBDForLPCM(mStreamFormat, 44100.0, 2, 32, 32, true, false, false);
}

void TMBAudioClientInfo::ReadDictionary(CFDictionaryRef inDictionary) {
  ReadExactly(inDictionary, kTMBAudioMessageDataClientUIDKey, mClientUID);
  ReadExactly(inDictionary, kTMBAudioMessageDataClientPIDKey, mClientPID);
  ReadInto(inDictionary, kTMBAudioMessageDataBufferFramesKey, kCFNumberSInt32Type, &mBufferFrames);
  ReadInto(inDictionary, kTMBAudioMessageDataSampleRateKey, kCFNumberFloat64Type,
           &mStreamFormat.mSampleRate);
  ReadInto(inDictionary, kTMBAudioMessageDataFormatIDKey, kCFNumberSInt32Type,
           &mStreamFormat.mFormatID);
  ReadInto(inDictionary, kTMBAudioMessageDataFormatFlagsKey, kCFNumberSInt32Type,
           &mStreamFormat.mFormatFlags);
  ReadInto(inDictionary, kTMBAudioMessageDataBytesPerPacketKey, kCFNumberSInt32Type,
           &mStreamFormat.mBytesPerPacket);
  ReadInto(inDictionary, kTMBAudioMessageDataFramesPerPacketKey, kCFNumberSInt32Type,
           &mStreamFormat.mFramesPerPacket);
  ReadInto(inDictionary, kTMBAudioMessageDataBytesPerFrameKey, kCFNumberSInt32Type,
           &mStreamFormat.mBytesPerFrame);
  ReadInto(inDictionary, kTMBAudioMessageDataChannelsPerFrameKey, kCFNumberSInt32Type,
           &mStreamFormat.mChannelsPerFrame);
  ReadInto(inDictionary, kTMBAudioMessageDataBitsPerChannelKey, kCFNumberSInt32Type,
           &mStreamFormat.mBitsPerChannel);
}

CFDataRef TMBAudioClientInfo::CopyMessageData(bool inFull) const {
  cfarptr<CFMutableDictionaryRef> dictionary(
      CFDictionaryCreateMutable(kCFAllocatorDefault, 11, &kCFTypeDictionaryKeyCallBacks,
                                &kCFTypeDictionaryValueCallBacks),
      false);
  if (dictionary == nullptr) return nullptr;
  auto add = [&dictionary](CFStringRef inKey, const void* inValue) {
    AddNumber(dictionary, inKey, kCFNumberSInt32Type, inValue);
  };
  add(kTMBAudioMessageDataClientUIDKey, &mClientUID);
  add(kTMBAudioMessageDataClientPIDKey, &mClientPID);
  if (inFull) {
    add(kTMBAudioMessageDataBufferFramesKey, &mBufferFrames);
    AddNumber(dictionary, kTMBAudioMessageDataSampleRateKey, kCFNumberFloat64Type,
              &mStreamFormat.mSampleRate);
    add(kTMBAudioMessageDataFormatIDKey, &mStreamFormat.mFormatID);
    add(kTMBAudioMessageDataFormatFlagsKey, &mStreamFormat.mFormatFlags);
    add(kTMBAudioMessageDataBytesPerPacketKey, &mStreamFormat.mBytesPerPacket);
    add(kTMBAudioMessageDataFramesPerPacketKey, &mStreamFormat.mFramesPerPacket);
    add(kTMBAudioMessageDataBytesPerFrameKey, &mStreamFormat.mBytesPerFrame);
    add(kTMBAudioMessageDataBitsPerChannelKey, &mStreamFormat.mBitsPerChannel);
    add(kTMBAudioMessageDataChannelsPerFrameKey, &mStreamFormat.mChannelsPerFrame);
  }
  return __TMBCFPropertyListCreateData(kCFAllocatorDefault, dictionary,
                                       kCFPropertyListBinaryFormat_v1_0, 0, nullptr);
}
