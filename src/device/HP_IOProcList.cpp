#include "device/HP_IOProcList.h"

#include <algorithm>
#include <memory>

#include "device/HP_Device.h"
#include "support/CAGuard.h"

namespace {

AudioDeviceIOProcID GetIDOfRecord(const HP_IOProc* inIOProc) {
  return reinterpret_cast<AudioDeviceIOProcID>(const_cast<HP_IOProc*>(inIOProc));
}

}  // namespace

HP_IOProcList::HP_IOProcList(HP_Device* inDevice, UInt32 inIOBufferSetID,
                             bool inIOBufferSetIncludesHeader)
    : mDevice(inDevice),
      mIOBufferSetID(inIOBufferSetID),
      mIOBufferSetIncludesHeader(inIOBufferSetIncludesHeader),
      mInputBufferBehavior(kIOProcBufferListShared),
      mOutputBufferBehavior(kIOProcBufferListPerIOProc),
      mInputBufferList(nullptr),
      mOutputBufferList(nullptr),
      mNumberEnabledIOProcs(0),
      mNumberEnabledNULLProcs(0) {}

HP_IOProcList::~HP_IOProcList() {
  RemoveAllIOProcs();
  // The last stop rebuilt the shared lists, without storage.
  DeallocateSharedBufferLists();
}

HP_IOProc* HP_IOProcList::GetIOProcByIndex(UInt32 inIndex) const {
  return inIndex < mIOProcs.size() ? mIOProcs[inIndex] : nullptr;
}

HP_IOProc* HP_IOProcList::GetIOProcByIOProcID(AudioDeviceIOProcID inIOProcID) const {
  for (HP_IOProc* theIOProc : mIOProcs) {
    if (GetIDOfRecord(theIOProc) == inIOProcID || theIOProc->GetIOProc() == inIOProcID) {
      return theIOProc;
    }
  }
  return nullptr;
}

HP_IOProc* HP_IOProcList::GetEnabledIOProcByIndex(UInt32 inIndex) const {
  if (inIndex >= mIOProcs.size()) return nullptr;
  for (HP_IOProc* theIOProc : mIOProcs) {
    if (!theIOProc->IsEnabled()) continue;
    if (inIndex == 0) return theIOProc;
    --inIndex;
  }
  return nullptr;
}

std::unique_lock<std::mutex> HP_IOProcList::LockRecordsUnlessGuarded() const {
  CAGuard* theGuard = mDevice->GetIOGuard();
  if (theGuard != nullptr && theGuard->IsOwnedByCurrentThread()) return {};
  return std::unique_lock<std::mutex>(mRecordsMutex);
}

bool HP_IOProcList::HasIOProcID(AudioDeviceIOProcID inIOProcID) const {
  const auto theLock = LockRecordsUnlessGuarded();
  return GetIOProcByIOProcID(inIOProcID) != nullptr;
}

bool HP_IOProcList::HasIOProc(AudioDeviceIOProc inIOProc, void* inClientData,
                              bool inUseClientData) const {
  const auto theLock = LockRecordsUnlessGuarded();
  return std::any_of(mIOProcs.begin(), mIOProcs.end(), [&](const HP_IOProc* theIOProc) {
    if (theIOProc->GetIOProc() != inIOProc) return false;
    const bool theDataDecides = inUseClientData && theIOProc->IsClientDataRelevant();
    return !theDataDecides || theIOProc->GetClientData() == inClientData;
  });
}

bool HP_IOProcList::HasIOBlock(dispatch_queue_t inDispatchQueue,
                               AudioDeviceIOBlock inIOBlock) const {
  const auto theLock = LockRecordsUnlessGuarded();
  return std::any_of(mIOProcs.begin(), mIOProcs.end(), [&](const HP_IOProc* theIOProc) {
    return theIOProc->GetDispatchQueue() == inDispatchQueue && theIOProc->GetIOBlock() == inIOBlock;
  });
}

void HP_IOProcList::GetIOProcStreamUsage(AudioDeviceIOProcID inIOProcID, bool inIsInput,
                                         UInt32 inNumberStreams, bool* outStreamUsage) const {
  const auto theLock = LockRecordsUnlessGuarded();
  const HP_IOProc* theIOProc = GetIOProcByIOProcID(inIOProcID);
  if (theIOProc != nullptr) theIOProc->GetStreamUsage(inIsInput, inNumberStreams, outStreamUsage);
}

bool HP_IOProcList::IsAnythingEnabled() const {
  return mNumberEnabledIOProcs.load(std::memory_order_relaxed) > 0 ||
         mNumberEnabledNULLProcs.load(std::memory_order_relaxed) > 0;
}

bool HP_IOProcList::IsNothingEnabled() const {
  return !IsAnythingEnabled();
}

bool HP_IOProcList::IsOnlyNULLEnabled() const {
  return mNumberEnabledIOProcs.load(std::memory_order_relaxed) == 0 &&
         mNumberEnabledNULLProcs.load(std::memory_order_relaxed) > 0;
}

bool HP_IOProcList::IsOnlyOneThingEnabled() const {
  const UInt32 theIOProcs = mNumberEnabledIOProcs.load(std::memory_order_relaxed);
  const UInt32 theNULLProcs = mNumberEnabledNULLProcs.load(std::memory_order_relaxed);
  return (theIOProcs == 1 && theNULLProcs == 0) || (theIOProcs == 0 && theNULLProcs == 1);
}

bool HP_IOProcList::IsOnlyOneIOProcEnabled() const {
  return mNumberEnabledIOProcs.load(std::memory_order_relaxed) == 1;
}

