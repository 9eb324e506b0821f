#include "formats/HP_Stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "unit/format_list/FormatDevice.h"

using namespace tembra;

namespace {

std::string CodeText(UInt32 inCode) {
  return {static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
          static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
}

// What a name says, and how often it is owned.
std::string TakeText(CFStringRef inString) {
  if (inString == nullptr) return "null";
  char theText[128] = "";
  EXPECT_TRUE(CFStringGetCString(inString, theText, sizeof(theText), kCFStringEncodingUTF8));
  CFRelease(inString);
  return theText;
}

CFStringRef CopyText(const std::string& inText) {
  return CFStringCreateWithCString(nullptr, inText.c_str(), kCFStringEncodingUTF8);
}

// A device that names each element after the address it was asked with.
class NamingDevice : public FormatDevice {
 public:
  CFStringRef CopyDeviceManufacturerName() const override {
    return mHasNames ? CopyText("Maker") : nullptr;
  }
  CFStringRef CopyElementFullName(const AudioObjectPropertyAddress& inAddress) const override {
    return Name("full", inAddress);
  }
  CFStringRef CopyElementCategoryName(const AudioObjectPropertyAddress& inAddress) const override {
    return Name("category", inAddress);
  }
  CFStringRef CopyElementNumberName(const AudioObjectPropertyAddress& inAddress) const override {
    return Name("number", inAddress);
  }

  bool mHasNames = true;

 private:
  CFStringRef Name(const std::string& inKind, const AudioObjectPropertyAddress& inAddress) const {
    if (!mHasNames) return nullptr;
    return CopyText(inKind + " " + CodeText(inAddress.mSelector) + " " +
                    CodeText(inAddress.mScope) + " " + std::to_string(inAddress.mElement));
  }
};

class NamedStream : public HP_Stream {
 public:
  using HP_Stream::HP_Stream;
  CFStringRef CopyStreamName() const override {
    return CFStringCreateWithCString(nullptr, mName.c_str(), kCFStringEncodingUTF8);
  }
  UInt32 GetTerminalType() const override { return 'spdf'; }
  UInt32 GetLatency() const override { return 77; }
  std::string mName = "Stream Name";
};

// Says whether the state mutex was held while the stream was asked.
class LockedStream : public HP_Stream {
 public:
  using HP_Stream::HP_Stream;
  UInt32 GetLatency() const override {
    mWasLocked = GetOwningDevice()->GetDeviceStateMutex()->IsOwnedByCurrentThread();
    return 0;
  }
  CFStringRef CopyStreamName() const override {
    mWasLocked = GetOwningDevice()->GetDeviceStateMutex()->IsOwnedByCurrentThread();
    return nullptr;
  }
  bool TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription&) override {
    mWasLocked = GetOwningDevice()->GetDeviceStateMutex()->IsOwnedByCurrentThread();
    throw CAException('test');
  }
  using HP_Stream::AddProperty;
  using HP_Stream::RemoveProperty;
  mutable bool mWasLocked = false;
};

// A property whose every operation begins with the question whether it is active.
class LockedProperty : public HP_Property {
 public:
  explicit LockedProperty(const LockedStream& inStream) : mStream(inStream) {}
  bool IsActive(const AudioObjectPropertyAddress&) const override {
    mStream.mWasLocked = mStream.GetOwningDevice()->GetDeviceStateMutex()->IsOwnedByCurrentThread();
    return true;
  }
  UInt32 GetNumberAddressesImplemented() const override { return 1; }
  void GetImplementedAddressByIndex(UInt32, AudioObjectPropertyAddress& outAddress) const override {
    outAddress.mSelector = 'lock';
  }

 private:
  const LockedStream& mStream;
};

constexpr UInt32 kNameSelectors[] = {'lnam', 'lmak', 'lchn', 'lccn', 'lcnn'};
constexpr UInt32 kNumberSelectors[] = {'ltnc', 'schn', 'sdir', 'term'};

class Stream : public testing::Test {
 protected:
  NamingDevice mDevice;
};

OSStatus StatusOfRead(const HP_Stream& inStream, const CAPropertyAddress& inAddress,
                      UInt32 inSize) {
  unsigned char theBuffer[64] = {};
  return StatusOf([&] { inStream.GetPropertyData(inAddress, 0, nullptr, inSize, theBuffer); });
}

std::string ReadName(const HP_Stream& inStream, const CAPropertyAddress& inAddress) {
  return TakeText(ReadValue<CFStringRef>(inStream, inAddress));
}

}  // namespace

