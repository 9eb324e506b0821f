// Files that others wrote, that are damaged, and that cannot be written.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Storage.h"
#include "corefoundation/Object.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

namespace fs = std::filesystem;

void Write(const fs::path& inFile, const std::string& inBytes) {
  std::ofstream(inFile, std::ios::binary | std::ios::trunc) << inBytes;
}

class Files : public StorageTest, public testing::WithParamInterface<CFPropertyListFormat> {
 protected:
  bool IsXML() const { return GetParam() == kCFPropertyListXMLFormat_v1_0; }
};

INSTANTIATE_TEST_SUITE_P(
    , Files, testing::Values(kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0),
    [](const auto& inInfo) {
      return std::string(inInfo.param == kCFPropertyListXMLFormat_v1_0 ? "XML" : "Binary");
    });

// One value of each kind, by each operation.
void SetAll(CASettingsStorage& ioStorage) {
  ioStorage.SetSInt32Value(CFSTR("SInt32"), std::numeric_limits<SInt32>::min());
  // There is no unsigned kind: what is above the signed range is stored by its bits.
  ioStorage.SetUInt32Value(CFSTR("UInt32"), std::numeric_limits<UInt32>::max());
  ioStorage.SetSInt64Value(CFSTR("SInt64"), std::numeric_limits<SInt64>::min());
  ioStorage.SetUInt64Value(CFSTR("UInt64"), UInt64{1} << 62);
  ioStorage.SetFloat32Value(CFSTR("Float32"), 0.25F);
  ioStorage.SetFloat64Value(CFSTR("Float64"), -1.0 / 3);
  const cf::Owned<CFNumberRef> zero(
      CFNumberCreate(nullptr, kCFNumberSInt32Type, std::vector<SInt32>{0}.data()));
  ioStorage.SetNumberValue(CFSTR("Number"), zero.Get());
  ioStorage.SetStringValue(CFSTR("String"), CFSTR("<a> & \"b\" 'c' \xC3\xA4 \xF0\x9F\x8E\xB5\n"));
  ioStorage.SetStringValue(CFSTR("Empty & <key>"), CFSTR(""));
  const UInt8 bytes[] = {0, 1, 0xFE, 0xFF};
  const cf::Owned<CFDataRef> data(CFDataCreate(nullptr, bytes, sizeof bytes));
  ioStorage.SetDataValue(CFSTR("Data"), data.Get());
  const void* values[] = {CFSTR("one"), kCFBooleanTrue, data.Get(), kCFBooleanFalse};
  const cf::Owned<CFArrayRef> array(CFArrayCreate(nullptr, values, 4, &kCFTypeArrayCallBacks));
  ioStorage.SetArrayValue(CFSTR("Array"), array.Get());
  const void* keys[] = {CFSTR("inner")};
  const void* inner[] = {array.Get()};
  const cf::Owned<CFDictionaryRef> dictionary(CFDictionaryCreate(
      nullptr, keys, inner, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  ioStorage.SetDictionaryValue(CFSTR("Dictionary"), dictionary.Get());
  ioStorage.SetCFTypeValue(CFSTR("Boolean"), kCFBooleanTrue);
}

TEST_P(Files, PythonReadsEachFileThatIsWritten) {
  CASettingsStorage storage = Make(GetParam());
  SetAll(storage);
  EXPECT_EQ(ReadFile(mFile).compare(0, 8, "bplist00") == 0, !IsXML());
  const std::string expected = Python(R"(
data = bytes([0, 1, 254, 255])
array = ['one', True, data, False]
print(describe({
    'SInt32': -2**31, 'UInt32': -1, 'SInt64': -2**63, 'UInt64': 2**62,
    'Float32': 0.25, 'Float64': -1.0 / 3, 'Number': 0,
    'String': '<a> & "b" \'c\' \u00e4 \U0001f3b5\n', 'Empty & <key>': '',
    'Data': data, 'Array': array, 'Dictionary': {'inner': array}, 'Boolean': True}))
)",
                                      "");
  EXPECT_EQ(Python("print(describe(plistlib.load(open(sys.argv[1], 'rb'))))", mFile), expected);
  EXPECT_EQ(DescribeFile(mFile) + "\n", expected);
}

TEST_P(Files, EachFileThatPythonWroteIsReadAndCanBeChanged) {
  const fs::path folder = mFolder / "python-files";
  fs::create_directory(folder);
  // Seeded, so that a failure comes again.
  const std::string described = Python(
      R"(
import os, random
r = random.Random(20)
letters = 'abcXYZ09 <>&"\'\n\t/=+.-_' + ''.join(map(chr, [0xe4, 0xdf, 0x3b1, 0x4e2d, 0xfffd, 0x1f3b5]))
def text(): return ''.join(r.choice(letters) for _ in range(r.choice([0, 1, 3, 14, 15, 16, 300])))
def value(depth):
    kind = r.randrange(6 if depth == 0 else 8)
    if kind == 0: return bool(r.randrange(2))
    if kind == 1: return r.choice([0, 1, -1, 127, 128, -128, 255, 256, 65535, 65536, 2**31, -2**31,
                                   2**32 - 1, 2**32, 2**63 - 1, -2**63, r.getrandbits(40)])
    if kind == 2: return r.choice([0.0, 1.5, -1.0 / 3, 1e300, 5e-324, r.random()])
    if kind in (3, 4): return text()
    if kind == 5: return bytes(r.getrandbits(8) for _ in range(r.choice([0, 1, 2, 14, 15, 500])))
    if kind == 6: return [value(depth - 1) for _ in range(r.choice([0, 1, 5, 20]))]
    return {text(): value(depth - 1) for _ in range(r.choice([0, 1, 5, 20]))}
)" + std::string("format = plistlib.") +
          (IsXML() ? "FMT_XML" : "FMT_BINARY") + R"(
for i in range(200):
    top = {text(): value(3) for _ in range(r.choice([0, 1, 4, 30]))}
    with open(os.path.join(sys.argv[1], '%03d' % i), 'wb') as file:
        plistlib.dump(top, file, fmt=format, sort_keys=bool(r.randrange(2)))
    print(describe(top))
)",
      folder);
  std::istringstream lines(described);
  std::string line;
  int count = 0;
  for (const fs::path& file : std::set<fs::path>(fs::directory_iterator(folder), {})) {
    ASSERT_TRUE(std::getline(lines, line));
    // As the storage has it, not only as it lies there.
    CASettingsStorage storage(file.c_str(), 0, GetParam(), false, false);
    std::vector<CFStringRef> keys(storage.GetNumberKeys() + 1);
    UInt32 number = 0;
    storage.GetKeys(static_cast<UInt32>(keys.size() - 1), number, keys.data());
    std::map<std::string, std::string> pairs;
    for (UInt32 i = 0; i < number; ++i) {
      CFTypeRef value = nullptr;
      storage.CopyCFTypeValue(keys[i], value, nullptr);
      pairs[Describe(keys[i]).substr(1)] = Describe(value);
      CFRelease(value);
    }
    std::string text;
    for (const auto& [key, value] : pairs) {
      text += (text.empty() ? "" : ",") + key + "=" + value;
    }
    EXPECT_EQ("{" + text + "}", line) << file;
    // Written back with one more value, it says the same to both.
    storage.SetCFTypeValue(CFSTR("\x7F added"), kCFBooleanTrue);
    ++count;
  }
  EXPECT_EQ(count, 200);
  const std::string again = Witness(folder);
  lines = std::istringstream(described);
  std::istringstream linesAgain(again);
  std::string lineAgain;
  while (std::getline(lines, line)) {
    ASSERT_TRUE(std::getline(linesAgain, lineAgain));
    const std::string added = "7f206164646564=b1";
    const size_t at = lineAgain.find(added);
    ASSERT_NE(at, std::string::npos);
    const bool isFirst = lineAgain[at - 1] == '{';
    const bool isLast = lineAgain[at + added.size()] == '}';
    lineAgain.erase(at - (isFirst ? 0 : 1),
                    added.size() + (isFirst && !isLast ? 1 : 0) + (isFirst ? 0 : 1));
    EXPECT_EQ(lineAgain, line);
  }
}

