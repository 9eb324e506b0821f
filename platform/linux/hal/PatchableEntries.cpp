#include "hal/ObjectAPI.h"

// AudioObjectGetPropertyData and AudioObjectSetPropertyData, which tools replace at run time by
// writing a five-byte jump over their beginning and moving what stood there elsewhere. A compiler
// gives no promise about a function's first bytes, so these two are written out: they begin, on a
// 16-byte border, with one instruction that is longer than the jump (a thread can stand before or
// behind it, never inside what is overwritten), and the first 16 bytes hold nothing whose meaning
// depends on where it lies. That instruction has eleven bytes, because what is moved is filled up
// to 32 with nops of one byte each: moved at the start of a page, as the way to the tool is too, 27
// of them are more than a processor keeps decoded. With 21 a call costs 2 ns more, with 27 it is 5.
// They pass their six register arguments on to the bodies.

#define TEMBRA_PATCHABLE_ENTRY(name, body)                                  \
  asm(".text\n"                                                             \
      ".balign 16\n"                                                        \
      ".globl " name                                                        \
      "\n"                                                                  \
      ".type " name ", @function\n" name                                    \
      ":\n"                                                                 \
      ".cfi_startproc\n"                                                    \
      ".byte 0x66, 0x66, 0x2e, 0x0f, 0x1f, 0x84, 0, 0, 0, 0, 0\n" /* nop */ \
      "pushq %rbp\n"                                                        \
      ".cfi_def_cfa_offset 16\n"                                            \
      ".cfi_offset %rbp, -16\n"                                             \
      "movq %rsp, %rbp\n"                                                   \
      ".cfi_def_cfa_register %rbp\n"                                        \
      ".byte 0x48, 0x81, 0xec, 0x10, 0, 0, 0\n" /* subq $16, %rsp */        \
      "call " body                                                          \
      "\n"                                                                  \
      "leave\n"                                                             \
      ".cfi_def_cfa %rsp, 8\n"                                              \
      "ret\n"                                                               \
      ".cfi_endproc\n"                                                      \
      ".size " name ", . - " name "\n")

TEMBRA_PATCHABLE_ENTRY("AudioObjectGetPropertyData", "TembraHALGetPropertyData");
TEMBRA_PATCHABLE_ENTRY("AudioObjectSetPropertyData", "TembraHALSetPropertyData");