TEST_F(Stream, IsAnObjectOfItsClass) {
  const HP_Stream theStream(0, nullptr, &mDevice, false, 1);
  EXPECT_EQ(theStream.GetClassID(), 'astr');
  EXPECT_EQ(theStream.GetObjectID(), 0u);
  EXPECT_EQ(theStream.GetOwningDevice(), &mDevice);
}

TEST_F(Stream, IsFoundByItsID) {
  const HP_Stream theStream(4711, nullptr, &mDevice, false, 1);
  EXPECT_EQ(HP_Object::GetStreamByID(4711), &theStream);
}

TEST_F(Stream, Direction) {
  const HP_Stream theInput(0, nullptr, &mDevice, true, 1);
  EXPECT_TRUE(theInput.IsInput());
  EXPECT_EQ(theInput.GetDevicePropertyScope(), 'inpt');
  const HP_Stream theOutput(0, nullptr, &mDevice, false, 1);
  EXPECT_FALSE(theOutput.IsInput());
  EXPECT_EQ(theOutput.GetDevicePropertyScope(), 'outp');
}

TEST_F(Stream, FormatListLivesFromInitializeToTeardown) {
  HP_Stream theStream(0, nullptr, &mDevice, false, 1);
  EXPECT_EQ(theStream.GetFormatList(), nullptr);
  EXPECT_FALSE(theStream.HasProperty(CAPropertyAddress('pft ')));
  theStream.Initialize();
  EXPECT_NE(theStream.GetFormatList(), nullptr);
  EXPECT_TRUE(theStream.HasProperty(CAPropertyAddress('pft ')));
  theStream.Teardown();
  EXPECT_EQ(theStream.GetFormatList(), nullptr);
  EXPECT_FALSE(theStream.HasProperty(CAPropertyAddress('pft ')));
  theStream.Teardown();
}

TEST_F(Stream, DestroyedWithoutTeardownLeaksNothing) {
  HP_Stream theStream(0, nullptr, &mDevice, false, 1);
  theStream.Initialize();
  EXPECT_NE(theStream.GetFormatList(), nullptr);
}

TEST_F(Stream, SharesTheDevicesMutex) {
  HP_Stream theStream(0, nullptr, &mDevice, false, 1);
  ASSERT_NE(mDevice.GetObjectStateMutex(), nullptr);
  EXPECT_EQ(theStream.GetObjectStateMutex(), mDevice.GetObjectStateMutex());
}

TEST_F(Stream, AddressesBetweenStreamAndDevice) {
  const HP_Stream theStream(0, nullptr, &mDevice, false, 3);
  CAPropertyAddress theAddress('abcd', 'glob', 2);
  theStream.ChangeStreamPropertyAddressIntoDevicePropertyAddress(theAddress);
  EXPECT_EQ(theAddress.mSelector, 'abcd');
  EXPECT_EQ(theAddress.mScope, 'outp');
  EXPECT_EQ(theAddress.mElement, 4u);
  theStream.ChangeDevicePropertyAddressIntoStreamPropertyAddress(theAddress);
  EXPECT_EQ(theAddress.mSelector, 'abcd');
  EXPECT_EQ(theAddress.mScope, 'glob');
  EXPECT_EQ(theAddress.mElement, 2u);
}

TEST_F(Stream, ElementZeroIsTheWholeOfBoth) {
  const HP_Stream theStream(0, nullptr, &mDevice, true, 3);
  CAPropertyAddress theAddress('abcd', 'glob', 0);
  theStream.ChangeStreamPropertyAddressIntoDevicePropertyAddress(theAddress);
  EXPECT_EQ(theAddress.mScope, 'inpt');
  EXPECT_EQ(theAddress.mElement, 0u);
  theStream.ChangeDevicePropertyAddressIntoStreamPropertyAddress(theAddress);
  EXPECT_EQ(theAddress.mScope, 'glob');
  EXPECT_EQ(theAddress.mElement, 0u);
}

TEST_F(Stream, ChannelOffsetCountsForTheNumberButNotForAddresses) {
  const HP_Stream theStream(0, nullptr, &mDevice, false, 3, 2);
  EXPECT_EQ(theStream.GetStartingDeviceChannelNumber(), 5u);
  EXPECT_EQ(ReadValue<UInt32>(theStream, CAPropertyAddress('schn')), 5u);
  CAPropertyAddress theAddress('abcd', 'glob', 2);
  theStream.ChangeStreamPropertyAddressIntoDevicePropertyAddress(theAddress);
  EXPECT_EQ(theAddress.mElement, 4u);
  theStream.ChangeDevicePropertyAddressIntoStreamPropertyAddress(theAddress);
  EXPECT_EQ(theAddress.mElement, 2u);
}

