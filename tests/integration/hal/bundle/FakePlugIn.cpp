#include "FakePlugIn.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

FakeState& State() {
  static FakeState& sState = *new FakeState;
  return sState;
}

std::string Code(UInt32 inCode) {
  return {static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
          static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
}

std::string Text(const void* inPointer) {
  char text[32];
  snprintf(text, sizeof text, "%zx", reinterpret_cast<size_t>(inPointer));
  return text;
}

template <typename... Args>
std::string Line(const std::string& inName, Args... inArgs) {
  std::string line = inName;
  ((line += " " + std::to_string(inArgs)), ...);
  return line;
}

int IndexOf(AudioObjectID inDevice) {
  const std::vector<AudioObjectID> ids = State().Devices();
  const auto found = std::find(ids.begin(), ids.end(), inDevice);
  return found == ids.end() ? -1 : static_cast<int>(found - ids.begin());
}

HRESULT QueryInterface(void*, REFIID inUUID, LPVOID* outInterface) {
  const CFUUIDRef versions[] = {kAudioHardwarePlugInInterfaceID, kAudioHardwarePlugInInterface2ID,
                                kAudioHardwarePlugInInterface3ID, kAudioHardwarePlugInInterface4ID,
                                kAudioHardwarePlugInInterface5ID};
  const CFUUIDRef asked = CFUUIDCreateFromUUIDBytes(nullptr, inUUID);
  bool known = false;
  for (int i = 0; i < State().version; ++i) {
    known |= static_cast<bool>(CFEqual(asked, versions[i]));
  }
  CFRelease(asked);
  *outInterface = known ? State().self : nullptr;
  State().references += known;
  return known ? S_OK : E_NOINTERFACE;
}

ULONG AddRef(void*) {
  return static_cast<ULONG>(++State().references);
}
ULONG Release(void*) {
  return static_cast<ULONG>(--State().references);
}

OSStatus Begin() {
  FakeState& state = State();
  ++state.initialized;
  if (state.duringInitialize) {
    state.duringInitialize();
  }
  if (state.initializeStatus != 0) {
    return state.initializeStatus;
  }
  std::vector<AudioObjectID> ids = state.Devices();
  for (int i = 0; i < state.devices; ++i) {
    AudioObjectID id = 0;
    if (const OSStatus status =
            AudioObjectCreate(state.self, kAudioObjectSystemObject, kAudioDeviceClassID, &id)) {
      return status;
    }
    ids.push_back(id);
  }
  state.SetDevices(ids);
  return AudioObjectsPublishedAndDied(state.self, kAudioObjectSystemObject,
                                      static_cast<UInt32>(ids.size()), ids.data(), 0, nullptr);
}

OSStatus Initialize(AudioHardwarePlugInRef) {
  State().Note("Initialize");
  return Begin();
}

OSStatus InitializeWithObjectID(AudioHardwarePlugInRef, AudioObjectID inObjectID) {
  State().objectID = inObjectID;
  State().Note("InitializeWithObjectID");
  return Begin();
}

OSStatus Teardown(AudioHardwarePlugInRef inSelf) {
  FakeState& state = State();
  ++state.tornDown;
  if (state.duringTeardown) {
    state.duringTeardown();
  }
  const std::vector<AudioObjectID> ids = state.Devices();
  if (state.reportsDeaths) {
    AudioObjectsPublishedAndDied(inSelf, kAudioObjectSystemObject, 0, nullptr,
                                 static_cast<UInt32>(ids.size()), ids.data());
  }
  state.SetDevices({});
  return 0;
}

void ObjectShow(AudioHardwarePlugInRef, AudioObjectID inID) {
  State().Note(Line("Show", inID));
}

bool CanBeDefault(AudioObjectID inID) {
  return IndexOf(inID) >= State().firstDefaultDevice;
}

Boolean ObjectHasProperty(AudioHardwarePlugInRef, AudioObjectID inID,
                          const AudioObjectPropertyAddress* inAddress) {
  switch (inAddress->mSelector) {
    case 'uid ':
    case 'dflt':
    case 'sflt':
      return IndexOf(inID) >= 0;
    case 'fsiz':
    case 'wait':
      return true;
    case 'ownd':
      if (State().whenAskedWhatIsOwned) State().whenAskedWhatIsOwned(inID);
      return false;
    default:
      return false;
  }
}

OSStatus ObjectIsPropertySettable(AudioHardwarePlugInRef, AudioObjectID,
                                  const AudioObjectPropertyAddress* inAddress,
                                  Boolean* outIsSettable) {
  *outIsSettable = inAddress->mSelector == 'fsiz';
  return 0;
}

OSStatus ObjectGetPropertyDataSize(AudioHardwarePlugInRef, AudioObjectID,
                                   const AudioObjectPropertyAddress* inAddress, UInt32 inSize,
                                   const void*, UInt32* outSize) {
  *outSize = inAddress->mSelector == 'uid ' ? 8 : 4 + inSize;
  return 0;
}

OSStatus ObjectGetPropertyData(AudioHardwarePlugInRef, AudioObjectID inID,
                               const AudioObjectPropertyAddress* inAddress, UInt32, const void*,
                               UInt32* ioSize, void* outData) {
  UInt32 value = 0;
  switch (inAddress->mSelector) {
    case 'uid ': {
      const CFStringRef uid =
          CFStringCreateWithFormat(nullptr, nullptr, CFSTR("Fake-%d"), IndexOf(inID));
      memcpy(outData, &uid, sizeof uid);
      *ioSize = sizeof uid;
      return 0;
    }
    case 'dflt':
    case 'sflt':
      value = CanBeDefault(inID) && inAddress->mScope == 'outp';
      break;
    case 'fsiz':
      value = State().frameSize;
      break;
    case 'wait':
      if (State().duringGet) {
        State().duringGet();
      }
      break;
    default:
      return kAudioHardwareUnknownPropertyError;
  }
  if (*ioSize != sizeof value) {
    return kAudioHardwareBadPropertySizeError;
  }
  memcpy(outData, &value, sizeof value);
  return 0;
}

OSStatus ObjectSetPropertyData(AudioHardwarePlugInRef, AudioObjectID inID,
                               const AudioObjectPropertyAddress* inAddress, UInt32, const void*,
                               UInt32 inSize, const void* inData) {
  switch (inAddress->mSelector) {
    case 'lisa':
    case 'lisr': {
      AudioObjectPropertyAddress about;
      if (inSize != sizeof about) {
        return kAudioHardwareBadPropertySizeError;
      }
      memcpy(&about, inData, sizeof about);
      State().Note(Code(inAddress->mSelector) + " " + Code(about.mSelector) + " " +
                   Code(about.mScope) + Line("", about.mElement));
      return 0;
    }
    case 'fsiz': {
      UInt32 value = 0;
      memcpy(&value, inData, sizeof value);
      State().frameSize = value;
      return AudioObjectPropertiesChanged(State().self, inID, 1, inAddress);
    }
    default:
      return kAudioHardwareUnknownPropertyError;
  }
}

template <typename... Args>
OSStatus Noted(const std::string& inLine) {
  State().Note(inLine);
  return 0;
}

AudioHardwarePlugInInterface MakeInterface() {
  AudioHardwarePlugInInterface table{};
  table.QueryInterface = QueryInterface;
  table.AddRef = AddRef;
  table.Release = Release;
  table.Initialize = Initialize;
  table.Teardown = Teardown;
  table.DeviceAddIOProc = [](auto, AudioDeviceID d, AudioDeviceIOProc p, void* c) {
    return Noted(Line("AddIOProc", d) + " " + Text(reinterpret_cast<void*>(p)) + " " + Text(c));
  };
  table.DeviceRemoveIOProc = [](auto, AudioDeviceID d, AudioDeviceIOProc p) {
    return Noted(Line("RemoveIOProc", d) + " " + Text(reinterpret_cast<void*>(p)));
  };
  table.DeviceStart = [](auto, AudioDeviceID d, AudioDeviceIOProcID p) {
    return Noted(Line("Start", d) + " " + Text(reinterpret_cast<void*>(p)));
  };
  table.DeviceStop = [](auto, AudioDeviceID d, AudioDeviceIOProcID p) {
    return Noted(Line("Stop", d) + " " + Text(reinterpret_cast<void*>(p)));
  };
  table.DeviceRead = [](auto, AudioDeviceID d, const AudioTimeStamp* t, AudioBufferList* l) {
    return Noted(Line("Read", d) + " " + Text(t) + " " + Text(l));
  };
  table.DeviceGetCurrentTime = [](auto, AudioDeviceID d, AudioTimeStamp* t) {
    return Noted(Line("GetCurrentTime", d) + " " + Text(t));
  };
  table.DeviceTranslateTime = [](auto, AudioDeviceID d, const AudioTimeStamp* i,
                                 AudioTimeStamp* o) {
    return Noted(Line("TranslateTime", d) + " " + Text(i) + " " + Text(o));
  };
  table.DeviceGetPropertyInfo = [](auto, AudioDeviceID d, UInt32 c, Boolean i, UInt32 p,
                                   UInt32* size, Boolean* writable) {
    if (size) *size = 40;
    if (writable) *writable = true;
    return Noted(Line("DeviceGetPropertyInfo", d, c, i) + " " + Code(p));
  };
  table.DeviceGetProperty = [](auto, AudioDeviceID d, UInt32 c, Boolean i, UInt32 p, UInt32* size,
                               void*) {
    return Noted(Line("DeviceGetProperty", d, c, i) + " " + Code(p) + Line("", *size));
  };
  table.DeviceSetProperty = [](auto, AudioDeviceID d, const AudioTimeStamp* t, UInt32 c, Boolean i,
                               UInt32 p, UInt32 size, const void*) {
    return Noted(Line("DeviceSetProperty", d) + " " + Text(t) + Line("", c, i) + " " + Code(p) +
                 Line("", size));
  };
  table.StreamGetPropertyInfo = [](auto, AudioStreamID s, UInt32 c, UInt32 p, UInt32* size,
                                   Boolean*) {
    if (size) *size = 41;
    return Noted(Line("StreamGetPropertyInfo", s, c) + " " + Code(p));
  };
  table.StreamGetProperty = [](auto, AudioStreamID s, UInt32 c, UInt32 p, UInt32* size, void*) {
    return Noted(Line("StreamGetProperty", s, c) + " " + Code(p) + Line("", *size));
  };
  table.StreamSetProperty = [](auto, AudioStreamID s, const AudioTimeStamp* t, UInt32 c, UInt32 p,
                               UInt32 size, const void*) {
    return Noted(Line("StreamSetProperty", s) + " " + Text(t) + Line("", c) + " " + Code(p) +
                 Line("", size));
  };
  table.DeviceStartAtTime = [](auto, AudioDeviceID d, AudioDeviceIOProcID p, AudioTimeStamp* t,
                               UInt32 f) {
    return Noted(Line("StartAtTime", d) + " " + Text(reinterpret_cast<void*>(p)) + " " + Text(t) +
                 Line("", f));
  };
  table.DeviceGetNearestStartTime = [](auto, AudioDeviceID d, AudioTimeStamp* t, UInt32 f) {
    return Noted(Line("GetNearestStartTime", d) + " " + Text(t) + Line("", f));
  };
  table.InitializeWithObjectID = InitializeWithObjectID;
  table.ObjectShow = ObjectShow;
  table.ObjectHasProperty = ObjectHasProperty;
  table.ObjectIsPropertySettable = ObjectIsPropertySettable;
  table.ObjectGetPropertyDataSize = ObjectGetPropertyDataSize;
  table.ObjectGetPropertyData = ObjectGetPropertyData;
  table.ObjectSetPropertyData = ObjectSetPropertyData;
  table.DeviceCreateIOProcID = [](auto, AudioDeviceID d, AudioDeviceIOProc p, void* c,
                                  AudioDeviceIOProcID* out) {
    *out = p;
    return Noted(Line("CreateIOProcID", d) + " " + Text(reinterpret_cast<void*>(p)) + " " +
                 Text(c));
  };
  table.DeviceDestroyIOProcID = [](auto, AudioDeviceID d, AudioDeviceIOProcID p) {
    return Noted(Line("DestroyIOProcID", d) + " " + Text(reinterpret_cast<void*>(p)));
  };
  table.DeviceCreateIOProcIDWithBlock = [](auto, AudioDeviceIOProcID* out, AudioDeviceID d,
                                           dispatch_queue_t q, AudioDeviceIOBlock b) {
    return Noted(Line("CreateIOProcIDWithBlock", d) + " " + Text(out) + " " + Text(q) + " " +
                 Text(reinterpret_cast<void*>(b)));
  };
  return table;
}

}  // namespace

__attribute__((visibility("default"))) FakeState* FakePlugIn_State() {
  return &State();
}

extern "C" __attribute__((visibility("default"))) void* FakePlugIn_New(CFAllocatorRef,
                                                                       CFUUIDRef inTypeUUID) {
  static AudioHardwarePlugInInterface sTable = MakeInterface();
  static AudioHardwarePlugInInterface* sInstance = &sTable;
  if (State().factoryFails || !CFEqual(inTypeUUID, kAudioHardwarePlugInTypeID)) {
    return nullptr;
  }
  State().self = &sInstance;
  ++State().instances;
  ++State().references;
  return State().self;
}
