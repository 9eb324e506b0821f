#include "server/Statistics.h"

#include <gtest/gtest.h>

#include <cmath>

#include "server/LevelMeter.h"
#include "support/CommaLocale.h"

namespace tembra {
namespace {

ServerReport Report() {
  ServerReport report;
  report.mUID = 1000;
  report.mPID = 42;
  report.mUptime = 12.345;
  report.mClientsSeen = 3;
  ClientReport client;
  client.mSession = 2;
  client.mPID = 77;
  client.mState = "streaming";
  client.mRate = 44100.0;
  client.mChannels = 2;
  client.mBlocks = 132;
  client.mFrames = 67584;
  client.mBytes = 100;
  client.mLate = 1;
  client.mRejected[static_cast<size_t>(BlockVerdict::kTruncated)] = 4;
  client.mRejected[static_cast<size_t>(BlockVerdict::kBadTime)] = 1;
  client.mDelays = 132;
  client.mDelayMedian = -11200000;
  client.mDelayP99 = -10000000;
  client.mSinceCycleMedian = 409977;
  client.mHasLevels = true;
  client.mPeak = 0.5f;
  client.mRootMeanSquare = 0.0;
  client.mPort.oversized = 9;
  report.mClients.push_back(client);
  report.mListener.refusedUser = 6;
  return report;
}

}  // namespace

TEST(StatisticsJSON, HoldsTheCounters) {
  const nlohmann::json json = nlohmann::json::parse(MakeJSON(Report()).dump());
  EXPECT_EQ(json["version"], 1);
  EXPECT_EQ(json["final"], false);
  EXPECT_EQ(json["server"]["pid"], 42);
  EXPECT_EQ(json["server"]["clients_seen"], 3);
  const auto& client = json["clients"][0];
  EXPECT_EQ(client["pid"], 77);
  EXPECT_EQ(client["blocks"], 132);
  EXPECT_EQ(client["rejected"], 5);
  EXPECT_EQ(client["rejected_by_reason"]["truncated"], 4);
  EXPECT_EQ(client["rejected_by_reason"]["bad_time"], 1);
  EXPECT_EQ(client["rejected_by_reason"]["no_buffers"], 0);
  EXPECT_EQ(client["rejected_by_reason"].count("ok"), 0u);
  EXPECT_EQ(client["delay_ns"]["median"], -11200000);
  EXPECT_NEAR(client["level"]["peak_db"].get<double>(), -6.0206, 1e-3);
  EXPECT_TRUE(client["level"]["rms_db"].is_null());
  EXPECT_TRUE(client["recording"].is_null());
  EXPECT_EQ(client["data_port"]["oversized"], 9);
  EXPECT_EQ(json["server"]["listener_port"]["refused_user"], 6);
  EXPECT_EQ(json["server"]["listener_port"]["malformed"], 0);
  EXPECT_TRUE(json["ended"].empty());
}

TEST(StatisticsText, SaysTheSame) {
  const std::string text = MakeText(Report());
  EXPECT_NE(text.find("client 77 (streaming, 44100 Hz, 2 ch)"), std::string::npos) << text;
  EXPECT_NE(text.find("blocks 132, frames 67584"), std::string::npos) << text;
  EXPECT_NE(text.find("rejected truncated: 4"), std::string::npos) << text;
  EXPECT_EQ(text.find("rejected no_buffers"), std::string::npos) << text;
  EXPECT_NE(text.find("median 0.410 ms"), std::string::npos) << text;
  EXPECT_NE(text.find("before it was due: median 11.200 ms"), std::string::npos) << text;
  EXPECT_NE(text.find("peak -6.0 dB"), std::string::npos) << text;
  EXPECT_NE(text.find("mean -inf dB"), std::string::npos) << text;
  EXPECT_EQ(text.back(), '\n');
}

TEST(StatisticsText, DoesNotFollowTheLocale) {
  const test::CommaLocale locale;
  if (!locale.IsThere()) GTEST_SKIP() << "no locale with a decimal comma (package locales)";
  EXPECT_NE(MakeText(Report()).find("0.410 ms"), std::string::npos);
  EXPECT_NE(MakeJSON(Report()).dump().find("12.345"), std::string::npos);
}

TEST(Decibels, OneDecimal) {
  EXPECT_EQ(MakeDecibels(1.0), "0.0 dB");
  EXPECT_EQ(MakeDecibels(0.1), "-20.0 dB");
  EXPECT_EQ(MakeDecibels(2.0), "6.0 dB");
  EXPECT_EQ(MakeDecibels(0.9999999), "0.0 dB");
  EXPECT_EQ(MakeDecibels(0.0), "-inf dB");
  EXPECT_EQ(MakeDecibels(std::nan("")), "-inf dB");
}

TEST(MeterLine, ShowsABarForEachClient) {
  ServerReport report = Report();
  report.mClients[0].mRecentPeak = 1.0f;
  EXPECT_EQ(MakeMeterLine(report), "77 [########################] 0.0 dB");
  report.mClients[0].mRecentPeak = 0.0f;
  EXPECT_EQ(MakeMeterLine(report), "77 [                        ] -inf dB");
  report.mClients.clear();
  EXPECT_EQ(MakeMeterLine(report), "(no client)");
}

TEST(LevelMeter, PeakAndMean) {
  LevelMeter meter;
  EXPECT_EQ(meter.GetRootMeanSquare(), 0.0);
  std::vector<float> samples(1003, 0.5f);
  samples[1002] = -0.75f;
  meter.Add(samples.data(), samples.size());
  EXPECT_EQ(meter.GetPeak(), 0.75f);
  EXPECT_NEAR(meter.GetRootMeanSquare(), std::sqrt((1002 * 0.25 + 0.5625) / 1003), 1e-6);
  EXPECT_EQ(meter.TakeRecentPeak(), 0.75f);
  EXPECT_EQ(meter.TakeRecentPeak(), 0.0f);
  EXPECT_EQ(meter.GetPeak(), 0.75f);
  meter.AddSilence(1003);
  EXPECT_NEAR(meter.GetRootMeanSquare(), std::sqrt((1002 * 0.25 + 0.5625) / 2006), 1e-6);
}

TEST(LevelMeter, WhatIsNotFiniteCountsAsNothing) {
  LevelMeter meter;
  std::vector<float> samples(16, std::nanf(""));
  samples[3] = -INFINITY;
  samples[5] = 0.25f;
  meter.Add(samples.data(), samples.size());
  EXPECT_EQ(meter.GetPeak(), 0.25f);
  EXPECT_NEAR(meter.GetRootMeanSquare(), std::sqrt(0.0625 / 16), 1e-9);
}

}  // namespace tembra
