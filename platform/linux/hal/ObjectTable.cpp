#include "hal/ObjectTable.h"

#include <algorithm>
#include <new>

namespace tembra::hal {

using State = ObjectRecord::State;

ObjectRecord* ObjectTable::At(AudioObjectID inObjectID) const {
  if (inObjectID < kFirstID) {
    return nullptr;
  }
  const size_t index = inObjectID - kFirstID;
  if (index >= kChunkSize * kChunks) {
    return nullptr;
  }
  Chunk* const chunk = mChunks[index / kChunkSize].load(std::memory_order_acquire);
  return chunk ? &(*chunk)[index % kChunkSize] : nullptr;
}

const ObjectRecord* ObjectTable::Find(AudioObjectID inObjectID) const {
  const ObjectRecord* const record = At(inObjectID);
  if (!record) {
    return nullptr;
  }
  const State state = record->mState.load(std::memory_order_acquire);
  return state == State::kCreated || state == State::kPublished ? record : nullptr;
}

AudioObjectID ObjectTable::Create(PlugIn* inPlugIn, AudioObjectID inOwnerID,
                                  AudioClassID inClassID) {
  MutexLock lock(mMutex);
  const size_t index = mNextID - kFirstID;
  if (index >= kChunkSize * kChunks) {
    return kAudioObjectUnknown;
  }
  if (std::atomic<Chunk*>& chunk = mChunks[index / kChunkSize]; !chunk.load()) {
    Chunk* const fresh = new (std::nothrow) Chunk;
    if (!fresh) {
      return kAudioObjectUnknown;
    }
    chunk.store(fresh, std::memory_order_release);
  }
  ObjectRecord* const record = At(mNextID);
  record->mPlugIn = inPlugIn;
  record->mClassID = inClassID;
  record->mOwnerID = inOwnerID;
  record->mState.store(State::kCreated, std::memory_order_release);
  return mNextID++;
}

bool ObjectTable::PublishAndBury(PlugIn* inPlugIn, std::span<const AudioObjectID> inPublished,
                                 std::span<const AudioObjectID> inDead) {
  MutexLock lock(mMutex);
  const auto isKnown = [&](AudioObjectID id) {
    const ObjectRecord* const record = Find(id);
    return record && record->mPlugIn == inPlugIn;
  };
  if (!std::all_of(inPublished.begin(), inPublished.end(), isKnown) ||
      !std::all_of(inDead.begin(), inDead.end(), isKnown)) {
    return false;
  }
  for (const AudioObjectID id : inPublished) {
    if (At(id)->mState.exchange(State::kPublished) != State::kPublished) {
      mPublished.push_back(id);
    }
  }
  for (const AudioObjectID id : inDead) {
    At(id)->mState = State::kDead;
    std::erase(mPublished, id);
  }
  return true;
}

std::vector<AudioObjectID> ObjectTable::BuryAllOf(PlugIn* inPlugIn) {
  MutexLock lock(mMutex);
  std::vector<AudioObjectID> buried;
  for (AudioObjectID id = mNextID; id-- > kFirstID;) {
    if (const ObjectRecord* record = Find(id); record && record->mPlugIn == inPlugIn) {
      At(id)->mState = State::kDead;
      std::erase(mPublished, id);
      buried.push_back(id);
    }
  }
  return buried;
}

std::vector<AudioObjectID> ObjectTable::GetPublished(AudioObjectID inOwnerID) const {
  MutexLock lock(mMutex);
  if (inOwnerID == kAudioObjectUnknown) {
    return mPublished;
  }
  std::vector<AudioObjectID> owned;
  std::copy_if(mPublished.begin(), mPublished.end(), std::back_inserter(owned),
               [&](AudioObjectID id) { return At(id)->mOwnerID == inOwnerID; });
  return owned;
}

}  // namespace tembra::hal
