#include <map>

#include "support/HP_SystemInfo.h"
#include "unit/entry_table/Fixture.h"

Record gRecord;

namespace {

std::map<CFUUIDRef, int> sInstances;  // of a factory, as the platform would count them
std::vector<AudioObjectPropertySelector> sListenedTo;

}  // namespace

extern "C" void CFPlugInAddInstanceForFactory(CFUUIDRef inFactory) {
  ++sInstances[inFactory];
}

extern "C" void CFPlugInRemoveInstanceForFactory(CFUUIDRef inFactory) {
  --sInstances[inFactory];
}

extern "C" OSStatus AudioObjectAddPropertyListener(AudioObjectID,
                                                   const AudioObjectPropertyAddress* inAddress,
                                                   AudioObjectPropertyListenerProc, void*) {
  sListenedTo.push_back(inAddress->mSelector);
  return 0;
}

extern "C" OSStatus AudioObjectRemovePropertyListener(AudioObjectID,
                                                      const AudioObjectPropertyAddress*,
                                                      AudioObjectPropertyListenerProc, void*) {
  return 0;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using PlugIn = EntryTable;

TEST_F(PlugIn, IsAPlugInWithoutAnIDThatBelongsToItself) {
  EXPECT_EQ(UInt32{'aplg'}, mPlugIn->GetClassID());
  EXPECT_EQ(0u, mPlugIn->GetObjectID());
  EXPECT_EQ(mPlugIn, mPlugIn->GetPlugIn());
}

TEST_F(PlugIn, ReferenceAndObjectLeadToEachOther) {
  EXPECT_EQ(mPlugIn, HP_HardwarePlugIn::GetObject(mSelf));
  EXPECT_EQ(mSelf, mPlugIn->GetInterface());
}

TEST_F(PlugIn, AllShareOneVectorWhoseFirstWordIsNull) {
  auto* theOther = new RecordingPlugIn;
  theOther->Retain();
  EXPECT_EQ(mEntries, *theOther->GetInterface());
  EXPECT_NE(mSelf, theOther->GetInterface());
  theOther->Release();
  EXPECT_EQ(nullptr, mEntries->_reserved);
  const void* const* theWords = reinterpret_cast<const void* const*>(mEntries);
  for (int i = 1; i <= 30; ++i) EXPECT_NE(nullptr, theWords[i]) << i;
}

TEST_F(PlugIn, CountStartsAtZeroAndEachCallAnswersTheNewOne) {
  bool theDeleted = false;
  auto* theOther = new RecordingPlugIn(&theDeleted);
  AudioHardwarePlugInRef theSelf = theOther->GetInterface();
  EXPECT_EQ(1u, mEntries->AddRef(theSelf));
  EXPECT_EQ(2u, mEntries->AddRef(theSelf));
  EXPECT_EQ(1u, mEntries->Release(theSelf));
  EXPECT_FALSE(theDeleted);
  EXPECT_EQ(0u, mEntries->Release(theSelf));
  EXPECT_TRUE(theDeleted);
}

TEST_F(PlugIn, KeepsTheFactorysUUID) {
  CFUUIDRef theUUID = CFUUIDCreate(kCFAllocatorDefault);
  const CFIndex theCount = CFGetRetainCount(theUUID);
  auto* theOther = new HP_HardwarePlugIn(theUUID);
  EXPECT_LE(theCount + 1, CFGetRetainCount(theUUID));
  theOther->Retain();
  theOther->Release();
  EXPECT_EQ(theCount, CFGetRetainCount(theUUID));
  CFRelease(theUUID);
}

TEST_F(PlugIn, IsAnInstanceOfItsFactoryForItsLife) {
  CFUUIDRef theUUID = CFUUIDCreate(kCFAllocatorDefault);
  auto* theOther = new HP_HardwarePlugIn(theUUID);
  EXPECT_EQ(1, sInstances[theUUID]);
  theOther->Retain();
  theOther->Release();
  EXPECT_EQ(0, sInstances[theUUID]);
  CFRelease(theUUID);
}

const char* const kInterfaces[] = {
    "47023157-0C55-44AA-8996-B81F69AE876E", "E96C3E92-E745-4CB7-BA91-B33C68F2F026",
    "38D78A18-77A5-11D8-B8B8-000A9588787E", "5D80CB6C-484F-11D7-8571-000A95771282",
    "FAFCAFC3-BAE8-11D6-B4A8-00039315CD46", "00000000-0000-0000-C000-000000000046"};

CFUUIDBytes MakeUUID(const char* inText) {
  CFStringRef theString =
      CFStringCreateWithCString(kCFAllocatorDefault, inText, kCFStringEncodingUTF8);
  CFUUIDRef theUUID = CFUUIDCreateFromString(kCFAllocatorDefault, theString);
  CFUUIDBytes theBytes = CFUUIDGetUUIDBytes(theUUID);
  CFRelease(theUUID);
  CFRelease(theString);
  return theBytes;
}

TEST_F(PlugIn, QueryAnswersSixInterfacesWithTheSameReference) {
  UInt32 theCount = 1;
  for (const char* theText : kInterfaces) {
    void* theInterface = nullptr;
    EXPECT_EQ(0, mEntries->QueryInterface(mSelf, MakeUUID(theText), &theInterface)) << theText;
    EXPECT_EQ(mSelf, theInterface);
    EXPECT_EQ(++theCount + 1, mEntries->AddRef(mSelf));
    mEntries->Release(mSelf);
  }
  for (size_t i = 0; i < std::size(kInterfaces); ++i) mEntries->Release(mSelf);
}

TEST_F(PlugIn, QueryForAnUnknownInterfaceRetainsNothing) {
  void* theInterface = this;
  EXPECT_EQ(static_cast<HRESULT>(0x80000004),
            mEntries->QueryInterface(mSelf, MakeUUID("F8BB1C28-BAE8-11D6-9C31-00039315CD46"),
                                     &theInterface));
  EXPECT_EQ(nullptr, theInterface);
  EXPECT_THAT(gRecord.mCalls, IsEmpty());
}

TEST_F(PlugIn, QueryWithANullPointerIsRefused) {
  void* theInterface = this;
  EXPECT_EQ('nope', mEntries->QueryInterface(nullptr, MakeUUID(kInterfaces[0]), &theInterface));
  EXPECT_EQ(this, theInterface);
  EXPECT_EQ('nope', mEntries->QueryInterface(mSelf, MakeUUID(kInterfaces[0]), nullptr));
  EXPECT_THAT(gRecord.mCalls, IsEmpty());
}

TEST_F(PlugIn, InitializeIsInitializeWithTheIDZero) {
  EXPECT_EQ(0, mEntries->Initialize(mSelf));
  EXPECT_THAT(gRecord.mCalls, ElementsAre("Initialize", "InitializeWithObjectID 0"));
  EXPECT_EQ(0u, mPlugIn->GetObjectID());
}

TEST_F(PlugIn, InitializeWithObjectIDTakesTheID) {
  EXPECT_EQ(0, mEntries->InitializeWithObjectID(mSelf, 77));
  EXPECT_THAT(gRecord.mCalls, ElementsAre("InitializeWithObjectID 77"));
  EXPECT_EQ(77u, mPlugIn->GetObjectID());
  EXPECT_EQ(mPlugIn, HP_Object::GetObjectByID(77));
}

TEST_F(PlugIn, InitializeWithObjectIDListensToTheSystem) {
  // The HAL behind the calls shall load no plug-in of its own, which would listen too.
  setenv("TEMBRA_HAL_PLUGIN_PATH", "", 1);
  HP_SystemInfo::Teardown();
  sListenedTo.clear();
  EXPECT_EQ(0, mEntries->InitializeWithObjectID(mSelf, 77));
  EXPECT_THAT(sListenedTo, ElementsAre('user', 'pmut', 'stmo'));
}

TEST_F(PlugIn, InitializeWithObjectIDForwardsItsStatus) {
  mPlugIn->mAnswer = '!obj';
  EXPECT_EQ('!obj', mEntries->InitializeWithObjectID(mSelf, 77));
  gRecord.mAct = [] { throw CAException('stop'); };
  EXPECT_EQ('stop', mEntries->InitializeWithObjectID(mSelf, 77));
}

TEST_F(PlugIn, TeardownIsForwarded) {
  EXPECT_EQ(0, mEntries->Teardown(mSelf));
  EXPECT_THAT(gRecord.mCalls, ElementsAre("Teardown"));
}

TEST_F(PlugIn, ExceptionsOfThePlugInBecomeStatusesOrZero) {
  gRecord.mAct = [] { throw CAException('unop'); };
  EXPECT_EQ('unop', mEntries->Initialize(mSelf));
  EXPECT_EQ('unop', mEntries->Teardown(mSelf));
  EXPECT_EQ(0u, mEntries->AddRef(mSelf));
  EXPECT_EQ(0u, mEntries->Release(mSelf));
  void* theInterface = this;
  EXPECT_EQ('unop', mEntries->QueryInterface(mSelf, MakeUUID(kInterfaces[0]), &theInterface));
  gRecord.mAct = [] { throw 1; };
  EXPECT_EQ('what', mEntries->Initialize(mSelf));
  EXPECT_EQ('what', mEntries->Teardown(mSelf));
  EXPECT_EQ('what', mEntries->InitializeWithObjectID(mSelf, 1));
}

}  // namespace
