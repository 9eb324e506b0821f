// formats: what the streams of a device carry, and what they could.

#include <CoreAudio/AudioHardware.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/Commands.h"
#include "tools/Devices.h"
#include "tools/PropertyTable.h"

namespace tembra::tools {

namespace {

AudioObjectPropertyAddress Global(std::uint32_t inSelector) {
  return {inSelector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster};
}

// The two views of a stream's format: what the hardware has, and what a client's buffers hold.
struct View {
  const char* name;
  AudioObjectPropertySelector current;
  AudioObjectPropertySelector available;
};

constexpr View kViews[] = {
    {"physical", kAudioStreamPropertyPhysicalFormat, kAudioStreamPropertyAvailablePhysicalFormats},
    {"virtual", kAudioStreamPropertyVirtualFormat, kAudioStreamPropertyAvailableVirtualFormats}};

nlohmann::json FormatRecord(const AudioStreamBasicDescription& inFormat) {
  return {{"rate", inFormat.mSampleRate},
          {"id", CodeText(inFormat.mFormatID)},
          {"flags", inFormat.mFormatFlags},
          {"bytes_per_packet", inFormat.mBytesPerPacket},
          {"frames_per_packet", inFormat.mFramesPerPacket},
          {"bytes_per_frame", inFormat.mBytesPerFrame},
          {"channels", inFormat.mChannelsPerFrame},
          {"bits", inFormat.mBitsPerChannel}};
}

std::vector<AudioStreamRangedDescription> GetAvailable(AudioObjectID inStream, const View& inView) {
  const std::vector<std::uint8_t> bytes = GetBytes(inStream, Global(inView.available));
  std::vector<AudioStreamRangedDescription> formats(bytes.size() /
                                                    sizeof(AudioStreamRangedDescription));
  if (!formats.empty()) {
    std::memcpy(formats.data(), bytes.data(), formats.size() * sizeof formats[0]);
  }
  return formats;
}

nlohmann::json StreamRecord(AudioObjectID inStream) {
  nlohmann::json record = {
      {"stream", inStream},
      {"direction",
       GetValue<UInt32>(inStream, Global(kAudioStreamPropertyDirection)) != 0 ? "input" : "output"},
      {"first_channel", GetValue<UInt32>(inStream, Global(kAudioStreamPropertyStartingChannel))}};
  for (const View& view : kViews) {
    nlohmann::json available = nlohmann::json::array();
    for (const AudioStreamRangedDescription& format : GetAvailable(inStream, view)) {
      available.push_back(FormatRecord(format.mFormat));
      available.back()["rates"] = {format.mSampleRateRange.mMinimum,
                                   format.mSampleRateRange.mMaximum};
    }
    record[view.name] = {{"current", FormatRecord(GetValue<AudioStreamBasicDescription>(
                                         inStream, Global(view.current)))},
                         {"available", available}};
  }
  return record;
}

void PrintStream(AudioObjectID inStream) {
  const bool isInput = GetValue<UInt32>(inStream, Global(kAudioStreamPropertyDirection)) != 0;
  std::printf("stream %u, %s, from channel %u\n", inStream, isInput ? "input" : "output",
              GetValue<UInt32>(inStream, Global(kAudioStreamPropertyStartingChannel)));
  for (const View& view : kViews) {
    std::printf(
        "  %-8s   %s\n", view.name,
        DescribeValue(PropertyKind::kFormat, GetBytes(inStream, Global(view.current))).c_str());
    const std::vector<std::uint8_t> bytes = GetBytes(inStream, Global(view.available));
    constexpr std::size_t kSize = sizeof(AudioStreamRangedDescription);
    for (std::size_t at = 0; at + kSize <= bytes.size(); at += kSize) {
      const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at);
      std::printf("    can be   %s\n",
                  DescribeValue(PropertyKind::kRangedFormats, {first, first + kSize}).c_str());
    }
  }
}

void ListFormats(const std::string& inDevice, bool inJson) {
  const AudioObjectID device = FindDevice(inDevice);
  std::vector<AudioObjectID> streams;
  for (const AudioObjectPropertyScope scope :
       {kAudioObjectPropertyScopeInput, kAudioObjectPropertyScopeOutput}) {
    const AudioObjectPropertyAddress address{kAudioDevicePropertyStreams, scope, 0};
    if (!HasProperty(device, address)) continue;
    const std::vector<AudioObjectID> those = GetObjects(device, address);
    streams.insert(streams.end(), those.begin(), those.end());
  }
  if (!inJson) {
    if (streams.empty()) std::printf("device %u has no streams\n", device);
    for (const AudioObjectID stream : streams) PrintStream(stream);
    return;
  }
  nlohmann::json records = nlohmann::json::array();
  for (const AudioObjectID stream : streams) records.push_back(StreamRecord(stream));
  std::printf("%s\n", records.dump(2).c_str());
}

}  // namespace

void AddFormatsCommand(CLI::App& ioProgram) {
  struct Arguments {
    std::string device;
    bool json = false;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = ioProgram.add_subcommand("formats", "list the formats of a device's streams");
  command->add_option("device", arguments->device,
                      "a device's number, UID or name; without it the default output device");
  command->add_flag("--json", arguments->json, "for programs");
  command->callback([arguments] { ListFormats(arguments->device, arguments->json); });
}

}  // namespace tembra::tools
