#include "server/RecordingFile.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace tembra {

namespace {

bool EndsWith(const std::string& inText, const std::string& inEnd) {
  return inText.size() > inEnd.size() &&
         std::equal(inEnd.rbegin(), inEnd.rend(), inText.rbegin(), [](char a, char b) {
           return a == std::tolower(static_cast<unsigned char>(b));
         });
}

}  // namespace

bool IsRecordingName(const std::string& inPath) {
  return EndsWith(inPath, ".wav") || EndsWith(inPath, ".flac");
}

std::unique_ptr<RecordingFile> RecordingFile::Create(const std::string& inPath, double inRate,
                                                     UInt32 inChannels, std::string& outError) {
  SF_INFO info = {};
  info.samplerate = static_cast<int>(std::lround(inRate));
  info.channels = static_cast<int>(inChannels);
  if (EndsWith(inPath, ".wav")) {
    info.format = SF_FORMAT_RF64 | SF_FORMAT_FLOAT;
  } else if (EndsWith(inPath, ".flac")) {
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_24;
  } else {
    outError = "'" + inPath + "' ends neither in .wav nor in .flac; give it one of these endings";
    return nullptr;
  }
  if (!sf_format_check(&info)) {
    outError = "'" + inPath + "' cannot hold " + std::to_string(inChannels) + " channels at " +
               std::to_string(info.samplerate) + " Hz; record to a .wav file instead";
    return nullptr;
  }
  SNDFILE* file = sf_open(inPath.c_str(), SFM_WRITE, &info);
  if (file == nullptr) {
    outError = "cannot write '" + inPath + "': " + sf_strerror(nullptr) +
               " Name a folder that exists and that you may write to.";
    return nullptr;
  }
  sf_command(file, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
  sf_command(file, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
  sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
  return std::unique_ptr<RecordingFile>(new RecordingFile(file, inPath, inChannels));
}

RecordingFile::RecordingFile(sf_private_tag* inFile, std::string inPath, UInt32 inChannels)
    : mFile(inFile), mPath(std::move(inPath)), mChannels(inChannels) {}

RecordingFile::~RecordingFile() {
  sf_close(mFile);
}

bool RecordingFile::Write(const float* inFrames, uint64_t inCount) {
  if (mFailed) return false;
  const sf_count_t count = static_cast<sf_count_t>(inCount);
  const sf_count_t written = sf_writef_float(mFile, inFrames, count);
  if (written > 0) mFrames += static_cast<uint64_t>(written);
  if (written != count) {
    mFailed = true;
    mError = "cannot go on writing '" + mPath + "': " + sf_strerror(mFile) +
             " Make room on that disk or record elsewhere.";
  }
  return !mFailed;
}

bool RecordingFile::WriteSilence(uint64_t inCount) {
  constexpr uint64_t kChunk = 4096;
  const std::vector<float> silence(std::min(inCount, kChunk) * mChannels, 0.0f);
  while (inCount > 0) {
    const uint64_t count = std::min(inCount, kChunk);
    if (!Write(silence.data(), count)) return false;
    inCount -= count;
  }
  return true;
}

void RecordingFile::Flush() {
  sf_command(mFile, SFC_UPDATE_HEADER_NOW, nullptr, 0);
  sf_write_sync(mFile);
}

std::string RecordingFile::GetError() const {
  return mError;
}

}  // namespace tembra
