#include "client/TMBAudioClientInfo.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <limits>
#include <string>

#include "fakes.h"

namespace {

// A property list being put together, released at the end.
class Message {
 public:
  Message()
      : mDictionary(CFDictionaryCreateMutable(kCFAllocatorDefault, 0,
                                              &kCFTypeDictionaryKeyCallBacks,
                                              &kCFTypeDictionaryValueCallBacks)) {}
  ~Message() {
    CFRelease(mDictionary);
    if (mData != nullptr) CFRelease(mData);
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  Message& Add(CFStringRef inKey, CFTypeRef inValue) {
    CFDictionarySetValue(mDictionary, inKey, inValue);
    CFRelease(inValue);
    return *this;
  }
  Message& Int(CFStringRef inKey, SInt32 inValue) {
    return Add(inKey, CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &inValue));
  }
  Message& Int64(CFStringRef inKey, SInt64 inValue) {
    return Add(inKey, CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &inValue));
  }
  Message& Double(CFStringRef inKey, double inValue) {
    return Add(inKey, CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &inValue));
  }
  CFDataRef Data() {
    if (mData == nullptr) {
      mData = CFPropertyListCreateData(kCFAllocatorDefault, mDictionary,
                                       kCFPropertyListBinaryFormat_v1_0, 0, nullptr);
    }
    return mData;
  }

 private:
  CFMutableDictionaryRef mDictionary;
  CFDataRef mData = nullptr;
};

// A parsed message, released at the end.
class Parsed {
 public:
  explicit Parsed(CFDataRef inData)
      : mList(CFPropertyListCreateWithData(kCFAllocatorDefault, inData, 0, &mFormat, nullptr)) {}
  ~Parsed() {
    if (mList != nullptr) CFRelease(mList);
  }
  Parsed(const Parsed&) = delete;
  Parsed& operator=(const Parsed&) = delete;

  CFDictionaryRef Dictionary() const { return static_cast<CFDictionaryRef>(mList); }
  CFPropertyListFormat Format() const { return mFormat; }
  CFNumberRef Number(const char* inKey) const {
    CFStringRef key = CFStringCreateWithCString(kCFAllocatorDefault, inKey, kCFStringEncodingUTF8);
    CFTypeRef value = CFDictionaryGetValue(Dictionary(), key);
    CFRelease(key);
    EXPECT_TRUE(value == nullptr || CFGetTypeID(value) == CFNumberGetTypeID());
    return static_cast<CFNumberRef>(value);
  }
  SInt32 Int(const char* inKey) const {
    SInt32 value = -77;
    CFNumberRef number = Number(inKey);
    EXPECT_NE(number, nullptr) << inKey;
    if (number != nullptr) {
      EXPECT_TRUE(CFNumberGetValue(number, kCFNumberSInt32Type, &value)) << inKey;
      EXPECT_FALSE(CFNumberIsFloatType(number)) << inKey;
    }
    return value;
  }

 private:
  CFPropertyListFormat mFormat = kCFPropertyListXMLFormat_v1_0;
  CFPropertyListRef mList;
};

AudioStreamBasicDescription OtherFormat() {
  AudioStreamBasicDescription format = {};
  format.mSampleRate = 96000.5;
  format.mFormatID = 'alac';
  format.mFormatFlags = 0x80000003;
  format.mBytesPerPacket = 11;
  format.mFramesPerPacket = 12;
  format.mBytesPerFrame = 13;
  format.mChannelsPerFrame = 14;
  format.mBitsPerChannel = 15;
  return format;
}

void ExpectFormat(const AudioStreamBasicDescription& inGot,
                  const AudioStreamBasicDescription& inWanted) {
  EXPECT_EQ(inGot.mSampleRate, inWanted.mSampleRate);
  EXPECT_EQ(inGot.mFormatID, inWanted.mFormatID);
  EXPECT_EQ(inGot.mFormatFlags, inWanted.mFormatFlags);
  EXPECT_EQ(inGot.mBytesPerPacket, inWanted.mBytesPerPacket);
  EXPECT_EQ(inGot.mFramesPerPacket, inWanted.mFramesPerPacket);
  EXPECT_EQ(inGot.mBytesPerFrame, inWanted.mBytesPerFrame);
  EXPECT_EQ(inGot.mChannelsPerFrame, inWanted.mChannelsPerFrame);
  EXPECT_EQ(inGot.mBitsPerChannel, inWanted.mBitsPerChannel);
}

