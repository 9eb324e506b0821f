#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "support/HP_SystemInfo.h"

namespace {

using testing::ElementsAre;

// This test's own system object.
struct System {
  std::map<UInt32, UInt32> mValues;  // a missing one cannot be read
  std::vector<UInt32> mAdded;
  std::vector<UInt32> mRemoved;
  std::vector<UInt32> mRead;
  std::vector<UInt32> mAddedAtRead;  // how many had been added at each reading
} sSystem;

constexpr OSStatus kCannotBeRead = 'who?';

AudioObjectPropertyAddress Address(UInt32 inSelector) {
  return {inSelector, 'glob', 0};
}

void Tell(UInt32 inSelector, AudioObjectID inObjectID = 1) {
  AudioObjectPropertyAddress theAddress = Address(inSelector);
  EXPECT_EQ(0, HP_SystemInfo::SystemListener(inObjectID, 1, &theAddress, nullptr));
}

class SystemInfo : public testing::Test {
 protected:
  void SetUp() override {
    HP_SystemInfo::Teardown();
    sSystem = {};
    sSystem.mValues = {{'user', 1}, {'pmut', 1}, {'stmo', 0}, {'mast', 0}, {'inot', 0}};
    for (UInt32 theSelector : {'user', 'pmut', 'stmo'}) Tell(theSelector);
    sSystem.mRead.clear();
    sSystem.mAddedAtRead.clear();
  }
  void TearDown() override { HP_SystemInfo::Teardown(); }
};

}  // namespace

extern "C" OSStatus AudioObjectGetPropertyData(AudioObjectID inObjectID,
                                               const AudioObjectPropertyAddress* inAddress,
                                               UInt32 inQualifierSize, const void* inQualifier,
                                               UInt32* ioDataSize, void* outData) {
  EXPECT_EQ(1u, inObjectID);
  EXPECT_EQ(UInt32{'glob'}, inAddress->mScope);
  EXPECT_EQ(0u, inAddress->mElement);
  EXPECT_EQ(0u, inQualifierSize);
  EXPECT_EQ(nullptr, inQualifier);
  EXPECT_EQ(4u, *ioDataSize);
  sSystem.mRead.push_back(inAddress->mSelector);
  sSystem.mAddedAtRead.push_back(static_cast<UInt32>(sSystem.mAdded.size()));
  auto theIterator = sSystem.mValues.find(inAddress->mSelector);
  if (theIterator == sSystem.mValues.end()) return kCannotBeRead;
  *static_cast<UInt32*>(outData) = theIterator->second;
  return 0;
}

extern "C" OSStatus AudioObjectAddPropertyListener(AudioObjectID inObjectID,
                                                   const AudioObjectPropertyAddress* inAddress,
                                                   AudioObjectPropertyListenerProc inListener,
                                                   void*) {
  EXPECT_EQ(1u, inObjectID);
  EXPECT_EQ(UInt32{'glob'}, inAddress->mScope);
  EXPECT_EQ(&HP_SystemInfo::SystemListener, inListener);
  sSystem.mAdded.push_back(inAddress->mSelector);
  return 0;
}

extern "C" OSStatus AudioObjectRemovePropertyListener(AudioObjectID inObjectID,
                                                      const AudioObjectPropertyAddress* inAddress,
                                                      AudioObjectPropertyListenerProc inListener,
                                                      void*) {
  EXPECT_EQ(1u, inObjectID);
  EXPECT_EQ(&HP_SystemInfo::SystemListener, inListener);
  sSystem.mRemoved.push_back(inAddress->mSelector);
  return 0;
}

