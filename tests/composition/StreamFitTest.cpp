#include <gtest/gtest.h>
#include <kestrel/StreamFit.h>

#include <cstring>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

namespace kestrel::test {
namespace {

/// Two video streams that are alike until a test changes one.
class StreamFitTest : public testing::Test {
 protected:
  StreamFitTest() : context_(avformat_alloc_context()), first_(add()), second_(add()) {}
  ~StreamFitTest() override { avformat_free_context(context_); }

  AVStream& add() const {
    AVStream& stream = *avformat_new_stream(context_, nullptr);
    stream.codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream.codecpar->codec_id = AV_CODEC_ID_H264;
    stream.codecpar->width = 320;
    stream.codecpar->height = 180;
    stream.time_base = {1, 1000};
    return stream;
  }

  static void setCodecData(const AVStream& stream, const std::string& bytes) {
    av_freep(&stream.codecpar->extradata);
    stream.codecpar->extradata =
        static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(stream.codecpar->extradata, bytes.data(), bytes.size());
    stream.codecpar->extradata_size = static_cast<int>(bytes.size());
  }

  /// The only property in which the streams differ, "" for none and for several.
  std::string difference() const {
    const auto differences = streamDifferences(first_, second_);
    return differences.size() == 1 ? differences.front().property : "";
  }

  AVFormatContext* const context_;
  AVStream& first_;
  AVStream& second_;
};

TEST_F(StreamFitTest, EqualStreamsFit) {
  EXPECT_TRUE(streamDifferences(first_, second_).empty());
  setCodecData(first_, "the same");
  setCodecData(second_, "the same");
  EXPECT_TRUE(streamDifferences(first_, second_).empty());
}

/// The header of stereo TTA of 16 bits at 44100 Hz, whose frames have 46080 samples.
std::string ttaHeader(uint32_t samples, const std::string& checksum) {
  std::string header("TTA1\1\0\2\0\x10\0\x44\xAC\0\0", 14);
  for (int shift = 0; shift < 32; shift += 8) header += static_cast<char>(samples >> shift);
  return header + checksum;
}

TEST_F(StreamFitTest, OnlyWholeFramesOfTtaAreContinued) {
  for (AVStream* stream : {&first_, &second_}) {
    stream->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
    stream->codecpar->codec_id = AV_CODEC_ID_TTA;
  }
  setCodecData(second_, ttaHeader(1234, "abcd"));
  for (const auto& [samples, expected] :
       {std::pair{46080, ""}, {3 * 46080, ""}, {46079, "frames"}, {46081, "frames"}}) {
    setCodecData(first_, ttaHeader(static_cast<uint32_t>(samples), "efgh"));
    EXPECT_EQ(difference(), expected) << samples;
    EXPECT_EQ(streamDifferences(first_, second_).empty(), std::string(expected).empty());
  }
  std::string mono = ttaHeader(1234, "abcd");
  mono[6] = 1;
  setCodecData(second_, mono);
  setCodecData(first_, ttaHeader(46080, "efgh"));
  EXPECT_EQ(difference(), "codec data");
  setCodecData(first_, "no header");
  EXPECT_EQ(difference(), "frames");
}

TEST_F(StreamFitTest, CodecDataThatAreNotKnownAreComparedByteForByte) {
  for (AVStream* stream : {&first_, &second_}) stream->codecpar->codec_id = AV_CODEC_ID_MPEG4;
  setCodecData(first_, "some");
  EXPECT_EQ(difference(), "codec data");
  // As long, and with the same FNV-1a hash of 32 bits.
  setCodecData(first_, "declinate");
  setCodecData(second_, "macallums");
  EXPECT_EQ(difference(), "codec data");
}

TEST_F(StreamFitTest, EachPropertyCounts) {
  second_.codecpar->width = 322;
  EXPECT_EQ(difference(), "size");
  second_.codecpar->width = 320;
  second_.time_base = {1, 90000};
  EXPECT_TRUE(streamDifferences(first_, second_).empty());
  second_.codecpar->codec_id = AV_CODEC_ID_HEVC;
  EXPECT_EQ(difference(), "codec");
}

TEST_F(StreamFitTest, BlocksOfSoundCount) {
  for (AVStream* stream : {&first_, &second_}) {
    stream->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
    stream->codecpar->codec_id = AV_CODEC_ID_WMAV2;
    stream->codecpar->block_align = 743;
  }
  EXPECT_EQ(difference(), "");
  second_.codecpar->block_align = 1487;
  EXPECT_EQ(difference(), "block size");
  second_.codecpar->block_align = 0;  // not every container tells
  EXPECT_EQ(difference(), "");
  for (AVStream* stream : {&first_, &second_}) stream->codecpar->codec_id = AV_CODEC_ID_MP3;
  second_.codecpar->block_align = 1;
  first_.codecpar->bits_per_coded_sample = 16;
  second_.codecpar->bits_per_coded_sample = 32;
  EXPECT_EQ(difference(), "");
  for (AVStream* stream : {&first_, &second_}) stream->codecpar->codec_id = AV_CODEC_ID_ADPCM_G726;
  first_.codecpar->block_align = 0;
  first_.codecpar->bits_per_coded_sample = 2;
  second_.codecpar->bits_per_coded_sample = 4;
  EXPECT_EQ(difference(), "bits per sample");
}

TEST_F(StreamFitTest, SubtitlesNeedNotFitToTheTick) {
  for (AVStream* stream : {&first_, &second_}) {
    stream->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
    stream->codecpar->codec_id = AV_CODEC_ID_ASS;
  }
  second_.time_base = {1, 90000};
  second_.codecpar->width = 322;  // texts have no size of their own
  EXPECT_EQ(difference(), "");
  setCodecData(second_, "[Script Info]");
  EXPECT_EQ(difference(), "codec data");
  second_.codecpar->codec_id = AV_CODEC_ID_SUBRIP;
  EXPECT_EQ(difference(), "codec");
}

TEST_F(StreamFitTest, SizeCountsForSubtitlesThatArePictures) {
  for (AVStream* stream : {&first_, &second_}) {
    stream->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
    stream->codecpar->codec_id = AV_CODEC_ID_HDMV_PGS_SUBTITLE;
  }
  EXPECT_EQ(difference(), "");
  EXPECT_TRUE(streamDifferences(first_, second_).empty());
  second_.codecpar->width = 322;
  EXPECT_EQ(difference(), "size");
}

TEST_F(StreamFitTest, TheBitRateOfATextTrackDoesNotCount) {
  const auto bitRate = [](char rate) {
    return std::string("\0\0\0\x14", 4) + "btrt" + std::string(11, '\0') + rate;
  };
  for (AVStream* stream : {&first_, &second_}) {
    stream->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
    stream->codecpar->codec_id = AV_CODEC_ID_MOV_TEXT;
  }
  setCodecData(first_, "style" + bitRate(1));
  setCodecData(second_, "style" + bitRate(2) + bitRate(3));
  EXPECT_TRUE(streamDifferences(first_, second_).empty());
  setCodecData(second_, "other" + bitRate(1));
  EXPECT_EQ(difference(), "codec data");
}

}  // namespace
}  // namespace kestrel::test
