#pragma once

#include <CoreFoundation/CFBase.h>

// The value types of audio data: time stamps, formats, buffers, channel layouts.

// Statuses of the formats below.
enum : OSStatus {
  kAudio_UnimplementedError = -4,
  kAudio_FileNotFoundError = -43,
  kAudio_FilePermissionError = -54,
  kAudio_TooManyFilesOpenError = -42,
  kAudio_BadFilePathError = '!pth',
  kAudio_ParamError = -50,
  kAudio_MemFullError = -108
};

struct AudioValueRange {
  Float64 mMinimum;
  Float64 mMaximum;
};
typedef struct AudioValueRange AudioValueRange;

struct AudioValueTranslation {
  void* mInputData;
  UInt32 mInputDataSize;
  void* mOutputData;
  UInt32 mOutputDataSize;
};
typedef struct AudioValueTranslation AudioValueTranslation;

struct AudioBuffer {
  UInt32 mNumberChannels;
  UInt32 mDataByteSize;
  void* mData;
};
typedef struct AudioBuffer AudioBuffer;

// A list of variable length; mNumberBuffers says how many entries follow.
struct AudioBufferList {
  UInt32 mNumberBuffers;
  AudioBuffer mBuffers[1];
};
typedef struct AudioBufferList AudioBufferList;

typedef Float32 AudioSampleType;
typedef Float32 AudioUnitSampleType;

typedef UInt32 AudioFormatID;
typedef UInt32 AudioFormatFlags;

// A zero field is unknown, or a wildcard where formats are matched.
struct AudioStreamBasicDescription {
  Float64 mSampleRate;
  AudioFormatID mFormatID;
  AudioFormatFlags mFormatFlags;
  UInt32 mBytesPerPacket;
  UInt32 mFramesPerPacket;
  UInt32 mBytesPerFrame;
  UInt32 mChannelsPerFrame;
  UInt32 mBitsPerChannel;
  UInt32 mReserved;
};
typedef struct AudioStreamBasicDescription AudioStreamBasicDescription;

static const Float64 kAudioStreamAnyRate = 0.0;

enum : AudioFormatID {
  kAudioFormatLinearPCM = 'lpcm',
  kAudioFormatAC3 = 'ac-3',
  kAudioFormat60958AC3 = 'cac3',
  kAudioFormatAppleIMA4 = 'ima4',
  kAudioFormatMPEG4AAC = 'aac ',
  kAudioFormatMPEG4CELP = 'celp',
  kAudioFormatMPEG4HVXC = 'hvxc',
  kAudioFormatMPEG4TwinVQ = 'twvq',
  kAudioFormatMACE3 = 'MAC3',
  kAudioFormatMACE6 = 'MAC6',
  kAudioFormatULaw = 'ulaw',
  kAudioFormatALaw = 'alaw',
  kAudioFormatQDesign = 'QDMC',
  kAudioFormatQDesign2 = 'QDM2',
  kAudioFormatQUALCOMM = 'Qclp',
  kAudioFormatMPEGLayer1 = '.mp1',
  kAudioFormatMPEGLayer2 = '.mp2',
  kAudioFormatMPEGLayer3 = '.mp3',
  kAudioFormatTimeCode = 'time',
  kAudioFormatMIDIStream = 'midi',
  kAudioFormatParameterValueStream = 'apvs',
  kAudioFormatAppleLossless = 'alac',
  kAudioFormatMPEG4AAC_HE = 'aach',
  kAudioFormatMPEG4AAC_LD = 'aacl',
  kAudioFormatMPEG4AAC_ELD = 'aace',
  kAudioFormatMPEG4AAC_HE_V2 = 'aacp',
  kAudioFormatAMR = 'samr',
  kAudioFormatAMR_WB = 'sawb',
  kAudioFormatAudible = 'AUDB',
  kAudioFormatiLBC = 'ilbc',
  kAudioFormatDVIIntelIMA = 0x6D730011,
  kAudioFormatMicrosoftGSM = 0x6D730031,
  kAudioFormatAES3 = 'aes3',
  kAudioFormatEnhancedAC3 = 'ec-3',
  kAudioFormatFLAC = 'flac',
  kAudioFormatOpus = 'opus'
};

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#define TEMBRA_NATIVE_IS_BIG_ENDIAN 1
#else
#define TEMBRA_NATIVE_IS_BIG_ENDIAN 0
#endif

