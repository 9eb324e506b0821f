#pragma once

#include <cstdint>
#include <cstring>

namespace tembra::ports {

// One message on a port's connection: this header in the sender's byte order (both ends are of one
// machine), then the body, in one packet.
enum class Kind : uint16_t {
  kHello = 1,    // first on every connection, from the remote port; no body
  kMessage = 2,  // wants no reply
  kRequest = 3,  // wants the reply with its sequence number
  kReply = 4,    // from the local port
};

enum Flags : uint32_t {
  kHasData = 1,  // tells an empty reply from none
  kFailed = 2,   // a reply that could not be sent
};

struct Header {
  uint32_t magic;
  uint16_t version;
  uint16_t kind;
  int32_t identifier;
  uint32_t flags;
  uint64_t sequence;
  uint64_t length;  // of the body
};
static_assert(sizeof(Header) == 32);

constexpr uint32_t kMagic = 0x54504D54;  // "TMPT"
constexpr uint16_t kVersion = 1;
constexpr size_t kMaxBody = 1 << 20;

inline Header MakeHeader(Kind inKind, int32_t inIdentifier, uint32_t inFlags, uint64_t inSequence,
                         uint64_t inLength) {
  return {kMagic,     kVersion, static_cast<uint16_t>(inKind), inIdentifier, inFlags,
          inSequence, inLength};
}

// Whether the packet is a message of this version whose length is what arrived; the body follows
// the header in it.
inline bool DecodeHeader(const uint8_t* inBytes, size_t inLength, Header& outHeader) {
  if (inLength < sizeof(Header)) return false;
  std::memcpy(&outHeader, inBytes, sizeof(Header));
  if (outHeader.magic != kMagic || outHeader.version != kVersion) return false;
  if (outHeader.length != inLength - sizeof(Header) || outHeader.length > kMaxBody) return false;
  const uint32_t body = outHeader.length ? kHasData : 0;
  switch (static_cast<Kind>(outHeader.kind)) {
    case Kind::kHello:
      return outHeader.flags == 0 && outHeader.length == 0;
    case Kind::kMessage:
    case Kind::kRequest:
      return outHeader.flags == body || outHeader.flags == kHasData;
    case Kind::kReply:
      return outHeader.flags == kHasData ||
             ((outHeader.flags == 0 || outHeader.flags == kFailed) && outHeader.length == 0);
  }
  return false;
}

}  // namespace tembra::ports
