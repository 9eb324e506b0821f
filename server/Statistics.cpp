#include "server/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

namespace tembra {

namespace {

// A number with fixed decimals; snprintf would follow the locale.
std::string Fixed(double inValue, int inDecimals) {
  double scale = 1.0;
  for (int i = 0; i < inDecimals; ++i) scale *= 10.0;
  const bool negative = inValue < 0.0;
  const auto scaled = static_cast<UInt64>(std::llround(std::min(std::fabs(inValue), 1e15) * scale));
  std::string digits = std::to_string(scaled);
  const size_t wanted = static_cast<size_t>(inDecimals) + 1;
  if (digits.size() < wanted) digits.insert(0, wanted - digits.size(), '0');
  if (inDecimals > 0) digits.insert(digits.size() - static_cast<size_t>(inDecimals), ".");
  return (negative && scaled != 0 ? "-" : "") + digits;
}

std::string Milliseconds(SInt64 inNanos) {
  return Fixed(static_cast<double>(inNanos) * 1e-6, 3) + " ms";
}

nlohmann::json Decibels(double inAmplitude) {
  // JSON has no infinity.
  if (!(inAmplitude > 0.0)) return nullptr;
  return 20.0 * std::log10(inAmplitude);
}

// What a port turned away, before anybody looked at a message.
nlohmann::json MakeJSON(const CFMessagePortStatistics& inPort) {
  return {{"accepted", inPort.accepted},
          {"refused_user", inPort.refusedUser},
          {"refused_limit", inPort.refusedLimit},
          {"refused_no_file", inPort.refusedNoFile},
          {"closed", inPort.closed},
          {"silent", inPort.silent},
          {"malformed", inPort.malformed},
          {"oversized", inPort.oversized},
          {"messages", inPort.messages},
          {"closed_full", inPort.closedFull}};
}

nlohmann::json MakeJSON(const ClientReport& inClient) {
  nlohmann::json rejected = nlohmann::json::object();
  for (size_t i = 1; i < kBlockVerdicts; ++i) {
    rejected[GetBlockVerdictName(static_cast<BlockVerdict>(i))] = inClient.mRejected[i];
  }
  nlohmann::json json = {
      {"session", inClient.mSession},
      {"pid", inClient.mPID},
      {"state", inClient.mState},
      {"rate", inClient.mRate},
      {"channels", inClient.mChannels},
      {"blocks", inClient.mBlocks},
      {"frames", inClient.mFrames},
      {"bytes", inClient.mBytes},
      {"gaps", inClient.mGaps},
      {"silence_frames", inClient.mSilenceFrames},
      {"resets", inClient.mResets},
      {"surplus_frames", inClient.mSurplusFrames},
      {"late", inClient.mLate},
      {"lost", inClient.mLost},
      {"rejected", inClient.GetRejected()},
      {"rejected_by_reason", rejected},
      {"data_port", MakeJSON(inClient.mPort)},
      {"delay_ns",
       {{"count", inClient.mDelays},
        {"median", inClient.mDelayMedian},
        {"p99", inClient.mDelayP99},
        {"max", inClient.mDelayMax}}},
      {"since_cycle_ns",
       {{"median", inClient.mSinceCycleMedian}, {"p99", inClient.mSinceCycleP99}}},
  };
  json["recording"] =
      inClient.mRecording.empty() ? nlohmann::json() : nlohmann::json(inClient.mRecording);
  if (inClient.mHasLevels) {
    json["level"] = {{"peak_db", Decibels(inClient.mPeak)},
                     {"recent_peak_db", Decibels(inClient.mRecentPeak)},
                     {"rms_db", Decibels(inClient.mRootMeanSquare)}};
  }
  return json;
}

std::string MakeText(const ClientReport& inClient) {
  std::string text = "client " + std::to_string(inClient.mPID) + " (" + inClient.mState + ", " +
                     Fixed(inClient.mRate, 0) + " Hz, " + std::to_string(inClient.mChannels) +
                     " ch)\n";
  text += "  blocks " + std::to_string(inClient.mBlocks) + ", frames " +
          std::to_string(inClient.mFrames) + ", bytes " + std::to_string(inClient.mBytes) +
          ", late " + std::to_string(inClient.mLate) + ", lost " + std::to_string(inClient.mLost) +
          ", rejected " + std::to_string(inClient.GetRejected()) + "\n";
  text += "  gaps " + std::to_string(inClient.mGaps) + ", silence " +
          std::to_string(inClient.mSilenceFrames) + " frames, resets " +
          std::to_string(inClient.mResets) + "\n";
  for (size_t i = 1; i < kBlockVerdicts; ++i) {
    if (inClient.mRejected[i] == 0) continue;
    text += std::string("  rejected ") + GetBlockVerdictName(static_cast<BlockVerdict>(i)) + ": " +
            std::to_string(inClient.mRejected[i]) + "\n";
  }
  if (inClient.mDelays > 0) {
    text += "  delay since the cycle began: median " + Milliseconds(inClient.mSinceCycleMedian) +
            ", p99 " + Milliseconds(inClient.mSinceCycleP99) + "; before it was due: median " +
            Milliseconds(-inClient.mDelayMedian) + ", p99 " + Milliseconds(-inClient.mDelayP99) +
            "\n";
  }
  if (inClient.mHasLevels) {
    text += "  level: peak " + MakeDecibels(inClient.mPeak) + ", mean " +
            MakeDecibels(inClient.mRootMeanSquare) + "\n";
  }
  if (!inClient.mRecording.empty()) text += "  recording: " + inClient.mRecording + "\n";
  return text;
}

}  // namespace

UInt64 ClientReport::GetRejected() const {
  return std::accumulate(mRejected.begin() + 1, mRejected.end(), UInt64{0});
}

std::string MakeDecibels(double inAmplitude) {
  if (!(inAmplitude > 0.0)) return "-inf dB";
  return Fixed(20.0 * std::log10(inAmplitude), 1) + " dB";
}

nlohmann::json MakeJSON(const ServerReport& inReport) {
  nlohmann::json clients = nlohmann::json::array();
  nlohmann::json ended = nlohmann::json::array();
  for (const ClientReport& client : inReport.mClients) clients.push_back(MakeJSON(client));
  for (const ClientReport& client : inReport.mEnded) ended.push_back(MakeJSON(client));
  return {{"version", 1},
          {"final", inReport.mFinal},
          {"server",
           {{"uid", inReport.mUID},
            {"pid", inReport.mPID},
            {"uptime_s", inReport.mUptime},
            {"clients_seen", inReport.mClientsSeen},
            {"clients_refused", inReport.mClientsRefused},
            {"clients_dropped", inReport.mClientsDropped},
            {"messages", inReport.mMessages},
            {"bad_messages", inReport.mBadMessages},
            {"listener_port", MakeJSON(inReport.mListener)},
            {"mix_frames", inReport.mMixFrames},
            {"mix_moved", inReport.mMixMoved},
            {"writer_lost_frames", inReport.mWriterLostFrames},
            {"live_dropped_frames", inReport.mLiveDroppedFrames}}},
          {"clients", clients},
          {"ended", ended}};
}

std::string MakeText(const ServerReport& inReport) {
  std::string text = "server of uid " + std::to_string(inReport.mUID) + " (pid " +
                     std::to_string(inReport.mPID) + "), up " + Fixed(inReport.mUptime, 1) +
                     " s: clients " + std::to_string(inReport.mClients.size()) + ", seen " +
                     std::to_string(inReport.mClientsSeen) + ", refused " +
                     std::to_string(inReport.mClientsRefused) + ", dropped " +
                     std::to_string(inReport.mClientsDropped) + "; bad messages " +
                     std::to_string(inReport.mBadMessages) + "\n";
  if (inReport.mWriterLostFrames > 0) {
    text += "the disk was too slow: " + std::to_string(inReport.mWriterLostFrames) +
            " frames were not recorded; silence is in their place\n";
  }
  if (inReport.mLiveDroppedFrames > 0) {
    text += "the output was too slow: " + std::to_string(inReport.mLiveDroppedFrames) +
            " frames were left out\n";
  }
  for (const ClientReport& client : inReport.mClients) text += MakeText(client);
  for (const ClientReport& client : inReport.mEnded) text += MakeText(client);
  return text;
}

std::string MakeMeterLine(const ServerReport& inReport) {
  constexpr int kWidth = 24;
  constexpr double kFloor = -60.0;
  std::string line;
  for (const ClientReport& client : inReport.mClients) {
    const double level = client.mRecentPeak > 0.0f
                             ? 20.0 * std::log10(static_cast<double>(client.mRecentPeak))
                             : kFloor;
    const int filled =
        static_cast<int>(std::lround(std::clamp((level - kFloor) / -kFloor, 0.0, 1.0) * kWidth));
    if (!line.empty()) line += "  ";
    line += std::to_string(client.mPID) + " [" + std::string(static_cast<size_t>(filled), '#') +
            std::string(static_cast<size_t>(kWidth - filled), ' ') + "] " +
            MakeDecibels(client.mRecentPeak);
  }
  return line.empty() ? "(no client)" : line;
}

}  // namespace tembra
