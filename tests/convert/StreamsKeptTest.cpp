#include <gmock/gmock.h>
#include <kestrel/convert/Conversion.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

/// A film with three tracks of sound, two of subtitles, a cover, a font and two chapters.
class StreamsKept : public testing::Test {
 protected:
  void SetUp() override {
    const fs::path plain = folder_ / "plain.mkv";
    const fs::path cover = folder_ / "cover.jpg";
    const fs::path font = folder_ / "Letters.ttf";
    const fs::path chapters = folder_ / "chapters.txt";
    std::ofstream(font) << "not a font that anybody draws with";
    std::ofstream(chapters) << ";FFMETADATA1\ntitle=The film\n"
                               "[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=900\ntitle=First\n"
                               "[CHAPTER]\nTIMEBASE=1/1000\nSTART=900\nEND=2000\ntitle=Second\n";
    make({"-f", "lavfi", "-i", "testsrc2=s=64x36:d=1", "-frames:v", "1", cover.string()});
    make({"-f",
          "lavfi",
          "-i",
          "testsrc2=s=64x36:r=10:d=2",
          "-f",
          "lavfi",
          "-i",
          "sine=f=440:r=48000:d=2",
          "-f",
          "lavfi",
          "-i",
          "sine=f=880:r=48000:d=2",
          "-f",
          "lavfi",
          "-i",
          "sine=f=220:r=48000:d=2",
          "-i",
          fixture("subtitles.srt").string(),
          "-i",
          fixture("overlapping.srt").string(),
          "-i",
          chapters.string(),
          "-map",
          "0",
          "-map",
          "1",
          "-map",
          "2",
          "-map",
          "3",
          "-map",
          "4",
          "-map",
          "5",
          "-map_metadata",
          "6",
          "-map_chapters",
          "6",
          "-c:v",
          "mpeg4",
          "-c:a",
          "aac",
          "-c:s",
          "srt",
          "-metadata:s:a:0",
          "language=eng",
          "-metadata:s:a:1",
          "language=fre",
          "-metadata:s:a:1",
          "title=Doublage",
          "-metadata:s:a:2",
          "language=ger",
          "-disposition:a:0",
          "default",
          "-disposition:a:2",
          "comment",
          "-metadata:s:s:0",
          "language=eng",
          "-metadata:s:s:1",
          "language=fre",
          "-disposition:s:0",
          "forced",
          "-disposition:s:1",
          "default",
          "-attach",
          font.string(),
          "-metadata:s:t:0",
          "mimetype=application/x-truetype-font",
          "-attach",
          cover.string(),
          "-metadata:s:t:1",
          "mimetype=image/jpeg",
          source_.string()});
  }

  static void make(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-nostdin", "-y"});
    const RunResult result = run(arguments);
    if (result.status != 0) throw std::runtime_error(result.err);
  }

  Report convert(const std::string& extension, ConversionSettings settings = {}) {
    output_ = folder_ / ("out." + extension);
    settings.input = source_.string();
    settings.output = output_.string();
    settings.replaces = true;
    Report report = Conversion(settings).run();
    told_ = ffprobeJson(output_);
    return report;
  }

  /// "eng Title default forced" of each of the result's streams of a type.
  std::vector<std::string> tracks(const std::string& type) const {
    std::vector<std::string> tracks;
    for (const auto& stream : told_["streams"]) {
      if (stream["codec_type"] != type || stream["disposition"]["attached_pic"] == 1) continue;
      const auto tags = stream.value("tags", nlohmann::json::object());
      std::string track = tags.value("language", "und");
      for (const char* name : {"title", "handler_name"})
        if (tags.value(name, "") == "Doublage") track += " Doublage";
      for (const char* flag : {"default", "forced", "comment"})
        if (stream["disposition"][flag] == 1) track += std::string(" ") + flag;
      tracks.push_back(track);
    }
    return tracks;
  }

  bool hasCover() const {
    for (const auto& stream : told_["streams"])
      if (stream["disposition"]["attached_pic"] == 1) return true;
    return false;
  }

  std::vector<std::string> chapters() const {
    std::vector<std::string> chapters;
    for (const auto& chapter : told_["chapters"])
      chapters.push_back(chapter["start_time"].get<std::string>().substr(0, 3) + " " +
                         chapter["tags"].value("title", ""));
    return chapters;
  }

  const std::vector<std::string> chapters_{"0.0 First", "0.9 Second"};
  TempDir folder_;
  const fs::path source_ = folder_ / "film.mkv";
  fs::path output_;
  nlohmann::json told_;
};

TEST_F(StreamsKept, MatroskaHoldsAll) {
  EXPECT_THAT(convert("mkv").leftOut, IsEmpty());
  EXPECT_THAT(tracks("audio"), ElementsAre("eng default", "fre Doublage", "ger comment"));
  EXPECT_THAT(tracks("subtitle"), ElementsAre("eng forced", "fre default"));
  EXPECT_THAT(tracks("attachment"), ElementsAre("und"));
  EXPECT_TRUE(hasCover());
  EXPECT_EQ(chapters(), chapters_);
  EXPECT_EQ(told_["format"]["tags"]["title"], "The film");
}

