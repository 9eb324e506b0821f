#include "device/HP_Command.h"

#include "device/HP_Device.h"

void HP_Command::Execute(HP_Device* /*inDevice*/) {}

void HP_AddIOProcCommand::Execute(HP_Device* inDevice) {
  if (inDevice != nullptr) inDevice->AddIOProc(mProc, mClientData);
}

void HP_RemoveIOProcCommand::Execute(HP_Device* inDevice) {
  if (inDevice != nullptr) inDevice->RemoveIOProc(mIOProcID);
}

HP_ChangeIOProcStreamUsageCommand::HP_ChangeIOProcStreamUsageCommand(AudioDeviceIOProcID inIOProcID,
                                                                     bool inIsInput,
                                                                     UInt32 inNumberStreams,
                                                                     const UInt32* inStreamUsage)
    : HP_Command(kID),
      mIOProcID(inIOProcID),
      mIsInput(inIsInput),
      mNumberStreams(inNumberStreams),
      mStreamUsage(new bool[inNumberStreams]) {
  for (UInt32 i = 0; i < inNumberStreams; ++i) mStreamUsage[i] = inStreamUsage[i] != 0;
}

void HP_ChangeIOProcStreamUsageCommand::Execute(HP_Device* inDevice) {
  if (inDevice != nullptr) {
    inDevice->SetIOProcStreamUsage(mIOProcID, mIsInput, mNumberStreams, mStreamUsage.get());
  }
}

HP_StartIOProcCommand::HP_StartIOProcCommand(AudioDeviceIOProcID inIOProcID)
    : HP_Command(kID),
      mIOProcID(inIOProcID),
      mStartTime(),
      mStartTimeFlags(0),
      mIsInput(false),
      mHasStartTime(false) {}

HP_StartIOProcCommand::HP_StartIOProcCommand(AudioDeviceIOProcID inIOProcID,
                                             const AudioTimeStamp& inStartTime,
                                             UInt32 inStartTimeFlags)
    : HP_Command(kID),
      mIOProcID(inIOProcID),
      mStartTime(inStartTime),
      mStartTimeFlags(inStartTimeFlags),
      mIsInput((inStartTimeFlags & kAudioDeviceStartTimeIsInputFlag) != 0),
      mHasStartTime(true) {}

void HP_StartIOProcCommand::Execute(HP_Device* inDevice) {
  if (inDevice == nullptr) return;
  if (mHasStartTime) {
    inDevice->StartIOProcAtTime(mIOProcID, mStartTime, mStartTimeFlags);
  } else {
    inDevice->StartIOProc(mIOProcID);
  }
}

void HP_StopIOProcCommand::Execute(HP_Device* inDevice) {
  if (inDevice != nullptr) inDevice->StopIOProc(mIOProcID);
}

void HP_StopAllIOProcsCommand::Execute(HP_Device* inDevice) {
  if (inDevice != nullptr) inDevice->StopAllIOProcs();
}

void HP_ChangeBufferSizeCommand::Execute(HP_Device* inDevice) {
  if (inDevice != nullptr) inDevice->SetIOBufferFrameSize(mIOBufferFrameSize, mSendNotifications);
}
