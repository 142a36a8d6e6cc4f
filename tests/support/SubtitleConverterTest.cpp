#include "support/encode/SubtitleConverter.h"

#include <gmock/gmock.h>

#include <string>

#include "support/FFmpegError.h"
#include "tests/support/BareStreams.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

constexpr AVRational kMilliseconds{1, 1000};

/// Turns texts of one form, in ticks of a millisecond, into another.
class SubtitleConverterTest : public testing::Test {
 protected:
  AVStream& stream(AVCodecID codec) {
    return streams_.add(AVMEDIA_TYPE_SUBTITLE, codec, kMilliseconds);
  }

  static PacketPtr packet(const std::string& text, int64_t time, int64_t duration) {
    PacketPtr packet = barePacket(Bytes(text.begin(), text.end()));
    packet->pts = packet->dts = time;
    packet->duration = duration;
    return packet;
  }

  static std::string textOf(const AVPacket& packet) {
    const Bytes bytes = bytesOf(packet);
    return {bytes.begin(), bytes.end()};
  }

  BareStreams streams_;
};

TEST_F(SubtitleConverterTest, DescribesItsStream) {
  AVStream& output = stream(AV_CODEC_ID_NONE);
  const SubtitleConverter converter(stream(AV_CODEC_ID_SUBRIP), output, AV_CODEC_ID_ASS);
  EXPECT_FALSE(converter.error());
  EXPECT_EQ(converter.stream(), &output);
  EXPECT_EQ(output.codecpar->codec_type, AVMEDIA_TYPE_SUBTITLE);
  EXPECT_EQ(output.codecpar->codec_id, AV_CODEC_ID_ASS);
  ASSERT_GT(output.codecpar->extradata_size, 0);  // the styles, which ASS keeps in its head
  const std::string head(reinterpret_cast<const char*>(output.codecpar->extradata),
                         static_cast<size_t>(output.codecpar->extradata_size));
  EXPECT_THAT(head, HasSubstr("[V4+ Styles]"));
}

TEST_F(SubtitleConverterTest, KeepsTextTimeAndLength) {
  for (const AVCodecID form : {AV_CODEC_ID_ASS, AV_CODEC_ID_WEBVTT, AV_CODEC_ID_MOV_TEXT}) {
    SCOPED_TRACE(avcodec_get_name(form));
    SubtitleConverter converter(stream(AV_CODEC_ID_SUBRIP), stream(AV_CODEC_ID_NONE), form);
    ASSERT_FALSE(converter.error());
    const PacketPtr text = converter.convert(*packet("Hello there", 1500, 750));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->pts, 1500);
    EXPECT_EQ(text->dts, 1500);
    EXPECT_EQ(text->duration, 750);
    EXPECT_TRUE(text->flags & AV_PKT_FLAG_KEY);
    EXPECT_THAT(textOf(*text), HasSubstr("Hello there"));
    EXPECT_EQ(converter.refused(), 0);
  }
}

TEST_F(SubtitleConverterTest, KeepsStylesAsFarAsTheFormHasThem) {
  SubtitleConverter toAss(stream(AV_CODEC_ID_SUBRIP), stream(AV_CODEC_ID_NONE), AV_CODEC_ID_ASS);
  const PacketPtr styled = toAss.convert(*packet("<i>Hello</i> there", 0, 1000));
  ASSERT_TRUE(styled);
  EXPECT_THAT(textOf(*styled), HasSubstr("{\\i1}Hello{\\i0} there"));
  SubtitleConverter toText(stream(AV_CODEC_ID_SUBRIP), stream(AV_CODEC_ID_NONE), AV_CODEC_ID_TEXT);
  const PacketPtr plain = toText.convert(*packet("<i>Hello</i> there", 0, 1000));
  ASSERT_TRUE(plain);
  EXPECT_EQ(textOf(*plain), "Hello there");
}

TEST_F(SubtitleConverterTest, CountsInTheOutputsTicks) {
  AVStream& output = stream(AV_CODEC_ID_NONE);
  SubtitleConverter converter(stream(AV_CODEC_ID_SUBRIP), output, AV_CODEC_ID_WEBVTT);
  output.time_base = {1, 90000};  // as a muxer may set it once it has been started
  const PacketPtr text = converter.convert(*packet("Hello", 180000, 90000));
  ASSERT_TRUE(text);
  EXPECT_EQ(text->pts, 180000);
  EXPECT_EQ(text->duration, 90000);
}

TEST_F(SubtitleConverterTest, NothingToShowIsNoPacket) {
  SubtitleConverter converter(stream(AV_CODEC_ID_MOV_TEXT), stream(AV_CODEC_ID_NONE),
                              AV_CODEC_ID_SUBRIP);
  ASSERT_FALSE(converter.error());
  // MPEG-4 fills the gaps between two texts with empty ones: a length of 0 in two bytes.
  EXPECT_FALSE(converter.convert(*packet(std::string(2, '\0'), 0, 500)));
  EXPECT_EQ(converter.refused(), 0);
  const PacketPtr text = converter.convert(*packet(std::string("\0\5Hello", 7), 500, 250));
  ASSERT_TRUE(text);
  EXPECT_EQ(textOf(*text), "Hello");
}

TEST_F(SubtitleConverterTest, DamagedPacketsAreCounted) {
  SubtitleConverter converter(stream(AV_CODEC_ID_MOV_TEXT), stream(AV_CODEC_ID_NONE),
                              AV_CODEC_ID_SUBRIP);
  ASSERT_FALSE(converter.error());
  EXPECT_FALSE(converter.convert(*packet("\1", 0, 500)));  // half a length
  EXPECT_EQ(converter.refused(), 1);
}

TEST_F(SubtitleConverterTest, WhatHasNoCodecIsAnErrorOnce) {
  for (const auto& [from, to, codec] :
       {std::tuple{AV_CODEC_ID_TTF, AV_CODEC_ID_SUBRIP, AV_CODEC_ID_TTF},
        {AV_CODEC_ID_SUBRIP, AV_CODEC_ID_MICRODVD, AV_CODEC_ID_MICRODVD}}) {
    SubtitleConverter converter(stream(from), stream(AV_CODEC_ID_NONE), to);
    ASSERT_TRUE(converter.error());
    EXPECT_THAT(converter.error().message, HasSubstr(avcodec_get_name(codec)));
    EXPECT_FALSE(converter.convert(*packet("Hello", 0, 1000)));
  }
}

}  // namespace
}  // namespace kestrel::test
