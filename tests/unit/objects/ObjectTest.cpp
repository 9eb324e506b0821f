#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "TestObject.h"
#include "objects/HP_HardwarePlugIn.h"
#include "support/CAMutex.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;

// What PropertiesChanged told the host, and what holds while it does.
struct Told {
  AudioHardwarePlugInRef mPlugIn;
  AudioObjectID mObjectID;
  std::vector<UInt32> mSelectors;
};
std::vector<Told> sTold;
std::function<void()> sWhileTelling;

TEST(ObjectBase, DoesNothingAndHasNoMutex) {
  HP_Object theObject(0, 'aobj', nullptr);
  theObject.Initialize();
  theObject.Teardown();
  theObject.PropertyListenerAdded(Address('a'));
  theObject.PropertyListenerRemoved(Address('a'));
  EXPECT_EQ(nullptr, theObject.GetObjectStateMutex());
  EXPECT_EQ(UInt32{'aobj'}, theObject.GetClassID());
  EXPECT_EQ(nullptr, theObject.GetPlugIn());
}

class PropertiesChanged : public testing::Test {
 protected:
  void SetUp() override { sTold.clear(); }
  void TearDown() override { sWhileTelling = nullptr; }

  const AudioObjectPropertyAddress mAddresses[2] = {Address('a'), Address('b')};
};

TEST_F(PropertiesChanged, TellsTheHostForThePlugIn) {
  auto* thePlugIn = new HP_HardwarePlugIn(kAudioHardwarePlugInTypeID);
  thePlugIn->Retain();
  TestObject theObject(4000, 'aobj', thePlugIn);
  theObject.PropertiesChanged(2, mAddresses);
  ASSERT_EQ(1u, sTold.size());
  EXPECT_EQ(thePlugIn->GetInterface(), sTold[0].mPlugIn);
  EXPECT_EQ(4000u, sTold[0].mObjectID);
  EXPECT_THAT(sTold[0].mSelectors, ElementsAre('a', 'b'));
  thePlugIn->Release();
}

TEST_F(PropertiesChanged, LetsTheMutexGoAroundTheCallIfItIsOurs) {
  CAMutex theMutex("test");
  TestObject theObject;
  theObject.mMutex = &theMutex;
  bool theWasFree = false;
  sWhileTelling = [&] { theWasFree = theMutex.IsFree(); };
  theMutex.Lock();
  theObject.PropertiesChanged(1, mAddresses);
  EXPECT_TRUE(theWasFree);
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  theMutex.Unlock();
}

TEST_F(PropertiesChanged, DoesNotTakeAMutexThatIsNotOurs) {
  CAMutex theMutex("test");
  TestObject theObject;
  theObject.mMutex = &theMutex;
  theObject.PropertiesChanged(1, mAddresses);
  EXPECT_TRUE(theMutex.IsFree());

  theMutex.Lock();
  bool theWasFree = true;
  sWhileTelling = [&] { theWasFree = theMutex.IsFree(); };
  std::thread([&] { theObject.PropertiesChanged(1, mAddresses); }).join();
  EXPECT_FALSE(theWasFree);
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  theMutex.Unlock();
  EXPECT_EQ(2u, sTold.size());
}

class NamedObject : public TestObject {
 public:
  NamedObject(AudioObjectID inID, CFStringRef inName) : TestObject(inID, 'astr'), mName(inName) {}
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32, const void*,
                       UInt32& ioDataSize, void* outData) const override {
    EXPECT_EQ(UInt32{'lnam'}, inAddress.mSelector);
    EXPECT_EQ(UInt32{'glob'}, inAddress.mScope);
    EXPECT_EQ(0u, inAddress.mElement);
    EXPECT_EQ(8u, ioDataSize);
    if (mName == nullptr) throw CAException('who?');
    CFRetain(mName);
    std::memcpy(outData, &mName, sizeof(mName));
  }
  CFStringRef mName;
};

std::string ShownBy(const HP_Object& inObject) {
  testing::internal::CaptureStdout();
  inObject.Show();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST(Show, PrintsIDClassAndName) {
  CFMutableStringRef theName = CFStringCreateMutable(kCFAllocatorDefault, 0);
  CFStringAppend(theName, CFSTR("Tembra Audio"));
  EXPECT_EQ("AudioObjectID:\t\t0x1F00\n\tAudioClassID:\t'astr'\n\tName:\t\t\tTembra Audio\n",
            ShownBy(NamedObject(0x1F00, theName)));
  EXPECT_EQ(1, CFGetRetainCount(theName));
  CFRelease(theName);
}

TEST(Show, PrintsAnEmptyNameIfThereIsNone) {
  EXPECT_EQ("AudioObjectID:\t\t0x1F01\n\tAudioClassID:\t'astr'\n\tName:\t\t\t\n",
            ShownBy(NamedObject(0x1F01, nullptr)));
  EXPECT_EQ("AudioObjectID:\t\t0x0\n\tAudioClassID:\t'aplg'\n\tName:\t\t\t\n",
            ShownBy(HP_Object(0, 'aplg', nullptr)));
}

TEST(Show, CutsANameAt255Bytes) {
  const std::string theText(300, 'n');
  CFStringRef theName =
      CFStringCreateWithCString(kCFAllocatorDefault, theText.c_str(), kCFStringEncodingUTF8);
  EXPECT_EQ("AudioObjectID:\t\t0x1F02\n\tAudioClassID:\t'astr'\n\tName:\t\t\t" +
                theText.substr(0, 255) + "\n",
            ShownBy(NamedObject(0x1F02, theName)));
  CFRelease(theName);
}

}  // namespace
}  // namespace tembra::test

extern "C" OSStatus AudioObjectPropertiesChanged(AudioHardwarePlugInRef inPlugIn,
                                                 AudioObjectID inObjectID, UInt32 inNumberAddresses,
                                                 const AudioObjectPropertyAddress* inAddresses) {
  tembra::test::sTold.push_back({inPlugIn, inObjectID, {}});
  for (UInt32 i = 0; i < inNumberAddresses; ++i) {
    tembra::test::sTold.back().mSelectors.push_back(inAddresses[i].mSelector);
  }
  if (tembra::test::sWhileTelling) tembra::test::sWhileTelling();
  return 0;
}
