#include "support/FFmpegBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

std::vector<uint8_t> padding(const uint8_t* end) {
  return {end, end + AV_INPUT_BUFFER_PADDING_SIZE};
}

TEST(FFmpegBytes, PacketGetsOtherBytesAndKeepsTheRest) {
  const PacketPtr packet = makePacket();
  ASSERT_EQ(av_new_packet(packet.get(), 2), 0);
  packet->pts = 30;
  packet->dts = 20;
  packet->duration = 10;
  packet->stream_index = 3;
  packet->flags = AV_PKT_FLAG_KEY;
  *av_packet_new_side_data(packet.get(), AV_PKT_DATA_SKIP_SAMPLES, 10) = 7;

  ASSERT_TRUE(setBytes(*packet, std::vector<uint8_t>{1, 2, 3, 4}));

  EXPECT_THAT(std::vector<uint8_t>(packet->data, packet->data + packet->size),
              ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(padding(packet->data + packet->size), Each(0));
  EXPECT_EQ(packet->pts, 30);
  EXPECT_EQ(packet->dts, 20);
  EXPECT_EQ(packet->duration, 10);
  EXPECT_EQ(packet->stream_index, 3);
  EXPECT_EQ(packet->flags, AV_PKT_FLAG_KEY);
  size_t size = 0;
  const uint8_t* const skip =
      av_packet_get_side_data(packet.get(), AV_PKT_DATA_SKIP_SAMPLES, &size);
  ASSERT_EQ(size, 10U);
  EXPECT_EQ(*skip, 7);
}

TEST(FFmpegBytes, PacketIsCutToAPartOfItself) {
  const PacketPtr packet = makePacket();
  ASSERT_EQ(av_new_packet(packet.get(), 4), 0);
  for (int i = 0; i < 4; i++) packet->data[i] = static_cast<uint8_t>(i);

  ASSERT_TRUE(setBytes(*packet, {packet->data + 1, 2}));

  EXPECT_THAT(std::vector<uint8_t>(packet->data, packet->data + packet->size), ElementsAre(1, 2));
}

TEST(FFmpegBytes, OtherHoldersOfAPacketKeepTheirBytes) {
  const PacketPtr packet = makePacket();
  ASSERT_EQ(av_new_packet(packet.get(), 1), 0);
  packet->data[0] = 5;
  const PacketPtr other = makePacket();
  ASSERT_EQ(av_packet_ref(other.get(), packet.get()), 0);

  ASSERT_TRUE(setBytes(*packet, std::vector<uint8_t>{9}));

  EXPECT_EQ(other->data[0], 5);
}

TEST(FFmpegBytes, CodecDataMayBeAPartOfThoseBefore) {
  AVCodecParameters* parameters = avcodec_parameters_alloc();
  ASSERT_TRUE(setCodecData(*parameters, std::vector<uint8_t>{1, 2, 3}));
  ASSERT_TRUE(setCodecData(*parameters, {parameters->extradata + 1, 2}));

  EXPECT_THAT(std::vector<uint8_t>(parameters->extradata,
                                   parameters->extradata + parameters->extradata_size),
              ElementsAre(2, 3));
  EXPECT_THAT(padding(parameters->extradata + parameters->extradata_size), Each(0));
  avcodec_parameters_free(&parameters);
}

}  // namespace
}  // namespace kestrel
