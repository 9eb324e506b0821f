#include <CoreAudio/CoreAudio.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

// What plug-ins and clients that were compiled elsewhere rely on: the layout of what crosses the
// border, and the values behind the names.

namespace {

std::string Text(UInt32 inCode) {
  return {static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
          static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
}
std::string Text(OSStatus inStatus) {
  return Text(static_cast<UInt32>(inStatus));
}

TEST(Layout, TimeStamp) {
  EXPECT_EQ(sizeof(AudioTimeStamp), 64U);
  EXPECT_EQ(offsetof(AudioTimeStamp, mSampleTime), 0U);
  EXPECT_EQ(offsetof(AudioTimeStamp, mHostTime), 8U);
  EXPECT_EQ(offsetof(AudioTimeStamp, mRateScalar), 16U);
  EXPECT_EQ(offsetof(AudioTimeStamp, mWordClockTime), 24U);
  EXPECT_EQ(offsetof(AudioTimeStamp, mSMPTETime), 32U);
  EXPECT_EQ(offsetof(AudioTimeStamp, mFlags), 56U);
  EXPECT_EQ(offsetof(AudioTimeStamp, mReserved), 60U);
  EXPECT_EQ(offsetof(SMPTETime, mCounter), 4U);
  EXPECT_EQ(offsetof(SMPTETime, mType), 8U);
  EXPECT_EQ(offsetof(SMPTETime, mFlags), 12U);
  EXPECT_EQ(offsetof(SMPTETime, mHours), 16U);
  EXPECT_EQ(offsetof(SMPTETime, mFrames), 22U);
}

TEST(Layout, FormatsAndBuffers) {
  EXPECT_EQ(offsetof(AudioStreamBasicDescription, mFormatID), 8U);
  EXPECT_EQ(offsetof(AudioStreamBasicDescription, mFormatFlags), 12U);
  EXPECT_EQ(offsetof(AudioStreamBasicDescription, mBytesPerPacket), 16U);
  EXPECT_EQ(offsetof(AudioStreamBasicDescription, mFramesPerPacket), 20U);
  EXPECT_EQ(offsetof(AudioStreamBasicDescription, mBytesPerFrame), 24U);
  EXPECT_EQ(offsetof(AudioStreamBasicDescription, mChannelsPerFrame), 28U);
  EXPECT_EQ(offsetof(AudioStreamBasicDescription, mBitsPerChannel), 32U);
  EXPECT_EQ(offsetof(AudioStreamRangedDescription, mSampleRateRange), 40U);
  EXPECT_EQ(sizeof(AudioStreamRangedDescription), 56U);
  EXPECT_EQ(offsetof(AudioBufferList, mBuffers), 8U);
  EXPECT_EQ(offsetof(AudioBuffer, mData), 8U);
  EXPECT_EQ(offsetof(AudioChannelLayout, mChannelDescriptions), 12U);
  EXPECT_EQ(sizeof(AudioChannelDescription), 20U);
  EXPECT_EQ(offsetof(AudioValueTranslation, mOutputData), 16U);
  EXPECT_EQ(offsetof(AudioHardwareIOProcStreamUsage, mNumberStreams), 8U);
  EXPECT_EQ(offsetof(AudioHardwareIOProcStreamUsage, mStreamIsOn), 12U);
}

TEST(Layout, EntriesOfTheInterface) {
  using Interface = AudioHardwarePlugInInterface;
  const size_t offsets[] = {
      offsetof(Interface, _reserved),
      offsetof(Interface, QueryInterface),
      offsetof(Interface, AddRef),
      offsetof(Interface, Release),
      offsetof(Interface, Initialize),
      offsetof(Interface, Teardown),
      offsetof(Interface, DeviceAddIOProc),
      offsetof(Interface, DeviceRemoveIOProc),
      offsetof(Interface, DeviceStart),
      offsetof(Interface, DeviceStop),
      offsetof(Interface, DeviceRead),
      offsetof(Interface, DeviceGetCurrentTime),
      offsetof(Interface, DeviceTranslateTime),
      offsetof(Interface, DeviceGetPropertyInfo),
      offsetof(Interface, DeviceGetProperty),
      offsetof(Interface, DeviceSetProperty),
      offsetof(Interface, StreamGetPropertyInfo),
      offsetof(Interface, StreamGetProperty),
      offsetof(Interface, StreamSetProperty),
      offsetof(Interface, DeviceStartAtTime),
      offsetof(Interface, DeviceGetNearestStartTime),
      offsetof(Interface, InitializeWithObjectID),
      offsetof(Interface, ObjectShow),
      offsetof(Interface, ObjectHasProperty),
      offsetof(Interface, ObjectIsPropertySettable),
      offsetof(Interface, ObjectGetPropertyDataSize),
      offsetof(Interface, ObjectGetPropertyData),
      offsetof(Interface, ObjectSetPropertyData),
      offsetof(Interface, DeviceCreateIOProcID),
      offsetof(Interface, DeviceDestroyIOProcID),
      offsetof(Interface, DeviceCreateIOProcIDWithBlock),
  };
  size_t entry = 0;
  for (const size_t offset : offsets) {
    EXPECT_EQ(offset, entry * sizeof(void*)) << "entry " << entry;
    ++entry;
  }
  EXPECT_EQ(sizeof(Interface), entry * sizeof(void*));
}

TEST(Values, Statuses) {
  EXPECT_EQ(kAudioHardwareNoError, 0);
  EXPECT_EQ(Text(OSStatus{kAudioHardwareNotRunningError}), "stop");
  EXPECT_EQ(Text(OSStatus{kAudioHardwareUnspecifiedError}), "what");
  EXPECT_EQ(Text(OSStatus{kAudioHardwareUnknownPropertyError}), "who?");
  EXPECT_EQ(Text(OSStatus{kAudioHardwareBadPropertySizeError}), "!siz");
  EXPECT_EQ(Text(OSStatus{kAudioHardwareIllegalOperationError}), "nope");
  EXPECT_EQ(Text(OSStatus{kAudioHardwareBadObjectError}), "!obj");
  EXPECT_EQ(Text(OSStatus{kAudioHardwareBadDeviceError}), "!dev");
  EXPECT_EQ(Text(OSStatus{kAudioHardwareBadStreamError}), "!str");
  EXPECT_EQ(Text(OSStatus{kAudioHardwareUnsupportedOperationError}), "unop");
  EXPECT_EQ(Text(OSStatus{kAudioDeviceUnsupportedFormatError}), "!dat");
  EXPECT_EQ(Text(OSStatus{kAudioDevicePermissionsError}), "!hog");
}

TEST(Values, SelectorsByTheirText) {
  const std::pair<UInt32, const char*> selectors[] = {
      {kAudioObjectPropertyName, "lnam"},
      {kAudioObjectPropertyManufacturer, "lmak"},
      {kAudioObjectPropertyOwner, "stdv"},
      {kAudioObjectPropertyListenerAdded, "lisa"},
      {kAudioObjectPropertyListenerRemoved, "lisr"},
      {kAudioHardwarePropertyDevices, "dev#"},
      {kAudioHardwarePropertyDefaultInputDevice, "dIn "},
      {kAudioHardwarePropertyDefaultOutputDevice, "dOut"},
      {kAudioHardwarePropertyDefaultSystemOutputDevice, "sOut"},
      {kAudioHardwarePropertyTranslateUIDToDevice, "uidd"},
      {kAudioHardwarePropertyDeviceForUID, "duid"},
      {kAudioHardwarePropertyProcessIsMaster, "mast"},
      {kAudioHardwarePropertyIsInitingOrExiting, "inot"},
      {kAudioHardwarePropertyUserSessionIsActiveOrHeadless, "user"},
      {kAudioHardwarePropertyProcessIsAudible, "pmut"},
      {kAudioHardwarePropertyMixStereoToMono, "stmo"},
      {kAudioDevicePropertyDeviceUID, "uid "},
      {kAudioDevicePropertyDeviceIsAlive, "livn"},
      {kAudioDevicePropertyDeviceIsRunning, "goin"},
      {kAudioDevicePropertyBufferFrameSize, "fsiz"},
      {kAudioDevicePropertyBufferFrameSizeRange, "fsz#"},
      {kAudioDevicePropertyBufferSize, "bsiz"},
      {kAudioDevicePropertyIOCycleUsage, "ncyc"},
      {kAudioDeviceProcessorOverload, "over"},
      {kAudioDevicePropertyHogMode, "oink"},
      {kAudioDevicePropertyIOProcStreamUsage, "suse"},
      {kAudioDevicePropertyStreamConfiguration, "slay"},
      {kAudioDevicePropertyStreams, "stm#"},
      {kAudioDevicePropertyNominalSampleRate, "nsrt"},
      {kAudioDevicePropertyAvailableNominalSampleRates, "nsr#"},
      {kAudioDevicePropertyActualSampleRate, "asrt"},
      {kAudioDevicePropertyPreferredChannelsForStereo, "dch2"},
      {kAudioDevicePropertyPreferredChannelLayout, "srnd"},
      {kAudioDevicePropertyRelatedDevices, "akin"},
      {kAudioStreamPropertyVirtualFormat, "sfmt"},
      {kAudioStreamPropertyPhysicalFormat, "pft "},
      {kAudioStreamPropertyAvailableVirtualFormats, "sfma"},
      {kAudioStreamPropertyAvailablePhysicalFormats, "pfta"},
      {kAudioStreamPropertyDirection, "sdir"},
      {kAudioStreamPropertyTerminalType, "term"},
      {kAudioStreamPropertyStartingChannel, "schn"},
      {kAudioControlPropertyVariant, "cvar"},
      {kAudioLevelControlPropertyScalarValue, "lcsv"},
      {kAudioLevelControlPropertyDecibelValue, "lcdv"},
      {kAudioLevelControlPropertyDecibelRange, "lcdr"},
      {kAudioLevelControlPropertyConvertScalarToDecibels, "lcsd"},
      {kAudioLevelControlPropertyConvertDecibelsToScalar, "lcds"},
      {kAudioBooleanControlPropertyValue, "bcvl"},
      {kAudioSelectorControlPropertyCurrentItem, "scci"},
      {kAudioSelectorControlPropertyAvailableItems, "scai"},
      {kAudioSelectorControlPropertyItemName, "scin"},
      {kAudioClockSourceControlPropertyItemKind, "clkk"},
      {kAudioStereoPanControlPropertyValue, "spcv"},
      {kAudioStereoPanControlPropertyPanningChannels, "spcc"},
  };
  for (const auto& [selector, text] : selectors) {
    EXPECT_EQ(Text(selector), text);
  }
}

TEST(Values, ClassesScopesAndTypes) {
  EXPECT_EQ(Text(UInt32{kAudioObjectClassID}), "aobj");
  EXPECT_EQ(Text(UInt32{kAudioSystemObjectClassID}), "asys");
  EXPECT_EQ(Text(UInt32{kAudioPlugInClassID}), "aplg");
  EXPECT_EQ(Text(UInt32{kAudioDeviceClassID}), "adev");
  EXPECT_EQ(Text(UInt32{kAudioStreamClassID}), "astr");
  EXPECT_EQ(Text(UInt32{kAudioControlClassID}), "actl");
  EXPECT_EQ(Text(UInt32{kAudioVolumeControlClassID}), "vlme");
  EXPECT_EQ(Text(UInt32{kAudioObjectPropertyScopeGlobal}), "glob");
  EXPECT_EQ(Text(UInt32{kAudioObjectPropertyScopeInput}), "inpt");
  EXPECT_EQ(Text(UInt32{kAudioObjectPropertyScopeOutput}), "outp");
  EXPECT_EQ(Text(UInt32{kAudioObjectPropertyScopePlayThrough}), "ptru");
  EXPECT_EQ(Text(UInt32{kAudioObjectPropertySelectorWildcard}), "****");
  EXPECT_EQ(kAudioObjectPropertyElementWildcard, 0xFFFFFFFFU);
  EXPECT_EQ(Text(UInt32{kAudioDeviceTransportTypeVirtual}), "virt");
  EXPECT_EQ(Text(UInt32{kAudioFormatLinearPCM}), "lpcm");
  EXPECT_EQ(kAudioChannelLayoutTag_Stereo, (101U << 16) | 2U);
  EXPECT_EQ(AudioChannelLayoutTag_GetNumberOfChannels(kAudioChannelLayoutTag_MPEG_5_1_A), 6U);
  EXPECT_EQ(kAudioObjectSystemObject, 1U);
  EXPECT_EQ(kAudioDeviceStartTimeIsInputFlag, 1U);
  EXPECT_EQ(kAudioDeviceStartTimeDontConsultDeviceFlag, 2U);
  EXPECT_EQ(kAudioDeviceStartTimeDontConsultHALFlag, 4U);
}

TEST(LinearPCM, FlagsOfASample) {
  EXPECT_EQ(CalculateLPCMFlags(32, 32, true, false), 1U | 8U);
  EXPECT_EQ(CalculateLPCMFlags(16, 16, false, true), 4U | 8U | 2U);
  EXPECT_EQ(CalculateLPCMFlags(20, 24, false, false), 4U | 16U);
  EXPECT_EQ(CalculateLPCMFlags(32, 32, true, false, true), 1U | 8U | 32U);
}

TEST(LinearPCM, FillsOutADescription) {
  AudioStreamBasicDescription format{};
  FillOutASBDForLPCM(format, 44100, 2, 32, 32, true, false);
  EXPECT_EQ(format.mSampleRate, 44100);
  EXPECT_EQ(format.mFormatID, UInt32{kAudioFormatLinearPCM});
  EXPECT_EQ(format.mFormatFlags, UInt32{kAudioFormatFlagsNativeFloatPacked});
  EXPECT_EQ(format.mBytesPerPacket, 8U);
  EXPECT_EQ(format.mFramesPerPacket, 1U);
  EXPECT_EQ(format.mBytesPerFrame, 8U);
  EXPECT_EQ(format.mChannelsPerFrame, 2U);
  EXPECT_EQ(format.mBitsPerChannel, 32U);
  FillOutASBDForLPCM(format, 48000, 2, 20, 24, false, false, true);
  EXPECT_EQ(format.mBytesPerFrame, 3U);
  EXPECT_EQ(format.mBitsPerChannel, 20U);
}

}  // namespace
