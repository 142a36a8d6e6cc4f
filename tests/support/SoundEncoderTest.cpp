#include "support/encode/SoundEncoder.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/MuxingOwners.h"
#include "tests/support/NoMemory.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

namespace kestrel::test {
namespace {

/// Five hundred samples of silence on their way into an uncompressed stream.
class SoundEncoding : public testing::Test {
 protected:
  SoundEncoding() {
    AVCodecContext& context = *stream_.context();
    context.sample_fmt = AV_SAMPLE_FMT_S16;
    context.sample_rate = 8000;
    context.time_base = {1, 8000};
    av_channel_layout_default(&context.ch_layout, 1);
    EXPECT_FALSE(stream_.open({}));
  }

  SoundQueue queue() {
    return {.count = [this] { return waiting_; },
            .read = [this](AVFrame& frame) { waiting_ -= frame.nb_samples; }};
  }

  static OutputContextPtr makeContainer() {
    AVFormatContext* container = nullptr;
    avformat_alloc_output_context2(&container, nullptr, "wav", nullptr);
    return OutputContextPtr(container);
  }

  const OutputContextPtr container_ = makeContainer();
  StreamEncoder stream_{avformat_new_stream(container_.get(), nullptr),
                        avcodec_find_encoder(AV_CODEC_ID_PCM_S16LE), *container_->oformat};
  FirstError errors_;
  int bytes_ = 0;
  SoundEncoder encoder_{stream_, errors_,
                        [this](const PacketPtr& packet) { bytes_ += packet->size; }};
  int waiting_ = 500;
};

TEST_F(SoundEncoding, TakesTheRestAtTheEnd) {
  encoder_.finish(queue());
  EXPECT_FALSE(errors_.get());
  EXPECT_EQ(waiting_, 0);
  EXPECT_EQ(bytes_, 1000);
}

TEST_F(SoundEncoding, WithoutMemoryForWholeFramesTellsOfIt) {
  waiting_ = 5000;
  {
    const NoMemory none;
    encoder_.encode(queue());
  }
  EXPECT_EQ(errors_.get().code, AVERROR(ENOMEM));
  EXPECT_EQ(waiting_, 5000);
}

TEST_F(SoundEncoding, WithoutMemoryForTheRestTellsOfIt) {
  {
    const NoMemory none;
    encoder_.finish(queue());
  }
  EXPECT_EQ(errors_.get().code, AVERROR(ENOMEM));
}

}  // namespace
}  // namespace kestrel::test
