#include "PortAttack.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <limits>

#include "client/Snd.h"
#include "client/TMBAudioClientInfo.h"
#include "client/TMBAudioServer.h"
#include "corefoundation/Object.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

using cf::Owned;
using ports::Header;
using ports::Kind;
using ports::MakeHeader;

constexpr UInt32 kFrames = 64;
constexpr int kRoom = 2 << 20;
constexpr std::size_t kTimeSize = sizeof(AudioTimeStamp);
constexpr std::size_t kCountAt = kTimeSize;
constexpr std::size_t kRecordAt = kCountAt + sizeof(UInt32);

std::string Packet(const Header& inHeader, const std::string& inBody = {}) {
  return std::string(reinterpret_cast<const char*>(&inHeader), sizeof inHeader) + inBody;
}

std::string Hello() {
  return Packet(MakeHeader(Kind::kHello, 0, 0, 0, 0));
}

Owned<CFDataRef> MakeData(const std::string& inBytes) {
  return Owned<CFDataRef>(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(inBytes.data()),
                                       static_cast<CFIndex>(inBytes.size())));
}

std::string Bytes(CFDataRef inData) {
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(inData)),
          static_cast<std::size_t>(CFDataGetLength(inData))};
}

AudioStreamBasicDescription GoodFormat() {
  AudioStreamBasicDescription format = {};
  FillOutASBDForLPCM(format, 44100.0, 2, 32, 32, true, false, true);
  return format;
}

std::string Message(SInt32 inProcess, const AudioStreamBasicDescription& inFormat) {
  Owned<CFDataRef> data(TMBAudioClientInfo(getuid(), inProcess, inFormat).CopyMessageData(true));
  return Bytes(data);
}

std::string PortName(CFStringRef inName) {
  Owned<CFStringRef> name(inName);
  char text[128] = {};
  CFStringGetCString(name, text, sizeof text, kCFStringEncodingUTF8);
  return text;
}

template <class T>
void Put(std::string& ioBytes, std::size_t inAt, T inValue) {
  memcpy(ioBytes.data() + inAt, &inValue, sizeof inValue);
}

// A block of one interleaved stereo buffer.
std::string Block() {
  AudioTimeStamp time = {};
  time.mHostTime = SndGetHostTime();
  time.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
  std::vector<float> samples(2 * kFrames, 0.25f);
  AudioBufferList list;
  list.mNumberBuffers = 1;
  list.mBuffers[0] = {2, static_cast<UInt32>(samples.size() * sizeof(float)), samples.data()};
  Owned<CFDataRef> data(CFDataCreateWithABL(time, GoodFormat(), list, false));
  return Bytes(data);
}

}  // namespace

PortAttack::PortAttack(std::uint64_t inSeed)
    : mRandom(inSeed),
      // No byte of the number is one of this process's, so no single wrong byte makes it that.
      mClaim(Message(~getpid() & 0x7fffffff, GoodFormat())),
      mGoodBlock(Block()) {
  mFiles[0] = OpenFile(PortFile(PortName(CFTmbSndCopyListenerID())));
  Descriptor socket;
  int room = 0;
  socklen_t size = sizeof room;
  mLargeFits = Connect(Target::kListener, socket) &&
               getsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &room, &size) == 0 && room >= kRoom;
}

PortAttack::~PortAttack() {
  for (CFMessagePortRef port : {mListenerPort, mDataPort}) {
    if (port == nullptr) continue;
    CFMessagePortInvalidate(port);
    CFRelease(port);
  }
}

bool PortAttack::BecomeClient() {
  Owned<CFStringRef> listener(CFTmbSndCopyListenerID());
  Owned<CFStringRef> data(CFTmbSndCopyPortID(getpid()));
  mListenerPort = CFMessagePortCreateRemote(nullptr, listener);
  if (mListenerPort == nullptr) return false;
  Owned<CFDataRef> add = MakeData(Message(getpid(), GoodFormat()));
  if (CFMessagePortSendRequest(mListenerPort, kTMBAudioMessageAddID, add, 20, 0, nullptr,
                               nullptr) != kCFMessagePortSuccess) {
    return false;
  }
  WaitUntil([&] {
    mDataPort = CFMessagePortCreateRemote(nullptr, data);
    return mDataPort != nullptr;
  });
  mFiles[1] = OpenFile(PortFile(PortName(CFTmbSndCopyPortID(getpid()))));
  return mDataPort != nullptr && mFiles[1];
}

