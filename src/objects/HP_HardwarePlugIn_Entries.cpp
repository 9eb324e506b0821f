// The functions that the host calls. Each finds its object by ID, takes the object's mutex where
// it is a property call, and turns whatever is thrown into a status: nothing passes this border.

#include <initializer_list>

#include "device/HP_Device.h"
#include "formats/HP_Stream.h"
#include "objects/HP_HardwarePlugIn.h"
#include "support/CAException.h"
#include "support/CAMutex.h"

namespace {

template <class Call>
OSStatus CatchAll(Call inCall) noexcept {
  try {
    inCall();
    return 0;
  } catch (const CAException& inException) {
    return inException.GetError();
  } catch (...) {
    return kAudioHardwareUnspecifiedError;
  }
}

void ThrowIfAnyIsNull(std::initializer_list<const void*> inPointers) {
  for (const void* thePointer : inPointers) {
    if (thePointer == nullptr) throw CAException(kAudioHardwareIllegalOperationError);
  }
}

template <class Function>
const void* AsPointer(Function* inFunction) {
  return reinterpret_cast<const void*>(inFunction);
}

// How an entry finds the kind of object that it is for.
struct ObjectLookUp {
  static HP_Object* Find(AudioObjectID inID) { return HP_Object::GetObjectByID(inID); }
  static constexpr OSStatus kNotFound = kAudioHardwareBadObjectError;
};

struct DeviceLookUp {
  static HP_Device* Find(AudioObjectID inID) { return HP_Object::GetDeviceByID(inID); }
  static constexpr OSStatus kNotFound = kAudioHardwareBadDeviceError;
};

struct StreamLookUp {
  static HP_Stream* Find(AudioObjectID inID) { return HP_Object::GetStreamByID(inID); }
  static constexpr OSStatus kNotFound = kAudioHardwareBadStreamError;
};

template <class LookUp>
auto& FindOrThrow(AudioObjectID inID, OSStatus inNotFound) {
  auto* theObject = LookUp::Find(inID);
  if (theObject == nullptr) throw CAException(inNotFound);
  return *theObject;
}

template <class LookUp, class Call>
void CallUnlocked(AudioObjectID inID, Call inCall) {
  inCall(FindOrThrow<LookUp>(inID, LookUp::kNotFound));
}

// The object may go while the call waits for its mutex, so it is looked up again with the mutex
// held. A thread that has the mutex already keeps it for its outer call.
template <class LookUp, class Call>
void CallLocked(AudioObjectID inID, Call inCall) {
  auto* theObject = &FindOrThrow<LookUp>(inID, LookUp::kNotFound);
  CAMutex* theMutex = HP_Object::GetObjectStateMutexByID(inID);
  CAMutex::Locker theLocker(theMutex);
  if (theMutex != nullptr) theObject = &FindOrThrow<LookUp>(inID, kAudioHardwareBadObjectError);
  inCall(*theObject);
}

AudioObjectPropertyAddress MakeDeviceAddress(AudioDevicePropertyID inPropertyID, Boolean inIsInput,
                                             UInt32 inChannel) {
  return {inPropertyID,
          inIsInput != 0 ? kAudioDevicePropertyScopeInput : kAudioDevicePropertyScopeOutput,
          inChannel};
}

AudioObjectPropertyAddress MakeStreamAddress(AudioDevicePropertyID inPropertyID, UInt32 inChannel) {
  return {inPropertyID, kAudioObjectPropertyScopeGlobal, inChannel};
}

void GetPropertyInfo(const HP_Object& inObject, const AudioObjectPropertyAddress& inAddress,
                     UInt32* outSize, Boolean* outWritable) {
  if (!inObject.HasProperty(inAddress)) throw CAException(kAudioHardwareUnknownPropertyError);
  if (outSize != nullptr) *outSize = inObject.GetPropertyDataSize(inAddress, 0, nullptr);
  if (outWritable != nullptr) *outWritable = inObject.IsPropertySettable(inAddress) ? 1 : 0;
}

HRESULT HP_HardwarePlugIn_QueryInterface(void* inSelf, REFIID inUUID, LPVOID* outInterface) {
  HRESULT theAnswer = S_OK;
  OSStatus theError = CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, outInterface});
    *outInterface = nullptr;
    CACFObject<CFUUIDRef> theUUID(CFUUIDCreateFromUUIDBytes(nullptr, inUUID));
    for (CFUUIDRef theKnown : {kAudioHardwarePlugInInterface5ID, kAudioHardwarePlugInInterface4ID,
                               kAudioHardwarePlugInInterface3ID, kAudioHardwarePlugInInterface2ID,
                               kAudioHardwarePlugInInterfaceID, IUnknownUUID}) {
      if (!CFEqual(theUUID.GetObject(), theKnown)) continue;
      auto* thePlugIn = HP_HardwarePlugIn::GetObject(static_cast<AudioHardwarePlugInRef>(inSelf));
      thePlugIn->Retain();
      *outInterface = thePlugIn->GetInterface();
      return;
    }
    theAnswer = E_NOINTERFACE;
  });
  return theError != 0 ? theError : theAnswer;
}