AudioStreamBasicDescription DefaultFormat() {
  AudioStreamBasicDescription format = {};
  format.mSampleRate = 44100.0;
  format.mFormatID = 0x6C70636D;
  format.mFormatFlags = 9;
  format.mBytesPerPacket = 8;
  format.mFramesPerPacket = 1;
  format.mBytesPerFrame = 8;
  format.mChannelsPerFrame = 2;
  format.mBitsPerChannel = 32;
  return format;
}

TMBAudioClientInfo Other() {
  return TMBAudioClientInfo(4000000001u, 23, OtherFormat());
}

std::string Text(CFStringRef inString) {
  char buffer[64] = "";
  EXPECT_TRUE(CFStringGetCString(inString, buffer, sizeof(buffer), kCFStringEncodingUTF8));
  return buffer;
}

CFDataRef ArrayMessage() {
  CFArrayRef array = CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks);
  CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, array,
                                            kCFPropertyListBinaryFormat_v1_0, 0, nullptr);
  CFRelease(array);
  return data;
}

}  // namespace

TEST(ClientInfoKeys, AreTheTextsOfTheMessage) {
  EXPECT_EQ(Text(kTMBAudioMessageDataClientUIDKey), "uid");
  EXPECT_EQ(Text(kTMBAudioMessageDataClientPIDKey), "pid");
  EXPECT_EQ(Text(kTMBAudioMessageDataBufferFramesKey), "frsz");
  EXPECT_EQ(Text(kTMBAudioMessageDataSampleRateKey), "rate");
  EXPECT_EQ(Text(kTMBAudioMessageDataFormatIDKey), "format");
  EXPECT_EQ(Text(kTMBAudioMessageDataFormatFlagsKey), "flags");
  EXPECT_EQ(Text(kTMBAudioMessageDataBytesPerPacketKey), "bpp");
  EXPECT_EQ(Text(kTMBAudioMessageDataFramesPerPacketKey), "fpp");
  EXPECT_EQ(Text(kTMBAudioMessageDataBytesPerFrameKey), "bpf");
  EXPECT_EQ(Text(kTMBAudioMessageDataBitsPerChannelKey), "bpch");
  EXPECT_EQ(Text(kTMBAudioMessageDataChannelsPerFrameKey), "chpf");
}

TEST(ClientInfo, DefaultIsThisProcessAndTheDefaultFormat) {
  TMBAudioClientInfo info;
  EXPECT_EQ(info.GetClientUID(), getuid());
  EXPECT_EQ(info.GetClientPID(), getpid());
  EXPECT_EQ(info.GetBufferFrames(), 512u);
  ExpectFormat(info.GetStreamDescription(), DefaultFormat());
  EXPECT_EQ(info.GetStreamDescription().mReserved, 0u);
}

TEST(ClientInfo, FormatIDReadsMcplInMemory) {
  AudioStreamBasicDescription format = TMBAudioClientInfo().GetStreamDescription();
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&format.mFormatID), 4), "mcpl");
}

TEST(ClientInfo, TakesIdentityAndFormatFromArguments) {
  TMBAudioClientInfo info = Other();
  TMBAudioClientInfo direct(4000000001u, 23, OtherFormat());
  EXPECT_EQ(direct.GetClientUID(), 4000000001u);
  EXPECT_EQ(direct.GetClientPID(), 23);
  EXPECT_EQ(direct.GetBufferFrames(), 512u);
  ExpectFormat(direct.GetStreamDescription(), OtherFormat());
  EXPECT_EQ(info.GetClientPID(), 23);
}

TEST(ClientInfo, CopyConstructorTakesIdentityAndFormatButNotTheFrames) {
  Message message;
  message.Int(CFSTR("uid"), 5).Int(CFSTR("pid"), 6).Int(CFSTR("frsz"), 99).Int(CFSTR("chpf"), 3);
  TMBAudioClientInfo source(message.Data());
  ASSERT_EQ(source.GetBufferFrames(), 99u);
  TMBAudioClientInfo copy(source);
  EXPECT_EQ(copy.GetClientUID(), 5u);
  EXPECT_EQ(copy.GetClientPID(), 6);
  EXPECT_EQ(copy.GetBufferFrames(), 512u);
  EXPECT_EQ(copy.GetStreamDescription().mChannelsPerFrame, 3u);
}

