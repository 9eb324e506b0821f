// Where the buffers of each direction live: the shared lists and those of the records.

#include "device/HP_Device.h"
#include "device/HP_IOProcList.h"

void HP_IOProcList::GetIOProcStreamUsageUnion(bool inIsInput,
                                              HP_IOProc::StreamUsage& outStreamUsage) const {
  const UInt32 theNumberStreams = mDevice->GetNumberStreams(inIsInput);
  outStreamUsage.clear();
  for (UInt32 i = 0; i < theNumberStreams; ++i) {
    bool theStreamIsWanted = false;
    for (const HP_IOProc* theIOProc : mIOProcs) {
      theStreamIsWanted = theIOProc->IsEnabled() && theIOProc->IsStreamEnabled(inIsInput, i);
      if (theStreamIsWanted) break;
    }
    outStreamUsage.push_back(theStreamIsWanted);
  }
}

void HP_IOProcList::AllocateIOProcBufferLists(HP_IOProc* inIOProc) {
  if (mInputBufferBehavior == kIOProcBufferListPerIOProc) inIOProc->AllocateBufferList(true);
  if (mOutputBufferBehavior == kIOProcBufferListPerIOProc) inIOProc->AllocateBufferList(false);
}

void HP_IOProcList::DeallocateIOProcBufferLists(HP_IOProc* inIOProc) {
  inIOProc->FreeBufferList(true);
  inIOProc->FreeBufferList(false);
}

void HP_IOProcList::ReallocateIOProcBufferLists(HP_IOProc* inIOProc) {
  inIOProc->FreeBufferList(true);
  if (mInputBufferBehavior == kIOProcBufferListPerIOProc) inIOProc->AllocateBufferList(true);
  inIOProc->FreeBufferList(false);
  if (mOutputBufferBehavior == kIOProcBufferListPerIOProc) inIOProc->AllocateBufferList(false);
}

void HP_IOProcList::AllocateSharedBufferList(bool inIsInput) {
  const UInt32 theBehavior = GetBufferListAllocationBehavior(inIsInput);
  if (theBehavior == kIOProcBufferListPerIOProc) return;
  HP_IOProc::StreamUsage theUsage;
  GetIOProcStreamUsageUnion(inIsInput, theUsage);
  (inIsInput ? mInputBufferList : mOutputBufferList) = HP_IOProc::AllocateBufferList(
      *mDevice, inIsInput, theUsage, mIOBufferSetID, inIsInput ? mInputIOBuffers : mOutputIOBuffers,
      mIOBufferSetIncludesHeader, theBehavior == kIOProcBufferListShared);
}

void HP_IOProcList::DeallocateSharedBufferList(bool inIsInput) {
  AudioBufferList*& theList = inIsInput ? mInputBufferList : mOutputBufferList;
  if (theList == nullptr) return;
  HP_IOProc::FreeBufferList(*mDevice, inIsInput, mIOBufferSetID, theList,
                            inIsInput ? mInputIOBuffers : mOutputIOBuffers,
                            mIOBufferSetIncludesHeader);
  theList = nullptr;
}

void HP_IOProcList::AllocateSharedBufferLists() {
  AllocateSharedBufferList(true);
  AllocateSharedBufferList(false);
}

void HP_IOProcList::DeallocateSharedBufferLists() {
  DeallocateSharedBufferList(true);
  DeallocateSharedBufferList(false);
}

void HP_IOProcList::ReallocateSharedBufferLists() {
  DeallocateSharedBufferList(true);
  AllocateSharedBufferList(true);
  DeallocateSharedBufferList(false);
  AllocateSharedBufferList(false);
}

void HP_IOProcList::AllocateAllIOProcBufferLists() {
  for (HP_IOProc* theIOProc : mIOProcs) AllocateIOProcBufferLists(theIOProc);
  AllocateSharedBufferLists();
}

void HP_IOProcList::DeallocateAllIOProcBufferLists() {
  for (HP_IOProc* theIOProc : mIOProcs) DeallocateIOProcBufferLists(theIOProc);
  DeallocateSharedBufferLists();
}

void HP_IOProcList::ReallocateAllIOProcBufferLists() {
  for (HP_IOProc* theIOProc : mIOProcs) ReallocateIOProcBufferLists(theIOProc);
  ReallocateSharedBufferLists();
}

void HP_IOProcList::RefreshAllIOProcBufferLists() {
  for (const bool theIsInput : {true, false}) {
    AudioBufferList* theList = GetSharedAudioBufferList(theIsInput);
    if (theList == nullptr) continue;
    HP_IOProc::RefreshBufferList(*mDevice, theIsInput, theList, GetSharedIOBufferList(theIsInput));
  }
  for (HP_IOProc* theIOProc : mIOProcs) {
    theIOProc->RefreshBufferList(true);
    theIOProc->RefreshBufferList(false);
  }
}

void HP_IOProcList::RefreshIOProcBufferLists(bool inIsInput) {
  AudioBufferList* theList = GetSharedAudioBufferList(inIsInput);
  if (theList != nullptr) {
    HP_IOProc::RefreshBufferList(*mDevice, inIsInput, theList, GetSharedIOBufferList(inIsInput));
  }
  for (HP_IOProc* theIOProc : mIOProcs) theIOProc->RefreshBufferList(inIsInput);
}

void HP_IOProcList::GetIOBufferActualDataSize(bool inIsInput, UInt32 inStreamIndex,
                                              UInt32& outByteSize, UInt32& outFrameSize) const {
  const HP_IOProc::IOBufferList theNoBuffers;
  const HP_IOProc::IOBufferList* theBuffers = &theNoBuffers;
  const UInt32 theBehavior = GetBufferListAllocationBehavior(inIsInput);
  if (theBehavior == kIOProcBufferListShared) {
    theBuffers = &GetSharedIOBufferList(inIsInput);
  } else if (theBehavior == kIOProcBufferListPerIOProc) {
    const HP_IOProc* theIOProc = GetEnabledIOProcByIndex(0);
    if (theIOProc != nullptr) theBuffers = &theIOProc->GetIOBufferList(inIsInput);
  }
  HP_IOProc::GetIOBufferActualDataSize(*mDevice, inIsInput, *theBuffers, inStreamIndex, outByteSize,
                                       outFrameSize);
}

void HP_IOProcList::SetIOBufferActualDataSize(bool inIsInput, UInt32 inStreamIndex,
                                              UInt32 inByteSize, UInt32 inFrameSize) {
  const UInt32 theBehavior = GetBufferListAllocationBehavior(inIsInput);
  if (theBehavior == kIOProcBufferListShared) {
    HP_IOProc::SetIOBufferActualDataSize(GetSharedIOBufferList(inIsInput),
                                         GetSharedAudioBufferList(inIsInput), inStreamIndex,
                                         inByteSize, inFrameSize);
  } else if (theBehavior == kIOProcBufferListPerIOProc) {
    for (HP_IOProc* theIOProc : mIOProcs) {
      theIOProc->SetIOBufferActualDataSize(inIsInput, inStreamIndex, inByteSize, inFrameSize);
    }
  }
}
