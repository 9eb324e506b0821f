// Writes what the device puts on the wire into files of a folder, for readers that know nothing of
// this code: add.plist, echo.plist, dispose.plist and blocks.
//
// usage: wire_writer FOLDER

#include <cstdio>
#include <string>
#include <vector>

#include "client/Snd.h"
#include "client/TMBAudioClientInfo.h"
#include "client/TMBAudioServer.h"

namespace {

bool WriteData(const std::string& inPath, CFDataRef inData) {
  std::FILE* file = inData != nullptr ? std::fopen(inPath.c_str(), "wb") : nullptr;
  if (file == nullptr) return false;
  const auto size = static_cast<size_t>(CFDataGetLength(inData));
  const bool written = std::fwrite(CFDataGetBytePtr(inData), 1, size, file) == size;
  return std::fclose(file) == 0 && written;
}

bool WriteMessage(const std::string& inPath, const TMBAudioClientInfo& inInfo, bool inFull) {
  CFDataRef data = inInfo.CopyMessageData(inFull);
  const bool written = WriteData(inPath, data);
  if (data != nullptr) CFRelease(data);
  return written;
}

bool WriteBlock(const std::string& inPath, UInt32 inChannels, UInt32 inFrames) {
  AudioTimeStamp time = {};
  time.mSampleTime = 512.0;
  time.mHostTime = 1234567890123;
  time.mRateScalar = 1.0;
  time.mFlags = 7;
  AudioStreamBasicDescription format = {};
  FillOutASBDForLPCM(format, 44100.0, inChannels, 32, 32, true, false, false);
  std::vector<float> samples(size_t{inFrames} * inChannels);
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<float>(i % inChannels * 1000 + i / inChannels);
  }
  AudioBufferList list;
  list.mNumberBuffers = 1;
  list.mBuffers[0] = {inChannels, static_cast<UInt32>(samples.size() * sizeof(float)),
                      samples.data()};
  CFDataRef data = CFDataCreateWithABL(time, format, list, true);
  const bool written = WriteData(inPath, data);
  if (data != nullptr) CFRelease(data);
  return written;
}

bool WriteNames(const std::string& inPath) {
  CFStringRef listener = CFTmbSndCopyListenerID();
  CFStringRef port = CFTmbSndCopyPortID(4321);
  char names[2][128] = {"", ""};
  bool written = CFStringGetCString(listener, names[0], 128, kCFStringEncodingUTF8) &&
                 CFStringGetCString(port, names[1], 128, kCFStringEncodingUTF8);
  CFRelease(listener);
  CFRelease(port);
  std::FILE* file = std::fopen(inPath.c_str(), "w");
  if (file == nullptr) return false;
  const SInt32 ids[] = {kTMBAudioMessageAddID, kTMBAudioMessageEchoID, kTMBAudioMessageDisposeID};
  written = written && std::fprintf(file, "%s\n%s\n", names[0], names[1]) > 0;
  for (SInt32 id : ids) {
    written = written && std::fprintf(file, "%.4s\n", reinterpret_cast<const char*>(&id)) > 0;
  }
  return std::fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: wire_writer FOLDER\n");
    return 2;
  }
  const std::string folder = std::string(argv[1]) + "/";
  TMBAudioClientInfo info;
  AudioStreamBasicDescription sent = info.GetStreamDescription();
  sent.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
  sent.mBytesPerFrame = 4;
  sent.mBytesPerPacket = 4;
  info = sent;
  const bool written = WriteMessage(folder + "add.plist", info, true) &&
                       WriteMessage(folder + "echo.plist", info, true) &&
                       WriteMessage(folder + "dispose.plist", info, false) &&
                       WriteBlock(folder + "mono.block", 1, 16) &&
                       WriteBlock(folder + "stereo.block", 2, 512) &&
                       WriteBlock(folder + "six.block", 6, 64) && WriteNames(folder + "names");
  if (!written) std::fprintf(stderr, "wire_writer: cannot write into '%s'\n", argv[1]);
  return written ? 0 : 1;
}
