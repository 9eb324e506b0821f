// The selectors of the live device one by one: where each is had, whether it can be set, its size
// and what a get of it answers.

#include <gmock/gmock.h>
#include <unistd.h>

#include <set>

#include "LiveDevice.h"

namespace tembra::test {
namespace {

constexpr UInt32 kScopes[] = {'glob', 'inpt', 'outp', 'ptru', '****'};
constexpr UInt32 kElements[] = {0, 1, 2, 3, 0xFFFFFFFF};

enum Where { kNowhere, kEverywhere, kDirection, kOutput, kDirectionOrGlobal };
enum Settable { kFixed, kSettable };

bool IsThere(Where inWhere, UInt32 inScope) {
  const bool isDirection = inScope == 'inpt' || inScope == 'outp';
  switch (inWhere) {
    case kNowhere:
      return false;
    case kEverywhere:
      return true;
    case kDirection:
      return isDirection;
    case kOutput:
      return inScope == 'outp';
    case kDirectionOrGlobal:
      return isDirection || inScope == 'glob';
  }
  return false;
}

// What the device answers itself.
struct Row {
  const char* mSelector;
  Where mWhere;
  Settable mSettable;
  UInt32 mSize;
};

const Row kRows[] = {
    {"akin", kEverywhere, kFixed, 4},
    {"asrt", kEverywhere, kFixed, 8},
    {"bsiz", kEverywhere, kSettable, 4},
    {"bsz#", kEverywhere, kFixed, 16},
    {"capp", kNowhere, kFixed, 8},
    {"ccnm", kNowhere, kFixed, 1},
    {"chnm", kDirection, kFixed, 1},
    {"clkd", kEverywhere, kFixed, 4},
    {"cnnm", kNowhere, kFixed, 1},
    {"dflt", kDirection, kFixed, 4},
    {"diff", kNowhere, kFixed, 4},
    {"fsiz", kEverywhere, kSettable, 4},
    {"fsz#", kEverywhere, kFixed, 16},
    {"goin", kEverywhere, kSettable, 4},
    {"gone", kEverywhere, kFixed, 4},
    {"hidn", kEverywhere, kFixed, 4},
    {"icon", kNowhere, kFixed, 8},
    {"lccn", kNowhere, kFixed, 8},
    {"lchn", kDirection, kFixed, 8},
    {"lcnn", kNowhere, kFixed, 8},
    {"livn", kEverywhere, kFixed, 4},
    {"lmak", kEverywhere, kFixed, 8},
    {"lnam", kEverywhere, kFixed, 8},
    {"ltnc", kDirection, kFixed, 4},
    {"makr", kEverywhere, kFixed, 12},
    {"muid", kEverywhere, kFixed, 8},
    {"name", kEverywhere, kFixed, 13},
    {"ncyc", kEverywhere, kSettable, 4},
    {"oink", kEverywhere, kSettable, 4},
    {"over", kEverywhere, kFixed, 4},
    {"saft", kDirection, kFixed, 4},
    {"sflt", kOutput, kFixed, 4},
    {"slay", kDirection, kFixed, 24},
    {"stm#", kDirectionOrGlobal, kFixed, 4},
    {"suse", kDirectionOrGlobal, kSettable, 16},
    {"tran", kEverywhere, kFixed, 4},
    {"uid ", kEverywhere, kFixed, 8},
};
static_assert(std::size(kRows) == 37);

// What it answers by way of a control. An empty class has no control of this device.
struct ControlRow {
  const char* mSelector;
  const char* mControlClass;
  Settable mSettable;
  UInt32 mSize;
  OSStatus mGetStatus = 0;
};

const ControlRow kControlRows[] = {
    {"jack", "", kFixed, 0},
    {"volm", "vlme", kSettable, 4},
    {"vold", "vlme", kSettable, 4},
    {"vdb#", "vlme", kFixed, 16},
    {"v2db", "vlme", kFixed, 4},
    {"db2v", "vlme", kFixed, 4},
    // Had with the volume, but no volume answers it.
    {"vctf", "vlme", kFixed, 0, 'who?'},
    {"span", "", kFixed, 0},
    {"spn#", "", kFixed, 0},
    {"mute", "mute", kSettable, 4},
    {"solo", "", kFixed, 0},
    {"ssrc", "dsrc", kSettable, 4},
    {"ssc#", "dsrc", kFixed, 0},
    // A record without a place for the answer.
    {"lscn", "dsrc", kFixed, 32, '!siz'},
    {"sscn", "dsrc", kFixed, 32, '!siz'},
    {"csrc", "", kFixed, 0},
    {"csc#", "", kFixed, 0},
    {"lcsn", "", kFixed, 0},
    {"cscn", "", kFixed, 0},
    {"csck", "", kFixed, 0},
    {"thru", "", kFixed, 0},
    {"thrs", "", kFixed, 0},
    {"mvsc", "", kFixed, 0},
    {"mvdb", "", kFixed, 0},
    {"mvd#", "", kFixed, 0},
    {"mv2d", "", kFixed, 0},
    {"mv2s", "", kFixed, 0},
    {"mvtf", "", kFixed, 0},
    {"mspn", "", kFixed, 0},
    {"msp#", "", kFixed, 0},
    {"mdds", "", kFixed, 0},
    {"mdd#", "", kFixed, 0},
    {"mddc", "", kFixed, 0},
    {"mddn", "", kFixed, 0},
    {"nlvl", "", kFixed, 0},
    {"nlv#", "", kFixed, 0},
    {"lcnl", "", kFixed, 0},
    {"cnlv", "", kFixed, 0},
    {"isub", "", kFixed, 0},
    {"svlm", "", kFixed, 0},
    {"svld", "", kFixed, 0},
    {"svd#", "", kFixed, 0},
    {"sv2d", "", kFixed, 0},
    {"sd2v", "", kFixed, 0},
    {"svtf", "", kFixed, 0},
    {"smut", "", kFixed, 0},
    {"bbvs", "", kFixed, 0},
    {"bbvd", "", kFixed, 0},
    {"bbd#", "", kFixed, 0},
    {"bv2d", "", kFixed, 0},
    {"bd2v", "", kFixed, 0},
    {"bvtf", "", kFixed, 0},
};
static_assert(std::size(kControlRows) == 52);

UInt32 CodeOf(const char* inText) {
  UInt32 code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<UInt8>(inText[i]);
  return code;
}

class Selectors : public LiveDevice {
 protected:
  template <class Body>
  void ForEachPlace(const char* inSelector, Body inBody) {
    for (const UInt32 scope : kScopes) {
      for (const UInt32 element : kElements) {
        SCOPED_TRACE(std::string(inSelector) + " " + TextOf(scope) + " " + std::to_string(element));
        inBody(AudioObjectPropertyAddress{CodeOf(inSelector), scope, element});
      }
    }
  }
  bool Has(const AudioObjectPropertyAddress& inAddress) {
    return AudioObjectHasProperty(mDevice, &inAddress) != 0;
  }
  OSStatus GetSettable(const AudioObjectPropertyAddress& inAddress, Boolean& outSettable) {
    return AudioObjectIsPropertySettable(mDevice, &inAddress, &outSettable);
  }
  OSStatus GetSize(const AudioObjectPropertyAddress& inAddress, UInt32& outSize) {
    return AudioObjectGetPropertyDataSize(mDevice, &inAddress, 0, nullptr, &outSize);
  }
  OSStatus GetInto(const AudioObjectPropertyAddress& inAddress, UInt32 inSize) {
    std::vector<UInt8> data(inSize + 1);
    // A stream usage counts its streams.
    if (inAddress.mSelector == 'suse') data[8] = 1;
    UInt32 size = inSize;
    return AudioObjectGetPropertyData(mDevice, &inAddress, 0, nullptr, &size, data.data());
  }
  OSStatus SetFrom(const AudioObjectPropertyAddress& inAddress, UInt32 inSize) {
    const std::vector<UInt8> data(inSize + 1);
    return AudioObjectSetPropertyData(mDevice, &inAddress, 0, nullptr, inSize, data.data());
  }
};

TEST_F(Selectors, TheDevicesOwnAreThereAsTheTableSays) {
  for (const Row& row : kRows) {
    const std::string name = row.mSelector;
    ForEachPlace(row.mSelector, [&](const AudioObjectPropertyAddress& inAddress) {
      EXPECT_EQ(Has(inAddress), IsThere(row.mWhere, inAddress.mScope));
      // The rest is answered there or not.
      Boolean settable = 2;
      EXPECT_EQ(GetSettable(inAddress, settable), 0);
      EXPECT_EQ(settable, row.mSettable == kSettable ? 1 : 0);
      UInt32 size = 0;
      EXPECT_EQ(GetSize(inAddress, size), 0);
      EXPECT_EQ(size, row.mSize);
      // Bytes are counted on the stream that has the channel.
      const bool needsStream = name == "bsiz" || name == "bsz#";
      EXPECT_EQ(GetInto(inAddress, size), needsStream && inAddress.mElement > 2 ? 'nope' : 0);
      if (row.mSettable == kSettable) {
        EXPECT_EQ(SetFrom(inAddress, size + 1), '!siz');
      } else {
        EXPECT_EQ(SetFrom(inAddress, size), 'nope');
      }
    });
  }
}

TEST_F(Selectors, TheNumbersAreThoseOfThisDevice) {
  struct Number {
    const char* mSelector;
    UInt32 mScope;
    UInt32 mValue;
  };
  const Number numbers[] = {
      {"akin", 'glob', mDevice}, {"bsiz", 'outp', 4096}, {"clkd", 'glob', 0},   {"dflt", 'outp', 1},
      {"dflt", 'inpt', 0},       {"diff", 'glob', 0},    {"fsiz", 'glob', 512}, {"goin", 'glob', 0},
      {"gone", 'glob', 0},       {"hidn", 'glob', 0},    {"livn", 'glob', 1},   {"ltnc", 'outp', 0},
      {"ltnc", 'inpt', 0},       {"oink", 'glob', ~0U},  {"over", 'glob', 0},   {"sflt", 'outp', 1},
      {"tran", 'glob', 'virt'},
  };
  for (const Number& number : numbers) {
    EXPECT_EQ(GetNumber(mDevice, {CodeOf(number.mSelector), number.mScope, 0}), number.mValue)
        << number.mSelector;
  }
}

TEST_F(Selectors, ThoseOfControlsAreThereWhereTheirControlStands) {
  std::set<std::string> had;
  for (const ControlRow& row : kControlRows) {
    ForEachPlace(row.mSelector, [&](const AudioObjectPropertyAddress& inAddress) {
      const bool isThere = *row.mControlClass != 0 && IsThere(kDirection, inAddress.mScope) &&
                           inAddress.mElement <= 2;
      EXPECT_EQ(Has(inAddress), isThere);
      Boolean settable = 2;
      UInt32 size = 0;
      if (!isThere || row.mGetStatus == 'who?') {
        EXPECT_EQ(GetSettable(inAddress, settable), 'who?');
        EXPECT_EQ(GetSize(inAddress, size), 'who?');
        EXPECT_EQ(GetInto(inAddress, 4), 'who?');
        EXPECT_EQ(SetFrom(inAddress, 4), 'who?');
        if (isThere) had.insert(row.mSelector);
        return;
      }
      had.insert(row.mSelector);
      EXPECT_EQ(GetSettable(inAddress, settable), 0);
      EXPECT_EQ(settable, row.mSettable == kSettable ? 1 : 0);
      EXPECT_EQ(GetSize(inAddress, size), 0);
      EXPECT_EQ(size, row.mSize);
      EXPECT_EQ(GetInto(inAddress, size), row.mGetStatus);
      EXPECT_EQ(SetFrom(inAddress, size), row.mSettable == kSettable ? 0 : 'nope');
    });
  }
  EXPECT_EQ(had, (std::set<std::string>{"volm", "vold", "vdb#", "v2db", "db2v", "vctf", "mute",
                                        "ssrc", "ssc#", "lscn", "sscn"}));
}

TEST_F(Selectors, TakingTheDeviceAndGivingItUpIsWrittenBack) {
  UInt32 owner = 77;
  const AudioObjectPropertyAddress address = Global('oink');
  ASSERT_EQ(AudioObjectSetPropertyData(mDevice, &address, 0, nullptr, sizeof owner, &owner), 0);
  EXPECT_EQ(owner, static_cast<UInt32>(getpid()));
  EXPECT_EQ(GetNumber(mDevice, address), owner);
  ASSERT_EQ(AudioObjectSetPropertyData(mDevice, &address, 0, nullptr, sizeof owner, &owner), 0);
  EXPECT_EQ(owner, ~0U);
  EXPECT_EQ(GetNumber(mDevice, address), ~0U);
}

}  // namespace
}  // namespace tembra::test
