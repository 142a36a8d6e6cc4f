#include "support/FilterChain.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <set>

#include "support/FFmpegOwners.h"

namespace kestrel {
namespace {

const FilterChain::Filter kGreyInput{"buffer", "video_size=16x8:pix_fmt=gray:time_base=1/25"};

FramePtr greyPicture(uint8_t value, int64_t time) {
  FramePtr frame = makeFrame();
  frame->format = AV_PIX_FMT_GRAY8;
  frame->width = 16;
  frame->height = 8;
  frame->pts = time;
  EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
  for (int y = 0; y < frame->height; ++y)
    std::memset(frame->data[0] + y * frame->linesize[0], value, 16);
  return frame;
}

TEST(FilterChain, FramesGoThroughOneByOne) {
  const auto chain = FilterChain::make({kGreyInput, {"negate", ""}, {"buffersink", ""}});
  ASSERT_TRUE(chain);
  const FramePtr result = makeFrame();
  EXPECT_FALSE(chain->pull(*result));
  for (const uint8_t value : std::initializer_list<uint8_t>{0, 10, 255}) {
    const FramePtr picture = greyPicture(value, value);
    ASSERT_TRUE(chain->push(picture.get()));
    EXPECT_EQ(picture->data[0][0], value) << "the caller's own is changed";
    ASSERT_TRUE(chain->pull(*result));
    EXPECT_EQ(result->data[0][0], 255 - value);
    EXPECT_EQ(av_rescale_q(result->pts, chain->timebase(), {1, 25}), value);
    EXPECT_FALSE(chain->pull(*result));
  }
}

TEST(FilterChain, TheEndBringsWhatIsLeft) {
  const auto chain = FilterChain::make({kGreyInput, {"reverse", ""}, {"buffersink", ""}});
  ASSERT_TRUE(chain);
  const FramePtr result = makeFrame();
  for (const uint8_t value : std::initializer_list<uint8_t>{1, 2})
    ASSERT_TRUE(chain->push(greyPicture(value, value).get()));
  EXPECT_FALSE(chain->pull(*result));
  ASSERT_TRUE(chain->push(nullptr));
  ASSERT_TRUE(chain->pull(*result));
  EXPECT_EQ(result->data[0][0], 2);
  ASSERT_TRUE(chain->pull(*result));
  EXPECT_EQ(result->data[0][0], 1);
  EXPECT_FALSE(chain->pull(*result));
}

// Chroma of half the size is repeated or interpolated.
TEST(FilterChain, ConversionsOnTheWayTakeItsOptions) {
  const FramePtr picture = makeFrame();
  picture->format = AV_PIX_FMT_YUV420P;
  picture->width = 16;
  picture->height = 8;
  ASSERT_GE(av_frame_get_buffer(picture.get(), 0), 0);
  std::memset(picture->data[0], 128, 8 * static_cast<size_t>(picture->linesize[0]));
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x)
      for (const int plane : {1, 2})
        picture->data[plane][y * picture->linesize[plane] + x] = x < 4 ? 64 : 192;
  const auto colours = [&](const char* options) {
    const auto chain =
        FilterChain::make({{"buffer", "video_size=16x8:pix_fmt=yuv420p:time_base=1/25"},
                           {"format", "pix_fmts=rgba"},
                           {"buffersink", ""}},
                          options);
    const FramePtr result = makeFrame();
    if (!chain || !chain->push(picture.get()) || !chain->pull(*result)) return size_t{0};
    std::set<uint32_t> all;
    for (int x = 0; x < 16; ++x) {
      uint32_t colour = 0;
      std::memcpy(&colour, result->data[0] + 4 * x, 4);
      all.insert(colour);
    }
    return all.size();
  };
  EXPECT_EQ(colours("flags=neighbor"), 2U);
  EXPECT_GT(colours("flags=bilinear+accurate_rnd+full_chroma_int"), 2U);
}

TEST(FilterChain, WhatCannotBeMadeIsNull) {
  EXPECT_FALSE(FilterChain::make({}));
  EXPECT_FALSE(FilterChain::make({kGreyInput}));
  EXPECT_FALSE(FilterChain::make({kGreyInput, {"nosuchfilter", ""}, {"buffersink", ""}}));
  EXPECT_FALSE(FilterChain::make({kGreyInput, {"negate", "nosuchoption=1"}, {"buffersink", ""}}));
  EXPECT_FALSE(FilterChain::make({kGreyInput, {"atempo", "2"}, {"buffersink", ""}}));
  EXPECT_FALSE(FilterChain::make(
      {{"buffer", "video_size=0x0:pix_fmt=gray:time_base=1/25"}, {"buffersink", ""}}));
}

}  // namespace
}  // namespace kestrel
