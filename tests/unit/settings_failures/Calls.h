#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tembra::test {

// This executable's own versions of what the settings call: the file's calls, the clock, and the
// makers of objects. Each does what the real one does unless a test says otherwise.
struct Calls {
  static Calls& Get();

  // What OnCall answers: go on, move one byte only (other calls go on), or fail with that errno. An
  // object's maker that fails answers null, whatever the errno.
  static constexpr int kGoOn = 0;
  static constexpr int kOneByte = -1;

  // Runs before each call while calls are watched, with the function's name and the number of
  // watched calls before this one. Its own calls are not watched.
  std::function<int(const std::string& inName, size_t inNumber)> mOnCall;
  // Their names.
  std::vector<std::string> mNames;
  bool mIsWatching = false;
  // The clock while calls are watched: it moves by what is slept, and by a little at each look.
  long long mNanos = 0;
  std::vector<long long> mSleeps;
  // What a path leads to is on another file system than what is open.
  bool mIsElsewhere = false;

  int Enter(const char* inName);
};

// Calls are watched as long as it lives.
class Watch {
 public:
  explicit Watch(std::function<int(const std::string&, size_t)> inOnCall = nullptr);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
};

size_t CountDescriptors();

}  // namespace tembra::test
