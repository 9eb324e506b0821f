#pragma once

#include <CoreAudio/AudioHardware.h>
#include <dispatch/dispatch.h>

#include <vector>

class HP_Device;

// Purpose: the record of one client I/O procedure (a function, or a block with an optional queue)
//   on one device: whether and from when it runs, which streams it wants, and its buffer lists.
// Thread: no lock of its own. Everything is called with the device's I/O guard held, Call on the
//   I/O thread only. The stream usage alone is also read by threads without the guard, by way of
//   HP_IOProcList, which protects it.
// Ownership: owned by the HP_IOProcList. Holds the queue and a copy of the block. Its buffers exist
//   only while it is started; the list stops a record before it destroys it.
// Units and range: sizes in bytes or frames as named; stream indices count from 0.
// Failure: nothing here throws or reports; storage that cannot be had is silently missing.
class HP_IOProc {
 public:
  // One block of storage for a stream: this header, directly followed by the audio data.
  struct IOBuffer {
    UInt32 mActualDataByteSize;
    UInt32 mActualDataFrameSize;
    UInt32 mCapacityByteSize;
    UInt32 mNominalDataByteSize;  // what each refresh puts back into the AudioBufferList

    void* GetData() { return this + 1; }
  };
  static_assert(sizeof(IOBuffer) == 16);

  using StreamUsage = std::vector<bool>;
  using IOBufferList = std::vector<IOBuffer*>;

  HP_IOProc(HP_Device* inDevice, AudioDeviceIOProc inIOProc, void* inClientData,
            bool inIsClientDataRelevant, UInt32 inIOBufferSetID, bool inAllocateBuffers,
            bool inIOBufferSetIncludesHeader);
  HP_IOProc(HP_Device* inDevice, dispatch_queue_t inDispatchQueue, AudioDeviceIOBlock inIOBlock,
            UInt32 inIOBufferSetID, bool inAllocateBuffers, bool inIOBufferSetIncludesHeader);
  // A copy shares the buffers and lists of the original. Nothing in the system makes one.
  HP_IOProc(const HP_IOProc& inIOProc);
  HP_IOProc& operator=(const HP_IOProc& inIOProc);
  ~HP_IOProc();

  AudioDeviceIOProc GetIOProc() const { return mIOProc; }
  void* GetClientData() const { return mClientData; }
  bool IsClientDataRelevant() const { return mIsClientDataRelevant; }
  AudioDeviceIOBlock GetIOBlock() const { return mIOBlock; }
  dispatch_queue_t GetDispatchQueue() const { return mDispatchQueue; }

  bool IsEnabled() const { return mIsEnabled; }
  bool IsCallable(const AudioTimeStamp& inInputTime, const AudioTimeStamp& inOutputTime) const;
  void Start();
  void StartAtTime(const AudioTimeStamp& inStartTime, UInt32 inStartTimeFlags);
  void Stop();

  const StreamUsage& GetStreamUsage(bool inIsInput) const {
    return inIsInput ? mInputStreamUsage : mOutputStreamUsage;
  }
  bool IsStreamEnabled(bool inIsInput, UInt32 inStreamIndex) const;
  bool IsAnyStreamEnabled(bool inIsInput) const;
  void GetStreamUsage(bool inIsInput, UInt32 inNumberStreams, bool* outStreamUsage) const;
  void SetStreamUsage(bool inIsInput, UInt32 inNumberStreams, const bool* inStreamUsage);

  const IOBufferList& GetIOBufferList(bool inIsInput) const {
    return inIsInput ? mInputIOBuffers : mOutputIOBuffers;
  }
  AudioBufferList* GetAudioBufferList(bool inIsInput) const {
    return inIsInput ? mInputBufferList : mOutputBufferList;
  }

  void AllocateBufferLists();
  void DeallocateBufferLists();
  void ReallocateBufferLists();
  void AllocateBufferList(bool inIsInput);
  void FreeBufferList(bool inIsInput);
  // RT safe: memset and field stores alone.
  void RefreshBufferList(bool inIsInput);
  bool BufferListHasData(bool inIsInput) const;
  void GetIOBufferActualDataSize(bool inIsInput, UInt32 inStreamIndex, UInt32& outByteSize,
                                 UInt32& outFrameSize) const;
  void SetIOBufferActualDataSize(bool inIsInput, UInt32 inStreamIndex, UInt32 inByteSize,
                                 UInt32 inFrameSize);

  // Runs the client if it is callable. A null list stands for the record's own, which is refreshed
  // first. What the client throws passes through. RT safe but for what the client does.
  void Call(const AudioTimeStamp& inCurrentTime, const AudioTimeStamp& inInputTime,
            const AudioBufferList* inInputData, const AudioTimeStamp& inOutputTime,
            AudioBufferList* outOutputData);

  // The general buffer operations, shared with HP_IOProcList.
  static AudioBufferList* AllocateBufferList(const HP_Device& inDevice, bool inIsInput,
                                             const StreamUsage& inStreamUsage,
                                             UInt32 inIOBufferSetID, IOBufferList& ioBuffers,
                                             bool inIOBufferSetIncludesHeader,
                                             bool inAllocateBuffers);
  static void FreeBufferList(const HP_Device& inDevice, bool inIsInput, UInt32 inIOBufferSetID,
                             AudioBufferList* inBufferList, IOBufferList& ioBuffers,
                             bool inIOBufferSetIncludesHeader);
  static void RefreshBufferList(const HP_Device& inDevice, bool inIsInput,
                                AudioBufferList* ioBufferList, const IOBufferList& inBuffers);
  static void GetIOBufferActualDataSize(const HP_Device& inDevice, bool inIsInput,
                                        const IOBufferList& inBuffers, UInt32 inStreamIndex,
                                        UInt32& outByteSize, UInt32& outFrameSize);
  static void SetIOBufferActualDataSize(const IOBufferList& inBuffers,
                                        AudioBufferList* ioBufferList, UInt32 inStreamIndex,
                                        UInt32 inByteSize, UInt32 inFrameSize);

 private:
  HP_Device* mDevice;
  AudioDeviceIOProc mIOProc;
  void* mClientData;
  bool mIsClientDataRelevant;
  dispatch_queue_t mDispatchQueue;
  AudioDeviceIOBlock mIOBlock;
  UInt32 mIOBufferSetID;
  bool mAllocateBuffers;
  bool mIOBufferSetIncludesHeader;
  bool mIsEnabled;
  AudioTimeStamp mStartTime;
  UInt32 mStartTimeFlags;
  StreamUsage mInputStreamUsage;
  StreamUsage mOutputStreamUsage;
  IOBufferList mInputIOBuffers;
  AudioBufferList* mInputBufferList;
  IOBufferList mOutputIOBuffers;
  AudioBufferList* mOutputBufferList;
};
