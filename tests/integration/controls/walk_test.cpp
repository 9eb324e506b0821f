// Every selector that the code knows, on every object of the live device, in every scope and on
// every element: has, settable, size, get and set must agree.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "LiveDevice.h"

namespace tembra::test {
namespace {

using testing::IsEmpty;

constexpr UInt32 kScopes[] = {'glob', 'inpt', 'outp', 'ptru', '****'};
// The whole, both channels, one that no stream has, and the wildcard, which is no channel either.
constexpr UInt32 kElements[] = {0, 1, 2, 3, 0xFFFFFFFF};

bool HasStream(UInt32 inElement) {
  return inElement <= 2;
}

// Each code of four characters in the sources of the system and in the published headers, for a
// selector that is met for the first time tomorrow is to be walked tomorrow.
std::set<UInt32> KnownSelectors() {
  std::set<UInt32> codes;
  for (const char* folder : {"/src", "/platform/include/CoreAudio"}) {
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(TEMBRA_SOURCE_DIR + std::string(folder))) {
      if (entry.path().extension() != ".h" && entry.path().extension() != ".cpp") continue;
      std::ifstream file(entry.path());
      std::stringstream text;
      text << file.rdbuf();
      const std::string all = text.str();
      for (size_t at = 0; at + 5 < all.size(); ++at) {
        if (all[at] != '\'' || all[at + 5] != '\'') continue;
        UInt32 code = 0;
        for (size_t i = 1; i <= 4; ++i) code = code << 8 | static_cast<UInt8>(all[at + i]);
        codes.insert(code);
      }
    }
  }
  return codes;
}

const std::set<std::string> kFunctions = {"vctf", "mvtf", "svtf", "bvtf"};
const std::set<std::string> kNamesByTranslation = {"lscn", "sscn", "lcsn", "cscn",
                                                   "mddc", "mddn", "lcnl", "cnlv"};

// These take what room they are given.
const std::set<std::string> kOfAnySize = {
    "akin", "slay", "stm#", "ccnm", "chnm", "cnnm", "makr", "name",  // the device
    "scai", "ssc#",                                                  // items
    "sfm#", "pft#", "sfma", "pfta", "nsr#", "srnd",                  // formats, layouts
    "clas", "bcls", "stdv", "ownd", "ctrl"};                         // the host's own

// What an object of a class answers also where it does not claim to have it: a name that is none,
// or a value that does not depend on where it is asked for.
struct Beyond {
  UInt32 mSize;
  OSStatus mGetStatus = 0;
  bool mIsSettable = false;
};
const std::map<std::string, std::map<std::string, Beyond>> kAnsweredBeyond = {
    {"adev",
     {{"diff", {4}},
      {"dflt", {4}},
      {"sflt", {4}},
      {"ltnc", {4}},
      {"saft", {4}},
      {"slay", {24}},
      {"stm#", {4}},
      {"suse", {16, 0, true}},
      {"capp", {8}},
      {"icon", {8}},
      {"lccn", {8}},
      {"lchn", {8}},
      {"lcnn", {8}},
      {"ccnm", {1}},
      {"chnm", {1}},
      {"cnnm", {1}}}},
    {"astr", {{"lnam", {8}}, {"lccn", {8}}, {"lchn", {8}}, {"lcnn", {8}}}},
    {"vlme", {{"lnam", {8}}}},
    {"mute", {{"lnam", {8}}}},
    // The item stands in the qualifier, and none is given.
    {"dsrc", {{"lnam", {8}}, {"clkk", {4, '!siz'}}}}};

// The formats of the device: it has them in each direction that has streams, also for a channel
// that no stream carries, where there is then nobody to ask.
const std::set<std::string> kFormats = {"sfmt", "sfma", "pft ", "pfta", "sfm#", "sfm?", "sfmm",
                                        "pft#", "pft?", "pftm", "mix?", "nsrt", "nsr#", "****"};

// A set of it is no plain set: it takes or gives up the device, whatever the value, so that it
// takes two of them to change nothing.
bool IsToggle(const std::string& inSelector) {
  return inSelector == "oink";
}

class Walk : public LiveDevice {
 protected:
  struct Answer {
    bool has = false;
    OSStatus settableStatus = 0;
    bool settable = false;
    OSStatus sizeStatus = 0;
    UInt32 size = 0;
  };

