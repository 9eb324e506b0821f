#include "server/Server.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "client/Snd.h"
#include "client/TMBAudioServer.h"
#include "server/ClientFormat.h"

namespace tembra {

namespace {

constexpr uint64_t kSecond = 1000000000;
constexpr size_t kMaxSessions = 256;
constexpr size_t kMaxEnded = 64;
// A message takes a few hundred bytes; what is far longer would only cost time to read.
constexpr CFIndex kMaxMessage = 16384;
constexpr double kTick = 0.5;
constexpr double kLiveTick = 0.02;
// A client tries for about 1.1 seconds to open its data port.
constexpr uint64_t kOpenTime = 3 * kSecond / 2;
constexpr unsigned kQuickAttempts = 5;
// How long blocks may stay on their way after a client or the server said good-bye.
constexpr uint64_t kDrainTime = kSecond;
// How long a session without connections waits for one that was not taken yet.
constexpr uint64_t kLinger = kSecond / 2;
// After so many check intervals without an echo a client counts as gone.
constexpr double kChecksUntilDropped = 3.0;
constexpr uint64_t kReminderInterval = 10 * kSecond;

bool ProcessExists(SInt32 inPID) {
  return kill(inPID, 0) == 0 || errno != ESRCH;
}

uint64_t Nanos(double inSeconds) {
  return static_cast<uint64_t>(inSeconds * 1e9);
}

}  // namespace

Server::Server(const Options& inOptions)
    : mOptions(inOptions),
      mOutputs({[this](const std::string& inText) { Tell("tmbasrv: " + inText); },
                [this](const std::string& inText) { TellError(inText); },
                [this](const std::string& inText) {
                  TellError(inText);
                  Stop();
                }}),
      mStatistics(inOptions.mStatistics, inOptions.mJSON,
                  [this](const std::string& inText) { TellError(inText); }),
      mLoop(CFRunLoopGetCurrent()) {
  CFRetain(mLoop);
}

Server::~Server() {
  mSessions.clear();
  mDoomed.clear();
  mListener.reset();
  if (mTimer != nullptr) {
    CFRunLoopTimerInvalidate(mTimer);
    CFRelease(mTimer);
  }
  CFRelease(mLoop);
}

int Server::Run() {
  CFStringRef name = CFTmbSndCopyListenerID();
  ServerPort::Handler handler;
  handler.mMessage = [this](SInt32 inID, CFDataRef inData, const CFMessagePortPeer& inPeer) {
    HandleMessage(inID, inData, inPeer);
  };
  handler.mOpened = [this](const CFMessagePortPeer& inPeer) { HandlePeerOpened(inPeer); };
  handler.mClosed = [this](const CFMessagePortPeer& inPeer) { HandlePeerClosed(inPeer); };
  mListener = ServerPort::Create(name, std::move(handler));
  CFMessagePortRef other =
      mListener == nullptr ? CFMessagePortCreateRemote(kCFAllocatorDefault, name) : nullptr;
  CFRelease(name);
  if (other != nullptr) {
    CFMessagePortInvalidate(other);
    CFRelease(other);
    std::fprintf(stderr,
                 "tmbasrv: another audio server of this user (uid %u) is running; end it first, "
                 "or use it as it is\n",
                 static_cast<unsigned>(getuid()));
    return kExitOtherServer;
  }
  if (mListener == nullptr) {
    std::fprintf(stderr,
                 "tmbasrv: cannot make the listener port; XDG_RUNTIME_DIR must name a folder that "
                 "is yours and closed to others (mode 0700)\n");
    return kExitFailed;
  }
  // The port comes first, so that a server that is refused leaves no file changed.
  if (!Start()) return kExitFailed;
  while (!mStopRequested.load(std::memory_order_acquire)) {
    if (mOptions.mDuration > 0.0) {
      const uint64_t end = mStartedAt + Nanos(mOptions.mDuration);
      if (SndGetHostTime() >= end) break;
      RunLoopUntil(end);
    } else {
      CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1e6, false);
    }
  }
  Finish();
  return mFailed.load() ? kExitFailed : kExitOk;
}

void Server::Stop() {
  mStopRequested.store(true, std::memory_order_release);
  CFRunLoopStop(mLoop);
}