void PortAttack::AimAtClient(pid_t inClient) {
  mFiles[2] = OpenFile(PortFile(PortName(CFTmbSndCopyPortID(inClient))));
}

bool PortAttack::Send(unsigned inCount) {
  for (unsigned i = 0; i < inCount; ++i) {
    Target target = static_cast<Target>(Pick(mRandom, mFiles[2] ? 3 : 2));
    bool sent =
        Pick(mRandom, 10) < 3 || target == Target::kOtherData ? Break(target) : Misuse(target);
    if (!sent && target == Target::kOtherData) {
      // That client has ended.
      mFiles[2].Reset();
      target = Target::kListener;
      sent = Break(target);
    }
    if (!sent) return false;
    ++TallyOf(target).sent;
  }
  return true;
}

void PortAttack::CloseConnections() {
  for (Descriptor& talk : mTalks) talk.Reset();
}

std::uint64_t PortAttack::Sent() const {
  std::uint64_t sent = 0;
  for (const Tally& tally : mTallies) sent += tally.sent;
  return sent;
}

bool PortAttack::Connect(Target inTarget, Descriptor& outSocket) {
  outSocket = ConnectTo(mFiles[static_cast<std::size_t>(inTarget)].Get(), SOCK_SEQPACKET);
  if (!outSocket) return false;
  // As message ports do.
  setsockopt(outSocket.Get(), SOL_SOCKET, SO_SNDBUF, &kRoom, sizeof kRoom);
  ++TallyOf(inTarget).connections;
  return true;
}

std::string PortAttack::MakeBroken() {
  Header header = MakeHeader(Kind::kMessage, static_cast<SInt32>(mRandom()), 0, mRandom(), 0);
  switch (Pick(mRandom, 8)) {
    case 0: {
      std::string bytes = RandomBytes(mRandom, 1 + Pick(mRandom, 300));
      bytes[0] = 0;  // never the mark of the protocol
      return bytes;
    }
    case 1:
      return Packet(header).substr(0, 1 + Pick(mRandom, sizeof header - 1));
    case 2:
      header.version = static_cast<std::uint16_t>(2 + Pick(mRandom, 1000));
      return Packet(header);
    case 3:
      header.kind = static_cast<std::uint16_t>(5 + Pick(mRandom, 60000));
      return Packet(header);
    case 4:
      header.flags = 4 + static_cast<std::uint32_t>(Pick(mRandom, 1000));
      return Packet(header);
    case 5: {
      // The length is not what arrives.
      const std::string body = RandomBytes(mRandom, Pick(mRandom, 100));
      header.flags = ports::kHasData;
      header.length = body.size() + 1 + Pick(mRandom, 1000);
      if (Pick(mRandom, 2) == 0) header.length = ~std::uint64_t{0} - Pick(mRandom, 100);
      return Packet(header, body);
    }
    case 6:
      return Packet(MakeHeader(Kind::kReply, 0, 0, Pick(mRandom, 10), 0));
    default:
      return Hello();  // the second one
  }
}

bool PortAttack::Break(Target inTarget) {
  Descriptor socket;
  if (!Connect(inTarget, socket)) return false;
  Tally& tally = TallyOf(inTarget);
  const std::uint64_t way = Pick(mRandom, 100);
  if (way < 15) {
    // No greeting.
    std::string first = Packet(MakeHeader(Kind::kMessage, 1, 0, 0, 0));
    if (way < 5) {
      first = RandomBytes(mRandom, 1 + Pick(mRandom, 100));
      first[0] = 0;
    } else if (way < 10) {
      first = Hello().substr(0, 1 + Pick(mRandom, 31));
    }
    ++tally.malformed;
    return SendBytes(socket, first);
  }
  if (!SendBytes(socket, Hello())) return false;
  if (way == 15) return SendOversized(inTarget, socket);
  if (way < 18) {
    ++tally.maybeMalformed;
    return SendBytes(socket, {});
  }
  if (way < 25) {
    ++tally.malformed;
    return SendWithDescriptors(socket, Packet(MakeHeader(Kind::kMessage, 1, 0, 0, 0)));
  }
  if (inTarget == Target::kOtherData && way < 60) {
    // In good form, but from another process than the client.
    ++tally.messages;
    return SendBytes(
        socket,
        Packet(MakeHeader(Kind::kMessage, 0, ports::kHasData, 0, mGoodBlock.size()), mGoodBlock));
  }
  ++tally.malformed;
  return SendBytes(socket, MakeBroken());
}

