#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/CACFArray.h"
#include "support/CACFBoolean.h"
#include "support/CACFData.h"
#include "support/CACFDictionary.h"
#include "support/CACFNumber.h"
#include "support/CACFString.h"
#include "support/cfarptr.h"

namespace {

CFMutableStringRef MakeString() {
  return CFStringCreateMutable(kCFAllocatorDefault, 0);
}

TEST(Wrapper, TakesOverAReference) {
  CFMutableStringRef theString = MakeString();
  CFRetain(theString);
  {
    CACFString theWrapper(static_cast<CFStringRef>(theString));
    EXPECT_TRUE(theWrapper.IsValid());
    EXPECT_TRUE(theWrapper.WillRelease());
    EXPECT_EQ(2, CFGetRetainCount(theString));
  }
  EXPECT_EQ(1, CFGetRetainCount(theString));
  CFRelease(theString);
}

TEST(Wrapper, ToldNotToReleaseBorrows) {
  CFMutableStringRef theString = MakeString();
  { CACFString theWrapper(static_cast<CFStringRef>(theString), false); }
  EXPECT_EQ(1, CFGetRetainCount(theString));
  CFRelease(theString);
}

TEST(Wrapper, GetAddsNoReferenceAndCopyAddsOne) {
  CFMutableStringRef theString = MakeString();
  CACFString theWrapper(static_cast<CFStringRef>(theString));
  EXPECT_EQ(theString, theWrapper.GetCFString());
  EXPECT_EQ(1, CFGetRetainCount(theString));
  EXPECT_EQ(theString, theWrapper.CopyCFString());
  EXPECT_EQ(2, CFGetRetainCount(theString));
  CFRelease(theString);
}

TEST(Wrapper, RetainAddsAReferenceAndReleaseForgets) {
  CFMutableStringRef theString = MakeString();
  CACFString theWrapper(static_cast<CFStringRef>(theString));
  theWrapper.Retain();
  EXPECT_EQ(2, CFGetRetainCount(theString));
  theWrapper.Release();
  EXPECT_FALSE(theWrapper.IsValid());
  EXPECT_EQ(nullptr, theWrapper.GetCFString());
  EXPECT_EQ(1, CFGetRetainCount(theString));
  theWrapper.Release();
  EXPECT_EQ(1, CFGetRetainCount(theString));
  CFRelease(theString);
}

TEST(Wrapper, ReleaseOfABorrowedReferenceOnlyForgets) {
  CFMutableStringRef theString = MakeString();
  CACFString theWrapper(static_cast<CFStringRef>(theString), false);
  theWrapper.Release();
  EXPECT_FALSE(theWrapper.IsValid());
  EXPECT_EQ(1, CFGetRetainCount(theString));
  CFRelease(theString);
}

TEST(Wrapper, CopyHasAReferenceOfItsOwn) {
  CFMutableStringRef theString = MakeString();
  CACFString theWrapper(static_cast<CFStringRef>(theString));
  {
    CACFString theCopy(theWrapper);
    EXPECT_EQ(2, CFGetRetainCount(theString));
    CACFString theOther;
    theOther = theCopy;
    EXPECT_EQ(3, CFGetRetainCount(theString));
    theOther = *&theOther;
    EXPECT_EQ(3, CFGetRetainCount(theString));
  }
  EXPECT_EQ(1, CFGetRetainCount(theString));
}

TEST(Wrapper, AssignmentReleasesWhatWasThere) {
  CFMutableStringRef theFirst = MakeString();
  CFRetain(theFirst);
  CFMutableStringRef theSecond = MakeString();
  CFRetain(theSecond);
  {
    CACFString theWrapper(static_cast<CFStringRef>(theFirst));
    theWrapper = static_cast<CFStringRef>(theSecond);
    EXPECT_EQ(1, CFGetRetainCount(theFirst));
    EXPECT_EQ(2, CFGetRetainCount(theSecond));
  }
  EXPECT_EQ(1, CFGetRetainCount(theSecond));
  CFRelease(theFirst);
  CFRelease(theSecond);
}

TEST(Wrapper, AssignmentOfWhatItHoldsTakesOverTheReferenceToo) {
  CFMutableStringRef theString = MakeString();
  CFRetain(theString);
  {
    CACFString theWrapper(static_cast<CFStringRef>(theString));
    theWrapper = theWrapper.CopyCFString();
    EXPECT_EQ(2, CFGetRetainCount(theString));
  }
  EXPECT_EQ(1, CFGetRetainCount(theString));
  CFRelease(theString);
}

TEST(Wrapper, OfNothingIsNotValid) {
  EXPECT_FALSE(CACFString().IsValid());
  EXPECT_FALSE(CACFString(static_cast<const char*>(nullptr)).IsValid());
  EXPECT_FALSE(CACFData(static_cast<CFDataRef>(nullptr)).IsValid());
  CACFObject<CFUUIDRef> theObject;
  theObject.Retain();
  theObject.Release();
  EXPECT_EQ(nullptr, theObject.CopyObject());
}

TEST(String, IsMadeFromText) {
  CACFString theString("T\xC3\xA9mbra");
  ASSERT_TRUE(theString.IsValid());
  EXPECT_EQ(6, CFStringGetLength(theString.GetCFString()));
}

TEST(String, ByteLengthIsThatOfTheEncoding) {
  CACFString theString("T\xC3\xA9mbra");
  EXPECT_EQ(7u, theString.GetStringByteLength());
  EXPECT_EQ(7u, theString.GetStringByteLength(kCFStringEncodingUTF8));
  EXPECT_EQ(12u, theString.GetStringByteLength(kCFStringEncodingUTF16LE));
  EXPECT_EQ(0u, CACFString::GetStringByteLength(nullptr));
}

TEST(String, TextIsTerminatedAndTheSizeCountsTheTerminator) {
  CACFString theString("Tembra Audio");
  char theText[32];
  std::memset(theText, 'x', sizeof(theText));
  UInt32 theSize = sizeof(theText);
  theString.GetCString(theText, theSize, kCFStringEncodingUTF8);
  EXPECT_EQ(13u, theSize);
  EXPECT_STREQ("Tembra Audio", theText);
  EXPECT_EQ('x', theText[13]);
}

TEST(String, TextThatFitsExactlyIsWhole) {
  CACFString theString("abc");
  char theText[4];
  UInt32 theSize = theString.GetStringByteLength() + 1;
  theString.GetCString(theText, theSize);
  EXPECT_EQ(4u, theSize);
  EXPECT_STREQ("abc", theText);
}

TEST(String, TextIsCutToTheBufferAtAWholeCharacter) {
  CACFString theString("a\xC3\xA9z");
  char theText[8];
  std::memset(theText, 'x', sizeof(theText));
  UInt32 theSize = 3;
  theString.GetCString(theText, theSize);
  EXPECT_EQ(2u, theSize);
  EXPECT_STREQ("a", theText);
  EXPECT_EQ('x', theText[3]);
  theSize = 1;
  theString.GetCString(theText, theSize);
  EXPECT_EQ(1u, theSize);
  EXPECT_STREQ("", theText);
}

TEST(String, NothingIsWrittenIntoABufferWithoutRoom) {
  CACFString theString("abc");
  char theText = 'x';
  UInt32 theSize = 0;
  theString.GetCString(&theText, theSize);
  EXPECT_EQ(0u, theSize);
  EXPECT_EQ('x', theText);
}

TEST(String, NullReadsAsEmptyText) {
  char theText[4] = "xxx";
  UInt32 theSize = sizeof(theText);
  CACFString().GetCString(theText, theSize);
  EXPECT_EQ(1u, theSize);
  EXPECT_STREQ("", theText);
}

template <class T>
CFNumberType TypeOf(T inValue) {
  return CFNumberGetType(CACFNumber(inValue).GetCFNumber());
}

TEST(Number, KeepsTheWidthThatItWasMadeWith) {
  EXPECT_EQ(kCFNumberSInt32Type, TypeOf(SInt32{1}));
  EXPECT_EQ(kCFNumberSInt32Type, TypeOf(UInt32{1}));
  EXPECT_EQ(kCFNumberSInt64Type, TypeOf(SInt64{1}));
  EXPECT_EQ(kCFNumberSInt64Type, TypeOf(UInt64{1}));
  EXPECT_EQ(kCFNumberFloat32Type, TypeOf(Float32{1}));
  EXPECT_EQ(kCFNumberFloat64Type, TypeOf(Float64{1}));
}

TEST(Number, ReadsBackWhatItWasMadeFrom) {
  EXPECT_EQ(-7, CACFNumber(SInt32{-7}).GetSInt32());
  EXPECT_EQ(0xFFFFFFFEu, CACFNumber(UInt32{0xFFFFFFFE}).GetUInt32());
  EXPECT_EQ(-(SInt64{1} << 40), CACFNumber(-(SInt64{1} << 40)).GetSInt64());
  EXPECT_EQ(~UInt64{0}, CACFNumber(~UInt64{0}).GetUInt64());
  EXPECT_EQ(0.5f, CACFNumber(0.5f).GetFloat32());
  EXPECT_EQ(44100.25, CACFNumber(44100.25).GetFloat64());
  EXPECT_EQ(44100, CACFNumber(44100.25).GetSInt32());
  EXPECT_EQ(44100.0, CACFNumber(SInt32{44100}).GetFloat64());
}

TEST(Number, NullReadsAsZero) {
  CACFNumber theNumber(static_cast<CFNumberRef>(nullptr));
  EXPECT_EQ(0, theNumber.GetSInt32());
  EXPECT_EQ(0u, theNumber.GetUInt32());
  EXPECT_EQ(0, theNumber.GetSInt64());
  EXPECT_EQ(0.0, theNumber.GetFloat64());
}

TEST(BooleanWrapper, ReadsItsValue) {
  EXPECT_TRUE(CACFBoolean(true).GetBoolean());
  EXPECT_FALSE(CACFBoolean(false).GetBoolean());
  EXPECT_TRUE(CACFBoolean(kCFBooleanTrue, false).GetBoolean());
  EXPECT_FALSE(CACFBoolean(static_cast<CFBooleanRef>(nullptr)).GetBoolean());
}

TEST(Data, CopiesItsBytes) {
  char theBytes[] = "abc";
  CACFData theData(theBytes, 3);
  theBytes[0] = 'x';
  ASSERT_EQ(3u, theData.GetSize());
  EXPECT_EQ(0, std::memcmp("abc", theData.GetDataPtr(), 3));
}

TEST(Data, OfNothingHasNoBytes) {
  CACFData theData(static_cast<CFDataRef>(nullptr));
  EXPECT_EQ(0u, theData.GetSize());
  EXPECT_EQ(nullptr, theData.GetDataPtr());
}

TEST(Dictionary, NewOneIsEmptyAndMutable) {
  CACFDictionary theDictionary(true);
  EXPECT_TRUE(theDictionary.IsValid());
  EXPECT_TRUE(theDictionary.IsMutable());
  EXPECT_EQ(0u, theDictionary.Size());
}

TEST(Dictionary, HoldsEachKindOfValue) {
  CACFDictionary theDictionary(true);
  CACFArray theArray(true);
  CACFDictionary theInner(true);
  CACFData theData("xy", 2);
  EXPECT_TRUE(theDictionary.AddBool(CFSTR("bool"), true));
  EXPECT_TRUE(theDictionary.AddSInt32(CFSTR("s32"), -3));
  EXPECT_TRUE(theDictionary.AddUInt32(CFSTR("u32"), 0x80000001));
  EXPECT_TRUE(theDictionary.AddSInt64(CFSTR("s64"), SInt64{-1} << 40));
  EXPECT_TRUE(theDictionary.AddUInt64(CFSTR("u64"), ~UInt64{0}));
  EXPECT_TRUE(theDictionary.AddFloat32(CFSTR("f32"), 0.25f));
  EXPECT_TRUE(theDictionary.AddFloat64(CFSTR("f64"), 0.1));
  EXPECT_TRUE(theDictionary.AddString(CFSTR("string"), CFSTR("text")));
  EXPECT_TRUE(theDictionary.AddArray(CFSTR("array"), theArray.GetCFArray()));
  EXPECT_TRUE(theDictionary.AddDictionary(CFSTR("dictionary"), theInner.GetCFDictionary()));
  EXPECT_TRUE(theDictionary.AddData(CFSTR("data"), theData.GetCFData()));
  EXPECT_EQ(11u, theDictionary.Size());

  bool theBool = false;
  EXPECT_TRUE(theDictionary.GetBool(CFSTR("bool"), theBool));
  EXPECT_TRUE(theBool);
  SInt32 theSInt32 = 0;
  EXPECT_TRUE(theDictionary.GetSInt32(CFSTR("s32"), theSInt32));
  EXPECT_EQ(-3, theSInt32);
  UInt32 theUInt32 = 0;
  EXPECT_TRUE(theDictionary.GetUInt32(CFSTR("u32"), theUInt32));
  EXPECT_EQ(0x80000001u, theUInt32);
  SInt64 theSInt64 = 0;
  EXPECT_TRUE(theDictionary.GetSInt64(CFSTR("s64"), theSInt64));
  EXPECT_EQ(SInt64{-1} << 40, theSInt64);
  UInt64 theUInt64 = 0;
  EXPECT_TRUE(theDictionary.GetUInt64(CFSTR("u64"), theUInt64));
  EXPECT_EQ(~UInt64{0}, theUInt64);
  Float32 theFloat32 = 0;
  EXPECT_TRUE(theDictionary.GetFloat32(CFSTR("f32"), theFloat32));
  EXPECT_EQ(0.25f, theFloat32);
  Float64 theFloat64 = 0;
  EXPECT_TRUE(theDictionary.GetFloat64(CFSTR("f64"), theFloat64));
  EXPECT_EQ(0.1, theFloat64);
  CFStringRef theString = nullptr;
  EXPECT_TRUE(theDictionary.GetString(CFSTR("string"), theString));
  EXPECT_TRUE(CFEqual(CFSTR("text"), theString));
  CFArrayRef theArrayRef = nullptr;
  EXPECT_TRUE(theDictionary.GetArray(CFSTR("array"), theArrayRef));
  EXPECT_EQ(theArray.GetCFArray(), theArrayRef);
  CFDictionaryRef theDictionaryRef = nullptr;
  EXPECT_TRUE(theDictionary.GetDictionary(CFSTR("dictionary"), theDictionaryRef));
  EXPECT_EQ(theInner.GetCFDictionary(), theDictionaryRef);
  CFDataRef theDataRef = nullptr;
  EXPECT_TRUE(theDictionary.GetData(CFSTR("data"), theDataRef));
  EXPECT_EQ(theData.GetCFData(), theDataRef);
  CFTypeRef theType = nullptr;
  EXPECT_TRUE(theDictionary.GetCFType(CFSTR("data"), theType));
  EXPECT_EQ(theData.GetCFData(), theType);
}

TEST(Dictionary, MissingKeyOrWrongKindLeavesTheOutput) {
  CACFDictionary theDictionary(true);
  theDictionary.AddString(CFSTR("string"), CFSTR("text"));
  SInt32 theNumber = 5;
  EXPECT_FALSE(theDictionary.GetSInt32(CFSTR("string"), theNumber));
  EXPECT_FALSE(theDictionary.GetSInt32(CFSTR("none"), theNumber));
  EXPECT_EQ(5, theNumber);
  bool theBool = true;
  EXPECT_FALSE(theDictionary.GetBool(CFSTR("string"), theBool));
  EXPECT_TRUE(theBool);
  CFArrayRef theArray = nullptr;
  EXPECT_FALSE(theDictionary.GetArray(CFSTR("string"), theArray));
  EXPECT_EQ(nullptr, theArray);
  CFTypeRef theType = nullptr;
  EXPECT_FALSE(theDictionary.GetCFType(CFSTR("none"), theType));
}

TEST(Dictionary, AddUnderAKeyThatIsThereReplaces) {
  CACFDictionary theDictionary(true);
  theDictionary.AddSInt32(CFSTR("key"), 1);
  theDictionary.AddSInt32(CFSTR("key"), 2);
  SInt32 theValue = 0;
  theDictionary.GetSInt32(CFSTR("key"), theValue);
  EXPECT_EQ(2, theValue);
  EXPECT_EQ(1u, theDictionary.Size());
}

TEST(Dictionary, KeysCanBeTakenOut) {
  CACFDictionary theDictionary(true);
  theDictionary.AddSInt32(CFSTR("a"), 1);
  theDictionary.AddSInt32(CFSTR("b"), 2);
  theDictionary.RemoveKey(CFSTR("a"));
  EXPECT_FALSE(theDictionary.HasKey(CFSTR("a")));
  EXPECT_TRUE(theDictionary.HasKey(CFSTR("b")));
  const void* theKey = nullptr;
  theDictionary.GetKeys(&theKey);
  EXPECT_TRUE(CFEqual(CFSTR("b"), theKey));
  theDictionary.Clear();
  EXPECT_EQ(0u, theDictionary.Size());
}

TEST(Dictionary, ImmutableOrMissingOneRefusesValues) {
  CFDictionaryRef theEmpty =
      CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                         &kCFTypeDictionaryValueCallBacks);
  CACFDictionary theDictionary(theEmpty, true);
  EXPECT_FALSE(theDictionary.AddSInt32(CFSTR("a"), 1));
  theDictionary.RemoveKey(CFSTR("a"));
  theDictionary.Clear();
  EXPECT_EQ(0u, theDictionary.Size());
  CACFDictionary theMissing(static_cast<CFDictionaryRef>(nullptr), true);
  EXPECT_FALSE(theMissing.IsValid());
  EXPECT_FALSE(theMissing.HasKey(CFSTR("a")));
  EXPECT_FALSE(theMissing.AddString(CFSTR("a"), CFSTR("b")));
  EXPECT_EQ(0u, theMissing.Size());
}

