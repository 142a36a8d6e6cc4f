#include <gmock/gmock.h>

#include <sstream>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// What becomes of the samples of pictures.
class ConvertFidelity : public testing::Test {
 protected:
  /// A clip of odd sides, of samples in a format, made by a chain of filters that end in it.
  fs::path clip(const std::string& format, const std::string& filters = "null") const {
    const auto file = folder_ / "in.nut";
    ffmpeg({"-f", "lavfi", "-i", "testsrc=s=67x49:r=25:d=0.2", "-vf", filters + ",format=" + format,
            "-c:v", "rawvideo", file.string()});
    return file;
  }

  /// A hash of each decoded picture, as samples of a format.
  static std::vector<std::string> hashes(const fs::path& file, const std::string& format,
                                         const Arguments& decoder = {}) {
    std::istringstream lines(
        ffmpeg(joined(joined(decoder, {"-i", file.string()}),
                      {"-map", "0:v", "-pix_fmt", format, "-f", "framemd5", "-"})));
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);)
      if (!line.starts_with('#')) all.push_back(line.substr(line.rfind(' ') + 1));
    return all;
  }

  TempDir folder_;
  const fs::path output_ = folder_ / "out.mkv";
};

TEST_F(ConvertFidelity, WithoutALossyEncoderEverySampleStays) {
  struct Row {
    std::string format;
    std::string compared = "";  // what both are compared as; "": the format
  };
  for (const Row& row : std::vector<Row>{{"yuv420p"},
                                         {"yuv422p10le"},
                                         {"yuv444p12le"},
                                         {"gbrp"},
                                         {"gbrap"},
                                         {"gray"},
                                         {"gray16le"},
                                         {"rgb24"},
                                         {"rgb48le"},
                                         {"rgba64le"},
                                         {"yuva444p10le"},
                                         {"bgra"},
                                         {"bgr0", "rgb24"},  // of the fourth byte nothing is said
                                         {"pal8", "bgra"}}) {
    SCOPED_TRACE(row.format);
    const auto source = clip(row.format);
    ASSERT_TRUE(converts(source, output_, {"--video-codec", "ffv1", "--force"}));
    const auto& compared = row.compared.empty() ? row.format : row.compared;
    EXPECT_EQ(hashes(output_, compared), hashes(source, compared));
    EXPECT_EQ(hashes(output_, compared).size(), 5U);
  }
}

// ffmpeg turns pictures by itself as their container says.
// The container tells a beginning that two pictures lie before.
TEST_F(ConvertFidelity, WithoutSoundTheFirstPicturesStay) {
  KESTREL_NEED_MEDIA("mpeg2-mp3.ts");
  const auto source = mediaFile("mpeg2-mp3.ts");
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(convert(source, output,
                    {"--video-codec", "rawvideo", "--audio-codec", "none", "--deinterlace", "off",
                     "--duration", "1"})
                .status,
            0);
  const auto firstHashes = [&](const std::filesystem::path& file) {
    std::istringstream lines(
        runPeer({"ffmpeg", "-v", "quiet", "-i", file.string(), "-map", "0:v", "-vsync",
                 "passthrough", "-frames:v", "8", "-f", "framehash", "-"})
            .out);
    std::vector<std::string> hashes;
    for (std::string line; std::getline(lines, line);)
      if (!line.starts_with('#')) hashes.push_back(line.substr(line.rfind(' ')));
    return hashes;
  };
  EXPECT_EQ(firstHashes(output), firstHashes(source));
}

