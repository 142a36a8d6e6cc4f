#include "convert/plan/EncoderOptions.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/convert/Failures.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel::test {
namespace {

using Options = std::map<std::string, std::string>;

void require(const char* encoder, const Options& options) {
  const AVCodec* const known = avcodec_find_encoder_by_name(encoder);
  ASSERT_NE(known, nullptr) << encoder;
  requireEncoderOptions("videoOptions", *known, options);
}

/// What is said after the setting's name.
std::string refusal(const char* encoder, const Options& options) {
  const Failure failure = failureOf([&] { require(encoder, options); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
  EXPECT_EQ(failure.subject(), "videoOptions");
  return std::string(failure.what()).substr(std::string("videoOptions: ").size());
}

TEST(EncoderOptions, WhatAnEncoderHasIsTaken) {
  require("libx264", {{"tune", "film,zerolatency"},
                      {"preset", "5"},
                      {"profile", "high"},
                      {"aq-mode", "2"},
                      {"crf", "20.5"},
                      {"bf", "0"},
                      {"flags", "+ilme+ildct"},
                      {"me_method", "umh"},
                      {"x264-params", "keyint=10"},
                      {"coder", "vlc"}});
  require("aac", {{"profile", "aac_ltp"}, {"strict", "-2"}, {"cutoff", "8000"}});
  require("ffv1", {{"level", "3"}, {"slices", "12"}, {"slicecrc", "1"}});
  require("pcm_s16le", {{"threads", "1"}});
}

TEST(EncoderOptions, NamesThatItDoesNotHaveAreRefused) {
  EXPECT_EQ(refusal("libx264", {{"nope", "1"}}), "the encoder libx264 has no option 'nope'");
  EXPECT_EQ(refusal("ffv1", {{"slicescrc", "1"}}),
            "the encoder ffv1 has no option 'slicescrc'; did you mean 'slicecrc' or 'slices'?");
}

// x264 would tell of it past everything that hears its library.
TEST(EncoderOptions, WordsThatItsLibraryDoesNotKnowAreRefused) {
  EXPECT_EQ(refusal("libx264", {{"tune", "filn"}}),
            "the encoder libx264 has no tune 'filn'; did you mean 'film'?: it has film, animation, "
            "grain, stillimage, psnr, ssim, fastdecode, zerolatency, touhou");
  EXPECT_EQ(refusal("libx264", {{"tune", "film,foo"}}).substr(0, 40),
            "the encoder libx264 has no tune 'foo': i");
  EXPECT_EQ(refusal("libx265", {{"preset", "foo"}}).substr(0, 42),
            "the encoder libx265 has no preset 'foo': i");
}

TEST(EncoderOptions, ValuesOutOfRangeAreRefusedWithTheRange) {
  EXPECT_EQ(refusal("libvpx-vp9", {{"cpu-used", "99"}}),
            "'99' is no cpu-used of the encoder libvpx-vp9: it takes -8 to 8");
  EXPECT_EQ(refusal("libx264", {{"qp", "many"}}),
            "'many' is no qp of the encoder libx264: it takes numbers from -1");
  EXPECT_EQ(refusal("libx264", {{"mbtree", "much"}}),
            "'much' is no mbtree of the encoder libx264: it takes true or false");
  EXPECT_EQ(refusal("libx264", {{"coder", "cabak"}}),
            "'cabak' is no coder of the encoder libx264; did you mean 'cabac'?: it takes -1 to 1, "
            "default, cavlc, cabac, vlc, ac");
}

}  // namespace
}  // namespace kestrel::test
