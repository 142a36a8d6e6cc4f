#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class Presets : public testing::Test {
 protected:
  RunResult kestrel(const Arguments& arguments) const {
    return run(joined({kestrelBinary()}, arguments),
               {.workingDirectory = folder_.path(),
                .environment = {"XDG_CONFIG_HOME=" + (folder_ / "config").string()}});
  }

  /// Converts a fixture in the folder; fails where that ends otherwise than well.
  void convert(const std::string& input, const std::string& output,
               const Arguments& options) const {
    const RunResult result = kestrel(joined({"convert", fixture(input).string(), output}, options));
    EXPECT_EQ(result.status, 0) << result.err;
  }

  const TempDir folder_;
};

TEST_F(Presets, AreListedForPeopleAndPrograms) {
  const RunResult text = kestrel({"presets"});
  EXPECT_EQ(text.status, 0);
  for (const char* name : {"web-1080p", "web-720p", "phone", "television", "archive", "editing",
                           "disc-rip", "chat-10mb", "chat-25mb", "podcast", "gif"})
    EXPECT_THAT("\n" + text.out, HasSubstr("\n" + std::string(name) + " "));
  const auto document = nlohmann::json::parse(kestrel({"presets", "--json"}).out);
  EXPECT_EQ(document["folder"], (folder_ / "config/kestrel/presets").string());
  EXPECT_EQ(document["presets"][0]["name"], "web-1080p");
  EXPECT_EQ(document["presets"][0]["preset"]["ext"], "mp4");
}

TEST_F(Presets, SetWhatIsNotTypedAndNameTheContainer) {
  convert("av25.mp4", "small", {"--preset", "web-720p", "--encoder-preset", "ultrafast"});
  const auto info = ffprobeJson(folder_ / "small.mp4");
  EXPECT_EQ(info["streams"][0]["codec_name"], "h264");
  EXPECT_EQ(info["streams"][0]["width"], 320);  // never enlarged
  convert("av25.mp4", "typed.mkv", {"--preset", "web-720p", "--video-codec", "copy"});
  const auto typed = ffprobeJson(folder_ / "typed.mkv");
  EXPECT_THAT(std::string(typed["format"]["format_name"]), HasSubstr("matroska"));
  EXPECT_EQ(typed["streams"][0]["codec_name"], "h264");
}

TEST_F(Presets, OfEveryKindMakeTheirFiles) {
  convert("av25.mp4", "archive", {"--preset", "archive"});
  auto info = ffprobeJson(folder_ / "archive.mkv");
  EXPECT_EQ(info["streams"][0]["codec_name"], "ffv1");
  EXPECT_EQ(info["streams"][1]["codec_name"], "flac");
  convert("av25.mp4", "cut", {"--preset", "editing"});
  info = ffprobeJson(folder_ / "cut.mov");
  EXPECT_EQ(info["streams"][0]["codec_name"], "prores");
  EXPECT_EQ(info["streams"][1]["codec_name"], "pcm_s24le");
  convert("av25.mp4", "talk", {"--preset", "podcast"});
  info = ffprobeJson(folder_ / "talk.mp3");
  EXPECT_EQ(info["streams"].size(), 1u);
  EXPECT_EQ(info["streams"][0]["codec_name"], "mp3");
  convert("av25.mp4", "moving", {"--preset", "gif"});
  info = ffprobeJson(folder_ / "moving.gif", {"-count_packets", "-show_streams"});
  EXPECT_EQ(info["streams"][0]["codec_name"], "gif");
  EXPECT_EQ(info["streams"][0]["nb_read_packets"], "30");  // 2 s at 15 a second
}

TEST_F(Presets, TheArchiveLosesNothing) {
  convert("woven-marked.mpg", "kept", {"--preset", "archive"});
  const auto hashes = [](const std::filesystem::path& file) {
    return ffmpeg(
        {"-i", file.string(), "-map", "0:v", "-fps_mode", "passthrough", "-f", "md5", "-"});
  };
  EXPECT_EQ(hashes(folder_ / "kept.mkv"), hashes(fixture("woven-marked.mpg")));
  convert("audio-only.m4a", "sound", {"--preset", "archive"});
  EXPECT_EQ(ffprobeJson(folder_ / "sound.mkv")["streams"][0]["bits_per_raw_sample"], "24");
}

TEST_F(Presets, ATelevisionGetsSurroundAsItIsMixed) {
  convert("pcm-5.1-48000-s16.wav", "film", {"--preset", "television"});
  EXPECT_EQ(ffprobeJson(folder_ / "film.mp4")["streams"][0]["channels"], 6);
}