bool Server::Start() {
  std::string error;
  if (!mOutputs.Open(mOptions, error)) {
    std::fprintf(stderr, "tmbasrv: %s\n", error.c_str());
    return false;
  }
  mStartedAt = SndGetHostTime();
  mLastStatistics = mLastCheck = mLastReminder = mStartedAt;
  double interval = mOutputs.NeedsFrequentAdvance() ? kLiveTick : kTick;
  if (mStatistics.IsWanted() || mOptions.mMeter) interval = std::min(interval, mOptions.mInterval);
  CFRunLoopTimerContext context = {0, this, nullptr, nullptr, nullptr};
  mTimer = CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + interval,
                                interval, 0, 0, HandleTimer, &context);
  CFRunLoopAddTimer(mLoop, mTimer, kCFRunLoopCommonModes);
  mListener->Schedule(mLoop);

  for (int round = 0; round < 2; ++round) {
    mEvents.Post(kTMBAudioServerEventFinish);
    mEvents.Post(kTMBAudioServerEventStart);
  }
  mEvents.Drain();
  if (!mOptions.mPrivate) Tell("tmbasrv: " + mMachine.Publish());
  Tell("tmbasrv: ready (uid " + std::to_string(getuid()) + ", pid " + std::to_string(getpid()) +
       ")");
  if (mOptions.mReadyDescriptor >= 0) {
    const char ready[] = "ready\n";
    if (write(mOptions.mReadyDescriptor, ready, sizeof(ready) - 1) < 0) {
      TellError("cannot write to the descriptor given with --ready-fd");
    }
    close(mOptions.mReadyDescriptor);
  }
  return true;
}

void Server::Finish() {
  mFinishing = true;
  mMachine.Withdraw();
  mEvents.Post(kTMBAudioServerEventFinish);
  // Clients close their ports now, behind their last blocks.
  const uint64_t deadline = SndGetHostTime() + kDrainTime;
  auto anyOpen = [this] {
    for (const auto& [pid, session] : mSessions) {
      if (session->HasDataConnection()) return true;
    }
    return false;
  };
  CFRunLoopRunResult result = kCFRunLoopRunHandledSource;
  while ((result == kCFRunLoopRunHandledSource || anyOpen()) && SndGetHostTime() < deadline) {
    result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true);
  }
  while (!mSessions.empty()) EndSession(mSessions.begin()->first, false);
  mDoomed.clear();
  const ServerReport report = MakeReport(true);
  mListener.reset();
  mStatistics.Write(report);
  Tell(MakeText(report));
  mEvents.Drain();
}

void Server::RunLoopUntil(uint64_t inDeadline) {
  const uint64_t now = SndGetHostTime();
  if (now >= inDeadline) return;
  CFRunLoopRunInMode(kCFRunLoopDefaultMode, static_cast<double>(inDeadline - now) * 1e-9, false);
}

void Server::HandleTimer(CFRunLoopTimerRef, void* inServer) {
  static_cast<Server*>(inServer)->Tick();
}

void Server::HandleMessage(SInt32 inID, CFDataRef inData, const CFMessagePortPeer& inPeer) {
  ++mMessages;
  if (CFDataGetLength(inData) > kMaxMessage) {
    ++mBadMessages;
    return;
  }
  const TMBAudioClientInfo info(inData);
  // What a message says of its sender must be what the kernel says.
  if (info.GetClientPID() != inPeer.pid || info.GetClientUID() != inPeer.uid ||
      inPeer.uid != getuid()) {
    ++mBadMessages;
    return;
  }
  auto found = mSessions.find(inPeer.pid);
  if (found != mSessions.end()) found->second->NoteSign(SndGetHostTime());
  switch (inID) {
    case kTMBAudioMessageAddID:
      Add(info);
      break;
    case kTMBAudioMessageEchoID:
      if (found == mSessions.end()) Add(info);
      break;
    case kTMBAudioMessageDisposeID:
      Dispose(inPeer.pid);
      break;
    default:
      ++mBadMessages;
      break;
  }
}

void Server::HandlePeerOpened(const CFMessagePortPeer& inPeer) {
  mPeers[inPeer.connection] = {inPeer.pid, SndGetHostTime(), false};
}

void Server::HandlePeerClosed(const CFMessagePortPeer& inPeer) {
  mPeers.erase(inPeer.connection);
  ReviewSession(inPeer.pid);
}

