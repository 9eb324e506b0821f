#include "tools/PropertyTable.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "tools/Devices.h"
#include "tools/Exit.h"

namespace tembra::tools {

namespace {

using enum PropertyKind;

constexpr std::array kTable = std::to_array<PropertyEntry>({
    {'bcls', kCode, "base class"},
    {'clas', kCode, "class"},
    {'stdv', kObjects, "owner"},
    {'ownd', kObjects, "owned objects"},
    {'lnam', kString, "name"},
    {'lmod', kString, "model name"},
    {'lmak', kString, "manufacturer"},
    {'lchn', kString, "element name"},
    {'lccn', kString, "element category"},
    {'lcnn', kString, "element number"},
    {'snum', kString, "serial number"},
    {'name', kText, "name (bytes)"},
    {'makr', kText, "manufacturer (bytes)"},
    {'chnm', kText, "channel name (bytes)"},
    {'ccnm', kText, "channel category (bytes)"},
    {'cnnm', kText, "channel number (bytes)"},
    {'uid ', kString, "device UID"},
    {'muid', kString, "model UID"},
    {'capp', kString, "configuration application"},
    {'icon', kUrl, "icon"},
    {'tran', kCode, "transport type"},
    {'akin', kObjects, "related devices"},
    {'clkd', kUInt32, "clock domain"},
    {'livn', kBool, "alive"},
    {'diff', kBool, "has changed"},
    {'goin', kBool, "running"},
    {'gone', kBool, "running somewhere"},
    {'dflt', kBool, "can be default"},
    {'sflt', kBool, "can be system default"},
    {'hidn', kBool, "hidden"},
    {'over', kUInt32, "processor overload"},
    {'oink', kSInt32, "hog mode owner"},
    {'ltnc', kUInt32, "latency (frames)"},
    {'saft', kUInt32, "safety offset (frames)"},
    {'bsiz', kUInt32, "buffer size (bytes)"},
    {'bsz#', kRanges, "buffer size range (bytes)"},
    {'fsiz', kUInt32, "buffer size (frames)"},
    {'fsz#', kRanges, "buffer size range (frames)"},
    {'ncyc', kFloat32, "cycle usage"},
    {'stm#', kObjects, "streams"},
    {'ctrl', kObjects, "controls"},
    {'slay', kBuffers, "stream configuration"},
    {'suse', kOpaque, "I/O procedure stream usage"},
    {'nsrt', kFloat64, "nominal sample rate"},
    {'nsr#', kRanges, "available sample rates"},
    {'asrt', kFloat64, "actual sample rate"},
    {'mix?', kBool, "mixable"},
    {'sdir', kUInt32, "direction (1 is input)"},
    {'term', kCode, "terminal type"},
    {'schn', kUInt32, "starting channel"},
    {'sact', kBool, "active"},
    {'sfmt', kFormat, "virtual format"},
    {'sfma', kRangedFormats, "available virtual formats"},
    {'sfm#', kFormats, "virtual formats"},
    {'pft ', kFormat, "physical format"},
    {'pfta', kRangedFormats, "available physical formats"},
    {'pft#', kFormats, "physical formats"},
    {'volm', kFloat32, "volume"},
    {'vold', kFloat32, "volume (dB)"},
    {'vdb#', kRanges, "volume range (dB)"},
    {'mute', kBool, "mute"},
    {'ssrc', kUInt32, "data source"},
    {'ssc#', kObjects, "data sources"},
    {'cscp', kCode, "control scope"},
    {'celm', kUInt32, "control element"},
    {'cvar', kCode, "control variant"},
    {'lcsv', kFloat32, "level"},
    {'lcdv', kFloat32, "level (dB)"},
    {'lcdr', kRanges, "level range (dB)"},
    {'bcvl', kBool, "on"},
    {'scci', kUInt32, "current item"},
    {'scai', kObjects, "available items"},
    {'spcv', kFloat32, "pan"},
    {'dev#', kObjects, "devices"},
    {'plg#', kObjects, "plug-ins"},
    {'dIn ', kObjects, "default input"},
    {'dOut', kObjects, "default output"},
    {'sOut', kObjects, "default system output"},
    {'mast', kBool, "process is master"},
    {'inot', kBool, "initing or exiting"},
    {'user', kBool, "user session is active"},
    {'pmut', kBool, "process is audible"},
    {'stmo', kBool, "mixes stereo to mono"},
});

template <typename T>
std::vector<T> ArrayOf(const std::vector<std::uint8_t>& inBytes) {
  std::vector<T> items(inBytes.size() / sizeof(T));
  if (!items.empty()) std::memcpy(items.data(), inBytes.data(), items.size() * sizeof(T));
  return items;
}

// A number as a program reads it: never localised, and the shortest text that reads back the same.
template <typename T>
std::string NumberText(T inValue) {
  std::array<char, 64> text;
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), inValue);
  return {text.data(), error == std::errc() ? end : text.data()};
}

