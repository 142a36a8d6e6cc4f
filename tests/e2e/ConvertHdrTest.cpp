#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

std::string ffprobe(const Arguments& arguments) {
  return runPeer(joined({"ffprobe", "-v", "error"}, arguments)).out;
}

/// What becomes of the light that HDR pictures are told to have.
class ConvertHdr : public testing::Test {
 protected:
  static constexpr const char* kLight =
      "log-level=none:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)"
      "L(10000000,50):max-cll=1000,400";

  /// Pictures of PQ, or what else `transfer` says, whose light stands in the pictures alone.
  fs::path clip(const char* transfer = "smpte2084") const {
    const auto file = folder_ / "in.mkv";
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=128x96:r=25:d=0.4", "-pix_fmt", "yuv420p10le", "-c:v",
            "libx265", "-preset", "ultrafast", "-x265-params", kLight, "-color_primaries", "bt2020",
            "-color_trc", transfer, "-colorspace", "bt2020nc", file.string()});
    return file;
  }

  /// Whole numbers, one a line, of what ffprobe tells of the light: of a stream, or of its first
  /// picture. Fractions are brought to the steps of HEVC's messages.
  static std::map<std::string, int> light(const fs::path& file, bool ofPicture) {
    std::istringstream lines(
        ofPicture ? ffprobe({"-read_intervals", "%+#1", "-show_frames", file.string()})
                  : ffprobe({"-show_streams", file.string()}));
    std::map<std::string, int> values;
    for (std::string line; std::getline(lines, line);) {
      const size_t at = line.find('=');
      if (at == std::string::npos) continue;
      const std::string name = line.substr(0, at);
      const std::string value = line.substr(at + 1);
      const bool isPlace = name.ends_with("_x") || name.ends_with("_y");
      const bool isLuminance = name == "min_luminance" || name == "max_luminance";
      if (isPlace || isLuminance) {
        const double number = std::stod(value) / std::stod(value.substr(value.find('/') + 1));
        values[name] = static_cast<int>(std::lround(number * (isPlace ? 50000 : 10000)));
      } else if (name == "max_content" || name == "max_average") {
        values[name] = std::stoi(value);
      }
    }
    return values;
  }

  TempDir folder_;
  const std::map<std::string, int> expected_{{"red_x", 34000},         {"red_y", 16000},
                                             {"green_x", 13250},       {"green_y", 34500},
                                             {"blue_x", 7500},         {"blue_y", 3000},
                                             {"white_point_x", 15635}, {"white_point_y", 16450},
                                             {"min_luminance", 50},    {"max_luminance", 10000000},
                                             {"max_content", 1000},    {"max_average", 400}};
};

TEST_F(ConvertHdr, TheLightOfThePicturesIsToldByTheContainer) {
  const auto source = clip();
  ASSERT_TRUE(light(source, false).empty());
  for (const char* name : {"out.mp4", "out.mov", "out.mkv"})
    for (const char* codec : {"libx264", "libx265"}) {
      SCOPED_TRACE(std::string(codec) + " " + name);
      const auto output = folder_ / name;
      ASSERT_TRUE(converts(source, output,
                           {"--force", "--video-codec", codec, "--encoder-preset", "ultrafast"}));
      EXPECT_EQ(light(output, false), expected_);
    }
}

TEST_F(ConvertHdr, TheLightIsToldByThePictures) {
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(
      converts(clip(), output, {"--video-codec", "libx265", "--encoder-preset", "ultrafast"}));
  const auto bare = folder_ / "bare.hevc";
  ffmpeg({"-i", output.string(), "-c", "copy", bare.string()});
  EXPECT_EQ(light(bare, true), expected_);
}

