#pragma once

#include <string>

namespace tembra::test {

// A runtime directory of this test alone, below the build folder; XDG_RUNTIME_DIR and HOME point
// into it. Made before the first platform call of the process; removed with all that is in it.
class PrivateRuntime {
 public:
  PrivateRuntime();
  ~PrivateRuntime();
  PrivateRuntime(const PrivateRuntime&) = delete;
  PrivateRuntime& operator=(const PrivateRuntime&) = delete;

  const std::string& Path() const { return mPath; }
  std::string File(const std::string& inName) const { return mPath + "/" + inName; }

 private:
  std::string mPath;
};

}  // namespace tembra::test
