#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/Commands.h"
#include "tools/Devices.h"
#include "tools/PropertyTable.h"

namespace tembra::tools {

namespace {

constexpr AudioObjectPropertyScope kScopes[] = {kAudioObjectPropertyScopeGlobal,
                                                kAudioObjectPropertyScopeInput,
                                                kAudioObjectPropertyScopeOutput};

AudioObjectPropertyAddress Global(std::uint32_t inSelector) {
  return {inSelector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster};
}

std::uint32_t CountChannels(AudioObjectID inDevice, AudioObjectPropertyScope inScope) {
  const AudioObjectPropertyAddress address{kAudioDevicePropertyStreamConfiguration, inScope, 0};
  if (!HasProperty(inDevice, address)) return 0;
  const std::vector<std::uint8_t> bytes = GetBytes(inDevice, address);
  std::uint32_t channels = 0;
  for (std::size_t at = offsetof(AudioBufferList, mBuffers);
       at + sizeof(AudioBuffer) <= bytes.size(); at += sizeof(AudioBuffer)) {
    AudioBuffer buffer;
    std::memcpy(&buffer, bytes.data() + at, sizeof buffer);
    channels += buffer.mNumberChannels;
  }
  return channels;
}

nlohmann::json DeviceRecord(AudioObjectID inDevice) {
  const auto defaultOutput = GetValue<AudioObjectID>(
      kAudioObjectSystemObject, Global(kAudioHardwarePropertyDefaultOutputDevice));
  return {
      {"id", inDevice},
      {"uid", GetText(inDevice, Global(kAudioDevicePropertyDeviceUID))},
      {"name", GetText(inDevice, Global(kAudioObjectPropertyName))},
      {"manufacturer", GetText(inDevice, Global(kAudioObjectPropertyManufacturer))},
      {"rate", GetValue<double>(inDevice, Global(kAudioDevicePropertyNominalSampleRate))},
      {"buffer_frames", GetValue<UInt32>(inDevice, Global(kAudioDevicePropertyBufferFrameSize))},
      {"input_channels", CountChannels(inDevice, kAudioObjectPropertyScopeInput)},
      {"output_channels", CountChannels(inDevice, kAudioObjectPropertyScopeOutput)},
      {"running", GetValue<UInt32>(inDevice, Global(kAudioDevicePropertyDeviceIsRunning)) != 0},
      {"default_output", inDevice == defaultOutput},
  };
}

void ListDevices(bool inJson) {
  nlohmann::json records = nlohmann::json::array();
  for (const AudioObjectID device :
       GetObjects(kAudioObjectSystemObject, Global(kAudioHardwarePropertyDevices))) {
    records.push_back(DeviceRecord(device));
  }
  if (inJson) {
    std::printf("%s\n", records.dump(2).c_str());
    return;
  }
  if (records.empty()) std::printf("no audio devices: is the plug-in installed?\n");
  for (const nlohmann::json& record : records) {
    std::printf("%u  %s  (%s)%s\n   %s, %s Hz, %u frames, %u in, %u out%s\n",
                record["id"].get<unsigned>(), record["name"].get<std::string>().c_str(),
                record["uid"].get<std::string>().c_str(),
                record["default_output"].get<bool>() ? "  default output" : "",
                record["manufacturer"].get<std::string>().c_str(), record["rate"].dump().c_str(),
                record["buffer_frames"].get<unsigned>(), record["input_channels"].get<unsigned>(),
                record["output_channels"].get<unsigned>(),
                record["running"].get<bool>() ? ", running" : "");
  }
}

// An object as a user names it: a number is an object of any kind, a name or UID is a device.
AudioObjectID FindObject(const std::string& inName) {
  if (!inName.empty() && std::all_of(inName.begin(), inName.end(), [](unsigned char character) {
        return std::isdigit(character) != 0;
      })) {
    const AudioObjectID object = ParseCode(inName);
    if (!HasProperty(object, Global(kAudioObjectPropertyClass))) {
      throw Failure("there is no object " + inName + "; `tmbaudio devices` lists the devices");
    }
    return object;
  }
  return FindDevice(inName);
}

struct Shown {
  PropertyEntry entry;
  AudioObjectPropertyAddress address;
  bool settable;
  std::string value;
};

// A property that reads alike in every scope is shown once, in the global one.
std::vector<Shown> CollectProperties(AudioObjectID inObject) {
  std::vector<Shown> shown;
  for (const PropertyEntry& entry : KnownProperties()) {
    std::string global;
    for (const AudioObjectPropertyScope scope : kScopes) {
      const AudioObjectPropertyAddress address{entry.selector, scope, 0};
      if (!HasProperty(inObject, address)) continue;
      Boolean settable = 0;
      AudioObjectIsPropertySettable(inObject, &address, &settable);
      std::string value;
      try {
        value = DescribeValue(entry.kind, GetBytes(inObject, address));
      } catch (const Failure& failure) {
        value = std::string("(") + failure.what() + ")";
      }
      if (scope == kAudioObjectPropertyScopeGlobal) {
        global = value;
      } else if (value == global) {
        continue;
      }
      shown.push_back({entry, address, settable != 0, value});
    }
  }
  return shown;
}

const char* ScopeText(AudioObjectPropertyScope inScope) {
  switch (inScope) {
    case kAudioObjectPropertyScopeInput:
      return "input";
    case kAudioObjectPropertyScopeOutput:
      return "output";
    default:
      return "global";
  }
}

void ShowObject(AudioObjectID inObject, bool inJson) {
  const std::vector<Shown> properties = CollectProperties(inObject);
  if (inJson) {
    nlohmann::json record = {{"id", inObject}, {"properties", nlohmann::json::array()}};
    for (const Shown& item : properties) {
      record["properties"].push_back({{"selector", CodeText(item.entry.selector)},
                                      {"name", item.entry.name},
                                      {"scope", ScopeText(item.address.mScope)},
                                      {"settable", item.settable},
                                      {"value", item.value}});
    }
    std::printf("%s\n",
                record.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    return;
  }
  std::printf("object %u\n", inObject);
  for (const Shown& item : properties) {
    std::printf("  %-6s %-6s %c  %-28s %s\n", CodeText(item.entry.selector).c_str(),
                ScopeText(item.address.mScope), item.settable ? 'w' : '-',
                std::string(item.entry.name).c_str(), item.value.c_str());
  }
}

AudioObjectPropertyScope ParseScope(const std::string& inText) {
  if (inText == "global") return kAudioObjectPropertyScopeGlobal;
  if (inText == "input") return kAudioObjectPropertyScopeInput;
  if (inText == "output") return kAudioObjectPropertyScopeOutput;
  return ParseCode(inText);
}

struct AddressArguments {
  std::string object;
  std::string selector;
  std::string value;
  std::string scope = "global";
  std::uint32_t element = 0;
  bool json = false;

  AudioObjectPropertyAddress Address() const {
    return {ParseCode(selector), ParseScope(scope), element};
  }
};

void GetProperty(const AddressArguments& inArguments) {
  const AudioObjectID object = FindObject(inArguments.object);
  const AudioObjectPropertyAddress address = inArguments.Address();
  const PropertyEntry entry = FindProperty(address.mSelector);
  const std::string value = DescribeValue(entry.kind, GetBytes(object, address));
  if (inArguments.json) {
    const nlohmann::json record = {{"id", object},
                                   {"selector", CodeText(address.mSelector)},
                                   {"name", entry.name},
                                   {"value", value}};
    std::printf("%s\n",
                record.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
  } else {
    std::printf("%s\n", value.c_str());
  }
}

void SetProperty(const AddressArguments& inArguments) {
  const AudioObjectID object = FindObject(inArguments.object);
  const AudioObjectPropertyAddress address = inArguments.Address();
  const std::vector<std::uint8_t> bytes =
      ParseValue(FindProperty(address.mSelector).kind, inArguments.value);
  Check(AudioObjectSetPropertyData(object, &address, 0, nullptr, static_cast<UInt32>(bytes.size()),
                                   bytes.data()),
        "property " + CodeText(address.mSelector) + " of object " + std::to_string(object) +
            " cannot be set");
}

void AddAddressOptions(CLI::App* ioCommand, AddressArguments& ioArguments, bool inWithValue) {
  ioCommand
      ->add_option("object", ioArguments.object, "an object's number, or a device's UID or name")
      ->required();
  ioCommand
      ->add_option("selector", ioArguments.selector, "four characters, such as fsiz, or a number")
      ->required();
  if (inWithValue) ioCommand->add_option("value", ioArguments.value, "the new value")->required();
  ioCommand->add_option("scope", ioArguments.scope, "global, input, output or four characters");
  ioCommand->add_option("element", ioArguments.element, "0 is the whole object");
}

}  // namespace

void AddInspectCommands(CLI::App& ioProgram) {
  auto arguments = std::make_shared<AddressArguments>();

  CLI::App* devices = ioProgram.add_subcommand("devices", "list the audio devices");
  devices->add_flag("--json", arguments->json, "for programs");
  devices->callback([arguments] { ListDevices(arguments->json); });

  CLI::App* show = ioProgram.add_subcommand("show", "show an object's properties");
  show->add_option("object", arguments->object,
                   "an object's number, or a device's UID or name; "
                   "without it the default output device");
  show->add_flag("--json", arguments->json, "for programs");
  show->callback([arguments] { ShowObject(FindObject(arguments->object), arguments->json); });

  CLI::App* get = ioProgram.add_subcommand("get", "print one property of an object");
  AddAddressOptions(get, *arguments, false);
  get->add_flag("--json", arguments->json, "for programs");
  get->callback([arguments] { GetProperty(*arguments); });

  CLI::App* set = ioProgram.add_subcommand("set", "set one property of an object");
  AddAddressOptions(set, *arguments, true);
  set->callback([arguments] { SetProperty(*arguments); });
}

}  // namespace tembra::tools
