#pragma once

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include <atomic>
#include <vector>

#include "objects/HP_Object.h"

class CAGuard;
class CAMutex;
class CAPropertyAddressList;
class HP_Command;
class HP_Control;
class HP_DeviceFormatList;
class HP_IOCycleTelemetry;
class HP_IOProcList;
class HP_PreferredChannels;
class HP_Stream;

// Purpose: the base of every audio device: its state, its streams, its I/O procedures, its
//   properties, and the command queue by which each change of I/O state reaches it between two
//   cycles. It is passive; a concrete device adds the thread, the guard, the clock and the cycle.
// Thread: property operations take the device state mutex. Do_ operations run on any thread; the
//   operation without the prefix runs with the I/O guard held, when its command executes. Plain
//   reads of frame size and running state may come from any thread. Lock order: state mutex, then
//   I/O guard.
// Ownership: owned by the plug-in. Owns its state mutex, preferred channels, format list,
//   telemetry, I/O procedure list and deferred commands. The concrete device adds and deletes its
//   streams and controls.
// Units and range: sizes and times in frames, rates in frames per second, host times in host
//   ticks; stream indices count from 0, channels from 1 with element 0 for the whole device.
// Failure: CAException. A command that was deferred has no one to report to.
class HP_Device : public HP_Object {
 public:
  HP_Device(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn,
            UInt32 inIOBufferSetID, bool inIOBufferSetIncludesHeader);
  ~HP_Device() override;
  HP_Device(const HP_Device&) = delete;
  HP_Device& operator=(const HP_Device&) = delete;

  void Initialize() override;
  void Teardown() override;
  CAMutex* GetObjectStateMutex() override;
  void Show() const override;

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

  // Identity. The caller owns what a Copy operation answers; null where there is none.
  virtual bool IsAlive() const;
  virtual bool IsHidden() const;
  virtual CFStringRef CopyDeviceName() const;
  virtual CFStringRef CopyDeviceManufacturerName() const;
  virtual CFURLRef CopyDeviceIcon() const;
  virtual CFStringRef CopyElementFullName(const AudioObjectPropertyAddress& inAddress) const;
  virtual CFStringRef CopyElementCategoryName(const AudioObjectPropertyAddress& inAddress) const;
  virtual CFStringRef CopyElementNumberName(const AudioObjectPropertyAddress& inAddress) const;
  virtual CFStringRef CopyConfigurationApplicationBundleID() const;
  virtual CFStringRef CopyDeviceUID() const;
  virtual CFStringRef CopyModelUID() const;
  virtual UInt32 GetTransportType() const;
  virtual bool IsConstantRateClock() const;
  virtual bool CanBeDefaultDevice(bool inIsInput, bool inIsSystem) const;

  // Exclusive ownership. A device without it is nobody's and free for all.
  virtual bool HogModeIsOwnedBySelf() const;
  virtual bool HogModeIsOwnedBySelfOrIsFree() const;
  virtual void HogModeStateChanged();

  // Layout and state mutex. outLayout has room for one description for each channel of the
  // direction.
  virtual void GetDefaultChannelLayout(bool inIsInput, AudioChannelLayout& outLayout) const;
  virtual void CreateDeviceStateMutex();
  virtual void DestroyDeviceStateMutex();
  virtual void ClearPrefs();

  // Commands. ExecuteCommand takes the command: it runs at once, or, where that is not safe or not
  // permitted, at the end of the I/O thread's pass.
  virtual void ExecuteCommand(HP_Command* inCommand);
  virtual void ExecuteAllCommands();
  virtual void ClearAllCommands();
  virtual bool IsSafeToExecuteCommand();
  virtual bool IsPermittedToExecuteCommand(HP_Command* inCommand);
  virtual bool StartCommandExecution(void** outToken);
  virtual void FinishCommandExecution(void* inToken);

