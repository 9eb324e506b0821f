#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#include <atomic>

#include "objects/CATokenMap.h"
#include "support/CAMutex.h"

class CASettingsStorage;
class HP_Device;

// A device that one process keeps for itself.
//
// Purpose: keeps the owner's process id in one file for all processes of the machine, one key for
//   each device, and keeps the instances in step with a distributed notification that bears the
//   key's name. A claim is no lock: of two processes that take a device at once the later in the
//   file has it, and the notification tells the other. The claim of a process that has ended is
//   cleared by whoever reads it next.
// Thread: any. Property calls come under the device state mutex, ChangeNotification on the
//   notification thread, where it takes that mutex; so who destroys the object does not hold it, as
//   the destructor waits for a notification that is under way. The owner is an atomic; the shared
//   storage has a lock of its own, under which owner and file change together and no lock of a
//   device is taken. With the owner known, the queries are one load: RT safe.
// Ownership: owned by its device, which is borrowed; owns the key. Storage, its lock and the token
//   map are the process's, made once and never freed.
// Units and range: process ids; -1 stands for nobody, -2 for not yet read.
// Failure: the constructor throws CAException with 'what' if the key cannot be made. A file that
//   cannot be read leaves the device free; one that cannot be written leaves the claim unseen by
//   others.
class HP_HogMode {
 public:
  explicit HP_HogMode(HP_Device* inDevice);
  virtual ~HP_HogMode();
  HP_HogMode(const HP_HogMode&) = delete;
  HP_HogMode& operator=(const HP_HogMode&) = delete;

  // Clears a claim that was left behind: any in the master process, else one with this process's
  // own id.
  virtual void Initialize();

  pid_t GetOwner() const;
  bool IsFree() const;
  bool CurrentProcessIsOwner() const;
  bool CurrentProcessIsOwnerOrIsFree() const;

  // Nothing unless the device is free.
  void Take();
  // Nothing unless this process has it.
  void Release();

  // Clears the claim of a process that does not exist, and tells everyone if asked to.
  virtual pid_t GetOwnerFromPreference(bool inSendNotification) const;
  // -1 removes the claim.
  virtual void SetOwnerInPreference(pid_t inOwner) const;
  // The next read goes to the file, also where its time has not moved.
  virtual void MarkPreferencesDirty() const;
  virtual void SendHogModeChangedNotification() const;

  // What the notification center calls; the observer is a token.
  static void ChangeNotification(CFNotificationCenterRef inCenter, void* inObserver,
                                 CFStringRef inName, const void* inObject,
                                 CFDictionaryRef inUserInfo);

 private:
  static void StaticInitializer();
  static CATokenMap<HP_HogMode>* GetTokenMap() { return sTokenMap.load(std::memory_order_acquire); }
  void StoreOwner(pid_t inOwner);
  // What the file says. False if that is no news.
  bool TakeOverOwner();
  void TellDevice();

  static CASettingsStorage* sSettingsStorage;
  static CAMutex* sSettingsStorageMutex;
  // Held while a notification is at work, and by who ends an object; before all locks of devices.
  static CAMutex* sNotificationMutex;
  static std::atomic<CATokenMap<HP_HogMode>*> sTokenMap;

  UInt32 mToken;
  HP_Device* mDevice;
  CFMutableStringRef mPrefName;
  mutable std::atomic<pid_t> mOwner;
};
