#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>
#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <map>
#include <mutex>
#include <vector>

#include "client/TMBACLN_BlockSender.h"
#include "client/TMBAudioClientInfo.h"
#include "device/HP_Device.h"
#include "support/CAReaderBracket.h"

class HP_DeviceControlProperty;
class HP_HogMode;
class HP_IOProc;
class HP_IOThread;
class TMBACLN_PlugIn;

// The one device that the plug-in publishes: an output and an input stream, a clock of its own, and
// an audio server where other devices have hardware.
//
// Purpose: builds the streams, runs the I/O cycle, and keeps the connection to the server while
//   the engine runs. Only the first started procedure's audio goes out; nothing is mixed.
// Thread: properties on host threads under the device state mutex; the cycle and
//   SendAudioDataToPort on the I/O thread under the I/O guard; StartHardware and StopHardware on
//   the thread that starts or stops the engine; events on the notification thread; retries on the
//   device's run-loop thread. The connection's fields belong to sConnectionMutex, which the I/O
//   cycle never takes and under which no other lock of the device is taken: the I/O thread reads
//   the two fields that it needs as atomics and uses the data port inside mDataPortBracket, and
//   who closes that port waits for the bracket first.
// Ownership: owned by the plug-in; owns its streams, controls, hog mode, I/O thread, ports and
//   timers.
// Units: host ticks, frames, seconds.
// Failure: CAException below the entry table. The connection reports nothing: its failures end as
//   states, and rendering goes on.
class TMBACLN_Device : public HP_Device {
 public:
  enum : UInt32 {
    kClientStateStopped = 0,      // hardware not started; events are ignored
    kClientStateIdle = 1,         // waits for the server to start
    kClientStateRegistering = 2,  // wants the listener port
    kClientStateRegistered = 3,   // add message sent
    kClientStateStarting = 4,     // accepted by the server; wants the data port
    kClientStateStreaming = 5     // audio may be sent
  };

  TMBACLN_Device(AudioObjectID inObjectID, TMBACLN_PlugIn* inPlugIn);
  ~TMBACLN_Device() override;

  // Building.
  void Initialize() override;
  void Teardown() override;
  // Puts the streams right when the process goes away; deletes nothing.
  virtual void Finalize();
  // The controls are made once, when the first question needs them; the master makes them at its
  // start. Under the state mutex, or before publication and after the end.
  void CreateControls();
  void ReleaseControls();