void Server::Add(const TMBAudioClientInfo& inInfo) {
  if (mFinishing) return;
  const SInt32 pid = inInfo.GetClientPID();
  const std::string reason = WhyFormatIsRefused(inInfo.GetStreamDescription());
  if (!reason.empty()) {
    Refuse(inInfo, reason);
    return;
  }
  auto found = mSessions.find(pid);
  if (found != mSessions.end() && found->second->GetState() == ClientSession::State::kEnding) {
    if (found->second->HasDataConnection()) {
      found->second->KeepAdd(inInfo);
      return;
    }
    if (found->second->HadDataConnection()) {
      EndSession(pid, false);
      found = mSessions.end();
    } else {
      found->second->Revive();
    }
  }
  if (found != mSessions.end() && !found->second->HasFormat(inInfo.GetStreamDescription())) {
    EndSession(pid, false);
    found = mSessions.end();
  }
  if (found == mSessions.end()) {
    if (mSessions.size() >= kMaxSessions) {
      Refuse(inInfo, "there are " + std::to_string(kMaxSessions) + " clients already");
      return;
    }
    auto session = ClientSession::Create(
        mNextSession, inInfo, mOutputs, mOptions.mMeter || mStatistics.IsWanted(), mOptions.mMaxGap,
        mLoop, [this, pid] { ReviewSession(pid); });
    if (session == nullptr) {
      Refuse(inInfo, "its data port's name is taken by another process");
      return;
    }
    ++mNextSession;
    ++mClientsSeen;
    found = mSessions.emplace(pid, std::move(session)).first;
  }
  // The data port exists now, so the client may be told.
  const uint64_t now = SndGetHostTime();
  found->second->NoteSign(now);
  found->second->NoteAdded(now);
  mEvents.PostAbout(kTMBAudioServerEventClientAdded, pid);
}

void Server::Refuse(const TMBAudioClientInfo& inInfo, const std::string& inReason) {
  ++mClientsRefused;
  if (mLastRefused == inInfo.GetClientPID()) return;
  mLastRefused = inInfo.GetClientPID();
  std::fprintf(stderr, "tmbasrv: client %d is refused: %s\n", inInfo.GetClientPID(),
               inReason.c_str());
}

void Server::Dispose(SInt32 inPID) {
  auto found = mSessions.find(inPID);
  if (found == mSessions.end()) return;
  found->second->NoteDispose(SndGetHostTime());
  ReviewSession(inPID);
}

void Server::ReviewSession(SInt32 inPID) {
  auto found = mSessions.find(inPID);
  if (found == mSessions.end() || found->second->HasDataConnection()) return;
  // A connection with blocks in it may still wait to be taken, for what was said on the listener
  // port came another way: unless the client is back already, the checks end the session later.
  const std::optional<TMBAudioClientInfo> kept = found->second->GetKeptAdd();
  if (!kept) return;
  EndSession(inPID, false);
  Add(*kept);
}

void Server::EndSession(SInt32 inPID, bool inDropped) {
  auto found = mSessions.find(inPID);
  if (found == mSessions.end()) return;
  if (inDropped) ++mClientsDropped;
  std::unique_ptr<ClientSession> session = std::move(found->second);
  mSessions.erase(found);
  session->GetStream().Finish(SndGetHostTime());
  ClientReport report = session->Report();
  report.mState = inDropped ? "dropped" : "ended";
  mEnded.push_back(std::move(report));
  if (mEnded.size() > kMaxEnded) mEnded.pop_front();
  session->Close();
  // The session may be further up the stack, so it goes when the loop is back at its bottom.
  mDoomed.push_back(std::move(session));
  CFRunLoopPerformBlock(mLoop, kCFRunLoopCommonModes, ^{
    mDoomed.clear();
  });
  CFRunLoopWakeUp(mLoop);
}

bool Server::HasListenerPeer(SInt32 inPID) const {
  for (const auto& [connection, peer] : mPeers) {
    if (peer.mPID == inPID) return true;
  }
  return false;
}

void Server::Tick() {
  const uint64_t now = SndGetHostTime();
  mOutputs.Advance(now);
  if (now - mLastCheck >= Nanos(kTick * 0.9) || IsAnyEnding()) {
    mLastCheck = now;
    CheckSessions(now);
    CheckPeers(now);
  }
  if (now - mLastReminder >= kReminderInterval) {
    mLastReminder = now;
    mEvents.Post(kTMBAudioServerEventStart);
  }
  if (now - mLastStatistics >= Nanos(mOptions.mInterval * 0.95)) {
    mLastStatistics = now;
    if (mStatistics.IsWanted() || mOptions.mMeter) {
      const ServerReport report = MakeReport(false);
      mStatistics.Write(report);
      if (mOptions.mMeter) std::fprintf(stderr, "%s\n", MakeMeterLine(report).c_str());
    }
  }
}

