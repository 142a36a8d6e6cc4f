#include <gtest/gtest.h>

#include "tests/e2e/Decoded.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

struct Result {
  uintmax_t size;   // bytes
  double likeness;  // dB
};

class ConvertQuality : public testing::Test {
 protected:
  ConvertQuality() {
    ffmpeg({"-f", "lavfi", "-i", "mandelbrot=s=160x120:r=25,noise=alls=8:all_seed=1:allf=t", "-t",
            "1", "-pix_fmt", "yuv420p", "-c:v", "ffv1", source_.string()});
  }

  Result converted(const Arguments& options) const {
    return converted(joined({"--video-codec", "vp8"}, options), folder_ / "target.webm");
  }

  Result converted(const Arguments& options, const fs::path& target) const {
    EXPECT_TRUE(converts(source_, target, joined({"--force"}, options)));
    return {fs::file_size(target),
            psnr(pictureBytes(source_, "format=yuv420p"), pictureBytes(target, "format=yuv420p"))};
  }

  TempDir folder_;
  const fs::path source_ = folder_ / "source.mkv";
};

// The library of VP8 takes a bit rate beside the quality for a limit, and has a low one of its own.
TEST_F(ConvertQuality, OfVp8GovernsBytesAndLikeness) {
  Result before{};
  for (const char* quality : {"10", "60", "80", "95"}) {
    SCOPED_TRACE(quality);
    const Result result = converted({"--quality", quality});
    EXPECT_GT(result.size, before.size * 5 / 4);
    EXPECT_GT(result.likeness, before.likeness + 0.7);
    before = result;
  }
}

TEST_F(ConvertQuality, OfVp8InTheEncodersOwnNumbers) {
  const Result coarse = converted({"--crf", "50"});
  const Result fine = converted({"--crf", "10"});
  EXPECT_GT(fine.size, coarse.size * 3 / 2);
  EXPECT_GT(fine.likeness, coarse.likeness + 2);
  EXPECT_GT(converted({"--video-option", "crf=10"}).size, fine.size);
}

// Those that count in quantisers, of which some are missing in builds of FFmpeg.
TEST_F(ConvertQuality, OfOlderEncodersGovernsBytesAndLikeness) {
  for (const char* encoder : {"mpeg4", "msmpeg4", "wmv2", "flv", "mjpeg", "libtheora", "libxvid"}) {
    SCOPED_TRACE(encoder);
    if (run({"ffmpeg", "-v", "error", "-h", std::string("encoder=") + encoder})
            .out.find("Encoder") == std::string::npos)
      continue;
    Result before{};
    for (const char* quality : {"50", "65", "80"}) {
      SCOPED_TRACE(quality);
      const Result result =
          converted({"--video-codec", encoder, "--quality", quality}, folder_ / "target.mkv");
      EXPECT_GT(result.size, before.size * 11 / 10);
      EXPECT_GT(result.likeness, before.likeness + 0.3);
      before = result;
    }
  }
}

}  // namespace
}  // namespace kestrel::test
