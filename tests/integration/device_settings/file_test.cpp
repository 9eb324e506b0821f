#include <fcntl.h>

#include "DeviceSettingsTest.h"
#include "support/CACFDictionary.h"
#include "support/CACFString.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST_F(SettingsFile, TheFirstSaveMakesAFileThatPythonReads) {
  ControlledDevice device("One");
  device.AddControlledStream(false, FloatFormat(2));
  device.mControls.Add('volm', 'outp', 0, 0.5f);
  device.mControls.Add('mute', 'outp', 1, 1u);
  device.mControls.Add('nlvl', 'outp', 2, 0xFFFFFFFFu);
  Save(device);
  const nlohmann::json expected = {{kKeyPrefix + "One",
                                    {{"device 'volm' control on output channel 0", 0.5},
                                     {"device 'mute' control on output channel 1", 1},
                                     {"device 'nlvl' control on output channel 2", -1},
                                     {"physical format for output stream 0",
                                      {{"sample rate", 44100.0},
                                       {"format id", 'lpcm'},
                                       {"format flags", 9},
                                       {"bytes per packet", 8},
                                       {"frames per packet", 1},
                                       {"bytes per frame", 8},
                                       {"channels per frame", 2},
                                       {"bits per channel", 32}}}}}};
  EXPECT_EQ(Read(), expected);
  EXPECT_EQ(Content().substr(0, 5), "<?xml");
  EXPECT_EQ(Mode(), 0644u);
  EXPECT_THAT(Names(), ElementsAre(mName));
}

TEST_F(SettingsFile, AMissingDirectoryIsNotMade) {
  fs::remove(mFolder);
  Save(ControlledDevice());
  EXPECT_FALSE(fs::exists(mFolder));
}

TEST_F(SettingsFile, TheEntryOfAnotherDeviceSurvives) {
  ControlledDevice first("First");
  first.mControls.Add('volm', 'inpt', 0, 0.25f);
  ControlledDevice second("Second");
  second.mControls.Add('volm', 'inpt', 0, 0.75f);
  Save(first);
  Save(second);
  first.mControls.Add('volm', 'inpt', 0, 0.5f);
  Save(first);
  const std::string key = "device 'volm' control on input channel 0";
  const nlohmann::json expected = {{kKeyPrefix + "First", {{key, 0.5}}},
                                   {kKeyPrefix + "Second", {{key, 0.75}}}};
  EXPECT_EQ(Read(), expected);
}

TEST_F(SettingsFile, WhatElseIsInTheFileSurvives) {
  Python(
      "import datetime\nplistlib.dump({'other': [1, 2.5, 'x', b'bytes', True, {'k': []}],"
      "'when': datetime.datetime(2020, 1, 2)}, open('" +
      mFile.string() + "', 'wb'))");
  Save(ControlledDevice("One"));
  EXPECT_EQ(Python("d = plistlib.load(open('" + mFile.string() +
                   "', 'rb'))\n"
                   "print(sorted(d), d['other'], d['when'])"),
            "['" + kKeyPrefix +
                "One', 'other', 'when'] "
                "[1, 2.5, 'x', b'bytes', True, {'k': []}] 2020-01-02 00:00:00\n");
}

TEST_F(SettingsFile, AnEmptyFileCountsAsNone) {
  Write("");
  fs::permissions(mFile, fs::perms(0640));
  Save(ControlledDevice("One"));
  EXPECT_EQ(Read(), nlohmann::json({{kKeyPrefix + "One", nlohmann::json::object()}}));
  EXPECT_EQ(Mode(), 0640u);
}

TEST_F(SettingsFile, WhatIsNoDictionaryIsLeftAlone) {
  const std::string array = Python("import sys\nsys.stdout.write(plistlib.dumps([1, 2]).decode())");
  const std::string whole =
      Python("import sys\nsys.stdout.write(plistlib.dumps({'a': 1}).decode())");
  for (const std::string& content : {std::string("no property list"), std::string("\0\0", 2), array,
                                     whole.substr(0, whole.size() / 2), std::string("bplist00")}) {
    Write(content);
    Save(ControlledDevice("One"));
    EXPECT_EQ(Content(), content);
  }
}

