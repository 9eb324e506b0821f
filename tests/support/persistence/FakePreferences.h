#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "support/CACFObject.h"

namespace tembra::test {

// The preferences of the platform, played by the test: one domain for each user and host, no file.
//
// An executable takes it by compiling FakePreferences.cpp as one of its own sources. The platform's
// functions may be called on any thread; the fields are for quiet moments.
class FakePreferences {
 public:
  using Values = std::map<std::string, CACFObject<CFPropertyListRef>>;

  static FakePreferences& Get();
  void Reset();

  // Domains are "any user, this host" and so on.
  static constexpr const char* kAnyUserThisHost = "any user, this host";
  // As this process sees them.
  std::map<std::string, Values> mDomains;
  // What other processes wrote; a synchronize brings it into this process. An invalid object is a
  // removal.
  std::map<std::string, Values> mElsewhere;
  // "copy KEY in DOMAIN", "set ...", "remove ...", "synchronize DOMAIN".
  std::vector<std::string> mCalls;

  CFPropertyListRef Find(const std::string& inKey, const char* inDomain = kAnyUserThisHost) const;
  // Takes over the reference.
  void Put(const std::string& inKey, CFPropertyListRef inValue,
           const char* inDomain = kAnyUserThisHost);
  void PutElsewhere(const std::string& inKey, CFPropertyListRef inValue,
                    const char* inDomain = kAnyUserThisHost);
  std::vector<std::string> TakeCalls();

  std::mutex mMutex;
};

}  // namespace tembra::test
