#pragma once

#include <CoreAudio/AudioHardware.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "device/HP_IOProc.h"

// Purpose: a device's set of I/O procedure records: it makes and destroys them, counts what is
//   started, and decides where the buffers of each direction live. All clients read input from one
//   shared list; each started client renders into its own.
// Thread: every change is made with the device's I/O guard held, and so is every walk by the I/O
//   cycle. Operations marked "any thread" are also called without the guard. They are safe because
//   the counters are atomic, and because a change to the set of records or to a stream usage also
//   takes mRecordsMutex for the instant of the change, which a reader takes only if it does not
//   hold the guard. The I/O thread holds the guard, so neither its cycle nor a question from within
//   a client's procedure ever takes that mutex.
// Ownership: owns the records and the shared lists; the device owns the list.
// Units and range: stream indices and record indices count from 0.
// Failure: an unknown ID is ignored. What constructing a record throws passes through.
class HP_IOProcList {
 public:
  enum : UInt32 {
    kIOProcBufferListNone = 0,
    kIOProcBufferListShared = 1,
    kIOProcBufferListPerIOProc = 2
  };

  HP_IOProcList(HP_Device* inDevice, UInt32 inIOBufferSetID, bool inIOBufferSetIncludesHeader);
  ~HP_IOProcList();
  HP_IOProcList(const HP_IOProcList&) = delete;
  HP_IOProcList& operator=(const HP_IOProcList&) = delete;

  // Records; with the guard held. RT safe.
  UInt32 GetNumberIOProcs() const { return static_cast<UInt32>(mIOProcs.size()); }
  HP_IOProc* GetIOProcByIndex(UInt32 inIndex) const;
  HP_IOProc* GetIOProcByIOProcID(AudioDeviceIOProcID inIOProcID) const;
  HP_IOProc* GetEnabledIOProcByIndex(UInt32 inIndex) const;

  // Questions; any thread.
  bool HasIOProcID(AudioDeviceIOProcID inIOProcID) const;
  bool HasIOProc(AudioDeviceIOProc inIOProc, void* inClientData, bool inUseClientData) const;
  bool HasIOBlock(dispatch_queue_t inDispatchQueue, AudioDeviceIOBlock inIOBlock) const;
  void GetIOProcStreamUsage(AudioDeviceIOProcID inIOProcID, bool inIsInput, UInt32 inNumberStreams,
                            bool* outStreamUsage) const;
  bool IsAnythingEnabled() const;
  bool IsNothingEnabled() const;
  bool IsOnlyNULLEnabled() const;
  bool IsOnlyOneThingEnabled() const;
  bool IsOnlyOneIOProcEnabled() const;

  // Changes; with the guard held.
  AudioDeviceIOProcID AddIOProc(AudioDeviceIOProc inIOProc, void* inClientData,
                                bool inIsClientDataRelevant);
  AudioDeviceIOProcID AddIOBlock(dispatch_queue_t inDispatchQueue, AudioDeviceIOBlock inIOBlock);
  void RemoveIOProc(AudioDeviceIOProcID inIOProcID);
  void RemoveAllIOProcs();
  void StartIOProc(AudioDeviceIOProcID inIOProcID);
  void StartIOProcAtTime(AudioDeviceIOProcID inIOProcID, const AudioTimeStamp& inStartTime,
                         UInt32 inStartTimeFlags);
  void StopIOProc(AudioDeviceIOProcID inIOProcID);
  void StopIOProc(HP_IOProc* inIOProc);
  void StopAllIOProcs();
  void SetIOProcStreamUsage(AudioDeviceIOProcID inIOProcID, bool inIsInput, UInt32 inNumberStreams,
                            const bool* inStreamUsage);

  // Buffers; with the guard held. The refreshes are RT safe.
  UInt32 GetBufferListAllocationBehavior(bool inIsInput) const {
    return inIsInput ? mInputBufferBehavior : mOutputBufferBehavior;
  }
  const HP_IOProc::IOBufferList& GetSharedIOBufferList(bool inIsInput) const {
    return inIsInput ? mInputIOBuffers : mOutputIOBuffers;
  }
  AudioBufferList* GetSharedAudioBufferList(bool inIsInput) const {
    return inIsInput ? mInputBufferList : mOutputBufferList;
  }
  void GetIOProcStreamUsageUnion(bool inIsInput, HP_IOProc::StreamUsage& outStreamUsage) const;
  void AllocateIOProcBufferLists(HP_IOProc* inIOProc);
  void DeallocateIOProcBufferLists(HP_IOProc* inIOProc);
  void ReallocateIOProcBufferLists(HP_IOProc* inIOProc);
  void AllocateSharedBufferLists();
  void DeallocateSharedBufferLists();
  void ReallocateSharedBufferLists();
  void AllocateAllIOProcBufferLists();
  void DeallocateAllIOProcBufferLists();
  void ReallocateAllIOProcBufferLists();
  void RefreshAllIOProcBufferLists();
  void RefreshIOProcBufferLists(bool inIsInput);
  void GetIOBufferActualDataSize(bool inIsInput, UInt32 inStreamIndex, UInt32& outByteSize,
                                 UInt32& outFrameSize) const;
  void SetIOBufferActualDataSize(bool inIsInput, UInt32 inStreamIndex, UInt32 inByteSize,
                                 UInt32 inFrameSize);

 private:
  std::unique_lock<std::mutex> LockRecordsUnlessGuarded() const;
  void AppendRecord(HP_IOProc* inIOProc);
  void EnableRecord(HP_IOProc* inIOProc);
  void AllocateSharedBufferList(bool inIsInput);
  void DeallocateSharedBufferList(bool inIsInput);

  HP_Device* mDevice;
  std::vector<HP_IOProc*> mIOProcs;
  UInt32 mIOBufferSetID;
  bool mIOBufferSetIncludesHeader;
  UInt32 mInputBufferBehavior;
  UInt32 mOutputBufferBehavior;
  HP_IOProc::IOBufferList mInputIOBuffers;
  AudioBufferList* mInputBufferList;
  HP_IOProc::IOBufferList mOutputIOBuffers;
  AudioBufferList* mOutputBufferList;
  std::atomic<UInt32> mNumberEnabledIOProcs;
  std::atomic<UInt32> mNumberEnabledNULLProcs;

  mutable std::mutex mRecordsMutex;
};