TEST_P(Files, AHalfFileIsReplacedWhereverItEnds) {
  {
    CASettingsStorage storage = Make(GetParam());
    SetAll(storage);
  }
  const std::string whole = ReadFile(mFile);
  const std::string described = DescribeFile(mFile);
  int kept = 0;
  for (size_t size = 0; size < whole.size(); ++size) {
    Write(mFile, whole.substr(0, size));
    CASettingsStorage storage = Make(GetParam());
    const UInt32 keys = storage.GetNumberKeys();
    const std::string now = DescribeFile(mFile);
    ASSERT_NE(now, "(unreadable)") << size;
    // All that it was, where only the end of the last tag is missing, or nothing.
    ASSERT_TRUE(keys == 0 ? now == "{}" : now == described) << size << ": " << now;
    kept += keys != 0 ? 1 : 0;
    Set(storage, "new", 1);
    ASSERT_EQ(Get(storage, "new"), 1);
  }
  EXPECT_LE(kept, 9);
}

TEST_P(Files, AFileWithOneBitWrongIsReadOrReplaced) {
  {
    CASettingsStorage storage = Make(GetParam());
    SetAll(storage);
  }
  const std::string whole = ReadFile(mFile);
  int replaced = 0;
  for (size_t bit = 0; bit < whole.size() * 8; bit += 3) {
    std::string bytes = whole;
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
    Write(mFile, bytes);
    CASettingsStorage storage = Make(GetParam());
    const UInt32 keys = storage.GetNumberKeys();
    // What stays is what is readable; the rest gives way to an empty list.
    ASSERT_NE(DescribeFile(mFile), "(unreadable)") << bit;
    if (ReadFile(mFile) != bytes) {
      ASSERT_EQ(keys, 0u) << bit;
      ++replaced;
    }
  }
  std::printf("%d of %zu flips cost the file\n", replaced, (whole.size() * 8 + 2) / 3);
  EXPECT_GT(replaced, 0);
}

