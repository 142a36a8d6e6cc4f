#include <gmock/gmock.h>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::SizeIs;

class ConvertMetadata : public testing::Test {
 protected:
  /// The tags of `av-tags.mp4`, plus a place.
  std::filesystem::path taggedSource() {
    const auto source = folder_ / "source.mp4";
    ffmpeg({"-i", fixture("av-tags.mp4").string(), "-c", "copy", "-metadata",
            "location=+48.2082+016.3738/", source.string()});
    return source;
  }

  TempDir folder_;
};

TEST_F(ConvertMetadata, TagsAreKept) {
  const auto source = taggedSource();
  const auto before = ffprobeJson(source)["format"]["tags"];
  ASSERT_EQ(before["location"], "+48.2082+016.3738/");
  for (const char* name : {"out.mp4", "out.mov", "out.mkv"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(source, output, {"--video-codec", "h264"}));
    nlohmann::json tags;
    const nlohmann::json written = ffprobeJson(output)["format"]["tags"];
    for (const auto& [key, value] : written.items()) {
      std::string lowered = key;
      std::ranges::transform(lowered, lowered.begin(),
                             [](unsigned char c) { return std::tolower(c); });
      tags[lowered] = value;
    }
    EXPECT_EQ(tags["title"], "A Title");
    EXPECT_EQ(tags["artist"], "An Artist");
    EXPECT_EQ(tags["date"], "2001-02-03");
    EXPECT_EQ(tags["comment"], "Größe und Ñandú");
    EXPECT_EQ(tags["location"], "+48.2082+016.3738/");
  }
}

TEST_F(ConvertMetadata, ChaptersAreKept) {
  for (const char* name : {"out.mp4", "out.mkv"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(fixture("av-tags.mp4"), output, {"--video-codec", "h264"}));
    const auto chapters = ffprobeJson(output)["chapters"];
    ASSERT_THAT(chapters, SizeIs(2));
    EXPECT_EQ(chapters[0]["tags"]["title"], "Opening");
    EXPECT_EQ(std::stod(chapters[0]["start_time"].get<std::string>()), 0);
    EXPECT_EQ(std::stod(chapters[0]["end_time"].get<std::string>()), 0.8);
    EXPECT_EQ(chapters[1]["tags"]["title"], "Ending");
    EXPECT_EQ(std::stod(chapters[1]["start_time"].get<std::string>()), 0.8);
    EXPECT_EQ(std::stod(chapters[1]["end_time"].get<std::string>()), 2);
  }
}

TEST_F(ConvertMetadata, ChaptersMoveWithTheStart) {
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(fixture("av-tags.mp4"), output, {"--start", "0.4", "--end", "1.6"}));
  const auto chapters = ffprobeJson(output)["chapters"];
  ASSERT_THAT(chapters, SizeIs(2));
  EXPECT_NEAR(std::stod(chapters[0]["start_time"].get<std::string>()), 0, 1e-3);
  EXPECT_NEAR(std::stod(chapters[0]["end_time"].get<std::string>()), 0.4, 1e-3);
  EXPECT_NEAR(std::stod(chapters[1]["start_time"].get<std::string>()), 0.4, 1e-3);
  EXPECT_NEAR(std::stod(chapters[1]["end_time"].get<std::string>()), 1.2, 1e-3);
}

TEST_F(ConvertMetadata, LanguagesAreKept) {
  for (const char* name : {"out.mp4", "out.mkv"}) {
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(fixture("av-tracks.mkv"), output,
                         {"--audio-tracks", "1", "--video-codec", "h264"}));
    EXPECT_EQ(streamOf(output, "audio")["tags"]["language"], "fre") << name;
  }
}

/// What ffprobe tells of streams beside the pictures: languages and flags.
std::vector<std::string> labels(const std::filesystem::path& file) {
  std::vector<std::string> found;
  const auto probed = ffprobeJson(file);
  for (const auto& stream : probed["streams"]) {
    if (stream["codec_type"] == "video") continue;
    found.push_back(stream["tags"]["language"]);
    for (const char* flag : {"default", "forced", "comment"})
      if (stream["disposition"][flag] == 1) found.back() += std::string(" ") + flag;
  }
  return found;
}

// QuickTime writes languages by codes of its own, and has no place for two of the flags.
TEST_F(ConvertMetadata, FlagsAndLanguagesAreKeptOrNamed) {
  const auto source = folder_ / "source.mkv";
  ffmpeg({"-f",
          "lavfi",
          "-i",
          "testsrc2=s=64x48:r=25:d=1",
          "-f",
          "lavfi",
          "-i",
          "sine=d=1",
          "-i",
          fixture("subtitles.srt").string(),
          "-map",
          "0",
          "-map",
          "1",
          "-map",
          "1",
          "-map",
          "1",
          "-map",
          "2",
          "-map",
          "2",
          "-c:v",
          "libx264",
          "-c:a",
          "aac",
          "-c:s",
          "srt",
          "-metadata:s:a:0",
          "language=fre",
          "-metadata:s:a:1",
          "language=ger",
          "-metadata:s:a:2",
          "language=eng",
          "-metadata:s:s:0",
          "language=fre",
          "-metadata:s:s:1",
          "language=eng",
          "-disposition:a:0",
          "0",
          "-disposition:a:1",
          "default",
          "-disposition:a:2",
          "comment",
          "-disposition:s:0",
          "forced",
          "-disposition:s:1",
          "default",
          source.string()});
  const std::vector<std::string> all{"fre", "ger default", "eng comment", "fre forced",
                                     "eng default"};
  ASSERT_EQ(labels(source), all);
  for (const char* name : {"out.mp4", "out.mkv", "out.mov"}) {
    SCOPED_TRACE(name);
    const RunResult result = run({kestrelBinary(), "convert", source.string(),
                                  (folder_ / name).string(), "--video-codec", "copy"});
    EXPECT_EQ(result.status, 0);
    const bool isQuickTime = std::string_view(name).ends_with("mov");
    EXPECT_EQ(result.err.find("the flag comment of sound #3, the flag forced of subtitles #4: mov "
                              "cannot hold them") != std::string::npos,
              isQuickTime)
        << result.err;
    EXPECT_EQ(labels(folder_ / name),
              isQuickTime
                  ? (std::vector<std::string>{"fra", "ger default", "eng", "fra", "eng default"})
                  : all);
  }
}

TEST_F(ConvertMetadata, NoMetadataLeavesAllOut) {
  for (const char* name : {"out.mp4", "out.mkv"}) {
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(taggedSource(), output, {"--no-metadata", "--video-codec", "h264"}));
    const auto probed = ffprobeJson(output);
    EXPECT_THAT(probed["chapters"], SizeIs(0));
    for (const char* key : {"title", "artist", "date", "comment", "location", "TITLE", "ARTIST",
                            "DATE", "COMMENT", "LOCATION"})
      EXPECT_FALSE(probed["format"]["tags"].contains(key)) << name << ": " << key;
  }
}

}  // namespace
}  // namespace kestrel::test
