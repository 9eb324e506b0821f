#include "Hostile.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>

#include "ports/PortNames.h"
#include "support/Program.h"

namespace tembra::test {

std::uint64_t Seed() {
  static const std::uint64_t sSeed = [] {
    const char* given = getenv("TEMBRA_SEED");
    const std::uint64_t seed = given ? strtoull(given, nullptr, 0) : std::random_device()();
    std::printf("seed %llu (TEMBRA_SEED sets it)\n", static_cast<unsigned long long>(seed));
    return seed;
  }();
  return sSeed;
}

std::uint64_t Pick(Random& ioRandom, std::uint64_t inLimit) {
  return ioRandom() % inLimit;
}

std::string RandomBytes(Random& ioRandom, std::size_t inSize) {
  std::string bytes(inSize, '\0');
  for (std::size_t at = 0; at < inSize; at += sizeof(std::uint64_t)) {
    const std::uint64_t word = ioRandom();
    memcpy(bytes.data() + at, &word, std::min(sizeof word, inSize - at));
  }
  return bytes;
}

int CountDescriptors(pid_t inProcess) {
  const std::string path = "/proc/" + std::to_string(inProcess) + "/fd";
  DIR* listing = opendir(path.c_str());
  if (listing == nullptr) return -1;
  int count = 0;
  while (const dirent* entry = readdir(listing)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(listing);
  return inProcess == getpid() ? count - 1 : count;
}

long ResidentKilobytes(pid_t inProcess) {
  std::ifstream status("/proc/" + std::to_string(inProcess) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return strtol(line.c_str() + 6, nullptr, 10);
  }
  return -1;
}

std::string PortFile(const std::string& inName) {
  return Runtime().File("runtime/tembra/ports/") + ports::EncodePortName(inName);
}

std::string FindReceiver(pid_t inProcess, bool inShared) {
  const std::string place =
      inShared ? "/tmp/tembra-notifications/" : Runtime().File("runtime/tembra/notifications/");
  const std::string prefix = std::to_string(inProcess) + ".";
  std::string found;
  DIR* listing = opendir(place.c_str());
  if (listing == nullptr) return found;
  while (const dirent* entry = readdir(listing)) {
    if (std::string(entry->d_name).rfind(prefix, 0) == 0) found = place + entry->d_name;
  }
  closedir(listing);
  return found;
}

Descriptor OpenFile(const std::string& inPath) {
  return Descriptor(open(inPath.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

Descriptor ConnectTo(int inFile, int inKind) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", inFile);
  Descriptor socket(::socket(AF_UNIX, inKind | SOCK_CLOEXEC, 0));
  const timeval patience{20, 0};
  setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    const int error = errno;
    socket.Reset();
    errno = error;
  }
  return socket;
}

bool SendBytes(const Descriptor& inSocket, const std::string& inBytes) {
  return send(inSocket.Get(), inBytes.data(), inBytes.size(), MSG_NOSIGNAL) >= 0;
}

bool SendWithDescriptors(const Descriptor& inSocket, const std::string& inBytes) {
  static const Descriptor sNull(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int descriptors[3] = {sNull.Get(), sNull.Get(), sNull.Get()};
  iovec part{const_cast<char*>(inBytes.data()), inBytes.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptors)] = {};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* rights = CMSG_FIRSTHDR(&message);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(sizeof descriptors);
  memcpy(CMSG_DATA(rights), descriptors, sizeof descriptors);
  return sendmsg(inSocket.Get(), &message, MSG_NOSIGNAL) >= 0;
}

nlohmann::json RunRole(const std::vector<std::string>& inArguments) {
  static std::atomic<int> sCount{0};
  std::vector<std::string> arguments = inArguments;
  arguments.insert(arguments.begin(), "--role");
  Program role("/proc/self/exe", arguments, Runtime().File("role" + std::to_string(++sCount)));
  if (role.Wait(std::chrono::seconds(100)) != 0) return nullptr;
  return nlohmann::json::parse(role.Output(), nullptr, false);
}

}  // namespace tembra::test
