#include "ports/PortNames.h"

#include <cstdint>
#include <cstdio>

namespace tembra::ports {
namespace {

constexpr size_t kMaxLength = 200;
constexpr size_t kKeptLength = 120;

bool StandsForItself(char inByte) {
  return (inByte >= 'a' && inByte <= 'z') || (inByte >= 'A' && inByte <= 'Z') ||
         (inByte >= '0' && inByte <= '9') || inByte == '-' || inByte == '_';
}

// FNV-1a from a given start.
uint64_t Hash(std::string_view inBytes, uint64_t inStart) {
  uint64_t hash = inStart;
  for (char byte : inBytes) hash = (hash ^ static_cast<uint8_t>(byte)) * 0x100000001b3;
  return hash;
}

}  // namespace

std::string EncodePortName(std::string_view inName) {
  std::string encoded;
  for (char byte : inName) {
    if (StandsForItself(byte) || (byte == '.' && !encoded.empty())) {
      encoded += byte;
    } else {
      char escape[4];
      snprintf(escape, sizeof escape, "%%%02X", static_cast<uint8_t>(byte));
      encoded += escape;
    }
  }
  if (encoded.size() <= kMaxLength) return encoded;
  char hash[34];
  snprintf(hash, sizeof hash, "~%016llx%016llx",
           static_cast<unsigned long long>(Hash(inName, 0xcbf29ce484222325)),
           static_cast<unsigned long long>(Hash(inName, 0x6c62272e07bb0142)));
  return encoded.substr(0, kKeptLength) + hash;
}

}  // namespace tembra::ports
