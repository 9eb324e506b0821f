#include "preferences/PreferenceDomain.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <set>
#include <thread>

#include "corefoundation/Dictionary.h"
#include "corefoundation/File.h"
#include "corefoundation/String.h"

namespace tembra::preferences {

namespace {

using namespace cf;

constexpr auto kLockTimeout = std::chrono::seconds(1);
constexpr auto kLockRetry = std::chrono::milliseconds(2);

// The exclusive lock of a domain's file, held by this object. A record lock: unlike flock, a child
// process does not inherit it, and it dies with this process.
class FileLock {
 public:
  explicit FileLock(const std::string& inPath)
      : mFile(open(inPath.c_str(),
                   O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600)) {}

  bool Take() {
    if (!mFile.IsOpen()) return false;
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    auto deadline = std::chrono::steady_clock::now() + kLockTimeout;
    while (fcntl(mFile.Get(), F_SETLK, &lock) != 0) {
      bool isHeld = errno == EACCES || errno == EAGAIN || errno == EINTR;
      if (!isHeld || std::chrono::steady_clock::now() >= deadline) return false;
      std::this_thread::sleep_for(kLockRetry);
    }
    return true;
  }

 private:
  FileDescriptor mFile;
};

}  // namespace

std::string Domain::Directory() const {
  return mPath.substr(0, mPath.rfind('/'));
}

std::string Domain::HiddenName(const char* inEnding) const {
  size_t slash = mPath.rfind('/');
  return mPath.substr(0, slash + 1) + "." + mPath.substr(slash + 1) + inEnding;
}

bool Domain::MakeDirectory() const {
  // From the first folder that is missing on. What is above $HOME or / exists, or the last one
  // fails.
  std::string directory = Directory();
  for (size_t slash = directory.find('/', 1);; slash = directory.find('/', slash + 1)) {
    std::string folder = directory.substr(0, slash);
    if (mkdir(folder.c_str(), mIsForAllUsers ? 0755 : 0700) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) return true;
  }
}

Domain::Values Domain::Read() const {
  Values values;
  if (mPath.empty()) return values;
  FileDescriptor file(
      open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  struct stat status;
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return values;
  // Somebody else's file says nothing about this user's preferences.
  if (status.st_uid != geteuid() && status.st_uid != 0) return values;
  std::vector<UInt8> bytes;
  if (ReadWholeFile(file.Get(), bytes) != 0) return values;
  Owned<CFDataRef> data(CFDataCreateWithBytesNoCopy(
      nullptr, bytes.data(), static_cast<CFIndex>(bytes.size()), kCFAllocatorNull));
  Owned<CFPropertyListRef> list(CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr));
  if (!IsType(list, kTypeDictionary)) return values;
  static_cast<CFDictionaryRef>(list.Get())->ForEach([&](const __CFDictionary::Entry& inEntry) {
    values.insert_or_assign(ToUTF8(static_cast<CFStringRef>(inEntry.mKey)),
                            Owned<CFPropertyListRef>::Retained(inEntry.mValue));
  });
  return values;
}

bool Domain::Write(const Values& inValues) const {
  Owned<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
      nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  if (!dictionary) return false;
  for (const auto& [key, value] : inValues) {
    Owned<CFStringRef> name(CreateString(key));
    if (!name) return false;
    CFDictionarySetValue(dictionary, name, value);
  }
  Owned<CFDataRef> data(
      CFPropertyListCreateData(nullptr, dictionary, kCFPropertyListBinaryFormat_v1_0, 0, nullptr));
  if (!data) return false;
  // Only the holder of the lock is here, so the name is its own and whatever stands there is what
  // a killed process left.
  std::string temporary = HiddenName(".tmp");
  unlink(temporary.c_str());
  FileDescriptor file(
      open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file.IsOpen()) return false;
  bool isWritten = WriteAll(file.Get(), CFDataGetBytePtr(data),
                            static_cast<size_t>(CFDataGetLength(data))) == 0 &&
                   fchmod(file.Get(), mIsForAllUsers ? 0644 : 0600) == 0 &&
                   rename(temporary.c_str(), mPath.c_str()) == 0;
  if (!isWritten) unlink(temporary.c_str());
  return isWritten;
}

void Domain::Load() {
  if (mIsLoaded) return;
  mStored = Read();
  mIsLoaded = true;
}

CFPropertyListRef Domain::Find(const std::string& inKey) {
  auto pending = mPending.find(inKey);
  if (pending != mPending.end()) return pending->second;
  Load();
  auto stored = mStored.find(inKey);
  return stored == mStored.end() ? nullptr : stored->second.Get();
}

std::vector<std::string> Domain::Keys() {
  Load();
  std::set<std::string> keys;
  for (const auto& [key, value] : mStored) keys.insert(key);
  for (const auto& [key, value] : mPending) {
    if (value) {
      keys.insert(key);
    } else {
      keys.erase(key);
    }
  }
  return {keys.begin(), keys.end()};
}

void Domain::Set(const std::string& inKey, CFPropertyListRef inValue) {
  Owned<CFPropertyListRef> copy;
  if (inValue) {
    copy.Reset(CFPropertyListCreateDeepCopy(nullptr, inValue, kCFPropertyListImmutable));
    // What is no property list could never be written.
    if (!copy) return;
  }
  mPending.insert_or_assign(inKey, std::move(copy));
}

bool Domain::Synchronize() {
  if (mPath.empty()) return mPending.empty();
  if (mPending.empty()) {
    mStored = Read();
    mIsLoaded = true;
    return true;
  }
  if (!MakeDirectory()) return false;
  FileLock lock(HiddenName(".lock"));
  if (!lock.Take()) return false;
  Values merged = Read();
  for (const auto& [key, value] : mPending) {
    if (value) {
      merged.insert_or_assign(key, Owned<CFPropertyListRef>::Retained(value));
    } else {
      merged.erase(key);
    }
  }
  if (!Write(merged)) return false;
  mStored = std::move(merged);
  mIsLoaded = true;
  mPending.clear();
  return true;
}

}  // namespace tembra::preferences
