#include "tools/TelemetryReader.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/Devices.h"
#include "tools/Exit.h"

namespace tembra::tools {

namespace {

constexpr std::uint32_t kGetTelemetry = 'tele';
constexpr std::uint32_t kGetProperty = 'getp';
constexpr std::uint32_t kSetProperty = 'setp';
constexpr std::uint32_t kIsCapturing = 'capt';

constexpr double kSendSeconds = 2.0;
constexpr double kReplySeconds = 5.0;

// No more can be in a ring, however fast it fills: 512 chunks, and as many answers without data.
constexpr int kMostAnswers = 2 * 513;

constexpr const char* kRemedy =
    "start it with CoreAudio_HAL_Enable_Telemetry=1 in its environment, or make the file "
    "/var/db/.com.apple.audio.telemetryenabled before it starts";

// A CoreFoundation reference that is released with its scope.
template <typename T>
class Held {
 public:
  explicit Held(T inObject) : mObject(inObject) {}
  ~Held() {
    if (mObject != nullptr) CFRelease(mObject);
  }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  T Get() const { return mObject; }

 private:
  T mObject;
};

CFStringRef CopyPortName(pid_t inProcess, CFStringRef inDeviceUID) {
  long long sum = 0;
  for (CFIndex index = 0; index < CFStringGetLength(inDeviceUID); ++index) {
    sum += CFStringGetCharacterAtIndex(inDeviceUID, index);
  }
  return CFStringCreateWithFormat(
      kCFAllocatorDefault, nullptr,
      CFSTR("com.apple.audio.CoreAudio.pid-%d.%lu.%qd.Telemetry.IOCycle"),
      static_cast<int>(inProcess), static_cast<unsigned long>(CFHash(inDeviceUID)), sum);
}

CFMessagePortRef CreatePort(pid_t inProcess, CFStringRef inDeviceUID) {
  const Held<CFStringRef> name(CopyPortName(inProcess, inDeviceUID));
  return CFMessagePortCreateRemote(kCFAllocatorDefault, name.Get());
}

void SetNumber(CFMutableDictionaryRef ioDictionary, CFStringRef inKey, std::uint32_t inValue) {
  const auto value = static_cast<SInt32>(inValue);
  const Held<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
  CFDictionarySetValue(ioDictionary, inKey, number.Get());
}

// 0 if there is no such number.
std::uint32_t GetNumber(CFDictionaryRef inDictionary, CFStringRef inKey) {
  const void* number = CFDictionaryGetValue(inDictionary, inKey);
  SInt64 value = 0;
  if (number != nullptr && CFGetTypeID(number) == CFNumberGetTypeID()) {
    CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberSInt64Type, &value);
  }
  return static_cast<std::uint32_t>(value);
}

CFDataRef CopyRequest(const std::uint32_t* inValue) {
  const Held<CFMutableDictionaryRef> request(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  SetNumber(request.Get(), CFSTR("property id"), kIsCapturing);
  if (inValue != nullptr) SetNumber(request.Get(), CFSTR("property value"), *inValue);
  return CFPropertyListCreateXMLData(kCFAllocatorDefault, request.Get());
}

}  // namespace

TelemetryReader::TelemetryReader(pid_t inProcess, CFStringRef inDeviceUID)
    : mProcess(inProcess), mPort(CreatePort(inProcess, inDeviceUID)) {
  if (mPort != nullptr) return;
  if (inProcess <= 0 || (kill(inProcess, 0) != 0 && errno == ESRCH)) {
    throw Failure("there is no process " + std::to_string(inProcess));
  }
  throw Failure("process " + DescribeProcess(inProcess) +
                " has no telemetry of this device: it uses no audio, belongs to another user, or "
                "telemetry is not enabled in it; " +
                kRemedy);
}

TelemetryReader::~TelemetryReader() {
  if (mPort != nullptr) CFRelease(mPort);
}

std::vector<pid_t> TelemetryReader::FindProcesses(CFStringRef inDeviceUID) {
  std::vector<pid_t> found;
  std::error_code error;
  std::filesystem::directory_iterator entry("/proc", error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::string name = entry->path().filename();
    pid_t process = 0;
    const auto [end, problem] = std::from_chars(name.data(), name.data() + name.size(), process);
    if (problem != std::errc() || end != name.data() + name.size() || process == getpid()) continue;
    const Held<CFMessagePortRef> port(CreatePort(process, inDeviceUID));
    if (port.Get() != nullptr) found.push_back(process);
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string TelemetryReader::DescribeProcess(pid_t inProcess) {
  std::ifstream file("/proc/" + std::to_string(inProcess) + "/comm");
  std::string name;
  std::getline(file, name);
  return std::to_string(inProcess) + (name.empty() ? "" : " (" + name + ")");
}

// Null if the process answered without data.
CFDataRef TelemetryReader::Request(std::uint32_t inMessage, CFDataRef inData) {
  CFDataRef reply = nullptr;
  const SInt32 result =
      CFMessagePortSendRequest(mPort, static_cast<SInt32>(inMessage), inData, kSendSeconds,
                               kReplySeconds, kCFRunLoopDefaultMode, &reply);
  if (result == kCFMessagePortSuccess) return reply;
  if (result == kCFMessagePortSendTimeout || result == kCFMessagePortReceiveTimeout) {
    throw Failure("process " + DescribeProcess(mProcess) + " does not answer: is it stopped?");
  }
  throw Failure("process " + std::to_string(mProcess) + " has closed its telemetry");
}

std::uint32_t TelemetryReader::RequestProperty(std::uint32_t inMessage,
                                               const std::uint32_t* inValue) {
  const Held<CFDataRef> request(CopyRequest(inValue));
  const Held<CFDataRef> data(Request(inMessage, request.Get()));
  const Held<CFPropertyListRef> reply(
      data.Get() != nullptr
          ? CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data.Get(), 0, nullptr)
          : nullptr);
  if (reply.Get() == nullptr || CFGetTypeID(reply.Get()) != CFDictionaryGetTypeID()) {
    throw Failure("process " + DescribeProcess(mProcess) + " gives no telemetry answer");
  }
  const auto* dictionary = static_cast<CFDictionaryRef>(reply.Get());
  if (const std::uint32_t error = GetNumber(dictionary, CFSTR("return error"))) {
    throw Failure("process " + DescribeProcess(mProcess) + " refuses to capture: status " +
                  CodeText(error));
  }
  return GetNumber(dictionary, CFSTR("property value"));
}

bool TelemetryReader::IsCapturing() {
  return RequestProperty(kGetProperty, nullptr) != 0;
}

void TelemetryReader::SetCapturing(bool inIsCapturing) {
  const std::uint32_t value = inIsCapturing ? 1 : 0;
  RequestProperty(kSetProperty, &value);
}

std::vector<TelemetryRecord> TelemetryReader::Drain() {
  std::vector<TelemetryRecord> records;
  // One answer without data comes also where the reader turns from the ring's end to its
  // beginning.
  int empty = 0;
  for (int answers = 0; empty < 2 && answers < kMostAnswers; ++answers) {
    const Held<CFDataRef> data(Request(kGetTelemetry, nullptr));
    if (data.Get() == nullptr) {
      ++empty;
      continue;
    }
    empty = 0;
    const auto size = static_cast<std::size_t>(CFDataGetLength(data.Get()));
    if (size % sizeof(TelemetryRecord) != 0) {
      throw Failure("process " + DescribeProcess(mProcess) +
                    " hands out telemetry of another kind than this command reads");
    }
    const std::size_t count = records.size();
    records.resize(count + size / sizeof(TelemetryRecord));
    std::memcpy(records.data() + count, CFDataGetBytePtr(data.Get()), size);
  }
  return records;
}

}  // namespace tembra::tools
