#include <gmock/gmock.h>

#include "tests/e2e/Bars.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// Nearly lossless, so that what is lost is lost on the way.
const Arguments kFine{"--video-option", "qp=1", "--encoder-preset", "ultrafast"};

struct ColorCase {
  std::string source;
  std::string matrix;  // what the source is in
  std::string range;
  std::string tag;  // what the target says
};

void PrintTo(const ColorCase& color, std::ostream* stream) { *stream << color.source; }

class ConvertColor : public testing::TestWithParam<ColorCase> {
 protected:
  std::filesystem::path source() const { return fixture(GetParam().source); }

  TempDir folder_;
};

TEST_P(ConvertColor, BarsKeepTheirColors) {
  for (const char* name : {"out.mp4", "out.mkv"}) {
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(source(), output, joined(kFine, {"--video-codec", "h264"})));
    const auto before = barsSeenThrough(source(), GetParam().matrix, GetParam().range);
    ASSERT_LE(worstDifference(before, barColors()), 3) << "the source is wrong";
    EXPECT_LE(worstDifference(barsAsTagged(output), before), 2) << name;
  }
}

TEST_P(ConvertColor, TheTagsTellTheTruth) {
  const auto before = streamOf(source(), "video");
  for (const char* name : {"out.mp4", "out.mkv", "out.mov"}) {
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(source(), output, {"--video-codec", "h264"}));
    const auto video = streamOf(output, "video");
    EXPECT_EQ(video.value("color_space", ""), GetParam().tag) << name;
    EXPECT_EQ(video.value("color_range", ""), GetParam().range) << name;
    // What the source does not say is not made up.
    for (const char* key : {"color_primaries", "color_transfer"})
      EXPECT_EQ(video.value(key, "unknown"), before.value(key, "unknown")) << name << ": " << key;
  }
}

TEST_P(ConvertColor, ScalingUpToHighDefinitionKeepsTheLook) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source(), output, joined(kFine, {"--size", "1280x720"})));
  EXPECT_EQ(streamOf(output, "video")["height"], 720);
  EXPECT_LE(worstDifference(barsAsTagged(output), barColors()), 3);
}

TEST_P(ConvertColor, ScalingDownKeepsTheLook) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source(), output, joined(kFine, {"--size", "256x144"})));
  EXPECT_EQ(streamOf(output, "video")["height"], 144);
  EXPECT_LE(worstDifference(barsAsTagged(output), barColors()), 3);
}

TEST_P(ConvertColor, CodecsWithoutTagsGetLimitedRange) {
  // A player takes an untagged picture of low height for BT.601 and of limited range.
  const auto output = folder_ / "out.avi";
  ASSERT_TRUE(converts(source(), output,
                       {"--video-codec", "mpeg4", "--video-option", "qmin=1", "--video-option",
                        "qmax=2", "--video-bitrate", "20M"}));
  const auto video = streamOf(output, "video");
  EXPECT_NE(video.value("color_range", "tv"), "pc");
}

INSTANTIATE_TEST_SUITE_P(
    , ConvertColor,
    testing::Values(ColorCase{"bars-601.mp4", "bt601", "tv", "smpte170m"},
                    ColorCase{"bars-709.mp4", "bt709", "tv", "bt709"},
                    ColorCase{"bars-709-full.mp4", "bt709", "pc", "bt709"},
                    ColorCase{"bars-601-full.mp4", "bt601", "pc", "smpte170m"},
                    ColorCase{"bars-untagged-sd.mkv", "bt601", "tv", "smpte170m"},
                    ColorCase{"bars-untagged-hd.mkv", "bt709", "tv", "bt709"},
                    ColorCase{"bars-mjpeg.avi", "bt601", "pc", "bt470bg"}),
    [](const auto& tested) {
      std::string name = tested.param.source;
      std::ranges::replace_if(
          name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
      return name;
    });

class ConvertColorOf : public testing::Test {
 protected:
  TempDir folder_;
};

TEST_F(ConvertColorOf, RgbBecomesTaggedYuv) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("bars-rgb.mkv"), output, joined(kFine, {"--compatible"})));
  EXPECT_EQ(streamOf(output, "video")["pix_fmt"], "yuv420p");
  EXPECT_EQ(streamOf(output, "video")["color_range"], "tv");
  EXPECT_LE(worstDifference(barsAsTagged(output), barColors()), 2);
}

TEST_F(ConvertColorOf, TenBitsBecomeEight) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("bars-10bit.mkv"), output, joined(kFine, {"--compatible"})));
  EXPECT_EQ(streamOf(output, "video")["pix_fmt"], "yuv420p");
  EXPECT_LE(worstDifference(barsAsTagged(output), barColors()), 2);
}

TEST_F(ConvertColorOf, FullChromaBecomesSubsampled) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("bars-444.mkv"), output, joined(kFine, {"--compatible"})));
  EXPECT_EQ(streamOf(output, "video")["pix_fmt"], "yuv420p");
  EXPECT_LE(worstDifference(barsAsTagged(output), barColors()), 2);
}

TEST_F(ConvertColorOf, DepthAndChromaAreTheSources) {
  for (const auto& [name, format] :
       {std::pair{"bars-10bit.mkv", "yuv420p10le"}, {"bars-444.mkv", "yuv444p"}}) {
    const auto output = folder_ / "out.mp4";
    ASSERT_TRUE(converts(fixture(name), output, joined(kFine, {"--force"})));
    EXPECT_EQ(streamOf(output, "video")["pix_fmt"], format);
    EXPECT_LE(worstDifference(barsAsTagged(output), barColors()), 2);
  }
}

TEST_F(ConvertColorOf, ACopyKeepsItsTags) {
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(fixture("bars-709-full.mp4"), output, {"--video-codec", "copy"}));
  EXPECT_EQ(streamOf(output, "video")["color_space"], "bt709");
  EXPECT_EQ(streamOf(output, "video")["color_range"], "pc");
}

TEST_F(ConvertColorOf, ThePlaceOfChromaIsToldAsItIs) {
  for (const char* const place : {"topleft", "center", "left"}) {
    const auto source = folder_ / "source.mkv";
    ffmpeg({"-y", "-f", "lavfi", "-i", "testsrc=size=64x48:rate=25:duration=0.2", "-pix_fmt",
            "yuv420p", "-c:v", "libx264", "-chroma_sample_location", place, source.string()});
    for (const char* const encoder : {"libx264", "libx265"}) {
      const auto output = folder_ / "out.mkv";
      for (const Arguments& look : {Arguments{}, Arguments{"--saturation", "0.6"}}) {
        ASSERT_TRUE(converts(source, output, joined({"--force", "--video-codec", encoder}, look)));
        EXPECT_EQ(streamOf(output, "video").value("chroma_location", "left"), place)
            << encoder << ' ' << look.size();
      }
    }
  }
}

TEST_F(ConvertColorOf, EveryRowAndColumnSurvivesAnOddSize) {
  // 4:2:0 needs even sides: a picture of 321 × 181 loses its last column and row, and nothing else.
  const auto source = folder_ / "odd.mkv";
  ffmpeg({"-f", "lavfi", "-i", "testsrc=size=321x181:rate=25:duration=0.4", "-c:v", "ffv1",
          "-pix_fmt", "yuv444p", source.string()});
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output, kFine));
  const auto video = streamOf(output, "video");
  EXPECT_EQ(video["width"], 320);
  EXPECT_EQ(video["height"], 180);
  EXPECT_GT(
      psnr(pictureBytes(output, "scale=321:181,format=gray"), pictureBytes(source, "format=gray")),
      20);
}

}  // namespace
}  // namespace kestrel::test
