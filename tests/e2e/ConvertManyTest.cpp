#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/Kestrel.h"
#include "tests/e2e/TerminalRun.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

/// A folder "in" with two movies and a text.
class ConvertMany : public testing::Test {
 protected:
  ConvertMany() {
    fs::create_directories(folder_ / "in");
    fs::copy_file(fixture("av25.mp4"), folder_ / "in/a.mp4");
    fs::copy_file(fixture("av-tracks.mkv"), folder_ / "in/b.mkv");
    std::ofstream(folder_ / "in/read.txt") << "me\n";
  }

  RunResult kestrel(const Arguments& arguments) const {
    return run(joined({kestrelBinary(), "convert"}, arguments),
               {.workingDirectory = folder_.path()});
  }

  const Arguments copy_{"--video-codec", "copy", "--audio-codec", "copy"};
  const TempDir folder_;
};

TEST_F(ConvertMany, MakesAFileOfEachAndATable) {
  const RunResult result = kestrel(joined({"in", "--into", "out", "--ext", "mkv"}, copy_));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("done  in/a.mp4  out/a.mkv"));
  EXPECT_THAT(result.out, HasSubstr("done  in/b.mkv  out/b.mkv"));
  EXPECT_THAT(result.out, Not(HasSubstr("read.txt")));
  for (const char* name : {"out/a.mkv", "out/b.mkv"})
    EXPECT_THAT(std::string(ffprobeJson(folder_ / name)["format"]["format_name"]),
                HasSubstr("matroska"));
}

TEST_F(ConvertMany, TellsProgramsInOneDocument) {
  const RunResult result = kestrel(joined({"in/a.mp4", "in/gone.mp4", "--into", "out", "--name",
                                           "{stem}-2.{ext}", "--jobs", "2", "--json"},
                                          copy_));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot open 'in/gone.mp4'"));
  const json files = json::parse(result.out)["files"];
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[0]["outcome"], "done");
  EXPECT_EQ(files[0]["output"], "out/a-2.mp4");
  EXPECT_EQ(files[0]["frames"], 50);
  EXPECT_EQ(files[0]["size"], fs::file_size(folder_ / "out/a-2.mp4"));
  EXPECT_EQ(files[1]["outcome"], "failed");
  EXPECT_THAT(std::string(files[1]["error"]), HasSubstr("No such file"));
}

TEST_F(ConvertMany, TheWorstStatusWins) {
  fs::copy_file(folder_ / "in/b.mkv", folder_ / "in/half.mkv");
  fs::resize_file(folder_ / "in/half.mkv", fs::file_size(folder_ / "in/half.mkv") / 2);
  const Arguments options = joined({"--into", "out", "--force"}, copy_);
  EXPECT_EQ(kestrel(joined({"in/a.mp4", "in/half.mkv"}, options)).status, 3);
  EXPECT_EQ(kestrel(joined({"in/half.mkv", "gone.mkv"}, options)).status, 1);
}

TEST_F(ConvertMany, AnInterruptLeavesNothingHalf) {
  fs::copy_file(fixture("av60.mp4"), folder_ / "in/c.mp4");
  Process process(
      {kestrelBinary(), "convert", "in", "--into", "out", "--ext", "mkv", "--size", "3840x2160",
       "--encoder-preset", "veryslow", "--jobs", "2", "--progress", "json"},
      {.workingDirectory = folder_.path()});
  while (!fs::exists(folder_ / "out") || fs::is_empty(folder_ / "out")) {
  }
  process.signal(SIGINT);
  const RunResult result = process.wait();
  EXPECT_EQ(result.status, 130);
  EXPECT_THAT(result.err, HasSubstr("kestrel: interrupted\n"));
  EXPECT_TRUE(fs::is_empty(folder_ / "out"));
}