TEST_F(SettingsFile, AFileLargerThanAnyPropertyListIsLeftAlone) {
  Write("x");
  // More than there is memory; on the disk it is a hole.
  constexpr std::uintmax_t kSize = std::uintmax_t{1} << 46;
  fs::resize_file(mFile, kSize);
  Save(ControlledDevice("One"));
  EXPECT_EQ(fs::file_size(mFile), kSize);
}

TEST_F(SettingsFile, AnEntryIsReplacedWhole) {
  ControlledDevice device("One");
  ControlledStream& stream = device.AddControlledStream(false, FloatFormat(2));
  device.mControls.Add('volm', 'outp', 0, 0.5f);
  Save(device);
  EXPECT_TRUE(Read()[kKeyPrefix + "One"].contains("physical format for output stream 0"));
  AudioStreamBasicDescription nonMixable = FloatFormat(2);
  nonMixable.mFormatFlags |= kAudioFormatFlagIsNonMixable;
  stream.AddFormat(nonMixable);
  stream.SetFormat(nonMixable);
  Save(device);
  EXPECT_FALSE(Read()[kKeyPrefix + "One"].contains("physical format for output stream 0"));
  EXPECT_TRUE(Read()[kKeyPrefix + "One"].contains("device 'volm' control on output channel 0"));
}

TEST_F(SettingsFile, TheModeIsKept) {
  for (const mode_t mode : {0600u, 0666u, 0640u, 0755u}) {
    Save(ControlledDevice("One"));
    ASSERT_EQ(chmod(mFile.c_str(), mode), 0);
    Save(ControlledDevice("Two"));
    EXPECT_EQ(Mode(), mode);
  }
}

TEST_F(SettingsFile, TheOwnerIsKeptWhereThatMayBe) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Save(ControlledDevice("One"));
  if (chown(mFile.c_str(), 1234, 5678) != 0) GTEST_SKIP() << "there is one user only";
  Save(ControlledDevice("Two"));
  struct stat status = {};
  ASSERT_EQ(stat(mFile.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234u);
  EXPECT_EQ(status.st_gid, 5678u);
}

TEST_F(SettingsFile, AReaderKeepsTheFileThatItOpened) {
  ControlledDevice device("One");
  Save(device);
  const std::string before = Content();
  std::ifstream reader(mFile);
  fs::create_hard_link(mFile, mFolder / "second name");
  device.mControls.Add('volm', 'inpt', 0, 0.5f);
  Save(device);
  EXPECT_NE(Content(), before);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), before);
  EXPECT_EQ(ReadFile(mFolder / "second name"), before);
}

// Things at the path that are no plain file.

TEST_F(SettingsFile, ALinkIsNeitherFollowedNorReplaced) {
  ControlledDevice device("One");
  device.mControls.Add('mute', 'inpt', 0, 1u);
  Save(device);
  const fs::path target = mFolder / "target";
  fs::rename(mFile, target);
  const std::string before = ReadFile(target);
  fs::create_symlink(target, mFile);
  device.mControls.Add('mute', 'inpt', 0, 0u);
  Save(device);
  EXPECT_TRUE(fs::is_symlink(mFile));
  EXPECT_EQ(ReadFile(target), before);
  Restore(device);
  EXPECT_THAT(device.mControls.TakeSets(), IsEmpty());
  fs::remove(mFile);
  fs::create_symlink(mFolder / "nowhere", mFile);
  Save(device);
  EXPECT_TRUE(fs::is_symlink(mFile));
  EXPECT_THAT(Names(), UnorderedElementsAre(mName, "target"));
}