TEST_F(Stream, BaseAnswers) {
  HP_Stream theStream(0, nullptr, &mDevice, false, 1);
  EXPECT_EQ(theStream.CopyStreamName(), nullptr);
  EXPECT_EQ(TakeText(theStream.CopyStreamManufacturerName()), "Maker");
  EXPECT_EQ(theStream.GetTerminalType(), 0u);
  EXPECT_EQ(theStream.GetLatency(), 0u);
  EXPECT_TRUE(theStream.TellHardwareToSetPhysicalFormat(Int16Format(1)));
  theStream.RegisterIOBuffer(1, 2, nullptr);
  theStream.UnregisterIOBuffer(1, 2, nullptr);
}

TEST_F(Stream, ElementNamesAreTheDevices) {
  const HP_Stream theStream(0, nullptr, &mDevice, true, 3);
  const CAPropertyAddress theAddress('abcd', 'glob', 2);
  EXPECT_EQ(TakeText(theStream.CopyElementFullName(theAddress)), "full abcd inpt 4");
  EXPECT_EQ(TakeText(theStream.CopyElementCategoryName(theAddress)), "category abcd inpt 4");
  EXPECT_EQ(TakeText(theStream.CopyElementNumberName(theAddress)), "number abcd inpt 4");
}

TEST_F(Stream, HasNamesThatAreThere) {
  const NamedStream theStream(0, nullptr, &mDevice, false, 1);
  for (const UInt32 theSelector : kNameSelectors) {
    EXPECT_TRUE(theStream.HasProperty(CAPropertyAddress(theSelector)));
  }
  mDevice.mHasNames = false;
  EXPECT_TRUE(theStream.HasProperty(CAPropertyAddress('lnam')));
  for (const UInt32 theSelector : {'lmak', 'lchn', 'lccn', 'lcnn'}) {
    EXPECT_FALSE(theStream.HasProperty(CAPropertyAddress(theSelector)));
  }
}

TEST_F(Stream, WithoutANameHasNoneButReadsNull) {
  const HP_Stream theStream(0, nullptr, &mDevice, false, 1);
  EXPECT_FALSE(theStream.HasProperty(CAPropertyAddress('lnam')));
  const auto theMark = reinterpret_cast<CFStringRef>(&mDevice);
  EXPECT_EQ(ReadValue<CFStringRef>(theStream, CAPropertyAddress('lnam'), theMark), nullptr);
}

TEST_F(Stream, ReadsNames) {
  const NamedStream theStream(0, nullptr, &mDevice, false, 3);
  EXPECT_EQ(ReadName(theStream, CAPropertyAddress('lnam')), "Stream Name");
  EXPECT_EQ(ReadName(theStream, CAPropertyAddress('lmak')), "Maker");
  EXPECT_EQ(ReadName(theStream, CAPropertyAddress('lchn', 'glob', 2)), "full lchn outp 4");
  EXPECT_EQ(ReadName(theStream, CAPropertyAddress('lccn', 'glob', 1)), "category lccn outp 3");
  EXPECT_EQ(ReadName(theStream, CAPropertyAddress('lcnn', 'glob', 0)), "number lcnn outp 0");
}

TEST_F(Stream, ReadsNumbers) {
  const HP_Stream theOutput(0, nullptr, &mDevice, false, 3);
  EXPECT_EQ(ReadValue<UInt32>(theOutput, CAPropertyAddress('ltnc'), 9u), 0u);
  EXPECT_EQ(ReadValue<UInt32>(theOutput, CAPropertyAddress('schn'), 9u), 3u);
  EXPECT_EQ(ReadValue<UInt32>(theOutput, CAPropertyAddress('sdir'), 9u), 0u);
  EXPECT_EQ(ReadValue<UInt32>(theOutput, CAPropertyAddress('term'), 9u), 0u);
  const NamedStream theInput(0, nullptr, &mDevice, true, 1);
  EXPECT_EQ(ReadValue<UInt32>(theInput, CAPropertyAddress('ltnc'), 9u), 77u);
  EXPECT_EQ(ReadValue<UInt32>(theInput, CAPropertyAddress('schn'), 9u), 1u);
  EXPECT_EQ(ReadValue<UInt32>(theInput, CAPropertyAddress('sdir'), 9u), 1u);
  EXPECT_EQ(ReadValue<UInt32>(theInput, CAPropertyAddress('term'), 9u), 'spdf');
}

