#include "Traces.h"

#include <malloc.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>

namespace tembra::test {
namespace {

namespace fs = std::filesystem;

// Entries may go while they are looked at.
size_t CountIn(const char* inFolder, const std::function<bool(const fs::path&)>& inCondition) {
  size_t count = 0;
  std::error_code error;
  for (fs::directory_iterator entry(inFolder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (inCondition(entry->path())) ++count;
  }
  return count;
}

bool Always(const fs::path&) {
  return true;
}

bool IsDueSoon(const fs::path& inPath) {
  std::ifstream info(inPath);
  for (std::string line; std::getline(info, line);) {
    long seconds = 0;
    long nanos = 0;
    if (std::sscanf(line.c_str(), "it_value: (%ld, %ld)", &seconds, &nanos) == 2) {
      return seconds == 0 && nanos > 0;
    }
  }
  return false;
}

}  // namespace

size_t CountThreads() {
  return CountIn("/proc/self/task", Always);
}

size_t CountThreads(const std::string& inName) {
  return CountIn("/proc/self/task", [&](const fs::path& path) {
    std::string name;
    std::getline(std::ifstream(path / "comm"), name);
    return name.find(inName) != std::string::npos;
  });
}

size_t CountDescriptors() {
  return CountIn("/proc/self/fd", Always);
}

size_t CountTimersDueSoon() {
  return CountIn("/proc/self/fdinfo", IsDueSoon);
}

size_t GetHeapSize() {
  return mallinfo2().uordblks;
}

}  // namespace tembra::test
