#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>

#include <atomic>
#include <string>

#include "hal/CallGate.h"

namespace tembra::hal {

// One plug-in instance: its interface, which version of it, and its own object ID.
//
// Any thread. Owns one reference to the instance until Release. Objects of this class are never
// freed, so a lookup may keep a pointer to one without counting.
class PlugIn {
 public:
  PlugIn(AudioHardwarePlugInRef inInterface, int inVersion, std::string inBundleID)
      : mInterface(inInterface), mVersion(inVersion), mBundleID(std::move(inBundleID)) {}

  AudioHardwarePlugInRef GetInterface() const { return mInterface; }
  const std::string& GetBundleID() const { return mBundleID; }
  AudioObjectID GetObjectID() const { return mObjectID; }
  void SetObjectID(AudioObjectID inObjectID) { mObjectID = inObjectID; }
  CallGate& GetGate() { return mGate; }

  // Calls an entry that version inVersion of the interface brought; 'unop' if this plug-in is older
  // or leaves the entry out. The caller holds a pass of the gate, or is the one who closed it.
  template <typename Entry, typename... Args>
  OSStatus Call(int inVersion, Entry AudioHardwarePlugInInterface::*inEntry, Args... inArgs) const {
    if (mVersion < inVersion || !((*mInterface)->*inEntry)) {
      return kAudioHardwareUnsupportedOperationError;
    }
    return ((*mInterface)->*inEntry)(mInterface, inArgs...);
  }

  bool HasProperty(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress) const;
  void Show(AudioObjectID inObjectID) const;

  // Tells the instance its object ID, or, of an older one, just to begin.
  OSStatus Initialize() const;
  void Teardown() const;
  void Release() const;

 private:
  const AudioHardwarePlugInRef mInterface;
  const int mVersion;
  const std::string mBundleID;
  std::atomic<AudioObjectID> mObjectID{kAudioObjectUnknown};
  CallGate mGate;
};

// The versions that brought the entries.
constexpr int kFirstVersion = 1;
constexpr int kStartTimeVersion = 2;
constexpr int kObjectVersion = 4;
constexpr int kIOProcIDVersion = 5;

}  // namespace tembra::hal