ULONG HP_HardwarePlugIn_AddRef(void* inSelf) {
  ULONG theCount = 0;
  CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    theCount = HP_HardwarePlugIn::GetObject(static_cast<AudioHardwarePlugInRef>(inSelf))->Retain();
  });
  return theCount;
}

ULONG HP_HardwarePlugIn_Release(void* inSelf) {
  ULONG theCount = 0;
  CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    theCount = HP_HardwarePlugIn::GetObject(static_cast<AudioHardwarePlugInRef>(inSelf))->Release();
  });
  return theCount;
}

OSStatus HP_HardwarePlugIn_Initialize(AudioHardwarePlugInRef inSelf) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    HP_HardwarePlugIn::GetObject(inSelf)->Initialize();
  });
}

OSStatus HP_HardwarePlugIn_Teardown(AudioHardwarePlugInRef inSelf) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    HP_HardwarePlugIn::GetObject(inSelf)->Teardown();
  });
}

OSStatus HP_HardwarePlugIn_DeviceAddIOProc(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                           AudioDeviceIOProc inProc, void* inClientData) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, AsPointer(inProc)});
    CallUnlocked<DeviceLookUp>(
        inDevice, [&](HP_Device& inObject) { inObject.Do_AddIOProc(inProc, inClientData); });
  });
}

OSStatus HP_HardwarePlugIn_DeviceRemoveIOProc(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                              AudioDeviceIOProc inProc) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, AsPointer(inProc)});
    CallUnlocked<DeviceLookUp>(inDevice,
                               [&](HP_Device& inObject) { inObject.Do_RemoveIOProc(inProc); });
  });
}

OSStatus HP_HardwarePlugIn_DeviceStart(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                       AudioDeviceIOProcID inProcID) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallUnlocked<DeviceLookUp>(inDevice,
                               [&](HP_Device& inObject) { inObject.Do_StartIOProc(inProcID); });
  });
}

OSStatus HP_HardwarePlugIn_DeviceStop(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                      AudioDeviceIOProcID inProcID) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallUnlocked<DeviceLookUp>(inDevice,
                               [&](HP_Device& inObject) { inObject.Do_StopIOProc(inProcID); });
  });
}

OSStatus HP_HardwarePlugIn_DeviceRead(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                      const AudioTimeStamp* inStartTime, AudioBufferList* outData) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, inStartTime, outData});
    CallUnlocked<DeviceLookUp>(inDevice,
                               [&](HP_Device& inObject) { inObject.Read(*inStartTime, outData); });
  });
}

OSStatus HP_HardwarePlugIn_DeviceGetCurrentTime(AudioHardwarePlugInRef inSelf,
                                                AudioDeviceID inDevice, AudioTimeStamp* outTime) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, outTime});
    CallUnlocked<DeviceLookUp>(inDevice,
                               [&](HP_Device& inObject) { inObject.SafeGetCurrentTime(*outTime); });
  });
}

