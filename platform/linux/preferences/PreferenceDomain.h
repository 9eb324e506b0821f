#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <map>
#include <string>
#include <vector>

#include "corefoundation/Object.h"

namespace tembra::preferences {

// The values of one application, user and host, in one property-list file.
//
// Thread: the caller's lock.
// Ownership: values are retained here; Find lends them.
// Failure: a file that cannot be read, or is not a dictionary, counts as empty. What cannot be
// written stays pending.
class Domain {
 public:
  // An empty path is a domain that has no file and is never synchronized.
  Domain(std::string inPath, bool inIsForAllUsers)
      : mPath(std::move(inPath)), mIsForAllUsers(inIsForAllUsers) {}

  CFPropertyListRef Find(const std::string& inKey);
  std::vector<std::string> Keys();
  // Null removes. The value is copied.
  void Set(const std::string& inKey, CFPropertyListRef inValue);
  // Brings what was set here into the file, key by key, and takes over what is there. False if it
  // could not be written, or another process held the file's lock for a second.
  bool Synchronize();

 private:
  using Values = std::map<std::string, cf::Owned<CFPropertyListRef>>;

  void Load();
  Values Read() const;
  bool Write(const Values& inValues) const;
  bool MakeDirectory() const;
  std::string Directory() const;
  std::string HiddenName(const char* inEnding) const;

  const std::string mPath;
  const bool mIsForAllUsers;
  bool mIsLoaded = false;
  // The file as last seen, and what was set since; a null value there is a removal.
  Values mStored;
  Values mPending;
};

}  // namespace tembra::preferences