TEST_F(ConvertMany, WhatMakesNoSenseIsRefusedBeforeAnythingIsWritten) {
  const struct {
    Arguments arguments;
    int status;
    std::string message;
  } kMistakes[] = {
      {{"in/a.mp4", "in/b.mkv", "out.mp4"}, 2, "several inputs need --into DIR"},
      {{"in/a.mp4", "out.mp4", "--jobs", "2"}, 2, "--jobs needs --into DIR"},
      {{"in/a.mp4", "out.mp4", "--json"}, 2, "--json needs --dry-run or --into DIR"},
      {{"--into", "out"}, 2, "input is required"},
      {{"in/a.mp4", "in/a.mp4", "--into", "out"}, 2, "would both become 'out/a.mp4'"},
      {{"in/a.mp4", "--into", "in"}, 1, "'in/a.mp4' is an input itself"},
      {{"in/a.mp4", "--into", "out", "--name", "{who}"}, 2, "--name: '{who}' is of other words"},
      {{"in/a.mp4", "--into", "out", "--jobs", "0"}, 2, "--jobs: '0' is not a whole number"},
      {{"in/read.txt", "--into", "out", "--ext", "mp4"}, 1, "in/read.txt"},
  };
  for (const auto& mistake : kMistakes) {
    const RunResult result = kestrel(mistake.arguments);
    EXPECT_EQ(result.status, mistake.status) << result.err;
    EXPECT_THAT(result.err, HasSubstr(mistake.message));
  }
  fs::create_directory(folder_ / "empty");
  EXPECT_TRUE(endsWithSentence(kestrel({"empty", "--into", "out"}), 2, "no movie or sound file"));
}

// Of a folder some have pictures and some only sound.
TEST_F(ConvertMany, APresetSuitsInputsOfAllKinds) {
  ffmpeg({"-i", fixture("av25.mp4").string(), "-vn", (folder_ / "in/sound.wav").string()});
  const RunResult result =
      kestrel({"in", "--into", "out", "--preset", "phone", "--encoder-preset", "ultrafast"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(ffprobeJson(folder_ / "out/sound.mp4")["streams"].size(), 1u);
}

TEST_F(ConvertMany, ADryRunTellsWhatWouldBeDoneAndWritesNothing) {
  const RunResult text =
      kestrel({"in/b.mkv", "out.mp4", "--size", "50%", "--sample-rate", "44100", "--dry-run"});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_THAT(text.out, HasSubstr("in/b.mkv -> out.mp4 (mp4)\n"));
  EXPECT_THAT(text.out, testing::ContainsRegex("#0 +video +encode +libx264, 160x90, 25 fps"));
  EXPECT_THAT(text.out, testing::ContainsRegex("#2 +audio +encode +aac, 44100 Hz, 2 channels"));
  EXPECT_THAT(text.out, testing::ContainsRegex("#3 +subtitle +convert +mov_text, eng"));
  const json plan = json::parse(kestrel({"in/b.mkv", "out.mp3", "--dry-run", "--json"}).out);
  EXPECT_EQ(plan["format"], "mp3");
  int leftOut = 0;
  for (const json& stream : plan["streams"]) {
    if (stream["action"] != "leave out") continue;
    ++leftOut;
    EXPECT_TRUE(stream["reason"].is_string());
  }
  EXPECT_EQ(leftOut, 3);  // pictures, the second sound track, the subtitles
  const json plans = json::parse(kestrel({"in", "--into", "x", "--dry-run", "--json"}).out);
  EXPECT_EQ(plans.size(), 2u);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()), 1);
}

