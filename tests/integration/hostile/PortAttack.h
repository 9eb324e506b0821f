#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Hostile.h"
#include "ports/PortWire.h"

namespace tembra::test {

// Which of the server's ports is attacked.
enum class Target { kListener, kOwnData, kOtherData };
constexpr std::size_t kTargets = 3;

// Hostile messages to the ports of a server: what breaks the wire format, each on a connection of
// its own, and what keeps to it but means nothing good, from raw sockets and message ports alike.
// It keeps count of what the server should have counted when it has taken in all of it.
//
// Thread: one. Ownership: its sockets and ports.
// Failure: an empty answer or false; errno tells.
class PortAttack {
 public:
  struct Tally {
    std::uint64_t sent = 0;            // messages of any kind
    std::uint64_t connections = 0;     // raw ones
    std::uint64_t malformed = 0;       // connections to be closed for it
    std::uint64_t maybeMalformed = 0;  // ended by an empty packet, which may look like the end
    std::uint64_t oversized = 0;
    std::uint64_t messages = 0;  // well-formed
  };

  explicit PortAttack(std::uint64_t inSeed);
  ~PortAttack();
  PortAttack(const PortAttack&) = delete;
  PortAttack& operator=(const PortAttack&) = delete;

  // This process registers like any client, so that it has a data port of its own to misuse.
  bool BecomeClient();
  // Messages to another client's data port reach nobody when that client has gone.
  void AimAtClient(pid_t inClient);
  // Sends so many; false if a port that should be there was not, or a send never ended.
  bool Send(unsigned inCount);
  // Ends its raw connections.
  void CloseConnections();

  const Tally& To(Target inTarget) const { return mTallies[static_cast<std::size_t>(inTarget)]; }
  std::uint64_t Sent() const;
  std::uint64_t BadMessages() const { return mBadMessages; }
  std::uint64_t RefusedFormats() const { return mRefusedFormats; }
  // Least numbers of blocks refused for a reason.
  const std::map<std::string, std::uint64_t>& Rejected() const { return mRejected; }

 private:
  Tally& TallyOf(Target inTarget) { return mTallies[static_cast<std::size_t>(inTarget)]; }
  bool Connect(Target inTarget, Descriptor& outSocket);
  bool Break(Target inTarget);
  bool SendOversized(Target inTarget, Descriptor& ioSocket);
  bool Misuse(Target inTarget);
  // Well-formed, on a connection that lasts.
  bool Speak(Target inTarget, SInt32 inID, const std::string& inBody);
  bool SendThroughPort(Target inTarget, SInt32 inID, const std::string& inBody);
  std::string MakeListenerBody(SInt32& outID);
  std::string MakeBlock(SInt32& outID);
  // A wrong message for a new connection, after the greeting.
  std::string MakeBroken();

  Random mRandom;
  std::array<Tally, kTargets> mTallies;
  std::array<Descriptor, kTargets> mFiles;
  std::array<Descriptor, kTargets> mTalks;
  std::array<unsigned, kTargets> mSpoken{};
  CFMessagePortRef mListenerPort = nullptr;
  CFMessagePortRef mDataPort = nullptr;
  std::string mClaim;  // a full message in another process's name
  std::string mGoodBlock;
  bool mLargeFits = false;  // the system lets messages of the greatest length go
  std::uint64_t mBadMessages = 0;
  std::uint64_t mRefusedFormats = 0;
  std::map<std::string, std::uint64_t> mRejected;
};

}  // namespace tembra::test
