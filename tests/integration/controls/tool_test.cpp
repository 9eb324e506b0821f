// tmbaudio controls, volume, mute and formats.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>

#include "support/Program.h"

namespace tembra::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

struct Result {
  int status;
  std::string output;
  std::string errors;
};

Result Tool(const std::vector<std::string>& inArguments) {
  Program program("tmbaudio", inArguments, std::string(getenv("HOME")) + "/tool");
  const int status = program.Wait();
  return {status, program.Output(), program.Errors()};
}

TEST(Controls, ListsEachWithItsPlaceAndValue) {
  const Result run = Tool({"controls", "--json"});
  ASSERT_EQ(run.status, 0) << run.errors;
  const nlohmann::json controls = nlohmann::json::parse(run.output);
  ASSERT_THAT(controls, SizeIs(18));
  std::set<std::tuple<std::string, std::string, unsigned>> places;
  for (const nlohmann::json& control : controls) {
    places.emplace(control["class"], control["scope"], control["element"]);
    EXPECT_GT(control["id"].get<unsigned>(), 1U);
    if (control["class"] == "'vlme'") {
      EXPECT_EQ(control["value"], 0.0);
      EXPECT_EQ(control["decibels"], -90.0);
    } else if (control["class"] == "'mute'") {
      EXPECT_EQ(control["value"], false);
    } else {
      EXPECT_EQ(control["class"], "'dsrc'");
      EXPECT_EQ(control["value"], 0);
      EXPECT_THAT(control["items"], IsEmpty());
    }
  }
  EXPECT_THAT(places, SizeIs(18));
  EXPECT_EQ(places.count({"'mute'", "input", 2}), 1U);
}

TEST(Controls, ListsForPeople) {
  const Result run = Tool({"controls", "TMBAudioCln_Plugin"});
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 18);
  EXPECT_THAT(run.output, HasSubstr("'vlme'  output  element 0  0.0 (-90.0 dB)\n"));
  EXPECT_THAT(run.output, HasSubstr("'mute'  input   element 2  off\n"));
  EXPECT_THAT(run.output, HasSubstr("'dsrc'  output  element 1  0 of 0 items\n"));
}

TEST(Controls, OfAnUnknownDeviceAreAFailure) {
  const Result run = Tool({"controls", "nothing"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("no device is called nothing"));
}

TEST(Volume, IsShownAndSet) {
  EXPECT_EQ(Tool({"volume"}).output, "0 (-90 dB)\n");
  EXPECT_EQ(Tool({"volume", "0.25"}).output, "0.25 (-45 dB)\n");
  EXPECT_EQ(Tool({"volume", "25%"}).output, "0.25 (-45 dB)\n");
  EXPECT_EQ(Tool({"volume", "-45dB"}).output, "0.25 (-45 dB)\n");
  EXPECT_EQ(Tool({"volume", "1", "--channel", "2"}).output, "1 (0 dB)\n");
  EXPECT_EQ(Tool({"volume", "100%", "--input", "--channel", "1"}).output, "1 (0 dB)\n");
  EXPECT_EQ(Tool({"volume", "0dB", "--device", "TMBAudioCln_Plugin"}).output, "1 (0 dB)\n");
}

TEST(Volume, SaysThatOtherProcessesHaveTheirOwn) {
  EXPECT_THAT(Tool({"volume", "0.5"}).errors, HasSubstr("each process has controls of its own"));
  EXPECT_THAT(Tool({"volume"}).errors, IsEmpty());
}

TEST(Volume, OutOfRangeOrNoVolumeIsAUsageError) {
  for (const char* text : {"1.5", "50", "-0.1", "101%", "-1%", "loud", "0.5x", "%", "dB", "nan",
                           "nan%", "-91dB", "1dB", "nandB"}) {
    const Result run = Tool({"volume", "--", text});
    EXPECT_EQ(run.status, 2) << text << ": " << run.output << run.errors;
    EXPECT_THAT(run.output, IsEmpty()) << text;
  }
  EXPECT_THAT(Tool({"volume", "1dB"}).errors, HasSubstr("from -90 dB to 0 dB"));
}

TEST(Volume, OfAChannelThatIsNotThereIsAFailure) {
  const Result run = Tool({"volume", "--channel", "3"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("has no volume for channel 3"));
}

TEST(Mute, IsShownAndSet) {
  EXPECT_EQ(Tool({"mute"}).output, "off\n");
  EXPECT_EQ(Tool({"mute", "on"}).output, "on\n");
  EXPECT_EQ(Tool({"mute", "off"}).output, "off\n");
  EXPECT_EQ(Tool({"mute", "on", "--channel", "2", "--input"}).output, "on\n");
  EXPECT_EQ(Tool({"mute", "perhaps"}).status, 2);
  EXPECT_EQ(Tool({"mute", "--channel", "9"}).status, 1);
}

TEST(Formats, ListsWhatEachStreamCarriesAndCould) {
  const Result run = Tool({"formats", "--json"});
  ASSERT_EQ(run.status, 0) << run.errors;
  const nlohmann::json streams = nlohmann::json::parse(run.output);
  ASSERT_THAT(streams, SizeIs(2));
  EXPECT_EQ(streams[0]["direction"], "input");
  EXPECT_EQ(streams[1]["direction"], "output");
  for (const nlohmann::json& stream : streams) {
    EXPECT_EQ(stream["first_channel"], 1);
    for (const char* view : {"physical", "virtual"}) {
      const nlohmann::json& current = stream[view]["current"];
      EXPECT_EQ(current["rate"], 44100.0);
      EXPECT_EQ(current["id"], "'lpcm'");
      EXPECT_EQ(current["channels"], 2);
      EXPECT_EQ(current["bits"], 32);
      EXPECT_EQ(current["bytes_per_frame"], 8);
      ASSERT_THAT(stream[view]["available"], SizeIs(1));
      EXPECT_EQ(stream[view]["available"][0]["rates"], nlohmann::json({44100.0, 44100.0}));
    }
  }
}

TEST(Formats, ListsForPeople) {
  const Result run = Tool({"formats"});
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, StartsWith("stream "));
  EXPECT_THAT(run.output, HasSubstr(", output, from channel 1\n"));
  EXPECT_THAT(run.output, HasSubstr("  physical   44100 Hz 'lpcm'"));
  EXPECT_THAT(run.output, HasSubstr("    can be   44100 Hz 'lpcm'"));
}

TEST(Show, KnowsTheControlsProperties) {
  EXPECT_THAT(Tool({"get", "TMBAudioCln_Plugin", "mute", "output", "2"}).output, "no\n");
  EXPECT_THAT(Tool({"get", "TMBAudioCln_Plugin", "vdb#", "output"}).output, "-90 to 0\n");
}

}  // namespace
}  // namespace tembra::test
