#pragma once

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

// What objects, their addresses, classes and properties are called, for clients of the HAL and
// for plug-ins alike.

typedef UInt32 AudioObjectID;
typedef UInt32 AudioClassID;
typedef UInt32 AudioObjectPropertySelector;
typedef UInt32 AudioObjectPropertyScope;
typedef UInt32 AudioObjectPropertyElement;

struct AudioObjectPropertyAddress {
  AudioObjectPropertySelector mSelector;
  AudioObjectPropertyScope mScope;
  AudioObjectPropertyElement mElement;
};
typedef struct AudioObjectPropertyAddress AudioObjectPropertyAddress;

enum : OSStatus {
  kAudioHardwareNoError = 0,
  kAudioHardwareNotRunningError = 'stop',
  kAudioHardwareUnspecifiedError = 'what',
  kAudioHardwareUnknownPropertyError = 'who?',
  kAudioHardwareBadPropertySizeError = '!siz',
  kAudioHardwareIllegalOperationError = 'nope',
  kAudioHardwareBadObjectError = '!obj',
  kAudioHardwareBadDeviceError = '!dev',
  kAudioHardwareBadStreamError = '!str',
  kAudioHardwareUnsupportedOperationError = 'unop',
  kAudioDeviceUnsupportedFormatError = '!dat',
  kAudioDevicePermissionsError = '!hog'
};

enum : AudioObjectID { kAudioObjectUnknown = 0 };

enum : AudioObjectPropertyScope {
  kAudioObjectPropertyScopeGlobal = 'glob',
  kAudioObjectPropertyScopeInput = 'inpt',
  kAudioObjectPropertyScopeOutput = 'outp',
  kAudioObjectPropertyScopePlayThrough = 'ptru'
};
enum : AudioObjectPropertyElement { kAudioObjectPropertyElementMaster = 0 };

enum : AudioObjectPropertySelector { kAudioObjectPropertySelectorWildcard = '****' };
enum : AudioObjectPropertyScope { kAudioObjectPropertyScopeWildcard = '****' };
enum : AudioObjectPropertyElement { kAudioObjectPropertyElementWildcard = 0xFFFFFFFFU };

// AudioObject
enum : AudioClassID { kAudioObjectClassIDWildcard = '****', kAudioObjectClassID = 'aobj' };
enum : AudioObjectPropertySelector {
  kAudioObjectPropertyBaseClass = 'bcls',
  kAudioObjectPropertyClass = 'clas',
  kAudioObjectPropertyOwner = 'stdv',
  kAudioObjectPropertyName = 'lnam',
  kAudioObjectPropertyModelName = 'lmod',
  kAudioObjectPropertyManufacturer = 'lmak',
  kAudioObjectPropertyElementName = 'lchn',
  kAudioObjectPropertyElementCategoryName = 'lccn',
  kAudioObjectPropertyElementNumberName = 'lcnn',
  kAudioObjectPropertyOwnedObjects = 'ownd',
  kAudioObjectPropertyIdentify = 'iden',
  kAudioObjectPropertySerialNumber = 'snum',
  kAudioObjectPropertyFirmwareVersion = 'fwvn'
};

// AudioPlugIn
enum : AudioClassID { kAudioPlugInClassID = 'aplg' };
enum : AudioObjectPropertySelector {
  kAudioPlugInPropertyBundleID = 'piid',
  kAudioPlugInPropertyDeviceList = 'dev#',
  kAudioPlugInPropertyTranslateUIDToDevice = 'uidd',
  kAudioPlugInPropertyBoxList = 'box#',
  kAudioPlugInPropertyTranslateUIDToBox = 'uidb',
  kAudioPlugInPropertyClockDeviceList = 'clk#',
  kAudioPlugInPropertyTranslateUIDToClockDevice = 'uidc'
};

