#pragma once

#include <CoreAudio/AudioHardware.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tembra::tools {

// Short forms of the published property calls, for a command's main thread. Where they can fail
// they throw Failure, which names the status as its four characters.

// Throws Failure "inWhat: status 'xxxx'" unless the status is 0.
void Check(OSStatus inStatus, std::string_view inWhat);

// 'abcd' for a printable code, else its decimal number.
std::string CodeText(std::uint32_t inCode);

// The code of one to four characters, padded with spaces, or of a number (decimal or 0x...).
std::uint32_t ParseCode(const std::string& inText);

bool HasProperty(AudioObjectID inObject, const AudioObjectPropertyAddress& inAddress);

// The property's bytes, as many as the object hands out.
std::vector<std::uint8_t> GetBytes(AudioObjectID inObject,
                                   const AudioObjectPropertyAddress& inAddress);

template <typename T>
T GetValue(AudioObjectID inObject, const AudioObjectPropertyAddress& inAddress) {
  T value{};
  UInt32 size = sizeof value;
  Check(AudioObjectGetPropertyData(inObject, &inAddress, 0, nullptr, &size, &value),
        "property " + CodeText(inAddress.mSelector) + " of object " + std::to_string(inObject));
  return value;
}

// A property that is a CFString, as UTF-8; empty if the object has none.
std::string GetText(AudioObjectID inObject, const AudioObjectPropertyAddress& inAddress);

std::vector<AudioObjectID> GetObjects(AudioObjectID inObject,
                                      const AudioObjectPropertyAddress& inAddress);

// The device that a user names: by number, by UID or by name; empty names the default output.
AudioObjectID FindDevice(const std::string& inName);

}  // namespace tembra::tools
