#include "Worker.h"

#include <CoreAudio/AudioHardware.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "persistence/CASettingsStorage.h"
#include "persistence/HP_HogMode.h"
#include "support/CACFDistributedNotification.h"
#include "support/CACFString.h"
#include "support/OtherUser.h"
#include "support/Program.h"
#include "support/device/SimulatedDevice.h"

namespace tembra::test {

namespace fs = std::filesystem;

bool HasOtherUsers() {
  return getuid() == 0;
}

Worker::Worker(uid_t inUser, const std::function<Handler()>& inStart) {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) {
    throw std::runtime_error("cannot make a socket");
  }
  std::fflush(nullptr);
  mPid = fork();
  if (mPid == 0) {
    close(sockets[0]);
    Run(inUser, inStart, sockets[1]);
  }
  close(sockets[1]);
  mSocket = sockets[0];
  if (mPid < 0) throw std::runtime_error("cannot fork");
  Receive();  // it is ready
}

Worker::~Worker() {
  Kill();
  close(mSocket);
}

namespace {

// With a runtime directory and a home of its own, as a session has them.
void MoveInAs(uid_t inUser) {
  const std::string folder = "/tmp/of-" + std::to_string(inUser);
  fs::create_directory(folder);
  fs::permissions(folder, fs::perms(0700));
  if (chown(folder.c_str(), inUser, inUser) != 0 || !BecomeUser(inUser)) {
    throw std::runtime_error("cannot be another user");
  }
  setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
  setenv("HOME", folder.c_str(), 1);
}

// Descriptors of what stands, or is linked to, at the file's place.
std::int32_t CountOpen() {
  std::int32_t count = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code closedMeanwhile;
    const std::string path = fs::read_symlink(entry.path(), closedMeanwhile);
    count += path.starts_with(kHogFile) || path.starts_with(kVictimFolder) ||
             path.starts_with("/dev/zero");
  }
  return count;
}

}  // namespace

void Worker::Run(uid_t inUser, const std::function<Handler()>& inStart, int inSocket) {
  try {
    if (inUser != getuid()) MoveInAs(inUser);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const Handler handler = inStart();
    Answer answer;
    char command = 0;
    while (send(inSocket, &answer, sizeof answer, MSG_NOSIGNAL) == sizeof answer &&
           recv(inSocket, &command, 1, 0) == 1) {
      if (command == 'q') std::exit(0);
      answer = handler(command);
      answer.descriptors = CountOpen();
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "worker: %s\n", error.what());
  }
  _exit(91);
}

void Worker::Send(char inCommand) const {
  EXPECT_EQ(send(mSocket, &inCommand, 1, MSG_NOSIGNAL), 1) << "the worker is gone";
}

Answer Worker::Receive(std::chrono::seconds inLimit) const {
  Answer answer;
  pollfd file = {mSocket, POLLIN, 0};
  const int limit =
      static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(inLimit).count());
  int ready;
  do {
    ready = poll(&file, 1, limit);
  } while (ready < 0 && errno == EINTR);
  if (ready != 1 || recv(mSocket, &answer, sizeof answer, 0) != sizeof answer) {
    throw std::runtime_error(ready == 1 ? "the worker is gone" : "the worker does not answer");
  }
  return answer;
}

void Worker::Kill() {
  if (mPid <= 0) return;
  kill(mPid, SIGKILL);
  waitpid(mPid, nullptr, 0);
  mPid = -1;
}

void Worker::End() {
  Send('q');
  int status = -1;
  EXPECT_TRUE(WaitUntil([&] { return waitpid(mPid, &status, WNOHANG) == mPid; }));
  EXPECT_EQ(status, 0);
  mPid = -1;
}

namespace {

// A device that only counts what it is told; on any thread.
class ToldDevice : public SimulatedDevice {
 public:
  explicit ToldDevice(const std::string& inUID) : SimulatedDevice(false, false), mText(inUID) {
    mUID = mText.c_str();
  }
  void HogModeStateChanged() override {}
  void PropertiesChanged(UInt32, const AudioObjectPropertyAddress*) const override { ++mTold; }
  mutable std::atomic<std::int32_t> mTold{0};