enum : AudioFormatFlags {
  kAudioFormatFlagIsFloat = (1U << 0),
  kAudioFormatFlagIsBigEndian = (1U << 1),
  kAudioFormatFlagIsSignedInteger = (1U << 2),
  kAudioFormatFlagIsPacked = (1U << 3),
  kAudioFormatFlagIsAlignedHigh = (1U << 4),
  kAudioFormatFlagIsNonInterleaved = (1U << 5),
  kAudioFormatFlagIsNonMixable = (1U << 6),
  kAudioFormatFlagsAreAllClear = 0x80000000,

  kLinearPCMFormatFlagIsFloat = kAudioFormatFlagIsFloat,
  kLinearPCMFormatFlagIsBigEndian = kAudioFormatFlagIsBigEndian,
  kLinearPCMFormatFlagIsSignedInteger = kAudioFormatFlagIsSignedInteger,
  kLinearPCMFormatFlagIsPacked = kAudioFormatFlagIsPacked,
  kLinearPCMFormatFlagIsAlignedHigh = kAudioFormatFlagIsAlignedHigh,
  kLinearPCMFormatFlagIsNonInterleaved = kAudioFormatFlagIsNonInterleaved,
  kLinearPCMFormatFlagIsNonMixable = kAudioFormatFlagIsNonMixable,
  kLinearPCMFormatFlagsSampleFractionShift = 7,
  kLinearPCMFormatFlagsSampleFractionMask = (0x3FU << kLinearPCMFormatFlagsSampleFractionShift),
  kLinearPCMFormatFlagsAreAllClear = kAudioFormatFlagsAreAllClear,

  kAppleLosslessFormatFlag_16BitSourceData = 1,
  kAppleLosslessFormatFlag_20BitSourceData = 2,
  kAppleLosslessFormatFlag_24BitSourceData = 3,
  kAppleLosslessFormatFlag_32BitSourceData = 4,

  kAudioFormatFlagsNativeEndian = (TEMBRA_NATIVE_IS_BIG_ENDIAN ? kAudioFormatFlagIsBigEndian : 0U),
  kAudioFormatFlagsCanonical =
      (kAudioFormatFlagIsFloat | kAudioFormatFlagsNativeEndian | kAudioFormatFlagIsPacked),
  kAudioFormatFlagsNativeFloatPacked =
      (kAudioFormatFlagIsFloat | kAudioFormatFlagsNativeEndian | kAudioFormatFlagIsPacked)
};

struct AudioStreamPacketDescription {
  SInt64 mStartOffset;
  UInt32 mVariableFramesInPacket;
  UInt32 mDataByteSize;
};
typedef struct AudioStreamPacketDescription AudioStreamPacketDescription;

typedef UInt32 SMPTETimeType;
enum : SMPTETimeType {
  kSMPTETimeType24 = 0,
  kSMPTETimeType25 = 1,
  kSMPTETimeType30Drop = 2,
  kSMPTETimeType30 = 3,
  kSMPTETimeType2997 = 4,
  kSMPTETimeType2997Drop = 5,
  kSMPTETimeType60 = 6,
  kSMPTETimeType5994 = 7,
  kSMPTETimeType60Drop = 8,
  kSMPTETimeType5994Drop = 9,
  kSMPTETimeType50 = 10,
  kSMPTETimeType2398 = 11
};

typedef UInt32 SMPTETimeFlags;
enum : SMPTETimeFlags {
  kSMPTETimeUnknown = 0,
  kSMPTETimeValid = (1U << 0),
  kSMPTETimeRunning = (1U << 1)
};

struct SMPTETime {
  SInt16 mSubframes;
  SInt16 mSubframeDivisor;
  UInt32 mCounter;
  SMPTETimeType mType;
  SMPTETimeFlags mFlags;
  SInt16 mHours;
  SInt16 mMinutes;
  SInt16 mSeconds;
  SInt16 mFrames;
};
typedef struct SMPTETime SMPTETime;

