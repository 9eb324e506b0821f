#include "Roles.h"

#include <CoreFoundation/CFMessagePort.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "corefoundation/Object.h"

namespace tembra::test {
namespace {

cf::Owned<CFStringRef> MakeName(const std::string& inName) {
  return cf::Owned<CFStringRef>(
      CFStringCreateWithCString(nullptr, inName.c_str(), kCFStringEncodingUTF8));
}

CFDataRef Answer(CFMessagePortRef, SInt32 inIdentifier, CFDataRef inData, void*) {
  if (inIdentifier == 9) _exit(9);
  if (inIdentifier == 8) pause();
  return static_cast<CFDataRef>(CFRetain(inData));
}

int Serve(const std::string& inName) {
  CFMessagePortRef port =
      CFMessagePortCreateLocal(nullptr, MakeName(inName), Answer, nullptr, nullptr);
  puts(port ? "ready" : "taken");
  fflush(stdout);
  if (!port) return 3;
  CFRunLoopSourceRef source = CFMessagePortCreateRunLoopSource(nullptr, port, 0);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
  CFRunLoopRun();
  return 0;
}

// Sends so many messages whose identifier counts up, waiting for room.
int Send(const std::string& inName, int inCount) {
  CFMessagePortRef port = CFMessagePortCreateRemote(nullptr, MakeName(inName));
  if (!port) return 4;
  for (int i = 0; i < inCount; ++i) {
    CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<UInt8*>(&i), sizeof i);
    if (CFMessagePortSendRequest(port, i, data, 20, 0, nullptr, nullptr) != 0) return 5;
    CFRelease(data);
  }
  return 0;
}

// Opens the port so many times, each connection one message, and leaves.
int Churn(const std::string& inName, int inCount) {
  for (int i = 0; i < inCount; ++i) {
    // A receiver that was not scheduled for a while has a full queue of connections.
    CFMessagePortRef port = nullptr;
    WaitUntil([&] { return (port = CFMessagePortCreateRemote(nullptr, MakeName(inName))); },
              std::chrono::seconds(20));
    if (!port) return 4;
    if (CFMessagePortSendRequest(port, i, nullptr, 20, 0, nullptr, nullptr) != 0) return 5;
    CFMessagePortInvalidate(port);
    CFRelease(port);
  }
  return 0;
}

// Closes what leads to an epoll set, as a program does that closes all it does not know.
int CloseEventPolls() {
  std::vector<int> polls;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (read_symlink(entry.path(), gone) == "anon_inode:[eventpoll]") {
      polls.push_back(std::stoi(entry.path().filename()));
    }
  }
  for (const int poll : polls) close(poll);
  return static_cast<int>(polls.size());
}

bool HasServiceThread() {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(entry.path() / "comm"), name);
    if (name == "tembra.ports") return true;
  }
  return false;
}

bool IsAnswered(CFMessagePortRef inPort) {
  CFDataRef reply = nullptr;
  CFMessagePortSendRequest(inPort, 1, nullptr, 20, 20, CFSTR("reply"), &reply);
  const cf::Owned<CFDataRef> owned(reply);
  return reply != nullptr;
}

// Loses the service's descriptors while the service waits, then uses ports as if nothing had been.
int BeRobbed(const std::string& inFirst, const std::string& inSecond, bool inWake) {
  const cf::Owned<CFMessagePortRef> first(CFMessagePortCreateRemote(nullptr, MakeName(inFirst)));
  // It names itself.
  if (!first || !WaitUntil(HasServiceThread, std::chrono::seconds(20))) return 4;
  if (CloseEventPolls() != 1) return 5;
  if (inWake) {
    // The end of its owner wakes the service once more.
    CFMessagePortSendRequest(first, 9, nullptr, 20, 0, nullptr, nullptr);
    if (!WaitUntil([] { return !HasServiceThread(); }, std::chrono::seconds(20))) return 6;
  }
  const cf::Owned<CFMessagePortRef> second(CFMessagePortCreateRemote(nullptr, MakeName(inSecond)));
  if (!second) return 7;
  return IsAnswered(second) ? 0 : 8;
}

}  // namespace

int RunRole(const std::vector<std::string>& inArguments) {
  const std::string& role = inArguments[0];
  if (role == "serve") return Serve(inArguments[1]);
  if (role == "send") return Send(inArguments[1], std::stoi(inArguments[2]));
  if (role == "churn") return Churn(inArguments[1], std::stoi(inArguments[2]));
  if (role == "robbed") {
    return BeRobbed(inArguments[1], inArguments[2], inArguments[3] == "awake");
  }
  return 2;
}

std::unique_ptr<Program> StartServer(const PrivateRuntime& inRuntime, const std::string& inName) {
  static std::atomic<int> sCount{0};
  const std::string prefix = inRuntime.File("server" + std::to_string(++sCount));
  auto program = std::make_unique<Program>(
      "/proc/self/exe", std::vector<std::string>{"--role", "serve", inName}, prefix);
  WaitUntil([&] { return !program->Output().empty(); }, std::chrono::seconds(20));
  return program;
}

int RunProcess(const PrivateRuntime& inRuntime, const std::vector<std::string>& inArguments) {
  static std::atomic<int> sCount{0};
  std::vector<std::string> arguments{"--role"};
  arguments.insert(arguments.end(), inArguments.begin(), inArguments.end());
  Program program("/proc/self/exe", arguments,
                  inRuntime.File("process" + std::to_string(++sCount)));
  return program.Wait(std::chrono::seconds(60));
}

}  // namespace tembra::test
