#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <memory>
#include <string>

struct sf_private_tag;

namespace tembra {

// One sound file being written: WAV with 32-bit float samples, exactly those that came, or FLAC
// with 24 bits, by the name's ending. A WAV that outgrows 4 GB becomes an RF64.
//
// Thread: one at a time. Ownership: the file is closed with the object. Units: interleaved frames.
// Failure: Create answers null and says why; a failed write is told once and ends the writing.
class RecordingFile {
 public:
  // Replaces a file of that name. outError says what is wrong and what mends it.
  static std::unique_ptr<RecordingFile> Create(const std::string& inPath, double inRate,
                                               UInt32 inChannels, std::string& outError);
  ~RecordingFile();
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  // False once something could not be written, the disk being full.
  bool Write(const float* inFrames, uint64_t inCount);
  bool WriteSilence(uint64_t inCount);
  // Brings the file's header up to date, so that a reader sees what is there now.
  void Flush();

  uint64_t GetFrames() const { return mFrames; }
  const std::string& GetPath() const { return mPath; }
  std::string GetError() const;

 private:
  RecordingFile(sf_private_tag* inFile, std::string inPath, UInt32 inChannels);

  sf_private_tag* mFile;
  std::string mPath;
  UInt32 mChannels;
  uint64_t mFrames = 0;
  bool mFailed = false;
  std::string mError;
};

// Whether a recording can have this name: it ends in .wav or .flac.
bool IsRecordingName(const std::string& inPath);

}  // namespace tembra