  // I/O procedures.
  virtual AudioDeviceIOProcID Do_CreateIOProcID(AudioDeviceIOProc inProc, void* inClientData);
  virtual AudioDeviceIOProcID Do_CreateIOProcIDWithBlock(dispatch_queue_t inDispatchQueue,
                                                         AudioDeviceIOBlock inBlock);
  virtual void Do_DestroyIOProcID(AudioDeviceIOProcID inIOProcID);
  virtual void Do_AddIOProc(AudioDeviceIOProc inProc, void* inClientData);
  virtual void AddIOProc(AudioDeviceIOProc inProc, void* inClientData);
  virtual void Do_RemoveIOProc(AudioDeviceIOProcID inIOProcID);
  virtual void RemoveIOProc(AudioDeviceIOProcID inIOProcID);
  virtual void Do_StartIOProc(AudioDeviceIOProcID inIOProcID);
  virtual void StartIOProc(AudioDeviceIOProcID inIOProcID);
  virtual void Do_StartIOProcAtTime(AudioDeviceIOProcID inIOProcID,
                                    AudioTimeStamp& ioRequestedStartTime, UInt32 inFlags);
  virtual void StartIOProcAtTime(AudioDeviceIOProcID inIOProcID, const AudioTimeStamp& inStartTime,
                                 UInt32 inFlags);
  virtual void Do_StopIOProc(AudioDeviceIOProcID inIOProcID);
  virtual void StopIOProc(AudioDeviceIOProcID inIOProcID);
  virtual void Do_StopAllIOProcs();
  virtual void StopAllIOProcs();
  virtual void Do_SetIOProcStreamUsage(AudioDeviceIOProcID inIOProcID, bool inIsInput,
                                       UInt32 inNumberStreams, const UInt32* inStreamUsage);
  virtual void SetIOProcStreamUsage(AudioDeviceIOProcID inIOProcID, bool inIsInput,
                                    UInt32 inNumberStreams, const bool* inStreamUsage);
  virtual void CreateIOProcList();
  virtual void DestroyIOProcList();

  // Buffer sizes.
  virtual UInt32 GetLatency(bool inIsInput) const;
  virtual UInt32 GetSafetyOffset(bool inIsInput) const;
  virtual bool IsValidIOBufferFrameSize(UInt32 inIOBufferFrameSize) const;
  virtual UInt32 GetMinimumIOBufferFrameSize() const;
  virtual UInt32 GetMaximumIOBufferFrameSize() const;
  virtual UInt32 GetIOBufferFrameSizePadding() const;
  virtual void Do_SetIOBufferFrameSize(UInt32 inIOBufferFrameSize);
  virtual void Do_SetQuietIOBufferFrameSize(UInt32 inIOBufferFrameSize);

  // I/O engine. The period is in host ticks.
  virtual void CalculateIOThreadTimeConstraints(UInt64& outPeriod, UInt32& outQuantum);
  virtual bool IsIOEngineRunningSomewhere() const;
  virtual CAGuard* GetIOGuard();
  virtual void Read(const AudioTimeStamp& inStartTime, AudioBufferList* outData);
  virtual bool CallIOProcs(const AudioTimeStamp& inCurrentTime, const AudioTimeStamp& inInputTime,
                           const AudioTimeStamp& inOutputTime);
  // ioChanges is null where no notifications are sent.
  virtual void IOBufferFrameSizeChanged(bool inSendNotifications, CAPropertyAddressList* ioChanges);
  virtual void StartIOEngine();
  virtual void StartIOEngineAtTime(const AudioTimeStamp& inStartTime, UInt32 inFlags);
  virtual void StopIOEngine();
  virtual UInt32 GetDefaultIOBufferSizeForSampleRate(Float64 inSampleRate) const;
  virtual UInt32 GetIOCycleNumber() const;

  // Clock. The caller of TranslateTime says in outTime.mFlags what it wants.
  virtual void GetCurrentTime(AudioTimeStamp& outTime);
  virtual void SafeGetCurrentTime(AudioTimeStamp& outTime);
  virtual void TranslateTime(const AudioTimeStamp& inTime, AudioTimeStamp& outTime);
  virtual void GetNearestStartTime(AudioTimeStamp& ioRequestedStartTime, UInt32 inFlags);
  virtual Float64 GetCurrentNominalSampleRate() const;
  virtual Float64 GetCurrentActualSampleRate() const;
  virtual void StartIOCycleTimingServices();
  virtual bool EstablishIOCycleAnchorTime(AudioTimeStamp& ioAnchorTime);
  virtual bool UpdateIOCycleTimingServices();
  virtual void StopIOCycleTimingServices();

  // Controls. The control that a property of the device means, or null. The class is left as it was
  // for a selector that means none.
  virtual HP_Control* GetControlByAddress(const AudioObjectPropertyAddress& inAddress) const;
  virtual void ConvertDeviceAddressToControlAddress(
      const AudioObjectPropertyAddress& inAddress, AudioClassID& outControlClassID,
      AudioObjectPropertyScope& outControlScope,
      AudioObjectPropertyElement& outControlElement) const;
  virtual AudioObjectPropertySelector ConvertDeviceSelectorToControlSelector(
      AudioObjectPropertySelector inSelector) const;
  // The properties of the device that change with a control's value and range; a selector of 0 is
  // none.
  virtual AudioObjectPropertySelector GetPrimaryValueChangedPropertySelectorForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertySelector GetSecondaryValueChangedPropertySelectorForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertySelector GetThirdValueChangedPropertySelectorForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertySelector GetFourthValueChangedPropertySelectorForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertyScope GetPrimaryValueChangedPropertyScopeForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertyScope GetSecondaryValueChangedPropertyScopeForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertyScope GetThirdValueChangedPropertyScopeForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertyScope GetFourthValueChangedPropertyScopeForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertySelector GetPrimaryRangeChangedPropertySelectorForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertySelector GetSecondaryRangeChangedPropertySelectorForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertyScope GetPrimaryRangeChangedPropertyScopeForControl(
      const HP_Control* inControl) const;
  virtual AudioObjectPropertyScope GetSecondaryRangeChangedPropertyScopeForControl(
      const HP_Control* inControl) const;

