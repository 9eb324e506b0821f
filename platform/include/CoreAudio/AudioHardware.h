#pragma once

#include <CoreAudio/AudioHardwareBase.h>
#include <dispatch/dispatch.h>

// The client side of the HAL: the system object, objects and their properties, listeners, and the
// I/O of devices. Every function may be called from any thread; each answers a status, 0 for
// success.

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum : AudioObjectID { kAudioObjectSystemObject = 1 };

typedef OSStatus (*AudioObjectPropertyListenerProc)(AudioObjectID inObjectID,
                                                    UInt32 inNumberAddresses,
                                                    const AudioObjectPropertyAddress* inAddresses,
                                                    void* inClientData);
typedef void (^AudioObjectPropertyListenerBlock)(UInt32 inNumberAddresses,
                                                 const AudioObjectPropertyAddress* inAddresses);

// What the HAL tells an object of its listeners, and other properties of every object.
enum : AudioObjectPropertySelector {
  kAudioObjectPropertyCreator = 'oplg',
  kAudioObjectPropertyListenerAdded = 'lisa',
  kAudioObjectPropertyListenerRemoved = 'lisr'
};

void AudioObjectShow(AudioObjectID inObjectID);
Boolean AudioObjectHasProperty(AudioObjectID inObjectID,
                               const AudioObjectPropertyAddress* inAddress);
OSStatus AudioObjectIsPropertySettable(AudioObjectID inObjectID,
                                       const AudioObjectPropertyAddress* inAddress,
                                       Boolean* outIsSettable);
OSStatus AudioObjectGetPropertyDataSize(AudioObjectID inObjectID,
                                        const AudioObjectPropertyAddress* inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData,
                                        UInt32* outDataSize);
OSStatus AudioObjectGetPropertyData(AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData,
                                    UInt32* ioDataSize, void* outData);
OSStatus AudioObjectSetPropertyData(AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData,
                                    UInt32 inDataSize, const void* inData);

// Listeners are called on the HAL's own thread, blocks on their queue where one is given. Once a
// removal has returned, the listener is not called again, unless it removed itself from within.
OSStatus AudioObjectAddPropertyListener(AudioObjectID inObjectID,
                                        const AudioObjectPropertyAddress* inAddress,
                                        AudioObjectPropertyListenerProc inListener,
                                        void* inClientData);
OSStatus AudioObjectRemovePropertyListener(AudioObjectID inObjectID,
                                           const AudioObjectPropertyAddress* inAddress,
                                           AudioObjectPropertyListenerProc inListener,
                                           void* inClientData);
OSStatus AudioObjectAddPropertyListenerBlock(AudioObjectID inObjectID,
                                             const AudioObjectPropertyAddress* inAddress,
                                             dispatch_queue_t inDispatchQueue,
                                             AudioObjectPropertyListenerBlock inListener);
OSStatus AudioObjectRemovePropertyListenerBlock(AudioObjectID inObjectID,
                                                const AudioObjectPropertyAddress* inAddress,
                                                dispatch_queue_t inDispatchQueue,
                                                AudioObjectPropertyListenerBlock inListener);

// AudioSystemObject
enum : AudioClassID { kAudioSystemObjectClassID = 'asys' };
enum : AudioObjectPropertySelector {
  kAudioHardwarePropertyDevices = 'dev#',
  kAudioHardwarePropertyDefaultInputDevice = 'dIn ',
  kAudioHardwarePropertyDefaultOutputDevice = 'dOut',
  kAudioHardwarePropertyDefaultSystemOutputDevice = 'sOut',
  kAudioHardwarePropertyTranslateUIDToDevice = 'uidd',
  kAudioHardwarePropertyMixStereoToMono = 'stmo',
  kAudioHardwarePropertyPlugInList = 'plg#',
  kAudioHardwarePropertyTranslateBundleIDToPlugIn = 'bidp',
  kAudioHardwarePropertyTransportManagerList = 'tmg#',
  kAudioHardwarePropertyTranslateBundleIDToTransportManager = 'tmbi',
  kAudioHardwarePropertyBoxList = 'box#',
  kAudioHardwarePropertyTranslateUIDToBox = 'uidb',
  kAudioHardwarePropertyClockDeviceList = 'clk#',
  kAudioHardwarePropertyTranslateUIDToClockDevice = 'uidc',
  kAudioHardwarePropertyProcessIsMaster = 'mast',
  kAudioHardwarePropertyIsInitingOrExiting = 'inot',
  kAudioHardwarePropertyUserIDChanged = 'euid',
  kAudioHardwarePropertyProcessIsAudible = 'pmut',
  kAudioHardwarePropertySleepingIsAllowed = 'slep',
  kAudioHardwarePropertyUnloadingIsAllowed = 'unld',
  kAudioHardwarePropertyHogModeIsAllowed = 'hogr',
  kAudioHardwarePropertyUserSessionIsActiveOrHeadless = 'user',
  kAudioHardwarePropertyServiceRestarted = 'srst',
  kAudioHardwarePropertyPowerHint = 'powh'
};

