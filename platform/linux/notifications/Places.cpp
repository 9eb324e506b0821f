#include "notifications/Places.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/auxv.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>

#include "base/MonotonicTime.h"
#include "base/RuntimeDirectory.h"

namespace tembra::notifications {
namespace {

constexpr char kSharedPath[] = "/tmp/tembra-notifications";

Descriptor OpenShared() {
  if (getauxval(AT_SECURE)) return {};
  // What was just made in a sticky directory cannot have been replaced.
  if (mkdir(kSharedPath, 01777) == 0) chmod(kSharedPath, 01777);
  Descriptor directory(open(kSharedPath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!directory || fstat(directory.Get(), &status) != 0) return {};
  if ((status.st_mode & 01777) != 01777) return {};
  return directory;
}

// The file itself, whatever its name comes to mean; empty unless it is a socket.
Descriptor OpenSocketFile(int inDirectory, const char* inName, struct stat& outStatus) {
  Descriptor file(openat(inDirectory, inName, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!file || fstat(file.Get(), &outStatus) != 0 || !S_ISSOCK(outStatus.st_mode)) return {};
  return file;
}

std::string FilePath(int inFile) {
  return "/proc/self/fd/" + std::to_string(inFile);
}

bool SetAddress(sockaddr_un& outAddress, const std::string& inPath) {
  if (inPath.size() >= sizeof outAddress.sun_path) return false;
  outAddress = {};
  outAddress.sun_family = AF_UNIX;
  memcpy(outAddress.sun_path, inPath.c_str(), inPath.size() + 1);
  return true;
}

}  // namespace

Descriptor OpenPlace(Scope inScope) {
  return inScope == Scope::kUser ? OpenRuntimeDirectory("notifications") : OpenShared();
}

std::string NewReceiverName() {
  static std::atomic<uint32_t> sCount{0};
  char name[64];
  // The time tells this process from an earlier one of the same number.
  snprintf(name, sizeof name, "%d.%llx.%x", getpid(),
           static_cast<unsigned long long>(MonotonicNanos()),
           sCount.fetch_add(1, std::memory_order_relaxed));
  return name;
}

bool IsReceiverName(const char* inName) {
  return inName[0] >= '0' && inName[0] <= '9' && strlen(inName) < 64 &&
         inName[strspn(inName, "0123456789abcdef.")] == 0;
}

Descriptor BindReceiver(int inDirectory, const std::string& inName, Scope inScope) {
  Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  const mode_t mode = inScope == Scope::kUser ? 0600 : 0666;
  sockaddr_un address;
  // From the first datagram on the kernel tells who sent it.
  if (!socket || setsockopt(socket.Get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0 ||
      fchmod(socket.Get(), mode) != 0 || !SetAddress(address, SocketPath(inDirectory, inName)) ||
      bind(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  // What the umask took away. Through the file itself: in the shared directory the name could be
  // made to lead elsewhere by the directory's owner.
  struct stat status;
  Descriptor file = OpenSocketFile(inDirectory, inName.c_str(), status);
  if (file && status.st_uid == geteuid() && (status.st_mode & 0777) != mode) {
    chmod(FilePath(file.Get()).c_str(), mode);
  }
  return socket;
}

Connection ConnectReceiver(int inDirectory, const char* inName, Descriptor& outSocket,
                           uid_t& outOwner) {
  struct stat status;
  Descriptor file = OpenSocketFile(inDirectory, inName, status);
  if (!file) return Connection::kFailed;
  outOwner = status.st_uid;
  sockaddr_un address;
  Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket || !SetAddress(address, FilePath(file.Get()))) return Connection::kFailed;
  if (connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return errno == ECONNREFUSED ? Connection::kDead : Connection::kFailed;
  }
  outSocket = std::move(socket);
  return Connection::kConnected;
}

}  // namespace tembra::notifications
