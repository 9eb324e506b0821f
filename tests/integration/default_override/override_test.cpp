// The override as an application meets it: the plug-in's image is loaded by the HAL and patches the
// HAL's functions in a process that is not root's.

#include <CoreServices/GestaltPriv.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "UserFixture.h"
#include "support/Program.h"
#include "support/Sanitizers.h"

namespace tembra::test {
namespace {

namespace fs = std::filesystem;

class Override : public UserFixture {};

TEST_F(Override, AnswersTheDeviceWhileTheKeySaysSo) {
  AllowSound();
  RunAsUser([] {
    const AudioObjectID device = DeviceUnderTest();
    const AudioObjectID other = OtherDevice();
    EXPECT_EQ(Default(), other) << "no file";
    WritePreference(kOn);
    EXPECT_EQ(Default(), device);
    EXPECT_EQ(Default('sOut'), other) << "the other key";
    WritePreference(kOff);
    EXPECT_EQ(Default(), other);
    WritePreference("<dict><key>isSystemOutput</key><true/></dict>");
    EXPECT_EQ(Default('sOut'), device);
    EXPECT_EQ(Default(), other);
    WriteRaw("bplist00 and no more");
    EXPECT_EQ(Default(), other) << "corrupt";
    WritePreference("<array><true/></array>");
    EXPECT_EQ(Default(), other) << "no dictionary";
    WritePreference(kOn);
    EXPECT_EQ(Default(), device) << "read anew each time";
    EXPECT_EQ(unlink(Preference().c_str()), 0);
    EXPECT_EQ(Default(), other);
  });
}

TEST_F(Override, AValueOfAnotherTypeIsANumberOrFalse) {
  AllowSound();
  RunAsUser([] {
    const AudioObjectID device = DeviceUnderTest();
    const AudioObjectID other = OtherDevice();
    const std::string key = "<dict><key>isDefaultOutput</key>";
    for (const char* value : {"<string>true</string>", "<data>AQ==</data>", "<date/>", "<dict/>",
                              "<array><true/></array>", "<integer>0</integer>"}) {
      WritePreference(key + value + "</dict>");
      EXPECT_EQ(Default(), other) << value;
    }
    WritePreference(key + "<integer>1</integer></dict>");
    EXPECT_EQ(Default(), device);
  });
}

TEST_F(Override, LeavesAllOtherCallsToThePlatform) {
  AllowSound();
  RunAsUser([] {
    const AudioObjectID device = DeviceUnderTest();
    const AudioObjectID other = OtherDevice();
    WritePreference(kOn);
    const AudioObjectPropertyAddress output{'dOut', 'glob', 0};
    const AudioObjectPropertyAddress input{'dIn ', 'glob', 0};
    AudioObjectID value = 0;
    UInt32 size = 2;
    EXPECT_EQ(AudioObjectGetPropertyData(1, &output, 0, nullptr, &size, &value), OSStatus{'!siz'});
    EXPECT_EQ(value, 0U);
    size = 4;
    EXPECT_EQ(AudioObjectGetPropertyData(1, &input, 0, nullptr, &size, &value), 0);
    EXPECT_NE(value, device) << "never the default input";
    EXPECT_EQ(AudioObjectGetPropertyData(device, &output, 0, nullptr, &size, &value),
              OSStatus{'who?'});
    EXPECT_EQ(AudioObjectGetPropertyData(other, &output, 0, nullptr, &size, &value),
              OSStatus{'who?'});
    EXPECT_EQ(AudioObjectGetPropertyData(0xDEAD, &output, 0, nullptr, &size, &value),
              OSStatus{'!obj'});
    EXPECT_EQ(AudioObjectGetPropertyData(1, nullptr, 0, nullptr, &size, &value), OSStatus{'nope'});
    EXPECT_EQ(AudioObjectGetPropertyData(1, &output, 0, nullptr, nullptr, &value),
              OSStatus{'nope'});
    EXPECT_EQ(AudioObjectSetPropertyData(1, nullptr, 0, nullptr, 4, &value), OSStatus{'nope'});
    // Scope and element do not matter.
    const AudioObjectPropertyAddress odd{'dOut', 'inpt', 17};
    size = 4;
    EXPECT_EQ(AudioObjectGetPropertyData(1, &odd, 0, nullptr, &size, &value), 0);
    EXPECT_EQ(value, device);
  });
}

TEST_F(Override, RecordsAWriteAndPassesItOn) {
  AllowSound();
  RunAsUser([] {
    const AudioObjectID device = DeviceUnderTest();
    const AudioObjectID other = OtherDevice();
    ASSERT_EQ(Default(), other);

    EXPECT_EQ(SetDefault(device), 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
    EXPECT_EQ(Default(), device);
    // Without the preference the platform itself answers, and it was told too.
    EXPECT_EQ(unlink(Preference().c_str()), 0);
    EXPECT_EQ(Default(), device);

    EXPECT_EQ(SetDefault(device), 0);
    EXPECT_EQ(SetDefault(other), 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": false})");
    EXPECT_EQ(Default(), other);

    EXPECT_EQ(SetDefault(device, 'sOut'), 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": false, "isSystemOutput": true})");
    EXPECT_EQ(Default('sOut'), device);
  });
}

TEST_F(Override, RecordsOnlyWholeIds) {
  AllowSound();
  RunAsUser([] {
    const AudioObjectID device = DeviceUnderTest();
    const AudioObjectPropertyAddress output{'dOut', 'glob', 0};
    EXPECT_NE(AudioObjectSetPropertyData(1, &output, 0, nullptr, 2, &device), 0)
        << "the platform's answer";
    EXPECT_EQ(Witness(), "");
    EXPECT_NE(SetDefault(0xDEAD), 0);
    EXPECT_EQ(Witness(), "") << "false where there is no file makes none";
    EXPECT_EQ(SetDefault(device), 0);
    EXPECT_NE(SetDefault(0xDEAD), 0) << "refused by the platform, and recorded all the same";
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": false})");
  });
}

TEST_F(Override, AFileThatMayNotBeWrittenIsNotReplaced) {
  AllowSound();
  RunAsUser([] {
    const AudioObjectID device = DeviceUnderTest();
    WritePreference(kOff);
    const std::string before = ReadFile(Preference());
    ASSERT_EQ(chmod(Preference().c_str(), 0400), 0);
    EXPECT_EQ(SetDefault(device), 0) << "the platform's answer";
    EXPECT_EQ(ReadFile(Preference()), before);
    ASSERT_EQ(chmod(Preference().c_str(), 0600), 0);
    EXPECT_EQ(SetDefault(device), 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
  });
}

TEST_F(Override, IsInertWithoutADevice) {
  AllowSound();
  RunAsUser([] {
    // The image alone, without the plug-in object that the HAL would make.
    setenv("TEMBRA_HAL_PLUGIN_PATH", TEMBRA_BINARY_DIR "/tests/plug-ins", 1);
    ASSERT_NE(dlopen(TEMBRA_BINARY_DIR
                     "/lib/tembra/plug-ins/TMBAudioClient.plugin/Contents/Linux/TMBAudioClient",
                     RTLD_NOW | RTLD_LOCAL),
              nullptr)
        << dlerror();
    if (!IsInterposed()) EXPECT_TRUE(BeginsWithJump("AudioObjectGetPropertyData"));
    WritePreference(kOn);
    const AudioObjectID other = Default();
    EXPECT_NE(other, AudioObjectID{kAudioObjectUnknown});
    EXPECT_EQ(Default(), other);
    const std::string before = ReadFile(Preference());
    EXPECT_EQ(SetDefault(other), 0);
    EXPECT_EQ(ReadFile(Preference()), before) << "not recorded";
  });
}

TEST_F(Override, ReachesTheFunctionsThemselves) {
  AllowSound();
  RunAsUser([] {
    if (!IsInterposed()) EXPECT_FALSE(BeginsWithJump("AudioObjectGetPropertyData"));
    const AudioObjectID device = DeviceUnderTest();
    if (!IsInterposed()) {
      EXPECT_TRUE(BeginsWithJump("AudioObjectGetPropertyData"));
      EXPECT_TRUE(BeginsWithJump("AudioObjectSetPropertyData"));
      EXPECT_FALSE(BeginsWithJump("AudioObjectGetPropertyDataSize"));
    }
    WritePreference(kOn);
    // Through an address, and through another function of the HAL that calls this one.
    const auto get = reinterpret_cast<decltype(&AudioObjectGetPropertyData)>(
        dlsym(RTLD_DEFAULT, "AudioObjectGetPropertyData"));
    const AudioObjectPropertyAddress output{'dOut', 'glob', 0};
    AudioObjectID value = 0;
    UInt32 size = sizeof value;
    EXPECT_EQ(get(1, &output, 0, nullptr, &size, &value), 0);
    EXPECT_EQ(value, device);
    value = 0;
    size = sizeof value;
    EXPECT_EQ(AudioHardwareGetProperty('dOut', &size, &value), 0);
    EXPECT_EQ(value, device);
  });
}

TEST_F(Override, NeedsSoundToBeAllowedWhenTheImageIsLoaded) {
  for (const char* number : {"", "0", "no"}) {
    AllowSound(number);
    RunAsUser([] {
      const AudioObjectID other = OtherDevice();
      WritePreference(kOn);
      EXPECT_EQ(Default(), other);
      EXPECT_EQ(SetDefault(other), 0);
      EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})") << "not recorded";
      EXPECT_FALSE(BeginsWithJump("AudioObjectGetPropertyData"));
      EXPECT_FALSE(BeginsWithJump("AudioObjectSetPropertyData"));
    });
  }
  fs::remove_all("/var/run/tmbipc");
  RunAsUser([] {
    const AudioObjectID other = OtherDevice();
    WritePreference(kOn);
    EXPECT_EQ(Default(), other);
  });
}

TEST_F(Override, NeedsASystemWhoseVersionPermitsSound) {
  struct Row {
    int32_t mMajor, mMinor;
    const char* mProtection;  // what the system said of it; null if there is no file
    bool mIsPermitted;
  };
  constexpr char kOffText[] = "System Integrity Protection status: disabled.\n";
  constexpr char kOnText[] = "System Integrity Protection status: enabled.\n";
  AllowSound();
  for (const Row& row :
       {Row{10, 13, nullptr, true}, Row{10, 13, kOnText, true}, Row{9, 15, kOnText, true},
        Row{10, 14, nullptr, false}, Row{10, 14, kOnText, false}, Row{10, 14, kOffText, true},
        Row{10, 15, kOffText, false}, Row{11, 0, kOffText, false}}) {
    const char* const sip = "/var/run/tmbipc/tmbserverd.0.sip";
    fs::remove(sip);
    if (row.mProtection != nullptr) std::ofstream(sip) << row.mProtection;
    const std::string name = std::to_string(row.mMajor) + "." + std::to_string(row.mMinor) + " " +
                             (row.mProtection != nullptr ? row.mProtection : "");
    SCOPED_TRACE(name);
    RunAsUser([&] {
      TembraGestaltSetSystemVersion(row.mMajor, row.mMinor, 6);
      const AudioObjectID device = DeviceUnderTest();
      const AudioObjectID other = OtherDevice();
      WritePreference(
          "<dict><key>isDefaultOutput</key><true/>"
          "<key>isSystemOutput</key><true/></dict>");
      for (const AudioObjectPropertySelector selector : {'dOut', 'sOut'}) {
        EXPECT_EQ(Default(selector), row.mIsPermitted ? device : other);
      }
    });
  }
}

TEST_F(Override, ALaterChangeOfThatDoesNotReachARunningProcess) {
  AllowSound();
  // The user's to change from within the child.
  ASSERT_EQ(chmod("/var/run/tmbipc/tmbserverd.0.snd", 0666), 0);
  RunAsUser([] {
    const AudioObjectID device = DeviceUnderTest();
    WritePreference(kOn);
    EXPECT_EQ(Default(), device);
    std::ofstream("/var/run/tmbipc/tmbserverd.0.snd") << "0";
    EXPECT_EQ(Default(), device);
  });
  RunAsUser([] {
    EXPECT_EQ(Default(), OtherDevice());
    std::ofstream("/var/run/tmbipc/tmbserverd.0.snd") << "1";
    EXPECT_EQ(Default(), OtherDevice());
  });
}

TEST_F(Override, ARootProcessIsNeverPatched) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  AllowSound();
  RunInChild([] {
    setenv("HOME", Home().c_str(), 1);
    setenv("XDG_RUNTIME_DIR", "/var/run", 1);
    WritePreference(kOn);
    EXPECT_EQ(Default(), OtherDevice());
    EXPECT_FALSE(BeginsWithJump("AudioObjectGetPropertyData"));
    EXPECT_FALSE(BeginsWithJump("AudioObjectSetPropertyData"));
  });
}