  // The bytes to get into: what a property that reads its input from there needs.
  std::vector<UInt8> MakeBuffer(const AudioObjectPropertyAddress& inAddress, UInt32 inSize) {
    std::vector<UInt8> buffer(inSize, 0);
    const std::string selector = TextOf(inAddress.mSelector);
    if (kNamesByTranslation.count(selector) != 0 || selector == "csck") {
      mItemID = 0;
      const AudioValueTranslation translation = {&mItemID, sizeof mItemID, &mItemName,
                                                 selector == "csck" ? 4U : 8U};
      if (inSize == sizeof translation) std::memcpy(buffer.data(), &translation, inSize);
    }
    if (selector == "suse" && inSize >= 12) {
      const UInt32 streams = (inSize - 12) / 4;
      std::memcpy(buffer.data(), &mIOProcID, sizeof mIOProcID);
      std::memcpy(buffer.data() + 8, &streams, sizeof streams);
    }
    // A format to look for: the one that there is.
    if (selector == "sfm?" || selector == "sfmm" || selector == "pft?" || selector == "pftm") {
      AudioStreamBasicDescription format{};
      Get(mDevice, Output('sfmt'), format);
      if (inSize == sizeof format) std::memcpy(buffer.data(), &format, inSize);
    }
    return buffer;
  }

  Answer Ask(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress) {
    Answer answer;
    answer.has = AudioObjectHasProperty(inID, &inAddress) != 0;
    Boolean settable = 0;
    answer.settableStatus = AudioObjectIsPropertySettable(inID, &inAddress, &settable);
    answer.settable = settable != 0;
    answer.sizeStatus = AudioObjectGetPropertyDataSize(inID, &inAddress, 0, nullptr, &answer.size);
    return answer;
  }

  void Deviate(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
               const std::string& inWhat) {
    const std::string key = TextOf(mClass) + " '" + TextOf(inAddress.mSelector) + "' " + inWhat;
    std::string& where = mDeviations[key];
    if (where.size() < 60) {
      where += " " + std::to_string(inID) + "/" + TextOf(inAddress.mScope) + "/" +
               std::to_string(inAddress.mElement);
    }
  }

  void Expect(bool inHolds, AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
              const char* inWhat, OSStatus inStatus) {
    if (inHolds) return;
    const std::string status = inStatus == 0 ? "0" : TextOf(static_cast<UInt32>(inStatus));
    Deviate(inID, inAddress, std::string(inWhat) + ": " + status);
  }

  // What a get of what the object has answers, where not the value.
  static OSStatus ExpectedGetStatus(const std::string& inSelector, bool inHasStream) {
    // No item has the ID that is asked for: there are no items.
    if (kNamesByTranslation.count(inSelector) != 0) return 'nope';
    // Items are asked for in the qualifier, and none is given.
    if (inSelector == "scin" || inSelector == "clkk") return '!siz';
    // A size in bytes needs a stream that has the channel.
    if ((inSelector == "bsiz" || inSelector == "bsz#") && !inHasStream) return 'nope';
    return 0;
  }

  void CheckHad(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
                const Answer& inAnswer) {
    const std::string selector = TextOf(inAddress.mSelector);
    Expect(inAnswer.settableStatus == 0, inID, inAddress, "has, but settable",
           inAnswer.settableStatus);
    Expect(inAnswer.sizeStatus == 0, inID, inAddress, "has, but size", inAnswer.sizeStatus);
    if (inAnswer.size > 4096) {
      Deviate(inID, inAddress, "a size of " + std::to_string(inAnswer.size));
      return;
    }
    if (inAnswer.settableStatus != 0 || inAnswer.sizeStatus != 0) return;

    const OSStatus expected = ExpectedGetStatus(selector, HasStream(inAddress.mElement));
    std::vector<UInt8> buffer = MakeBuffer(inAddress, inAnswer.size);
    UInt32 size = inAnswer.size;
    UInt8 nothing = 0;
    OSStatus status = AudioObjectGetPropertyData(inID, &inAddress, 0, nullptr, &size,
                                                 buffer.empty() ? &nothing : buffer.data());
    Expect(status == expected, inID, inAddress, "has, but get", status);
    if (status == 0) {
      Expect(size <= inAnswer.size, inID, inAddress, "get answers more than its size", 0);
    }
    ++mGets;

    if (kOfAnySize.count(selector) == 0) {
      for (const UInt32 wrong : {inAnswer.size + 1, inAnswer.size - 1}) {
        if (inAnswer.size == 0) break;
        std::vector<UInt8> other = MakeBuffer(inAddress, wrong);
        size = wrong;
        const OSStatus refused = AudioObjectGetPropertyData(
            inID, &inAddress, 0, nullptr, &size, other.empty() ? &nothing : other.data());
        Expect(refused == '!siz', inID, inAddress, "get of a wrong size", refused);
      }
    }
    if (status != 0) return;

    // What was got can be set, if anything can, and changes nothing.
    status = AudioObjectSetPropertyData(inID, &inAddress, 0, nullptr, inAnswer.size,
                                        buffer.empty() ? &nothing : buffer.data());
    if (IsToggle(selector) && status == 0) {
      status =
          AudioObjectSetPropertyData(inID, &inAddress, 0, nullptr, inAnswer.size, buffer.data());
    }
    if (inAnswer.settable && inAnswer.size != 0) {
      for (const UInt32 wrong : {inAnswer.size + 1, inAnswer.size - 1}) {
        std::vector<UInt8> other = MakeBuffer(inAddress, wrong + 1);
        const OSStatus refused =
            AudioObjectSetPropertyData(inID, &inAddress, 0, nullptr, wrong, other.data());
        Expect(refused == '!siz', inID, inAddress, "set of a wrong size", refused);
      }
    }
    if (inAnswer.settable) {
      Expect(status == 0, inID, inAddress, "settable, but set", status);
      ++mSets;
    } else if (mClass == 'astr' && selector == "mix?") {
      // A stream takes it although it has but one format.
      Expect(status == 0, inID, inAddress, "set of mixable", status);
    } else {
      Expect(status == 'nope', inID, inAddress, "not settable, but set", status);
    }
    std::vector<UInt8> again = MakeBuffer(inAddress, inAnswer.size);
    size = inAnswer.size;
    AudioObjectGetPropertyData(inID, &inAddress, 0, nullptr, &size,
                               again.empty() ? &nothing : again.data());
    Expect(again == buffer, inID, inAddress, "setting what was got changed it", 0);
  }