TEST(ClientInfo, AssignmentKeepsTheTargetsBufferFrames) {
  Message source_message;
  source_message.Int(CFSTR("uid"), 5).Int(CFSTR("pid"), 6).Int(CFSTR("frsz"), 99);
  TMBAudioClientInfo source(source_message.Data());
  Message target_message;
  target_message.Int(CFSTR("frsz"), 17);
  TMBAudioClientInfo target(target_message.Data());
  target = source;
  EXPECT_EQ(target.GetClientUID(), 5u);
  EXPECT_EQ(target.GetClientPID(), 6);
  EXPECT_EQ(target.GetBufferFrames(), 17u);
}

TEST(ClientInfo, AssigningAFormatChangesTheFormatOnly) {
  TMBAudioClientInfo info(7, 8, DefaultFormat());
  info = OtherFormat();
  ExpectFormat(info.GetStreamDescription(), OtherFormat());
  EXPECT_EQ(info.GetClientUID(), 7u);
  EXPECT_EQ(info.GetClientPID(), 8);
  EXPECT_EQ(info.GetBufferFrames(), 512u);
}

TEST(ClientInfo, ResetFormatBringsBackTheDefault) {
  TMBAudioClientInfo info(7, 8, OtherFormat());
  info.ResetFormat();
  ExpectFormat(info.GetStreamDescription(), DefaultFormat());
  EXPECT_EQ(info.GetClientPID(), 8);
}

TEST(ClientInfo, ShortFormHasExactlyTwoKeys) {
  CFDataRef data = TMBAudioClientInfo(3, 4, OtherFormat()).CopyMessageData(false);
  ASSERT_NE(data, nullptr);
  Parsed parsed(data);
  ASSERT_EQ(CFGetTypeID(parsed.Dictionary()), CFDictionaryGetTypeID());
  EXPECT_EQ(parsed.Format(), kCFPropertyListBinaryFormat_v1_0);
  EXPECT_EQ(CFDictionaryGetCount(parsed.Dictionary()), 2);
  EXPECT_EQ(parsed.Int("uid"), 3);
  EXPECT_EQ(parsed.Int("pid"), 4);
  CFRelease(data);
}

TEST(ClientInfo, FullFormHasAllElevenKeys) {
  CFDataRef data = Other().CopyMessageData(true);
  ASSERT_NE(data, nullptr);
  Parsed parsed(data);
  EXPECT_EQ(parsed.Format(), kCFPropertyListBinaryFormat_v1_0);
  EXPECT_EQ(CFDictionaryGetCount(parsed.Dictionary()), 11);
  EXPECT_EQ(static_cast<UInt32>(parsed.Int("uid")), 4000000001u);
  EXPECT_EQ(parsed.Int("pid"), 23);
  EXPECT_EQ(parsed.Int("frsz"), 512);
  EXPECT_EQ(parsed.Int("format"), static_cast<SInt32>('alac'));
  EXPECT_EQ(static_cast<UInt32>(parsed.Int("flags")), 0x80000003u);
  EXPECT_EQ(parsed.Int("bpp"), 11);
  EXPECT_EQ(parsed.Int("fpp"), 12);
  EXPECT_EQ(parsed.Int("bpf"), 13);
  EXPECT_EQ(parsed.Int("chpf"), 14);
  EXPECT_EQ(parsed.Int("bpch"), 15);
  CFNumberRef rate = parsed.Number("rate");
  ASSERT_NE(rate, nullptr);
  EXPECT_TRUE(CFNumberIsFloatType(rate));
  double value = 0.0;
  EXPECT_TRUE(CFNumberGetValue(rate, kCFNumberFloat64Type, &value));
  EXPECT_EQ(value, 96000.5);
  CFRelease(data);
}

TEST(ClientInfo, FramesInTheMessageAreTheFieldOfTheObject) {
  Message message;
  message.Int(CFSTR("frsz"), 99);
  TMBAudioClientInfo info(message.Data());
  CFDataRef data = info.CopyMessageData(true);
  EXPECT_EQ(Parsed(data).Int("frsz"), 99);
  CFRelease(data);
}

TEST(ClientInfo, BinaryPropertyListStartsWithItsMagic) {
  CFDataRef data = TMBAudioClientInfo().CopyMessageData(true);
  ASSERT_GE(CFDataGetLength(data), 8);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), 8), "bplist00");
  CFRelease(data);
}

