#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>

#include "library/sys/mac/mach_override/BranchIsland.h"
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

// Functions or islands, each kApart behind the last.
constexpr size_t kApart = 64;

void Append(std::vector<uint8_t>& ioAll, const std::vector<uint8_t>& inBytes) {
  ioAll.insert(ioAll.end(), inBytes.begin(), inBytes.end());
  ioAll.resize((ioAll.size() + kApart - 1) / kApart * kApart, 0x90);
}

bool Leads(const std::string& inText) {
  return inText[0] == 'j' || inText.substr(0, 4) == "call" || inText.substr(0, 4) == "loop";
}

// What it says as the instruction of a function at inBase, without prefixes that one version prints
// so and the next otherwise.
std::string Plain(const std::string& inText, uintptr_t inBase) {
  static const std::set<std::string> kPrefixes = {"data16", "cs",  "ds",  "rex",
                                                  "repz",   "rep", "bnd", "lock"};
  std::istringstream words(inText);
  std::string plain, word;
  while (words >> word && kPrefixes.count(word) != 0) {
  }
  do plain += (plain.empty() ? "" : " ") + word;
  while (words >> word);
  const size_t target = plain.rfind(" 0x");
  if (!Leads(plain) || target == std::string::npos) return plain;
  return plain.substr(0, target + 1) +
         Hexadecimal(strtoull(plain.c_str() + target, nullptr, 16) - inBase);
}

// The instructions from inAddress on up to inEnd, which must begin and end there.
std::vector<std::string> PlainFrom(const std::vector<Line>& inLines, uintptr_t inAddress,
                                   uintptr_t inEnd) {
  std::vector<std::string> texts;
  uintptr_t at = inAddress;
  for (const Line& line : inLines) {
    if (line.mAddress < inAddress) continue;
    EXPECT_TRUE(texts.empty() ? line.mAddress == inAddress : true) << "nothing begins there";
    at = line.mAddress;
    if (at >= inEnd) break;
    texts.push_back(Plain(line.mText, inAddress));
  }
  EXPECT_EQ(at, inEnd);
  return texts;
}

std::vector<std::string> PlainOf(const Prologue& inPrologue) {
  std::vector<std::string> texts;
  std::istringstream instructions(inPrologue.mInstructions);
  for (std::string text; std::getline(instructions, text, ';');) {
    texts.push_back(Plain(WithSingleBlanks(text), 0));
  }
  return texts;
}

TEST_F(Witness, AgreesOnEveryMeasure) {
  std::vector<uint8_t> all;
  for (size_t i = 0; i < kPrologueCount; ++i) Append(all, Bytes(kPrologues[i].mBytes));
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
    for (size_t k = 0; k <= count; ++k) {
      const auto line = std::find_if(lines.begin(), lines.end(),
                                     [&](const Line& each) { return each.mAddress == at; });
      ASSERT_NE(line, lines.end()) << "no instruction begins at " << at;
      if (k == count) break;
      EXPECT_EQ(line[1].mAddress, at + sizes[k]);
      at += sizes[k];
    }
    // They are what they are said to be.
    EXPECT_EQ(PlainFrom(lines, i * kApart, i * kApart + bytes), PlainOf(kPrologues[i]));
  }
}

uint64_t WordAt(uintptr_t inAddress) {
  uint64_t word;
  memcpy(&word, reinterpret_cast<const void*>(inAddress), sizeof word);
  return word;
}