TEST_F(ConvertMany, ADryRunGoesOnBehindWhatCannotBeRead) {
  const Arguments files{"in/gone.mp4", "in/a.mp4", "--into", "x", "--dry-run"};
  const RunResult text = kestrel(files);
  EXPECT_EQ(text.status, 1);
  EXPECT_THAT(text.err, HasSubstr("cannot open 'in/gone.mp4'"));
  EXPECT_THAT(text.out, HasSubstr("in/a.mp4"));
  const json plans = json::parse(kestrel(joined(files, {"--json"})).out);
  ASSERT_EQ(plans.size(), 2u);
  EXPECT_EQ(plans[0]["input"], "in/gone.mp4");
  EXPECT_THAT(std::string(plans[0]["error"]), HasSubstr("No such file"));
  EXPECT_EQ(plans[1]["output"], "x/a.mp4");
  // Wrong usage is less bad than a failure, in any order.
  for (const Arguments& both :
       {Arguments{"in/b.mkv", "in/gone.mp4"}, {"in/gone.mp4", "in/b.mkv"}}) {
    const RunResult result = kestrel(
        joined(both, {"--into", "x", "--dry-run", "--crf", "99", "--video-codec", "libx264"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("--crf"));
  }
}

TEST_F(ConvertMany, ADryRunTellsWhyATrackOfSoundIsCopied) {
  const auto reasons = [&](const Arguments& options) {
    const json plan =
        json::parse(kestrel(joined({"in/b.mkv", "out.mp4", "--dry-run", "--json"}, options)).out);
    std::vector<std::string> told;
    for (const json& stream : plan["streams"])
      if (stream["type"] == "audio" && stream["action"] == "copy")
        told.push_back(stream["reason"].get<std::string>());
    return told;
  };
  EXPECT_THAT(reasons({}), testing::Each(testing::StartsWith("aac is usual in mp4: ")));
  EXPECT_EQ(reasons({}).size(), 2u);
  EXPECT_THAT(reasons({"--audio-copy", "aac", "--audio-tracks", "1"}),
              testing::ElementsAre("aac is to be copied"));
  EXPECT_THAT(reasons({"--volume", "2"}), testing::IsEmpty());
  const std::string text = kestrel({"in/b.mkv", "out.mp4", "--dry-run"}).out;
  EXPECT_THAT(text, testing::ContainsRegex("#1 +audio +copy[^\n]*aac is usual in mp4"));
}

TEST_F(ConvertMany, EveryKeyOfADryRunIsInTheDocumentation) {
  const fs::path root = fixture("metadata.txt").parent_path().parent_path().parent_path();
  std::ifstream file(root / "docs" / "command-line.md");
  std::string page{std::istreambuf_iterator<char>(file), {}};
  page = page.substr(page.find("### A plan as JSON"));
  page.resize(page.find("### Progress as JSON"));
  const json plan =
      json::parse(kestrel({"in/b.mkv", "o.mp4", "--channels", "mono", "--dry-run", "--json"}).out);
  const auto expectNamed = [&](const json& object) {
    for (const auto& [key, value] : object.items()) EXPECT_THAT(page, HasSubstr("`" + key + "`"));
  };
  expectNamed(plan);
  for (const json& stream : plan["streams"]) expectNamed(stream);
  EXPECT_GE(plan["streams"].size(), 4u);
}

TEST_F(ConvertMany, ADryRunTellsOfLossesLoudnessAndTheWayToASize) {
  ffmpeg({"-f", "lavfi", "-i", "anoisesrc=d=1", "-ac", "6", (folder_ / "in/six.wav").string()});
  const Arguments six{"in/six.wav", "six.mp3", "--loudness", "-16", "--dry-run"};
  EXPECT_THAT(kestrel(six).out, HasSubstr("-16 LUFS, 6 channels become 2: mp3 has no more\n"));
  json sound = json::parse(kestrel(joined(six, {"--json"})).out)["streams"][0];
  EXPECT_EQ(sound["loudness"], -16);
  EXPECT_EQ(sound["losses"], json({"6 channels become 2: mp3 has no more"}));

  const Arguments limited{"in/a.mp4", "a.mkv", "--size-limit", "300k", "--dry-run"};
  const RunResult text = kestrel(limited);
  EXPECT_THAT(text.out, HasSubstr("  at most 300 kB\n"));
  EXPECT_THAT(text.out, testing::ContainsRegex("video +encode +libx264, .*, 2 passes"));
  EXPECT_THAT(text.out, testing::ContainsRegex("audio +copy"));
  const json plan = json::parse(kestrel(joined(limited, {"--json"})).out);
  EXPECT_EQ(plan["size_limit"], 300000);
  EXPECT_EQ(plan["streams"][0]["passes"], 2);
  EXPECT_TRUE(plan["streams"][1]["reason"].is_string());
  EXPECT_THAT(plan["streams"][1]["losses"], testing::IsEmpty());
}

TEST_F(ConvertMany, ATerminalIsToldWhatAConversionTookUnlessQuiet) {
  const std::string input = (folder_ / "in/a.mp4").string();
  const std::string output = (folder_ / "o.mkv").string();
  const Arguments command = joined({kestrelBinary(), "convert", input, output}, copy_);
  TerminalRun told(command);
  told.waitFor(
      "o.mkv': 0:0[12][.0-9]*, 50 pictures in .* of the source; it has 1 video track, 1 sound "
      "track");
  EXPECT_EQ(told.wait(), 0);
  // Bytes of a part are no share of the whole.
  TerminalRun part(joined(command, {"--end", "1", "--force"}));
  part.waitFor("o.mkv': 0:0[01][.0-9]*, [0-9]+ pictures in [^%]*; it has 1 video track");
  EXPECT_EQ(part.wait(), 0);
  TerminalRun quiet(joined(command, {"--quiet", "--force"}));
  EXPECT_EQ(quiet.wait(), 0);
  EXPECT_EQ(quiet.output(), "");
}

}  // namespace
}  // namespace kestrel::test