// Ends all I/O of this process and takes every plug-in down; the next call starts anew.
OSStatus AudioHardwareUnload(void);

// AudioPlugIn
enum : AudioObjectPropertySelector {
  kAudioPlugInCreateAggregateDevice = 'cagg',
  kAudioPlugInDestroyAggregateDevice = 'dagg'
};

// AudioDevice

// Called on the device's I/O thread in each cycle.
typedef OSStatus (*AudioDeviceIOProc)(AudioObjectID inDevice, const AudioTimeStamp* inNow,
                                      const AudioBufferList* inInputData,
                                      const AudioTimeStamp* inInputTime,
                                      AudioBufferList* outOutputData,
                                      const AudioTimeStamp* inOutputTime, void* inClientData);
typedef void (^AudioDeviceIOBlock)(const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
                                   const AudioTimeStamp* inInputTime,
                                   AudioBufferList* outOutputData,
                                   const AudioTimeStamp* inOutputTime);
// Opaque; a device made it for one procedure and its client data.
typedef AudioDeviceIOProc AudioDeviceIOProcID;

typedef struct AudioHardwareIOProcStreamUsage {
  void* mIOProc;
  UInt32 mNumberStreams;
  UInt32 mStreamIsOn[1];
} AudioHardwareIOProcStreamUsage;

enum : UInt32 {
  kAudioDeviceStartTimeIsInputFlag = (1U << 0),
  kAudioDeviceStartTimeDontConsultDeviceFlag = (1U << 1),
  kAudioDeviceStartTimeDontConsultHALFlag = (1U << 2)
};

enum : AudioObjectPropertySelector {
  kAudioDevicePropertyPlugIn = 'plug',
  kAudioDevicePropertyDeviceHasChanged = 'diff',
  kAudioDevicePropertyDeviceIsRunningSomewhere = 'gone',
  kAudioDeviceProcessorOverload = 'over',
  kAudioDevicePropertyIOStoppedAbnormally = 'stpd',
  kAudioDevicePropertyHogMode = 'oink',
  kAudioDevicePropertyBufferFrameSize = 'fsiz',
  kAudioDevicePropertyBufferFrameSizeRange = 'fsz#',
  kAudioDevicePropertyUsesVariableBufferFrameSizes = 'vfsz',
  kAudioDevicePropertyIOCycleUsage = 'ncyc',
  kAudioDevicePropertyStreamConfiguration = 'slay',
  kAudioDevicePropertyIOProcStreamUsage = 'suse',
  kAudioDevicePropertyActualSampleRate = 'asrt',
  kAudioDevicePropertyClockDevice = 'apcd'
};