typedef UInt32 AudioTimeStampFlags;
enum : AudioTimeStampFlags {
  kAudioTimeStampNothingValid = 0,
  kAudioTimeStampSampleTimeValid = (1U << 0),
  kAudioTimeStampHostTimeValid = (1U << 1),
  kAudioTimeStampRateScalarValid = (1U << 2),
  kAudioTimeStampWordClockTimeValid = (1U << 3),
  kAudioTimeStampSMPTETimeValid = (1U << 4),
  kAudioTimeStampSampleHostTimeValid =
      (kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid)
};

// One moment, told in several clocks; mFlags says which of the fields count. Sample time is in
// frames, host time in ticks of the host clock.
struct AudioTimeStamp {
  Float64 mSampleTime;
  UInt64 mHostTime;
  Float64 mRateScalar;
  UInt64 mWordClockTime;
  SMPTETime mSMPTETime;
  AudioTimeStampFlags mFlags;
  UInt32 mReserved;
};
typedef struct AudioTimeStamp AudioTimeStamp;

struct AudioClassDescription {
  OSType mType;
  OSType mSubType;
  OSType mManufacturer;
};
typedef struct AudioClassDescription AudioClassDescription;

typedef UInt32 AudioChannelLabel;
typedef UInt32 AudioChannelLayoutTag;

enum : AudioChannelLabel {
  kAudioChannelLabel_Unknown = 0xFFFFFFFF,
  kAudioChannelLabel_Unused = 0,
  kAudioChannelLabel_UseCoordinates = 100,
  kAudioChannelLabel_Left = 1,
  kAudioChannelLabel_Right = 2,
  kAudioChannelLabel_Center = 3,
  kAudioChannelLabel_LFEScreen = 4,
  kAudioChannelLabel_LeftSurround = 5,
  kAudioChannelLabel_RightSurround = 6,
  kAudioChannelLabel_LeftCenter = 7,
  kAudioChannelLabel_RightCenter = 8,
  kAudioChannelLabel_CenterSurround = 9,
  kAudioChannelLabel_LeftSurroundDirect = 10,
  kAudioChannelLabel_RightSurroundDirect = 11,
  kAudioChannelLabel_TopCenterSurround = 12,
  kAudioChannelLabel_VerticalHeightLeft = 13,
  kAudioChannelLabel_VerticalHeightCenter = 14,
  kAudioChannelLabel_VerticalHeightRight = 15,
  kAudioChannelLabel_TopBackLeft = 16,
  kAudioChannelLabel_TopBackCenter = 17,
  kAudioChannelLabel_TopBackRight = 18,
  kAudioChannelLabel_RearSurroundLeft = 33,
  kAudioChannelLabel_RearSurroundRight = 34,
  kAudioChannelLabel_LeftWide = 35,
  kAudioChannelLabel_RightWide = 36,
  kAudioChannelLabel_LFE2 = 37,
  kAudioChannelLabel_LeftTotal = 38,
  kAudioChannelLabel_RightTotal = 39,
  kAudioChannelLabel_HearingImpaired = 40,
  kAudioChannelLabel_Narration = 41,
  kAudioChannelLabel_Mono = 42,
  kAudioChannelLabel_DialogCentricMix = 43,
  kAudioChannelLabel_CenterSurroundDirect = 44,
  kAudioChannelLabel_Haptic = 45,
  kAudioChannelLabel_Ambisonic_W = 200,
  kAudioChannelLabel_Ambisonic_X = 201,
  kAudioChannelLabel_Ambisonic_Y = 202,
  kAudioChannelLabel_Ambisonic_Z = 203,
  kAudioChannelLabel_MS_Mid = 204,
  kAudioChannelLabel_MS_Side = 205,
  kAudioChannelLabel_XY_X = 206,
  kAudioChannelLabel_XY_Y = 207,
  kAudioChannelLabel_HeadphonesLeft = 301,
  kAudioChannelLabel_HeadphonesRight = 302,
  kAudioChannelLabel_ClickTrack = 304,
  kAudioChannelLabel_ForeignLanguage = 305,
  kAudioChannelLabel_Discrete = 400,
  kAudioChannelLabel_Discrete_0 = (1U << 16) | 0,
  kAudioChannelLabel_Discrete_1 = (1U << 16) | 1,
  kAudioChannelLabel_Discrete_65535 = (1U << 16) | 65535
};

