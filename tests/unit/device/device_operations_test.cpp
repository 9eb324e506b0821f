// The order of the virtual operations, which those who were built against it rely on.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "device/HP_Command.h"
#include "device/HP_Device.h"

namespace tembra::test {
namespace {

// A pointer to a virtual operation holds its place in the table of operations, in bytes.
template <class Operation>
uintptr_t PlaceOf(Operation inOperation) {
  uintptr_t theWords[2];
  static_assert(sizeof(inOperation) == sizeof(theWords));
  std::memcpy(theWords, &inOperation, sizeof(theWords));
  return theWords[0];
}

template <class... Operations>
void ExpectOneAfterTheOther(Operations... inOperations) {
  const uintptr_t thePlaces[] = {PlaceOf(inOperations)...};
  for (size_t i = 1; i < sizeof...(inOperations); ++i) {
    EXPECT_EQ(thePlaces[i], thePlaces[i - 1] + sizeof(void*)) << "operation " << i;
  }
}

using D = HP_Device;

TEST(DeviceOperations, StandInTheirOrder) {
  ExpectOneAfterTheOther(
      // Set-up, properties, notifications.
      &D::Initialize, &D::Teardown, &D::GetObjectStateMutex, &D::Show, &D::HasProperty,
      &D::IsPropertySettable, &D::GetPropertyDataSize, &D::GetPropertyData, &D::SetPropertyData,
      &D::PropertiesChanged, &D::PropertyListenerAdded, &D::PropertyListenerRemoved,
      // Identity.
      &D::IsAlive, &D::IsHidden, &D::CopyDeviceName, &D::CopyDeviceManufacturerName,
      &D::CopyDeviceIcon, &D::CopyElementFullName, &D::CopyElementCategoryName,
      &D::CopyElementNumberName, &D::CopyConfigurationApplicationBundleID, &D::CopyDeviceUID,
      &D::CopyModelUID, &D::GetTransportType, &D::IsConstantRateClock, &D::CanBeDefaultDevice,
      // Ownership, layout, mutex.
      &D::HogModeIsOwnedBySelf, &D::HogModeIsOwnedBySelfOrIsFree, &D::HogModeStateChanged,
      &D::GetDefaultChannelLayout, &D::CreateDeviceStateMutex, &D::DestroyDeviceStateMutex,
      &D::ClearPrefs,
      // Commands.
      &D::ExecuteCommand, &D::ExecuteAllCommands, &D::ClearAllCommands, &D::IsSafeToExecuteCommand,
      &D::IsPermittedToExecuteCommand, &D::StartCommandExecution, &D::FinishCommandExecution,
      // I/O procedures.
      &D::Do_CreateIOProcID, &D::Do_CreateIOProcIDWithBlock, &D::Do_DestroyIOProcID,
      &D::Do_AddIOProc, &D::AddIOProc, &D::Do_RemoveIOProc, &D::RemoveIOProc, &D::Do_StartIOProc,
      &D::StartIOProc, &D::Do_StartIOProcAtTime, &D::StartIOProcAtTime, &D::Do_StopIOProc,
      &D::StopIOProc, &D::Do_StopAllIOProcs, &D::StopAllIOProcs, &D::Do_SetIOProcStreamUsage,
      &D::SetIOProcStreamUsage, &D::CreateIOProcList, &D::DestroyIOProcList,
      // Buffer sizes.
      &D::GetLatency, &D::GetSafetyOffset, &D::IsValidIOBufferFrameSize,
      &D::GetMinimumIOBufferFrameSize, &D::GetMaximumIOBufferFrameSize,
      &D::GetIOBufferFrameSizePadding, &D::Do_SetIOBufferFrameSize,
      &D::Do_SetQuietIOBufferFrameSize,
      // The engine.
      &D::CalculateIOThreadTimeConstraints, &D::IsIOEngineRunningSomewhere, &D::GetIOGuard,
      &D::Read, &D::CallIOProcs, &D::IOBufferFrameSizeChanged, &D::StartIOEngine,
      &D::StartIOEngineAtTime, &D::StopIOEngine, &D::GetDefaultIOBufferSizeForSampleRate,
      &D::GetIOCycleNumber,
      // The clock.
      &D::GetCurrentTime, &D::SafeGetCurrentTime, &D::TranslateTime, &D::GetNearestStartTime,
      &D::GetCurrentNominalSampleRate, &D::GetCurrentActualSampleRate,
      &D::StartIOCycleTimingServices, &D::EstablishIOCycleAnchorTime,
      &D::UpdateIOCycleTimingServices, &D::StopIOCycleTimingServices);
}

TEST(DeviceOperations, BeginBehindTheTwoDestructors) {
  // Initialize of a device and Execute of a command come first in their tables.
  EXPECT_EQ(PlaceOf(&D::Initialize), PlaceOf(&HP_Command::Execute));
  EXPECT_EQ(PlaceOf(&D::Initialize), PlaceOf(&HP_Object::Initialize));
}

}  // namespace
}  // namespace tembra::test