// Other owners of devices
enum : AudioClassID {
  kAudioTransportManagerClassID = 'trpm',
  kAudioBoxClassID = 'abox',
  kAudioClockDeviceClassID = 'aclk',
  kAudioEndPointDeviceClassID = 'edev',
  kAudioEndPointClassID = 'endp'
};

// AudioDevice
enum : AudioClassID { kAudioDeviceClassID = 'adev' };
enum : UInt32 {
  kAudioDeviceTransportTypeUnknown = 0,
  kAudioDeviceTransportTypeBuiltIn = 'bltn',
  kAudioDeviceTransportTypeAggregate = 'grup',
  kAudioDeviceTransportTypeVirtual = 'virt',
  kAudioDeviceTransportTypePCI = 'pci ',
  kAudioDeviceTransportTypeUSB = 'usb ',
  kAudioDeviceTransportTypeFireWire = '1394',
  kAudioDeviceTransportTypeBluetooth = 'blue',
  kAudioDeviceTransportTypeBluetoothLE = 'blea',
  kAudioDeviceTransportTypeHDMI = 'hdmi',
  kAudioDeviceTransportTypeDisplayPort = 'dprt',
  kAudioDeviceTransportTypeAirPlay = 'airp',
  kAudioDeviceTransportTypeAVB = 'eavb',
  kAudioDeviceTransportTypeThunderbolt = 'thun'
};
enum : AudioObjectPropertySelector {
  kAudioDevicePropertyConfigurationApplication = 'capp',
  kAudioDevicePropertyDeviceUID = 'uid ',
  kAudioDevicePropertyModelUID = 'muid',
  kAudioDevicePropertyTransportType = 'tran',
  kAudioDevicePropertyRelatedDevices = 'akin',
  kAudioDevicePropertyClockDomain = 'clkd',
  kAudioDevicePropertyDeviceIsAlive = 'livn',
  kAudioDevicePropertyDeviceIsRunning = 'goin',
  kAudioDevicePropertyDeviceCanBeDefaultDevice = 'dflt',
  kAudioDevicePropertyDeviceCanBeDefaultSystemDevice = 'sflt',
  kAudioDevicePropertyLatency = 'ltnc',
  kAudioDevicePropertyStreams = 'stm#',
  kAudioObjectPropertyControlList = 'ctrl',
  kAudioDevicePropertySafetyOffset = 'saft',
  kAudioDevicePropertyNominalSampleRate = 'nsrt',
  kAudioDevicePropertyAvailableNominalSampleRates = 'nsr#',
  kAudioDevicePropertyIcon = 'icon',
  kAudioDevicePropertyIsHidden = 'hidn',
  kAudioDevicePropertyPreferredChannelsForStereo = 'dch2',
  kAudioDevicePropertyPreferredChannelLayout = 'srnd'
};

// AudioStream
typedef struct AudioStreamRangedDescription {
  AudioStreamBasicDescription mFormat;
  AudioValueRange mSampleRateRange;
} AudioStreamRangedDescription;

enum : AudioClassID { kAudioStreamClassID = 'astr' };
enum : UInt32 {
  kAudioStreamTerminalTypeUnknown = 0,
  kAudioStreamTerminalTypeLine = 'line',
  kAudioStreamTerminalTypeDigitalAudioInterface = 'spdf',
  kAudioStreamTerminalTypeSpeaker = 'spkr',
  kAudioStreamTerminalTypeHeadphones = 'hdph',
  kAudioStreamTerminalTypeLFESpeaker = 'lfes',
  kAudioStreamTerminalTypeReceiverSpeaker = 'rspk',
  kAudioStreamTerminalTypeMicrophone = 'micr',
  kAudioStreamTerminalTypeHeadsetMicrophone = 'hmic',
  kAudioStreamTerminalTypeReceiverMicrophone = 'rmic',
  kAudioStreamTerminalTypeTTY = 'tty_',
  kAudioStreamTerminalTypeHDMI = 'hdmi',
  kAudioStreamTerminalTypeDisplayPort = 'dprt'
};
enum : AudioObjectPropertySelector {
  kAudioStreamPropertyIsActive = 'sact',
  kAudioStreamPropertyDirection = 'sdir',
  kAudioStreamPropertyTerminalType = 'term',
  kAudioStreamPropertyStartingChannel = 'schn',
  kAudioStreamPropertyLatency = kAudioDevicePropertyLatency,
  kAudioStreamPropertyVirtualFormat = 'sfmt',
  kAudioStreamPropertyAvailableVirtualFormats = 'sfma',
  kAudioStreamPropertyPhysicalFormat = 'pft ',
  kAudioStreamPropertyAvailablePhysicalFormats = 'pfta'
};

