#pragma once

#include <CoreFoundation/CFString.h>

#include <string>

namespace tembra::preferences {

// Where the file of a domain lies; empty if the names are none that a file could have.
struct DomainPath {
  std::string mPath;
  bool mIsForAllUsers = false;
};
DomainPath FindDomainPath(CFStringRef inApplication, CFStringRef inUser, CFStringRef inHost);

}  // namespace tembra::preferences