TEST_F(SettingsFile, AFIFOOrADirectoryIsLeftAloneAndHoldsNobodyUp) {
  ASSERT_EQ(mkfifo(mFile.c_str(), 0666), 0);
  ControlledDevice device("One");
  Save(device);
  Restore(device);
  EXPECT_TRUE(fs::is_fifo(mFile));
  fs::remove(mFile);
  fs::create_directory(mFile);
  Save(device);
  Restore(device);
  EXPECT_TRUE(fs::is_directory(mFile));
  EXPECT_THAT(Names(), ElementsAre(mName));
}

// What killed writers leave.

TEST_F(SettingsFile, WhatDeadWritersLeftIsSweptAndNothingElse) {
  const pid_t dead = fork();
  if (dead == 0) _exit(0);
  waitpid(dead, nullptr, 0);
  const std::string hidden = "." + mName + ".";
  const std::vector<std::string> kept = {
      hidden + std::to_string(getpid()) + ".9999",  // a writer that lives
      hidden + "1.0",
      hidden + std::to_string(dead),  // none of ours
      hidden + "x" + std::to_string(dead) + ".0",
      hidden + "-" + std::to_string(dead) + ".0",
      hidden + "99999999999999999999.0",
      mName + "." + std::to_string(dead) + ".0"};
  for (const std::string& name : kept) std::ofstream(mFolder / name) << "x";
  std::ofstream(mFolder / (hidden + std::to_string(dead) + ".0")) << "x";
  std::ofstream(mFolder / (hidden + std::to_string(dead) + ".17")) << "x";
  Save(ControlledDevice("One"));
  std::vector<std::string> expected = kept;
  expected.push_back(mName);
  EXPECT_THAT(Names(), testing::UnorderedElementsAreArray(expected));
}

// Restoring.

TEST_F(SettingsFile, ANewDeviceComesBackAsTheOldOneWas) {
  {
    ControlledDevice device("One");
    device.AddControlledStream(false, FloatFormat(2, 48000.0));
    device.mControls.Add('volm', 'outp', 0, 0.1f);
    device.mControls.Add('mute', 'outp', 2, 1u);
    device.mControls.Add('ssrc', 'inpt', 0, 0x80000001u);
    Save(device);
  }
  ControlledDevice device("One");
  ControlledStream& stream = device.AddControlledStream(false, FloatFormat(2));
  device.mControls.Add('volm', 'outp', 0, 0.9f);
  device.mControls.Add('mute', 'outp', 2, 0u);
  device.mControls.Add('ssrc', 'inpt', 0, 0u);
  Restore(device);
  EXPECT_EQ(device.mControls.Float('volm', 'outp', 0), 0.1f);
  EXPECT_EQ(device.mControls.Number('mute', 'outp', 2), 1u);
  EXPECT_EQ(device.mControls.Number('ssrc', 'inpt', 0), 0x80000001u);
  ASSERT_EQ(stream.mFormats.size(), 1u);
  EXPECT_EQ(stream.mFormats[0].mSampleRate, 48000.0);
}

TEST_F(SettingsFile, AnotherDevicesEntryIsNotRestored) {
  ControlledDevice one("One");
  one.mControls.Add('mute', 'inpt', 0, 1u);
  Save(one);
  ControlledDevice two("Two");
  two.mControls.Add('mute', 'inpt', 0, 0u);
  Restore(two);
  EXPECT_THAT(two.mControls.TakeSets(), IsEmpty());
}

TEST_F(SettingsFile, WithoutAUsableFileNothingIsRestored) {
  ControlledDevice device("One");
  device.mControls.Add('mute', 'inpt', 0, 0u);
  Restore(device);
  Write("");
  Restore(device);
  Write("no property list");
  Restore(device);
  Write(Python("print(plistlib.dumps([{'" + kKeyPrefix + "One': 1}]).decode())"));
  Restore(device);
  Write(Python("print(plistlib.dumps({'" + kKeyPrefix + "One': 1}).decode())"));
  Restore(device);
  EXPECT_THAT(device.mControls.TakeSets(), IsEmpty());
}