 private:
  const std::string mText;
};

}  // namespace

Worker::Handler StartHogMode(const std::string& inDeviceUID) {
  // They last as long as the process, as devices do.
  auto* device = new ToldDevice(inDeviceUID);
  auto* hogMode = new HP_HogMode(device);
  return [=](char inCommand) {
    switch (inCommand) {
      case 't':
        hogMode->Take();
        break;
      case 'r':
        hogMode->Release();
        break;
      case 'f':
      case 'c': {
        const CACFString key((kHogKeyPrefix + inDeviceUID).c_str());
        CASettingsStorage storage(kHogFile, 0666, kCFPropertyListXMLFormat_v1_0, false, false);
        if (inCommand == 'f') {
          storage.SetSInt32Value(key.GetCFString(), getpid());
        } else {
          storage.RemoveValue(key.GetCFString());
        }
        CACFDistributedNotification::PostNotification(key.GetCFString(), nullptr, true);
        break;
      }
      default:
        break;
    }
    Answer answer;
    answer.owner = hogMode->GetOwner();
    answer.isOwner = hogMode->CurrentProcessIsOwner() ? 1 : 0;
    answer.told = device->mTold;
    return answer;
  };
}

namespace {

std::atomic<std::int32_t> sTold{0};

OSStatus Told(AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void*) {
  ++sTold;
  return 0;
}

OSStatus Render(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

OSStatus StartAndStop(AudioObjectID inDevice) {
  AudioDeviceIOProcID id = nullptr;
  OSStatus status = AudioDeviceCreateIOProcID(inDevice, Render, nullptr, &id);
  if (status != 0) return status;
  status = AudioDeviceStart(inDevice, id);
  if (status == 0) AudioDeviceStop(inDevice, id);
  AudioDeviceDestroyIOProcID(inDevice, id);
  return status;
}

}  // namespace

Worker::Handler StartDevice() {
  const AudioObjectPropertyAddress devices{kAudioHardwarePropertyDevices,
                                           kAudioObjectPropertyScopeGlobal, 0};
  const AudioObjectPropertyAddress hogMode{kAudioDevicePropertyHogMode,
                                           kAudioObjectPropertyScopeGlobal, 0};
  AudioObjectID device = kAudioObjectUnknown;
  UInt32 size = sizeof device;
  if (AudioObjectGetPropertyData(kAudioObjectSystemObject, &devices, 0, nullptr, &size, &device) !=
          0 ||
      AudioObjectAddPropertyListener(device, &hogMode, Told, nullptr) != 0) {
    throw std::runtime_error("there is no device");
  }
  return [=](char inCommand) {
    Answer answer;
    if (inCommand == 's') {
      SInt32 owner = 0;
      answer.status =
          AudioObjectSetPropertyData(device, &hogMode, 0, nullptr, sizeof owner, &owner);
    } else if (inCommand == 'p') {
      answer.status = StartAndStop(device);
    }
    SInt32 owner = 0;
    UInt32 ownerSize = sizeof owner;
    const OSStatus status =
        AudioObjectGetPropertyData(device, &hogMode, 0, nullptr, &ownerSize, &owner);
    if (status != 0) answer.status = status;
    answer.owner = owner;
    answer.isOwner = owner == getpid() ? 1 : 0;
    answer.told = sTold;
    return answer;
  };
}

std::int32_t OwnerInFile(const std::string& inDeviceUID) {
  // Nothing else that may stand there is to be read.
  struct stat status;
  if (lstat(kHogFile, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > 1 << 20) {
    return -1;
  }
  const std::string text = ReadFile(kHogFile);
  const size_t key = text.find("<key>" + (kHogKeyPrefix + inDeviceUID) + "</key>");
  if (key == std::string::npos) return -1;
  const std::string tag = "<integer>";
  const size_t number = text.find(tag, key);
  if (number == std::string::npos) return -1;
  return static_cast<std::int32_t>(std::strtol(text.c_str() + number + tag.size(), nullptr, 10));
}

}  // namespace tembra::test
