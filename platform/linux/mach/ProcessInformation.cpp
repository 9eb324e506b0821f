#include <fcntl.h>
#include <libproc.h>
#include <sys/sysctl.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

// The first line of a small file of the kernel's, empty if there is none.
std::string FirstLineOf(const char* inPath) {
  const int file = open(inPath, O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return {};
  }
  char text[256];
  const ssize_t got = read(file, text, sizeof text);
  close(file);
  if (got <= 0) {
    return {};
  }
  const char* const end = static_cast<const char*>(memchr(text, '\n', static_cast<size_t>(got)));
  return std::string(text, end ? static_cast<size_t>(end - text) : static_cast<size_t>(got));
}

// When the wall clock said what it says now less the time since the machine started.
timeval BootTime() {
  timespec now, up;
  clock_gettime(CLOCK_REALTIME, &now);
  clock_gettime(CLOCK_BOOTTIME, &up);
  timeval boot;
  boot.tv_sec = now.tv_sec - up.tv_sec;
  long nanos = now.tv_nsec - up.tv_nsec;
  if (nanos < 0) {
    nanos += 1000000000;
    boot.tv_sec -= 1;
  }
  boot.tv_usec = nanos / 1000;
  return boot;
}

int Answer(const void* inValue, size_t inSize, void* outValue, size_t* ioSize) {
  if (!outValue) {
    if (ioSize) {
      *ioSize = inSize;
    }
    return 0;
  }
  if (!ioSize) {
    errno = EFAULT;
    return -1;
  }
  const size_t copied = std::min(*ioSize, inSize);
  memcpy(outValue, inValue, copied);
  *ioSize = copied;
  if (copied < inSize) {
    errno = ENOMEM;
    return -1;
  }
  return 0;
}

int AnswerText(const std::string& inText, void* outValue, size_t* ioSize) {
  return Answer(inText.c_str(), inText.size() + 1, outValue, ioSize);
}

int AnswerNumber(long inNumber, void* outValue, size_t* ioSize) {
  const int number = static_cast<int>(inNumber);
  return Answer(&number, sizeof number, outValue, ioSize);
}

}  // namespace

int proc_name(int pid, void* buffer, uint32_t buffersize) {
  if (!buffer || buffersize == 0) {
    errno = EINVAL;
    return 0;
  }
  char path[32];
  snprintf(path, sizeof path, "/proc/%d/comm", pid);
  const std::string name = pid > 0 ? FirstLineOf(path) : std::string();
  if (name.empty()) {
    errno = ESRCH;
    return 0;
  }
  const size_t length = std::min(name.size(), static_cast<size_t>(buffersize) - 1);
  memcpy(buffer, name.data(), length);
  static_cast<char*>(buffer)[length] = 0;
  return static_cast<int>(length);
}

int sysctlbyname(const char* name, void* oldp, size_t* oldlenp, void* newp, size_t newlen) {
  if (!name) {
    errno = EFAULT;
    return -1;
  }
  if (newp || newlen) {
    errno = EPERM;
    return -1;
  }
  const std::string wanted = name;
  if (wanted == "kern.boottime") {
    const timeval boot = BootTime();
    return Answer(&boot, sizeof boot, oldp, oldlenp);
  }
  utsname system{};
  uname(&system);
  if (wanted == "kern.osversion" || wanted == "kern.osrelease") {
    return AnswerText(system.release, oldp, oldlenp);
  }
  if (wanted == "kern.hostname") {
    return AnswerText(system.nodename, oldp, oldlenp);
  }
  if (wanted == "hw.model") {
    const std::string model = FirstLineOf("/sys/devices/virtual/dmi/id/product_name");
    return AnswerText(model.empty() ? system.machine : model, oldp, oldlenp);
  }
  if (wanted == "hw.ncpu") {
    return AnswerNumber(sysconf(_SC_NPROCESSORS_ONLN), oldp, oldlenp);
  }
  if (wanted == "hw.pagesize") {
    return AnswerNumber(sysconf(_SC_PAGESIZE), oldp, oldlenp);
  }
  errno = ENOENT;
  return -1;
}
