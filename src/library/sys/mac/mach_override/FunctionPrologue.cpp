#include "library/sys/mac/mach_override/FunctionPrologue.h"

#include <stdio.h>
#include <string.h>
#include <udis86.h>

#include <algorithm>

#include "library/sys/mac/mach_override/MappedMemory.h"

namespace {

constexpr size_t kDecodedBytes = 64;
constexpr uint8_t kJump = 0xE9;
constexpr uint8_t kNop = 0x90;
constexpr uint8_t kBoundPrefix = 0xF2;
constexpr uint8_t kEndBranch[] = {0xF3, 0x0F, 0x1E, 0xFA};
constexpr uint8_t kJumpThroughPointer[] = {0xFF, 0x25};
constexpr size_t kJumpThroughPointerBytes = 6;

template <typename T>
T ValueAt(const uint8_t* inBytes) {
  T value;
  memcpy(&value, inBytes, sizeof value);
  return value;
}

template <size_t N>
bool BeginsWith(const uint8_t* inCode, size_t inSize, const uint8_t (&inBytes)[N]) {
  return inSize >= N && memcmp(inCode, inBytes, N) == 0;
}

// The length of the instruction at inCode; 0 if it is not known.
size_t InstructionLength(ud_t& ioDecoder, const uint8_t* inCode, size_t inSize) {
  // The decoder may not know what an indirect branch lands on.
  if (BeginsWith(inCode, inSize, kEndBranch)) return sizeof kEndBranch;
  ud_set_input_buffer(&ioDecoder, inCode, inSize);
  if (ud_disassemble(&ioDecoder) == 0 || ud_insn_mnemonic(&ioDecoder) == UD_Iinvalid) return 0;
  return ud_insn_len(&ioDecoder);
}

uintptr_t Below(uintptr_t inAddress, uintptr_t inDistance) {
  return inAddress > inDistance ? inAddress - inDistance : 0;
}

uintptr_t Above(uintptr_t inAddress, uintptr_t inDistance) {
  return inAddress < UINTPTR_MAX - inDistance ? inAddress + inDistance : UINTPTR_MAX;
}

}  // namespace

uintptr_t FollowImportStubs(uintptr_t inAddress) {
  // Stubs may lead in a circle. One of them is kept in mind for twice as many steps each time, so
  // that a circle of any length comes by it again.
  uintptr_t kept = inAddress;
  size_t stepsToKeep = 1;
  size_t steps = 0;
  for (;;) {
    const auto* const code = reinterpret_cast<const uint8_t*>(inAddress);
    const size_t size = ReadableBytes(inAddress, sizeof kEndBranch + 1 + kJumpThroughPointerBytes);
    size_t jump = 0;
    if (BeginsWith(code, size, kEndBranch)) {
      jump = sizeof kEndBranch;
      if (size > jump && code[jump] == kBoundPrefix) ++jump;
    }
    if (size < jump + kJumpThroughPointerBytes ||
        !BeginsWith(code + jump, size - jump, kJumpThroughPointer)) {
      return inAddress;
    }
    const int64_t displacement = ValueAt<int32_t>(code + jump + sizeof kJumpThroughPointer);
    const uintptr_t pointer =
        inAddress + jump + kJumpThroughPointerBytes + static_cast<uintptr_t>(displacement);
    if (ReadableBytes(pointer, sizeof(uintptr_t)) < sizeof(uintptr_t)) return 0;
    inAddress = ValueAt<uintptr_t>(reinterpret_cast<const uint8_t*>(pointer));
    if (inAddress == kept) return 0;
    if (++steps == stepsToKeep) {
      kept = inAddress;
      stepsToKeep *= 2;
      steps = 0;
    }
  }
}

bool eatKnownInstructions(const uint8_t* inCode, uint64_t* ioPatch, size_t* outByteCount,
                          uint8_t* outInstructions, size_t* outInstructionCount,
                          uint8_t* outSizes) {
  *outByteCount = 0;
  *outInstructionCount = 0;
  const size_t readable = ReadableBytes(reinterpret_cast<uintptr_t>(inCode), kDecodedBytes);
  bool patchable = readable >= kPatchBytes;

  ud_t decoder;
  ud_init(&decoder);
  ud_set_mode(&decoder, 64);
  size_t eaten = 0;
  while (patchable && eaten < kPatchJumpBytes) {
    const size_t length = InstructionLength(decoder, inCode + eaten, readable - eaten);
    if (length == 0) {
      fputs("mach_override: some instructions unknown! Need to update libudis86\n", stderr);
      patchable = false;
      break;
    }
    eaten += length;
    outSizes[(*outInstructionCount)++] = static_cast<uint8_t>(length);
  }
  *outByteCount = eaten;

  if (outInstructions != nullptr) {
    if (eaten >= kIslandInstructionBytes) return false;
    memset(outInstructions, kNop, kIslandInstructionBytes);
    if (eaten > 0) memcpy(outInstructions, inCode, eaten);
  }
  if (patchable) {
    constexpr uint64_t kKept = 0xFFFFFF;
    const uint64_t first = __builtin_bswap64(ValueAt<uint64_t>(inCode));
    *ioPatch = (*ioPatch & ~kKept) | (first & kKept);
  }
  return patchable;
}

void fixupInstructions(uintptr_t inFunction, uintptr_t inIsland, uint8_t* ioInstructions,
                       size_t inInstructionCount, const uint8_t* inSizes) {
  // Both addresses advance alike, so what lies between them stays.
  const auto moved = static_cast<uint32_t>(inFunction - inIsland);
  uint8_t* instruction = ioInstructions;
  for (size_t i = 0; i < inInstructionCount; ++i) {
    if (*instruction == kJump) {
      const uint32_t displacement = ValueAt<uint32_t>(instruction + 1) + moved;
      memcpy(instruction + 1, &displacement, sizeof displacement);
    }
    instruction += inSizes[i];
  }
}

IslandRange RangeOfJumpFrom(uintptr_t inFunction) {
  const uintptr_t base = Above(inFunction, kPatchJumpBytes);
  return {Below(base, uintptr_t{1} << 31), Above(base, INT32_MAX)};
}

IslandRange RangeOfFixup(uintptr_t inFunction, const uint8_t* inInstructions,
                         size_t inInstructionCount, const uint8_t* inSizes) {
  IslandRange range;
  const uint8_t* instruction = inInstructions;
  for (size_t i = 0; i < inInstructionCount; ++i) {
    if (*instruction == kJump) {
      const int64_t displacement = ValueAt<int32_t>(instruction + 1);
      const uintptr_t from = displacement < 0
                                 ? Below(inFunction, static_cast<uintptr_t>(-displacement))
                                 : Above(inFunction, static_cast<uintptr_t>(displacement));
      range.mLowest = std::max(range.mLowest, Below(from, INT32_MAX));
      range.mHighest = std::min(range.mHighest, Above(from, uintptr_t{1} << 31));
    }
    instruction += inSizes[i];
  }
  return range;
}
