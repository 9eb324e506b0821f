#pragma once

#include <CoreAudio/AudioHardware.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tembra::tools {

// How a property's bytes are to be read.
enum class PropertyKind {
  kUInt32,
  kSInt32,
  kBool,
  kCode,
  kFloat32,
  kFloat64,
  kString,  // a CFString that the reader releases
  kText,    // bytes with a terminator
  kUrl,     // a CFURL that the reader releases
  kObjects,
  kRanges,
  kFormat,
  kFormats,
  kRangedFormats,
  kBuffers,
  kOpaque,
};

struct PropertyEntry {
  std::uint32_t selector;
  PropertyKind kind;
  std::string_view name;
};

// The published properties that the command knows by name; every other is shown as bytes.
std::span<const PropertyEntry> KnownProperties();

// The entry of a selector; an unknown one is opaque and has its code as its name.
PropertyEntry FindProperty(std::uint32_t inSelector);

// A property's value as one line of text. Takes over the reference that a string or URL carries.
std::string DescribeValue(PropertyKind inKind, const std::vector<std::uint8_t>& inBytes);

// The bytes of a value that a user typed; throws Failure (usage) for a text or kind that cannot be.
std::vector<std::uint8_t> ParseValue(PropertyKind inKind, const std::string& inText);

}  // namespace tembra::tools