TEST_F(Stream, HasSizeAndSettableAgree) {
  NamedStream theStream(0, nullptr, &mDevice, false, 1);
  for (const UInt32 theScope : {'glob', 'outp', 'abcd'}) {
    for (const UInt32 theElement : {0u, 1u, 9u}) {
      for (const UInt32 theSelector : kNameSelectors) {
        const CAPropertyAddress theAddress(theSelector, theScope, theElement);
        EXPECT_TRUE(theStream.HasProperty(theAddress));
        EXPECT_FALSE(theStream.IsPropertySettable(theAddress));
        EXPECT_EQ(theStream.GetPropertyDataSize(theAddress, 0, nullptr), 8u);
      }
      for (const UInt32 theSelector : kNumberSelectors) {
        const CAPropertyAddress theAddress(theSelector, theScope, theElement);
        EXPECT_TRUE(theStream.HasProperty(theAddress));
        EXPECT_FALSE(theStream.IsPropertySettable(theAddress));
        EXPECT_EQ(theStream.GetPropertyDataSize(theAddress, 0, nullptr), 4u);
      }
    }
  }
}

TEST_F(Stream, SizesAreExact) {
  const NamedStream theStream(0, nullptr, &mDevice, false, 1);
  for (const UInt32 theSelector : kNameSelectors) {
    for (const UInt32 theSize : {0u, 4u, 7u, 9u, 16u}) {
      EXPECT_EQ(StatusOfRead(theStream, CAPropertyAddress(theSelector), theSize), '!siz');
    }
  }
  for (const UInt32 theSelector : kNumberSelectors) {
    for (const UInt32 theSize : {0u, 2u, 3u, 5u, 8u}) {
      EXPECT_EQ(StatusOfRead(theStream, CAPropertyAddress(theSelector), theSize), '!siz');
    }
    EXPECT_EQ(StatusOfRead(theStream, CAPropertyAddress(theSelector), 4), 0);
  }
}

TEST_F(Stream, SizeIsAskedOfTheObjectItself) {
  class WideStream : public NamedStream {
   public:
    using NamedStream::NamedStream;
    UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress, UInt32 inSize,
                               const void* inData) const override {
      return inAddress.mSelector == 'term'
                 ? 12
                 : NamedStream::GetPropertyDataSize(inAddress, inSize, inData);
    }
  };
  const WideStream theStream(0, nullptr, &mDevice, false, 1);
  EXPECT_EQ(StatusOfRead(theStream, CAPropertyAddress('term'), 4), '!siz');
  EXPECT_EQ(StatusOfRead(theStream, CAPropertyAddress('term'), 12), 0);
}

TEST_F(Stream, OwnPropertiesTakeNoWrite) {
  NamedStream theStream(0, nullptr, &mDevice, false, 1);
  for (const UInt32 theSelector : {'lnam', 'ltnc', 'schn', 'sdir', 'term', 'lmak'}) {
    EXPECT_EQ(StatusOf([&] { WriteValue<UInt64>(theStream, CAPropertyAddress(theSelector), 1); }),
              'nope');
  }
}

TEST_F(Stream, UnknownSelectors) {
  FormatStream& theStream = mDevice.AddFormatStream(false);
  const CAPropertyAddress theAddress('what');
  EXPECT_FALSE(theStream.HasProperty(theAddress));
  EXPECT_EQ(StatusOf([&] { theStream.IsPropertySettable(theAddress); }), 'who?');
  EXPECT_EQ(StatusOf([&] { theStream.GetPropertyDataSize(theAddress, 0, nullptr); }), 'who?');
  EXPECT_EQ(StatusOfRead(theStream, theAddress, 4), 'who?');
  EXPECT_EQ(StatusOf([&] { WriteValue<UInt32>(theStream, theAddress, 1); }), 'who?');
}