using Damage = StorageTest;

TEST_F(Damage, WhatIsNoListOrTooDeepIsReplaced) {
  std::string deep = "<plist version=\"1.0\">";
  for (int i = 0; i < 50000; ++i) deep += "<dict><key>k</key>";
  for (const std::string& bytes :
       {std::string("\0", 1), std::string(100000, '\0'), std::string("bplist00"), std::string("{"),
        std::string("<plist/>"), std::string("bplist00") + std::string(32, '\xFF'),
        std::string("<plist version=\"1.0\"><array/></plist>"),
        std::string("<plist version=\"1.0\"><string>dict</string></plist>"), deep}) {
    Write(mFile, bytes);
    CASettingsStorage storage = Make();
    EXPECT_EQ(storage.GetNumberKeys(), 0u) << bytes.substr(0, 50);
    EXPECT_EQ(DescribeFile(mFile), "{}") << bytes.substr(0, 50);
  }
}

// A small file system of its own, empty.
class Disk : public StorageTest {
 protected:
  Disk() {
    fs::create_directories(kPlace);
    EXPECT_EQ(mount("tmpfs", kPlace, "tmpfs", 0, "size=64k,mode=0777"), 0);
    mFile = fs::path(kPlace) / "settings.plist";
  }
  ~Disk() override { EXPECT_EQ(umount(kPlace), 0); }

  // Until not one byte more goes in; answers what must be removed to make room.
  static fs::path Fill() {
    fs::path filler = fs::path(kPlace) / "filler";
    std::ofstream file(filler, std::ios::binary);
    while (file << 'x' << std::flush) {
    }
    return filler;
  }
  static void SetText(CASettingsStorage& ioStorage, const char* inKey, size_t inSize) {
    const CACFString text(std::string(inSize, 't').c_str());
    ioStorage.SetStringValue(CACFString(inKey).GetCFString(), text.GetCFString());
  }
  static bool SetReadOnly(bool inIs) {
    return mount(nullptr, kPlace, nullptr, MS_REMOUNT | (inIs ? MS_RDONLY : 0), "size=64k") == 0;
  }

  static constexpr char kPlace[] = "/tmp/disk";
};

