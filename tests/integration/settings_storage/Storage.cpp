#include "Storage.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "corefoundation/Object.h"
#include "support/Program.h"

namespace tembra::test {

namespace fs = std::filesystem;

namespace {

constexpr char kDescribe[] = R"(
import datetime, plistlib, struct, sys
def describe(v):
    if isinstance(v, bool): return 'b%d' % v
    if isinstance(v, int): return 'i%d' % v
    if isinstance(v, float): return 'f' + struct.pack('>d', v).hex()
    if isinstance(v, str): return 's' + v.encode().hex()
    if isinstance(v, bytes): return 'd' + v.hex()
    if isinstance(v, datetime.datetime):
        return 't%d' % (v - datetime.datetime(2001, 1, 1)).total_seconds()
    if isinstance(v, list): return '[' + ','.join(describe(x) for x in v) + ']'
    pairs = sorted((k.encode().hex(), describe(x)) for k, x in v.items())
    return '{' + ','.join(k + '=' + x for k, x in pairs) + '}'
)";

std::string Hex(const void* inBytes, size_t inSize) {
  std::string text;
  char two[3];
  for (size_t i = 0; i < inSize; ++i) {
    std::snprintf(two, sizeof two, "%02x", static_cast<const UInt8*>(inBytes)[i]);
    text += two;
  }
  return text;
}

std::string DescribeString(CFStringRef inString) {
  std::vector<char> text(static_cast<size_t>(CFStringGetMaximumSizeForEncoding(
                             CFStringGetLength(inString), kCFStringEncodingUTF8)) +
                         1);
  CFIndex used = 0;
  CFStringGetBytes(inString, CFRangeMake(0, CFStringGetLength(inString)), kCFStringEncodingUTF8, 0,
                   false, reinterpret_cast<UInt8*>(text.data()), static_cast<CFIndex>(text.size()),
                   &used);
  return Hex(text.data(), static_cast<size_t>(used));
}

std::string DescribeNumber(CFNumberRef inNumber) {
  if (CFNumberIsFloatType(inNumber)) {
    double value = 0;
    CFNumberGetValue(inNumber, kCFNumberDoubleType, &value);
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    char text[20];
    std::snprintf(text, sizeof text, "f%016llx", static_cast<unsigned long long>(bits));
    return text;
  }
  SInt64 value = 0;
  CFNumberGetValue(inNumber, kCFNumberSInt64Type, &value);
  return "i" + std::to_string(value);
}

std::string DescribeArray(CFArrayRef inArray) {
  std::string text;
  for (CFIndex i = 0; i < CFArrayGetCount(inArray); ++i) {
    if (i != 0) text += ',';
    text += Describe(CFArrayGetValueAtIndex(inArray, i));
  }
  return "[" + text + "]";
}

std::string DescribeDictionary(CFDictionaryRef inDictionary) {
  const auto count = static_cast<size_t>(CFDictionaryGetCount(inDictionary));
  std::vector<const void*> keys(count + 1);
  std::vector<const void*> values(count + 1);
  CFDictionaryGetKeysAndValues(inDictionary, keys.data(), values.data());
  std::map<std::string, std::string> pairs;
  for (size_t i = 0; i < count; ++i) {
    pairs[DescribeString(static_cast<CFStringRef>(keys[i]))] = Describe(values[i]);
  }
  std::string text;
  for (const auto& [key, value] : pairs) {
    if (!text.empty()) text += ',';
    text.append(key).append("=").append(value);
  }
  return "{" + text + "}";
}

}  // namespace

std::string Describe(CFTypeRef inValue) {
  const CFTypeID type = CFGetTypeID(inValue);
  if (type == CFBooleanGetTypeID()) {
    return CFBooleanGetValue(static_cast<CFBooleanRef>(inValue)) ? "b1" : "b0";
  }
  if (type == CFNumberGetTypeID()) return DescribeNumber(static_cast<CFNumberRef>(inValue));
  if (type == CFStringGetTypeID()) return "s" + DescribeString(static_cast<CFStringRef>(inValue));
  if (type == CFDataGetTypeID()) {
    const auto data = static_cast<CFDataRef>(inValue);
    return "d" + Hex(CFDataGetBytePtr(data), static_cast<size_t>(CFDataGetLength(data)));
  }
  if (type == CFArrayGetTypeID()) return DescribeArray(static_cast<CFArrayRef>(inValue));
  if (type == CFDictionaryGetTypeID()) {
    return DescribeDictionary(static_cast<CFDictionaryRef>(inValue));
  }
  return "(unknown)";
}

std::string DescribeFile(const fs::path& inFile) {
  const std::string bytes = ReadFile(inFile);
  const cf::Owned<CFDataRef> data(CFDataCreate(
      nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
  const cf::Owned<CFPropertyListRef> list(
      CFPropertyListCreateWithData(nullptr, data.Get(), 0, nullptr, nullptr));
  return list.Get() != nullptr ? Describe(list.Get()) : "(unreadable)";
}

StorageTest::StorageTest() {
  std::string folder = "/tmp/settings-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("cannot make " + folder);
  mFolder = folder;
  mFile = mFolder / "settings.plist";
}

StorageTest::~StorageTest() {
  std::error_code ignored;
  fs::remove_all(mFolder, ignored);
}

pid_t StorageTest::Start(const std::function<void()>& inBody) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    inBody();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  EXPECT_GT(child, 0);
  return child;
}

void StorageTest::ExpectGoodEnd(pid_t inProcess) {
  int status = -1;
  EXPECT_EQ(waitpid(inProcess, &status, 0), inProcess);
  EXPECT_EQ(status, 0) << "see above";
}

std::string StorageTest::Witness(const fs::path& inFolder) const {
  return Python(
      "import os\n"
      "for name in sorted(os.listdir(sys.argv[1])):\n"
      "    print(describe(plistlib.load(open(os.path.join(sys.argv[1], name), 'rb'))))\n",
      inFolder);
}

std::string StorageTest::Python(const std::string& inProgram, const std::string& inArgument) const {
  Program python("/usr/bin/python3", {"-c", kDescribe + inProgram, inArgument}, mFolder / "python");
  EXPECT_EQ(python.Wait(), 0) << python.Errors();
  return python.Output();
}

}  // namespace tembra::test