// AV1 tells places in parts of 65536, the brightest light in parts of 256 and the darkest in parts
// of 16384: 0.005 becomes 82 / 16384, which is 50 ten-thousandths.
TEST_F(ConvertHdr, TheLightIsToldByPicturesOfAv1) {
  const auto output = folder_ / "out.webm";
  ASSERT_TRUE(converts(clip(), output, {"--video-codec", "libsvtav1", "--encoder-preset", "12"}));
  EXPECT_EQ(light(output, false), expected_);
  const auto bare = folder_ / "bare.obu";
  ffmpeg({"-i", output.string(), "-c", "copy", bare.string()});
  const auto told = light(bare, true);
  ASSERT_EQ(told.size(), expected_.size());
  for (const auto& [name, value] : expected_) EXPECT_NEAR(told.at(name), value, 1) << name;
}

TEST_F(ConvertHdr, TheContainersWordGoesAlong) {
  const auto first = folder_ / "first.mov";
  ASSERT_TRUE(converts(clip(), first, {"--video-codec", "prores"}));
  ASSERT_EQ(light(first, false), expected_);
  const auto second = folder_ / "second.mp4";
  ASSERT_TRUE(converts(first, second, {"--chroma", "420", "--encoder-preset", "ultrafast"}));
  EXPECT_EQ(light(second, false), expected_);
}

TEST_F(ConvertHdr, AHostsOwnWordCounts) {
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(clip(), output,
                       {"--video-codec", "libx265", "--encoder-preset", "ultrafast",
                        "--video-option", "x265-params=max-cll=700,70"}));
  const auto bare = folder_ / "bare.hevc";
  ffmpeg({"-i", output.string(), "-c", "copy", bare.string()});
  EXPECT_EQ(light(bare, true).at("max_content"), 700);
  EXPECT_EQ(light(bare, true).at("max_luminance"), 10000000);
}

TEST_F(ConvertHdr, OrdinaryPicturesAreToldNoLight) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(clip("bt709"), output, {"--encoder-preset", "ultrafast"}));
  EXPECT_TRUE(light(output, false).empty());
}

// 10 bits of a code value are four times its 8.
TEST_F(ConvertHdr, EightBitsOfPqThatIsKeptStayPqAndAreTold) {
  struct Row {
    Arguments options;
    const char* sentence;
  };
  const auto source = clip();
  const auto output = folder_ / "out.mp4";
  const std::string before = pictureBytes(source, "extractplanes=y,format=gray10le");
  for (const Row& row : std::vector<Row>{
           {{"--compatible", "--crf", "0"}, "10 bits of PQ become 8, which show steps: depth 10"},
           {{"--video-codec", "mpeg4", "--quality", "100"},
            "which show steps: HEVC and AV1 keep them"},
           {{"--crop", "0,0,128x96", "--depth", "8", "--crf", "0"},
            "which show steps: depth 10 keeps them"}}) {
    SCOPED_TRACE(testing::PrintToString(row.options));
    const RunResult result =
        convert(source, output, joined({"--force", "--hdr", "keep"}, row.options));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.sentence));
    EXPECT_EQ(std::ranges::count(result.err, '\n'), 1);
    EXPECT_EQ(streamOf(output, "video")["pix_fmt"], "yuv420p");
    EXPECT_EQ(streamOf(output, "video")["color_transfer"], "smpte2084");
    EXPECT_TRUE(light(output, false).empty());
    const std::string after = pictureBytes(output, "extractplanes=y");
    ASSERT_EQ(after.size() * 2, before.size());
    double sum = 0;
    for (size_t i = 0; i < 128 * 96; ++i) {
      const int deep = static_cast<uint8_t>(before[2 * i]) | static_cast<uint8_t>(before[2 * i + 1])
                                                                 << 8;
      sum += std::abs(static_cast<uint8_t>(after[i]) - deep / 4.0);
    }
    EXPECT_LT(sum / (128 * 96), 2);
  }
}