TEST_F(Stream, FormatsGoToTheFormatList) {
  FormatStream& theStream = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000);
  for (const UInt32 theSelector : {'nsrt', 'nsr#', 'sfmt', 'sfma', 'pft ', 'pfta', 'sfm#', 'sfm?',
                                   'sfmm', 'pft#', 'pft?', 'pftm', 'mix?'}) {
    const CAPropertyAddress theAddress(theSelector);
    EXPECT_TRUE(theStream.HasProperty(theAddress));
    EXPECT_EQ(theStream.IsPropertySettable(theAddress),
              theStream.Formats().IsPropertySettable(theAddress));
    EXPECT_EQ(theStream.GetPropertyDataSize(theAddress, 0, nullptr),
              theStream.Formats().GetPropertyDataSize(theAddress, 0, nullptr));
  }
  EXPECT_EQ(ReadValue<Float64>(theStream, CAPropertyAddress('nsrt')), 44100);
  WriteValue<Float64>(theStream, CAPropertyAddress('nsrt'), 48000);
  ExpectSame(theStream.Physical(), Int16Format(48000));
  // What cannot be set is refused before the list is asked.
  EXPECT_EQ(StatusOf([&] { WriteValue<UInt32>(theStream, CAPropertyAddress('mix?'), 0); }), 'nope');
}

TEST_F(Stream, ListenerSelectorsAreTheObjects) {
  FormatStream& theStream = mDevice.AddFormatStream(false);
  EXPECT_TRUE(theStream.HasProperty(CAPropertyAddress('lisa')));
  EXPECT_EQ(theStream.GetPropertyDataSize(CAPropertyAddress('lisr'), 0, nullptr), 12u);
}

TEST_F(Stream, ForwardsToItsFormatList) {
  FormatStream& theStream = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000);
  theStream.Add(Int16Format(0, 2, kNonMixable), 44100, 44100);
  EXPECT_EQ(theStream.GetCurrentNumberChannels(), 2u);
  EXPECT_EQ(theStream.GetCurrentNominalSampleRate(), 44100);
  EXPECT_EQ(theStream.CalculateIOBufferByteSize(512), 4096u);
  EXPECT_EQ(theStream.CalculateIOBufferFrameSize(4096), 512u);
  EXPECT_TRUE(theStream.IsLinearPCM());
  EXPECT_TRUE(theStream.CanSetIsMixable());
  EXPECT_TRUE(theStream.SupportsNominalSampleRate(48000));
  EXPECT_FALSE(theStream.SupportsNominalSampleRate(96000));
  EXPECT_EQ(theStream.GetNumberAvailableNominalSampleRateRanges(), 1u);
  AudioValueRange theRange = {};
  theStream.GetAvailableNominalSampleRateRangeByIndex(0, theRange);
  EXPECT_EQ(theRange.mMaximum, 48000);
  theStream.SetCurrentNominalSampleRate(48000, false);
  EXPECT_EQ(theStream.Physical().mSampleRate, 48000);
  theStream.SetIsMixable(false, false);
  EXPECT_FALSE(theStream.IsMixable());
  EXPECT_TRUE(theStream.mTold.empty());
}

TEST_F(Stream, PropertyOperationsHoldTheStateMutexAndLetItGo) {
  LockedStream theStream(0, nullptr, &mDevice, false, 1);
  theStream.Initialize();
  AudioStreamRangedDescription theFormat = {Int16Format(44100), {44100, 44100}};
  theStream.GetFormatList()->AddPhysicalFormat(theFormat);
  CAMutex& theMutex = *mDevice.GetDeviceStateMutex();

  ReadValue<UInt32>(theStream, CAPropertyAddress('ltnc'));
  EXPECT_TRUE(theStream.mWasLocked);
  EXPECT_TRUE(theMutex.IsFree());

  theStream.mWasLocked = false;
  theStream.HasProperty(CAPropertyAddress('lnam'));
  EXPECT_TRUE(theStream.mWasLocked);
  EXPECT_TRUE(theMutex.IsFree());

  theStream.mWasLocked = false;
  EXPECT_EQ(StatusOf([&] { WriteValue<Float64>(theStream, CAPropertyAddress('nsrt'), 44100); }),
            'test');
  EXPECT_TRUE(theStream.mWasLocked);
  EXPECT_TRUE(theMutex.IsFree());

  EXPECT_EQ(StatusOfRead(theStream, CAPropertyAddress('term'), 2), '!siz');
  EXPECT_EQ(StatusOf([&] { theStream.IsPropertySettable(CAPropertyAddress('what')); }), 'who?');
  EXPECT_EQ(StatusOf([&] { theStream.GetPropertyDataSize(CAPropertyAddress('what'), 0, nullptr); }),
            'who?');
  EXPECT_TRUE(theMutex.IsFree());

  // A caller that holds it goes on holding it.
  CAMutex::Locker theLocker(theMutex);
  ReadValue<UInt32>(theStream, CAPropertyAddress('ltnc'));
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
}