TEST_F(StreamsKept, Mpeg4HoldsAllButTheFont) {
  EXPECT_THAT(convert("mp4").leftOut, ElementsAre(HasSubstr("font #6 (Letters.ttf, ttf)"),
                                                  HasSubstr("the title of sound #2: mp4")));
  EXPECT_EQ(tracks("audio").size(), 3U);
  EXPECT_THAT(tracks("audio")[0], HasSubstr("eng default"));
  EXPECT_THAT(tracks("audio")[1], HasSubstr("fre"));
  EXPECT_THAT(tracks("audio")[2], HasSubstr("ger"));
  ASSERT_EQ(tracks("subtitle").size(), 2U);
  EXPECT_THAT(tracks("subtitle")[0], HasSubstr("eng"));
  EXPECT_THAT(tracks("subtitle")[1], HasSubstr("fre"));
  EXPECT_TRUE(hasCover());
  EXPECT_EQ(chapters(), chapters_);
  EXPECT_EQ(told_["format"]["tags"]["title"], "The film");
}

TEST_F(StreamsKept, QuickTimeHoldsTracksAndChapters) {
  const auto lost = convert("mov").leftOut;
  EXPECT_THAT(lost, Contains(HasSubstr("font #6")));
  EXPECT_THAT(lost, Contains(HasSubstr("cover #7")));
  EXPECT_THAT(lost, Contains(HasSubstr("the flag comment of sound #3")));
  EXPECT_EQ(lost.size(), 3U);
  EXPECT_EQ(tracks("audio").size(), 3U);
  EXPECT_EQ(tracks("subtitle").size(), 2U);
  EXPECT_EQ(chapters(), chapters_);
}

TEST_F(StreamsKept, WebMHoldsTracksAndChapters) {
  const auto lost = convert("webm").leftOut;
  EXPECT_THAT(lost, Contains(HasSubstr("font #6")));
  EXPECT_THAT(lost, Contains(HasSubstr("cover #7")));
  EXPECT_THAT(lost, Contains(HasSubstr("the flag comment of sound #3")));
  EXPECT_EQ(lost.size(), 3U);
  EXPECT_THAT(tracks("audio"), ElementsAre("eng default", "fre Doublage", "ger"));
  ASSERT_EQ(tracks("subtitle").size(), 2U);
  EXPECT_EQ(chapters(), chapters_);
}

TEST_F(StreamsKept, TransportStreamsHoldSoundWithItsLanguages) {
  const auto lost = convert("ts").leftOut;
  for (const char* name : {"subtitles #4", "subtitles #5", "font #6", "cover #7", "2 chapters"})
    EXPECT_THAT(lost, Contains(HasSubstr(name)));
  EXPECT_EQ(lost.size(), 6U);
  ASSERT_EQ(tracks("audio").size(), 3U);
  for (size_t i = 0; i < 3; ++i)
    EXPECT_THAT(tracks("audio")[i], HasSubstr(std::vector<std::string>{"eng", "fre", "ger"}[i]));
}

TEST_F(StreamsKept, AviHoldsSound) {
  const auto lost = convert("avi").leftOut;
  for (const char* name : {"subtitles #4", "subtitles #5", "font #6", "cover #7", "2 chapters"})
    EXPECT_THAT(lost, Contains(HasSubstr(name)));
  EXPECT_EQ(tracks("audio").size(), 3U);
}

TEST_F(StreamsKept, WhatIsChosenGoesAlongAndTheRestIsNotMissed) {
  const Report report = convert("mkv", {.audioTracks = TrackChoice::of({0, 2}),
                                        .subtitleTracks = TrackChoice::in("fr"),
                                        .keepsAttachments = false});
  EXPECT_THAT(report.leftOut, IsEmpty());
  EXPECT_THAT(tracks("audio"), ElementsAre("eng default", "ger comment"));
  EXPECT_THAT(tracks("subtitle"), ElementsAre("fre default"));
  EXPECT_THAT(tracks("attachment"), IsEmpty());
  EXPECT_FALSE(hasCover());
  EXPECT_THAT(convert("mkv", {.keepsSubtitles = false}).leftOut, IsEmpty());
  EXPECT_THAT(tracks("subtitle"), IsEmpty());
}

TEST_F(StreamsKept, AMixIsOneTrackBesideTheSubtitles) {
  EXPECT_THAT(convert("mkv", {.audioTracks = TrackChoice::of({1, 2}), .mixesAudio = true}).leftOut,
              IsEmpty());
  EXPECT_EQ(tracks("audio").size(), 1U);
  EXPECT_EQ(tracks("subtitle").size(), 2U);
}

}  // namespace
}  // namespace kestrel::test