namespace {

TEST_F(SystemInfo, InitializeListensToThreePropertiesAndReadsEach) {
  HP_SystemInfo::Initialize();
  EXPECT_THAT(sSystem.mAdded, ElementsAre('user', 'pmut', 'stmo'));
  EXPECT_THAT(sSystem.mRead, ElementsAre('user', 'pmut', 'stmo'));
  // A change between the two would otherwise be lost.
  EXPECT_THAT(sSystem.mAddedAtRead, ElementsAre(1u, 2u, 3u)) << "each is listened to, then read";
}

TEST_F(SystemInfo, InitializeWorksOnce) {
  HP_SystemInfo::Initialize();
  HP_SystemInfo::Initialize();
  EXPECT_EQ(3u, sSystem.mAdded.size());
  EXPECT_EQ(3u, sSystem.mRead.size());
}

TEST_F(SystemInfo, InitializeTakesTheValuesThatItReads) {
  sSystem.mValues['pmut'] = 0;
  sSystem.mValues['stmo'] = 1;
  HP_SystemInfo::Initialize();
  EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessDoingIO());
  EXPECT_TRUE(HP_SystemInfo::IsMixingStereoToMono());
}

TEST_F(SystemInfo, TeardownRemovesTheListenersOnce) {
  HP_SystemInfo::Initialize();
  HP_SystemInfo::Teardown();
  HP_SystemInfo::Teardown();
  EXPECT_THAT(sSystem.mRemoved, ElementsAre('user', 'pmut', 'stmo'));
  HP_SystemInfo::Initialize();
  EXPECT_EQ(6u, sSystem.mAdded.size());
}

TEST_F(SystemInfo, ProcessDoesIOIfItIsAudibleInAnActiveSession) {
  for (UInt32 theUser : {0u, 1u, 2u}) {
    for (UInt32 theAudible : {0u, 1u, 2u}) {
      sSystem.mValues['user'] = theUser;
      sSystem.mValues['pmut'] = theAudible;
      Tell('user');
      Tell('pmut');
      EXPECT_EQ(theUser != 0 && theAudible != 0, HP_SystemInfo::IsCurrentProcessDoingIO());
    }
  }
}

TEST_F(SystemInfo, ListenerIgnoresOtherObjects) {
  sSystem.mValues['pmut'] = 0;
  Tell('pmut', 2);
  EXPECT_TRUE(sSystem.mRead.empty());
  EXPECT_TRUE(HP_SystemInfo::IsCurrentProcessDoingIO());
}

TEST_F(SystemInfo, ListenerLooksAtEachAddress) {
  sSystem.mValues = {{'user', 0}, {'pmut', 1}, {'stmo', 1}};
  AudioObjectPropertyAddress theAddresses[] = {Address('dev#'), Address('stmo'), Address('user')};
  HP_SystemInfo::SystemListener(1, 3, theAddresses, nullptr);
  EXPECT_THAT(sSystem.mRead, ElementsAre('stmo', 'user'));
  EXPECT_TRUE(HP_SystemInfo::IsMixingStereoToMono());
  EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessDoingIO());
}

TEST_F(SystemInfo, SessionAndAudibilityThatCannotBeReadCountAsTrue) {
  sSystem.mValues = {{'user', 0}, {'pmut', 0}};
  Tell('user');
  Tell('pmut');
  EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessDoingIO());
  sSystem.mValues.clear();
  Tell('user');
  Tell('pmut');
  EXPECT_TRUE(HP_SystemInfo::IsCurrentProcessDoingIO());
}

TEST_F(SystemInfo, MixingThatCannotBeReadStaysAsItWas) {
  sSystem.mValues.clear();
  Tell('stmo');
  EXPECT_FALSE(HP_SystemInfo::IsMixingStereoToMono());
  sSystem.mValues['stmo'] = 1;
  Tell('stmo');
  sSystem.mValues.clear();
  Tell('stmo');
  EXPECT_TRUE(HP_SystemInfo::IsMixingStereoToMono());
}

TEST_F(SystemInfo, MasterAndExitingAreReadEachTime) {
  EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessTheMaster());
  EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessInitingOrExiting());
  sSystem.mValues['mast'] = 1;
  EXPECT_TRUE(HP_SystemInfo::IsCurrentProcessTheMaster());
  EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessInitingOrExiting());
  sSystem.mValues['inot'] = 7;
  EXPECT_TRUE(HP_SystemInfo::IsCurrentProcessInitingOrExiting());
  sSystem.mValues.clear();
  EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessTheMaster());
  EXPECT_FALSE(HP_SystemInfo::IsCurrentProcessInitingOrExiting());
}

}  // namespace
