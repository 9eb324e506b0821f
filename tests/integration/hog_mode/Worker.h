#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace tembra::test {

constexpr char kHogFile[] = "/tmp/com.apple.audio.hogmode.plist";
constexpr char kVictimFolder[] = "/tmp/somebody";
constexpr char kHogKeyPrefix[] = "com.apple.audio.CoreAudio.HogMode.Owner-";

// Two users who are nobody on this machine.
constexpr uid_t kUser = 60001;
constexpr uid_t kOtherUser = 60002;
// Whether processes of other users can be had: only root may make them.
bool HasOtherUsers();

// What a worker answers to each command.
struct Answer {
  std::int32_t owner = 0;        // of the device, as the worker has it
  std::int32_t isOwner = 0;      // whether it thinks that it is
  std::int32_t told = 0;         // how often its device was told of a change so far
  std::int32_t status = 0;       // of the command
  std::int32_t descriptors = 0;  // of the file, or of what stands in its place, that are open
};

// Another process, possibly another user's, that does as it is told. It is forked off and not a
// program of its own: the process of the tests makes no call of the platform, and so has no thread.
class Worker {
 public:
  using Handler = std::function<Answer(char inCommand)>;
  // inStart runs in the new process, as that user, and makes what handles the commands.
  Worker(uid_t inUser, const std::function<Handler()>& inStart);
  // Killed if it has not ended.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  pid_t Pid() const { return mPid; }
  void Send(char inCommand) const;
  // A failure if none comes within the time.
  Answer Receive(std::chrono::seconds inLimit = std::chrono::seconds(30)) const;
  Answer Ask(char inCommand) const {
    Send(inCommand);
    return Receive();
  }
  // With signal 9; the process is gone when this returns.
  void Kill();
  // Lets it end as programs do, with the platform's last acts.
  void End();

 private:
  [[noreturn]] static void Run(uid_t inUser, const std::function<Handler()>& inStart, int inSocket);

  pid_t mPid = -1;
  int mSocket = -1;
};

// A worker with the hog mode of a device of that UID and nothing else:
//   o  the owner    t  take    r  release
//   f  claims the file, as the later of two that took the device at once, and tells the others
//   c  clears the file, as a master does at its start, and tells the others
Worker::Handler StartHogMode(const std::string& inDeviceUID);
// A worker with the device itself, as a program meets it:
//   o  the owner    s  sets the owner's property    p  starts a procedure and stops it again
Worker::Handler StartDevice();

// The owner that the file names, -1 if none or no file.
std::int32_t OwnerInFile(const std::string& inDeviceUID);

}  // namespace tembra::test
