#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace tembra::test {

// The host of a plug-in, played by the test: it hands out IDs, remembers what was published and
// told, and answers the few system properties that it was given values for.
//
// An executable takes it by compiling FakeHAL.cpp as one of its own sources.
class FakeHAL {
 public:
  struct Publication {
    AudioObjectID mOwner;
    std::vector<AudioObjectID> mPublished;
    std::vector<AudioObjectID> mDied;
  };
  struct Change {
    AudioObjectID mObject;
    std::vector<AudioObjectPropertyAddress> mAddresses;
  };

  static FakeHAL& Get();
  void Reset();

  // The statuses that the next calls answer.
  std::map<AudioClassID, OSStatus> mCreateStatus;
  std::map<AudioObjectID, OSStatus> mPublishStatus;  // by owner
  // What the system object answers; an absent selector is an unknown property.
  std::map<AudioObjectPropertySelector, UInt32> mSystemValues;

  std::vector<std::pair<AudioObjectID, AudioClassID>> mCreated;  // owner, class
  std::vector<Publication> mPublications;
  std::vector<Change> mChanges;
  // Calls in their order: "create adev", "publish 1", "died 1", "changed livn".
  std::vector<std::string> mCalls;
  // Run on the thread that creates, publishes or tells of a change, if they are set.
  std::function<void(AudioClassID)> mOnCreate;
  std::function<void(const Publication&)> mOnPublish;
  std::function<void(AudioObjectPropertySelector)> mOnChange;
  std::mutex mMutex;

  AudioObjectID mNextID = 100;
};

}  // namespace tembra::test
