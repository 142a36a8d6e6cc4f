#include "convert/values/OptionValues.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string refusal(const std::function<void()>& parse) {
  try {
    parse();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
    return failure.what();
  }
  return "no failure";
}

TEST(OptionValues, Areas) {
  EXPECT_EQ(parseArea("crop", "10,20,640x360"), (Area{10, 20, 640, 360}));
  EXPECT_EQ(parseArea("crop", "-1,0,10x10"), (Area{-1, 0, 10, 10}));  // refused as a setting
  for (const char* text : {"", "1,2,3", "0,0,10", "1,2,3x4x", "1,2,3x4 ", "1;2,3x4", "a,b,cxd"})
    EXPECT_THAT(refusal([&] { parseArea("crop", text); }),
                HasSubstr("crop: '" + std::string(text) + "' is not an area"));
}

TEST(OptionValues, Watermarks) {
  EXPECT_EQ(parseWatermark("watermark", "a.png"), (Watermark{.path = "a.png"}));
  EXPECT_EQ(parseWatermark("watermark", "a.png:1,2"), (Watermark{.path = "a.png", .x = 1, .y = 2}));
  EXPECT_EQ(parseWatermark("watermark", "a:b.png:1,2.5,0.5,0.25"),
            (Watermark{.path = "a:b.png", .x = 1, .y = 2.5, .scale = 0.5, .opacity = 0.25}));
  EXPECT_EQ(parseWatermark("watermark", "10:30.png"), (Watermark{.path = "10:30.png"}));
  for (const char* text : {"a.png:1", "a.png:1,2,3,4,5"})
    EXPECT_THAT(refusal([&] { parseWatermark("watermark", text); }),
                HasSubstr("is not of the form"));
}

TEST(OptionValues, ColoursAndFontsNameWhatTheyMayMean) {
  EXPECT_EQ(parseColor("subtitle-color", "#FF0000"), (Color{1, 0, 0, 1}));
  EXPECT_THAT(refusal([] { parseColor("subtitle-color", "yelow"); }), HasSubstr("'Yellow'"));
  EXPECT_THAT(refusal([] { parseFont("subtitle-font", "No Such Typeface 30"); }),
              HasSubstr("no font 'No Such Typeface' is installed"));
  EXPECT_THAT(refusal([] { parseFont("subtitle-font", ""); }), HasSubstr("is not a font such as"));
}

TEST(OptionValues, OneOfSome) {
  EXPECT_EQ(parseZoom("zoom", "fill-width"), Zoom::kFillWidth);
  EXPECT_EQ(parseHdr("hdr", "sdr"), HdrHandling::kSdr);
  EXPECT_EQ(parseScaler("scaler", "mitchell"), (Scaler{Resampling::kMitchell, false}));
  EXPECT_EQ(parseScaler("scaler", "area,limited"), (Scaler{Resampling::kArea, true}));
  EXPECT_EQ(parseDisplayAspect("display-aspect", "source"), 0);
  EXPECT_DOUBLE_EQ(parseDisplayAspect("display-aspect", "4:3"), 4 / 3.0);
  EXPECT_EQ(parseDenoising("denoise", "medium"), Denoising::kMedium);
  EXPECT_EQ(parseChroma("chroma", "422"), ChromaSampling::k422);
  EXPECT_EQ(refusal([] { parseZoom("zoom", "big"); }),
            "zoom: 'big' is not one of stretch, fit, 16:9, 4:3, fill-width");
  EXPECT_EQ(refusal([] { parseHdr("hdr", "Keep"); }), "hdr: 'Keep' is not one of keep, sdr");
  EXPECT_THAT(refusal([] { parseScaler("scaler", "area,"); }), HasSubstr("'area,' is not"));
  EXPECT_THAT(refusal([] { parseDisplayAspect("display-aspect", "5:4"); }), HasSubstr("'5:4'"));
  EXPECT_THAT(refusal([] { parseDenoising("denoise", "much"); }), HasSubstr("'much'"));
  EXPECT_THAT(refusal([] { parseChroma("chroma", "411"); }), HasSubstr("'411'"));
}

TEST(OptionValues, Lists) {
  EXPECT_EQ(parseKeyValue("video-option", "x264-params=a=1:b=2"),
            (std::pair<std::string, std::string>("x264-params", "a=1:b=2")));
  EXPECT_EQ(parseKeyValue("video-option", "tune="),
            (std::pair<std::string, std::string>("tune", "")));
  for (const char* text : {"tune", "=film", ""})
    EXPECT_THAT(refusal([&] { parseKeyValue("video-option", text); }), HasSubstr("KEY=VALUE"));

  EXPECT_THAT(parseNames("audio-copy", "ac3,dts"), ElementsAre("ac3", "dts"));
  for (const char* text : {"", ",", "ac3,", ",ac3", "ac3,,dts"})
    EXPECT_THAT(refusal([&] { parseNames("audio-copy", text); }), HasSubstr("no list of names"));

  EXPECT_THAT(parseLadder("ladder", "1080,720p,480"), ElementsAre(1080, 720, 480));
  for (const char* text : {"1080,p", "big", "720x", "480.5"})
    EXPECT_THAT(refusal([&] { parseLadder("ladder", text); }), HasSubstr("no list of heights"));
}

}  // namespace
}  // namespace kestrel::test
