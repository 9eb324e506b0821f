#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "server/ClientStream.h"
#include "server/ServerPort.h"

namespace tembra {

// One registered client: its data port, its audio, and what the server knows of its life.
//
// Thread: the server's loop. Ownership: the port and the stream.
// Units: nanoseconds of the host clock. Failure: Create answers null if the data port's name is
// taken.
class ClientSession {
 public:
  enum class State {
    kAdded,      // told that its data port is there, which it has not opened yet
    kStreaming,  // the data port is open
    kEnding,     // has said good-bye; blocks may still be on their way
  };

  // inOnChange is called when a connection of the data port went or came.
  static std::unique_ptr<ClientSession> Create(uint64_t inSession, const TMBAudioClientInfo& inInfo,
                                               Outputs& inOutputs, bool inWantsLevels,
                                               double inMaxGapSeconds, CFRunLoopRef inLoop,
                                               std::function<void()> inOnChange);
  ~ClientSession();
  // Closes the port and ends the stream. May be called from the port's own callbacks.
  void Close();

  SInt32 GetPID() const { return mStream.GetInfo().GetClientPID(); }
  State GetState() const { return mState; }
  bool HasDataConnection() const { return !mConnections.empty(); }
  // Whether the data port was ever open. If not, a connection with blocks in it may still wait to
  // be taken, for the good-bye came through another port.
  bool HadDataConnection() const { return mHadConnection; }
  ClientStream& GetStream() { return mStream; }
  // Whether a client that registers anew can go on with this session.
  bool HasFormat(const AudioStreamBasicDescription& inFormat) const;

  // The client was told that it was added; it now has a while to open the data port.
  void NoteAdded(uint64_t inNow);
  void NoteSign(uint64_t inNow) { mLastSign = inNow; }
  void NoteDispose(uint64_t inNow);
  // The client that said good-bye is back before a block of it was seen.
  void Revive() { mState = State::kAdded; }
  // An add that came while the session was ending.
  void KeepAdd(const TMBAudioClientInfo& inInfo) { mKeptAdd.emplace(inInfo); }
  const std::optional<TMBAudioClientInfo>& GetKeptAdd() const { return mKeptAdd; }

  uint64_t GetLastSign() const { return mLastSign; }
  uint64_t GetStateSince() const { return mStateSince; }
  unsigned GetAddAttempts() const { return mAddAttempts; }

  ClientReport Report();

 private:
  ClientSession(uint64_t inSession, const TMBAudioClientInfo& inInfo, Outputs& inOutputs,
                bool inWantsLevels, double inMaxGapSeconds);
  void HandleMessage(SInt32 inID, CFDataRef inData, const CFMessagePortPeer& inPeer);
  void HandleClosed(const CFMessagePortPeer& inPeer);

  ClientStream mStream;
  std::unique_ptr<ServerPort> mPort;
  std::function<void()> mOnChange;
  State mState = State::kAdded;
  std::set<UInt64> mConnections;  // those of the client itself
  bool mHadConnection = false;
  uint64_t mLastSign = 0;
  uint64_t mStateSince = 0;
  unsigned mAddAttempts = 0;
  std::optional<TMBAudioClientInfo> mKeptAdd;
};

}  // namespace tembra