bool Server::IsAnyEnding() const {
  for (const auto& [pid, session] : mSessions) {
    if (session->GetState() == ClientSession::State::kEnding) return true;
  }
  return false;
}

void Server::CheckSessions(uint64_t inNow) {
  std::vector<SInt32> dead;
  std::vector<SInt32> silent;
  std::vector<SInt32> ending;
  bool ask = false;
  for (auto& [pid, session] : mSessions) {
    const uint64_t quiet = inNow - session->GetLastSign();
    const uint64_t since = inNow - session->GetStateSince();
    const bool cutOff = !HasListenerPeer(pid) && !session->HasDataConnection();
    if (session->GetState() == ClientSession::State::kEnding) {
      // A backlog is read to its end, however long that takes.
      const uint64_t patience = session->HasDataConnection() ? kDrainTime : kLinger;
      if (since >= patience && quiet >= patience) ending.push_back(pid);
      continue;
    }
    if ((!ProcessExists(pid) || cutOff) && since >= kLinger && quiet >= kLinger) {
      dead.push_back(pid);
    } else if (!session->HasDataConnection() && since >= kOpenTime &&
               (session->GetAddAttempts() <= kQuickAttempts ||
                since >= Nanos(mOptions.mCheckInterval))) {
      session->NoteAdded(inNow);
      mEvents.PostAbout(kTMBAudioServerEventClientDeleted, pid);
      mEvents.PostAbout(kTMBAudioServerEventClientAdded, pid);
    }
    // Only a client with a listener port can answer.
    if (!HasListenerPeer(pid)) continue;
    if (quiet >= Nanos(mOptions.mCheckInterval)) ask = true;
    if (quiet >= Nanos(mOptions.mCheckInterval * kChecksUntilDropped)) silent.push_back(pid);
  }
  for (SInt32 pid : dead) EndSession(pid, true);
  for (SInt32 pid : ending) {
    const std::optional<TMBAudioClientInfo> kept = mSessions.at(pid)->GetKeptAdd();
    EndSession(pid, false);
    if (kept) Add(*kept);
  }
  for (SInt32 pid : silent) {
    if (mSessions.count(pid) == 0) continue;
    EndSession(pid, true);
    mEvents.PostAbout(kTMBAudioServerEventClientDeleted, pid);
  }
  if (ask && inNow - mLastQuestion >= Nanos(mOptions.mCheckInterval)) {
    mLastQuestion = inNow;
    mEvents.Post(kTMBAudioServerEventClientCheck);
  }
}

void Server::CheckPeers(uint64_t inNow) {
  for (auto& [connection, peer] : mPeers) {
    const uint64_t patience = peer.mAsked ? Nanos(mOptions.mCheckInterval)
                                          : std::min(kSecond, Nanos(mOptions.mCheckInterval));
    if (mSessions.count(peer.mPID) != 0 || inNow - peer.mAskedAt < patience) continue;
    peer.mAskedAt = inNow;
    peer.mAsked = true;
    mEvents.PostAbout(kTMBAudioServerEventClientCheck, peer.mPID);
  }
}

ServerReport Server::MakeReport(bool inFinal) {
  ServerReport report;
  report.mUID = getuid();
  report.mPID = getpid();
  report.mUptime = static_cast<double>(SndGetHostTime() - mStartedAt) * 1e-9;
  report.mFinal = inFinal;
  report.mClientsSeen = mClientsSeen;
  report.mClientsRefused = mClientsRefused;
  report.mClientsDropped = mClientsDropped;
  report.mMessages = mMessages;
  report.mBadMessages = mBadMessages;
  report.mListener = mListener->GetStatistics();
  report.mMixFrames = mOutputs.GetMixFrames();
  report.mMixMoved = mOutputs.GetMixMoved();
  report.mWriterLostFrames = mOutputs.GetWriterLostFrames();
  report.mLiveDroppedFrames = mOutputs.GetLiveDroppedFrames();
  for (auto& [pid, session] : mSessions) report.mClients.push_back(session->Report());
  report.mEnded.assign(mEnded.begin(), mEnded.end());
  return report;
}

void Server::Tell(const std::string& inText) {
  if (mOptions.mQuiet) return;
  std::fputs(inText.c_str(), stderr);
  if (!inText.empty() && inText.back() != '\n') std::fputc('\n', stderr);
}

void Server::TellError(const std::string& inText) {
  mFailed.store(true);
  std::fprintf(stderr, "tmbasrv: %s\n", inText.c_str());
}

}  // namespace tembra
