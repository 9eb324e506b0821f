#include <CoreAudio/AudioHardware.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string.h>

namespace {

// What a patcher relies on: one whole first instruction under its jump, at a place where one store
// replaces it, and nothing behind it that cannot be moved.
TEST(PatchableEntry, BeginsWithCodeThatCanBeMoved) {
  const unsigned char expected[] = {
      0x66, 0x66, 0x2E, 0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00,  // nop, eleven bytes
      0x55,                                                              // push %rbp
      0x48, 0x89, 0xE5,                                                  // mov %rsp, %rbp
      0x48, 0x81, 0xEC, 0x10, 0x00, 0x00, 0x00,                          // sub $16, %rsp
  };
  for (const char* name : {"AudioObjectGetPropertyData", "AudioObjectSetPropertyData"}) {
    const void* const entry = dlsym(RTLD_DEFAULT, name);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(reinterpret_cast<size_t>(entry) % 16, 0U) << name;
    EXPECT_EQ(memcmp(entry, expected, sizeof expected), 0) << name;
    Dl_info info{};
    ASSERT_NE(dladdr(entry, &info), 0);
    EXPECT_STREQ(info.dli_sname, name);
    EXPECT_NE(strstr(info.dli_fname, "libtmbhal.so"), nullptr);
  }
}

}  // namespace