  CAMutex* GetDeviceStateMutex() const { return mDeviceStateMutex; }
  HP_IOProcList* GetIOProcList() const { return mIOProcList; }
  // From Initialize to Teardown.
  HP_IOCycleTelemetry* GetIOCycleTelemetry() const { return mIOCycleTelemetry; }
  UInt32 GetIOBufferSetID() const { return mIOBufferSetID; }
  const char* GetDebugDeviceName() const { return mDebugDeviceName; }

  UInt32 GetIOBufferFrameSize() const { return mIOBufferFrameSize.load(std::memory_order_relaxed); }
  // With the guard held, or before I/O.
  void SetIOBufferFrameSize(UInt32 inIOBufferFrameSize, bool inSendNotifications);
  UInt32 DetermineIOBufferFrameSize() const;

  // Whoever sees the engine running also sees what was written before it was said to run.
  bool IsIOEngineRunning() const { return mIOEngineIsRunning.load(std::memory_order_acquire); }
  void IOEngineStarted() { mIOEngineIsRunning.store(true, std::memory_order_release); }
  void IOEngineStopped() { mIOEngineIsRunning.store(false, std::memory_order_release); }

  // Streams, in the order in which they were added. They change only while no I/O can run.
  void AddStream(HP_Stream* inStream);
  void RemoveStream(HP_Stream* inStream);
  UInt32 GetNumberStreams(bool inIsInput) const {
    return static_cast<UInt32>(GetStreams(inIsInput).size());
  }
  HP_Stream* GetStreamByIndex(bool inIsInput, UInt32 inIndex) const;
  bool HasAnyStreams(bool inIsInput) const { return !GetStreams(inIsInput).empty(); }
  bool HasInputStreams() const { return HasAnyStreams(true); }
  bool HasOutputStreams() const { return HasAnyStreams(false); }
  // The stream that carries the channel of the address, the first one for element 0, among the
  // input streams for scope 'inpt' and among the output streams for any other; null if there is
  // none. The flag changes nothing.
  HP_Stream* GetStreamByPropertyAddress(const AudioObjectPropertyAddress& inAddress, bool) const;
  UInt32 GetTotalNumberChannels(bool inIsInput) const;
  bool HasAnyNonLinearPCMStreams() const;
  bool HasAnyNonMixableStreams(bool inIsInput) const;
  bool CanSetIsMixable(bool inIsInput) const;

  // Controls, in the order in which they were added. With the state mutex held.
  void AddControl(HP_Control* inControl);
  void RemoveControl(HP_Control* inControl);
  void RemoveAllControls();
  UInt32 GetNumberControls() const { return static_cast<UInt32>(mControls.size()); }
  HP_Control* GetControlByIndex(UInt32 inIndex) const;
  void ClearControlMarks();

 private:
  using StreamList = std::vector<HP_Stream*>;

  const StreamList& GetStreams(bool inIsInput) const {
    return inIsInput ? mInputStreams : mOutputStreams;
  }
  template <class Operation>
  AudioDeviceIOProcID CreateIOProcIDNow(Operation inOperation);
  void TakeDebugDeviceName();
  void TellIOBufferFrameSize();

  CAMutex* mDeviceStateMutex;
  HP_PreferredChannels* mPreferredChannels;
  HP_DeviceFormatList* mDeviceFormatList;
  // With the guard held, which is where the I/O thread is when it runs clients and commands.
  std::vector<HP_Command*> mCommandList;
  std::vector<HP_Command*> mCommandScratchList;
  HP_IOProcList* mIOProcList;
  UInt32 mIOBufferSetID;
  bool mIOBufferSetIncludesHeader;
  std::atomic<UInt32> mIOBufferFrameSize;
  std::atomic<bool> mIOEngineIsRunning;
  HP_IOCycleTelemetry* mIOCycleTelemetry;
  StreamList mInputStreams;
  StreamList mOutputStreams;
  std::vector<HP_Control*> mControls;
  char mDebugDeviceName[256];
};
