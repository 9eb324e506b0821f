#pragma once

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CFPlugInCOM.h>

// The plug-in side of the HAL: the interface that a plug-in's factory answers with, and what the
// plug-in calls to bring its objects to life and to tell of their changes.

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// F8BB1C28-BAE8-11D6-9C31-00039315CD46
#define kAudioHardwarePlugInTypeID                                                                 \
  CFUUIDGetConstantUUIDWithBytes(NULL, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8, 0x11, 0xD6, 0x9C, 0x31, \
                                 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46)

// FAFCAFC3-BAE8-11D6-B4A8-00039315CD46
#define kAudioHardwarePlugInInterfaceID                                                            \
  CFUUIDGetConstantUUIDWithBytes(NULL, 0xFA, 0xFC, 0xAF, 0xC3, 0xBA, 0xE8, 0x11, 0xD6, 0xB4, 0xA8, \
                                 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46)

// 5D80CB6C-484F-11D7-8571-000A95771282
#define kAudioHardwarePlugInInterface2ID                                                           \
  CFUUIDGetConstantUUIDWithBytes(NULL, 0x5D, 0x80, 0xCB, 0x6C, 0x48, 0x4F, 0x11, 0xD7, 0x85, 0x71, \
                                 0x00, 0x0A, 0x95, 0x77, 0x12, 0x82)

// 38D78A18-77A5-11D8-B8B8-000A9588787E
#define kAudioHardwarePlugInInterface3ID                                                           \
  CFUUIDGetConstantUUIDWithBytes(NULL, 0x38, 0xD7, 0x8A, 0x18, 0x77, 0xA5, 0x11, 0xD8, 0xB8, 0xB8, \
                                 0x00, 0x0A, 0x95, 0x88, 0x78, 0x7E)

// E96C3E92-E745-4CB7-BA91-B33C68F2F026
#define kAudioHardwarePlugInInterface4ID                                                           \
  CFUUIDGetConstantUUIDWithBytes(NULL, 0xE9, 0x6C, 0x3E, 0x92, 0xE7, 0x45, 0x4C, 0xB7, 0xBA, 0x91, \
                                 0xB3, 0x3C, 0x68, 0xF2, 0xF0, 0x26)

// 47023157-0C55-44AA-8996-B81F69AE876E
#define kAudioHardwarePlugInInterface5ID                                                           \
  CFUUIDGetConstantUUIDWithBytes(NULL, 0x47, 0x02, 0x31, 0x57, 0x0C, 0x55, 0x44, 0xAA, 0x89, 0x96, \
                                 0xB8, 0x1F, 0x69, 0xAE, 0x87, 0x6E)

typedef struct AudioHardwarePlugInInterface AudioHardwarePlugInInterface;
typedef AudioHardwarePlugInInterface** AudioHardwarePlugInRef;

// The first word is reserved for COM and null. The comments name the version that brought an entry.
struct AudioHardwarePlugInInterface {
  void* _reserved;
  HRESULT (*QueryInterface)(void* inSelf, REFIID inUUID, LPVOID* outInterface);
  ULONG (*AddRef)(void* inSelf);
  ULONG (*Release)(void* inSelf);
  OSStatus (*Initialize)(AudioHardwarePlugInRef inSelf);
  OSStatus (*Teardown)(AudioHardwarePlugInRef inSelf);

