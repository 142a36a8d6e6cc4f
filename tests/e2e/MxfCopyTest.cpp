#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/e2e/JoinFixture.h"
#include "tests/support/Ffprobe.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// Sums of what ffmpeg decodes of files one behind the other, without its times: of the pictures
/// and of each of so many sound tracks.
std::string decoded(const std::vector<fs::path>& files, int sounds) {
  Arguments arguments;
  std::string graph;
  for (size_t i = 0; i < files.size(); ++i) {
    arguments = joined(arguments, {"-i", files[i].string()});
    const std::string input = "[" + std::to_string(i) + ":";
    graph += input + "v:0]";
    for (int track = 0; track < sounds; ++track)
      graph += input + "a:" + std::to_string(track) + "]";
  }
  graph += "concat=n=" + std::to_string(files.size()) + ":a=" + std::to_string(sounds) + "[v]";
  Arguments maps{"-map", "[v]"};
  for (int track = 0; track < sounds; ++track) {
    const std::string name = "[a" + std::to_string(track) + "]";
    graph += name;
    maps = joined(maps, {"-map", name});
  }
  return ffmpeg(joined(joined(arguments, {"-filter_complex", graph}),
                       joined(maps, {"-vsync", "passthrough", "-c:a", "pcm_s32le", "-f",
                                     "streamhash", "-hash", "crc32", "-"})));
}

/// Codec, channels and bits of a file's streams.
std::string kinds(const fs::path& file) {
  std::string all;
  const auto probed = ffprobeJson(file);
  for (const auto& stream : probed["streams"])
    all += stream.value("codec_name", "") + " " + std::to_string(stream.value("channels", 0)) +
           " " + std::to_string(stream.value("bits_per_sample", 0)) + "\n";
  return all;
}

const Arguments kCopied{"--video-codec", "copy", "--audio-codec", "copy", "--force"};
constexpr char kStudio[] = "mpeg2video 0 0\npcm_s24le 1 24\npcm_s24le 1 24\n";

/// Copies into MXF, whose muxer takes sound behind pictures only.
class MxfCopyTest : public JoinTest {
 protected:
  const fs::path output_ = folder_ / "out.mxf";
};

TEST_F(MxfCopyTest, ConversionCopiesPicturesAndSound) {
  for (const char* source : {"studio.mov", "studio.mxf"}) {
    SCOPED_TRACE(source);
    ASSERT_TRUE(converts(fixture(source), output_, kCopied));
    EXPECT_EQ(kinds(output_), kStudio);
    EXPECT_EQ(decoded({output_}, 1), decoded({fixture(source)}, 1));
  }
}

TEST_F(MxfCopyTest, CompositionCopiesPicturesAndSound) {
  for (const char* source : {"studio.mov", "studio.mxf"}) {
    SCOPED_TRACE(source);
    const std::string clip = fixture(source).string();
    const RunResult result = run({kestrelBinary(), "compose", "--force", "-o", output_.string(),
                                  clip + ":0", clip + ":1", clip + ":2"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(kinds(output_), kStudio);
    EXPECT_EQ(decoded({output_}, 2), decoded({fixture(source)}, 2));
  }
}

TEST_F(MxfCopyTest, JoinCopiesPicturesAndSound) {
  const auto clip = fixture("studio.mxf");
  const RunResult result = join({clip, clip}, output_);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("copying packets"));
  EXPECT_EQ(kinds(output_), kStudio);
  EXPECT_EQ(decoded({output_}, 2), decoded({clip, clip}, 2));
}

TEST_F(MxfCopyTest, SoundThatIsEncodedKeepsItsChannels) {
  const RunResult result = join({fixture("studio.mxf"), fixture("studio-small.mxf")}, output_);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("encoding anew"));
  const auto probed = ffprobeJson(output_);
  const auto& streams = probed["streams"];
  ASSERT_EQ(streams.size(), 3U);
  for (const size_t track : {1, 2}) EXPECT_EQ(streams[track]["channels"], 1);
}

TEST_F(MxfCopyTest, ARealClipIsCopied) {
  KESTREL_NEED_MEDIA("hdr10-720p60-prores.mxf");
  const auto clip = mediaFile("hdr10-720p60-prores.mxf");
  ASSERT_TRUE(converts(clip, output_, kCopied));
  EXPECT_EQ(kinds(output_), "prores 0 0\npcm_s24le 1 24\npcm_s24le 1 24\n");
  EXPECT_EQ(decoded({output_}, 1), decoded({clip}, 1));
}

TEST_F(MxfCopyTest, SoundOfAnotherRateIsStillRefused) {
  const auto clip = folder_ / "rate.mov";
  ffmpeg({"-i", fixture("studio.mov").string(), "-c:v", "copy", "-c:a", "pcm_s16le", "-ar", "44100",
          clip.string()});
  EXPECT_TRUE(endsWithSentence(convert(clip, output_, kCopied), 1, "pcm_s16le"));
  EXPECT_FALSE(fs::exists(output_));
}

}  // namespace
}  // namespace kestrel::test
