#pragma once

#include <CoreAudio/CoreAudioTypes.h>

// Purpose: operations on the platform's AudioBufferList.
// Thread: any; all but Create and Destroy are RT safe.
// Ownership: Create hands out a list that Destroy takes back; neither touches the memory that the
//   buffers point at.
// Units and range: sizes in bytes, channels from 0 across the whole list. CopyChannel, Copy and Sum
//   take the samples as 32-bit floats.
// Failure: Create answers null if there is no memory.
class CAAudioBufferList {
 public:
  static constexpr UInt32 CalculateByteSize(UInt32 inNumberBuffers) {
    return 16 * inNumberBuffers + 8;
  }

  static AudioBufferList* Create(UInt32 inNumberBuffers);
  static void Destroy(AudioBufferList* inBufferList);

  // A list without buffers, used in place of a null one.
  static const AudioBufferList* GetEmptyBufferList();

  // True if a buffer with memory holds a 32-bit word that is not 0. A rest of a buffer shorter than
  // a word does not count.
  static bool HasData(const AudioBufferList* inBufferList);

  // Zeroes the memory of each buffer.
  static void Clear(AudioBufferList* ioBufferList);
  // Copies channel for channel, from the given ones on, as far as both lists go.
  static void Copy(const AudioBufferList& inSource, UInt32 inStartingSourceChannel,
                   AudioBufferList& ioDestination, UInt32 inStartingDestinationChannel);
  static void CopyChannel(const AudioBuffer& inSource, UInt32 inSourceChannel,
                          AudioBuffer& ioDestination, UInt32 inDestinationChannel);
  // Adds the samples of each buffer to those of the buffer in the same place.
  static void Sum(const AudioBufferList& inSource, AudioBufferList& ioSum);

  static UInt32 GetTotalNumberChannels(const AudioBufferList& inBufferList);
  // The buffer that holds a channel, and the channel's place in it; false if there is none.
  static bool GetBufferForChannel(const AudioBufferList& inBufferList, UInt32 inChannel,
                                  UInt32& outBufferNumber, UInt32& outBufferChannel);
};
