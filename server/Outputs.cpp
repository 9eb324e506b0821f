#include "server/Outputs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

namespace tembra {

namespace {

constexpr size_t kMaxWaitingBytes = size_t{64} << 20;

uint64_t Nanos(double inSeconds) {
  return static_cast<uint64_t>(inSeconds * 1e9);
}

}  // namespace

Outputs::~Outputs() {
  if (mRecordedMix) mRecordedMix->Finish();
  if (mLiveMix) mLiveMix->Finish();
}

bool Outputs::Open(const Options& inOptions, std::string& outError) {
  mRate = inOptions.mRate;
  mRecordDir = inOptions.mRecordDir;
  mRecordFormat = inOptions.mRecordFormat;
  if (!mRecordDir.empty() && mkdir(mRecordDir.c_str(), 0777) != 0 && errno != EEXIST) {
    outError = "cannot make the folder '" + mRecordDir + "': " + strerror(errno);
    return false;
  }
  if (!mRecordDir.empty() && access(mRecordDir.c_str(), W_OK | X_OK) != 0) {
    outError = "cannot record into '" + mRecordDir + "': " + strerror(errno) +
               ". Name a folder that you may write to.";
    return false;
  }

  if (!inOptions.mBlockLog.empty()) {
    mBlockLog = BlockLog::Create(inOptions.mBlockLog, mNotices.mError, outError);
    if (mBlockLog == nullptr) return false;
  }

  MixerSettings settings;
  settings.mRate = inOptions.mRate;
  settings.mChannels = inOptions.mChannels;
  settings.mMaxGapFrames = static_cast<uint64_t>(inOptions.mMaxGap * inOptions.mRate);
  if (!inOptions.mRecord.empty()) {
    auto file =
        RecordingFile::Create(inOptions.mRecord, inOptions.mRate, inOptions.mChannels, outError);
    if (file == nullptr) return false;
    mWriter = std::make_unique<FileWriter>(kMaxWaitingBytes, mNotices.mError);
    mMixFile = mWriter->Adopt(std::move(file), inOptions.mChannels);
    settings.mHoldback = Nanos(inOptions.mMixDelay);
    mRecordedMix = std::make_unique<Mixer>(settings, [this](const float* inFrames, UInt32 inCount) {
      if (!mWriter->Write(mMixFile, 0, inFrames, inCount)) mMixLost = true;
    });
  }
  if (!mRecordDir.empty() && mWriter == nullptr) {
    mWriter = std::make_unique<FileWriter>(kMaxWaitingBytes, mNotices.mError);
  }

  const auto liveFrames =
      static_cast<uint64_t>(std::ceil(inOptions.mLatency * inOptions.mRate)) + 1024;
  if (inOptions.mPlay) {
    auto playback = PlaybackOutput::Open(*inOptions.mPlay, inOptions.mRate, inOptions.mChannels,
                                         liveFrames, mNotices.mError, outError);
    if (playback == nullptr) return false;
    mLive.push_back(std::move(playback));
  }
  if (inOptions.mToStandardOutput) {
    mLive.push_back(std::make_unique<RawOutput>(STDOUT_FILENO, inOptions.mChannels, liveFrames,
                                                mNotices.mReaderGone));
  }
  if (!mLive.empty()) {
    settings.mHoldback = Nanos(inOptions.mLatency / 2.0);
    settings.mSkipIdle = true;
    mLiveMix = std::make_unique<Mixer>(settings, [this](const float* inFrames, UInt32 inCount) {
      for (auto& output : mLive) output->Put(inFrames, inCount);
    });
  }
  return true;
}

void Outputs::BeginClient(uint64_t inSession, SInt32 inPID, double inRate, UInt32 inChannels,
                          std::string& outPath) {
  Client client;
  if (!mRecordDir.empty()) {
    outPath = mRecordDir + "/client-" + std::to_string(inPID) + "-" + std::to_string(inSession) +
              "." + mRecordFormat;
    client.mFile = mWriter->Open(outPath, inRate, inChannels);
  }
  client.mIsMixed = inRate == mRate;
  if (!client.mIsMixed && (mRecordedMix || mLiveMix)) {
    mNotices.mNote("client " + std::to_string(inPID) + " plays at " +
                   std::to_string(std::lround(inRate)) + " Hz and the mix has " +
                   std::to_string(std::lround(mRate)) +
                   " Hz, so it is not mixed; --rate sets the mix's");
  }
  mClients[inSession] = client;
}

void Outputs::Place(uint64_t inSession, uint64_t inHostTime, uint64_t inNow) {
  auto found = mClients.find(inSession);
  if (found == mClients.end() || !found->second.mIsMixed) return;
  if (mRecordedMix) mRecordedMix->Begin(inSession, inHostTime, inNow);
  if (mLiveMix) mLiveMix->Begin(inSession, inHostTime, inNow);
}

bool Outputs::Put(uint64_t inSession, uint64_t inSilence, const float* inFrames, UInt32 inChannels,
                  UInt32 inCount, uint64_t inHostTime, uint64_t inNow) {
  auto found = mClients.find(inSession);
  if (found == mClients.end()) return true;
  bool kept = true;
  if (found->second.mFile != 0) {
    kept = mWriter->Write(found->second.mFile, inSilence, inFrames, inCount);
  }
  if (!found->second.mIsMixed) return kept;
  mMixLost = false;
  if (mRecordedMix) {
    mRecordedMix->Add(inSession, inSilence, inFrames, inChannels, inCount, inHostTime, inNow);
  }
  if (mLiveMix) {
    mLiveMix->Add(inSession, inSilence, inFrames, inChannels, inCount, inHostTime, inNow);
  }
  return kept && !mMixLost;
}

void Outputs::EndClient(uint64_t inSession, uint64_t inNow) {
  auto found = mClients.find(inSession);
  if (found == mClients.end()) return;
  if (mRecordedMix) mRecordedMix->End(inSession, inNow);
  if (mLiveMix) mLiveMix->End(inSession, inNow);
  if (found->second.mFile != 0) mWriter->Close(found->second.mFile);
  mClients.erase(found);
}

void Outputs::Advance(uint64_t inNow) {
  if (mBlockLog) mBlockLog->Flush();
  if (mRecordedMix) mRecordedMix->Advance(inNow);
  if (mLiveMix) mLiveMix->Advance(inNow);
}

uint64_t Outputs::GetMixFrames() const {
  if (mRecordedMix) return mRecordedMix->GetFrames();
  return mLiveMix ? mLiveMix->GetFrames() : 0;
}

uint64_t Outputs::GetMixMoved() const {
  if (mRecordedMix) return mRecordedMix->GetMoved();
  return mLiveMix ? mLiveMix->GetMoved() : 0;
}

uint64_t Outputs::GetLiveDroppedFrames() {
  uint64_t dropped = 0;
  for (auto& output : mLive) dropped += output->GetDroppedFrames();
  return dropped;
}

}  // namespace tembra