TEST(ClientInfo, WithoutADictionaryThereIsNoMessage) {
  tembra::test::gMakesDictionaries = false;
  EXPECT_EQ(TMBAudioClientInfo().CopyMessageData(true), nullptr);
  EXPECT_EQ(TMBAudioClientInfo().CopyMessageData(false), nullptr);
  tembra::test::gMakesDictionaries = true;
}

TEST(ClientInfo, ANumberThatCannotBeMadeIsLeftOut) {
  tembra::test::gNumbersToMake = 2;
  CFDataRef data = Other().CopyMessageData(true);
  tembra::test::gNumbersToMake = -1;
  ASSERT_NE(data, nullptr);
  const Parsed parsed(data);
  EXPECT_EQ(CFDictionaryGetCount(parsed.Dictionary()), 2);
  EXPECT_EQ(static_cast<UInt32>(parsed.Int("uid")), 4000000001u);
  EXPECT_EQ(parsed.Int("pid"), 23);
  CFRelease(data);
}

TEST(ClientInfo, FullFormSurvivesTheWay) {
  CFDataRef data = Other().CopyMessageData(true);
  TMBAudioClientInfo read(data);
  EXPECT_EQ(read.GetClientUID(), 4000000001u);
  EXPECT_EQ(read.GetClientPID(), 23);
  EXPECT_EQ(read.GetBufferFrames(), 512u);
  ExpectFormat(read.GetStreamDescription(), OtherFormat());
  CFRelease(data);
}

TEST(ClientInfo, ShortFormAtConstructionLeavesTheFormatUnset) {
  CFDataRef data = Other().CopyMessageData(false);
  TMBAudioClientInfo read(data);
  EXPECT_EQ(read.GetClientUID(), 4000000001u);
  EXPECT_EQ(read.GetClientPID(), 23);
  EXPECT_EQ(read.GetBufferFrames(), 512u);
  ExpectFormat(read.GetStreamDescription(), AudioStreamBasicDescription());
  CFRelease(data);
}

TEST(ClientInfo, ShortFormReadIntoAnObjectChangesIdentityOnly) {
  Message frames;
  frames.Int(CFSTR("frsz"), 99);
  TMBAudioClientInfo info(frames.Data());
  info = OtherFormat();
  CFDataRef data = TMBAudioClientInfo(70, 80, DefaultFormat()).CopyMessageData(false);
  info = data;
  EXPECT_EQ(info.GetClientUID(), 70u);
  EXPECT_EQ(info.GetClientPID(), 80);
  EXPECT_EQ(info.GetBufferFrames(), 99u);
  ExpectFormat(info.GetStreamDescription(), OtherFormat());
  CFRelease(data);
}

TEST(ClientInfo, MissingKeyLeavesItsFieldAsItWas) {
  TMBAudioClientInfo info = Other();
  Message message;
  message.Int(CFSTR("bpch"), 24);
  info = message.Data();
  AudioStreamBasicDescription wanted = OtherFormat();
  wanted.mBitsPerChannel = 24;
  ExpectFormat(info.GetStreamDescription(), wanted);
  EXPECT_EQ(info.GetClientUID(), 4000000001u);
  EXPECT_EQ(info.GetClientPID(), 23);
}

TEST(ClientInfo, EmptyDictionaryAtConstructionLeavesTheFormatUnset) {
  Message message;
  TMBAudioClientInfo info(message.Data());
  EXPECT_EQ(info.GetClientUID(), getuid());
  EXPECT_EQ(info.GetClientPID(), getpid());
  ExpectFormat(info.GetStreamDescription(), AudioStreamBasicDescription());
}

TEST(ClientInfo, WholeNumberOfAnotherKindIsConverted) {
  Message message;
  message.Int64(CFSTR("uid"), 12)
      .Double(CFSTR("pid"), 34.0)
      .Int64(CFSTR("bpf"), 56)
      .Double(CFSTR("bpp"), 78.0)
      .Int(CFSTR("rate"), 48000);
  TMBAudioClientInfo info = Other();
  info = message.Data();
  EXPECT_EQ(info.GetClientUID(), 12u);
  EXPECT_EQ(info.GetClientPID(), 34);
  EXPECT_EQ(info.GetStreamDescription().mBytesPerFrame, 56u);
  EXPECT_EQ(info.GetStreamDescription().mBytesPerPacket, 78u);
  EXPECT_EQ(info.GetStreamDescription().mSampleRate, 48000.0);
}