typedef UInt32 AudioChannelBitmap;
enum : AudioChannelBitmap {
  kAudioChannelBit_Left = (1U << 0),
  kAudioChannelBit_Right = (1U << 1),
  kAudioChannelBit_Center = (1U << 2),
  kAudioChannelBit_LFEScreen = (1U << 3),
  kAudioChannelBit_LeftSurround = (1U << 4),
  kAudioChannelBit_RightSurround = (1U << 5),
  kAudioChannelBit_LeftCenter = (1U << 6),
  kAudioChannelBit_RightCenter = (1U << 7),
  kAudioChannelBit_CenterSurround = (1U << 8),
  kAudioChannelBit_LeftSurroundDirect = (1U << 9),
  kAudioChannelBit_RightSurroundDirect = (1U << 10),
  kAudioChannelBit_TopCenterSurround = (1U << 11),
  kAudioChannelBit_VerticalHeightLeft = (1U << 12),
  kAudioChannelBit_VerticalHeightCenter = (1U << 13),
  kAudioChannelBit_VerticalHeightRight = (1U << 14),
  kAudioChannelBit_TopBackLeft = (1U << 15),
  kAudioChannelBit_TopBackCenter = (1U << 16),
  kAudioChannelBit_TopBackRight = (1U << 17)
};

typedef UInt32 AudioChannelFlags;
enum : AudioChannelFlags {
  kAudioChannelFlags_AllOff = 0,
  kAudioChannelFlags_RectangularCoordinates = (1U << 0),
  kAudioChannelFlags_SphericalCoordinates = (1U << 1),
  kAudioChannelFlags_Meters = (1U << 2)
};

enum : AudioChannelLayoutTag {
  kAudioChannelLayoutTag_UseChannelDescriptions = (0U << 16) | 0,
  kAudioChannelLayoutTag_UseChannelBitmap = (1U << 16) | 0,
  kAudioChannelLayoutTag_Mono = (100U << 16) | 1,
  kAudioChannelLayoutTag_Stereo = (101U << 16) | 2,
  kAudioChannelLayoutTag_StereoHeadphones = (102U << 16) | 2,
  kAudioChannelLayoutTag_MatrixStereo = (103U << 16) | 2,
  kAudioChannelLayoutTag_MidSide = (104U << 16) | 2,
  kAudioChannelLayoutTag_XY = (105U << 16) | 2,
  kAudioChannelLayoutTag_Binaural = (106U << 16) | 2,
  kAudioChannelLayoutTag_Ambisonic_B_Format = (107U << 16) | 4,
  kAudioChannelLayoutTag_Quadraphonic = (108U << 16) | 4,
  kAudioChannelLayoutTag_Pentagonal = (109U << 16) | 5,
  kAudioChannelLayoutTag_Hexagonal = (110U << 16) | 6,
  kAudioChannelLayoutTag_Octagonal = (111U << 16) | 8,
  kAudioChannelLayoutTag_Cube = (112U << 16) | 8,
  kAudioChannelLayoutTag_MPEG_1_0 = kAudioChannelLayoutTag_Mono,
  kAudioChannelLayoutTag_MPEG_2_0 = kAudioChannelLayoutTag_Stereo,
  kAudioChannelLayoutTag_MPEG_3_0_A = (113U << 16) | 3,
  kAudioChannelLayoutTag_MPEG_3_0_B = (114U << 16) | 3,
  kAudioChannelLayoutTag_MPEG_4_0_A = (115U << 16) | 4,
  kAudioChannelLayoutTag_MPEG_4_0_B = (116U << 16) | 4,
  kAudioChannelLayoutTag_MPEG_5_0_A = (117U << 16) | 5,
  kAudioChannelLayoutTag_MPEG_5_0_B = (118U << 16) | 5,
  kAudioChannelLayoutTag_MPEG_5_0_C = (119U << 16) | 5,
  kAudioChannelLayoutTag_MPEG_5_0_D = (120U << 16) | 5,
  kAudioChannelLayoutTag_MPEG_5_1_A = (121U << 16) | 6,
  kAudioChannelLayoutTag_MPEG_5_1_B = (122U << 16) | 6,
  kAudioChannelLayoutTag_MPEG_5_1_C = (123U << 16) | 6,
  kAudioChannelLayoutTag_MPEG_5_1_D = (124U << 16) | 6,
  kAudioChannelLayoutTag_MPEG_6_1_A = (125U << 16) | 7,
  kAudioChannelLayoutTag_MPEG_7_1_A = (126U << 16) | 8,
  kAudioChannelLayoutTag_MPEG_7_1_B = (127U << 16) | 8,
  kAudioChannelLayoutTag_MPEG_7_1_C = (128U << 16) | 8,
  kAudioChannelLayoutTag_DiscreteInOrder = (147U << 16) | 0,
  kAudioChannelLayoutTag_Unknown = 0xFFFF0000
};

