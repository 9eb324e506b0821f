#include "runtime/TMBString.h"

#include <limits.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace {

struct Freer {
  void operator()(char* inText) const { free(inText); }
};
using Text = std::unique_ptr<char, Freer>;

void CopyCut(const char* inText, char* outBuffer) {
  strncpy(outBuffer, inText, kTMBStringPathSize - 1);
  outBuffer[kTMBStringPathSize - 1] = 0;
}

// The user's home and what follows the first slash; null if the user has no home.
Text ExpandTilde(const char* inPath) {
  const char* const slash = strchr(inPath, '/');
  const char* const rest = slash != nullptr ? slash + 1 : "";
  // Not the plain call: its answer is shared with whatever else runs in the host.
  char storage[16384];
  struct passwd entry;
  struct passwd* found = nullptr;
  const char* home = nullptr;
  if (getpwuid_r(getuid(), &entry, storage, sizeof storage, &found) == 0 && found != nullptr) {
    home = found->pw_dir;
  } else if (issetugid() == 0) {
    home = getenv("HOME");
  }
  char* path = nullptr;
  if (home == nullptr || asprintf(&path, "%s/%s", home, rest) < 0) return nullptr;
  return Text(path);
}

}  // namespace

CFStringRef TMBString_UTF8ToCFString(const char* inText, uint32_t inLength) {
  if (inText == nullptr) return nullptr;
  const size_t length = inLength != 0 ? inLength : strlen(inText);
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(inText),
                                 static_cast<CFIndex>(length), kCFStringEncodingUTF8, false);
}

char* TMBString_ExpandPath(const char* inPath, char* outBuffer, int32_t inMustExist) {
  if (inPath == nullptr || inPath[0] == 0) return nullptr;
  Text expanded;
  const char* path = inPath;
  if (inPath[0] == '~') {
    expanded = ExpandTilde(inPath);
    if (expanded == nullptr) return nullptr;
    path = expanded.get();
  }
  char resolved[PATH_MAX];
  if (realpath(path, resolved) != nullptr) {
    CopyCut(resolved, outBuffer);
    return outBuffer;
  }
  if (inMustExist != 0) return nullptr;
  CopyCut(path, outBuffer);
  return outBuffer;
}

CFStringRef TMBString_CFExpandPath(const char* inPath, int32_t inMustExist) {
  char buffer[kTMBStringPathSize];
  return TMBString_UTF8ToCFString(TMBString_ExpandPath(inPath, buffer, inMustExist), 0);
}