TEST(ClientInfo, LossOfPrecisionLandsInTheFormatButNotInTheIdentity) {
  Message message;
  message.Double(CFSTR("uid"), 12.5)
      .Double(CFSTR("pid"), 34.5)
      .Double(CFSTR("frsz"), 128.5)
      .Double(CFSTR("bpf"), 56.5);
  TMBAudioClientInfo info = Other();
  info = message.Data();
  EXPECT_EQ(info.GetClientUID(), 4000000001u);
  EXPECT_EQ(info.GetClientPID(), 23);
  EXPECT_EQ(info.GetBufferFrames(), 128u);
  EXPECT_EQ(info.GetStreamDescription().mBytesPerFrame, 56u);
}

TEST(ClientInfo, TooWideANumberIsCutInTheFormatAndRefusedInTheIdentity) {
  Message message;
  message.Int64(CFSTR("uid"), (SInt64{1} << 32) + 5)
      .Int64(CFSTR("pid"), (SInt64{1} << 33) + 6)
      .Int64(CFSTR("chpf"), (SInt64{1} << 32) + 7);
  SInt32 converted = 0;
  SInt64 wide = (SInt64{1} << 32) + 7;
  CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &wide);
  ASSERT_FALSE(CFNumberGetValue(number, kCFNumberSInt32Type, &converted));
  CFRelease(number);
  TMBAudioClientInfo info = Other();
  info = message.Data();
  EXPECT_EQ(info.GetClientUID(), 4000000001u);
  EXPECT_EQ(info.GetClientPID(), 23);
  EXPECT_EQ(info.GetStreamDescription().mChannelsPerFrame, static_cast<UInt32>(converted));
}

TEST(ClientInfo, ValueThatIsNoNumberCountsAsMissing) {
  Message message;
  message.Add(CFSTR("uid"), CFRetain(CFSTR("nobody")))
      .Add(CFSTR("chpf"), CFRetain(kCFBooleanTrue))
      .Add(CFSTR("rate"), CFRetain(CFSTR("44100")));
  TMBAudioClientInfo info = Other();
  info = message.Data();
  EXPECT_EQ(info.GetClientUID(), 4000000001u);
  ExpectFormat(info.GetStreamDescription(), OtherFormat());
}

TEST(ClientInfo, ArrayHasNoEffectOnAssignment) {
  CFDataRef data = ArrayMessage();
  ASSERT_NE(data, nullptr);
  TMBAudioClientInfo info = Other();
  info = data;
  EXPECT_EQ(info.GetClientUID(), 4000000001u);
  ExpectFormat(info.GetStreamDescription(), OtherFormat());
  CFRelease(data);
}

TEST(ClientInfo, ArraySendsTheConstructorToTheDefaultFormat) {
  CFDataRef data = ArrayMessage();
  TMBAudioClientInfo info(data);
  EXPECT_EQ(info.GetClientUID(), getuid());
  EXPECT_EQ(info.GetClientPID(), getpid());
  ExpectFormat(info.GetStreamDescription(), DefaultFormat());
  CFRelease(data);
}

TEST(ClientInfo, NullAndOtherKindsHaveNoEffectOnAssignment) {
  TMBAudioClientInfo info = Other();
  info = static_cast<CFDataRef>(nullptr);
  ExpectFormat(info.GetStreamDescription(), OtherFormat());
  info = reinterpret_cast<CFDataRef>(CFSTR("text"));
  ExpectFormat(info.GetStreamDescription(), OtherFormat());
  EXPECT_EQ(info.GetClientPID(), 23);
}

TEST(ClientInfo, NullAndOtherKindsSendTheConstructorToTheDefaultFormat) {
  ExpectFormat(TMBAudioClientInfo(static_cast<CFDataRef>(nullptr)).GetStreamDescription(),
               DefaultFormat());
  ExpectFormat(
      TMBAudioClientInfo(reinterpret_cast<CFDataRef>(CFSTR("text"))).GetStreamDescription(),
      DefaultFormat());
}

TEST(ClientInfo, EveryPrefixOfAMessageIsHarmless) {
  CFDataRef data = Other().CopyMessageData(true);
  const CFIndex length = CFDataGetLength(data);
  for (CFIndex cut = 0; cut < length; ++cut) {
    CFDataRef prefix = CFDataCreate(kCFAllocatorDefault, CFDataGetBytePtr(data), cut);
    TMBAudioClientInfo info(7, 8, OtherFormat());
    info = prefix;
    EXPECT_EQ(info.GetClientPID(), 8) << cut;
    CFRelease(prefix);
  }
  CFRelease(data);
}

