#pragma once

#include <CoreAudio/AudioHardware.h>

#include <atomic>

// Purpose: the process-wide answers about the system object.
// Thread: Initialize and Teardown by the plug-in's set-up and tear-down; the listener on the host's
//   notification thread; IsCurrentProcessDoingIO by any thread, RT safe. The two other queries call
//   the host.
// Ownership: none.
// Units and range: none.
// Failure: a property that cannot be read counts as told with each query.
class HP_SystemInfo {
 public:
  // Once; then nothing until Teardown.
  static void Initialize();
  static void Teardown();

  // True until the host says otherwise.
  static bool IsCurrentProcessDoingIO() {
    return sCurrentUserSessionIsActiveOrHeadless.load(std::memory_order_relaxed) &&
           sCurrentProcessIsAudible.load(std::memory_order_relaxed);
  }
  static bool IsMixingStereoToMono() {
    return sIsMixingStereoToMono.load(std::memory_order_relaxed);
  }
  // False if the host does not tell.
  static bool IsCurrentProcessTheMaster();
  static bool IsCurrentProcessInitingOrExiting();

  static OSStatus SystemListener(AudioObjectID inObjectID, UInt32 inNumberAddresses,
                                 const AudioObjectPropertyAddress* inAddresses, void* inClientData);

 private:
  static std::atomic<bool> sIsInitialized;
  static std::atomic<bool> sCurrentProcessIsAudible;
  static std::atomic<bool> sIsMixingStereoToMono;
  static std::atomic<bool> sCurrentUserSessionIsActiveOrHeadless;
};
