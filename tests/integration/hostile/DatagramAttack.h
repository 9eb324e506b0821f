#pragma once

#include <cstdint>
#include <string>

#include "Hostile.h"

namespace tembra::test {

// The observers of these tests listen to these.
constexpr const char* kOpenName = "hostile.open";    // observed with any object
constexpr const char* kNamedName = "hostile.named";  // observed with kNamedObject only
constexpr const char* kNamedObject = "friend";

// Hostile datagrams for notification sockets, and what a receiver with those observers should
// count of them.
class DatagramAttack {
 public:
  enum class Fate {
    kMalformed,      // seen at once
    kMalformedLate,  // seen when it is to be given to an observer that takes it from anybody
    kDelivered,      // good for such an observer
    kNamed,          // good, but for an observer that named whom it listens to
    kIgnored,        // good, but nobody's
  };
  struct Datagram {
    std::string bytes;
    Fate fate;
    bool hasDescriptors = false;
  };

  explicit DatagramAttack(std::uint64_t inSeed);

  Datagram Make();
  static bool Send(const Descriptor& inSocket, const Datagram& inDatagram);
  void Note(const Datagram& inDatagram);
  // "sent", and the number of each fate.
  nlohmann::json Tally() const;

 private:
  std::string MakeMalformed();

  Random mRandom;
  std::string mInfo;  // a good dictionary
  std::uint64_t mFates[5] = {};
};

}  // namespace tembra::test
