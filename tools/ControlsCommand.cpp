// controls: what of a device can be turned and switched.

#include <CoreAudio/AudioHardware.h>

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/Commands.h"
#include "tools/Devices.h"

namespace tembra::tools {

namespace {

AudioObjectPropertyAddress Global(std::uint32_t inSelector) {
  return {inSelector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster};
}

std::string ScopeText(AudioObjectPropertyScope inScope) {
  switch (inScope) {
    case kAudioObjectPropertyScopeGlobal:
      return "global";
    case kAudioObjectPropertyScopeInput:
      return "input";
    case kAudioObjectPropertyScopeOutput:
      return "output";
    case kAudioObjectPropertyScopePlayThrough:
      return "play-through";
    default:
      return CodeText(inScope);
  }
}

// The value, as its kind of control has it.
void DescribeValue(AudioObjectID inControl, AudioClassID inBaseClass, nlohmann::json& ioRecord) {
  switch (inBaseClass) {
    case kAudioLevelControlClassID:
      ioRecord["value"] =
          GetValue<Float32>(inControl, Global(kAudioLevelControlPropertyScalarValue));
      ioRecord["decibels"] =
          GetValue<Float32>(inControl, Global(kAudioLevelControlPropertyDecibelValue));
      break;
    case kAudioBooleanControlClassID:
      ioRecord["value"] =
          GetValue<UInt32>(inControl, Global(kAudioBooleanControlPropertyValue)) != 0;
      break;
    case kAudioSelectorControlClassID:
      ioRecord["value"] =
          GetValue<UInt32>(inControl, Global(kAudioSelectorControlPropertyCurrentItem));
      ioRecord["items"] =
          GetObjects(inControl, Global(kAudioSelectorControlPropertyAvailableItems));
      break;
    default:
      if (HasProperty(inControl, Global(kAudioStereoPanControlPropertyValue))) {
        ioRecord["value"] =
            GetValue<Float32>(inControl, Global(kAudioStereoPanControlPropertyValue));
      }
      break;
  }
}

nlohmann::json ControlRecord(AudioObjectID inControl) {
  nlohmann::json record = {
      {"id", inControl},
      {"class", CodeText(GetValue<UInt32>(inControl, Global(kAudioObjectPropertyClass)))},
      {"scope", ScopeText(GetValue<UInt32>(inControl, Global(kAudioControlPropertyScope)))},
      {"element", GetValue<UInt32>(inControl, Global(kAudioControlPropertyElement))},
      {"value", nullptr},
  };
  DescribeValue(inControl, GetValue<UInt32>(inControl, Global(kAudioObjectPropertyBaseClass)),
                record);
  return record;
}

std::string ValueText(const nlohmann::json& inRecord) {
  const nlohmann::json& value = inRecord["value"];
  if (value.is_boolean()) return value.get<bool>() ? "on" : "off";
  std::string text = value.is_null() ? "(no value)" : value.dump();
  if (inRecord.contains("decibels")) text += " (" + inRecord["decibels"].dump() + " dB)";
  if (inRecord.contains("items")) {
    text += " of " + std::to_string(inRecord["items"].size()) + " items";
  }
  return text;
}

void ListControls(const std::string& inDevice, bool inJson) {
  const AudioObjectID device = FindDevice(inDevice);
  nlohmann::json records = nlohmann::json::array();
  for (const AudioObjectID control : GetObjects(device, Global(kAudioObjectPropertyControlList))) {
    records.push_back(ControlRecord(control));
  }
  if (inJson) {
    std::printf("%s\n", records.dump(2).c_str());
    return;
  }
  if (records.empty()) std::printf("device %u has no controls\n", device);
  for (const nlohmann::json& record : records) {
    std::printf("%4u  %s  %-6s  element %u  %s\n", record["id"].get<unsigned>(),
                record["class"].get<std::string>().c_str(),
                record["scope"].get<std::string>().c_str(), record["element"].get<unsigned>(),
                ValueText(record).c_str());
  }
}

}  // namespace

void AddControlsCommand(CLI::App& ioProgram) {
  struct Arguments {
    std::string device;
    bool json = false;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = ioProgram.add_subcommand("controls", "list the controls of a device");
  command->add_option("device", arguments->device,
                      "a device's number, UID or name; without it the default output device");
  command->add_flag("--json", arguments->json, "for programs");
  command->callback([arguments] { ListControls(arguments->device, arguments->json); });
}

}  // namespace tembra::tools