// What a device answers on behalf of its controls.
enum : AudioObjectPropertySelector {
  kAudioDevicePropertyJackIsConnected = 'jack',
  kAudioDevicePropertyVolumeScalar = 'volm',
  kAudioDevicePropertyVolumeDecibels = 'vold',
  kAudioDevicePropertyVolumeRangeDecibels = 'vdb#',
  kAudioDevicePropertyVolumeScalarToDecibels = 'v2db',
  kAudioDevicePropertyVolumeDecibelsToScalar = 'db2v',
  kAudioDevicePropertyStereoPan = 'span',
  kAudioDevicePropertyStereoPanChannels = 'spn#',
  kAudioDevicePropertyMute = 'mute',
  kAudioDevicePropertySolo = 'solo',
  kAudioDevicePropertyPhantomPower = 'phan',
  kAudioDevicePropertyPhaseInvert = 'phsi',
  kAudioDevicePropertyClipLight = 'clip',
  kAudioDevicePropertyTalkback = 'talb',
  kAudioDevicePropertyListenback = 'lsnb',
  kAudioDevicePropertyDataSource = 'ssrc',
  kAudioDevicePropertyDataSources = 'ssc#',
  kAudioDevicePropertyDataSourceNameForIDCFString = 'lscn',
  kAudioDevicePropertyDataSourceKindForID = 'ssck',
  kAudioDevicePropertyClockSource = 'csrc',
  kAudioDevicePropertyClockSources = 'csc#',
  kAudioDevicePropertyClockSourceNameForIDCFString = 'lcsn',
  kAudioDevicePropertyClockSourceKindForID = 'csck',
  kAudioDevicePropertyPlayThru = 'thru',
  kAudioDevicePropertyPlayThruSolo = 'thrs',
  kAudioDevicePropertyPlayThruVolumeScalar = 'mvsc',
  kAudioDevicePropertyPlayThruVolumeDecibels = 'mvdb',
  kAudioDevicePropertyPlayThruVolumeRangeDecibels = 'mvd#',
  kAudioDevicePropertyPlayThruVolumeScalarToDecibels = 'mv2d',
  kAudioDevicePropertyPlayThruVolumeDecibelsToScalar = 'mv2s',
  kAudioDevicePropertyPlayThruStereoPan = 'mspn',
  kAudioDevicePropertyPlayThruStereoPanChannels = 'msp#',
  kAudioDevicePropertyPlayThruDestination = 'mdds',
  kAudioDevicePropertyPlayThruDestinations = 'mdd#',
  kAudioDevicePropertyPlayThruDestinationNameForIDCFString = 'mddc',
  kAudioDevicePropertyChannelNominalLineLevel = 'nlvl',
  kAudioDevicePropertyChannelNominalLineLevels = 'nlv#',
  kAudioDevicePropertyChannelNominalLineLevelNameForIDCFString = 'lcnl',
  kAudioDevicePropertyHighPassFilterSetting = 'hipf',
  kAudioDevicePropertyHighPassFilterSettings = 'hip#',
  kAudioDevicePropertyHighPassFilterSettingNameForIDCFString = 'hipl',
  kAudioDevicePropertySubVolumeScalar = 'svlm',
  kAudioDevicePropertySubVolumeDecibels = 'svld',
  kAudioDevicePropertySubVolumeRangeDecibels = 'svd#',
  kAudioDevicePropertySubVolumeScalarToDecibels = 'sv2d',
  kAudioDevicePropertySubVolumeDecibelsToScalar = 'sd2v',
  kAudioDevicePropertySubMute = 'smut'
};

OSStatus AudioDeviceCreateIOProcID(AudioObjectID inDevice, AudioDeviceIOProc inProc,
                                   void* inClientData, AudioDeviceIOProcID* outIOProcID);
OSStatus AudioDeviceCreateIOProcIDWithBlock(AudioDeviceIOProcID* outIOProcID,
                                            AudioObjectID inDevice,
                                            dispatch_queue_t inDispatchQueue,
                                            AudioDeviceIOBlock inIOBlock);
OSStatus AudioDeviceDestroyIOProcID(AudioObjectID inDevice, AudioDeviceIOProcID inIOProcID);
// A null procedure starts and stops the hardware alone.
OSStatus AudioDeviceStart(AudioObjectID inDevice, AudioDeviceIOProcID inProcID);
OSStatus AudioDeviceStartAtTime(AudioObjectID inDevice, AudioDeviceIOProcID inProcID,
                                AudioTimeStamp* ioRequestedStartTime, UInt32 inFlags);
OSStatus AudioDeviceStop(AudioObjectID inDevice, AudioDeviceIOProcID inProcID);
OSStatus AudioDeviceGetCurrentTime(AudioObjectID inDevice, AudioTimeStamp* outTime);
OSStatus AudioDeviceTranslateTime(AudioObjectID inDevice, const AudioTimeStamp* inTime,
                                  AudioTimeStamp* outTime);
OSStatus AudioDeviceGetNearestStartTime(AudioObjectID inDevice,
                                        AudioTimeStamp* ioRequestedStartTime, UInt32 inFlags);

// AudioAggregateDevice and its parts, as classes
enum : AudioClassID { kAudioAggregateDeviceClassID = 'aagg', kAudioSubDeviceClassID = 'asub' };

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#include <CoreAudio/AudioHardwareDeprecated.h>
