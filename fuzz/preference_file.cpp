// Any bytes as a user's preference file: it counts as empty or its values can be asked for; a value
// set beside them is in the file afterwards, and so are they.

#include <fcntl.h>
#include <unistd.h>

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "preferences/PreferenceDomain.h"

namespace {

using tembra::preferences::Domain;

void Require(bool inHolds) {
  if (!inHolds) std::abort();
}

// A folder of this run below where it was started, gone at its end.
class Folder {
 public:
  Folder() : mPath("preferences-XXXXXX") { Require(mkdtemp(mPath.data()) != nullptr); }
  ~Folder() {
    for (const char* name : {"/file.plist", "/.file.plist.lock"}) unlink((mPath + name).c_str());
    rmdir(mPath.c_str());
  }
  std::string File() const { return mPath + "/file.plist"; }

 private:
  std::string mPath;
};

void Write(const std::string& inPath, const uint8_t* inData, size_t inSize) {
  const int file = open(inPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  Require(file >= 0 && write(file, inData, inSize) == static_cast<ssize_t>(inSize));
  close(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  static const Folder sFolder;
  const std::string path = sFolder.File();
  Write(path, inData, inSize);

  Domain domain(path, false);
  const std::vector<std::string> keys = domain.Keys();
  Require(std::is_sorted(keys.begin(), keys.end()));
  for (const std::string& key : keys) Require(domain.Find(key) != nullptr);
  Require(domain.Find("no such key") == nullptr ||
          std::count(keys.begin(), keys.end(), "no such key"));

  const std::string added = "added by this test";
  domain.Set(added, CFSTR("value"));
  Require(domain.Synchronize());

  Domain again(path, false);
  std::vector<std::string> expected = keys;
  if (!std::count(keys.begin(), keys.end(), added)) expected.push_back(added);
  std::sort(expected.begin(), expected.end());
  Require(again.Keys() == expected);
  CFPropertyListRef value = again.Find(added);
  Require(value != nullptr && CFEqual(value, CFSTR("value")));
  return 0;
}