OSStatus HP_HardwarePlugIn_DeviceTranslateTime(AudioHardwarePlugInRef inSelf,
                                               AudioDeviceID inDevice, const AudioTimeStamp* inTime,
                                               AudioTimeStamp* outTime) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, inTime, outTime});
    CallUnlocked<DeviceLookUp>(
        inDevice, [&](HP_Device& inObject) { inObject.TranslateTime(*inTime, *outTime); });
  });
}

OSStatus HP_HardwarePlugIn_DeviceGetPropertyInfo(AudioHardwarePlugInRef inSelf,
                                                 AudioDeviceID inDevice, UInt32 inChannel,
                                                 Boolean inIsInput,
                                                 AudioDevicePropertyID inPropertyID,
                                                 UInt32* outSize, Boolean* outWritable) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallLocked<DeviceLookUp>(inDevice, [&](HP_Device& inObject) {
      GetPropertyInfo(inObject, MakeDeviceAddress(inPropertyID, inIsInput, inChannel), outSize,
                      outWritable);
    });
  });
}

OSStatus HP_HardwarePlugIn_DeviceGetProperty(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                             UInt32 inChannel, Boolean inIsInput,
                                             AudioDevicePropertyID inPropertyID,
                                             UInt32* ioPropertyDataSize, void* outPropertyData) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, ioPropertyDataSize});
    CallLocked<DeviceLookUp>(inDevice, [&](HP_Device& inObject) {
      inObject.GetPropertyData(MakeDeviceAddress(inPropertyID, inIsInput, inChannel), 0, nullptr,
                               *ioPropertyDataSize, outPropertyData);
    });
  });
}

OSStatus HP_HardwarePlugIn_DeviceSetProperty(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                             const AudioTimeStamp* inWhen, UInt32 inChannel,
                                             Boolean inIsInput, AudioDevicePropertyID inPropertyID,
                                             UInt32 inPropertyDataSize,
                                             const void* inPropertyData) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallLocked<DeviceLookUp>(inDevice, [&](HP_Device& inObject) {
      inObject.SetPropertyData(MakeDeviceAddress(inPropertyID, inIsInput, inChannel), 0, nullptr,
                               inPropertyDataSize, inPropertyData, inWhen);
    });
  });
}

OSStatus HP_HardwarePlugIn_StreamGetPropertyInfo(AudioHardwarePlugInRef inSelf,
                                                 AudioStreamID inStream, UInt32 inChannel,
                                                 AudioDevicePropertyID inPropertyID,
                                                 UInt32* outSize, Boolean* outWritable) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallLocked<StreamLookUp>(inStream, [&](HP_Stream& inObject) {
      GetPropertyInfo(inObject, MakeStreamAddress(inPropertyID, inChannel), outSize, outWritable);
    });
  });
}

OSStatus HP_HardwarePlugIn_StreamGetProperty(AudioHardwarePlugInRef inSelf, AudioStreamID inStream,
                                             UInt32 inChannel, AudioDevicePropertyID inPropertyID,
                                             UInt32* ioPropertyDataSize, void* outPropertyData) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, ioPropertyDataSize});
    CallLocked<StreamLookUp>(inStream, [&](HP_Stream& inObject) {
      inObject.GetPropertyData(MakeStreamAddress(inPropertyID, inChannel), 0, nullptr,
                               *ioPropertyDataSize, outPropertyData);
    });
  });
}

OSStatus HP_HardwarePlugIn_StreamSetProperty(AudioHardwarePlugInRef inSelf, AudioStreamID inStream,
                                             const AudioTimeStamp* inWhen, UInt32 inChannel,
                                             AudioDevicePropertyID inPropertyID,
                                             UInt32 inPropertyDataSize,
                                             const void* inPropertyData) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallLocked<StreamLookUp>(inStream, [&](HP_Stream& inObject) {
      inObject.SetPropertyData(MakeStreamAddress(inPropertyID, inChannel), 0, nullptr,
                               inPropertyDataSize, inPropertyData, inWhen);
    });
  });
}

