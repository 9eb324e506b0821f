// When the file is read and written, and what is in it.

#include "SettingsFixture.h"

namespace tembra::test {
namespace {

using File = SettingsTest;

TEST_F(File, MakingAStorageTouchesNoFile) {
  CASettingsStorage storage = Make();
  EXPECT_FALSE(std::filesystem::exists(mFile));
  Write("untouched");
  { CASettingsStorage other = Make(); }
  EXPECT_EQ(ReadFile(mFile), "untouched");
}

TEST_F(File, ThePathIsCopied) {
  std::string path = mFile;
  CASettingsStorage storage(path.c_str(), 0, kCFPropertyListXMLFormat_v1_0, false, false);
  path.assign(path.size(), 'x');
  Set(storage, "k", 1);
  EXPECT_EQ(Stored("k"), 1);
}

TEST_F(File, TheFirstAccessMakesTheFile) {
  CASettingsStorage storage = Make();
  EXPECT_EQ(storage.GetNumberKeys(), 0u);
  EXPECT_NE(ReadFile(mFile).find("<dict/>"), std::string::npos) << ReadFile(mFile);
}

TEST_F(File, ItsFormatIsTheOneAskedFor) {
  CASettingsStorage xml = Make();
  Set(xml, "k", 1);
  EXPECT_EQ(ReadFile(mFile).rfind("<?xml", 0), 0u);
  std::filesystem::remove(mFile);
  CASettingsStorage binary = Make(kCFPropertyListBinaryFormat_v1_0);
  Set(binary, "k", 2);
  EXPECT_EQ(ReadFile(mFile).rfind("bplist00", 0), 0u);
  // Either reads both.
  xml.ForceRefresh();
  EXPECT_EQ(Number(xml, "k"), 2);
}

TEST_F(File, EachSaveSetsItsMode) {
  const mode_t mask = umask(0077);
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  EXPECT_EQ(Status().st_mode & 07777, kMode);
  chmod(mFile.c_str(), 0600);
  Set(storage, "k", 2);
  EXPECT_EQ(Status().st_mode & 07777, kMode);
  umask(mask);
}

TEST_F(File, AModeOfZeroLeavesItsModeAlone) {
  const mode_t mask = umask(0027);
  CASettingsStorage storage(mFile.c_str(), 0, kCFPropertyListXMLFormat_v1_0, false, false);
  Set(storage, "k", 1);
  EXPECT_EQ(Status().st_mode & 07777, 0640u);
  chmod(mFile.c_str(), 0604);
  Set(storage, "k", 2);
  EXPECT_EQ(Status().st_mode & 07777, 0604u);
  umask(mask);
}

TEST_F(File, EachChangeIsWrittenAtOnce) {
  CASettingsStorage storage = Make();
  Set(storage, "a", 1);
  Set(storage, "b", 2);
  EXPECT_EQ(Stored("a"), 1);
  EXPECT_EQ(Stored("b"), 2);
  storage.RemoveValue(CFSTR("a"));
  EXPECT_EQ(Stored("a"), -1);
  EXPECT_EQ(Stored("b"), 2);
  storage.RemoveAllValues();
  EXPECT_EQ(Stored("b"), -1);
}

TEST_F(File, ARemovalKeepsWhatAnotherProcessWrote) {
  CASettingsStorage storage = Make();
  Set(storage, "mine", 1);
  SetElsewhere("theirs", 2);
  storage.RemoveValue(CFSTR("mine"));
  EXPECT_EQ(Stored("mine"), -1);
  EXPECT_EQ(Stored("theirs"), 2);
}

TEST_F(File, TheKeysAreThoseThatAnotherProcessWroteToo) {
  CASettingsStorage storage = Make();
  Set(storage, "mine", 1);
  SetElsewhere("theirs", 2);
  CFStringRef keys[2] = {};
  UInt32 count = 0;
  storage.GetKeys(2, count, keys);
  ASSERT_NE(keys[1], nullptr);
  EXPECT_TRUE(CFEqual(keys[0], CFSTR("theirs")) || CFEqual(keys[1], CFSTR("theirs")));
}

TEST_F(File, ASaveElsewhereIsSeenWhenTheTimeHasMoved) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  for (const long later : {1L, 1000L}) {
    SetTime({Time().tv_sec, 500000000});
    storage.ForceRefresh();
    EXPECT_EQ(Number(storage, "k"), 1);
    SetElsewhere("k", 2, later);
    EXPECT_EQ(Number(storage, "k"), 2) << later;
    SetElsewhere("k", 1);
  }
}

TEST_F(File, SecondsCountBeforeNanoseconds) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  SetTime({2000, 900});
  storage.ForceRefresh();
  EXPECT_EQ(Number(storage, "k"), 1);
  Write(List("k", 2));
  SetTime({2001, 100});
  EXPECT_EQ(Number(storage, "k"), 2);
  Write(List("k", 3));
  SetTime({2000, 950});
  EXPECT_EQ(Number(storage, "k"), 2);
}