TEST_F(Witness, ReadsThePatchAndBothIslandsOfEveryFunction) {
  std::vector<std::unique_ptr<Code>> codes;
  std::vector<uintptr_t> reentries;
  std::vector<uint8_t> before, after, islands;
  for (size_t i = 0; i < kPrologueCount; ++i) {
    const std::vector<uint8_t> bytes = Bytes(kPrologues[i].mBytes);
    codes.push_back(std::make_unique<Code>(bytes));
    void* reentry = nullptr;
    ASSERT_EQ(mach_override_ptr(codes[i]->Pointer(), reinterpret_cast<const void*>(&Replacement),
                                &reentry),
              0);
    reentries.push_back(reinterpret_cast<uintptr_t>(reentry));
    Append(before, bytes);
    Append(after, codes[i]->Now(5));
    Append(islands, BytesAt(reentry, 38));
  }
  const std::vector<Line> functions = Disassembled(before, 0);
  const std::vector<Line> patched = Disassembled(after, 0);
  const std::vector<Line> moved = Disassembled(islands, 0);
  for (size_t i = 0; i < kPrologueCount; ++i) {
    SCOPED_TRACE(kPrologues[i].mName);
    const uintptr_t at = i * kApart;
    const uintptr_t function = codes[i]->Address();
    const size_t bytes = kPrologues[i].mMovedBytes;

    // One jump of five bytes, to an island that leads to the replacement.
    const std::vector<std::string> jump = PlainFrom(patched, at, at + 5);
    ASSERT_EQ(jump.size(), 1U);
    ASSERT_EQ(jump[0].substr(0, 6), "jmp 0x");
    const uintptr_t escape = function + strtoull(jump[0].c_str() + 4, nullptr, 16);
    EXPECT_EQ(BytesAt(reinterpret_cast<void*>(escape), 38), BytesAt(kIslandTemplate.data(), 38));
    EXPECT_EQ(WordAt(escape + 38), reinterpret_cast<uint64_t>(&Replacement));

    // The moved ones as they stood, but for a jump of five bytes, which leads where it led.
    std::vector<std::string> expected = PlainFrom(functions, at, at + bytes);
    const std::vector<std::string> as = PlainFrom(moved, at, at + bytes);
    ASSERT_EQ(as.size(), expected.size());
    for (size_t k = 0; k < as.size(); ++k) {
      if (kPrologues[i].mHow == kBothWays && expected[k].substr(0, 6) == "jmp 0x") {
        EXPECT_EQ(reentries[i] + strtoull(as[k].c_str() + 4, nullptr, 16),
                  function + strtoull(expected[k].c_str() + 4, nullptr, 16));
      } else {
        EXPECT_EQ(as[k], expected[k]);
      }
    }
    // Then nothing, and on behind the patch.
    const std::vector<std::string> rest = PlainFrom(moved, at + bytes, at + 38);
    expected.assign(32 - bytes, "nop");
    expected.push_back("jmp QWORD PTR [rip+0x0]");
    EXPECT_EQ(rest, expected);
    EXPECT_EQ(WordAt(reentries[i] + 38), function + bytes);
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
  EXPECT_EQ(WordAt(escape + 38), reinterpret_cast<uint64_t>(&Replacement));

  // The reentry island: what was moved, nops, and the jump to what follows.
  expected = {"push rbp", "mov rbp,rsp", "sub rsp,0x10"};
  expected.resize(3 + 24, "nop");
  expected.push_back("jmp QWORD PTR [rip+0x0]");
  EXPECT_EQ(TextsOf(Disassembled(BytesAt(reentry, 38), reinterpret_cast<uintptr_t>(reentry))),
            expected);
  EXPECT_EQ(WordAt(reinterpret_cast<uintptr_t>(reentry) + 38), code.Address() + 8);
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

TEST_F(Witness, TheHostsEntriesBeginWithOneInstructionLongerThanTheJump) {
  for (const char* name : {"AudioObjectGetPropertyData", "AudioObjectSetPropertyData"}) {
    SCOPED_TRACE(name);
    const std::vector<Line> lines = LinesOf(std::string("objdump -d -w -M intel --disassemble=") +
                                            name + " " + TEMBRA_BINARY_DIR + "/lib/libtmbhal.so");
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[0].mAddress % 16, 0U);
    EXPECT_NE(lines[0].mText.find("nop "), std::string::npos) << lines[0].mText;
    EXPECT_EQ(lines[1].mAddress - lines[0].mAddress, 11U);
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