OSStatus HP_HardwarePlugIn_DeviceStartAtTime(AudioHardwarePlugInRef inSelf, AudioDeviceID inDevice,
                                             AudioDeviceIOProcID inProcID,
                                             AudioTimeStamp* ioRequestedStartTime, UInt32 inFlags) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallUnlocked<DeviceLookUp>(inDevice, [&](HP_Device& inObject) {
      if (inProcID != nullptr && ioRequestedStartTime != nullptr) {
        inObject.Do_StartIOProcAtTime(inProcID, *ioRequestedStartTime, inFlags);
      } else {
        inObject.Do_StartIOProc(inProcID);
      }
    });
  });
}

OSStatus HP_HardwarePlugIn_DeviceGetNearestStartTime(AudioHardwarePlugInRef inSelf,
                                                     AudioDeviceID inDevice,
                                                     AudioTimeStamp* ioRequestedStartTime,
                                                     UInt32 inFlags) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, ioRequestedStartTime});
    CallUnlocked<DeviceLookUp>(inDevice, [&](HP_Device& inObject) {
      inObject.GetNearestStartTime(*ioRequestedStartTime, inFlags);
    });
  });
}

OSStatus HP_HardwarePlugIn_InitializeWithObjectID(AudioHardwarePlugInRef inSelf,
                                                  AudioObjectID inObjectID) {
  OSStatus theAnswer = 0;
  OSStatus theError = CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    theAnswer = HP_HardwarePlugIn::GetObject(inSelf)->InitializeWithObjectID(inObjectID);
  });
  return theError != 0 ? theError : theAnswer;
}

void HP_HardwarePlugIn_ObjectShow(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID) {
  CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallUnlocked<ObjectLookUp>(inObjectID, [&](HP_Object& inObject) { inObject.Show(); });
  });
}

Boolean HP_HardwarePlugIn_ObjectHasProperty(AudioHardwarePlugInRef inSelf, AudioObjectID inObjectID,
                                            const AudioObjectPropertyAddress* inAddress) {
  bool theAnswer = false;
  CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, inAddress});
    CallLocked<ObjectLookUp>(
        inObjectID, [&](HP_Object& inObject) { theAnswer = inObject.HasProperty(*inAddress); });
  });
  return theAnswer ? 1 : 0;
}

OSStatus HP_HardwarePlugIn_ObjectIsPropertySettable(AudioHardwarePlugInRef inSelf,
                                                    AudioObjectID inObjectID,
                                                    const AudioObjectPropertyAddress* inAddress,
                                                    Boolean* outIsSettable) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, inAddress, outIsSettable});
    CallLocked<ObjectLookUp>(inObjectID, [&](HP_Object& inObject) {
      *outIsSettable = inObject.IsPropertySettable(*inAddress) ? 1 : 0;
    });
  });
}

OSStatus HP_HardwarePlugIn_ObjectGetPropertyDataSize(AudioHardwarePlugInRef inSelf,
                                                     AudioObjectID inObjectID,
                                                     const AudioObjectPropertyAddress* inAddress,
                                                     UInt32 inQualifierDataSize,
                                                     const void* inQualifierData,
                                                     UInt32* outDataSize) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, inAddress, outDataSize});
    CallLocked<ObjectLookUp>(inObjectID, [&](HP_Object& inObject) {
      *outDataSize = inObject.GetPropertyDataSize(*inAddress, inQualifierDataSize, inQualifierData);
    });
  });
}

OSStatus HP_HardwarePlugIn_ObjectGetPropertyData(AudioHardwarePlugInRef inSelf,
                                                 AudioObjectID inObjectID,
                                                 const AudioObjectPropertyAddress* inAddress,
                                                 UInt32 inQualifierDataSize,
                                                 const void* inQualifierData, UInt32* ioDataSize,
                                                 void* outData) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, inAddress, ioDataSize});
    CallLocked<ObjectLookUp>(inObjectID, [&](HP_Object& inObject) {
      inObject.GetPropertyData(*inAddress, inQualifierDataSize, inQualifierData, *ioDataSize,
                               outData);
    });
  });
}

