#pragma once

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

// The keys of a listener message's dictionary. All values are CFNumbers: the sample rate a
// kCFNumberFloat64Type, all others kCFNumberSInt32Type.
extern const CFStringRef kTMBAudioMessageDataClientUIDKey;         // "uid"
extern const CFStringRef kTMBAudioMessageDataClientPIDKey;         // "pid"
extern const CFStringRef kTMBAudioMessageDataBufferFramesKey;      // "frsz"
extern const CFStringRef kTMBAudioMessageDataSampleRateKey;        // "rate"
extern const CFStringRef kTMBAudioMessageDataFormatIDKey;          // "format"
extern const CFStringRef kTMBAudioMessageDataFormatFlagsKey;       // "flags"
extern const CFStringRef kTMBAudioMessageDataBytesPerPacketKey;    // "bpp"
extern const CFStringRef kTMBAudioMessageDataFramesPerPacketKey;   // "fpp"
extern const CFStringRef kTMBAudioMessageDataBytesPerFrameKey;     // "bpf"
extern const CFStringRef kTMBAudioMessageDataBitsPerChannelKey;    // "bpch"
extern const CFStringRef kTMBAudioMessageDataChannelsPerFrameKey;  // "chpf"

// Serialises a property list; outError, when given, takes an error that the caller releases.
CFDataRef __TMBCFPropertyListCreateData(CFAllocatorRef inAllocator, CFPropertyListRef inList,
                                        CFPropertyListFormat inFormat, CFOptionFlags inOptions,
                                        CFErrorRef* outError);

// Parses a property list; outErrorString, when given, takes the error's description, which the
// caller releases.
CFPropertyListRef __TMBCFPropertyListCreateWithData(CFAllocatorRef inAllocator, CFDataRef inData,
                                                    CFOptionFlags inOptions,
                                                    CFPropertyListFormat* outFormat,
                                                    CFStringRef* outErrorString);

// Who an audio client is and in which format it sends: the payload of the messages on the
// server's listener port, written by the device and read by the server.
//
// Thread: plain data without a lock; its user orders writing and reading.
// Ownership: holds no reference.
// Units: frames per buffer, frames per second.
// Failure: what cannot be parsed leaves the former values; nothing is thrown or logged.
class TMBAudioClientInfo {
 public:
  // This process, 512 frames, the default format.
  TMBAudioClientInfo();
  TMBAudioClientInfo(unsigned int inUID, int inPID, const AudioStreamBasicDescription& inFormat);
  // Reads a message. One without a dictionary gives this process and the default format; one of
  // the short form leaves all of the format zero.
  explicit TMBAudioClientInfo(const __CFData* inMessage);
  // Takes uid, pid and format; the frames per buffer are 512 again.
  TMBAudioClientInfo(const TMBAudioClientInfo& inOther);

  TMBAudioClientInfo& operator=(const AudioStreamBasicDescription& inFormat);
  // Takes uid, pid and format, not the frames per buffer.
  TMBAudioClientInfo& operator=(const TMBAudioClientInfo& inOther);
  // A key that is missing, or is no number, leaves its field as it was.
  TMBAudioClientInfo& operator=(const __CFData* inMessage);

  // 44100 Hz, two interleaved channels of 32-bit native float.
  void ResetFormat();

  UInt32 GetClientUID() const { return mClientUID; }
  SInt32 GetClientPID() const { return mClientPID; }
  UInt32 GetBufferFrames() const { return mBufferFrames; }
  AudioStreamBasicDescription GetStreamDescription() const { return mStreamFormat; }

  // A new CFData that the caller releases: a binary property list, of all keys in the full form,
  // of uid and pid alone in the short one.
  CFDataRef CopyMessageData(bool inFull) const;

 private:
  void ReadDictionary(CFDictionaryRef inDictionary);

  UInt32 mClientUID;
  SInt32 mClientPID;
  UInt32 mBufferFrames;
  AudioStreamBasicDescription mStreamFormat;
};
