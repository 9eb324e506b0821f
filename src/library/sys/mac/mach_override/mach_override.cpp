#include "library/sys/mac/mach_override/mach_override.h"

#include <stdio.h>

#include "library/sys/mac/mach_override/BranchIsland.h"
#include "library/sys/mac/mach_override/FunctionPrologue.h"
#include "library/sys/mac/mach_override/PatchStore.h"

namespace {

// The line that standard error names tells the stage. People and scripts know these numbers, so
// they stay as they are wherever the source moves.
enum Stage {
  kStageMeasured = 239,
  kStageWritable = 252,
  kStageIslandAllocated = 258,
  kStageIslandKept = 272,
  kStageIslandAimed = 277,
  kStageProtectedAgain = 367,
};

// As it is called in the tree, not where this was built.
constexpr const char* kSourceFile = "src/library/sys/mac/mach_override/mach_override.cpp";

void ReportAt(Stage inStage, kern_return_t inError) {
  if (inError != KERN_SUCCESS) {
    fprintf(stderr, "err = %x %s:%d\n", static_cast<unsigned>(inError), kSourceFile,
            static_cast<int>(inStage));
  }
}

// What is known of the function that is patched.
struct Target {
  uintptr_t mFunction = 0;
  uint64_t mPatch = 0;  // most significant byte first
  size_t mByteCount = 0;
  uint8_t mInstructions[kIslandInstructionBytes] = {};
  size_t mInstructionCount = 0;
  uint8_t mSizes[kMaxEatenInstructions] = {};
};

kern_return_t Measure(Target& ioTarget) {
  const bool known = eatKnownInstructions(
      reinterpret_cast<const uint8_t*>(ioTarget.mFunction), &ioTarget.mPatch, &ioTarget.mByteCount,
      ioTarget.mInstructions, &ioTarget.mInstructionCount, ioTarget.mSizes);
  if (ioTarget.mByteCount > kIslandInstructionBytes || !known) {
    return kMachOverrideErrorCannotOverride;
  }
  return KERN_SUCCESS;
}

kern_return_t Protect(uintptr_t inFunction, vm_prot_t inProtection) {
  return vm_protect(mach_task_self(), inFunction, kPatchBytes, false, inProtection);
}

kern_return_t MakeWritable(uintptr_t inFunction) {
  constexpr vm_prot_t kWritable = VM_PROT_READ | VM_PROT_WRITE | VM_PROT_COPY;
  const kern_return_t error = Protect(inFunction, kWritable | VM_PROT_EXECUTE);
  return error == KERN_SUCCESS ? error : Protect(inFunction, kWritable);
}

void CompletePatch(Target& ioTarget, const BranchIsland* inEscape) {
  const auto displacement = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(inEscape) -
                                                  ioTarget.mFunction - kPatchJumpBytes);
  ioTarget.mPatch |= uint64_t{0xE9} << 56 | uint64_t{__builtin_bswap32(displacement)} << 24;
}

// From here on the islands hold code; the last step is the switch.
kern_return_t Switch(Target& ioTarget, BranchIsland* inEscape, BranchIsland* inReentry) {
  fixupInstructions(ioTarget.mFunction, reinterpret_cast<uintptr_t>(inReentry),
                    ioTarget.mInstructions, ioTarget.mInstructionCount, ioTarget.mSizes);
  if (inReentry != nullptr) {
    setBranchIslandTarget_i386(
        inReentry, reinterpret_cast<const void*>(ioTarget.mFunction + ioTarget.mByteCount),
        ioTarget.mInstructions);
  }
  // Both can run before the jump exists.
  kern_return_t error = makeIslandExecutable(inEscape);
  if (error == KERN_SUCCESS && inReentry != nullptr) error = makeIslandExecutable(inReentry);
  if (error == KERN_SUCCESS) {
    atomic_mov64(reinterpret_cast<void*>(ioTarget.mFunction), __builtin_bswap64(ioTarget.mPatch));
  }
  return error;
}

}  // namespace

kern_return_t mach_override_ptr(void* originalFunctionAddress, const void* overrideFunctionAddress,
                                void** originalFunctionReentryIsland) {
  Target target;
  target.mFunction = FollowImportStubs(reinterpret_cast<uintptr_t>(originalFunctionAddress));

  kern_return_t error = Measure(target);
  ReportAt(kStageMeasured, error);

  if (error == KERN_SUCCESS) error = MakeWritable(target.mFunction);
  ReportAt(kStageWritable, error);

  BranchIsland* escape = nullptr;
  if (error == KERN_SUCCESS) {
    error = allocateBranchIsland(&escape, true, reinterpret_cast<const void*>(target.mFunction),
                                 RangeOfJumpFrom(target.mFunction));
  }
  ReportAt(kStageIslandAllocated, error);
  ReportAt(kStageIslandKept, error);

  if (error == KERN_SUCCESS) {
    error = setBranchIslandTarget_i386(escape, overrideFunctionAddress, nullptr);
  }
  ReportAt(kStageIslandAimed, error);

  if (error == KERN_SUCCESS) CompletePatch(target, escape);

  BranchIsland* reentry = nullptr;
  if (error == KERN_SUCCESS && originalFunctionReentryIsland != nullptr) {
    error = allocateBranchIsland(&reentry, true, escape,
                                 RangeOfFixup(target.mFunction, target.mInstructions,
                                              target.mInstructionCount, target.mSizes));
    if (error == KERN_SUCCESS) *originalFunctionReentryIsland = reentry;
  }

  if (error == KERN_SUCCESS) {
    error = Switch(target, escape, reentry);
    ReportAt(kStageProtectedAgain, Protect(target.mFunction, VM_PROT_READ | VM_PROT_EXECUTE));
  }

  if (error != KERN_SUCCESS) {
    if (reentry != nullptr) freeBranchIsland(reentry);
    if (escape != nullptr) freeBranchIsland(escape);
  }
  return error;
}
