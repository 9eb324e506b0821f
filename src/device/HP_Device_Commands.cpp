// How a change of I/O state reaches the device: at once with the guard held, or, on the I/O thread,
// at the end of the pass.

#include <memory>

#include "device/HP_Command.h"
#include "device/HP_Device.h"
#include "support/CAException.h"
#include "support/CAGuard.h"

void HP_Device::ExecuteCommand(HP_Command* inCommand) {
  std::unique_ptr<HP_Command> theCommand(inCommand);

  if (!IsSafeToExecuteCommand() || !IsPermittedToExecuteCommand(inCommand)) {
    // The I/O thread has the guard already; anyone else would meet it here.
    CAMutex::Locker theLocker(GetIOGuard());
    mCommandList.insert(mCommandList.begin(), inCommand);
    static_cast<void>(theCommand.release());
    // So that ExecuteAllCommands does not allocate.
    mCommandScratchList.reserve(mCommandList.size());
    return;
  }

  OSStatus theError = kAudioHardwareNoError;
  void* theToken = nullptr;
  if (StartCommandExecution(&theToken)) {
    try {
      theCommand->Execute(this);
    } catch (const CAException& theException) {
      theError = theException.GetError();
    } catch (...) {
      theError = kAudioHardwareUnspecifiedError;
    }
  }
  FinishCommandExecution(theToken);

  theCommand.reset();
  if (theError != kAudioHardwareNoError) throw CAException(theError);
}

void HP_Device::ExecuteAllCommands() {
  mCommandScratchList.clear();
  // New commands go to the front, so the last is the oldest.
  try {
    while (!mCommandList.empty()) {
      std::unique_ptr<HP_Command> theCommand(mCommandList.back());
      mCommandList.pop_back();
      if (IsPermittedToExecuteCommand(theCommand.get())) {
        theCommand->Execute(this);
      } else {
        mCommandScratchList.push_back(theCommand.release());
      }
    }
  } catch (...) {
    // Those held back so far are kept, next to run.
    mCommandList.insert(mCommandList.end(), mCommandScratchList.begin(), mCommandScratchList.end());
    mCommandScratchList.clear();
    throw;
  }
  if (!mCommandScratchList.empty()) {
    // Their order turns round: when next run, the newest comes first.
    mCommandList = mCommandScratchList;
    mCommandScratchList.clear();
  }
}

void HP_Device::ClearAllCommands() {
  for (HP_Command* theCommand : mCommandList) delete theCommand;
  mCommandList.clear();
}

bool HP_Device::IsSafeToExecuteCommand() {
  return true;
}

bool HP_Device::IsPermittedToExecuteCommand(HP_Command* /*inCommand*/) {
  return true;
}

bool HP_Device::StartCommandExecution(void** /*outToken*/) {
  return true;
}

void HP_Device::FinishCommandExecution(void* /*inToken*/) {}
