#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "notifications/NotificationWire.h"
#include "ports/PortNames.h"
#include "ports/PortWire.h"

namespace {

namespace ports = tembra::ports;
namespace notifications = tembra::notifications;
using ports::EncodePortName;
using ports::Kind;

std::vector<uint8_t> Packet(const ports::Header& inHeader, size_t inBody) {
  std::vector<uint8_t> bytes(sizeof inHeader + inBody);
  memcpy(bytes.data(), &inHeader, sizeof inHeader);
  return bytes;
}

bool Decodes(const ports::Header& inHeader, size_t inBody) {
  const std::vector<uint8_t> bytes = Packet(inHeader, inBody);
  ports::Header header;
  return ports::DecodeHeader(bytes.data(), bytes.size(), header);
}

TEST(PortHeader, HasItsLayout) {
  EXPECT_EQ(sizeof(ports::Header), 32u);
  EXPECT_EQ(offsetof(ports::Header, magic), 0u);
  EXPECT_EQ(offsetof(ports::Header, version), 4u);
  EXPECT_EQ(offsetof(ports::Header, kind), 6u);
  EXPECT_EQ(offsetof(ports::Header, identifier), 8u);
  EXPECT_EQ(offsetof(ports::Header, flags), 12u);
  EXPECT_EQ(offsetof(ports::Header, sequence), 16u);
  EXPECT_EQ(offsetof(ports::Header, length), 24u);
}

TEST(PortHeader, ReadsBackWhatWasWritten) {
  const std::vector<uint8_t> bytes =
      Packet(ports::MakeHeader(Kind::kRequest, -5, ports::kHasData, 1ull << 40, 3), 3);
  ports::Header header;
  ASSERT_TRUE(ports::DecodeHeader(bytes.data(), bytes.size(), header));
  EXPECT_EQ(header.kind, static_cast<uint16_t>(Kind::kRequest));
  EXPECT_EQ(header.identifier, -5);
  EXPECT_EQ(header.sequence, 1ull << 40);
  EXPECT_EQ(header.length, 3u);
}

TEST(PortHeader, RefusesEveryTruncation) {
  const std::vector<uint8_t> bytes =
      Packet(ports::MakeHeader(Kind::kMessage, 1, ports::kHasData, 0, 8), 8);
  ports::Header header;
  for (size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_FALSE(ports::DecodeHeader(bytes.data(), length, header)) << length;
  }
  EXPECT_TRUE(ports::DecodeHeader(bytes.data(), bytes.size(), header));
}

TEST(PortHeader, RefusesALengthOtherThanWhatArrived) {
  EXPECT_FALSE(Decodes(ports::MakeHeader(Kind::kMessage, 1, ports::kHasData, 0, 7), 8));
  EXPECT_FALSE(Decodes(ports::MakeHeader(Kind::kMessage, 1, ports::kHasData, 0, 9), 8));
  EXPECT_FALSE(Decodes(ports::MakeHeader(Kind::kMessage, 1, ports::kHasData, 0, UINT64_MAX), 8));
}

TEST(PortHeader, RefusesAnotherVersionMagicOrKind) {
  ports::Header header = ports::MakeHeader(Kind::kMessage, 1, 0, 0, 0);
  EXPECT_TRUE(Decodes(header, 0));
  header.version = 2;
  EXPECT_FALSE(Decodes(header, 0));
  header = ports::MakeHeader(Kind::kMessage, 1, 0, 0, 0);
  header.magic ^= 1;
  EXPECT_FALSE(Decodes(header, 0));
  EXPECT_FALSE(Decodes(ports::MakeHeader(static_cast<Kind>(0), 1, 0, 0, 0), 0));
  EXPECT_FALSE(Decodes(ports::MakeHeader(static_cast<Kind>(5), 1, 0, 0, 0), 0));
}

TEST(PortHeader, HoldsFlagsAgainstTheKind) {
  EXPECT_TRUE(Decodes(ports::MakeHeader(Kind::kHello, 0, 0, 0, 0), 0));
  EXPECT_FALSE(Decodes(ports::MakeHeader(Kind::kHello, 0, ports::kHasData, 0, 1), 1));
  EXPECT_FALSE(Decodes(ports::MakeHeader(Kind::kMessage, 0, 0, 0, 1), 1));
  EXPECT_FALSE(Decodes(ports::MakeHeader(Kind::kMessage, 0, ports::kFailed, 0, 0), 0));
  EXPECT_TRUE(Decodes(ports::MakeHeader(Kind::kMessage, 0, ports::kHasData, 0, 0), 0));
  EXPECT_TRUE(Decodes(ports::MakeHeader(Kind::kReply, 0, ports::kFailed, 0, 0), 0));
  EXPECT_FALSE(Decodes(ports::MakeHeader(Kind::kReply, 0, ports::kFailed, 0, 1), 1));
  EXPECT_FALSE(Decodes(ports::MakeHeader(Kind::kReply, 0, 4, 0, 0), 0));
}

TEST(PortHeader, RefusesABodyBeyondTheLimit) {
  EXPECT_TRUE(Decodes(ports::MakeHeader(Kind::kMessage, 0, ports::kHasData, 0, ports::kMaxBody),
                      ports::kMaxBody));
  EXPECT_FALSE(
      Decodes(ports::MakeHeader(Kind::kMessage, 0, ports::kHasData, 0, ports::kMaxBody + 1),
              ports::kMaxBody + 1));
}

TEST(PortName, OrdinaryNamesStandForThemselves) {
  EXPECT_EQ(EncodePortName("com.tembra.tmbasrv.1000.4711"), "com.tembra.tmbasrv.1000.4711");
  EXPECT_EQ(EncodePortName("A-b_c"), "A-b_c");
}

TEST(PortName, OddBytesAreEscaped) {
  EXPECT_EQ(EncodePortName("a/b"), "a%2Fb");
  EXPECT_EQ(EncodePortName("."), "%2E");
  EXPECT_EQ(EncodePortName(".."), "%2E.");
  EXPECT_EQ(EncodePortName("a%b~c d"), "a%25b%7Ec%20d");
  EXPECT_EQ(EncodePortName(std::string("a\0b", 3)), "a%00b");
  EXPECT_EQ(EncodePortName("\xc3\xa9"), "%C3%A9");
}

TEST(PortName, DifferentNamesHaveDifferentFiles) {
  EXPECT_NE(EncodePortName("a/b"), EncodePortName("a%2Fb"));
  EXPECT_NE(EncodePortName("a~lock"), EncodePortName("a") + "~lock");
}

TEST(PortName, EveryNameOf128CharactersFitsAFileName) {
  EXPECT_EQ(EncodePortName(std::string(128, 'x')), std::string(128, 'x'));
  const std::string long1 = EncodePortName(std::string(384, '\xe2'));
  const std::string long2 = EncodePortName(std::string(383, '\xe2') + '\xe3');
  EXPECT_LE(long1.size() + 5, 255u);
  EXPECT_NE(long1, long2);
}

std::string Encode(std::string_view inName, const char* inObject, const char* inInfo) {
  notifications::Notification n;
  n.name = inName;
  n.hasObject = inObject != nullptr;
  if (inObject) n.object = inObject;
  n.hasInfo = inInfo != nullptr;
  if (inInfo) n.info = inInfo;
  return notifications::EncodeNotification(n);
}

bool Decode(const std::string& inBytes, notifications::Notification& outNotification) {
  return notifications::DecodeNotification(reinterpret_cast<const uint8_t*>(inBytes.data()),
                                           inBytes.size(), outNotification);
}

TEST(NotificationDatagram, ReadsBackWhatWasWritten) {
  const std::string bytes = Encode("name", "object", "info");
  notifications::Notification n;
  ASSERT_TRUE(Decode(bytes, n));
  EXPECT_EQ(n.name, "name");
  EXPECT_TRUE(n.hasObject);
  EXPECT_EQ(n.object, "object");
  EXPECT_TRUE(n.hasInfo);
  EXPECT_EQ(n.info, "info");
}

TEST(NotificationDatagram, TellsNoObjectFromAnEmptyOne) {
  notifications::Notification n;
  const std::string none = Encode("name", nullptr, nullptr);
  ASSERT_TRUE(Decode(none, n));
  EXPECT_FALSE(n.hasObject);
  EXPECT_FALSE(n.hasInfo);
  const std::string empty = Encode("name", "", nullptr);
  ASSERT_TRUE(Decode(empty, n));
  EXPECT_TRUE(n.hasObject);
  EXPECT_EQ(n.object, "");
}

TEST(NotificationDatagram, IsNotWrittenBeyondItsBounds) {
  EXPECT_EQ(Encode("", nullptr, nullptr), "");
  EXPECT_EQ(Encode(std::string(1025, 'n'), nullptr, nullptr), "");
  EXPECT_EQ(Encode("n", std::string(1025, 'o').c_str(), nullptr), "");
  EXPECT_EQ(Encode("n", nullptr, std::string(48 * 1024 + 1, 'i').c_str()), "");
  notifications::Notification n;
  const std::string largest = Encode(std::string(1024, 'n'), std::string(1024, 'o').c_str(),
                                     std::string(48 * 1024, 'i').c_str());
  EXPECT_EQ(largest.size(), notifications::kMaxDatagram);
  EXPECT_TRUE(Decode(largest, n));
}

TEST(NotificationDatagram, RefusesEveryTruncationAndEveryAddition) {
  const std::string bytes = Encode("name", "object", "info");
  notifications::Notification n;
  for (size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_FALSE(Decode(bytes.substr(0, length), n)) << length;
  }
  EXPECT_FALSE(Decode(bytes + '\0', n));
}

TEST(NotificationDatagram, EveryBitOfTheHeaderCounts) {
  const std::string bytes = Encode("name", "object", "info");
  notifications::Notification n;
  for (size_t bit = 0; bit < sizeof(notifications::Header) * 8; ++bit) {
    std::string changed = bytes;
    changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << (bit % 8)));
    EXPECT_FALSE(Decode(changed, n)) << bit;
  }
}

TEST(NotificationDatagram, RandomBytesNeverReachBeyondTheirEnd) {
  const unsigned seed = 20261121;
  std::mt19937 random(seed);
  for (int i = 0; i < 100000; ++i) {
    std::vector<uint8_t> bytes(random() % 64);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    notifications::Header header{notifications::kMagic,
                                 notifications::kVersion,
                                 static_cast<uint16_t>(random() % 4),
                                 static_cast<uint32_t>(random() % 16),
                                 static_cast<uint32_t>(random() % 16),
                                 static_cast<uint32_t>(random() % 16)};
    if (bytes.size() >= sizeof header) memcpy(bytes.data(), &header, sizeof header);
    notifications::Notification n;
    if (!notifications::DecodeNotification(bytes.data(), bytes.size(), n)) continue;
    EXPECT_EQ(sizeof header + n.name.size() + n.object.size() + n.info.size(), bytes.size());
  }
}

}  // namespace
