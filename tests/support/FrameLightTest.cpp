#include "support/FrameLight.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mastering_display_metadata.h>
}

namespace kestrel {
namespace {

FramePtr frameOf(AVColorTransferCharacteristic transfer) {
  FramePtr frame = makeFrame();
  frame->color_trc = transfer;
  frame->color_primaries = AVCOL_PRI_BT2020;
  return frame;
}

void addDisplay(AVFrame& frame, int peak) {
  AVMasteringDisplayMetadata* display = av_mastering_display_metadata_create_side_data(&frame);
  display->max_luminance = {peak * 10000, 10000};
  display->has_luminance = 1;
}

TEST(FrameLightTest, PqAndHlgAreHdr) {
  EXPECT_EQ(hdrLightOf(*frameOf(AVCOL_TRC_SMPTE2084))->transfer, HdrLight::Transfer::kPq);
  EXPECT_EQ(hdrLightOf(*frameOf(AVCOL_TRC_ARIB_STD_B67))->transfer, HdrLight::Transfer::kHlg);
  EXPECT_FALSE(hdrLightOf(*frameOf(AVCOL_TRC_BT709)));
  EXPECT_FALSE(hdrLightOf(*frameOf(AVCOL_TRC_UNSPECIFIED)));
}

TEST(FrameLightTest, PrimariesAreThoseOfTheFrameElseBt2020) {
  const auto frame = frameOf(AVCOL_TRC_SMPTE2084);
  EXPECT_EQ(hdrLightOf(*frame)->primaries, HdrLight::Primaries::kRec2020);
  frame->color_primaries = AVCOL_PRI_SMPTE432;
  EXPECT_EQ(hdrLightOf(*frame)->primaries, HdrLight::Primaries::kDisplayP3);
  frame->color_primaries = AVCOL_PRI_BT709;
  EXPECT_EQ(hdrLightOf(*frame)->primaries, HdrLight::Primaries::kRec709);
  frame->color_primaries = AVCOL_PRI_UNSPECIFIED;
  EXPECT_EQ(hdrLightOf(*frame)->primaries, HdrLight::Primaries::kRec2020);
}

TEST(FrameLightTest, TheBrightestLightIsTheContentsElseTheDisplaysElseAThousand) {
  const auto frame = frameOf(AVCOL_TRC_SMPTE2084);
  EXPECT_EQ(hdrLightOf(*frame)->peak, 1000);
  addDisplay(*frame, 4000);
  EXPECT_EQ(hdrLightOf(*frame)->peak, 4000);
  AVContentLightMetadata* content = av_content_light_metadata_create_side_data(frame.get());
  EXPECT_EQ(hdrLightOf(*frame)->peak, 4000) << "0 is not known";
  content->MaxCLL = 723;
  EXPECT_EQ(hdrLightOf(*frame)->peak, 723);
}

TEST(FrameLightTest, WhatTheFrameDoesNotTellItsStreamMay) {
  const std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> context(
      avformat_alloc_context(), avformat_free_context);
  AVStream* const stream = avformat_new_stream(context.get(), nullptr);
  const auto frame = frameOf(AVCOL_TRC_SMPTE2084);
  EXPECT_EQ(hdrLightOf(*frame, stream)->peak, 1000);
  uint8_t* const bytes = av_stream_new_side_data(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL,
                                                 sizeof(AVContentLightMetadata));
  const AVContentLightMetadata content{650, 100};
  std::memcpy(bytes, &content, sizeof(content));
  EXPECT_EQ(hdrLightOf(*frame, stream)->peak, 650);
  addDisplay(*frame, 2000);
  EXPECT_EQ(hdrLightOf(*frame, stream)->peak, 2000);
}

}  // namespace
}  // namespace kestrel