TEST(Dictionary, WrapsAMutableOne) {
  CFMutableDictionaryRef theRef = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  {
    CACFDictionary theDictionary(theRef, false);
    EXPECT_TRUE(theDictionary.AddSInt32(CFSTR("a"), 1));
    EXPECT_EQ(theRef, theDictionary.GetCFMutableDictionary());
  }
  EXPECT_EQ(1, CFDictionaryGetCount(theRef));
  CFRelease(theRef);
}

TEST(ScopedReference, TakesOverOrAddsAReference) {
  CFMutableStringRef theString = MakeString();
  {
    cfarptr<CFMutableStringRef> theAdded(theString, true);
    EXPECT_EQ(2, CFGetRetainCount(theString));
    EXPECT_EQ(theString, theAdded.ptr());
    CFMutableStringRef theConverted = theAdded;
    EXPECT_EQ(theString, theConverted);
  }
  EXPECT_EQ(1, CFGetRetainCount(theString));
  CFRetain(theString);
  { cfarptr<CFMutableStringRef> theTaken(theString, false); }
  EXPECT_EQ(1, CFGetRetainCount(theString));
  CFRelease(theString);
  cfarptr<CFMutableStringRef> theNull(nullptr, true);
  EXPECT_EQ(nullptr, theNull.ptr());
}

int sAdded = 0;
int sReleased = 0;
struct CountingTraits {
  static void addref(const int*) { ++sAdded; }
  static void release(const int*) { ++sReleased; }
};

TEST(ScopedReference, GoesThroughItsTraits) {
  int theObject = 0;
  { cfarptr<const int*, CountingTraits> theScope(&theObject, true); }
  EXPECT_EQ(1, sAdded);
  EXPECT_EQ(1, sReleased);
  { cfarptr<const int*, CountingTraits> theScope(&theObject, false); }
  EXPECT_EQ(1, sAdded);
  EXPECT_EQ(2, sReleased);
}

}  // namespace
