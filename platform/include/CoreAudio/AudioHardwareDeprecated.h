#pragma once

#include <CoreAudio/AudioHardware.h>

// The older forms: calls by system, device and stream instead of by object, and the names that
// newer ones have replaced. They reach the same objects.

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef AudioObjectPropertySelector AudioHardwarePropertyID;
typedef AudioObjectPropertySelector AudioDevicePropertyID;
typedef AudioObjectPropertySelector AudioStreamPropertyID;
typedef AudioObjectID AudioDeviceID;
typedef AudioObjectID AudioStreamID;

enum : AudioObjectID {
  kAudioDeviceUnknown = kAudioObjectUnknown,
  kAudioStreamUnknown = kAudioObjectUnknown
};
enum : AudioObjectPropertyScope {
  kAudioDevicePropertyScopeInput = kAudioObjectPropertyScopeInput,
  kAudioDevicePropertyScopeOutput = kAudioObjectPropertyScopeOutput,
  kAudioDevicePropertyScopePlayThrough = kAudioObjectPropertyScopePlayThrough
};
enum : AudioObjectPropertySelector {
  kAudioPropertyWildcardPropertyID = kAudioObjectPropertySelectorWildcard
};
enum : UInt32 {
  kAudioPropertyWildcardSection = 0xFF,
  kAudioPropertyWildcardChannel = kAudioObjectPropertyElementWildcard
};

enum : AudioClassID {
  kAudioISubOwnerControlClassID = 'atch',
  kAudioBootChimeVolumeControlClassID = 'pram'
};

enum : AudioObjectPropertySelector {
  kAudioControlPropertyVariant = 'cvar',
  kAudioClockSourceControlPropertyItemKind = kAudioSelectorControlPropertyItemKind,
  kAudioLevelControlPropertyDecibelsToScalarTransferFunction = 'lctf'
};
typedef UInt32 AudioLevelControlTransferFunction;
enum : AudioLevelControlTransferFunction {
  kAudioLevelControlTranferFunctionLinear = 0,
  kAudioLevelControlTranferFunction1Over3 = 1,
  kAudioLevelControlTranferFunction1Over2 = 2,
  kAudioLevelControlTranferFunction3Over4 = 3,
  kAudioLevelControlTranferFunction3Over2 = 4,
  kAudioLevelControlTranferFunction2Over1 = 5,
  kAudioLevelControlTranferFunction3Over1 = 6,
  kAudioLevelControlTranferFunction4Over1 = 7,
  kAudioLevelControlTranferFunction5Over1 = 8,
  kAudioLevelControlTranferFunction6Over1 = 9,
  kAudioLevelControlTranferFunction7Over1 = 10,
  kAudioLevelControlTranferFunction8Over1 = 11,
  kAudioLevelControlTranferFunction9Over1 = 12,
  kAudioLevelControlTranferFunction10Over1 = 13,
  kAudioLevelControlTranferFunction11Over1 = 14,
  kAudioLevelControlTranferFunction12Over1 = 15
};

enum : AudioObjectPropertySelector {
  kAudioHardwarePropertyRunLoop = 'rnlp',
  kAudioHardwarePropertyDeviceForUID = 'duid',
  kAudioHardwarePropertyPlugInForBundleID = 'pibi',
  kAudioHardwarePropertyBootChimeVolumeScalar = 'bbvs',
  kAudioHardwarePropertyBootChimeVolumeDecibels = 'bbvd',
  kAudioHardwarePropertyBootChimeVolumeRangeDecibels = 'bbd#',
  kAudioHardwarePropertyBootChimeVolumeScalarToDecibels = 'bv2d',
  kAudioHardwarePropertyBootChimeVolumeDecibelsToScalar = 'bd2v',
  kAudioHardwarePropertyBootChimeVolumeDecibelsToScalarTransferFunction = 'bvtf'
};

enum : AudioObjectPropertySelector {
  kAudioDevicePropertyDeviceName = 'name',
  kAudioDevicePropertyDeviceNameCFString = kAudioObjectPropertyName,
  kAudioDevicePropertyDeviceManufacturer = 'makr',
  kAudioDevicePropertyDeviceManufacturerCFString = kAudioObjectPropertyManufacturer,
  kAudioDevicePropertyRegisterBufferList = 'rbuf',
  kAudioDevicePropertyBufferSize = 'bsiz',
  kAudioDevicePropertyBufferSizeRange = 'bsz#',
  kAudioDevicePropertyChannelName = 'chnm',
  kAudioDevicePropertyChannelNameCFString = kAudioObjectPropertyElementName,
  kAudioDevicePropertyChannelCategoryName = 'ccnm',
  kAudioDevicePropertyChannelCategoryNameCFString = kAudioObjectPropertyElementCategoryName,
  kAudioDevicePropertyChannelNumberName = 'cnnm',
  kAudioDevicePropertyChannelNumberNameCFString = kAudioObjectPropertyElementNumberName,
  kAudioDevicePropertySupportsMixing = 'mix?',
  kAudioDevicePropertyStreamFormat = 'sfmt',
  kAudioDevicePropertyStreamFormats = 'sfm#',
  kAudioDevicePropertyStreamFormatSupported = 'sfm?',
  kAudioDevicePropertyStreamFormatMatch = 'sfmm',
  kAudioDevicePropertyDataSourceNameForID = 'sscn',
  kAudioDevicePropertyClockSourceNameForID = 'cscn',
  kAudioDevicePropertyPlayThruDestinationNameForID = 'mddn',
  kAudioDevicePropertyChannelNominalLineLevelNameForID = 'cnlv',
  kAudioDevicePropertyHighPassFilterSettingNameForID = 'hipn',
  kAudioDevicePropertyDriverShouldOwniSub = 'isub',
  kAudioDevicePropertyVolumeDecibelsToScalarTransferFunction = 'vctf',
  kAudioDevicePropertyPlayThruVolumeDecibelsToScalarTransferFunction = 'mvtf',
  kAudioDevicePropertySubVolumeDecibelsToScalarTransferFunction = 'svtf'
};