TEST_F(SettingsFile, WhatPythonWroteIsRestoredFromBothFormats) {
  for (const std::string format : {"FMT_XML", "FMT_BINARY"}) {
    Python("plistlib.dump({'" + kKeyPrefix +
           "One': {\"device 'volm' control on output channel 1\": 0.375,"
           "\"device 'mute' control on output channel 1\": 1,"
           "\"device 'ssrc' control on output channel 1\": 0xFFFFFFFE,"
           "\"device 'solo' control on output channel 1\": True,"
           "'physical format for output stream 0': {'sample rate': 96000, 'format id': 1819304813,"
           "'format flags': 9, 'bytes per packet': 8, 'frames per packet': 1,"
           "'bytes per frame': 8, 'channels per frame': 2, 'bits per channel': 32}}}, open('" +
           mFile.string() + "', 'wb'), fmt=plistlib." + format + ")");
    ControlledDevice device("One");
    ControlledStream& stream = device.AddControlledStream(false, FloatFormat(2));
    device.mControls.Add('volm', 'outp', 1, 0.0f);
    device.mControls.Add('mute', 'outp', 1, 0u);
    device.mControls.Add('ssrc', 'outp', 1, 0u);
    device.mControls.Add('solo', 'outp', 1, 0u);
    Restore(device);
    EXPECT_EQ(device.mControls.Float('volm', 'outp', 1), 0.375f) << format;
    EXPECT_EQ(device.mControls.Number('mute', 'outp', 1), 1u) << format;
    EXPECT_EQ(device.mControls.Number('ssrc', 'outp', 1), 0xFFFFFFFEu) << format;
    EXPECT_EQ(device.mControls.Number('solo', 'outp', 1), 0u) << "a boolean is no number";
    ASSERT_EQ(stream.mFormats.size(), 1u) << format;
    EXPECT_EQ(stream.mFormats[0].mSampleRate, 96000.0) << format;
    // A save on top of it is XML that Python reads.
    Save(device);
    EXPECT_EQ(Content().substr(0, 5), "<?xml") << format;
    EXPECT_EQ(Read()[kKeyPrefix + "One"]["device 'volm' control on output channel 1"], 0.375);
  }
}

TEST_F(SettingsFile, SettingsInThePreferencesMoveIntoTheFileWithTheNextSave) {
  const std::string key = kKeyPrefix + "One";
  CACFDictionary old(true);
  old.AddUInt32(CFSTR("device 'mute' control on input channel 0"), 1);
  const CACFString keyString(key.c_str());
  CFPreferencesSetValue(keyString.GetCFString(), old.GetCFDictionary(),
                        kCFPreferencesAnyApplication, kCFPreferencesAnyUser,
                        kCFPreferencesCurrentHost);
  ASSERT_TRUE(CFPreferencesSynchronize(kCFPreferencesAnyApplication, kCFPreferencesAnyUser,
                                       kCFPreferencesCurrentHost));
  ControlledDevice device("One");
  device.mControls.Add('mute', 'inpt', 0, 0u);
  Write(Python("print(plistlib.dumps({'" + key +
               "': {\"device 'mute' control on input channel 0\": 0}}).decode())"));
  Restore(device);
  EXPECT_EQ(device.mControls.Number('mute', 'inpt', 0), 1u) << "the preferences come first";
  EXPECT_EQ(CFPreferencesCopyValue(keyString.GetCFString(), kCFPreferencesAnyApplication,
                                   kCFPreferencesAnyUser, kCFPreferencesCurrentHost),
            nullptr);
  Save(device);
  device.mControls.Add('mute', 'inpt', 0, 0u);
  Restore(device);
  EXPECT_EQ(device.mControls.Number('mute', 'inpt', 0), 1u) << "now from the file";
}

}  // namespace
}  // namespace tembra::test
