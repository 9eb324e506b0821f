#pragma once

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>

// Sends blocks of audio on the data port out of storage that it keeps, so that a steady cycle
// allocates nothing: neither the block nor the data object that carries it.
//
// Thread: Send belongs to the I/O thread. Reserve must not run while a Send may.
// Ownership: owns its storage. A data object that somebody still holds after Send keeps the storage
//   for itself; the next Send then takes the allocating way.
// Units: frames, bytes.
// Failure: Send answers false when there was nothing to send or the port did not take it.
class TMBACLN_BlockSender {
 public:
  TMBACLN_BlockSender() = default;
  ~TMBACLN_BlockSender();
  TMBACLN_BlockSender(const TMBACLN_BlockSender&) = delete;
  TMBACLN_BlockSender& operator=(const TMBACLN_BlockSender&) = delete;

  // Makes room for one block of so many frames in the format. Storage that is large enough and not
  // in use stays. Without memory Send takes the allocating way.
  void Reserve(UInt32 inFrameSize, const AudioStreamBasicDescription& inFormat);

  // Never waits: a port that cannot take the block at once loses it.
  bool Send(CFMessagePortRef inPort, const AudioTimeStamp& inTime,
            const AudioStreamBasicDescription& inFormat, const AudioBufferList& inList);

  // The size of the largest block that needs no allocation; 0 before Reserve.
  size_t GetReservedSize() const noexcept;

 private:
  struct Storage;

  static void* AllocateObject(CFIndex inSize, CFOptionFlags inHint, void* inInfo);
  static void DeallocateObject(void* inObject, void* inInfo);
  static void ReleaseStorage(const void* inInfo);

  CFDataRef CreateData(const AudioTimeStamp& inTime, const AudioStreamBasicDescription& inFormat,
                       const AudioBufferList& inList);
  void Drop();

  CFAllocatorRef mAllocator = nullptr;  // keeps mStorage, together with the objects made by it
  Storage* mStorage = nullptr;
};