enum : AudioObjectPropertySelector {
  kAudioStreamPropertyOwningDevice = kAudioObjectPropertyOwner,
  kAudioStreamPropertyPhysicalFormats = 'pft#',
  kAudioStreamPropertyPhysicalFormatSupported = 'pft?',
  kAudioStreamPropertyPhysicalFormatMatch = 'pftm'
};

typedef OSStatus (*AudioHardwarePropertyListenerProc)(AudioHardwarePropertyID inPropertyID,
                                                      void* inClientData);
typedef OSStatus (*AudioDevicePropertyListenerProc)(AudioDeviceID inDevice, UInt32 inChannel,
                                                    Boolean isInput,
                                                    AudioDevicePropertyID inPropertyID,
                                                    void* inClientData);
typedef OSStatus (*AudioStreamPropertyListenerProc)(AudioStreamID inStream, UInt32 inChannel,
                                                    AudioDevicePropertyID inPropertyID,
                                                    void* inClientData);

// The system object
OSStatus AudioHardwareGetPropertyInfo(AudioHardwarePropertyID inPropertyID, UInt32* outSize,
                                      Boolean* outWritable);
OSStatus AudioHardwareGetProperty(AudioHardwarePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                  void* outPropertyData);
OSStatus AudioHardwareSetProperty(AudioHardwarePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                  const void* inPropertyData);
OSStatus AudioHardwareAddPropertyListener(AudioHardwarePropertyID inPropertyID,
                                          AudioHardwarePropertyListenerProc inProc,
                                          void* inClientData);
OSStatus AudioHardwareRemovePropertyListener(AudioHardwarePropertyID inPropertyID,
                                             AudioHardwarePropertyListenerProc inProc);

// Devices
OSStatus AudioDeviceAddIOProc(AudioDeviceID inDevice, AudioDeviceIOProc inProc, void* inClientData);
OSStatus AudioDeviceRemoveIOProc(AudioDeviceID inDevice, AudioDeviceIOProc inProc);
OSStatus AudioDeviceRead(AudioDeviceID inDevice, const AudioTimeStamp* inStartTime,
                         AudioBufferList* outData);
OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                    AudioDevicePropertyID inPropertyID, UInt32* outSize,
                                    Boolean* outWritable);
OSStatus AudioDeviceGetProperty(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                AudioDevicePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                void* outPropertyData);
OSStatus AudioDeviceSetProperty(AudioDeviceID inDevice, const AudioTimeStamp* inWhen,
                                UInt32 inChannel, Boolean isInput,
                                AudioDevicePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                const void* inPropertyData);
OSStatus AudioDeviceAddPropertyListener(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                        AudioDevicePropertyID inPropertyID,
                                        AudioDevicePropertyListenerProc inProc, void* inClientData);
OSStatus AudioDeviceRemovePropertyListener(AudioDeviceID inDevice, UInt32 inChannel,
                                           Boolean isInput, AudioDevicePropertyID inPropertyID,
                                           AudioDevicePropertyListenerProc inProc);

// Streams
OSStatus AudioStreamGetPropertyInfo(AudioStreamID inStream, UInt32 inChannel,
                                    AudioDevicePropertyID inPropertyID, UInt32* outSize,
                                    Boolean* outWritable);
OSStatus AudioStreamGetProperty(AudioStreamID inStream, UInt32 inChannel,
                                AudioDevicePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                void* outPropertyData);
OSStatus AudioStreamSetProperty(AudioStreamID inStream, const AudioTimeStamp* inWhen,
                                UInt32 inChannel, AudioDevicePropertyID inPropertyID,
                                UInt32 inPropertyDataSize, const void* inPropertyData);
OSStatus AudioStreamAddPropertyListener(AudioStreamID inStream, UInt32 inChannel,
                                        AudioDevicePropertyID inPropertyID,
                                        AudioStreamPropertyListenerProc inProc, void* inClientData);
OSStatus AudioStreamRemovePropertyListener(AudioStreamID inStream, UInt32 inChannel,
                                           AudioDevicePropertyID inPropertyID,
                                           AudioStreamPropertyListenerProc inProc);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
