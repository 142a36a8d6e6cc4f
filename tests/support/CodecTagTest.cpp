#include "support/copy/CodecTag.h"

#include <gtest/gtest.h>

namespace kestrel {
namespace {

constexpr uint32_t kHvc1 = MKTAG('h', 'v', 'c', '1');
constexpr uint32_t kHev1 = MKTAG('h', 'e', 'v', '1');
constexpr uint32_t kProResLT = MKTAG('a', 'p', 'c', 's');

uint32_t tagIn(const char* container, AVCodecID codec, uint32_t tag) {
  return codecTagFor(*av_guess_format(container, nullptr, nullptr), codec, tag);
}

TEST(CodecTag, OfHevcIsTheOneThatPlayersTake) {
  EXPECT_EQ(tagIn("mp4", AV_CODEC_ID_HEVC, kHev1), kHvc1);
  EXPECT_EQ(tagIn("mp4", AV_CODEC_ID_HEVC, 0), kHvc1);
  EXPECT_EQ(tagIn("mov", AV_CODEC_ID_HEVC, kHvc1), kHvc1);
  EXPECT_EQ(tagIn("mpegts", AV_CODEC_ID_HEVC, 0), 0U);
}

TEST(CodecTag, IsKeptWhereItMeansTheSame) {
  EXPECT_EQ(tagIn("mov", AV_CODEC_ID_PRORES, kProResLT), kProResLT);
  EXPECT_EQ(tagIn("mov", AV_CODEC_ID_H264, MKTAG('a', 'v', 'c', '1')), MKTAG('a', 'v', 'c', '1'));
  // AVI's tag of MPEG-4 is none of QuickTime's.
  EXPECT_EQ(tagIn("mov", AV_CODEC_ID_MPEG4, MKTAG('F', 'M', 'P', '4')), 0U);
  EXPECT_EQ(tagIn("mp4", AV_CODEC_ID_H264, 0), 0U);
}

}  // namespace
}  // namespace kestrel