// AudioControl
enum : AudioClassID { kAudioControlClassID = 'actl' };
enum : AudioObjectPropertySelector {
  kAudioControlPropertyScope = 'cscp',
  kAudioControlPropertyElement = 'celm'
};

enum : AudioClassID { kAudioSliderControlClassID = 'sldr' };
enum : AudioObjectPropertySelector {
  kAudioSliderControlPropertyValue = 'sdrv',
  kAudioSliderControlPropertyRange = 'sdrr'
};

enum : AudioClassID {
  kAudioLevelControlClassID = 'levl',
  kAudioVolumeControlClassID = 'vlme',
  kAudioLFEVolumeControlClassID = 'subv'
};
enum : AudioObjectPropertySelector {
  kAudioLevelControlPropertyScalarValue = 'lcsv',
  kAudioLevelControlPropertyDecibelValue = 'lcdv',
  kAudioLevelControlPropertyDecibelRange = 'lcdr',
  kAudioLevelControlPropertyConvertScalarToDecibels = 'lcsd',
  kAudioLevelControlPropertyConvertDecibelsToScalar = 'lcds'
};

enum : AudioClassID {
  kAudioBooleanControlClassID = 'togl',
  kAudioMuteControlClassID = 'mute',
  kAudioSoloControlClassID = 'solo',
  kAudioJackControlClassID = 'jack',
  kAudioLFEMuteControlClassID = 'subm',
  kAudioPhantomPowerControlClassID = 'phan',
  kAudioPhaseInvertControlClassID = 'phsi',
  kAudioClipLightControlClassID = 'clip',
  kAudioTalkbackControlClassID = 'talb',
  kAudioListenbackControlClassID = 'lsnb'
};
enum : AudioObjectPropertySelector { kAudioBooleanControlPropertyValue = 'bcvl' };

enum : AudioClassID {
  kAudioSelectorControlClassID = 'slct',
  kAudioDataSourceControlClassID = 'dsrc',
  kAudioDataDestinationControlClassID = 'dest',
  kAudioClockSourceControlClassID = 'clck',
  kAudioLineLevelControlClassID = 'nlvl',
  kAudioHighPassFilterControlClassID = 'hipf'
};
enum : UInt32 {
  kAudioSelectorControlItemKindSpacer = 'spcr',
  kAudioClockSourceItemKindInternal = 'int '
};
enum : AudioObjectPropertySelector {
  kAudioSelectorControlPropertyCurrentItem = 'scci',
  kAudioSelectorControlPropertyAvailableItems = 'scai',
  kAudioSelectorControlPropertyItemName = 'scin',
  kAudioSelectorControlPropertyItemKind = 'clkk'
};

enum : AudioClassID { kAudioStereoPanControlClassID = 'span' };
enum : AudioObjectPropertySelector {
  kAudioStereoPanControlPropertyValue = 'spcv',
  kAudioStereoPanControlPropertyPanningChannels = 'spcc'
};

#ifdef __cplusplus
static_assert(sizeof(AudioObjectPropertyAddress) == 12);
static_assert(sizeof(AudioStreamRangedDescription) == 56);
#endif