TEST_F(ConvertFidelity, ATurnKeepsTheDepthAndEverySampleOfLight) {
  struct Row {
    const char* format;
    const char* grey;
  };
  for (const Row& row : {Row{"yuv420p10le", "gray10le"}, Row{"yuv420p", "gray"}}) {
    SCOPED_TRACE(row.format);
    const auto source = folder_ / "source.mov";
    ffmpeg({"-y", "-f", "lavfi", "-i", "testsrc=s=66x48:r=25:d=0.2", "-vf",
            std::string("format=") + row.format, "-c:v", "libx265", "-preset", "ultrafast",
            "-x265-params", "lossless=1:log-level=none", source.string()});
    for (const char* turn : {"90", "180", "270"}) {
      SCOPED_TRACE(turn);
      const auto turned = folder_ / "turned.mov";
      ffmpeg({"-y", "-i", source.string(), "-c", "copy", "-metadata:s:v:0",
              std::string("rotate=") + turn, turned.string()});
      ASSERT_TRUE(converts(turned, output_, {"--video-codec", "ffv1", "--force"}));
      EXPECT_EQ(streamOf(output_, "video")["pix_fmt"], row.format);
      EXPECT_EQ(hashes(output_, row.grey), hashes(turned, row.grey));
    }
    ASSERT_TRUE(converts(source, output_,
                         {"--video-codec", "ffv1", "--force", "--hflip", "--rotate", "90"}));
    const auto expected = folder_ / "expected.nut";
    ffmpeg({"-y", "-i", source.string(), "-vf", "hflip,transpose=clock", "-c:v", "rawvideo",
            expected.string()});
    EXPECT_EQ(hashes(output_, row.grey), hashes(expected, row.grey));
  }
}

// In an odd width the last sample of colour stands for one column of pixels, the first of the
// mirrored picture: all lie where they lay.
TEST_F(ConvertFidelity, MirroredOddPicturesKeepEverySample) {
  const auto source = clip("yuv420p");
  ASSERT_TRUE(converts(source, output_, {"--video-codec", "ffv1", "--hflip"}));
  const auto expected = folder_ / "expected.nut";
  ffmpeg({"-i", source.string(), "-vf", "hflip", "-c:v", "rawvideo", expected.string()});
  EXPECT_EQ(hashes(output_, "yuv420p"), hashes(expected, "yuv420p"));
}

// Of VP8 the pictures say that they are BT.601, and no container does.
TEST_F(ConvertFidelity, ColoursThatOnlyPicturesTellStay) {
  const auto source = folder_ / "source.webm";
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=64x720:r=25:d=0.2", "-c:v", "libvpx", source.string()});
  ASSERT_TRUE(converts(source, output_, {"--video-codec", "ffv1"}));
  EXPECT_EQ(hashes(output_, "yuv420p"), hashes(source, "yuv420p"));
  EXPECT_EQ(streamOf(output_, "video")["color_space"], "bt470bg");
  const RunResult info = run({kestrelBinary(), "info", "--json", source.string()});
  EXPECT_EQ(nlohmann::json::parse(info.out)["streams"][0]["color_space"], "bt470bg");

  // What comes through a pipe can be looked at only on its way.
  const RunResult piped =
      run({"sh", "-c", "cat \"$1\" | \"$0\" convert - \"$2\" --video-codec ffv1 --force",
           kestrelBinary(), source.string(), output_.string()});
  EXPECT_EQ(piped.status, 0) << piped.err;
  EXPECT_EQ(hashes(output_, "yuv420p"), hashes(source, "yuv420p"));
  EXPECT_EQ(streamOf(output_, "video")["color_space"], "bt470bg");
}

