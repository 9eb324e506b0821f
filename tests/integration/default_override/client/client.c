// A program against the published client interface. It is linked to a fixed place, so that it has a
// stub of its own that stands for each function whose address it takes.

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>
#include <stdio.h>

typedef OSStatus (*GetFunction)(AudioObjectID, const AudioObjectPropertyAddress*, UInt32,
                                const void*, UInt32*, void*);

static GetFunction volatile sGet = &AudioObjectGetPropertyData;

static void ShowDefault(const char* inHow, GetFunction inGet) {
  const AudioObjectPropertyAddress output = {kAudioHardwarePropertyDefaultOutputDevice,
                                             kAudioObjectPropertyScopeGlobal, 0};
  const AudioObjectPropertyAddress uid = {kAudioDevicePropertyDeviceUID,
                                          kAudioObjectPropertyScopeGlobal, 0};
  AudioObjectID device = kAudioObjectUnknown;
  UInt32 size = sizeof device;
  CFStringRef text = NULL;
  char name[64] = "";
  inGet(kAudioObjectSystemObject, &output, 0, NULL, &size, &device);
  size = sizeof text;
  if (inGet(device, &uid, 0, NULL, &size, &text) == 0) {
    CFStringGetCString(text, name, sizeof name, kCFStringEncodingUTF8);
    CFRelease(text);
  }
  printf("%s %s\n", inHow, name);
}

static OSStatus Direct(AudioObjectID inObject, const AudioObjectPropertyAddress* inAddress,
                       UInt32 inQualifierSize, const void* inQualifier, UInt32* ioSize,
                       void* outData) {
  return AudioObjectGetPropertyData(inObject, inAddress, inQualifierSize, inQualifier, ioSize,
                                    outData);
}

int main(void) {
  const AudioObjectPropertyAddress devices = {kAudioHardwarePropertyDevices,
                                              kAudioObjectPropertyScopeGlobal, 0};
  UInt32 size = 0;
  // Loads the plug-ins by another function than the one that is watched.
  AudioObjectGetPropertyDataSize(kAudioObjectSystemObject, &devices, 0, NULL, &size);
  void* const hal = dlopen("libtmbhal.so", RTLD_NOW | RTLD_NOLOAD);
  const unsigned char* const code = hal ? dlsym(hal, "AudioObjectGetPropertyData") : NULL;
  printf("begins-with-jump %d\n", code != NULL && code[0] == 0xE9);
  printf("own-stub %d\n", (const void*)sGet != (const void*)code);
  ShowDefault("pointer", sGet);
  ShowDefault("direct", &Direct);
  return 0;
}
