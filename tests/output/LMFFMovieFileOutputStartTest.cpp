#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "support/FFmpegOwners.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

using test::smallFormat;
using test::TempDir;
using testing::HasSubstr;

TEST(LMFFMovieFileOutputStart, StartPreparesResamplerAndConverter) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_MP2));
  LMFFAudioFormat input = lm_get_default_audio_format();
  input.sample_rate = 32000;
  output.setAudioInputFormat(input);
  test::start(output, dir / "a.mkv", true, true);
  EXPECT_EQ(output.resample()->inFormat(), input);
  EXPECT_EQ(output.resample()->outFormat(), output.outputAudioFormat());
  EXPECT_EQ(output.videoConverter()->outputFormat(), output.outputVideoFormat());
  EXPECT_TRUE(std::filesystem::exists(dir / "a.mkv"));
}

// A container of tags alone is the one that today's library heads without a stream.
TEST(LMFFMovieFileOutputStart, StartWithoutStreamsOpensTheFileAndWritesTheHeader) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setPath((dir / "tags").string());
  output.setFormatName("ffmetadata");
  output.setMetadata({{"title", "Nothing to see"}});
  output.createMovieOutput();
  EXPECT_TRUE(output.startOutput());
  output.stopOutput();
  EXPECT_FALSE(output.lastError());
  std::ifstream file(dir / "tags");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  EXPECT_THAT(text, HasSubstr("title=Nothing to see"));
}

TEST(LMFFMovieFileOutputStart, StartWithoutStreamsStillOpensTheFileWhereTheHeaderIsRefused) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setPath((dir / "a.mp4").string());
  output.createMovieOutput();
  EXPECT_FALSE(output.startOutput());
  EXPECT_TRUE(output.lastError());
  output.stopOutput();
  EXPECT_TRUE(std::filesystem::exists(dir / "a.mp4"));
}

TEST(LMFFMovieFileOutputStart, StartWithoutAContainerFails) {
  LMFFMovieFileOutput output;
  EXPECT_FALSE(output.startOutput());
  EXPECT_TRUE(output.lastError());
}

TEST(LMFFMovieFileOutputStart, ContainersOfManyFilesAreNotStarted) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setPath((dir / "a%03d.png").string());
  output.setMovieFormat(smallFormat());
  output.openVideo();
  ASSERT_TRUE(output.isVideoOpen());
  EXPECT_FALSE(output.startOutput());
  EXPECT_TRUE(output.lastError());
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(LMFFMovieFileOutputStart, FileThatCannotBeOpenedIsExplained) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setPath((dir / "absent" / "a.mkv").string());
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.openVideo();
  EXPECT_FALSE(output.startOutput());
  EXPECT_EQ(output.lastError().code, AVERROR(ENOENT));
  EXPECT_EQ(output.lastError().message, "No such file or directory");
}

TEST(LMFFMovieFileOutputStart, CodecThatTheContainerHasNoPlaceForIsNamed) {
  const TempDir dir;
  for (const auto& [name, codec, codecName] :
       {std::tuple{"a.mp4", AV_CODEC_ID_VP8, "vp8"}, {"a.webm", AV_CODEC_ID_MPEG4, "mpeg4"}}) {
    LMFFMovieFileOutput output;
    output.setPath((dir / name).string());
    output.setMovieFormat(smallFormat(codec));
    output.openVideo();
    ASSERT_TRUE(output.isVideoOpen()) << name;
    EXPECT_FALSE(output.startOutput()) << name;
    EXPECT_THAT(output.lastError().message, HasSubstr(codecName)) << name;
    output.stopOutput();
  }
}

TEST(LMFFMovieFileOutputStart, StreamsAreNotAddedAfterTheStart) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_MP2));
  test::start(output, dir / "a.mkv", true, false);
  output.openAudio();
  EXPECT_FALSE(output.isAudioOpen());
  EXPECT_EQ(output.formatContext()->nb_streams, 1u);
}

TEST(LMFFMovieFileOutputStart, FileNameMayLookLikeAProtocol) {
  const TempDir dir;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  test::start(output, "12:30 – lunch.mkv", true, false);
  test::writePictures(output, 3);
  output.stopOutput();
  std::filesystem::current_path(before);
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  EXPECT_TRUE(std::filesystem::exists(dir / "12:30 – lunch.mkv"));
}

}  // namespace
}  // namespace kestrel
