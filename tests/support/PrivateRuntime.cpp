#include "support/PrivateRuntime.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace tembra::test {

PrivateRuntime::PrivateRuntime() : mPath(TEMBRA_BINARY_DIR "/tests/run-XXXXXX") {
  if (mkdtemp(mPath.data()) == nullptr) throw std::runtime_error("cannot make " + mPath);
  const std::string runtime = mPath + "/runtime";
  mkdir(runtime.c_str(), 0700);
  setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
  setenv("HOME", mPath.c_str(), 1);
}

PrivateRuntime::~PrivateRuntime() {
  std::error_code ignored;
  std::filesystem::remove_all(mPath, ignored);
}

}  // namespace tembra::test
