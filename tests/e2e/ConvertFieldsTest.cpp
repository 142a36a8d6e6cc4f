#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

#include "tests/e2e/Decoded.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

const Arguments kLossless{"--video-codec", "ffv1", "--audio-codec", "none"};

class ConvertFields : public testing::Test {
 protected:
  /// The result of a lossless conversion.
  fs::path converted(const char* name, const Arguments& options = {},
                     const std::string& extension = ".mkv") {
    const fs::path target = dir_.path() / ("out" + std::to_string(++count_) + extension);
    EXPECT_TRUE(converts(fixture(name), target, joined(kLossless, options)));
    return target;
  }

  TempDir dir_;
  int count_ = 0;
};

/// How much lines differ from the two beside them, more than from those two away: an average over
/// all pixels, by a measure that is not the converter's.
double combing(const fs::path& file) {
  const auto pictures = greyPictures(file, 320, 240);
  double sum = 0;
  for (const std::string& picture : pictures)
    for (size_t y = 2; y < 238; ++y)
      for (size_t x = 0; x < 320; ++x) {
        const auto at = [&](size_t line) {
          return static_cast<int>(static_cast<uint8_t>(picture[line * 320 + x]));
        };
        sum += std::max(0, std::abs(2 * at(y) - at(y - 1) - at(y + 1)) -
                               std::abs(2 * at(y) - at(y - 2) - at(y + 2)));
      }
  return sum / (static_cast<double>(pictures.size()) * 236 * 320);
}

TEST_F(ConvertFields, WovenFieldsAreFoundHoweverTheyAreMarked) {
  for (const char* name : {"woven-top.avi", "woven-bottom.mkv", "woven-marked.mpg"}) {
    SCOPED_TRACE(name);
    const fs::path combed = converted(name, {"--deinterlace", "off"});
    const fs::path smooth = converted(name);
    EXPECT_LT(combing(smooth), combing(combed) / 3);
    EXPECT_EQ(pictureTimes(smooth), pictureTimes(combed));
  }
}

