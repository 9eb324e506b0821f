#include "DatagramAttack.h"

#include <CoreFoundation/CoreFoundation.h>
#include <string.h>

#include <numeric>

#include "corefoundation/Object.h"
#include "notifications/NotificationWire.h"

namespace tembra::test {
namespace {

using namespace notifications;
using cf::Owned;

std::string Encode(const std::string& inName, const char* inObject, const std::string* inInfo) {
  Notification notification;
  notification.name = inName;
  notification.hasObject = inObject != nullptr;
  if (inObject != nullptr) notification.object = inObject;
  notification.hasInfo = inInfo != nullptr;
  if (inInfo != nullptr) notification.info = *inInfo;
  return EncodeNotification(notification);
}

std::string MakeInfo() {
  const void* key = CFSTR("Event");
  const SInt32 number = 'none';
  Owned<CFNumberRef> value(CFNumberCreate(nullptr, kCFNumberSInt32Type, &number));
  const void* values = value.Get();
  Owned<CFDictionaryRef> dictionary(CFDictionaryCreate(
      nullptr, &key, &values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  Owned<CFDataRef> data(
      CFPropertyListCreateData(nullptr, dictionary, kCFPropertyListBinaryFormat_v1_0, 0, nullptr));
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
          static_cast<std::size_t>(CFDataGetLength(data))};
}

}  // namespace

DatagramAttack::DatagramAttack(std::uint64_t inSeed) : mRandom(inSeed), mInfo(MakeInfo()) {}

std::string DatagramAttack::MakeMalformed() {
  std::string good = Encode(kOpenName, kNamedObject, &mInfo);
  Header header;
  memcpy(&header, good.data(), sizeof header);
  switch (Pick(mRandom, 10)) {
    case 0: {
      std::string bytes = RandomBytes(mRandom, Pick(mRandom, 3000));
      if (!bytes.empty()) bytes[0] = 0;  // never the mark of a notification
      return bytes;
    }
    case 1:
      return good.substr(0, Pick(mRandom, good.size()));
    case 2:
      return good + RandomBytes(mRandom, 1 + Pick(mRandom, 100));
    case 3:
      header.version = static_cast<std::uint16_t>(2 + Pick(mRandom, 60000));
      break;
    case 4:
      header.flags |= static_cast<std::uint16_t>(4 << Pick(mRandom, 14));
      break;
    case 5:
      header.flags = 0;  // with an object and a dictionary all the same
      break;
    case 6:
      header.nameLength = static_cast<std::uint32_t>(Pick(mRandom, 2) == 0 ? 0 : mRandom() | 2048);
      break;
    case 7:
      // Lengths that come out right only where they wrap around.
      header.objectLength += 0x80000000;
      header.infoLength += 0x80000000;
      break;
    case 8:
      // Longer than any notification.
      return good + RandomBytes(mRandom, kMaxDatagram + Pick(mRandom, 50000));
    default:
      header.magic ^= 1u << Pick(mRandom, 32);
      break;
  }
  memcpy(good.data(), &header, sizeof header);
  return good;
}

DatagramAttack::Datagram DatagramAttack::Make() {
  const std::uint64_t way = Pick(mRandom, 1000);
  if (way < 600) return {MakeMalformed(), Fate::kMalformed};
  if (way < 610) return {Encode(kOpenName, nullptr, &mInfo), Fate::kMalformed, true};
  if (way < 650) {
    // No text.
    return {Encode("\xff\xfe" + RandomBytes(mRandom, Pick(mRandom, 50)), nullptr, nullptr),
            Fate::kMalformedLate};
  }
  if (way < 750) {
    // No dictionary.
    std::string info = mInfo.substr(0, Pick(mRandom, mInfo.size()));
    if (way < 700) {
      info = "\x01" + RandomBytes(mRandom, Pick(mRandom, 300));
    } else if (way < 702) {
      info = RandomBytes(mRandom, kMaxInfo);
      info[0] = 1;
    }
    return {Encode(kOpenName, nullptr, &info), Fate::kMalformedLate};
  }
  if (way < 850) return {Encode(kOpenName, kNamedObject, &mInfo), Fate::kDelivered};
  if (way < 900) return {Encode(kNamedName, kNamedObject, &mInfo), Fate::kNamed};
  // Whatever it holds, nobody looks.
  std::string info = RandomBytes(mRandom, Pick(mRandom, 500));
  return {Encode("hostile." + std::to_string(mRandom()), nullptr, &info), Fate::kIgnored};
}

bool DatagramAttack::Send(const Descriptor& inSocket, const Datagram& inDatagram) {
  return inDatagram.hasDescriptors ? SendWithDescriptors(inSocket, inDatagram.bytes)
                                   : SendBytes(inSocket, inDatagram.bytes);
}

void DatagramAttack::Note(const Datagram& inDatagram) {
  ++mFates[static_cast<int>(inDatagram.fate)];
}

nlohmann::json DatagramAttack::Tally() const {
  return {{"sent", std::accumulate(std::begin(mFates), std::end(mFates), std::uint64_t{0})},
          {"malformed", mFates[0]},
          {"malformed_late", mFates[1]},
          {"delivered", mFates[2]},
          {"named", mFates[3]},
          {"ignored", mFates[4]}};
}

}  // namespace tembra::test
