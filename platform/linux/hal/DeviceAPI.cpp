#include "hal/ObjectAPI.h"

// The I/O of devices: each call goes to its entry of the device's plug-in.

using namespace tembra::hal;
using Interface = AudioHardwarePlugInInterface;

OSStatus AudioDeviceCreateIOProcID(AudioObjectID inDevice, AudioDeviceIOProc inProc,
                                   void* inClientData, AudioDeviceIOProcID* outIOProcID) {
  return ForwardToDevice(inDevice, kIOProcIDVersion, &Interface::DeviceCreateIOProcID, inProc,
                         inClientData, outIOProcID);
}

OSStatus AudioDeviceCreateIOProcIDWithBlock(AudioDeviceIOProcID* outIOProcID,
                                            AudioObjectID inDevice,
                                            dispatch_queue_t inDispatchQueue,
                                            AudioDeviceIOBlock inIOBlock) {
  return Guarded([&] {
    // The one entry whose device is not its first argument.
    const ObjectCall call(inDevice, kAudioHardwareBadDeviceError);
    return call ? call.Owner().Call(kIOProcIDVersion, &Interface::DeviceCreateIOProcIDWithBlock,
                                    outIOProcID, inDevice, inDispatchQueue, inIOBlock)
                : call.Status();
  });
}

OSStatus AudioDeviceDestroyIOProcID(AudioObjectID inDevice, AudioDeviceIOProcID inIOProcID) {
  return ForwardToDevice(inDevice, kIOProcIDVersion, &Interface::DeviceDestroyIOProcID, inIOProcID);
}

OSStatus AudioDeviceStart(AudioObjectID inDevice, AudioDeviceIOProcID inProcID) {
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceStart, inProcID);
}

OSStatus AudioDeviceStartAtTime(AudioObjectID inDevice, AudioDeviceIOProcID inProcID,
                                AudioTimeStamp* ioRequestedStartTime, UInt32 inFlags) {
  return ForwardToDevice(inDevice, kStartTimeVersion, &Interface::DeviceStartAtTime, inProcID,
                         ioRequestedStartTime, inFlags);
}

OSStatus AudioDeviceStop(AudioObjectID inDevice, AudioDeviceIOProcID inProcID) {
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceStop, inProcID);
}

OSStatus AudioDeviceGetCurrentTime(AudioObjectID inDevice, AudioTimeStamp* outTime) {
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceGetCurrentTime, outTime);
}

OSStatus AudioDeviceTranslateTime(AudioObjectID inDevice, const AudioTimeStamp* inTime,
                                  AudioTimeStamp* outTime) {
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceTranslateTime, inTime, outTime);
}

OSStatus AudioDeviceGetNearestStartTime(AudioObjectID inDevice,
                                        AudioTimeStamp* ioRequestedStartTime, UInt32 inFlags) {
  return ForwardToDevice(inDevice, kStartTimeVersion, &Interface::DeviceGetNearestStartTime,
                         ioRequestedStartTime, inFlags);
}

OSStatus AudioDeviceAddIOProc(AudioDeviceID inDevice, AudioDeviceIOProc inProc,
                              void* inClientData) {
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceAddIOProc, inProc,
                         inClientData);
}

OSStatus AudioDeviceRemoveIOProc(AudioDeviceID inDevice, AudioDeviceIOProc inProc) {
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceRemoveIOProc, inProc);
}

OSStatus AudioDeviceRead(AudioDeviceID inDevice, const AudioTimeStamp* inStartTime,
                         AudioBufferList* outData) {
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceRead, inStartTime, outData);
}