TEST_F(ConvertHdr, WhereSamplesHaveEightBitsItBecomesSdrAndThatIsTold) {
  struct Row {
    Arguments options;
    const char* sentence;  // "": it was asked for
  };
  for (const char* transfer : {"smpte2084", "arib-std-b67"}) {
    const auto source = clip(transfer);
    const auto output = folder_ / "out.mp4";
    for (const Row& row : std::vector<Row>{
             {{"--compatible"}, "becomes SDR, with 8 bits for 10: depth 10 keeps them"},
             {{"--video-codec", "mpeg4"}, "becomes SDR, with 8 bits for 10: HEVC and AV1 keep"},
             {{"--hdr", "sdr"}, ""},
             {{"--hdr", "sdr", "--video-codec", "libx264", "--crf", "0"}, ""}}) {
      SCOPED_TRACE(transfer + testing::PrintToString(row.options));
      const RunResult result = convert(source, output, joined({"--force"}, row.options));
      EXPECT_EQ(result.status, 0) << result.err;
      EXPECT_THAT(result.err, HasSubstr(row.sentence));
      if (!*row.sentence) {
        EXPECT_EQ(result.err, "");
      }
      auto video = streamOf(output, "video");
      EXPECT_EQ(video["pix_fmt"], "yuv420p");
      EXPECT_EQ(video["color_transfer"], "bt709");
      EXPECT_EQ(video["color_primaries"], "bt709");
      EXPECT_EQ(video["color_space"], "bt709");
      EXPECT_TRUE(light(output, false).empty());
      const bool isExact = row.options.back() == "0";
      if (!isExact) continue;
      // Full white and PQ's brightest light or HLG's are the display's white, black is black.
      const std::string luma = pictureBytes(output, "extractplanes=y");
      const auto [least, most] =
          std::ranges::minmax(luma, {}, [](char value) { return static_cast<uint8_t>(value); });
      EXPECT_NEAR(static_cast<uint8_t>(least), 16, 6);
      EXPECT_NEAR(static_cast<uint8_t>(most), 235, 8);
    }
  }
}

/// HDR10+ as a stream of HEVC has it: a message before each picture, of SMPTE ST 2094-40 in a
/// registered one of ITU-T T.35.
class ConvertHdrPlus : public ConvertHdr {
 protected:
  static std::string message() {
    std::string bits;
    const auto add = [&](uint32_t value, int count) {
      for (int bit = count - 1; bit >= 0; --bit) bits += (value >> bit & 1) ? '1' : '0';
    };
    add(0xB5, 8);  // a country, a provider, its code, the application and its version
    add(0x003C, 16);
    add(0x0001, 16);
    add(4, 8);
    add(1, 8);
    add(1, 2);     // windows
    add(400, 27);  // the display's luminance
    add(0, 1);     // no actual luminance
    for (int i = 0; i < 3; ++i) add(50001, 17);
    add(10101, 17);  // the average of the brightest components
    add(0, 4);       // no distribution
    add(111, 10);    // bright pixels
    add(0, 1);       // no actual luminance when mastered
    add(0, 1);       // no curve
    add(0, 1);       // no saturation
    while (bits.size() % 8 != 0) bits += '0';
    std::string bytes;
    for (size_t at = 0; at < bits.size(); at += 8)
      bytes += static_cast<char>(std::stoi(bits.substr(at, 8), nullptr, 2));
    std::string unit{0x4E, 0x01, 0x04};  // before a picture, registered
    unit += static_cast<char>(bytes.size());
    unit += bytes;
    std::string escaped{0, 0, 0, 1};
    int zeros = 0;
    for (const char byte : unit + '\x80') {
      if (zeros == 2 && static_cast<uint8_t>(byte) <= 3) {
        escaped += 3;
        zeros = 0;
      }
      escaped += byte;
      zeros = byte == 0 ? zeros + 1 : 0;
    }
    return escaped;
  }

