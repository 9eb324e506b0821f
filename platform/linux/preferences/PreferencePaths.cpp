#include "preferences/PreferencePaths.h"

#include <CoreFoundation/CFBundle.h>
#include <CoreFoundation/CFPreferences.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "corefoundation/File.h"
#include "corefoundation/String.h"

namespace tembra::preferences {

namespace {

using namespace cf;

constexpr size_t kMaxNameSize = 200;

struct User {
  std::string mName;
  std::string mHome;
};

User CurrentUser() {
  User user;
  std::vector<char> buffer(16384);
  passwd entry;
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found) {
    user.mName = found->pw_name;
    user.mHome = found->pw_dir;
  }
  // A program with somebody else's rights does not look where its caller says.
  const char* home = secure_getenv("HOME");
  if (home && home[0] == '/') user.mHome = home;
  return user;
}

// Tells this machine from others that share the home folder, without giving its identity away.
std::string HostIdentifier() {
  std::vector<UInt8> seed;
  if (ReadWholeFile("/etc/machine-id", 0, seed) != 0 || seed.empty()) {
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, sizeof(name) - 1);
    seed.assign(name, name + std::string(name).size());
  }
  UInt64 hash[2] = {0xcbf29ce484222325ULL, 0x84222325cbf29ce4ULL};
  for (UInt64& half : hash) {
    for (UInt8 byte : seed) half = (half ^ byte) * 0x100000001b3ULL;
  }
  char text[40];
  std::snprintf(text, sizeof(text), "%08llX-%04llX-%04llX-%04llX-%012llX", hash[0] >> 32,
                hash[0] >> 16 & 0xFFFF, hash[0] & 0xFFFF, hash[1] >> 48,
                hash[1] & 0xFFFFFFFFFFFFULL);
  return text;
}

std::string ApplicationName(CFStringRef inApplication) {
  if (CFEqual(inApplication, kCFPreferencesAnyApplication)) return ".GlobalPreferences";
  if (!CFEqual(inApplication, kCFPreferencesCurrentApplication)) return ToUTF8(inApplication);
  CFBundleRef main = CFBundleGetMainBundle();
  CFStringRef identifier = main ? CFBundleGetIdentifier(main) : nullptr;
  return identifier ? ToUTF8(identifier) : program_invocation_short_name;
}

}  // namespace

DomainPath FindDomainPath(CFStringRef inApplication, CFStringRef inUser, CFStringRef inHost) {
  DomainPath result;
  if (!inApplication || !inUser || !inHost) return result;
  std::string name = ApplicationName(inApplication);
  if (name.empty() || name.size() > kMaxNameSize || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos) {
    return result;
  }
  bool isAnyHost = CFEqual(inHost, kCFPreferencesAnyHost);
  if (!isAnyHost && !CFEqual(inHost, kCFPreferencesCurrentHost)) return result;
  std::string folder;
  if (CFEqual(inUser, kCFPreferencesAnyUser)) {
    result.mIsForAllUsers = true;
    folder = "/Library/Preferences/";
  } else {
    User user = CurrentUser();
    bool isCurrent = CFEqual(inUser, kCFPreferencesCurrentUser) || ToUTF8(inUser) == user.mName;
    if (!isCurrent || user.mHome.empty()) return result;
    folder = user.mHome + "/Library/Preferences/";
  }
  result.mPath = isAnyHost ? folder + name + ".plist"
                           : folder + "ByHost/" + name + "." + HostIdentifier() + ".plist";
  return result;
}

}  // namespace tembra::preferences