TEST_F(Stream, EachPropertyOperationHoldsTheStateMutex) {
  LockedStream theStream(0, nullptr, &mDevice, false, 1);
  LockedProperty theProperty(theStream);
  theStream.AddProperty(&theProperty);
  const CAPropertyAddress theAddress('lock');
  UInt32 theSize = 0;
  const std::function<void()> theOperations[] = {
      [&] { theStream.HasProperty(theAddress); }, [&] { theStream.IsPropertySettable(theAddress); },
      [&] { theStream.GetPropertyDataSize(theAddress, 0, nullptr); },
      [&] { theStream.GetPropertyData(theAddress, 0, nullptr, theSize, nullptr); },
      [&] { theStream.SetPropertyData(theAddress, 0, nullptr, 0, nullptr, nullptr); }};
  for (const auto& theOperation : theOperations) {
    theStream.mWasLocked = false;
    theOperation();
    EXPECT_TRUE(theStream.mWasLocked);
    EXPECT_TRUE(mDevice.GetDeviceStateMutex()->IsFree());
  }
  theStream.RemoveProperty(&theProperty);
}

TEST_F(Stream, ShowsItself) {
  NamedStream theStream(0x2A, nullptr, &mDevice, true, 1);
  theStream.Initialize();
  theStream.GetFormatList()->SetCurrentPhysicalFormat(Int16Format(44100, 6), false);
  testing::internal::CaptureStdout();
  theStream.Show();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "AudioObjectID:\t0x2A\n\tClass:\t\tAudio Stream\n\tName:\t\tStream Name\n"
            "\tDirection:\tInput\n\tChannels:\t6\n");
}

TEST_F(Stream, ShowsAtMost255BytesOfItsName) {
  NamedStream theStream(0, nullptr, &mDevice, true, 1);
  theStream.Initialize();
  theStream.mName = std::string(300, 'n');
  testing::internal::CaptureStdout();
  theStream.Show();
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::HasSubstr("\tName:\t\t" + std::string(255, 'n') + "\n"));
}

TEST_F(Stream, ShowsNoNameWhereThereIsNoneOrReadingItThrows) {
  class ThrowingStream : public HP_Stream {
   public:
    using HP_Stream::HP_Stream;
    CFStringRef CopyStreamName() const override { throw CAException('nope'); }
  };
  HP_Stream theNameless(0, nullptr, &mDevice, false, 1);
  ThrowingStream theThrowing(0, nullptr, &mDevice, false, 1);
  for (HP_Stream* theStream : {&theNameless, static_cast<HP_Stream*>(&theThrowing)}) {
    theStream->Initialize();
    testing::internal::CaptureStdout();
    theStream->Show();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "AudioObjectID:\t0x0\n\tClass:\t\tAudio Stream\n\tName:\t\t\n"
              "\tDirection:\tOutput\n\tChannels:\t0\n");
  }
}

// The I/O thread computes buffer sizes while a client changes the format; it must see one format
// or the other, never parts of both.
TEST_F(Stream, FormatIsReadWholeWhileItChanges) {
  FormatStream& theStream = mDevice.AddFormatStream(false);
  const CAStreamBasicDescription theFormats[] = {
      CAStreamBasicDescription(1, 'one ', 1, 1, 1, 1, 1, 1),
      CAStreamBasicDescription(2, 'two ', 2, 2, 2, 2, 2, 2)};
  theStream.Formats().SetCurrentPhysicalFormat(theFormats[0], false);

  std::atomic<bool> isDone{false};
  std::atomic<int> theNumberReads{0};
  std::atomic<int> theNumberTorn{0};
  std::thread theReader([&] {
    while (!isDone.load()) {
      const CAStreamBasicDescription theFormat = theStream.Physical();
      if (!theFormat.IsEqual(theFormats[0], false) && !theFormat.IsEqual(theFormats[1], false)) {
        theNumberTorn.fetch_add(1);
      }
      theNumberReads.fetch_add(1);
    }
  });
  for (int theCount = 0; theCount < 20000 || theNumberReads.load() < 1000; ++theCount) {
    theStream.Formats().SetCurrentPhysicalFormat(theFormats[theCount % 2], false);
  }
  isDone.store(true);
  theReader.join();
  EXPECT_EQ(theNumberTorn.load(), 0);
}