TEST_F(File, ASaveWithinOneTickIsNotSeenUntilARefreshIsForced) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  SetElsewhere("k", 2, 0);
  EXPECT_EQ(Number(storage, "k"), 1);
  storage.ForceRefresh();
  EXPECT_EQ(Number(storage, "k"), 2);
  // Once.
  SetElsewhere("k", 3, 0);
  EXPECT_EQ(Number(storage, "k"), 2);
}

TEST_F(File, AnOlderFileIsNotRead) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  SetElsewhere("k", 2, -1000);
  EXPECT_EQ(Number(storage, "k"), 1);
}

TEST_F(File, ItsOwnWriteIsNotReadBack) {
  CASettingsStorage storage = Make();
  MakeCurrent(storage);
  const int locks = Interposed::Get().mLockCalls;
  EXPECT_EQ(Number(storage, "k"), 1);
  EXPECT_EQ(Interposed::Get().mLockCalls, locks);
}

TEST_F(File, ANewStorageReadsTheFileThatItMadeOnce) {
  CASettingsStorage storage = Make();
  EXPECT_EQ(Number(storage, "k"), -1);
  Write(List("k", 2));
  SetTime({1, 0});
  EXPECT_EQ(Number(storage, "k"), 2);
  Write(List("k", 3));
  SetTime({1, 0});
  EXPECT_EQ(Number(storage, "k"), 2);
}

TEST_F(File, AChangeKeepsWhatAnotherProcessWrote) {
  CASettingsStorage storage = Make();
  Set(storage, "mine", 1);
  SetElsewhere("theirs", 2);
  Set(storage, "mine", 3);
  EXPECT_EQ(Stored("theirs"), 2);
  EXPECT_EQ(Stored("mine"), 3);
}

TEST_F(File, ASingleProcessLooksAgainOnlyWhenForced) {
  CASettingsStorage storage = Make(kCFPropertyListXMLFormat_v1_0, true);
  MakeCurrent(storage);
  SetElsewhere("k", 2);
  EXPECT_EQ(Number(storage, "k"), 1);
  storage.ForceRefresh();
  EXPECT_EQ(Number(storage, "k"), 2);
  std::filesystem::remove(mFile);
  EXPECT_EQ(Number(storage, "k"), 2);
  EXPECT_FALSE(std::filesystem::exists(mFile));
}

TEST_F(File, ASingleProcessReadsTheFileFirst) {
  Write(List("k", 5));
  CASettingsStorage storage = Make(kCFPropertyListXMLFormat_v1_0, true);
  EXPECT_EQ(Number(storage, "k"), 5);
}

TEST_F(File, AReadOnlyStorageWritesNothing) {
  CASettingsStorage storage = Make(kCFPropertyListXMLFormat_v1_0, false, true);
  EXPECT_EQ(storage.GetNumberKeys(), 0u);
  Set(storage, "k", 1);
  EXPECT_FALSE(std::filesystem::exists(mFile));
  Write("junk");
  EXPECT_EQ(storage.GetNumberKeys(), 0u);
  EXPECT_EQ(ReadFile(mFile), "junk");
  Write(List("k", 2));
  EXPECT_EQ(Number(storage, "k"), 2);
  Set(storage, "k", 3);
  // The change stands in memory.
  EXPECT_EQ(Number(storage, "k"), 3);
  EXPECT_EQ(ReadFile(mFile), List("k", 2));
}

TEST_F(File, AnEmptyFileGetsWhatIsInHand) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  Write("");
  SetTime({Time().tv_sec + 1, 0});
  EXPECT_EQ(Number(storage, "k"), 1);
  EXPECT_EQ(Stored("k"), 1);
}