bool PortAttack::SendOversized(Target inTarget, Descriptor& ioSocket) {
  const int room = 8 << 20;
  if (setsockopt(ioSocket.Get(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0) {
    setsockopt(ioSocket.Get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  }
  const std::size_t excess = 1 + Pick(mRandom, 100);
  if (SendBytes(ioSocket, std::string(sizeof(Header) + ports::kMaxBody + excess, 'x'))) {
    ++TallyOf(inTarget).oversized;
    return true;
  }
  // Where the system's own limit is smaller, it stands in front of the port's.
  return errno == EMSGSIZE;
}

bool PortAttack::Misuse(Target inTarget) {
  SInt32 identifier = 0;
  const std::string body =
      inTarget == Target::kListener ? MakeListenerBody(identifier) : MakeBlock(identifier);
  ++TallyOf(inTarget).messages;
  return Pick(mRandom, 5) == 0 ? SendThroughPort(inTarget, identifier, body)
                               : Speak(inTarget, identifier, body);
}

bool PortAttack::Speak(Target inTarget, SInt32 inID, const std::string& inBody) {
  const auto index = static_cast<std::size_t>(inTarget);
  Descriptor& talk = mTalks[index];
  if (!talk || ++mSpoken[index] % 500 == 0) {
    if (!Connect(inTarget, talk) || !SendBytes(talk, Hello())) return false;
  }
  const bool asks = Pick(mRandom, 4) == 0;
  const std::uint32_t flags = inBody.empty() && Pick(mRandom, 2) == 0 ? 0 : ports::kHasData;
  const Header header =
      MakeHeader(asks ? Kind::kRequest : Kind::kMessage, inID, flags, mRandom(), inBody.size());
  // Answers are taken, so that the server need not end the connection for them.
  char answer[64];
  while (recv(talk.Get(), answer, sizeof answer, MSG_DONTWAIT) > 0) continue;
  return SendBytes(talk, Packet(header, inBody));
}

bool PortAttack::SendThroughPort(Target inTarget, SInt32 inID, const std::string& inBody) {
  CFMessagePortRef port = inTarget == Target::kListener ? mListenerPort : mDataPort;
  return CFMessagePortSendRequest(port, inID, MakeData(inBody), 20, 0, nullptr, nullptr) ==
         kCFMessagePortSuccess;
}

std::string PortAttack::MakeListenerBody(SInt32& outID) {
  constexpr SInt32 kIDs[] = {kTMBAudioMessageAddID, kTMBAudioMessageEchoID,
                             kTMBAudioMessageDisposeID};
  outID = Pick(mRandom, 4) == 0 ? static_cast<SInt32>(mRandom()) : kIDs[Pick(mRandom, 3)];
  const std::uint64_t way = Pick(mRandom, 1000);
  if (way < 150) {
    // From whom it says, but in a format that is no use.
    AudioStreamBasicDescription format = GoodFormat();
    switch (Pick(mRandom, 8)) {
      case 0:
        format.mChannelsPerFrame = 0;
        break;
      case 1:
        format.mChannelsPerFrame = 65 + static_cast<UInt32>(Pick(mRandom, 1 << 30));
        break;
      case 2:
        format.mSampleRate = std::numeric_limits<double>::quiet_NaN();
        break;
      case 3:
        format.mSampleRate = -44100.0;
        break;
      case 4:
        format.mSampleRate = 1e300;
        break;
      case 5:
        format.mBitsPerChannel = 16;
        break;
      case 6:
        format.mFormatID = static_cast<UInt32>(Pick(mRandom, 1000));
        break;
      default:
        format.mBytesPerFrame = static_cast<UInt32>(9 + Pick(mRandom, 1 << 30));
        break;
    }
    // An echo of who is registered would only be a sign of life.
    outID = kTMBAudioMessageAddID;
    ++mRefusedFormats;
    return Message(getpid(), format);
  }
  ++mBadMessages;
  if (way < 200) {
    // All is well but what it asks for.
    outID = static_cast<SInt32>(Pick(mRandom, 1 << 20));
    return Message(getpid(), GoodFormat());
  }
  if (way < 400) return RandomBytes(mRandom, Pick(mRandom, 300));
  if (way < 500) return mClaim.substr(0, Pick(mRandom, mClaim.size()));
  if (way < 502 && mLargeFits) return RandomBytes(mRandom, ports::kMaxBody);
  if (way < 550) {
    return "<plist version=\"1.0\">" + std::string(Pick(mRandom, 2), ' ') +
           std::string(7 * Pick(mRandom, 100), '<') + "</plist>";
  }
  if (way < 600) {
    std::string nested = "<plist version=\"1.0\">";
    for (std::uint64_t depth = Pick(mRandom, 600); depth > 0; --depth) nested += "<array>";
    return nested;
  }
  std::string wrong = mClaim;
  if (way < 950) wrong[Pick(mRandom, wrong.size())] = static_cast<char>(mRandom());
  return wrong;
}

std::string PortAttack::MakeBlock(SInt32& outID) {
  outID = kTMBAudioMessageDataID;
  std::string block = mGoodBlock;
  const std::uint64_t way = Pick(mRandom, 1000);
  auto reject = [&](const char* inReason) { ++mRejected[inReason]; };
  if (way < 50) {
    outID = 1 + static_cast<SInt32>(Pick(mRandom, 1 << 30));
    reject("wrong_message");
  } else if (way < 150) {
    reject("too_short");
    block.resize(Pick(mRandom, kRecordAt));
  } else if (way < 200) {
    reject("no_buffers");
    Put(block, kCountAt, UInt32{0});
  } else if (way < 250) {
    reject("too_many_buffers");
    Put(block, kCountAt, static_cast<UInt32>(3 + Pick(mRandom, 0xfffffff0)));
  } else if (way < 350) {
    reject("truncated");
    block.resize(kRecordAt + Pick(mRandom, block.size() - kRecordAt));
  } else if (way < 400) {
    // A length that would reach around.
    reject("truncated");
    Put(block, kRecordAt + sizeof(UInt32), static_cast<UInt32>(0xffffffff - Pick(mRandom, 1000)));
  } else if (way < 450) {
    reject("trailing_bytes");
    block += RandomBytes(mRandom, 1 + Pick(mRandom, 100));
  } else if (way < 500) {
    reject("wrong_channels");
    Put(block, kRecordAt, static_cast<UInt32>(3 + Pick(mRandom, 0xfffffff0)));
  } else if (way < 550) {
    reject("uneven_buffers");
    block.pop_back();
    Put(block, kRecordAt + sizeof(UInt32), static_cast<UInt32>(8 * kFrames - 1));
  } else if (way < 600) {
    reject("too_small");
    block.resize(kRecordAt + 2 * sizeof(UInt32));
    Put(block, kRecordAt + sizeof(UInt32), UInt32{0});
  } else if (way < 603 && mLargeFits) {
    reject("too_many_frames");
    constexpr UInt32 kSize = 8 * ((1 << 16) + 1);
    block.resize(kRecordAt + 2 * sizeof(UInt32) + kSize);
    Put(block, kRecordAt + sizeof(UInt32), kSize);
  } else if (way < 650) {
    reject("bad_time");
    constexpr double kTimes[] = {std::numeric_limits<double>::quiet_NaN(),
                                 std::numeric_limits<double>::infinity(), -1e300, 1e17};
    Put(block, 0, kTimes[Pick(mRandom, 4)]);
  } else if (way < 800) {
    // Whatever that makes of it, good blocks among it.
    block[Pick(mRandom, block.size())] = static_cast<char>(mRandom());
  } else {
    block = RandomBytes(mRandom, Pick(mRandom, 2000));
  }
  return block;
}

}  // namespace tembra::test