  const Beyond* FindBeyond(const std::string& inSelector) const {
    const auto ofClass = kAnsweredBeyond.find(TextOf(mClass));
    if (ofClass == kAnsweredBeyond.end()) return nullptr;
    const auto found = ofClass->second.find(inSelector);
    return found != ofClass->second.end() ? &found->second : nullptr;
  }

  void CheckBeyond(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
                   const Answer& inAnswer, const Beyond& inExpected) {
    Expect(inAnswer.settableStatus == 0 && inAnswer.settable == inExpected.mIsSettable, inID,
           inAddress, "beyond: settable", inAnswer.settableStatus);
    Expect(inAnswer.sizeStatus == 0, inID, inAddress, "beyond: size", inAnswer.sizeStatus);
    if (inAnswer.size != inExpected.mSize) {
      Deviate(inID, inAddress, "a size of " + std::to_string(inAnswer.size));
      return;
    }
    std::vector<UInt8> buffer = MakeBuffer(inAddress, inExpected.mSize);
    UInt32 size = inExpected.mSize;
    const OSStatus get =
        AudioObjectGetPropertyData(inID, &inAddress, 0, nullptr, &size, buffer.data());
    Expect(get == inExpected.mGetStatus, inID, inAddress, "beyond: get", get);
    const OSStatus set =
        AudioObjectSetPropertyData(inID, &inAddress, 0, nullptr, inExpected.mSize, buffer.data());
    Expect(set == (inExpected.mIsSettable ? 0 : 'nope'), inID, inAddress, "beyond: set", set);
    ++mBeyond;
  }

  void CheckNotHad(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
                   const Answer& inAnswer) {
    const std::string selector = TextOf(inAddress.mSelector);
    if (const Beyond* beyond = FindBeyond(selector); beyond != nullptr) {
      CheckBeyond(inID, inAddress, inAnswer, *beyond);
      return;
    }
    std::vector<UInt8> buffer(256);
    UInt32 size = inAnswer.sizeStatus == 0 ? inAnswer.size : 4;
    ASSERT_LE(size, buffer.size());
    const OSStatus set =
        AudioObjectSetPropertyData(inID, &inAddress, 0, nullptr, size, buffer.data());
    Expect(set == 'who?', inID, inAddress, "has not, but set", set);
    const OSStatus get =
        AudioObjectGetPropertyData(inID, &inAddress, 0, nullptr, &size, buffer.data());
    Expect(get == 'who?', inID, inAddress, "has not, but get", get);
    Expect(inAnswer.settableStatus == 'who?', inID, inAddress, "has not, but settable",
           inAnswer.settableStatus);
    Expect(inAnswer.sizeStatus == 'who?', inID, inAddress, "has not, but size",
           inAnswer.sizeStatus);
  }

