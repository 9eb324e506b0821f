// The device's names where the plug-in's bundle has others than the built-in ones. A process asks
// for them once, so this bundle is there for all that this program does.

#include <gtest/gtest.h>

#include <string>

#include "support/client/ClientDevice.h"

namespace {

int sBundle = 0;

CFBundleRef GetBundle() {
  return reinterpret_cast<CFBundleRef>(&sBundle);
}

}  // namespace

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef inIdentifier) {
  return CFEqual(inIdentifier, CFSTR("com.tembra.audio.TMBAudioClient")) ? GetBundle() : nullptr;
}

// Has a string for any key, in the default table.
CFStringRef CFBundleCopyLocalizedString(CFBundleRef inBundle, CFStringRef inKey,
                                        CFStringRef inDefault, CFStringRef inTable) {
  if (inBundle != GetBundle() || inTable != nullptr) {
    return static_cast<CFStringRef>(CFRetain(inDefault));
  }
  CFMutableStringRef text = CFStringCreateMutable(nullptr, 0);
  CFStringAppend(text, CFSTR("another "));
  CFStringAppend(text, inKey);
  return text;
}

namespace tembra::test {
namespace {

// The text of what a Copy operation handed out; releases it.
std::string TextOf(CFStringRef inString) {
  if (inString == nullptr) return "(null)";
  char buffer[100] = "";
  CFStringGetCString(inString, buffer, sizeof(buffer), kCFStringEncodingUTF8);
  CFRelease(inString);
  return buffer;
}

TEST(Names, AreTheBundles) {
  const ClientDevice device(false);
  EXPECT_EQ(TextOf(device->CopyDeviceName()), "another TMBAudioName");
  EXPECT_EQ(TextOf(device->CopyManufacturerName()), "another ManufacturerName");
  EXPECT_EQ(TextOf(device->CopyDeviceManufacturerName()), "another ManufacturerName");
}

TEST(Names, OfOtherThingsAreNoMatterOfTheBundle) {
  const ClientDevice device(false);
  EXPECT_EQ(TextOf(device->CopyDeviceUID()), "TMBAudioCln_Plugin");
  EXPECT_EQ(TextOf(device->CopyModelUID()), "TMBAudioCln_Device");
}

}  // namespace
}  // namespace tembra::test