OSStatus HP_HardwarePlugIn_ObjectSetPropertyData(AudioHardwarePlugInRef inSelf,
                                                 AudioObjectID inObjectID,
                                                 const AudioObjectPropertyAddress* inAddress,
                                                 UInt32 inQualifierDataSize,
                                                 const void* inQualifierData, UInt32 inDataSize,
                                                 const void* inData) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, inAddress});
    CallLocked<ObjectLookUp>(inObjectID, [&](HP_Object& inObject) {
      inObject.SetPropertyData(*inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                               nullptr);
    });
  });
}

OSStatus HP_HardwarePlugIn_DeviceCreateIOProcID(AudioHardwarePlugInRef inSelf,
                                                AudioDeviceID inDevice, AudioDeviceIOProc inProc,
                                                void* inClientData,
                                                AudioDeviceIOProcID* outIOProcID) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, AsPointer(inProc), outIOProcID});
    CallUnlocked<DeviceLookUp>(inDevice, [&](HP_Device& inObject) {
      *outIOProcID = inObject.Do_CreateIOProcID(inProc, inClientData);
    });
  });
}

OSStatus HP_HardwarePlugIn_DeviceDestroyIOProcID(AudioHardwarePlugInRef inSelf,
                                                 AudioDeviceID inDevice,
                                                 AudioDeviceIOProcID inIOProcID) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf});
    CallUnlocked<DeviceLookUp>(
        inDevice, [&](HP_Device& inObject) { inObject.Do_DestroyIOProcID(inIOProcID); });
  });
}

OSStatus HP_HardwarePlugIn_DeviceCreateIOProcIDWithBlock(AudioHardwarePlugInRef inSelf,
                                                         AudioDeviceIOProcID* outIOProcID,
                                                         AudioDeviceID inDevice,
                                                         dispatch_queue_t inDispatchQueue,
                                                         AudioDeviceIOBlock inIOBlock) {
  return CatchAll([&] {
    ThrowIfAnyIsNull({inSelf, (const void*)inIOBlock, outIOProcID});
    CallUnlocked<DeviceLookUp>(inDevice, [&](HP_Device& inObject) {
      *outIOProcID = inObject.Do_CreateIOProcIDWithBlock(inDispatchQueue, inIOBlock);
    });
  });
}

}  // namespace

constinit const AudioHardwarePlugInInterface HP_HardwarePlugIn::sInterface = {
    nullptr,
    HP_HardwarePlugIn_QueryInterface,
    HP_HardwarePlugIn_AddRef,
    HP_HardwarePlugIn_Release,
    HP_HardwarePlugIn_Initialize,
    HP_HardwarePlugIn_Teardown,
    HP_HardwarePlugIn_DeviceAddIOProc,
    HP_HardwarePlugIn_DeviceRemoveIOProc,
    HP_HardwarePlugIn_DeviceStart,
    HP_HardwarePlugIn_DeviceStop,
    HP_HardwarePlugIn_DeviceRead,
    HP_HardwarePlugIn_DeviceGetCurrentTime,
    HP_HardwarePlugIn_DeviceTranslateTime,
    HP_HardwarePlugIn_DeviceGetPropertyInfo,
    HP_HardwarePlugIn_DeviceGetProperty,
    HP_HardwarePlugIn_DeviceSetProperty,
    HP_HardwarePlugIn_StreamGetPropertyInfo,
    HP_HardwarePlugIn_StreamGetProperty,
    HP_HardwarePlugIn_StreamSetProperty,
    HP_HardwarePlugIn_DeviceStartAtTime,
    HP_HardwarePlugIn_DeviceGetNearestStartTime,
    HP_HardwarePlugIn_InitializeWithObjectID,
    HP_HardwarePlugIn_ObjectShow,
    HP_HardwarePlugIn_ObjectHasProperty,
    HP_HardwarePlugIn_ObjectIsPropertySettable,
    HP_HardwarePlugIn_ObjectGetPropertyDataSize,
    HP_HardwarePlugIn_ObjectGetPropertyData,
    HP_HardwarePlugIn_ObjectSetPropertyData,
    HP_HardwarePlugIn_DeviceCreateIOProcID,
    HP_HardwarePlugIn_DeviceDestroyIOProcID,
    HP_HardwarePlugIn_DeviceCreateIOProcIDWithBlock};