TEST_F(Disk, AFullOneLeavesNoHalfFileAndTheChangeInMemory) {
  CASettingsStorage storage = Make();
  Set(storage, "small", 1);
  const fs::path filler = Fill();
  SetText(storage, "large", 30000);
  EXPECT_EQ(fs::file_size(mFile), 0u) << "not a part of it";
  EXPECT_EQ(Get(storage, "small"), 1);
  EXPECT_EQ(storage.GetNumberKeys(), 2u);
  // A process that starts now reads nothing and leaves nothing unreadable.
  {
    CASettingsStorage fresh = Make();
    EXPECT_EQ(Get(fresh, "small"), -1);
  }
  EXPECT_TRUE(fs::file_size(mFile) == 0 || DescribeFile(mFile) == "{}");
  fs::resize_file(mFile, 0);
  // With room again, the next access writes what is in hand.
  fs::remove(filler);
  EXPECT_EQ(Get(storage, "small"), 1);
  CASettingsStorage fresh = Make();
  EXPECT_EQ(fresh.GetNumberKeys(), 2u);
  EXPECT_EQ(Get(fresh, "small"), 1);
  EXPECT_EQ(Python("print(describe(plistlib.load(open(sys.argv[1], 'rb'))))", mFile),
            DescribeFile(mFile) + "\n");
}

TEST_F(Disk, WhatIsLargerThanTheDiskStaysInMemoryUntilItIsRemoved) {
  CASettingsStorage storage = Make();
  Set(storage, "small", 1);
  SetText(storage, "large", 100000);
  EXPECT_EQ(fs::file_size(mFile), 0u);
  EXPECT_EQ(storage.GetNumberKeys(), 2u);
  storage.RemoveValue(CFSTR("large"));
  EXPECT_EQ(DescribeFile(mFile), "{736d616c6c=i1}");
}

TEST_F(Disk, AFullOneOnWhichNoFileIsYetIsNoHindrance) {
  const fs::path filler = Fill();
  CASettingsStorage storage = Make();
  Set(storage, "small", 1);
  EXPECT_EQ(Get(storage, "small"), 1);
  EXPECT_TRUE(!fs::exists(mFile) || fs::file_size(mFile) == 0);
  fs::remove(filler);
  EXPECT_EQ(Get(storage, "small"), 1);
  EXPECT_EQ(DescribeFile(mFile), "{736d616c6c=i1}");
}

TEST_F(Disk, AReadOnlyOneIsReadAndTheChangeStaysInMemory) {
  CASettingsStorage storage = Make();
  Set(storage, "old", 1);
  const std::string before = ReadFile(mFile);
  ASSERT_TRUE(SetReadOnly(true));
  Set(storage, "new", 2);
  EXPECT_EQ(Get(storage, "new"), 2);
  EXPECT_EQ(Get(storage, "old"), 1);
  {
    CASettingsStorage fresh = Make();
    EXPECT_EQ(Get(fresh, "old"), 1);
    EXPECT_EQ(Get(fresh, "new"), -1);
    Set(fresh, "other", 3);
    EXPECT_EQ(Get(fresh, "other"), 3);
  }
  EXPECT_EQ(ReadFile(mFile), before);
  ASSERT_TRUE(SetReadOnly(false));
  Set(storage, "newer", 4);
  CASettingsStorage fresh = Make();
  EXPECT_EQ(fresh.GetNumberKeys(), 3u) << "the cache was ahead of the file";
}

TEST_F(Disk, AReadOnlyOneWithoutAFileIsNoHindrance) {
  ASSERT_TRUE(SetReadOnly(true));
  CASettingsStorage storage = Make();
  Set(storage, "small", 1);
  EXPECT_EQ(Get(storage, "small"), 1);
  EXPECT_FALSE(fs::exists(mFile));
}

TEST_F(Disk, ACorruptFileOnAReadOnlyOneIsReadAsEmpty) {
  std::ofstream(mFile) << "nothing good";
  ASSERT_TRUE(SetReadOnly(true));
  CASettingsStorage storage = Make();
  EXPECT_EQ(storage.GetNumberKeys(), 0u);
  Set(storage, "small", 1);
  EXPECT_EQ(ReadFile(mFile), "nothing good");
}

}  // namespace
}  // namespace tembra::test