// Samples of colour lie at the left pixel of four, between the upper and the lower ones. Cb rises
// by 2 from column to column of pixels, Cr from row to row; the nth lies at column 2n and row 2n +
// 1/2.
TEST_F(ConvertFidelity, ATurnKeepsColoursWithTheirPixels) {
  constexpr int kWidth = 64;
  constexpr int kHeight = 48;
  struct Row {
    const char* format;
    size_t bytes;
  };
  for (const Row& row : {Row{"yuv420p10le", 2}, Row{"yuv420p", 1}}) {
    SCOPED_TRACE(row.format);
    const auto source = folder_ / "source.nut";
    ffmpeg({"-y", "-f", "lavfi", "-i",
            std::string("color=s=64x48:r=25:d=0.04,format=") + row.format, "-vf",
            "geq=lum=100:cb='50+4*X':cr='51+4*Y'", "-c:v", "rawvideo", source.string()});
    const auto expectPlane = [&](const char* plane, int width, auto expected) {
      const std::string bytes = pictureBytes(output_, std::string("extractplanes=") + plane);
      ASSERT_EQ(bytes.size(), kWidth * kHeight / 4 * row.bytes);
      for (int y = 3; y < kWidth * kHeight / 4 / width - 3; ++y)
        for (int x = 3; x < width - 3; ++x) {
          const size_t at = row.bytes * static_cast<size_t>(y * width + x);
          int value = static_cast<uint8_t>(bytes[at]);
          if (row.bytes == 2) value |= static_cast<uint8_t>(bytes[at + 1]) << 8;
          ASSERT_EQ(value, expected(x, y)) << plane << ' ' << x << ' ' << y;
        }
    };
    ASSERT_TRUE(converts(source, output_, {"--video-codec", "ffv1", "--hflip", "--force"}));
    expectPlane("u", 32, [](int x, int) { return 50 + 2 * (kWidth - 1 - 2 * x); });
    expectPlane("v", 32, [](int, int y) { return 51 + 4 * y; });
    ASSERT_TRUE(converts(source, output_, {"--video-codec", "ffv1", "--rotate", "90", "--force"}));
    expectPlane("u", 24, [](int, int y) { return 50 + 2 * 2 * y + 1; });
    expectPlane("v", 24, [](int x, int) { return 50 + 2 * (kHeight - 1 - 2 * x); });
  }
}

TEST_F(ConvertFidelity, AlphaStaysWhereTheEncoderHasIt) {
  const auto source =
      clip("yuva420p", "scale=128:96,format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='X*3'");
  for (const char* container : {"out.webm", "out.mkv"}) {
    const auto output = folder_ / container;
    ASSERT_TRUE(converts(
        source, output,
        {"--video-codec", "vp9", "--video-option", "lossless=1", "--encoder-preset", "8"}));
    EXPECT_EQ(hashes(output, "yuva420p", {"-c:v", "libvpx-vp9"}), hashes(source, "yuva420p"));
  }
}

// The alpha, which lies beside the pictures, rises by 3 from column to column.
TEST_F(ConvertFidelity, Vp8KeepsAlpha) {
  const auto source = clip("yuva420p", "scale=64x48,format=rgba,geq=r=200:g=90:b=30:a='X*3'");
  const auto output = folder_ / "out.webm";
  ASSERT_TRUE(converts(source, output, {"--video-codec", "vp8"}));
  const std::string alpha = ffmpeg({"-c:v", "libvpx", "-i", output.string(), "-frames:v", "1",
                                    "-vf", "alphaextract,format=gray", "-f", "rawvideo", "-"});
  ASSERT_EQ(alpha.size(), 64U * 48);
  for (size_t x = 8; x < 56; x += 8)
    EXPECT_NEAR(static_cast<uint8_t>(alpha[x]), static_cast<int>(x) * 3, 12) << x;
}