TEST(ClientInfo, XMLIsReadToo) {
  const char text[] =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
      "<key>pid</key><integer>42</integer></dict></plist>";
  CFDataRef data =
      CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text), sizeof(text) - 1);
  EXPECT_EQ(TMBAudioClientInfo(data).GetClientPID(), 42);
  CFRelease(data);
}

TEST(ClientInfo, RateMayBeAnyDouble) {
  for (double rate : {0.0, -1.0, std::numeric_limits<double>::infinity(), 5e-324}) {
    AudioStreamBasicDescription format = OtherFormat();
    format.mSampleRate = rate;
    CFDataRef data = TMBAudioClientInfo(1, 2, format).CopyMessageData(true);
    EXPECT_EQ(TMBAudioClientInfo(data).GetStreamDescription().mSampleRate, rate);
    CFRelease(data);
  }
}

TEST(PropertyListHelpers, WriteAndReadBack) {
  CFDataRef data = __TMBCFPropertyListCreateData(kCFAllocatorDefault, CFSTR("text"),
                                                 kCFPropertyListXMLFormat_v1_0, 0, nullptr);
  ASSERT_NE(data, nullptr);
  CFPropertyListFormat format = kCFPropertyListBinaryFormat_v1_0;
  CFStringRef error = CFSTR("untouched");
  CFPropertyListRef list =
      __TMBCFPropertyListCreateWithData(kCFAllocatorDefault, data, 0, &format, &error);
  ASSERT_NE(list, nullptr);
  EXPECT_TRUE(CFEqual(list, CFSTR("text")));
  EXPECT_EQ(format, kCFPropertyListXMLFormat_v1_0);
  EXPECT_EQ(error, nullptr);
  CFRelease(list);
  CFRelease(data);
}

TEST(PropertyListHelpers, FailureHandsOutTheErrorsDescription) {
  const UInt8 junk[] = {'b', 'p', 'l', 'i', 's', 't', '0', '0', 1, 2, 3};
  CFDataRef data = CFDataCreate(kCFAllocatorDefault, junk, sizeof(junk));
  CFStringRef error = nullptr;
  EXPECT_EQ(__TMBCFPropertyListCreateWithData(kCFAllocatorDefault, data, 0, nullptr, &error),
            nullptr);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(CFGetTypeID(error), CFStringGetTypeID());
  EXPECT_GT(CFStringGetLength(error), 0);
  CFRelease(error);
  EXPECT_EQ(__TMBCFPropertyListCreateWithData(kCFAllocatorDefault, data, 0, nullptr, nullptr),
            nullptr);
  CFRelease(data);
}

TEST(LPCMDescription, FlagsFollowTheRules) {
  EXPECT_EQ(CalculateLPCMFlags(32, 32, true, false, false), 9u);
  EXPECT_EQ(CalculateLPCMFlags(16, 16, false, false, false), 12u);
  EXPECT_EQ(CalculateLPCMFlags(16, 16, false, true, false), 14u);
  EXPECT_EQ(CalculateLPCMFlags(20, 24, false, false, false), 20u);
  EXPECT_EQ(CalculateLPCMFlags(32, 32, true, true, true), 43u);
}

TEST(LPCMDescription, SizesFollowTheRules) {
  AudioStreamBasicDescription format = {};
  FillOutASBDForLPCM(format, 48000.0, 6, 20, 24, false, false, false);
  EXPECT_EQ(format.mSampleRate, 48000.0);
  EXPECT_EQ(format.mFormatID, 0x6C70636Du);
  EXPECT_EQ(format.mFormatFlags, 20u);
  EXPECT_EQ(format.mBytesPerFrame, 18u);
  EXPECT_EQ(format.mBytesPerPacket, 18u);
  EXPECT_EQ(format.mFramesPerPacket, 1u);
  EXPECT_EQ(format.mChannelsPerFrame, 6u);
  EXPECT_EQ(format.mBitsPerChannel, 20u);
  FillOutASBDForLPCM(format, 48000.0, 6, 32, 32, true, false, true);
  EXPECT_EQ(format.mBytesPerFrame, 4u);
  EXPECT_EQ(format.mFormatFlags, 41u);
}
