#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace tembra::notifications {

// One notification is one datagram: this header in the sender's byte order (both ends are of one
// machine), then name, object and dictionary. Texts are UTF-8, the dictionary is a binary property
// list.
struct Header {
  uint32_t magic;
  uint16_t version;
  uint16_t flags;
  uint32_t nameLength;
  uint32_t objectLength;
  uint32_t infoLength;
};
static_assert(sizeof(Header) == 20);

constexpr uint32_t kMagic = 0x4E424D54;  // "TMBN"
constexpr uint16_t kVersion = 1;
constexpr uint16_t kHasObject = 1;
constexpr uint16_t kHasInfo = 2;
constexpr size_t kMaxText = 1024;
constexpr size_t kMaxInfo = size_t{48} * 1024;
constexpr size_t kMaxDatagram = sizeof(Header) + 2 * kMaxText + kMaxInfo;

// What a datagram holds; the views are into its bytes.
struct Notification {
  std::string_view name;
  bool hasObject = false;
  std::string_view object;
  bool hasInfo = false;
  std::string_view info;
};

// Empty if a part is too long or the name is missing.
inline std::string EncodeNotification(const Notification& inNotification) {
  const Notification& n = inNotification;
  if (n.name.empty() || n.name.size() > kMaxText || n.object.size() > kMaxText ||
      n.info.size() > kMaxInfo) {
    return {};
  }
  Header header{kMagic,
                kVersion,
                static_cast<uint16_t>((n.hasObject ? kHasObject : 0) | (n.hasInfo ? kHasInfo : 0)),
                static_cast<uint32_t>(n.name.size()),
                static_cast<uint32_t>(n.object.size()),
                static_cast<uint32_t>(n.info.size())};
  std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
  bytes.append(n.name).append(n.object).append(n.info);
  return bytes;
}

// Whether the datagram is a notification of this version whose parts are exactly what arrived.
inline bool DecodeNotification(const uint8_t* inBytes, size_t inLength,
                               Notification& outNotification) {
  Header header;
  if (inLength < sizeof header || inLength > kMaxDatagram) return false;
  std::memcpy(&header, inBytes, sizeof header);
  if (header.magic != kMagic || header.version != kVersion) return false;
  if (header.flags & ~(kHasObject | kHasInfo)) return false;
  if (header.nameLength == 0 || header.nameLength > kMaxText) return false;
  if (header.objectLength > kMaxText || header.infoLength > kMaxInfo) return false;
  outNotification.hasObject = (header.flags & kHasObject) != 0;
  outNotification.hasInfo = (header.flags & kHasInfo) != 0;
  if (!outNotification.hasObject && header.objectLength) return false;
  if (!outNotification.hasInfo && header.infoLength) return false;
  const size_t parts = size_t{header.nameLength} + header.objectLength + header.infoLength;
  if (inLength - sizeof header != parts) return false;
  const char* text = reinterpret_cast<const char*>(inBytes) + sizeof header;
  outNotification.name = {text, header.nameLength};
  outNotification.object = {text + header.nameLength, header.objectLength};
  outNotification.info = {text + header.nameLength + header.objectLength, header.infoLength};
  return true;
}

}  // namespace tembra::notifications