// Half transparent white on black is grey of half the code range above black: 16 + 219 / 2 of 8
// bits, times 4 of 10.
TEST_F(ConvertFidelity, TransparentPicturesLieOnBlackInTheirOwnDepth) {
  const auto source = folder_ / "in.nut";
  ffmpeg({"-f", "lavfi", "-i", "color=white@0.5:s=64x48:d=0.2,format=rgba,format=yuva444p10le",
          "-c:v", "rawvideo", source.string()});
  const RunResult result = convert(source, output_, {"--crf", "0"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("they lie on black: libx264 knows no transparency"), std::string::npos);
  EXPECT_EQ(streamOf(output_, "video")["pix_fmt"], "yuv444p10le");
  const std::string bytes = pictureBytes(output_, "format=gray10le");
  const int grey = static_cast<uint8_t>(bytes[0]) | static_cast<uint8_t>(bytes[1]) << 8;
  // As a grey of the full range.
  EXPECT_NEAR(grey, 1023 * 0.5, 6);
}

TEST_F(ConvertFidelity, WhatIsLostIsSaid) {
  const auto source = clip("yuv444p12le", "scale=128:96");
  struct Row {
    Arguments options;
    std::vector<const char*> losses;
  };
  for (const Row& row : std::vector<Row>{
           {{"--video-codec", "libsvtav1"},
            {"12 bits become 10, as libsvtav1 takes them", "4:4:4 becomes 4:2:0, as libsvtav1"}},
           {{"--video-codec", "libsvtav1", "--depth", "8", "--chroma", "420"}, {}},
           {{"--video-codec", "ffv1", "--saturation", "0.7"}, {}},
           {{"--compatible"}, {}}}) {
    SCOPED_TRACE(testing::PrintToString(row.options));
    const RunResult result = convert(source, output_, joined({"--force"}, row.options));
    EXPECT_EQ(result.status, 0);
    for (const char* loss : row.losses) EXPECT_NE(result.err.find(loss), std::string::npos) << loss;
    const auto lines = std::ranges::count(result.err, '\n');
    EXPECT_EQ(lines, static_cast<ptrdiff_t>(row.losses.size()));
  }
}

TEST_F(ConvertFidelity, DepthAndChromaAreChosenOrRefused) {
  const auto source = clip("yuv420p", "scale=128:96");
  struct Row {
    Arguments options;
    std::string format;  // "": refused
    std::string sentence = "";
  };
  for (const Row& row : std::vector<Row>{
           {{"--depth", "10"}, "yuv420p10le"},
           {{"--depth", "10", "--chroma", "422"}, "yuv422p10le"},
           {{"--chroma", "444"}, "yuv444p"},
           {{"--video-codec", "libx265", "--depth", "12"}, "yuv420p12le"},
           {{"--video-codec", "libsvtav1", "--depth", "10"}, "yuv420p10le"},
           {{"--depth", "12"}, "", "libx264 has no 12 bits; it has 8 bits, 10 bits"},
           {{"--video-codec", "libsvtav1", "--chroma", "444"}, "", "has no 4:4:4; it has 4:2:0"},
           {{"--chroma", "411"}, "", "none of 420, 422 and 444"},
           {{"--depth", "7"}, "", "8 to 16"},
           {{"--compatible", "--depth", "10"}, "", "leave out one of the two"}}) {
    SCOPED_TRACE(testing::PrintToString(row.options));
    const RunResult result = convert(source, output_, joined({"--force"}, row.options));
    if (row.format.empty()) {
      EXPECT_TRUE(endsWithSentence(result, 2, row.sentence));
    } else {
      EXPECT_EQ(result.status, 0) << result.err;
      EXPECT_EQ(streamOf(output_, "video")["pix_fmt"], row.format);
    }
  }
}

// Enlarged beyond the lines from which players take BT.709, pictures stay BT.601, and say so.
TEST_F(ConvertFidelity, Bt601StaysBt601) {
  const auto source = folder_ / "in.nut";
  ffmpeg({"-f", "lavfi", "-i", "color=red:s=64x48:d=0.2,format=yuv420p", "-c:v", "rawvideo",
          source.string()});
  const std::string before = pictureBytes(source, "format=yuv420p").substr(0, 1);
  for (const Arguments& options : {Arguments{}, {"--size", "960x720"}}) {
    ASSERT_TRUE(converts(source, output_, joined({"--force", "--crf", "0"}, options)));
    EXPECT_EQ(streamOf(output_, "video")["color_space"], "smpte170m");
    EXPECT_EQ(pictureBytes(output_, "format=yuv420p").substr(0, 1), before);
  }
}

}  // namespace
}  // namespace kestrel::test
