#pragma once

#include <CoreAudio/AudioHardware.h>

#include <array>
#include <atomic>
#include <span>
#include <vector>

#include "base/Mutex.h"

namespace tembra::hal {

class PlugIn;

// What the host knows of one object.
struct ObjectRecord {
  enum class State : uint32_t { kNone, kCreated, kPublished, kDead };

  std::atomic<State> mState{State::kNone};
  PlugIn* mPlugIn = nullptr;
  AudioClassID mClassID = 0;
  AudioObjectID mOwnerID = kAudioObjectUnknown;
};

// Hands out object IDs and knows owner, class and plug-in of each. An ID is never used twice.
//
// Any thread. Find takes no lock: a record is complete before its state says so and changes nothing
// but its state after that. Records stay for the life of the process.
class ObjectTable {
 public:
  // kAudioObjectUnknown when there are no more.
  AudioObjectID Create(PlugIn* inPlugIn, AudioObjectID inOwnerID, AudioClassID inClassID);

  // The record of an object that lives, published or not; null for any other ID.
  const ObjectRecord* Find(AudioObjectID inObjectID) const;

  // All or nothing: false if one of the objects is not inPlugIn's or not in a state for it.
  bool PublishAndBury(PlugIn* inPlugIn, std::span<const AudioObjectID> inPublished,
                      std::span<const AudioObjectID> inDead);

  // All that live of one plug-in, as a death in the reverse order of creation.
  std::vector<AudioObjectID> BuryAllOf(PlugIn* inPlugIn);

  // Published objects in the order of publication, of this owner (kAudioObjectUnknown: of any).
  std::vector<AudioObjectID> GetPublished(AudioObjectID inOwnerID) const;

 private:
  static constexpr AudioObjectID kFirstID = 2;
  static constexpr size_t kChunkSize = 1024;
  static constexpr size_t kChunks = 4096;
  using Chunk = std::array<ObjectRecord, kChunkSize>;

  ObjectRecord* At(AudioObjectID inObjectID) const;

  std::array<std::atomic<Chunk*>, kChunks> mChunks{};
  mutable Mutex mMutex;
  AudioObjectID mNextID TEMBRA_GUARDED_BY(mMutex) = kFirstID;
  std::vector<AudioObjectID> mPublished TEMBRA_GUARDED_BY(mMutex);
};

}  // namespace tembra::hal