  fs::path hdrPlus() const {
    const auto bare = folder_ / "bare.hevc";
    ffmpeg({"-i", clip().string(), "-c", "copy", bare.string()});
    std::ifstream in(bare, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    std::string with;
    for (size_t at = 0; at < bytes.size(); ++at) {
      const bool begins = bytes.compare(at, 3, std::string("\0\0\1", 3)) == 0;
      const int type = begins && at + 3 < bytes.size() ? bytes[at + 3] >> 1 & 63 : 63;
      if (type < 32) with += message();  // a picture of one slice
      with += bytes[at];
    }
    const auto file = folder_ / "plus.hevc";
    std::ofstream(file, std::ios::binary) << with;
    const auto contained = folder_ / "plus.mkv";
    ffmpeg({"-i", file.string(), "-c", "copy", "-bsf:v", "setts=pts=N*40:dts=N*40",
            contained.string()});
    return contained;
  }

  static std::string firstPicture(const fs::path& file) {
    return ffprobe({"-read_intervals", "%+#3", "-show_frames", file.string()});
  }
};

TEST_F(ConvertHdrPlus, StaysWithCopiedPictures) {
  const auto source = hdrPlus();
  ASSERT_THAT(firstPicture(source), HasSubstr("HDR10+"));
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output, {"--video-codec", "copy"}));
  EXPECT_THAT(firstPicture(output), HasSubstr("HDR10+"));
}

TEST_F(ConvertHdrPlus, IsMissedWherePicturesAreEncodedAndTheRestStays) {
  const auto output = folder_ / "out.mkv";
  const RunResult result = convert(
      hdrPlus(), output, {"--video-codec", "libx265", "--encoder-preset", "ultrafast", "--force"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("their HDR10+, which libx265 does not write"));
  EXPECT_THAT(firstPicture(output), Not(HasSubstr("HDR10+")));
  EXPECT_EQ(light(output, false), expected_);
}

/// Dolby Vision of profile 8.1, level 1, whose record takes the place of the mastering display's in
/// an MPEG-4 file: both have 24 bytes.
class ConvertDolbyVision : public ConvertHdr {
 protected:
  fs::path dolbyVision() const {
    const auto file = folder_ / "light.mp4";
    if (!converts(clip(), file, {"--video-codec", "libx265", "--encoder-preset", "ultrafast"}))
      return {};
    std::ifstream in(file, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const size_t at = bytes.find("mdcv");
    if (at == std::string::npos) return {};
    const std::string record{"dvcC\x01\x00\x10\x0d\x10", 9};
    bytes.replace(at, 28, record + std::string(19, '\0'));
    const auto dolby = folder_ / "dolby.mp4";
    std::ofstream(dolby, std::ios::binary) << bytes;
    return dolby;
  }
};

TEST_F(ConvertDolbyVision, StaysWithCopiedPictures) {
  const auto source = dolbyVision();
  ASSERT_THAT(ffprobe({"-show_streams", source.string()}), HasSubstr("dv_profile=8"));
  for (const char* name : {"out.mp4", "out.mkv"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(source, output, {"--video-codec", "copy"}));
    const std::string told = ffprobe({"-show_streams", output.string()});
    EXPECT_THAT(told, HasSubstr("dv_profile=8"));
    EXPECT_THAT(told, HasSubstr("dv_level=1"));
    EXPECT_THAT(told, HasSubstr("rpu_present_flag=1"));
    EXPECT_THAT(told, HasSubstr("dv_bl_signal_compatibility_id=1"));
  }
}

TEST_F(ConvertDolbyVision, IsMissedWherePicturesAreEncoded) {
  const auto output = folder_ / "out.mp4";
  const RunResult result =
      convert(dolbyVision(), output, {"--encoder-preset", "ultrafast", "--force"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("their Dolby Vision, which libx264 does not write"));
  EXPECT_THAT(ffprobe({"-show_streams", output.string()}), Not(HasSubstr("dv_profile")));
}

}  // namespace
}  // namespace kestrel::test
