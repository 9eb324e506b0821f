#pragma once

// The default output override: in a process that it is installed in, reads of the default output
// and the default system output are answered with the virtual device when the user's preference
// file says so, and writes of them are recorded there.
//
// Thread: the proxies and what they call, any; the installation, the one that loads the image.
// Ownership: a patch is never taken out. copy functions and get_property_list hand out a reference.
// Units and range: object ids; 0 is no device.
// Failure: none of its own: what cannot be answered here is the platform's to answer.

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>

#include <atomic>

// Says which object is the virtual device. Outlives the device; a later one replaces it.
void TMBACLNO_Initialize(AudioObjectID inObjectID);

using tmbclno_aogpd_function = OSStatus(AudioObjectID inObjectID,
                                        const AudioObjectPropertyAddress* inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData,
                                        UInt32* ioDataSize, void* outData);
using tmbclno_aospd_function = OSStatus(AudioObjectID inObjectID,
                                        const AudioObjectPropertyAddress* inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData,
                                        UInt32 inDataSize, const void* inData);

// What is called in place of AudioObjectGetPropertyData and AudioObjectSetPropertyData.
tmbclno_aogpd_function tmbclno_aogpd_proxy;
tmbclno_aospd_function tmbclno_aospd_proxy;
// The two as the platform has them, patched or not.
tmbclno_aogpd_function tmbclno_aogpd_native;
tmbclno_aospd_function tmbclno_aospd_native;

// Each puts its proxy in the platform function's place, once. 0, or why it could not.
OSStatus tmbclno_override_aogpd();
OSStatus tmbclno_override_aospd();

// The preference. The file is read at each call, and nothing of it is kept.
bool tmbclno_is_default_output(bool inIsSystem);
bool tmbclno_is_default_output(CFDictionaryRef inPreference, bool inIsSystem);
void tmbclno_set_default_output(bool inValue, bool inIsSystem);
// Null if there is no file or it is no dictionary.
CFPropertyListRef tmbclno_get_property_list(bool inIsMutable);
CFURLRef tmbclno_copy_pref_url();
CFStringRef tmbclno_copy_pref_key(bool inIsSystem);

extern std::atomic<AudioObjectID> tmbclno_audio_object_id;
// Whether the installation has been tried in this process.
extern std::atomic<bool> tmbclno_aogpd_overriden;
// The ways to the platform functions as they were; null as long as they are as they were. Written
// by the installation before the proxies can be reached, so an ordinary load sees them.
extern tmbclno_aogpd_function* tmbclno_aogpd_entry;
extern tmbclno_aospd_function* tmbclno_aospd_entry;
