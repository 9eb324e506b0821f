#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// What this executable supplies in place of the platform's: ports that are only noted, a queue that
// can fail, a host clock that ticks once with each reading, a marker file and a set-user-ID process
// that are there or not, and memory that is counted and can run out.
struct SimulatedPlatform {
  static SimulatedPlatform& Get();
  void Reset();

  bool mHasMarkerFile = false;
  bool mIsSetUserID = false;
  bool mQueueFails = false;
  bool mPortFails = false;
  std::string mQueueLabel;
  std::vector<std::string> mCalls;
  std::function<void(bool inHasQueue)> mOnSetDispatchQueue;
  // While memory for a chunk is taken or given back, and while a data object is made.
  std::function<void()> mOnChunk;
  std::function<void()> mOnData;
  CFMessagePortCallBack mCallBack = nullptr;
  void* mInfo = nullptr;

  static CFMessagePortRef GetPort();
  static CFMessagePortRef GetOtherPort();

  // Arrays of the size of a chunk of events.
  static int GetLiveChunks();
  static int GetMadeChunks();
  // False where a sanitizer has it: chunks are counted, and neither limited nor told of.
  static bool OwnsTheAllocator();
  // From now on so many can be made; below 0 without a limit.
  static void LimitChunks(int inNumber);
};