TEST_F(File, AnEmptyFileIsNoListForANewProcess) {
  Write("");
  CASettingsStorage storage = Make();
  EXPECT_EQ(storage.GetNumberKeys(), 0u);
  EXPECT_NE(ReadFile(mFile).find("<dict/>"), std::string::npos);
}

TEST_F(File, ACorruptFileCostsWhatIsInHandAndIsReplaced) {
  for (const char* text : {"junk", "<plist><dict><key>k</key>", "bplist00", "\0"}) {
    CASettingsStorage storage = Make();
    Set(storage, "k", 1);
    Write(*text == 0 ? std::string(1, '\0') : text);
    SetTime({Time().tv_sec + 1, 0});
    EXPECT_EQ(Number(storage, "k"), -1) << text;
    EXPECT_NE(ReadFile(mFile).find("<dict/>"), std::string::npos) << text;
  }
}

TEST_F(File, ARootThatIsNoDictionaryIsCorrupt) {
  for (const char* root : {"<array/>", "<true/>", "<integer>1</integer>", "<string>k</string>"}) {
    CASettingsStorage storage = Make();
    Set(storage, "k", 1);
    Write("<plist version=\"1.0\">" + std::string(root) + "</plist>");
    storage.ForceRefresh();
    EXPECT_EQ(Number(storage, "k"), -1) << root;
    EXPECT_NE(ReadFile(mFile).find("<dict/>"), std::string::npos) << root;
  }
}

TEST_F(File, AMissingFileIsWrittenAnewWithWhatIsInHand) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  std::filesystem::remove(mFile);
  EXPECT_EQ(Number(storage, "k"), 1);
  EXPECT_EQ(Stored("k"), 1);
}

TEST_F(File, WhatWasReadCanBeChanged) {
  Write(
      "<plist version=\"1.0\"><dict><key>d</key><dict><key>i</key><string>s</string></dict>"
      "</dict></plist>");
  CASettingsStorage storage = Make();
  CFDictionaryRef inner = nullptr;
  storage.CopyDictionaryValue(CFSTR("d"), inner, nullptr);
  ASSERT_NE(inner, nullptr);
  CFDictionarySetValue(const_cast<CFMutableDictionaryRef>(inner), CFSTR("more"), CFSTR("x"));
  EXPECT_EQ(CFDictionaryGetCount(inner), 2);
  CFRelease(inner);
}

TEST_F(File, AFileThatCannotBeWrittenLeavesTheChangeInMemory) {
  std::filesystem::create_directory(mFile);
  CASettingsStorage storage = Make();
  EXPECT_EQ(storage.GetNumberKeys(), 0u);
  Set(storage, "k", 1);
  EXPECT_EQ(Number(storage, "k"), 1);
  std::filesystem::remove(mFile);
  EXPECT_EQ(Number(storage, "k"), 1);
  EXPECT_EQ(Stored("k"), 1);
}

TEST_F(File, AMissingFolderIsNotMade) {
  mFile = mFolder / "missing" / "settings.plist";
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  EXPECT_EQ(Number(storage, "k"), 1);
  EXPECT_FALSE(std::filesystem::exists(mFile.parent_path()));
}

TEST_F(File, AFileThatIsTooLargeIsNotReadButReplaced) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  std::filesystem::resize_file(mFile, std::uintmax_t{1} << 40);
  SetTime({Time().tv_sec + 1, 0});
  EXPECT_EQ(Number(storage, "k"), -1);
  EXPECT_LT(Status().st_size, 1000);
  // The largest that is read.
  std::string text = List("k", 7);
  text.append((4u << 20) - text.size(), ' ');
  Write(text);
  storage.ForceRefresh();
  EXPECT_EQ(Number(storage, "k"), 7);
  Write(text + " ");
  storage.ForceRefresh();
  EXPECT_EQ(Number(storage, "k"), -1);
}

TEST_F(File, AValueThatNoListHoldsKeepsTheFileAsItWas) {
  CASettingsStorage storage = Make();
  Set(storage, "k", 1);
  storage.SetCFTypeValue(CFSTR("null"), kCFNull);
  EXPECT_EQ(Stored("k"), 1);
  storage.RemoveValue(CFSTR("null"));
  Set(storage, "k", 2);
  EXPECT_EQ(Stored("k"), 2);
}

}  // namespace
}  // namespace tembra::test
