// A packet on a port's connection, and a port's name: what is taken for a message says its own
// length, and every name has a file name that stays inside its directory.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "ports/PortNames.h"
#include "ports/PortWire.h"

namespace {

using namespace tembra::ports;

void Require(bool inHolds) {
  if (!inHolds) std::abort();
}

void CheckPacket(const uint8_t* inData, size_t inSize) {
  Header header;
  if (!DecodeHeader(inData, inSize, header)) return;
  Require(header.length == inSize - sizeof header && header.length <= kMaxBody);
  const auto kind = static_cast<Kind>(header.kind);
  Require(kind == Kind::kHello || kind == Kind::kMessage || kind == Kind::kRequest ||
          kind == Kind::kReply);
  // A body is announced, and a greeting or a failure has none.
  Require(header.length == 0 || header.flags == kHasData);
  Require(kind != Kind::kHello || header.flags == 0);
  Require((header.flags & kFailed) == 0 || kind == Kind::kReply);
  // Its own header made anew is the one that came.
  const Header again =
      MakeHeader(kind, header.identifier, header.flags, header.sequence, header.length);
  Require(std::memcmp(&again, inData, sizeof again) == 0);
}

void CheckName(std::string_view inName) {
  const std::string file = EncodePortName(inName);
  Require(file.size() <= 240);
  Require(file.find('/') == std::string::npos && file.find('\0') == std::string::npos);
  Require(file.empty() == inName.empty() && file.rfind('.', 0) != 0);
  Require(file.rfind('~', 0) != 0);
  // What comes from another port's name is another file.
  if (!inName.empty()) {
    std::string other(inName);
    other.back() = static_cast<char>(other.back() ^ 1);
    Require(EncodePortName(other) != file);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  CheckPacket(inData, inSize);
  // At most 128 characters of UTF-8.
  CheckName({reinterpret_cast<const char*>(inData), std::min<size_t>(inSize, 384)});
  return 0;
}