void HP_IOProcList::AppendRecord(HP_IOProc* inIOProc) {
  std::unique_ptr<HP_IOProc> theIOProc(inIOProc);
  // The new vector is built outside the lock, so that a reader waits for a swap at most.
  std::vector<HP_IOProc*> theIOProcs;
  theIOProcs.reserve(mIOProcs.size() + 1);
  theIOProcs.assign(mIOProcs.begin(), mIOProcs.end());
  theIOProcs.push_back(theIOProc.release());
  const std::lock_guard<std::mutex> theLock(mRecordsMutex);
  mIOProcs.swap(theIOProcs);
}

AudioDeviceIOProcID HP_IOProcList::AddIOProc(AudioDeviceIOProc inIOProc, void* inClientData,
                                             bool inIsClientDataRelevant) {
  HP_IOProc* theIOProc = new HP_IOProc(mDevice, inIOProc, inClientData, inIsClientDataRelevant,
                                       mIOBufferSetID, true, mIOBufferSetIncludesHeader);
  AppendRecord(theIOProc);
  return inIsClientDataRelevant ? GetIDOfRecord(theIOProc) : inIOProc;
}

AudioDeviceIOProcID HP_IOProcList::AddIOBlock(dispatch_queue_t inDispatchQueue,
                                              AudioDeviceIOBlock inIOBlock) {
  HP_IOProc* theIOProc = new HP_IOProc(mDevice, inDispatchQueue, inIOBlock, mIOBufferSetID, true,
                                       mIOBufferSetIncludesHeader);
  AppendRecord(theIOProc);
  return GetIDOfRecord(theIOProc);
}

void HP_IOProcList::RemoveIOProc(AudioDeviceIOProcID inIOProcID) {
  HP_IOProc* theIOProc = GetIOProcByIOProcID(inIOProcID);
  if (theIOProc == nullptr) return;
  StopIOProc(theIOProc);
  {
    const std::lock_guard<std::mutex> theLock(mRecordsMutex);
    mIOProcs.erase(std::find(mIOProcs.begin(), mIOProcs.end(), theIOProc));
  }
  delete theIOProc;
}

void HP_IOProcList::RemoveAllIOProcs() {
  // One by one: stopping a record walks those that are still there.
  while (!mIOProcs.empty()) RemoveIOProc(GetIDOfRecord(mIOProcs.front()));
}

void HP_IOProcList::EnableRecord(HP_IOProc* inIOProc) {
  mNumberEnabledIOProcs.fetch_add(1, std::memory_order_relaxed);
  ReallocateIOProcBufferLists(inIOProc);
  ReallocateSharedBufferLists();
}

void HP_IOProcList::StartIOProc(AudioDeviceIOProcID inIOProcID) {
  if (inIOProcID == nullptr) {
    mNumberEnabledNULLProcs.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  HP_IOProc* theIOProc = GetIOProcByIOProcID(inIOProcID);
  if (theIOProc == nullptr || theIOProc->IsEnabled()) return;
  theIOProc->Start();
  EnableRecord(theIOProc);
}

void HP_IOProcList::StartIOProcAtTime(AudioDeviceIOProcID inIOProcID,
                                      const AudioTimeStamp& inStartTime, UInt32 inStartTimeFlags) {
  if (inIOProcID == nullptr) {
    StartIOProc(nullptr);
    return;
  }
  HP_IOProc* theIOProc = GetIOProcByIOProcID(inIOProcID);
  if (theIOProc == nullptr || theIOProc->IsEnabled()) return;
  theIOProc->StartAtTime(inStartTime, inStartTimeFlags);
  EnableRecord(theIOProc);
}

void HP_IOProcList::StopIOProc(AudioDeviceIOProcID inIOProcID) {
  if (inIOProcID == nullptr) {
    const UInt32 theCount = mNumberEnabledNULLProcs.load(std::memory_order_relaxed);
    if (theCount > 0) mNumberEnabledNULLProcs.store(theCount - 1, std::memory_order_relaxed);
    return;
  }
  HP_IOProc* theIOProc = GetIOProcByIOProcID(inIOProcID);
  if (theIOProc != nullptr) StopIOProc(theIOProc);
}

void HP_IOProcList::StopIOProc(HP_IOProc* inIOProc) {
  if (!inIOProc->IsEnabled()) return;
  inIOProc->Stop();
  mNumberEnabledIOProcs.fetch_sub(1, std::memory_order_relaxed);
  ReallocateIOProcBufferLists(inIOProc);
  ReallocateSharedBufferLists();
}

void HP_IOProcList::StopAllIOProcs() {
  bool theListsChanged = false;
  for (HP_IOProc* theIOProc : mIOProcs) {
    if (!theIOProc->IsEnabled()) continue;
    theIOProc->Stop();
    mNumberEnabledIOProcs.fetch_sub(1, std::memory_order_relaxed);
    ReallocateIOProcBufferLists(theIOProc);
    theListsChanged = true;
  }
  if (theListsChanged) ReallocateSharedBufferLists();
  mNumberEnabledNULLProcs.store(0, std::memory_order_relaxed);
}

void HP_IOProcList::SetIOProcStreamUsage(AudioDeviceIOProcID inIOProcID, bool inIsInput,
                                         UInt32 inNumberStreams, const bool* inStreamUsage) {
  HP_IOProc* theIOProc = GetIOProcByIOProcID(inIOProcID);
  if (theIOProc == nullptr) return;
  {
    const std::lock_guard<std::mutex> theLock(mRecordsMutex);
    theIOProc->SetStreamUsage(inIsInput, inNumberStreams, inStreamUsage);
  }
  if (theIOProc->IsEnabled()) {
    ReallocateIOProcBufferLists(theIOProc);
    ReallocateSharedBufferLists();
  }
}
