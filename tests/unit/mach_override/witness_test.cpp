#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "library/sys/mac/mach_override/FunctionPrologue.h"
#include "library/sys/mac/mach_override/mach_override.h"
#include "unit/mach_override/CodePages.h"
#include "unit/mach_override/Prologues.h"

// objdump as a witness from outside: it reads the machine code that the patcher measured and wrote.

namespace mach_override_tests {
namespace {

struct Line {
  uintptr_t mAddress;
  std::string mText;  // with single blanks, without comment
};

std::string WithSingleBlanks(const std::string& inText) {
  std::string text, word;
  for (std::istringstream words(inText.substr(0, inText.find('#'))); words >> word;) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

std::vector<Line> LinesOf(const std::string& inCommand) {
  std::vector<Line> lines;
  const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(inCommand.c_str(), "r"), pclose);
  char text[1024];
  while (output && fgets(text, sizeof text, output.get()) != nullptr) {
    // "  address:<tab>bytes<tab>instruction"
    char* end = nullptr;
    const uintptr_t address = strtoull(text, &end, 16);
    const std::string rest = end;
    const size_t tab = rest.find('\t', 2);
    if (rest.substr(0, 2) != ":\t" || tab == std::string::npos) continue;
    lines.push_back({address, WithSingleBlanks(rest.substr(tab))});
  }
  return lines;
}

std::vector<Line> Disassembled(const std::vector<uint8_t>& inBytes, uintptr_t inAddress) {
  const int file = memfd_create("code", 0);
  EXPECT_EQ(write(file, inBytes.data(), inBytes.size()), static_cast<ssize_t>(inBytes.size()));
  std::ostringstream command;
  command << "objdump -D -w -M intel -b binary -m i386:x86-64 --adjust-vma=" << inAddress
          << " /proc/" << getpid() << "/fd/" << file;
  const std::vector<Line> lines = LinesOf(command.str());
  close(file);
  return lines;
}

std::vector<std::string> TextsOf(const std::vector<Line>& inLines) {
  std::vector<std::string> texts;
  for (const Line& line : inLines) texts.push_back(line.mText);
  return texts;
}

std::string Hexadecimal(uintptr_t inValue) {
  char text[32];
  snprintf(text, sizeof text, "0x%lx", inValue);
  return text;
}

class Witness : public testing::Test {
 protected:
  void SetUp() override {
    if (system("command -v objdump >/dev/null") != 0) GTEST_SKIP() << "no objdump here";
  }
};

TEST_F(Witness, AgreesOnEveryMeasure) {
  constexpr size_t kApart = 64;
  std::vector<uint8_t> all;
  for (size_t i = 0; i < kPrologueCount; ++i) {
    const std::vector<uint8_t> bytes = Bytes(kPrologues[i].mBytes);
    all.insert(all.end(), bytes.begin(), bytes.end());
    all.resize((i + 1) * kApart, 0x90);
  }
  const std::vector<Line> lines = Disassembled(all, 0);
  const Code code(all);
  for (size_t i = 0; i < kPrologueCount; ++i) {
    SCOPED_TRACE(kPrologues[i].mName);
    uint64_t patch = 0;
    size_t bytes = 0, count = 0;
    uint8_t sizes[kMaxEatenInstructions];
    EXPECT_TRUE(eatKnownInstructions(reinterpret_cast<const uint8_t*>(code.Address() + i * kApart),
                                     &patch, &bytes, nullptr, &count, sizes));
    uintptr_t at = i * kApart;
    std::string texts;
    for (size_t k = 0; k <= count; ++k) {
      const auto line = std::find_if(lines.begin(), lines.end(),
                                     [&](const Line& each) { return each.mAddress == at; });
      ASSERT_NE(line, lines.end()) << "no instruction begins at " << at;
      if (k == count) break;
      EXPECT_EQ(line[1].mAddress, at + sizes[k]);
      at += sizes[k];
    }
  }
}

TEST_F(Witness, ReadsAPatchedFunctionAndItsIslands) {
  const Code code(Bytes("55 48 89 E5 48 83 EC 10 48 8D 04 37 C9 C3"), 0x40);
  void* reentry = nullptr;
  ASSERT_EQ(
      mach_override_ptr(code.Pointer(), reinterpret_cast<const void*>(&Replacement), &reentry), 0);
  // The function: a jump to the escape island, and its own three bytes.
  const std::vector<Line> patch = Disassembled(code.Now(5), code.Address());
  ASSERT_EQ(patch.size(), 1U);
  ASSERT_EQ(patch[0].mText.substr(0, 6), "jmp 0x");
  const uintptr_t escape = strtoull(patch[0].mText.c_str() + 4, nullptr, 16);
  EXPECT_EQ(BytesAt(reinterpret_cast<void*>(code.Address() + 5), 3), Bytes("83 EC 10"));

  // The escape island: nops, and a jump through the word behind it, which is the replacement.
  std::vector<std::string> expected(32, "nop");
  expected.push_back("jmp QWORD PTR [rip+0x0]");
  EXPECT_EQ(TextsOf(Disassembled(BytesAt(reinterpret_cast<void*>(escape), 38), escape)), expected);
  EXPECT_EQ(*reinterpret_cast<const uint64_t __attribute__((aligned(2)))*>(escape + 38),
            reinterpret_cast<uint64_t>(&Replacement));

  // The reentry island: what was moved, nops, and the jump to what follows.
  expected = {"push rbp", "mov rbp,rsp", "sub rsp,0x10"};
  expected.resize(3 + 24, "nop");
  expected.push_back("jmp QWORD PTR [rip+0x0]");
  EXPECT_EQ(TextsOf(Disassembled(BytesAt(reentry, 38), reinterpret_cast<uintptr_t>(reentry))),
            expected);
  EXPECT_EQ(*reinterpret_cast<const uint64_t __attribute__((aligned(2)))*>(
                reinterpret_cast<uintptr_t>(reentry) + 38),
            code.Address() + 8);
}

TEST_F(Witness, ReadsACorrectedJumpToTheSameTarget) {
  const Code code(Bytes("90 E9 02 00 00 00 0F 0B 48 8D 04 37 C3"));
  void* reentry = nullptr;
  ASSERT_EQ(
      mach_override_ptr(code.Pointer(), reinterpret_cast<const void*>(&Replacement), &reentry), 0);
  const std::vector<Line> lines =
      Disassembled(BytesAt(reentry, 38), reinterpret_cast<uintptr_t>(reentry));
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines[0].mText, "nop");
  EXPECT_EQ(lines[1].mText, "jmp " + Hexadecimal(code.Address() + 8));
  EXPECT_EQ(lines[2].mText, "nop");
}

// The two functions that are patched in earnest.

TEST_F(Witness, TheHostsEntriesBeginWithOneInstructionOfFiveBytes) {
  for (const char* name : {"AudioObjectGetPropertyData", "AudioObjectSetPropertyData"}) {
    SCOPED_TRACE(name);
    const std::vector<Line> lines = LinesOf(std::string("objdump -d -w -M intel --disassemble=") +
                                            name + " " + TEMBRA_BINARY_DIR + "/lib/libtmbhal.so");
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[0].mAddress % 16, 0U);
    EXPECT_EQ(lines[0].mText, "nop DWORD PTR [rax+rax*1+0x0]");
    EXPECT_EQ(lines[1].mAddress - lines[0].mAddress, 5U);
    // What lies in the first 16 bytes means the same wherever it lies.
    for (const Line& line : lines) {
      if (line.mAddress - lines[0].mAddress >= 16) break;
      EXPECT_EQ(line.mText.find("rip"), std::string::npos) << line.mText;
      EXPECT_NE(line.mText.substr(0, 1), "j") << line.mText;
    }
  }
}

}  // namespace
}  // namespace mach_override_tests