std::string HexText(const std::vector<std::uint8_t>& inBytes) {
  std::string text;
  for (const std::uint8_t byte : inBytes) {
    std::array<char, 4> digits;
    std::snprintf(digits.data(), digits.size(), "%02x", byte);
    if (!text.empty()) text += ' ';
    text += digits.data();
  }
  return text.empty() ? "(no bytes)" : text;
}

std::string RangeText(const AudioValueRange& inRange) {
  if (inRange.mMinimum == inRange.mMaximum) return NumberText(inRange.mMinimum);
  return NumberText(inRange.mMinimum) + " to " + NumberText(inRange.mMaximum);
}

std::string FormatText(const AudioStreamBasicDescription& inFormat) {
  return NumberText(inFormat.mSampleRate) + " Hz " + CodeText(inFormat.mFormatID) + " flags " +
         NumberText(inFormat.mFormatFlags) + ", " + NumberText(inFormat.mChannelsPerFrame) +
         " ch, " + NumberText(inFormat.mBitsPerChannel) + " bit, " +
         NumberText(inFormat.mBytesPerFrame) + " bytes/frame";
}

std::string BuffersText(const std::vector<std::uint8_t>& inBytes) {
  std::uint32_t count = 0;
  std::memcpy(&count, inBytes.data(), std::min(sizeof count, inBytes.size()));
  std::string text;
  for (std::uint32_t index = 0; index < count; ++index) {
    AudioBuffer buffer;
    const std::size_t at = offsetof(AudioBufferList, mBuffers) + index * sizeof buffer;
    if (at + sizeof buffer > inBytes.size()) break;
    std::memcpy(&buffer, inBytes.data() + at, sizeof buffer);
    if (!text.empty()) text += "; ";
    text += NumberText(buffer.mNumberChannels) + " ch in " + NumberText(buffer.mDataByteSize) +
            " bytes";
  }
  return text.empty() ? "(no streams)" : text;
}

std::string ReferenceText(PropertyKind inKind, const std::vector<std::uint8_t>& inBytes) {
  CFTypeRef reference = nullptr;
  if (inBytes.size() != sizeof reference) return HexText(inBytes);
  std::memcpy(&reference, inBytes.data(), sizeof reference);
  if (reference == nullptr) return "(none)";
  CFStringRef string = inKind == kUrl ? CFURLCopyFileSystemPath(static_cast<CFURLRef>(reference),
                                                                kCFURLPOSIXPathStyle)
                                      : static_cast<CFStringRef>(CFRetain(reference));
  std::string text(static_cast<std::size_t>(CFStringGetMaximumSizeForEncoding(
                       CFStringGetLength(string), kCFStringEncodingUTF8)) +
                       1,
                   '\0');
  CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8);
  text.resize(std::strlen(text.c_str()));
  CFRelease(string);
  CFRelease(reference);
  return text;
}

template <typename T, typename Describe>
std::string ListText(const std::vector<std::uint8_t>& inBytes, Describe inDescribe) {
  std::string text;
  for (const T& item : ArrayOf<T>(inBytes)) {
    if (!text.empty()) text += "; ";
    text += inDescribe(item);
  }
  return text.empty() ? "(none)" : text;
}

