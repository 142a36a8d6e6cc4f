#include <gtest/gtest.h>

#include "tests/e2e/Decoded.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

class ConvertGif : public testing::Test {
 protected:
  fs::path source(const std::string& graph, const std::string& format) const {
    const auto file = folder_ / "source.mkv";
    ffmpeg(
        {"-f", "lavfi", "-i", graph, "-t", "1", "-pix_fmt", format, "-c:v", "ffv1", file.string()});
    return file;
  }

  RunResult convert(const fs::path& file, const Arguments& options = {}) const {
    return run(
        joined({kestrelBinary(), "convert", file.string(), target_.string(), "--force"}, options));
  }

  TempDir folder_;
  const fs::path target_ = folder_ / "target.gif";
};

TEST_F(ConvertGif, ColoursAreThoseOfThePictures) {
  const auto file = source("mandelbrot=s=160x120:r=10", "yuv420p");
  for (const Arguments& options : {Arguments{}, Arguments{"--preset", "gif"}}) {
    ASSERT_EQ(convert(file, options).status, 0);
    const std::string wanted = pictureBytes(file, "format=gbrp");
    const double fixed = psnr(wanted, pictureBytes(file, "format=bgr8,format=gbrp"));
    const double own = psnr(wanted, pictureBytes(target_, "format=gbrp"));
    EXPECT_GT(own, fixed + 10);
    EXPECT_GT(own, 33);
  }
}

TEST_F(ConvertGif, WhatIsTransparentStaysSo) {
  const auto file = source(
      "testsrc2=s=64x48:r=10,format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='255*gt(X,20)'",
      "bgra");
  ASSERT_EQ(convert(file).status, 0);
  EXPECT_EQ(pictureHash(target_, "alphaextract,format=gray"),
            pictureHash(file, "alphaextract,format=gray"));
}

TEST_F(ConvertGif, TheLossIsTold) {
  const auto file = source("testsrc2=s=64x48:r=10", "yuv420p");
  const RunResult result = convert(file);
  EXPECT_NE(result.err.find("a scene has 255 colours"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace kestrel::test
