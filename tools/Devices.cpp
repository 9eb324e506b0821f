#include "tools/Devices.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

#include "tools/Exit.h"

namespace tembra::tools {

namespace {

std::string TextOf(CFStringRef inString) {
  const CFIndex size =
      CFStringGetMaximumSizeForEncoding(CFStringGetLength(inString), kCFStringEncodingUTF8) + 1;
  std::string text(static_cast<std::size_t>(size), '\0');
  if (!CFStringGetCString(inString, text.data(), size, kCFStringEncodingUTF8)) return {};
  text.resize(std::strlen(text.c_str()));
  return text;
}

}  // namespace

std::string CodeText(std::uint32_t inCode) {
  std::string text = "'";
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto byte = static_cast<unsigned char>(inCode >> shift);
    if (std::isprint(byte) == 0) return std::to_string(static_cast<std::int32_t>(inCode));
    text += static_cast<char>(byte);
  }
  return text + "'";
}

std::uint32_t ParseCode(const std::string& inText) {
  std::string text = inText;
  if (text.size() >= 2 && text.front() == '\'' && text.back() == '\'') {
    text = text.substr(1, text.size() - 2);
  }
  const bool hex = text.starts_with("0x");
  std::uint32_t number = 0;
  const char* start = text.data() + (hex ? 2 : 0);
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(start, end, number, hex ? 16 : 10);
  if (start != end && error == std::errc() && rest == end) return number;
  if (text.empty() || text.size() > 4) {
    throw Failure("'" + inText + "' is no four-character code and no number", Exit::kUsage);
  }
  text.resize(4, ' ');
  number = 0;
  for (const char character : text) number = number << 8 | static_cast<unsigned char>(character);
  return number;
}

void Check(OSStatus inStatus, std::string_view inWhat) {
  if (inStatus == 0) return;
  const bool held = inStatus == static_cast<OSStatus>('!hog');
  throw Failure(std::string(inWhat) + ": status " + CodeText(static_cast<std::uint32_t>(inStatus)),
                held ? Exit::kHeldByAnother : Exit::kFailed);
}

bool HasProperty(AudioObjectID inObject, const AudioObjectPropertyAddress& inAddress) {
  return AudioObjectHasProperty(inObject, &inAddress) != 0;
}

std::vector<std::uint8_t> GetBytes(AudioObjectID inObject,
                                   const AudioObjectPropertyAddress& inAddress) {
  const std::string what =
      "property " + CodeText(inAddress.mSelector) + " of object " + std::to_string(inObject);
  UInt32 size = 0;
  Check(AudioObjectGetPropertyDataSize(inObject, &inAddress, 0, nullptr, &size), what);
  std::vector<std::uint8_t> bytes(std::max<UInt32>(size, 1));
  Check(AudioObjectGetPropertyData(inObject, &inAddress, 0, nullptr, &size, bytes.data()), what);
  bytes.resize(size);
  return bytes;
}

std::string GetText(AudioObjectID inObject, const AudioObjectPropertyAddress& inAddress) {
  if (!HasProperty(inObject, inAddress)) return {};
  const auto string = GetValue<CFStringRef>(inObject, inAddress);
  if (string == nullptr) return {};
  std::string text = TextOf(string);
  CFRelease(string);
  return text;
}

std::vector<AudioObjectID> GetObjects(AudioObjectID inObject,
                                      const AudioObjectPropertyAddress& inAddress) {
  const std::vector<std::uint8_t> bytes = GetBytes(inObject, inAddress);
  std::vector<AudioObjectID> objects(bytes.size() / sizeof(AudioObjectID));
  if (!objects.empty()) {
    std::memcpy(objects.data(), bytes.data(), objects.size() * sizeof(AudioObjectID));
  }
  return objects;
}

AudioObjectID FindDevice(const std::string& inName) {
  const std::vector<AudioObjectID> devices =
      GetObjects(kAudioObjectSystemObject,
                 {kAudioHardwarePropertyDevices, kAudioObjectPropertyScopeGlobal, 0});
  if (inName.empty()) {
    const auto device = GetValue<AudioObjectID>(
        kAudioObjectSystemObject,
        {kAudioHardwarePropertyDefaultOutputDevice, kAudioObjectPropertyScopeGlobal, 0});
    if (device == kAudioObjectUnknown) {
      throw Failure("there is no audio device here: is the plug-in installed?");
    }
    return device;
  }
  for (const AudioObjectID device : devices) {
    if (inName == std::to_string(device) ||
        inName ==
            GetText(device, {kAudioDevicePropertyDeviceUID, kAudioObjectPropertyScopeGlobal, 0}) ||
        inName == GetText(device, {kAudioObjectPropertyName, kAudioObjectPropertyScopeGlobal, 0})) {
      return device;
    }
  }
  throw Failure("no device is called " + inName + "; `tmbaudio devices` lists them");
}

}  // namespace tembra::tools
