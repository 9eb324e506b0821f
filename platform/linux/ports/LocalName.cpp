#include "ports/LocalName.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "base/RuntimeDirectory.h"
#include "ports/PortNames.h"
#include "ports/PortService.h"

namespace tembra::ports {
namespace {

constexpr int kBacklog = 128;
constexpr int kLockAttempts = 8;

std::string LockName(const std::string& inFile) {
  return inFile + "~lock";
}

// One descriptor of the directory serves all ports of the process.
std::shared_ptr<const Descriptor> ShareDirectory(Descriptor inDirectory)
    TEMBRA_REQUIRES(gPortsLock) {
  static auto* sShared = new std::weak_ptr<const Descriptor>;
  static dev_t sDevice;
  static ino_t sInode;
  static uint32_t sGeneration;
  struct stat status;
  if (fstat(inDirectory.Get(), &status) != 0) return nullptr;
  auto shared = sShared->lock();
  if (shared && sDevice == status.st_dev && sInode == status.st_ino &&
      sGeneration == ForkGeneration()) {
    return shared;
  }
  shared = std::make_shared<const Descriptor>(std::move(inDirectory));
  *sShared = shared;
  sDevice = status.st_dev;
  sInode = status.st_ino;
  sGeneration = ForkGeneration();
  return shared;
}

// The lock file, held, or empty if somebody else holds it.
Descriptor TakeLock(int inDirectory, const std::string& inFile) {
  const std::string name = LockName(inFile);
  for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
    Descriptor file(openat(inDirectory, name.c_str(),
                           O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                           0600));
    struct stat held;
    if (!file || fstat(file.Get(), &held) != 0 || !S_ISREG(held.st_mode)) return {};
    if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) return {};
    // The umask may have taken the owner's right to open it again.
    if ((held.st_mode & 0777) != 0600) fchmod(file.Get(), 0600);
    // The last holder may have removed the file between the opening and the lock.
    struct stat named;
    if (fstatat(inDirectory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        named.st_dev == held.st_dev && named.st_ino == held.st_ino) {
      return file;
    }
  }
  return {};
}

// A socket that listens under the name. It is bound under a short one, since a long one may not fit
// an address, and appears under its own in one step, over a leftover.
Descriptor Listen(int inDirectory, const std::string& inFile) {
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket || fchmod(socket.Get(), 0600) != 0) return {};
  const std::string draft = "~" + std::to_string(getpid()) + "." + std::to_string(NextPortNumber());
  unlinkat(inDirectory, draft.c_str(), 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, SocketPath(inDirectory, draft).c_str(), sizeof address.sun_path - 1);
  if (bind(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return {};
  // The umask may have taken the owner's right to connect.
  fchmodat(inDirectory, draft.c_str(), 0600, 0);
  if (listen(socket.Get(), kBacklog) == 0 &&
      renameat(inDirectory, draft.c_str(), inDirectory, inFile.c_str()) == 0) {
    return socket;
  }
  unlinkat(inDirectory, draft.c_str(), 0);
  return {};
}

}  // namespace

bool ClaimName(const std::string& inName, LocalPort::Place& outPlace) {
  Descriptor directory = OpenRuntimeDirectory("ports");
  if (!directory) return false;
  {
    MutexLock lock(gPortsLock);
    outPlace.directory = ShareDirectory(std::move(directory));
  }
  if (!outPlace.directory) return false;
  const int place = outPlace.directory->Get();
  outPlace.file = EncodePortName(inName);
  outPlace.lock = TakeLock(place, outPlace.file);
  if (!outPlace.lock) return false;
  outPlace.poll.Reset(epoll_create1(EPOLL_CLOEXEC));
  if (outPlace.poll) outPlace.listener = Listen(place, outPlace.file);
  if (outPlace.listener) return true;
  unlinkat(place, LockName(outPlace.file).c_str(), 0);
  return false;
}

void RemoveClaimedName(int inDirectory, const std::string& inFile) {
  unlinkat(inDirectory, inFile.c_str(), 0);
  unlinkat(inDirectory, LockName(inFile).c_str(), 0);
}

}  // namespace tembra::ports