template <typename T, typename Describe>
std::string OneText(const std::vector<std::uint8_t>& inBytes, Describe inDescribe) {
  if (inBytes.size() != sizeof(T)) return HexText(inBytes);
  return inDescribe(ArrayOf<T>(inBytes).front());
}

template <typename T>
std::vector<std::uint8_t> BytesOf(const T& inValue) {
  std::vector<std::uint8_t> bytes(sizeof inValue);
  std::memcpy(bytes.data(), &inValue, sizeof inValue);
  return bytes;
}

template <typename T>
T ParseNumber(const std::string& inText) {
  T value{};
  const char* end = inText.data() + inText.size();
  const auto [rest, error] = std::from_chars(inText.data(), end, value);
  if (error != std::errc() || rest != end) {
    throw Failure("'" + inText + "' is no number that this property can hold", Exit::kUsage);
  }
  return value;
}

}  // namespace

std::span<const PropertyEntry> KnownProperties() {
  return kTable;
}

PropertyEntry FindProperty(std::uint32_t inSelector) {
  const auto found = std::find_if(kTable.begin(), kTable.end(), [&](const PropertyEntry& entry) {
    return entry.selector == inSelector;
  });
  return found != kTable.end() ? *found : PropertyEntry{inSelector, kOpaque, ""};
}

std::string DescribeValue(PropertyKind inKind, const std::vector<std::uint8_t>& inBytes) {
  switch (inKind) {
    case kUInt32:
      return OneText<std::uint32_t>(inBytes, NumberText<std::uint32_t>);
    case kSInt32:
      return OneText<std::int32_t>(inBytes, NumberText<std::int32_t>);
    case kBool:
      return OneText<std::uint32_t>(inBytes, [](std::uint32_t value) {
        return value == 0 ? std::string("no") : value == 1 ? "yes" : NumberText(value);
      });
    case kCode:
      return OneText<std::uint32_t>(inBytes, CodeText);
    case kFloat32:
      return OneText<float>(inBytes, NumberText<float>);
    case kFloat64:
      return OneText<double>(inBytes, NumberText<double>);
    case kString:
    case kUrl:
      return ReferenceText(inKind, inBytes);
    case kText: {
      const auto end = std::find(inBytes.begin(), inBytes.end(), 0);
      return {inBytes.begin(), end};
    }
    case kObjects:
      return ListText<std::uint32_t>(inBytes, NumberText<std::uint32_t>);
    case kRanges:
      return ListText<AudioValueRange>(inBytes, RangeText);
    case kFormat:
      return OneText<AudioStreamBasicDescription>(inBytes, FormatText);
    case kFormats:
      return ListText<AudioStreamBasicDescription>(inBytes, FormatText);
    case kRangedFormats:
      return ListText<AudioStreamRangedDescription>(inBytes, [](const auto& item) {
        return FormatText(item.mFormat) + " (" + RangeText(item.mSampleRateRange) + ")";
      });
    case kBuffers:
      return BuffersText(inBytes);
    case kOpaque:
      break;
  }
  return HexText(inBytes);
}

std::vector<std::uint8_t> ParseValue(PropertyKind inKind, const std::string& inText) {
  switch (inKind) {
    case kUInt32:
    case kObjects:
      return BytesOf(ParseNumber<std::uint32_t>(inText));
    case kSInt32:
      return BytesOf(ParseNumber<std::int32_t>(inText));
    case kBool:
      if (inText == "yes" || inText == "on" || inText == "true") return BytesOf(std::uint32_t{1});
      if (inText == "no" || inText == "off" || inText == "false") return BytesOf(std::uint32_t{0});
      return BytesOf(ParseNumber<std::uint32_t>(inText));
    case kCode:
      return BytesOf(ParseCode(inText));
    case kFloat32:
      return BytesOf(ParseNumber<float>(inText));
    case kFloat64:
      return BytesOf(ParseNumber<double>(inText));
    default:
      throw Failure("a property of this kind cannot be given as text", Exit::kUsage);
  }
}

}  // namespace tembra::tools
