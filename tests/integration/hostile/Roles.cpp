#include "Roles.h"

#include <errno.h>
#include <sys/socket.h>

#include <cstdio>

#include "DatagramAttack.h"
#include "Hostile.h"
#include "ports/PortWire.h"
#include "support/OtherUser.h"

namespace tembra::test {
namespace {

int Say(const nlohmann::json& inResult) {
  std::printf("%s\n", inResult.dump().c_str());
  return 0;
}

// The error of a connection, 0 if there was none.
int TryToConnect(const Descriptor& inFile, int inKind) {
  return ConnectTo(inFile.Get(), inKind) ? 0 : errno;
}

}  // namespace

int Reach(const std::string& inFile) {
  const Descriptor file = OpenFile(inFile);
  if (!file || !BecomeUser(kNobody)) return 3;
  const int path = OpenFile(inFile) ? 0 : errno;
  return Say({{"path", path},
              {"stream", TryToConnect(file, SOCK_SEQPACKET)},
              {"datagram", TryToConnect(file, SOCK_DGRAM)}});
}

int ConnectAsStranger(const std::string& inFirst, const std::string& inSecond, unsigned inCount,
                      unsigned long long inSeed) {
  Random random(inSeed);
  const Descriptor files[2] = {OpenFile(inFirst), OpenFile(inSecond)};
  if (!files[0] || !files[1] || !BecomeUser(kNobody)) return 3;
  const ports::Header hello = ports::MakeHeader(ports::Kind::kHello, 0, 0, 0, 0);
  const ports::Header message = ports::MakeHeader(ports::Kind::kMessage, 'cadd', 0, 0, 0);
  const std::string greeting(reinterpret_cast<const char*>(&hello), sizeof hello);
  const std::string empty(reinterpret_cast<const char*>(&message), sizeof message);
  unsigned connected[2] = {0, 0};
  unsigned messages = 0;
  for (unsigned i = 0; i < inCount; ++i) {
    // The first port goes with its client.
    unsigned which = Pick(random, 4) == 0 ? 0 : 1;
    Descriptor socket = ConnectTo(files[which].Get(), SOCK_SEQPACKET);
    if (!socket && which == 0) socket = ConnectTo(files[which = 1].Get(), SOCK_SEQPACKET);
    if (!socket) return 4;
    ++connected[which];
    // They fail from the moment that the port turns the connection away.
    SendBytes(socket, greeting);
    SendBytes(socket, empty);
    SendBytes(socket, RandomBytes(random, Pick(random, 5000)));
    SendWithDescriptors(socket, empty);
    messages += 4;
  }
  return Say({{"first", connected[0]}, {"second", connected[1]}, {"messages", messages}});
}

int Post(const std::string& inFirst, const std::string& inSecond, unsigned inCount,
         unsigned long long inSeed, bool inAsOther) {
  const Descriptor files[2] = {OpenFile(inFirst), OpenFile(inSecond)};
  if (!files[0] || (inAsOther && !BecomeUser(kNobody))) return 3;
  Descriptor first = ConnectTo(files[0].Get(), SOCK_DGRAM);
  if (!first) return 4;
  // The second one may end at any time.
  Descriptor second;
  if (files[1]) second = ConnectTo(files[1].Get(), SOCK_DGRAM);
  DatagramAttack attack(inSeed);
  for (unsigned i = 0; i < inCount; ++i) {
    const DatagramAttack::Datagram datagram = attack.Make();
    if (!DatagramAttack::Send(first, datagram)) return 5;
    attack.Note(datagram);
    if (second && i % 4 == 0) DatagramAttack::Send(second, datagram);
  }
  return Say(attack.Tally());
}

}  // namespace tembra::test