  // Properties.
  bool HasProperty(const AudioObjectPropertyAddress& inAddress) const override;
  bool IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const override;
  UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                             UInt32 inQualifierDataSize,
                             const void* inQualifierData) const override;
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32& ioDataSize,
                       void* outData) const override;
  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32 inDataSize, const void* inData,
                       const AudioTimeStamp* inWhen) override;
  static bool IsControlRelatedProperty(unsigned int inSelector);
  void PropertyListenerAdded(const AudioObjectPropertyAddress& inAddress) override;

  bool IsHidden() const override;
  CFStringRef CopyDeviceName() const override;
  CFStringRef CopyDeviceManufacturerName() const override;
  CFStringRef CopyElementFullName(const AudioObjectPropertyAddress& inAddress) const override;
  CFStringRef CopyDeviceUID() const override;
  CFStringRef CopyModelUID() const override;
  UInt32 GetTransportType() const override;
  bool CanBeDefaultDevice(bool inIsInput, bool inIsSystem) const override;
  virtual CFStringRef CopyManufacturerName() const;

  bool HogModeIsOwnedBySelf() const override;
  bool HogModeIsOwnedBySelfOrIsFree() const override;
  void HogModeStateChanged() override;

  // Commands.
  bool IsSafeToExecuteCommand() override;
  bool StartCommandExecution(void** outToken) override;
  void FinishCommandExecution(void* inToken) override;

  // The I/O cycle.
  void Do_StartIOProc(AudioDeviceIOProcID inIOProcID) override;
  void Do_StartIOProcAtTime(AudioDeviceIOProcID inIOProcID, AudioTimeStamp& ioRequestedStartTime,
                            UInt32 inFlags) override;
  CAGuard* GetIOGuard() override;
  bool CallIOProcs(const AudioTimeStamp& inCurrentTime, const AudioTimeStamp& inInputTime,
                   const AudioTimeStamp& inOutputTime) override;
  void StartIOEngine() override;
  void StartIOEngineAtTime(const AudioTimeStamp& inStartTime, UInt32 inFlags) override;
  void StopIOEngine() override;
  UInt32 GetIOCycleNumber() const override;
  bool TransferAudioData(const AudioTimeStamp& inTime, AudioBufferList* inBufferList);
  // False if the block did not go out; that changes nothing else.
  bool SendAudioDataToPort(const AudioTimeStamp& inTime, const AudioBufferList& inBufferList);

  // The clock.
  void GetCurrentTime(AudioTimeStamp& outTime) override;
  void SafeGetCurrentTime(AudioTimeStamp& outTime) override;
  void TranslateTime(const AudioTimeStamp& inTime, AudioTimeStamp& outTime) override;
  void GetNearestStartTime(AudioTimeStamp& ioRequestedStartTime, UInt32 inFlags) override;
  Float64 GetCurrentNominalSampleRate() const override;
  Float64 GetCurrentActualSampleRate() const override;
  void StartIOCycleTimingServices() override;
  bool UpdateIOCycleTimingServices() override;
  void StopIOCycleTimingServices() override;

  // The connection to the server.
  virtual void StartHardware();
  virtual void StopHardware();
  UInt32 GetClientState() const { return mClientState.load(std::memory_order_relaxed); }
  // Tries that a timer made since the count was last reset; at most 10.
  UInt32 GetListenerPortRetries() const;
  UInt32 GetDataPortRetries() const;
  void RegisterAudioClient();
  void UnregisterAudioClient();
  void StartAudioClient();
  void StopAudioClient();
  void SendAudioListenerAdd();
  void SendAudioListenerEcho();
  void SendAudioListenerDispose();
  void SendAudioListenerNotification(int inMessageID, CFDataRef inData);
  void SendAudioListenerNotification(int inMessageID, CFDictionaryRef inDictionary);
  // The device's own run loop, or the caller's if its thread did not come up.
  CFRunLoopRef GetRunLoop() const;

  // The pool: which devices there are, for callbacks that come late. 0 is never a handle.
  static unsigned long long addToPool(TMBACLN_Device* inDevice);
  static void removeFromPool(unsigned long long inHandle);
  static TMBACLN_Device* getFromPool(unsigned long long inHandle);
  static unsigned long long getHandleFromPool(TMBACLN_Device* inDevice);

  // What the notification center and the run loop call.
  static void __tmbAudioNotificationCallBack(CFNotificationCenterRef inCenter, void* inObserver,
                                             CFStringRef inName, const void* inObject,
                                             CFDictionaryRef inUserInfo);
  static void __tmbPortTimerCallBack(CFRunLoopTimerRef inTimer, void* inInfo);

 private:
  using ConnectionLocker = std::lock_guard<std::recursive_mutex>;

  void CreateStreams();
  void ReleaseStreams();
  // Tells the host of objects that were made, and gives each the device's mutex.
  void PublishObjects(const std::vector<AudioObjectID>& inIDs);
  template <class Control>
  void CreateControl(AudioClassID inClassID, AudioObjectPropertyScope inScope,
                     AudioObjectPropertyElement inElement, std::vector<AudioObjectID>& ioIDs);
  // If the selector is one that needs them.
  void CreateControlsFor(AudioObjectPropertySelector inSelector) const;
  void RefreshAvailableStreamFormats();
  void ToggleHogMode();
  // What a start of a procedure asks of the ownership.
  void CheckHogModeForStart();

  void StartIOCycle();
  void PreProcessInputData(const AudioTimeStamp& inTime);
  bool ReadInputData(const AudioTimeStamp& inTime, UInt32 inIOBufferSetID);
  void PostProcessInputData(const AudioTimeStamp& inTime);
  void PreProcessOutputData(const AudioTimeStamp& inTime, HP_IOProc& inIOProc);
  bool WriteOutputData(const AudioTimeStamp& inTime, UInt32 inIOBufferSetID);
  void FinishIOCycle();
  bool IsIOEngineUp() const;
  bool WaitForEngineStops();
  void EngineStopEnded();

  Float64 GetHostTicksPerFrame() const;
  Float64 HostTimeToSampleTime(UInt64 inHostTime, Float64 inHostTicksPerFrame) const;
  void MoveStartPastEngine(AudioTimeStamp& ioStart, UInt32 inFrameSize, UInt32 inOffset);

  void TakeClientFormat();
  void RegisterForAudioNotifications();
  void UnregisterForAudioNotifications();
  void CreateAudioListenerPort();
  void CreateAudioDataPort();
  bool __doCreateAudioListenerPort();
  bool __doCreateAudioDataPort();
  void DisposeAudioListenerPort();
  void DisposeAudioDataPort();
  CFRunLoopTimerRef CreateTimer(double inSeconds, CFRunLoopTimerCallBack inCallBack);
  void DisposeTimer(CFRunLoopTimerRef inTimer);
  void __processNotification(CFDictionaryRef inUserInfo);
  void __processPortTimerCallBack(CFRunLoopTimerRef inTimer);
  void SetClientState(UInt32 inState) { mClientState.store(inState, std::memory_order_relaxed); }

  // Both outlive every device and the process's last static destructor, as callbacks may.
  static std::recursive_mutex& sConnectionMutex;
  static std::map<int, TMBACLN_Device*>& devicePool;

  TMBACLN_PlugIn* mPlugIn;
  HP_HogMode* mHogMode;
  HP_IOThread* mIOThread;
  UInt32 mNumberEngineStops;            // under way; with the guard held
  std::atomic<UInt64> mAnchorHostTime;  // sample time 0 of this run; 0 when the clock is stopped
  bool mControlsCreated;
  HP_DeviceControlProperty* mDeviceControlProperty;

  CFStringRef mListenerID;
  CFStringRef mPortID;
  std::atomic<CFMessagePortRef> mAudioDataPort;
  CFMessagePortRef mAudioListenerPort;
  TMBAudioClientInfo mClientInfo;  // its format changes only while the engine is stopped
  CFRunLoopRef mRunLoop;
  CFRunLoopTimerRef mDataPortTimer;
  CFRunLoopTimerRef mListenerPortTimer;
  UInt32 mDataPortRetries;
  UInt32 mListenerPortRetries;
  std::atomic<UInt32> mClientState;

  CAReaderBracket mDataPortBracket;
  TMBACLN_BlockSender mBlockSender;
};
