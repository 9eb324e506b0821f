// volume and mute: the two controls that people ask for by name.

#include <CoreAudio/AudioHardware.h>

#include <charconv>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "tools/Commands.h"
#include "tools/Devices.h"

namespace tembra::tools {

namespace {

struct Arguments {
  std::string value;
  std::string device;
  std::uint32_t channel = 0;
  bool input = false;

  AudioObjectPropertyAddress Address(AudioObjectPropertySelector inSelector) const {
    return {inSelector, input ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput,
            channel};
  }
};

// The device, which must have the control.
AudioObjectID FindControlled(const Arguments& inArguments, AudioObjectPropertySelector inSelector,
                             const char* inWhat) {
  const AudioObjectID device = FindDevice(inArguments.device);
  if (!HasProperty(device, inArguments.Address(inSelector))) {
    throw Failure("device " + std::to_string(device) + " has no " + inWhat + " for channel " +
                  std::to_string(inArguments.channel) + "; `tmbaudio controls` lists what it has");
  }
  return device;
}

template <typename T>
void SetValue(AudioObjectID inDevice, const AudioObjectPropertyAddress& inAddress, T inValue) {
  Check(AudioObjectSetPropertyData(inDevice, &inAddress, 0, nullptr, sizeof inValue, &inValue),
        "property " + CodeText(inAddress.mSelector) + " of device " + std::to_string(inDevice) +
            " cannot be set");
}

// The device is in the process that uses it, and so are its controls.
void TellWhoseItIs() {
  std::fprintf(stderr, "each process has controls of its own: this was set for this one\n");
}

bool TakeSuffix(std::string_view& ioText, std::string_view inSuffix) {
  if (!ioText.ends_with(inSuffix)) return false;
  ioText.remove_suffix(inSuffix.size());
  return true;
}

// As typed: 0.5, 50% or -12dB.
struct Volume {
  Float32 value = 0;
  bool isDecibels = false;
};

Volume ParseVolume(const std::string& inText) {
  std::string_view text = inText;
  Volume volume;
  volume.isDecibels = TakeSuffix(text, "dB") || TakeSuffix(text, "db");
  const bool isPercent = !volume.isDecibels && TakeSuffix(text, "%");
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, volume.value);
  if (isPercent) volume.value /= 100;
  if (error != std::errc() || rest != end ||
      (!volume.isDecibels && !(volume.value >= 0 && volume.value <= 1))) {
    throw Failure("'" + inText + "' is no volume: give 0 to 1, 0% to 100%, or decibels as in -12dB",
                  Exit::kUsage);
  }
  return volume;
}

void SetVolume(AudioObjectID inDevice, const Arguments& inArguments) {
  const Volume volume = ParseVolume(inArguments.value);
  if (!volume.isDecibels) {
    SetValue(inDevice, inArguments.Address(kAudioDevicePropertyVolumeScalar), volume.value);
    return;
  }
  const auto range = GetValue<AudioValueRange>(
      inDevice, inArguments.Address(kAudioDevicePropertyVolumeRangeDecibels));
  if (!(volume.value >= range.mMinimum && volume.value <= range.mMaximum)) {
    char text[100];
    std::snprintf(text, sizeof text, "the volume goes from %g dB to %g dB", range.mMinimum,
                  range.mMaximum);
    throw Failure(text, Exit::kUsage);
  }
  SetValue(inDevice, inArguments.Address(kAudioDevicePropertyVolumeDecibels), volume.value);
}

void RunVolume(const Arguments& inArguments) {
  const AudioObjectID device =
      FindControlled(inArguments, kAudioDevicePropertyVolumeScalar, "volume");
  if (!inArguments.value.empty()) {
    SetVolume(device, inArguments);
    TellWhoseItIs();
  }
  std::printf("%g (%g dB)\n",
              GetValue<Float32>(device, inArguments.Address(kAudioDevicePropertyVolumeScalar)),
              GetValue<Float32>(device, inArguments.Address(kAudioDevicePropertyVolumeDecibels)));
}

void RunMute(const Arguments& inArguments) {
  const AudioObjectPropertyAddress address = inArguments.Address(kAudioDevicePropertyMute);
  const AudioObjectID device = FindControlled(inArguments, address.mSelector, "mute");
  if (!inArguments.value.empty()) {
    SetValue(device, address, UInt32{inArguments.value == "on"});
    TellWhoseItIs();
  }
  std::printf("%s\n", GetValue<UInt32>(device, address) != 0 ? "on" : "off");
}

void AddOptions(CLI::App* ioCommand, Arguments& ioArguments) {
  ioCommand->add_option("--channel", ioArguments.channel, "0 is the whole device");
  ioCommand->add_option("--device", ioArguments.device,
                        "a device's number, UID or name; without it the default output device");
  ioCommand->add_flag("--input", ioArguments.input, "of what the device hears");
}

}  // namespace

void AddVolumeCommands(CLI::App& ioProgram) {
  auto arguments = std::make_shared<Arguments>();

  CLI::App* volume = ioProgram.add_subcommand("volume", "show or set a device's volume");
  volume->add_option("value", arguments->value, "0 to 1, 0% to 100%, or decibels as in -12dB");
  AddOptions(volume, *arguments);
  volume->callback([arguments] { RunVolume(*arguments); });

  CLI::App* mute = ioProgram.add_subcommand("mute", "show or set whether a device is mute");
  mute->add_option("value", arguments->value, "on or off")->check(CLI::IsMember({"on", "off"}));
  AddOptions(mute, *arguments);
  mute->callback([arguments] { RunMute(*arguments); });
}

}  // namespace tembra::tools
