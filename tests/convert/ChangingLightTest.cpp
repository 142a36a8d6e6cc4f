#include "convert/probe/Light.h"

#include <gmock/gmock.h>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dovi_meta.h>
#include <libavutil/hdr_dynamic_metadata.h>
}

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A stream that tells nothing of its light.
class ChangingLight : public testing::Test {
 protected:
  void SetUp() override { stream_ = avformat_new_stream(context_, nullptr); }
  void TearDown() override { avformat_free_context(context_); }

  AVFormatContext* context_ = avformat_alloc_context();
  AVStream* stream_ = nullptr;
};

TEST_F(ChangingLight, IsNamed) {
  const FramePtr plain = makeFrame();
  EXPECT_THAT(changingLightOf(*stream_, plain.get()), IsEmpty());
  EXPECT_THAT(changingLightOf(*stream_, nullptr), IsEmpty());

  const FramePtr bright = makeFrame();
  ASSERT_TRUE(av_dynamic_hdr_plus_create_side_data(bright.get()));
  EXPECT_THAT(changingLightOf(*stream_, bright.get()), ElementsAre("HDR10+"));
  ASSERT_TRUE(
      av_frame_new_side_data(bright.get(), AV_FRAME_DATA_DOVI_METADATA, sizeof(AVDOVIMetadata)));
  EXPECT_THAT(changingLightOf(*stream_, bright.get()), ElementsAre("HDR10+", "Dolby Vision"));
}

}  // namespace
}  // namespace kestrel::test
