#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>

#include "library/sys/mac/mach_override/mach_override.h"
#include "unit/mach_override/CodePages.h"

// A process in which nothing may be writable and executable, as a service manager or the kernel
// can have it: the patch is refused and everything goes on working. Each in a process of its own.

namespace mach_override_tests {
namespace {

// The calls that would map or make memory writable and executable fail with EPERM.
bool DenyWritableCode() {
  const auto load = [](size_t inOffset) {
    return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(inOffset));
  };
  const sock_filter filter[] = {
      load(offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_mprotect, 1, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_mmap, 0, 4),
      load(offsetof(seccomp_data, args[2])),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, PROT_WRITE | PROT_EXEC),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PROT_WRITE | PROT_EXEC, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program = {sizeof filter / sizeof filter[0], const_cast<sock_filter*>(filter)};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

#ifndef PR_SET_MDWE
#define PR_SET_MDWE 65
#define PR_MDWE_REFUSE_EXEC_GAIN 1
#endif

bool DenyWritableCodeByKernel() {
  return prctl(PR_SET_MDWE, PR_MDWE_REFUSE_EXEC_GAIN, 0, 0, 0) == 0;
}

constexpr int kNotToBeHad = 77;

// In the child. 0 if the patch was refused with the code and nothing is hurt.
[[noreturn]] void PatchUnderDenial(bool (*inDeny)()) {
  const Code code(Bytes("48 8D 04 37 C3 90 90 90"));
  const int64_t attempts = mach_override_ptr_allocation_attempts();
  if (!inDeny()) exit(kNotToBeHad);
  void* reentry = nullptr;
  const kern_return_t result =
      mach_override_ptr(code.Pointer(), reinterpret_cast<const void*>(&Replacement), &reentry);
  if (result != KERN_PROTECTION_FAILURE) exit(1);
  if (code.Now(8) != Bytes("48 8D 04 37 C3 90 90 90")) exit(2);
  if (code.Call() != 12) exit(3);
  if (ProtectionAt(code.Address()) != "r-x") exit(4);
  if (reentry != nullptr || mach_override_ptr_allocation_attempts() != attempts) exit(5);
  exit(0);
}

// Refused, with the code of the second try at each stage from the protection on; or not to be had.
void ExpectRefusal(bool (*inDeny)()) {
  int status = -1;
  testing::internal::CaptureStderr();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) PatchUnderDenial(inDeny);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  const std::string lines = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(WIFEXITED(status)) << status;
  if (WEXITSTATUS(status) == kNotToBeHad) GTEST_SKIP() << "cannot be denied here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(lines, ErrorLines("2", {252, 258, 272, 277}));
}

TEST(PatcherDenied, AFilterAgainstWritableCode) {
  ExpectRefusal(DenyWritableCode);
}

TEST(PatcherDenied, AKernelThatRefusesToMakeCodeOfData) {
  ExpectRefusal(DenyWritableCodeByKernel);
}

}  // namespace
}  // namespace mach_override_tests
