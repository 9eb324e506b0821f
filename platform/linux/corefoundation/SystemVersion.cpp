#include "corefoundation/SystemVersion.h"

#include <CoreServices/CoreServices.h>

namespace tembra::cf {

namespace {

constexpr char kPath[] = "/System/Library/CoreServices/SystemVersion.plist";
// Of the generation that Gestalt stands for when nobody tells it otherwise.
constexpr char kBuild[] = "17G65";

std::string Number(OSType inSelector) {
  SInt32 number = 0;
  Gestalt(inSelector, &number);
  return std::to_string(number);
}

}  // namespace

bool MakeSystemFile(const std::string& inPath, std::vector<UInt8>& outBytes) {
  if (inPath != kPath) return false;
  const std::string version = Number(gestaltSystemVersionMajor) + "." +
                              Number(gestaltSystemVersionMinor) + "." +
                              Number(gestaltSystemVersionBugFix);
  const std::string text = std::string(R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
  <key>ProductBuildVersion</key>
  <string>)") + kBuild + R"(</string>
  <key>ProductVersion</key>
  <string>)" + version + R"(</string>
</dict>
</plist>
)";
  outBytes.assign(text.begin(), text.end());
  return true;
}

}  // namespace tembra::cf