TEST_F(ConvertFields, ProgressivePicturesStayAsTheyAre) {
  for (const char* name : {"av25.mp4", "noise.mkv", "progressive-marked.mkv"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(pictureHash(converted(name), "format=yuv420p"),
              pictureHash(fixture(name), "format=yuv420p"));
  }
}

TEST_F(ConvertFields, OfFilmWithRepeatedFieldsOnlyCombedPicturesChange) {
  const auto before = greyPictures(fixture("telecined.mkv"), 320, 240);
  const auto after = greyPictures(converted("telecined.mkv"), 320, 240);
  ASSERT_EQ(after.size(), before.size());
  int changed = 0;
  for (size_t i = 0; i < after.size(); ++i) changed += after[i] != before[i];
  // Two of five, and of these some in which nothing moves to speak of.
  EXPECT_NEAR(changed, static_cast<double>(after.size()) * 2 / 5, 3);
}

/// Each field as a picture, against a brute-force model: the fields' lines are those of the source.
TEST_F(ConvertFields, FieldsBecomePicturesInTheOrderInWhichTheyWereScanned) {
  const auto source = greyPictures(fixture("woven-bottom.mkv"), 320, 240);
  for (const char* extension : {".mkv", ".avi"}) {
    SCOPED_TRACE(extension);
    const fs::path file = converted("woven-bottom.mkv", {"--deinterlace", "bob"}, extension);
    const auto fields = greyPictures(file, 320, 240);
    EXPECT_EQ(streamOf(file, "video")["r_frame_rate"], "50/1");
    ASSERT_EQ(fields.size(), 2 * source.size());
    const auto line = [](const std::string& picture, size_t y) {
      return picture.substr(y * 320, 320);
    };
    for (size_t i = 1; i + 1 < source.size(); ++i) {
      EXPECT_EQ(line(fields[2 * i], 101), line(source[i], 101)) << i;
      EXPECT_EQ(line(fields[2 * i + 1], 100), line(source[i], 100)) << i;
    }
  }
}

TEST_F(ConvertFields, FieldsOfPicturesThatLastOneTickHaveTimesOfTheirOwn) {
  const auto times = pictureTimes(converted("woven-top.avi", {"--deinterlace", "bob"}));
  ASSERT_EQ(times.size(), 100U);
  for (size_t i = 0; i < times.size(); ++i)
    EXPECT_NEAR(times[i], static_cast<double>(i) / 50, 0.0011) << i;
}

TEST_F(ConvertFields, OfFilmWithRepeatedFieldsTheRateDoublesEvenly) {
  const fs::path file = converted("telecined.mkv", {"--deinterlace", "bob"});
  const auto times = pictureTimes(file);
  ASSERT_EQ(times.size(), 2 * pictureTimes(fixture("telecined.mkv")).size());
  for (size_t i = 1; i < times.size(); ++i)
    EXPECT_NEAR(times[i] - times[i - 1], 1001.0 / 60000, 0.0011) << i;
}

/// What ffprobe says of the fields of a file's first picture: "tff", "bff" or "progressive".
std::string fieldsOf(const fs::path& file) {
  const auto probed =
      ffprobeJson(file, {"-select_streams", "v:0", "-read_intervals", "%+#1", "-show_frames",
                         "-show_entries", "frame=interlaced_frame,top_field_first"});
  const auto& picture = probed["frames"].at(0);
  if (picture["interlaced_frame"] == 0) return "progressive";
  return picture["top_field_first"] == 1 ? "tff" : "bff";
}

TEST_F(ConvertFields, WhatStaysInterlacedIsCodedAndMarkedSo) {
  struct Row {
    const char* codec;
    const char* target;
  };
  int count = 0;
  for (const Row& row : {Row{"h264", ".mp4"}, Row{"mpeg2video", ".mkv"}, Row{"mpeg4", ".mp4"},
                         Row{"prores_ks", ".mov"}, Row{"ffv1", ".mkv"}})
    for (const auto& [name, fields, order] : {std::tuple{"woven-marked.mpg", "tff", "tt"},
                                              std::tuple{"woven-marked-bottom.mpg", "bff", "bb"}}) {
      SCOPED_TRACE(std::string(row.codec) + " " + name);
      const fs::path target = dir_.path() / ("kept" + std::to_string(++count) + row.target);
      ASSERT_TRUE(converts(fixture(name), target,
                           {"--video-codec", row.codec, "--duration", "0.2", "--audio-codec",
                            "none", "--deinterlace", "off"}));
      EXPECT_EQ(fieldsOf(target), fields);
      if (std::string(row.target) != ".mp4") {
        EXPECT_EQ(streamOf(target, "video")["field_order"], order);
      }
    }
}

TEST_F(ConvertFields, TurnedUpsideDownTheOtherFieldComesFirst) {
  EXPECT_EQ(fieldsOf(converted("woven-marked-bottom.mpg", {"--deinterlace", "off", "--vflip"})),
            "tff");
}

TEST_F(ConvertFields, FieldsThatAreNotKeptAreToldOf) {
  const auto told = [&](const Arguments& options) {
    const fs::path target = dir_.path() / ("told" + std::to_string(++count_) + ".mkv");
    return run(joined({kestrelBinary(), "convert", fixture("woven-marked.mpg").string(),
                       target.string(), "--duration", "0.1", "--deinterlace", "off"},
                      options))
        .err;
  };
  EXPECT_NE(told({"--video-codec", "vp8"}).find("libvpx does not code their fields"),
            std::string::npos);
  EXPECT_NE(told({"--video-codec", "ffv1", "--size", "160x120"}).find("fields run into each other"),
            std::string::npos);
  EXPECT_EQ(told({"--video-codec", "ffv1"}).find("field"), std::string::npos);
}

TEST_F(ConvertFields, AnArchiveKeepsThem) {
  const fs::path target = dir_.path() / "archive.mkv";
  ASSERT_TRUE(converts(fixture("woven-marked.mpg"), target, {"--preset", "archive"}));
  EXPECT_EQ(pictureHash(target, "format=yuv420p"),
            pictureHash(fixture("woven-marked.mpg"), "format=yuv420p"));
}

TEST_F(ConvertFields, ADryRunTellsWhatBecomesOfPictures) {
  const auto planned = [&](const char* name, const Arguments& options) {
    return run(joined({kestrelBinary(), "convert", fixture(name).string(), "none.mkv", "--dry-run"},
                      options))
        .out;
  };
  const std::string bob = planned("woven-top.avi", {"--deinterlace", "bob", "--denoise", "light",
                                                    "--crop", "0,0,160x120", "--rotate", "90"});
  for (const char* fact : {"all pictures deinterlaced", "a picture of each field",
                           "light denoising", "cropped to 0,0,160x120", "90° turned"})
    EXPECT_NE(bob.find(fact), std::string::npos) << fact << bob;
  EXPECT_NE(
      planned("woven-marked.mpg", {"--deinterlace", "off"}).find("interlaced, upper field first"),
      std::string::npos);
  EXPECT_NE(planned("av-rotated.mp4", {}).find("turned as its tags say"), std::string::npos);
  const auto json =
      nlohmann::json::parse(planned("woven-top.avi", {"--deinterlace", "bob", "--json"}));
  const auto& treatment = json["streams"][0]["treatment"];
  EXPECT_EQ(treatment["deinterlace"], "all");
  EXPECT_EQ(treatment["separates_fields"], true);
  EXPECT_EQ(treatment["denoise"], "off");
}

TEST_F(ConvertFields, ThumbnailsAreNotCombed) {
  const fs::path picture = dir_.path() / "picture.png";
  const RunResult result = run({kestrelBinary(), "thumb", fixture("woven-top.avi").string(),
                                picture.string(), "--time", "1"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_LT(combing(picture), combing(fixture("woven-top.avi")) / 3);
}

TEST_F(ConvertFields, InfoTells) {
  const auto told = [](const char* name) {
    const RunResult result = run({kestrelBinary(), "info", "--json", fixture(name).string()});
    return nlohmann::json::parse(result.out)["streams"][0]["scanning"];
  };
  const auto woven = told("woven-bottom.mkv");
  EXPECT_EQ(woven["scan"], "interlaced");
  EXPECT_EQ(woven["marked"], false);
  EXPECT_EQ(woven["top_field_first"], false);
  EXPECT_EQ(told("av25.mp4")["scan"], "progressive");
  const RunResult text = run({kestrelBinary(), "info", fixture("woven-bottom.mkv").string()});
  EXPECT_NE(text.out.find("interlaced, lower field first, not marked"), std::string::npos)
      << text.out;
}

TEST_F(ConvertFields, NoiseIsTakenAwayByDegrees) {
  const auto noise = [&](const Arguments& options) {
    const auto pictures = greyPictures(converted("noise.mkv", options), 160, 120);
    // The picture is even: what differs from its neighbour is noise.
    const std::string& last = pictures.back();
    double sum = 0;
    for (size_t i = 1; i < last.size(); ++i)
      sum += std::abs(static_cast<uint8_t>(last[i]) - static_cast<uint8_t>(last[i - 1]));
    return sum;
  };
  const double own = noise({});
  const double light = noise({"--denoise", "light"});
  const double medium = noise({"--denoise", "medium"});
  const double strong = noise({"--denoise", "strong"});
  EXPECT_LT(light, own * 0.97);
  EXPECT_LT(medium, light * 0.97);
  EXPECT_LT(strong, medium * 0.95);
}

TEST_F(ConvertFields, RefusesWrongChoices) {
  const auto refuses = [&](const Arguments& options, const std::string& sentence) {
    return endsWithSentence(convert(fixture("av25.mp4"), dir_.path() / "x.mp4", options), 2,
                            sentence);
  };
  EXPECT_TRUE(refuses({"--deinterlace", "maybe"}, "--deinterlace"));
  EXPECT_TRUE(refuses({"--denoise", "much"}, "--denoise"));
  EXPECT_TRUE(refuses({"--denoise", "light", "--video-codec", "copy"}, "--denoise"));
}

}  // namespace
}  // namespace kestrel::test
