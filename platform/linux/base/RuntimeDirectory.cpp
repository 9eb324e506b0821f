#include "base/RuntimeDirectory.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/auxv.h>
#include <sys/stat.h>

namespace tembra {
namespace {

bool IsPrivate(const struct stat& inStatus) {
  return S_ISDIR(inStatus.st_mode) && inStatus.st_uid == geteuid() &&
         (inStatus.st_mode & 07777) == 0700;
}

// Makes the directory if it is missing, then opens it if it is private.
Descriptor OpenPrivate(int inParent, const char* inName) {
  // What the process's umask takes away is given back; nobody else can have replaced what was made
  // here, for the parent is private or sticky.
  if (mkdirat(inParent, inName, 0700) == 0) fchmodat(inParent, inName, 0700, 0);
  Descriptor directory(openat(inParent, inName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!directory || fstat(directory.Get(), &status) != 0 || !IsPrivate(status)) return {};
  return directory;
}

Descriptor OpenBase() {
  const char* runtime = secure_getenv("XDG_RUNTIME_DIR");
  if (!runtime || runtime[0] != '/') {
    Descriptor tmp(open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!tmp) return {};
    return OpenPrivate(tmp.Get(), ("tembra-" + std::to_string(geteuid())).c_str());
  }
  Descriptor parent(open(runtime, O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status;
  // Another user's place (sudo keeps the variable) is not filled with directories that lock out
  // their owner.
  if (!parent || fstat(parent.Get(), &status) != 0 || status.st_uid != geteuid()) return {};
  return OpenPrivate(parent.Get(), "tembra");
}

}  // namespace

Descriptor OpenRuntimeDirectory(const char* inSubdirectory) {
  if (getauxval(AT_SECURE)) return {};
  Descriptor base = OpenBase();
  if (!base || !inSubdirectory) return base;
  return OpenPrivate(base.Get(), inSubdirectory);
}

std::string SocketPath(int inDirectory, const std::string& inName) {
  return "/proc/self/fd/" + std::to_string(inDirectory) + "/" + inName;
}

}  // namespace tembra
