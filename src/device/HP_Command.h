#pragma once

#include <CoreAudio/AudioHardware.h>

#include <memory>

class HP_Device;

// Purpose: one change to a device's I/O state, run at once under the I/O guard or kept till the end
//   of the I/O thread's pass (HP_Device::ExecuteCommand).
// Thread: made on any thread; executed by one thread at a time, with the guard held where the
//   device has one.
// Ownership: ExecuteCommand takes the command and deletes it after its execution.
// Units and range: mID is the command's four-character code.
// Failure: Execute lets a CAException of the device pass. With a null device it does nothing.
class HP_Command {
 public:
  explicit HP_Command(UInt32 inID) : mID(inID) {}
  virtual ~HP_Command() = default;
  HP_Command(const HP_Command&) = delete;
  HP_Command& operator=(const HP_Command&) = delete;

  UInt32 GetID() const { return mID; }
  virtual void Execute(HP_Device* inDevice);

 private:
  UInt32 mID;
};

class HP_AddIOProcCommand : public HP_Command {
 public:
  static constexpr UInt32 kID = '+iop';

  HP_AddIOProcCommand(AudioDeviceIOProc inProc, void* inClientData)
      : HP_Command(kID), mProc(inProc), mClientData(inClientData) {}

  void Execute(HP_Device* inDevice) override;

 private:
  AudioDeviceIOProc mProc;
  void* mClientData;
};

class HP_RemoveIOProcCommand : public HP_Command {
 public:
  static constexpr UInt32 kID = '-iop';

  explicit HP_RemoveIOProcCommand(AudioDeviceIOProcID inIOProcID)
      : HP_Command(kID), mIOProcID(inIOProcID) {}

  void Execute(HP_Device* inDevice) override;

 private:
  AudioDeviceIOProcID mIOProcID;
};

// Keeps its own copy of the client's usage, one bool for each stream.
class HP_ChangeIOProcStreamUsageCommand : public HP_Command {
 public:
  static constexpr UInt32 kID = 'suse';

  HP_ChangeIOProcStreamUsageCommand(AudioDeviceIOProcID inIOProcID, bool inIsInput,
                                    UInt32 inNumberStreams, const UInt32* inStreamUsage);

  void Execute(HP_Device* inDevice) override;

 private:
  AudioDeviceIOProcID mIOProcID;
  bool mIsInput;
  UInt32 mNumberStreams;
  std::unique_ptr<bool[]> mStreamUsage;
};

class HP_StartIOProcCommand : public HP_Command {
 public:
  static constexpr UInt32 kID = '>iop';

  explicit HP_StartIOProcCommand(AudioDeviceIOProcID inIOProcID);
  HP_StartIOProcCommand(AudioDeviceIOProcID inIOProcID, const AudioTimeStamp& inStartTime,
                        UInt32 inStartTimeFlags);

  bool IsInput() const { return mIsInput; }
  bool HasStartTime() const { return mHasStartTime; }
  void Execute(HP_Device* inDevice) override;

 private:
  AudioDeviceIOProcID mIOProcID;
  AudioTimeStamp mStartTime;
  UInt32 mStartTimeFlags;
  bool mIsInput;  // bit 0 of the flags: the time is an input time
  bool mHasStartTime;
};

class HP_StopIOProcCommand : public HP_Command {
 public:
  static constexpr UInt32 kID = '<iop';

  explicit HP_StopIOProcCommand(AudioDeviceIOProcID inIOProcID)
      : HP_Command(kID), mIOProcID(inIOProcID) {}

  void Execute(HP_Device* inDevice) override;

 private:
  AudioDeviceIOProcID mIOProcID;
};

class HP_StopAllIOProcsCommand : public HP_Command {
 public:
  static constexpr UInt32 kID = 'saio';

  HP_StopAllIOProcsCommand() : HP_Command(kID) {}

  void Execute(HP_Device* inDevice) override;
};

class HP_ChangeBufferSizeCommand : public HP_Command {
 public:
  static constexpr UInt32 kID = 'bufs';

  HP_ChangeBufferSizeCommand(UInt32 inIOBufferFrameSize, bool inSendNotifications)
      : HP_Command(kID),
        mIOBufferFrameSize(inIOBufferFrameSize),
        mSendNotifications(inSendNotifications) {}

  void Execute(HP_Device* inDevice) override;

 private:
  UInt32 mIOBufferFrameSize;
  bool mSendNotifications;
};
