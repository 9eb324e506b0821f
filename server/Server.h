#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "server/ClientSession.h"
#include "server/EventPoster.h"
#include "server/MachineStatus.h"
#include "server/Options.h"
#include "server/Outputs.h"
#include "server/ServerPort.h"
#include "server/StatisticsWriter.h"

namespace tembra {

// The audio server of one user: owns the listener port, registers clients, opens a data port for
// each, feeds the outputs, and ends cleanly.
//
// A client may be left in a state from which the plain events do not bring it back, above all when
// a server died without a word. The server makes up for it:
//   - At the start it posts finish, start, finish, start. The first finish frees clients that still
//     hold a dead server's ports. One that was waiting for its data port keeps its listener port
//     through that; the start after it leads such a client nowhere, but the second finish closes
//     that port, and the second start registers it like any other.
//   - A process that is connected to the listener port but not registered is asked for an echo; an
//     echo carries all that an add does, and counts as one.
//   - A client that was added but does not open its data port in time has spent its attempts or has
//     none under way: it is told that it was deleted and then added again, which makes it try.
//   - A start is posted again now and then, for a client that missed it.
// A client whose listener port is open to a server that died, and that starts its engine only after
// the new server's start, holds a port that counts as open but is dead. It cannot be heard, so only
// a finish would free it, and that would interrupt everybody else: it plays into silence until the
// next start of a server.
//
// Thread: Run's; Stop from any. Units: nanoseconds of the host clock.
// Failure: Run's answer is the process's exit status; errors are told on standard error.
class Server {
 public:
  explicit Server(const Options& inOptions);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Runs until Stop.
  int Run();
  // Posts finish, takes in what is on its way, and ends Run. Any thread; also before Run.
  void Stop();

 private:
  struct Peer {
    SInt32 mPID = 0;
    uint64_t mAskedAt = 0;  // when it was last asked for an echo; at first, when it came
    bool mAsked = false;
  };

  bool Start();
  void Finish();
  void RunLoopUntil(uint64_t inDeadline);
  static void HandleTimer(CFRunLoopTimerRef inTimer, void* inServer);

  void HandleMessage(SInt32 inID, CFDataRef inData, const CFMessagePortPeer& inPeer);
  void HandlePeerOpened(const CFMessagePortPeer& inPeer);
  void HandlePeerClosed(const CFMessagePortPeer& inPeer);
  void Add(const TMBAudioClientInfo& inInfo);
  void Refuse(const TMBAudioClientInfo& inInfo, const std::string& inReason);
  void Dispose(SInt32 inPID);
  // A connection went or came: a client that is back already need not wait any longer.
  void ReviewSession(SInt32 inPID);
  void EndSession(SInt32 inPID, bool inDropped);
  bool HasListenerPeer(SInt32 inPID) const;

  void Tick();
  bool IsAnyEnding() const;
  void CheckSessions(uint64_t inNow);
  void CheckPeers(uint64_t inNow);
  ServerReport MakeReport(bool inFinal);
  void Tell(const std::string& inText);
  void TellError(const std::string& inText);

  const Options mOptions;
  EventPoster mEvents;
  Outputs mOutputs;
  StatisticsWriter mStatistics;
  MachineStatus mMachine;
  CFRunLoopRef mLoop = nullptr;
  CFRunLoopTimerRef mTimer = nullptr;
  std::unique_ptr<ServerPort> mListener;
  std::map<UInt64, Peer> mPeers;  // connections of the listener port
  std::map<SInt32, std::unique_ptr<ClientSession>> mSessions;
  std::vector<std::unique_ptr<ClientSession>> mDoomed;  // ended within their own callbacks
  std::deque<ClientReport> mEnded;
  std::atomic<bool> mStopRequested{false};
  std::atomic<bool> mFailed{false};
  bool mFinishing = false;
  uint64_t mStartedAt = 0;
  uint64_t mLastStatistics = 0;
  uint64_t mLastCheck = 0;
  uint64_t mLastReminder = 0;
  uint64_t mLastQuestion = 0;
  uint64_t mNextSession = 1;
  uint64_t mClientsSeen = 0;
  uint64_t mClientsRefused = 0;
  uint64_t mClientsDropped = 0;
  uint64_t mMessages = 0;
  uint64_t mBadMessages = 0;
  SInt32 mLastRefused = 0;
};

}  // namespace tembra