  OSStatus (*DeviceAddIOProc)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                              AudioDeviceIOProc inProc, void* inClientData);
  OSStatus (*DeviceRemoveIOProc)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                 AudioDeviceIOProc inProc);
  OSStatus (*DeviceStart)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                          AudioDeviceIOProcID inProcID);
  OSStatus (*DeviceStop)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                         AudioDeviceIOProcID inProcID);
  OSStatus (*DeviceRead)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                         const AudioTimeStamp* inStartTime, AudioBufferList* outData);
  OSStatus (*DeviceGetCurrentTime)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                   AudioTimeStamp* outTime);
  OSStatus (*DeviceTranslateTime)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                  const AudioTimeStamp* inTime, AudioTimeStamp* outTime);
  OSStatus (*DeviceGetPropertyInfo)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                    UInt32 inChannel, Boolean isInput,
                                    AudioDevicePropertyID inPropertyID, UInt32* outSize,
                                    Boolean* outWritable);
  OSStatus (*DeviceGetProperty)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                UInt32 inChannel, Boolean isInput,
                                AudioDevicePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                void* outPropertyData);
  OSStatus (*DeviceSetProperty)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                const AudioTimeStamp* inWhen, UInt32 inChannel, Boolean isInput,
                                AudioDevicePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                const void* inPropertyData);
  OSStatus (*StreamGetPropertyInfo)(AudioHardwarePlugInRef inSelf, AudioStreamID inStream,
                                    UInt32 inChannel, AudioDevicePropertyID inPropertyID,
                                    UInt32* outSize, Boolean* outWritable);
  OSStatus (*StreamGetProperty)(AudioHardwarePlugInRef inSelf, AudioStreamID inStream,
                                UInt32 inChannel, AudioDevicePropertyID inPropertyID,
                                UInt32* ioPropertyDataSize, void* outPropertyData);
  OSStatus (*StreamSetProperty)(AudioHardwarePlugInRef inSelf, AudioStreamID inStream,
                                const AudioTimeStamp* inWhen, UInt32 inChannel,
                                AudioDevicePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                const void* inPropertyData);

  // Version 2
  OSStatus (*DeviceStartAtTime)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                AudioDeviceIOProcID inProcID, AudioTimeStamp* ioRequestedStartTime,
                                UInt32 inFlags);
  OSStatus (*DeviceGetNearestStartTime)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                        AudioTimeStamp* ioRequestedStartTime, UInt32 inFlags);

  // Version 4
  OSStatus (*InitializeWithObjectID)(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID);
  void (*ObjectShow)(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID);
  Boolean (*ObjectHasProperty)(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID,
                               const AudioObjectPropertyAddress* inAddress);
  OSStatus (*ObjectIsPropertySettable)(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID,
                                       const AudioObjectPropertyAddress* inAddress,
                                       Boolean* outIsSettable);
  OSStatus (*ObjectGetPropertyDataSize)(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID,
                                        const AudioObjectPropertyAddress* inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData,
                                        UInt32* outDataSize);
  OSStatus (*ObjectGetPropertyData)(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData,
                                    UInt32* ioDataSize, void* outData);
  OSStatus (*ObjectSetPropertyData)(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData,
                                    UInt32 inDataSize, const void* inData);

  // Version 5
  OSStatus (*DeviceCreateIOProcID)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                   AudioDeviceIOProc inProc, void* inClientData,
                                   AudioDeviceIOProcID* outIOProcID);
  OSStatus (*DeviceDestroyIOProcID)(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                    AudioDeviceIOProcID inIOProcID);
  OSStatus (*DeviceCreateIOProcIDWithBlock)(AudioHardwarePlugInRef inSelf,
                                            AudioDeviceIOProcID* outIOProcID,
                                            AudioDeviceID inDevice,
                                            dispatch_queue_t inDispatchQueue,
                                            AudioDeviceIOBlock inIOBlock);
};

// Allocates the ID of a new object that the plug-in owns; clients see it once it is published.
OSStatus AudioObjectCreate(AudioHardwarePlugInRef inOwningPlugIn, AudioObjectID inOwningObjectID,
                           AudioClassID inClassID, AudioObjectID* outAudioObjectID);

// Tells of changed properties. Returns at once; listeners are called on the HAL's own thread.
OSStatus AudioObjectPropertiesChanged(AudioHardwarePlugInRef inOwningPlugIn,
                                      AudioObjectID inObjectID, UInt32 inNumberAddresses,
                                      const AudioObjectPropertyAddress* inAddresses);

// Tells which objects of one owner have come and which have gone. An ID that has gone is not used
// again.
OSStatus AudioObjectsPublishedAndDied(AudioHardwarePlugInRef inOwningPlugIn,
                                      AudioObjectID inOwningObjectID,
                                      UInt32 inNumberPublishedAudioObjects,
                                      const AudioObjectID* inPublishedAudioObjects,
                                      UInt32 inNumberDeadAudioObjects,
                                      const AudioObjectID* inDeadAudioObjects);

#pragma GCC visibility pop
#ifdef __cplusplus
}

static_assert(sizeof(AudioHardwarePlugInInterface) == 31 * sizeof(void*));
#endif
