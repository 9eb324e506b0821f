#include "server/ClientSession.h"

#include <utility>

#include "client/Snd.h"
#include "client/TMBAudioServer.h"

namespace tembra {

std::unique_ptr<ClientSession> ClientSession::Create(uint64_t inSession,
                                                     const TMBAudioClientInfo& inInfo,
                                                     Outputs& inOutputs, bool inWantsLevels,
                                                     double inMaxGapSeconds, CFRunLoopRef inLoop,
                                                     std::function<void()> inOnChange) {
  CFStringRef name = CFTmbSndCopyPortID(inInfo.GetClientPID());
  // The handlers reach the session through this, since the port comes before it: a session whose
  // port cannot be had would leave an empty recording behind.
  auto self = std::make_shared<ClientSession*>(nullptr);
  ServerPort::Handler handler;
  handler.mMessage = [self](SInt32 inID, CFDataRef inData, const CFMessagePortPeer& inPeer) {
    (*self)->HandleMessage(inID, inData, inPeer);
  };
  handler.mOpened = [self](const CFMessagePortPeer& inPeer) {
    ClientSession& session = **self;
    if (inPeer.pid != session.GetPID()) return;
    session.mConnections.insert(inPeer.connection);
    session.mHadConnection = true;
    session.mAddAttempts = 0;
    if (session.mState == State::kAdded) session.mState = State::kStreaming;
    session.NoteSign(SndGetHostTime());
    session.mOnChange();
  };
  handler.mClosed = [self](const CFMessagePortPeer& inPeer) { (*self)->HandleClosed(inPeer); };
  auto port = ServerPort::Create(name, std::move(handler));
  CFRelease(name);
  if (port == nullptr) return nullptr;

  std::unique_ptr<ClientSession> session(
      new ClientSession(inSession, inInfo, inOutputs, inWantsLevels, inMaxGapSeconds));
  *self = session.get();
  session->mPort = std::move(port);
  session->mOnChange = std::move(inOnChange);
  session->mPort->Schedule(inLoop);
  return session;
}

ClientSession::ClientSession(uint64_t inSession, const TMBAudioClientInfo& inInfo,
                             Outputs& inOutputs, bool inWantsLevels, double inMaxGapSeconds)
    : mStream(inSession, inInfo, inOutputs, inWantsLevels, inMaxGapSeconds) {}

ClientSession::~ClientSession() {
  Close();
}

void ClientSession::Close() {
  mPort.reset();
  mStream.Finish(SndGetHostTime());
}

bool ClientSession::HasFormat(const AudioStreamBasicDescription& inFormat) const {
  const AudioStreamBasicDescription mine = mStream.GetInfo().GetStreamDescription();
  return mine.mSampleRate == inFormat.mSampleRate &&
         mine.mChannelsPerFrame == inFormat.mChannelsPerFrame;
}

void ClientSession::NoteAdded(uint64_t inNow) {
  ++mAddAttempts;
  mStateSince = inNow;
}

void ClientSession::NoteDispose(uint64_t inNow) {
  mState = State::kEnding;
  mStateSince = inNow;
}

void ClientSession::HandleMessage(SInt32 inID, CFDataRef inData, const CFMessagePortPeer& inPeer) {
  if (inPeer.pid != GetPID()) {
    // Nobody else has business on this port; one refused message tells, more would only cost.
    mStream.CountRejected(BlockVerdict::kWrongSender);
    mPort->ClosePeer(inPeer.connection);
    return;
  }
  const uint64_t now = SndGetHostTime();
  NoteSign(now);
  if (inID != kTMBAudioMessageDataID) {
    mStream.CountRejected(BlockVerdict::kWrongMessage);
    return;
  }
  mStream.Accept(inData, now);
}

void ClientSession::HandleClosed(const CFMessagePortPeer& inPeer) {
  if (mConnections.erase(inPeer.connection) == 0) return;
  if (mConnections.empty()) {
    if (mState == State::kStreaming) mState = State::kAdded;
    mStateSince = SndGetHostTime();
  }
  mOnChange();
}

ClientReport ClientSession::Report() {
  ClientReport report;
  mStream.Report(report);
  if (mPort != nullptr) report.mPort = mPort->GetStatistics();
  switch (mState) {
    case State::kAdded:
      report.mState = "added";
      break;
    case State::kStreaming:
      report.mState = "streaming";
      break;
    case State::kEnding:
      report.mState = "ending";
      break;
  }
  return report;
}

}  // namespace tembra
