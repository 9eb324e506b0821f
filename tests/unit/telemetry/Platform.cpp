#include "unit/telemetry/Platform.h"

#include <dispatch/dispatch.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

// The thread sanitizer's operators cannot be replaced: memory is only counted then.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TEMBRA_ALLOCATOR_IS_TAKEN 1
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace {

constexpr std::size_t kChunkSize = 18432;

std::atomic<std::uint64_t> sTime{0};
std::atomic<int> sLiveChunks{0};
std::atomic<int> sMadeChunks{0};
std::atomic<int> sChunksLeft{-1};

std::string Text(CFStringRef inString) {
  char text[256] = "";
  CFStringGetCString(inString, text, sizeof(text), kCFStringEncodingUTF8);
  return text;
}

CFMessagePortRef MakePort() {
  return reinterpret_cast<CFMessagePortRef>(CFStringCreateMutable(kCFAllocatorDefault, 0));
}

// In front of each array: its size. Two words, so that the array stays aligned.
struct alignas(16) Prefix {
  std::size_t mSize;
};

}  // namespace

SimulatedPlatform& SimulatedPlatform::Get() {
  static auto& sPlatform = *new SimulatedPlatform;
  return sPlatform;
}

void SimulatedPlatform::Reset() {
  *this = SimulatedPlatform();
  sMadeChunks = 0;
  sChunksLeft = -1;
}

CFMessagePortRef SimulatedPlatform::GetPort() {
  static CFMessagePortRef sPort = MakePort();
  return sPort;
}

CFMessagePortRef SimulatedPlatform::GetOtherPort() {
  static CFMessagePortRef sPort = [] {
    CFMutableStringRef port = CFStringCreateMutable(kCFAllocatorDefault, 0);
    CFStringAppend(port, CFSTR("another"));
    return reinterpret_cast<CFMessagePortRef>(port);
  }();
  return sPort;
}

int SimulatedPlatform::GetLiveChunks() {
  return sLiveChunks;
}

int SimulatedPlatform::GetMadeChunks() {
  return sMadeChunks;
}

void SimulatedPlatform::LimitChunks(int inNumber) {
  sChunksLeft = inNumber;
}

#ifdef TEMBRA_ALLOCATOR_IS_TAKEN

bool SimulatedPlatform::OwnsTheAllocator() {
  return false;
}

namespace {

void Allocated(const volatile void*, size_t inSize) {
  if (inSize != kChunkSize) return;
  ++sMadeChunks;
  ++sLiveChunks;
}
void Freed(const volatile void* inMemory) {
  if (__sanitizer_get_allocated_size(inMemory) == kChunkSize) --sLiveChunks;
}
const int sHooks = __sanitizer_install_malloc_and_free_hooks(Allocated, Freed);

}  // namespace

#else

bool SimulatedPlatform::OwnsTheAllocator() {
  return true;
}

void* operator new[](std::size_t inSize) {
  if (inSize == kChunkSize) {
    if (sChunksLeft == 0) throw std::bad_alloc();
    if (sChunksLeft > 0) --sChunksLeft;
    ++sMadeChunks;
    ++sLiveChunks;
    if (SimulatedPlatform::Get().mOnChunk) SimulatedPlatform::Get().mOnChunk();
  }
  auto* prefix = static_cast<Prefix*>(std::malloc(sizeof(Prefix) + inSize));
  if (prefix == nullptr) throw std::bad_alloc();
  prefix->mSize = inSize;
  return prefix + 1;
}

void operator delete[](void* inMemory) noexcept {
  if (inMemory == nullptr) return;
  Prefix* prefix = static_cast<Prefix*>(inMemory) - 1;
  if (prefix->mSize == kChunkSize) {
    --sLiveChunks;
    if (SimulatedPlatform::Get().mOnChunk) SimulatedPlatform::Get().mOnChunk();
  }
  std::free(prefix);
}

void operator delete[](void* inMemory, std::size_t) noexcept {
  operator delete[](inMemory);
}

#endif

extern "C" {
#pragma GCC visibility push(default)

uint64_t mach_absolute_time(void) {
  return ++sTime;
}

int issetugid(void) {
  return SimulatedPlatform::Get().mIsSetUserID ? 1 : 0;
}

int stat(const char* inPath, struct stat* outStatus) noexcept {
  if (std::strcmp(inPath, "/var/db/.com.apple.audio.telemetryenabled") == 0) {
    if (SimulatedPlatform::Get().mHasMarkerFile) return 0;
    errno = ENOENT;
    return -1;
  }
  return fstatat(AT_FDCWD, inPath, outStatus, 0);
}

dispatch_queue_t dispatch_queue_create(const char* inLabel, dispatch_queue_attr_t inAttribute) {
  SimulatedPlatform& platform = SimulatedPlatform::Get();
  platform.mQueueLabel = inLabel;
  if (platform.mQueueFails) return nullptr;
  static const auto sReal =
      reinterpret_cast<decltype(&dispatch_queue_create)>(dlsym(RTLD_NEXT, "dispatch_queue_create"));
  return sReal(inLabel, inAttribute);
}

CFDataRef CFDataCreate(CFAllocatorRef inAllocator, const UInt8* inBytes, CFIndex inLength) {
  if (SimulatedPlatform::Get().mOnData) SimulatedPlatform::Get().mOnData();
  static const auto sReal =
      reinterpret_cast<decltype(&CFDataCreate)>(dlsym(RTLD_NEXT, "CFDataCreate"));
  return sReal(inAllocator, inBytes, inLength);
}

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef, CFStringRef inName,
                                          CFMessagePortCallBack inCallBack,
                                          CFMessagePortContext* inContext, Boolean*) {
  SimulatedPlatform& platform = SimulatedPlatform::Get();
  platform.mCalls.push_back("create " + Text(inName));
  platform.mCallBack = inCallBack;
  platform.mInfo = inContext->info;
  if (platform.mPortFails) return nullptr;
  CFRetain(SimulatedPlatform::GetPort());
  return SimulatedPlatform::GetPort();
}

void CFMessagePortSetDispatchQueue(CFMessagePortRef, dispatch_queue_t inQueue) {
  SimulatedPlatform& platform = SimulatedPlatform::Get();
  platform.mCalls.push_back(inQueue != nullptr ? "queue" : "no queue");
  if (platform.mOnSetDispatchQueue) platform.mOnSetDispatchQueue(inQueue != nullptr);
}

void CFMessagePortInvalidate(CFMessagePortRef) {
  SimulatedPlatform::Get().mCalls.push_back("invalidate");
}

#pragma GCC visibility pop
}
