#include "runtime/TMBIPC.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runtime/TMBOS.h"

std::atomic<int32_t> __tmb_ipc_sip_enabled{-1};

namespace {

constexpr char kHome[] = "/var/run/tmbipc";
constexpr char kPIDFile[] = "/var/run/tmbipc/tmbserverd.0.pid";
constexpr char kSIPFile[] = "/var/run/tmbipc/tmbserverd.0.sip";
constexpr char kSoundFile[] = "/var/run/tmbipc/tmbserverd.0.snd";
constexpr char kSIPCommand[] = "csrutil status > /var/run/tmbipc/tmbserverd.0.sip";
constexpr char kSIPDisabled[] = "status: disabled";
constexpr char kChannelSuffix[] = ".ipc";

constexpr mode_t kHomeMode = 0777;
constexpr mode_t kFileMode = 0664;
constexpr mode_t kCreationMode = 0666;  // what the umask leaves of it
constexpr size_t kNumberSize = 32;      // a number's text with its terminator
constexpr size_t kSIPSize = 256;
constexpr uint32_t kMinChannelPathSize = 64;
constexpr int32_t kNoServer = -1;

// An open file that closes itself.
class File {
 public:
  explicit File(int inDescriptor) : mDescriptor(inDescriptor) {}
  ~File() {
    if (mDescriptor >= 0) close(mDescriptor);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  bool IsOpen() const { return mDescriptor >= 0; }
  int Get() const { return mDescriptor; }

 private:
  const int mDescriptor;
};

// The descriptor of a plain file of that name, or -1. Anyone may put anything into the home, so a
// link is not followed, a special file is not waited for, and a file that has a second name
// elsewhere is left alone.
int OpenPlainFile(const char* inPath, int inFlags) {
  const int descriptor =
      open(inPath, inFlags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kCreationMode);
  if (descriptor < 0) return -1;
  struct stat status;
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink <= 1) {
    return descriptor;
  }
  close(descriptor);
  return -1;
}

// Opens for writing and empties; not emptied before it is known to be a plain file.
int OpenForWriting(const char* inPath) {
  const int descriptor = OpenPlainFile(inPath, O_WRONLY | O_CREAT);
  if (descriptor >= 0 && ftruncate(descriptor, 0) != 0) {
    close(descriptor);
    return -1;
  }
  return descriptor;
}

void WriteNumber(const File& inFile, int32_t inNumber) {
  char text[kNumberSize];
  const int length = snprintf(text, sizeof text, "%d", inNumber);
  (void)pwrite(inFile.Get(), text, static_cast<size_t>(length), 0);
}

// As much of a file as fits, terminated; only if it is open and all of that can be read.
bool ReadText(const File& inFile, char* outText, size_t inSize) {
  const off_t end = lseek(inFile.Get(), 0, SEEK_END);
  if (end <= 0 || lseek(inFile.Get(), 0, SEEK_SET) != 0) return false;
  const size_t wanted = std::min(static_cast<size_t>(end), inSize - 1);
  size_t done = 0;
  while (done < wanted) {
    const ssize_t got = read(inFile.Get(), outText + done, wanted - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  outText[done] = 0;
  return true;
}

// As atoi does it, but defined for every text.
int32_t ParseNumber(const char* inText) {
  return static_cast<int32_t>(strtol(inText, nullptr, 10));
}

bool IsRoot(const char* inOtherwise) {
  if (getuid() == 0) return true;
  syslog(LOG_ERR, "%s", inOtherwise);
  return false;
}

// Puts an empty file of root's in the ".sip" file's place, whatever stood there. Its descriptor,
// or -1 if somebody else is quicker every time.
int MakeSIPFile() {
  constexpr int kAttempts = 32;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (unlink(kSIPFile) != 0 && errno != ENOENT) rmdir(kSIPFile);
    const int descriptor =
        open(kSIPFile, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kCreationMode);
    if (descriptor >= 0) return descriptor;
  }
  return -1;
}

// The shell opens the file by its name, as root and through any link. So for as long as it runs
// nobody but root may put another in that file's place, as in any directory with the sticky bit;
// all else that the home is for goes on.
void StoreSIPStatus() {
  chmod(kHome, kHomeMode | S_ISVTX);
  const File file(MakeSIPFile());
  if (file.IsOpen()) {
    (void)!system(kSIPCommand);
    fchmod(file.Get(), kFileMode);
  }
  chmod(kHome, kHomeMode);
}

// Where the system did not tell its version, nothing is permitted.
bool IsSystemTooNew() {
  return !tmbos_is_sysver_known() || TMBOS_SysVerIsHigherThan(10, 14);
}

bool IsProtectedSystem() {
  return TMBOS_SysVerIsEqualTo(10, 14) && TMBIPC_IsSIPEnabled() != 0;
}

}  // namespace

int32_t TMBIPC_InitRuntime() {
  if (!IsRoot("TMBIPC[E]: Runtime must be initialized by root.")) return 0;

  struct stat status;
  bool create = true;
  if (stat(kHome, &status) == 0) {
    create = (status.st_mode & S_IFDIR) == 0;
    if (create) unlink(kHome);
  }
  if (create) {
    mkdir(kHome, kHomeMode);
    (void)!chown(kHome, 0, 0);
  }
  // Not left to the umask.
  if (chmod(kHome, kHomeMode) != 0) {
    syslog(LOG_ERR, "TMBIPC[E]: Could not create IPC home.");
    return 0;
  }
  StoreSIPStatus();
  __tmb_ipc_sip_enabled.store(-1, std::memory_order_relaxed);
  return 1;
}

int32_t TMBIPC_SetServerPid(int32_t inPID) {
  if (!IsRoot("TMBIPC[E]: Server PID must be set by root.")) return 0;
  if (inPID == kNoServer) return unlink(kPIDFile) == 0 ? 1 : 0;
  if (TMBIPC_InitRuntime() == 0) return 0;

  const File file(OpenForWriting(kPIDFile));
  if (!file.IsOpen()) {
    syslog(LOG_ERR, "TMBIPC[E]: Could not store server PID.");
    return 0;
  }
  WriteNumber(file, inPID);
  fchmod(file.Get(), kFileMode);
  return 1;
}

int32_t TMBIPC_GetServerPid() {
  const File file(OpenPlainFile(kPIDFile, O_RDONLY));
  if (!file.IsOpen()) return kNoServer;
  char text[kNumberSize];
  int32_t pid = ReadText(file, text, sizeof text) ? ParseNumber(text) : kNoServer;
  // Numbers that mean groups or everyone are no process.
  if (pid <= 0) pid = kNoServer;
  // A process of root's may not be signalled, and lives all the same.
  if (kill(pid, 0) != 0 && errno == ESRCH) pid = kNoServer;
  return pid;
}

int32_t TMBIPC_IsServerStarted() {
  return TMBIPC_GetServerPid() != kNoServer ? 1 : 0;
}

int32_t TMBIPC_IsSIPEnabled() {
  const int32_t known = __tmb_ipc_sip_enabled.load(std::memory_order_relaxed);
  if (known >= 0) return known != 0 ? 1 : 0;

  const File file(OpenPlainFile(kSIPFile, O_RDONLY));
  char text[kSIPSize];
  int32_t enabled = 1;
  if (ReadText(file, text, sizeof text) && strstr(text, kSIPDisabled) != nullptr) enabled = 0;
  __tmb_ipc_sip_enabled.store(enabled, std::memory_order_relaxed);
  return enabled;
}

int32_t TMBIPC_SetSoundAllowed(int32_t inAllowed) {
  if (!IsRoot("TMBIPC[E]: Sound status must be set by root.")) return 0;
  const File file(OpenForWriting(kSoundFile));
  if (!file.IsOpen()) {
    syslog(LOG_ERR, "TMBIPC[E]: Could not store sound status.");
    return 0;
  }
  const int32_t allowed = inAllowed != 0 && !IsSystemTooNew() && !IsProtectedSystem() ? 1 : 0;
  WriteNumber(file, allowed);
  // The other file, as ever: peers know this one with the mode that the umask gave it.
  const File server(OpenPlainFile(kPIDFile, O_RDONLY));
  if (server.IsOpen()) fchmod(server.Get(), kFileMode);
  return allowed;
}

int32_t TMBIPC_IsSoundAllowed() {
  if (IsSystemTooNew() || IsProtectedSystem()) return 0;
  const File file(OpenPlainFile(kSoundFile, O_RDONLY));
  char text[kNumberSize];
  return ReadText(file, text, sizeof text) ? ParseNumber(text) : 0;
}

int32_t TMBIPC_ApplyConfig() {
  const int32_t pid = TMBIPC_GetServerPid();
  if (pid != kNoServer) kill(pid, SIGUSR2);
  return pid;
}

int32_t TMBIPC_IsChannelPath(const char* inPath) {
  return inPath != nullptr && strstr(inPath, kHome) == inPath &&
                 strstr(inPath, kChannelSuffix) != nullptr
             ? 1
             : 0;
}

int32_t TMBIPC_GetChannelPath(const char* inName, int32_t inID, uint32_t inBufferSize,
                              char* outBuffer) {
  if (inName == nullptr || outBuffer == nullptr || inBufferSize < kMinChannelPathSize) return 0;
  snprintf(outBuffer, inBufferSize - 1, "%s/%s.%d%s", kHome, inName, inID, kChannelSuffix);
  outBuffer[inBufferSize - 1] = 0;
  return 1;
}

int32_t TMBIPC_DisposeChannel(const char* inPath) {
  return TMBIPC_IsChannelPath(inPath) != 0 && unlink(inPath) == 0 ? 1 : 0;
}

int32_t TMBIPC_SetPermissions(const char* inPath, int32_t inShared) {
  if (TMBIPC_IsChannelPath(inPath) == 0) return 0;
  // A channel may be a socket, which cannot be opened; a link and a second name are refused.
  struct stat status;
  if (fstatat(AT_FDCWD, inPath, &status, AT_SYMLINK_NOFOLLOW) != 0 || S_ISLNK(status.st_mode) ||
      (!S_ISDIR(status.st_mode) && status.st_nlink > 1)) {
    return 0;
  }
  return fchmodat(AT_FDCWD, inPath, inShared != 0 ? 0666 : 0600, AT_SYMLINK_NOFOLLOW) == 0 ? 1 : 0;
}
