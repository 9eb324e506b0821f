#include "Roles.h"
#include "support/OtherUser.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace tembra::test {
namespace {

std::string CodeText(UInt32 inCode) {
  return {static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
          static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
}

void Say(const std::string& inLine) {
  std::printf("%s\n", inLine.c_str());
  std::fflush(stdout);
}

std::string Values(AudioObjectID inDevice, UInt32 inSelector, UInt32 inScope) {
  UInt32 left = 0;
  UInt32 right = 0;
  if (inSelector == 'dch2') {
    if (!GetPair(inDevice, inScope, left, right)) return "none";
  } else {
    const Layout layout(CAAudioChannelLayout::Create(2));
    if (!GetLayout(inDevice, inSelector, inScope, *layout)) return "none";
    const AudioChannelDescription* descriptions = layout->mChannelDescriptions;
    left = descriptions[0].mChannelLabel;
    right = descriptions[1].mChannelLabel;
  }
  return std::to_string(left) + " " + std::to_string(right);
}

OSStatus Changed(AudioObjectID inDevice, UInt32 inNumber,
                 const AudioObjectPropertyAddress* inAddresses, void*) {
  for (UInt32 i = 0; i < inNumber; ++i) {
    Say(std::to_string(Now()) + " " + CodeText(inAddresses[i].mSelector) + " " +
        CodeText(inAddresses[i].mScope) + " " +
        Values(inDevice, inAddresses[i].mSelector, inAddresses[i].mScope));
  }
  return 0;
}

// Before the first call of the HAL.
bool BecomeAnotherUser() {
  constexpr char kHome[] = "/tmp/another user";
  mkdir(kHome, 0700);
  setenv("HOME", kHome, 1);
  setenv("XDG_RUNTIME_DIR", kHome, 1);
  return chown(kHome, kNobody, kNobody) == 0 && BecomeUser(kNobody);
}

int Listen(AudioObjectID inDevice) {
  for (const UInt32 selector : {'dch2', 'srnd'}) {
    for (const UInt32 scope : {'inpt', 'outp'}) {
      const AudioObjectPropertyAddress address = {selector, scope, 0};
      if (AudioObjectAddPropertyListener(inDevice, &address, Changed, nullptr) != 0) return 4;
    }
  }
  Say("ready");
  for (;;) pause();
}

}  // namespace

AudioObjectID FindDevice() {
  const AudioObjectPropertyAddress address = {kAudioHardwarePropertyDevices, 'glob', 0};
  AudioObjectID device = 0;
  UInt32 size = sizeof(device);
  const OSStatus status =
      AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &device);
  return status == 0 && size == sizeof(device) ? device : 0;
}

std::uint64_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

bool GetPair(AudioObjectID inDevice, UInt32 inScope, UInt32& outLeft, UInt32& outRight) {
  const AudioObjectPropertyAddress address = {'dch2', inScope, 0};
  UInt32 pair[2] = {};
  UInt32 size = sizeof(pair);
  if (AudioObjectGetPropertyData(inDevice, &address, 0, nullptr, &size, pair) != 0) return false;
  outLeft = pair[0];
  outRight = pair[1];
  return true;
}

OSStatus SetPair(AudioObjectID inDevice, UInt32 inScope, UInt32 inLeft, UInt32 inRight) {
  const AudioObjectPropertyAddress address = {'dch2', inScope, 0};
  const UInt32 pair[2] = {inLeft, inRight};
  return AudioObjectSetPropertyData(inDevice, &address, 0, nullptr, sizeof(pair), pair);
}

bool GetLayout(AudioObjectID inDevice, UInt32 inSelector, UInt32 inScope,
               AudioChannelLayout& outLayout) {
  const AudioObjectPropertyAddress address = {inSelector, inScope, 0};
  UInt32 size = CAAudioChannelLayout::CalculateByteSize(2);
  return AudioObjectGetPropertyData(inDevice, &address, 0, nullptr, &size, &outLayout) == 0;
}

OSStatus SetLayout(AudioObjectID inDevice, UInt32 inScope, const AudioChannelLayout& inLayout) {
  const AudioObjectPropertyAddress address = {'srnd', inScope, 0};
  return AudioObjectSetPropertyData(inDevice, &address, 0, nullptr,
                                    CAAudioChannelLayout::CalculateByteSize(2), &inLayout);
}

int RunRole(const std::vector<std::string>& inArguments) {
  const std::string& role = inArguments[0];
  if (role == "listen-as-another" && !BecomeAnotherUser()) return kThereIsNoOther;
  const AudioObjectID device = FindDevice();
  if (device == 0) return 3;
  if (role == "listen-as-another") return Listen(device);
  if (role == "listen") return Listen(device);
  if (role == "pair" && inArguments.size() == 3) {
    const auto number = [&](size_t inIndex) {
      return static_cast<UInt32>(std::strtoul(inArguments[inIndex].c_str(), nullptr, 10));
    };
    const std::uint64_t begin = Now();
    if (SetPair(device, 'outp', number(1), number(2)) != 0) return 4;
    Say(std::to_string(begin));
    return 0;
  }
  if (role == "read") {
    for (const UInt32 selector : {'dch2', 'srnd', 'srdd'}) {
      for (const UInt32 scope : {'inpt', 'outp'}) {
        Say(CodeText(selector) + " " + CodeText(scope) + " " + Values(device, selector, scope));
      }
    }
    return 0;
  }
  return 2;
}

}  // namespace tembra::test