struct AudioChannelDescription {
  AudioChannelLabel mChannelLabel;
  AudioChannelFlags mChannelFlags;
  Float32 mCoordinates[3];
};
typedef struct AudioChannelDescription AudioChannelDescription;

// A layout of variable length; mNumberChannelDescriptions says how many entries follow.
struct AudioChannelLayout {
  AudioChannelLayoutTag mChannelLayoutTag;
  AudioChannelBitmap mChannelBitmap;
  UInt32 mNumberChannelDescriptions;
  AudioChannelDescription mChannelDescriptions[1];
};
typedef struct AudioChannelLayout AudioChannelLayout;

#define AudioChannelLayoutTag_GetNumberOfChannels(layoutTag) ((UInt32)((layoutTag)&0x0000FFFF))

#ifdef __cplusplus
// The linear PCM flags for a sample of inTotalBitsPerChannel bits, inValidBitsPerChannel of which
// count; samples that fill their place are packed, others lie at its high end.
inline AudioFormatFlags CalculateLPCMFlags(UInt32 inValidBitsPerChannel,
                                           UInt32 inTotalBitsPerChannel, bool inIsFloat,
                                           bool inIsBigEndian, bool inIsNonInterleaved = false) {
  return (inIsFloat ? kAudioFormatFlagIsFloat : kAudioFormatFlagIsSignedInteger) |
         (inIsBigEndian ? static_cast<AudioFormatFlags>(kAudioFormatFlagIsBigEndian) : 0U) |
         (inValidBitsPerChannel == inTotalBitsPerChannel ? kAudioFormatFlagIsPacked
                                                         : kAudioFormatFlagIsAlignedHigh) |
         (inIsNonInterleaved ? static_cast<AudioFormatFlags>(kAudioFormatFlagIsNonInterleaved)
                             : 0U);
}

inline void FillOutASBDForLPCM(AudioStreamBasicDescription& outASBD, Float64 inSampleRate,
                               UInt32 inChannelsPerFrame, UInt32 inValidBitsPerChannel,
                               UInt32 inTotalBitsPerChannel, bool inIsFloat, bool inIsBigEndian,
                               bool inIsNonInterleaved = false) {
  const UInt32 frameBytes =
      (inIsNonInterleaved ? 1 : inChannelsPerFrame) * (inTotalBitsPerChannel / 8);
  outASBD.mSampleRate = inSampleRate;
  outASBD.mFormatID = kAudioFormatLinearPCM;
  outASBD.mFormatFlags = CalculateLPCMFlags(inValidBitsPerChannel, inTotalBitsPerChannel, inIsFloat,
                                            inIsBigEndian, inIsNonInterleaved);
  outASBD.mBytesPerPacket = frameBytes;
  outASBD.mFramesPerPacket = 1;
  outASBD.mBytesPerFrame = frameBytes;
  outASBD.mChannelsPerFrame = inChannelsPerFrame;
  outASBD.mBitsPerChannel = inValidBitsPerChannel;
}

static_assert(sizeof(AudioValueRange) == 16);
static_assert(sizeof(AudioValueTranslation) == 32);
static_assert(sizeof(AudioBuffer) == 16);
static_assert(sizeof(AudioBufferList) == 24);
static_assert(sizeof(AudioStreamBasicDescription) == 40);
static_assert(sizeof(SMPTETime) == 24);
static_assert(sizeof(AudioTimeStamp) == 64);
static_assert(sizeof(AudioChannelDescription) == 20);
static_assert(sizeof(AudioChannelLayout) == 32);
#endif
