#include "sources/DemuxerReader.h"

#include <gtest/gtest.h>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavformat/avformat.h>
}

// Later libraries do not let a program have a demuxer of its own.
#if LIBAVFORMAT_VERSION_MAJOR < 60

namespace kestrel::test {
namespace {

/// What the demuxer below does.
struct Script {
  int failures = 0;  // times that it has nothing yet before each packet
  int asked = 0;
  int left = 0;
};

Script script;

int readHeader(AVFormatContext* context) {
  AVStream* const stream = avformat_new_stream(context, nullptr);
  if (!stream) return AVERROR(ENOMEM);
  stream->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
  stream->codecpar->codec_id = AV_CODEC_ID_PCM_U8;
  stream->codecpar->sample_rate = 8000;
  av_channel_layout_default(&stream->codecpar->ch_layout, 1);
  stream->time_base = {1, 8000};
  return 0;
}

int readPacket(AVFormatContext*, AVPacket* packet) {
  ++script.asked;
  if (script.left-- > 0) return AVERROR(EAGAIN);
  script.left = script.failures;
  const int result = av_new_packet(packet, 8);
  packet->pts = packet->dts = 0;
  return result;
}

/// Asks again and again, whatever its input has.
class DemuxerReaderTest : public testing::Test {
 protected:
  DemuxerReaderTest() {
    format_.name = "patience";
    format_.flags = AVFMT_NOFILE;
    format_.read_header = &readHeader;
    format_.read_packet = &readPacket;
  }

  ~DemuxerReaderTest() override { avformat_close_input(&context_); }

  int read(int failures, int (*interrupt)(void*) = nullptr) {
    script = {failures, 0, failures};
    context_ = avformat_alloc_context();
    context_->interrupt_callback = {interrupt, nullptr};
    if (avformat_open_input(&context_, "none", &format_, nullptr) < 0) return AVERROR_BUG;
    DemuxerReader reader;
    reader.open(context_, nullptr, nullptr);
    const PacketPtr packet(av_packet_alloc());
    return reader.read(*packet);
  }

  AVInputFormat format_{};
  AVFormatContext* context_ = nullptr;
};

TEST_F(DemuxerReaderTest, NothingYetIsNoEnd) {
  EXPECT_EQ(read(20), 0);
  EXPECT_EQ(script.asked, 21);
}

TEST_F(DemuxerReaderTest, InterruptEndsTheWait) {
  EXPECT_EQ(read(1000000, [](void*) { return script.asked > 5 ? 1 : 0; }), AVERROR_EXIT);
  EXPECT_EQ(script.asked, 6);
}

TEST_F(DemuxerReaderTest, NothingForLongEndsTheWait) {
  EXPECT_EQ(read(1000000), AVERROR(EAGAIN));
  EXPECT_LT(script.asked, 1000);
}

}  // namespace
}  // namespace kestrel::test

#endif