  void CheckFormatWithoutStream(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
                                const Answer& inAnswer) {
    const std::string selector = TextOf(inAddress.mSelector);
    std::vector<UInt8> buffer(256);
    UInt32 size = inAnswer.sizeStatus == 0 ? inAnswer.size : 4;
    const OSStatus get =
        AudioObjectGetPropertyData(inID, &inAddress, 0, nullptr, &size, buffer.data());
    const OSStatus set =
        AudioObjectSetPropertyData(inID, &inAddress, 0, nullptr, size, buffer.data());
    const bool isRate = selector == "nsrt";
    const bool hasFixedSize = isRate || selector == "mix?";
    const bool hasFixedSettable = isRate || selector == "nsr#";
    Expect(inAnswer.sizeStatus == (hasFixedSize ? 0 : 'who?'), inID, inAddress, "no stream: size",
           inAnswer.sizeStatus);
    Expect(inAnswer.settableStatus == (hasFixedSettable ? 0 : 'who?'), inID, inAddress,
           "no stream: settable", inAnswer.settableStatus);
    // The rate is the device's; all else has nobody who would know it.
    Expect(get == (isRate ? 0 : 'who?'), inID, inAddress, "no stream: get", get);
    Expect(set == (selector == "nsr#" ? 'nope' : 'who?'), inID, inAddress, "no stream: set", set);
    ++mWithoutStream;
  }

  // The transfer functions are there wherever the volume is, but no control answers them.
  void CheckFunction(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
                     const Answer& inAnswer) {
    const bool isVolume = inAddress.mSelector == 'vctf' && inID == mDevice &&
                          (inAddress.mScope == 'inpt' || inAddress.mScope == 'outp') &&
                          inAddress.mElement <= 2;
    Expect(inAnswer.has == isVolume, inID, inAddress, "transfer function", 0);
    CheckNotHad(inID, inAddress, inAnswer);
    mFunctions += isVolume ? 1 : 0;
  }

  AudioClassID mClass = 0;
  UInt32 mItemID = 0;
  CFStringRef mItemName = nullptr;
  std::map<std::string, std::string> mDeviations;
  int mGets = 0;
  int mSets = 0;
  int mFunctions = 0;
  int mWithoutStream = 0;
  int mBeyond = 0;
  AudioDeviceIOProcID mIOProcID = nullptr;
};

TEST_F(Walk, HasSettableSizeGetAndSetAgree) {
  const std::set<UInt32> selectors = KnownSelectors();
  ASSERT_GT(selectors.size(), 250U);
  for (const UInt32 selector : {UInt32{'volm'}, UInt32{'sfmt'}, UInt32{'ncyc'}, UInt32{'lisa'}}) {
    ASSERT_EQ(selectors.count(selector), 1U);
  }
  const AudioDeviceIOProc silence = [](AudioObjectID, const AudioTimeStamp*, const AudioBufferList*,
                                       const AudioTimeStamp*, AudioBufferList*,
                                       const AudioTimeStamp*, void*) -> OSStatus { return 0; };
  ASSERT_EQ(AudioDeviceCreateIOProcID(mDevice, silence, nullptr, &mIOProcID), 0);
  std::vector<AudioObjectID> objects = GetObjects(mDevice, Global('ownd'));
  ASSERT_EQ(objects.size(), 20U);
  objects.push_back(mDevice);

  for (const AudioObjectID object : objects) {
    mClass = GetNumber(object, Global('clas'));
    for (const UInt32 selector : selectors) {
      for (const UInt32 scope : kScopes) {
        for (const UInt32 element : kElements) {
          const AudioObjectPropertyAddress address = {selector, scope, element};
          const Answer answer = Ask(object, address);
          if (kFunctions.count(TextOf(selector)) != 0) {
            CheckFunction(object, address, answer);
          } else if (answer.has && object == mDevice && !HasStream(element) &&
                     kFormats.count(TextOf(selector)) != 0) {
            CheckFormatWithoutStream(object, address, answer);
          } else if (answer.has) {
            CheckHad(object, address, answer);
          } else {
            CheckNotHad(object, address, answer);
          }
        }
      }
    }
  }
  EXPECT_THAT(mDeviations, IsEmpty());
  // One transfer function for each of the six volumes.
  EXPECT_EQ(mFunctions, 6);
  EXPECT_GT(mWithoutStream, 10);
  EXPECT_GT(mBeyond, 100);
  EXPECT_GT(mGets, 1000);
  EXPECT_GT(mSets, 100);
  EXPECT_EQ(AudioDeviceDestroyIOProcID(mDevice, mIOProcID), 0);
}

}  // namespace
}  // namespace tembra::test