TEST_F(Override, AnswersOneDeviceOrTheOtherWhileThePreferenceChanges) {
  AllowSound();
  RunAsUser([] {
    constexpr int kReads = 200;
    const AudioObjectID device = DeviceUnderTest();
    const AudioObjectID other = OtherDevice();
    WritePreference(kOn);
    std::atomic<int> wrong{0};
    std::atomic<int> reading{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
      readers.emplace_back([&, device, other] {
        ++reading;
        for (int read = 0; read < kReads; ++read) {
          const AudioObjectID told = Default();
          wrong += told != device && told != other;
        }
        --reading;
      });
    }
    int changes = 0;
    do {
      WritePreference(++changes % 2 == 0 ? kOn : kOff);
    } while (reading > 0 || changes < 2);
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
  });
}

// A program of its own, linked to a fixed place.
class OtherProgram : public UserFixture {
 protected:
  static std::string Client() { return TEMBRA_BINARY_DIR "/tests/override_client"; }
  static std::string Run(const std::string& inProgram) {
    Program program(inProgram, {}, File("client"));
    EXPECT_EQ(program.Wait(), 0) << program.Errors();
    return program.Output();
  }
};

TEST_F(OtherProgram, IsReachedThroughItsStubsToo) {
  AllowSound();
  RunAsUser([] {
    WritePreference(kOn);
    const std::string jump = IsInterposed() ? "begins-with-jump 0\n" : "begins-with-jump 1\n";
    EXPECT_THAT(Run(Client()), testing::AllOf(testing::HasSubstr(jump),
                                              testing::HasSubstr("pointer TMBAudioCln_Plugin\n"),
                                              testing::HasSubstr("direct TMBAudioCln_Plugin\n")));
    WritePreference(kOff);
    EXPECT_THAT(Run(Client()), testing::Not(testing::HasSubstr("TMBAudioCln_Plugin")));
  });
}

TEST_F(OtherProgram, WithAnotherUsersRightsIsLeftAlone) {
  if (!IsRoot()) GTEST_SKIP() << "only root gives a program another user's rights";
  if (kAddressSanitizer) GTEST_SKIP() << "leaks cannot be looked for in such a program";
  AllowSound();
  const std::string copy = "/var/run/client-with-rights";
  fs::copy_file(Client(), copy, fs::copy_options::overwrite_existing);
  ASSERT_EQ(chown(copy.c_str(), 60999, 60999), 0);
  ASSERT_EQ(chmod(copy.c_str(), 04755), 0);
  RunAsUser([copy] {
    if (IsInterposed()) return;
    WritePreference(kOn);
    EXPECT_THAT(Run(copy), testing::HasSubstr("begins-with-jump 0\n"));
    EXPECT_THAT(Run(Client()), testing::HasSubstr("begins-with-jump 1\n"));
  });
}

}  // namespace
}  // namespace tembra::test
