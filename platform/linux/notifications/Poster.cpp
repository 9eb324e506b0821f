#include "notifications/Poster.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <set>
#include <vector>

#include "base/MonotonicTime.h"
#include "base/Mutex.h"
#include "notifications/Center.h"
#include "notifications/Counters.h"
#include "notifications/Places.h"

namespace tembra::notifications {
namespace {

constexpr int64_t kPatience = kNanosPerSecond;
// A bound for what others may have put into the shared directory.
constexpr int kMaxEntries = 4096;
constexpr size_t kMaxStuck = 4096;

// Names of receivers that let a whole wait pass; they are unique for good.
std::set<std::string>& Stuck() TEMBRA_REQUIRES(gNotificationLock) {
  static auto* sStuck = new std::set<std::string>;
  return *sStuck;
}

bool IsStuck(const std::string& inName) {
  MutexLock lock(gNotificationLock);
  return !Stuck().empty() && Stuck().count(inName) != 0;
}

void SetStuck(const std::string& inName, bool inStuck) {
  MutexLock lock(gNotificationLock);
  if (!inStuck) {
    Stuck().erase(inName);
  } else if (Stuck().size() < kMaxStuck) {
    Stuck().insert(inName);
  }
}

// A receiver whose queue is full. Each has a socket of its own: what one receiver leaves lying
// counts against the socket that sent it, so no receiver's neglect closes the way to another.
struct Waiting {
  std::string name;
  Descriptor socket;
};

enum class Sent { kYes, kFull, kNo };

Sent Send(int inSocket, const std::string& inDatagram) {
  while (send(inSocket, inDatagram.data(), inDatagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == ENOBUFS ? Sent::kFull : Sent::kNo;
  }
  Count(gCounters.posted);
  return Sent::kYes;
}

// Calls inBody with the name of each receiver in the place.
template <class Body>
void ForEachReceiver(const Descriptor& inDirectory, Body&& inBody) {
  // A descriptor of its own, whose position nobody else moves.
  Descriptor own(openat(inDirectory.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  DIR* listing = own ? fdopendir(own.Get()) : nullptr;
  if (!listing) return;
  own.Detach();
  int entries = 0;
  while (dirent* entry = readdir(listing)) {
    if (++entries > kMaxEntries) break;
    if (IsReceiverName(entry->d_name)) inBody(entry->d_name);
  }
  closedir(listing);
}

void Sweep(const Descriptor& inDirectory, const char* inName) {
  // Names are never used again, so what is dead stays dead. In the shared directory others' files
  // cannot be removed.
  if (unlinkat(inDirectory.Get(), inName, 0) == 0) Count(gCounters.swept);
  SetStuck(inName, false);
}

// ioReached: the user's own receivers that had their turn.
void SendToPlace(Scope inScope, const std::string& inDatagram, std::vector<Waiting>& ioWaiting,
                 std::set<std::string>& ioReached) {
  Descriptor directory = OpenPlace(inScope);
  if (!directory) {
    Count(gCounters.refused);
    return;
  }
  ForEachReceiver(directory, [&](const char* inName) {
    Descriptor socket;
    uid_t owner;
    const Connection connection = ConnectReceiver(directory.Get(), inName, socket, owner);
    if (connection == Connection::kDead) Sweep(directory, inName);
    if (connection != Connection::kConnected) return;
    // Each gets it once: this user's receivers in the user's own place, unless theirs is another,
    // as in a session and outside of it.
    if (owner == geteuid() && !ioReached.insert(inName).second) return;
    const Sent sent = Send(socket.Get(), inDatagram);
    const bool stuck = IsStuck(inName);
    if (sent == Sent::kYes) {
      if (stuck) SetStuck(inName, false);
    } else if (sent == Sent::kFull && !stuck) {
      ioWaiting.push_back({inName, std::move(socket)});
    } else {
      Count(gCounters.postsLost);
    }
  });
}

// A connected datagram socket is writable when its peer's queue has room.
void WaitForRoom(const std::string& inDatagram, std::vector<Waiting>& ioWaiting) {
  const int64_t deadline = MonotonicNanos() + kPatience;
  while (!ioWaiting.empty()) {
    const int64_t left = deadline - MonotonicNanos();
    if (left <= 0) break;
    std::vector<pollfd> polls;
    polls.reserve(ioWaiting.size());
    for (const Waiting& waiting : ioWaiting) polls.push_back({waiting.socket.Get(), POLLOUT, 0});
    const timespec rest{left / kNanosPerSecond, left % kNanosPerSecond};
    if (ppoll(polls.data(), polls.size(), &rest, nullptr) <= 0) continue;
    std::vector<Waiting> still;
    for (size_t i = 0; i < polls.size(); ++i) {
      Sent sent = Sent::kFull;
      if (polls[i].revents) sent = Send(ioWaiting[i].socket.Get(), inDatagram);
      if (sent == Sent::kNo) Count(gCounters.postsLost);
      if (sent == Sent::kFull) still.push_back(std::move(ioWaiting[i]));
    }
    ioWaiting.swap(still);
  }
  for (const Waiting& waiting : ioWaiting) {
    Count(gCounters.postsLost);
    SetStuck(waiting.name, true);
  }
}

}  // namespace

void PostDatagram(const std::string& inDatagram, bool inToAllUsers) {
  std::vector<Waiting> waiting;
  std::set<std::string> reached;
  SendToPlace(Scope::kUser, inDatagram, waiting, reached);
  if (inToAllUsers) SendToPlace(Scope::kAllUsers, inDatagram, waiting, reached);
  WaitForRoom(inDatagram, waiting);
}

void SweepShared() {
  Descriptor directory = OpenPlace(Scope::kAllUsers);
  if (!directory) return;
  ForEachReceiver(directory, [&](const char* inName) {
    Descriptor socket;
    uid_t owner;
    if (ConnectReceiver(directory.Get(), inName, socket, owner) == Connection::kDead) {
      Sweep(directory, inName);
    }
  });
}

}  // namespace tembra::notifications