TEST_F(Presets, ForDiscsTakeFilesToo) {
  convert("av-copies.mkv", "ripped", {"--preset", "disc-rip", "--encoder-preset", "ultrafast"});
  const auto own = ffprobeJson(fixture("av-copies.mkv"));
  const auto info = ffprobeJson(folder_ / "ripped.mkv");
  ASSERT_EQ(info["streams"].size(), own["streams"].size());
  for (size_t i = 1; i < own["streams"].size(); ++i)
    EXPECT_EQ(info["streams"][i]["codec_name"], own["streams"][i]["codec_name"]);
}

TEST_F(Presets, ForChatsKeepALimitThatMayBeTyped) {
  convert("av25.mp4", "chat",
          {"--preset", "chat-10mb", "--size-limit", "40k", "--encoder-preset", "ultrafast"});
  EXPECT_LE(std::filesystem::file_size(folder_ / "chat.mp4"), 40'000u);
}

TEST_F(Presets, MayBeOnesOwn) {
  RunResult result = kestrel({"convert", "--preset", "phone", "--size", "50%", "--audio-codec",
                              "none", "--save-preset", "tiny"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(kestrel({"presets"}).out, HasSubstr("\ntiny "));
  convert("av25.mp4", "tiny", {"--preset", "tiny"});
  const auto info = ffprobeJson(folder_ / "tiny.mp4");
  EXPECT_EQ(info["streams"].size(), 1u);
  EXPECT_EQ(info["streams"][0]["width"], 160);
  result = kestrel({"convert", "--crf", "20", "--save-preset", "tiny"});
  EXPECT_TRUE(endsWithSentence(result, 1, "exists; --force replaces it"));
}

// What is printed of a preset is a preset.
TEST_F(Presets, MayBeAFile) {
  const RunResult shown = kestrel({"presets", "archive"});
  std::ofstream(folder_ / "mine.json") << shown.out;
  EXPECT_EQ(kestrel({"presets", "mine.json"}).out, shown.out);
}

TEST_F(Presets, WhatIsWrongIsNamed) {
  const Arguments command{"convert", fixture("av25.mp4").string(), "out.mp4", "--preset"};
  std::ofstream(folder_ / "bad.json") << R"({"sizes": "720p"})";
  EXPECT_TRUE(endsWithSentence(kestrel(joined(command, {"bad.json"})), 2,
                               "preset 'bad.json': unknown key 'sizes'; did you mean 'size'?"));
  std::ofstream(folder_ / "bad.json") << R"({"fps": "many"})";
  EXPECT_TRUE(endsWithSentence(kestrel(joined(command, {"bad.json"})), 2,
                               "preset 'bad.json': fps: 'many' is not a frame rate"));
  EXPECT_TRUE(endsWithSentence(kestrel(joined(command, {"fone"})), 2, "there is no preset 'fone'"));
  EXPECT_TRUE(
      endsWithSentence(kestrel(joined(command, {"webb"})), 2,
                       "there is no preset 'webb'; did you mean 'web-1080p' or 'web-720p'?"));
  EXPECT_TRUE(
      endsWithSentence(kestrel({"presets", "nothere"}), 2,
                       "there is no preset 'nothere'; there are web-1080p, web-720p, phone"));
  EXPECT_TRUE(endsWithSentence(kestrel(joined(command, {"no/x.json"})), 1, "cannot open"));
  EXPECT_TRUE(endsWithSentence(kestrel({"presets", "webb-720p"}), 2, "did you mean 'web-720p'?"));
}

// An option that presets do not know could not be kept in one.
TEST_F(Presets, KnowEveryOptionThatShapesAConversion) {
  const std::string help = kestrel({"convert", "--help"}).out;
  std::istringstream lines(help);
  Arguments options{"convert"};
  const std::vector<std::string> ofTheRun{
      "--help",  "--preset",    "--save-preset",   "--progress",  "--force",
      "--quiet", "--dry-run",   "--json",          "--into",      "--ext",
      "--name",  "--jobs",      "--skip-existing", "--recursive", "--resume",
      "--slurm", "--partition", "--array-limit",   "--time"};
  int count = 0;
  for (std::string line; std::getline(lines, line);) {
    const size_t begin = line.find("--");
    if (begin == std::string::npos || begin > 8) continue;
    const std::string name = line.substr(begin, line.find_first_of(" ,", begin) - begin);
    if (std::ranges::count(ofTheRun, name) > 0) continue;
    std::ofstream(folder_ / "one.json") << "{\"" << name.substr(2) << "\": null}";
    EXPECT_THAT(kestrel({"presets", "one.json"}).err, Not(HasSubstr("unknown key"))) << name;
    ++count;
  }
  EXPECT_GT(count, 40);
}

}  // namespace
}  // namespace kestrel::test
