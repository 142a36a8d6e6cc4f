#include "convert/job/PacketFile.h"

#include <gmock/gmock.h>

#include <string>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

/// A stream of two packets, in a file.
class PacketFileTest : public testing::Test {
 protected:
  PacketFileTest() {
    AVStream& stream = *avformat_new_stream(context_, nullptr);
    AVCodecParameters& codec = *stream.codecpar;
    codec.codec_type = AVMEDIA_TYPE_VIDEO;
    codec.codec_id = AV_CODEC_ID_H264;
    codec.width = 320;
    codec.height = 180;
    codec.color_trc = AVCOL_TRC_SMPTE2084;
    codec.extradata = static_cast<uint8_t*>(av_mallocz(3 + AV_INPUT_BUFFER_PADDING_SIZE));
    codec.extradata[1] = 0xfe;
    codec.extradata_size = 3;
    stream.time_base = {1, 12345};
    stream.avg_frame_rate = {25, 1};
    PacketFileWriter writer(path_);
    writer.begin({{"part", "0001"}}, {&stream});
    const PacketPtr packet = makePacket();
    av_new_packet(packet.get(), 4);
    std::ranges::copy(std::string("ABCD"), packet->data);
    packet->pts = 77;
    packet->dts = -5;
    packet->duration = 3;
    packet->flags = AV_PKT_FLAG_KEY;
    av_packet_new_side_data(packet.get(), AV_PKT_DATA_SKIP_SAMPLES, 2)[0] = 9;
    writer.write(0, *packet);
    packet->pts = AV_NOPTS_VALUE;
    writer.write(0, *packet);
    writer.finish({{"packets", 2}});
  }
  ~PacketFileTest() override { avformat_free_context(context_); }

  const TempDir folder_;
  const std::string path_ = (folder_ / "a.packets").string();
  AVFormatContext* const context_ = avformat_alloc_context();
};

TEST_F(PacketFileTest, GivesBackWhatWasWritten) {
  PacketFileReader reader(path_);
  EXPECT_EQ(reader.about()["part"], "0001");
  ASSERT_EQ(reader.streamCount(), 1u);
  const AVStream& stream = reader.stream(0);
  EXPECT_EQ(stream.codecpar->codec_id, AV_CODEC_ID_H264);
  EXPECT_EQ(stream.codecpar->width, 320);
  EXPECT_EQ(stream.codecpar->color_trc, AVCOL_TRC_SMPTE2084);
  ASSERT_EQ(stream.codecpar->extradata_size, 3);
  EXPECT_EQ(stream.codecpar->extradata[1], 0xfe);
  EXPECT_EQ(stream.time_base.den, 12345);
  EXPECT_EQ(stream.avg_frame_rate.num, 25);
  const PacketPtr first = reader.next();
  ASSERT_TRUE(first);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(first->data), first->size), "ABCD");
  EXPECT_EQ(first->pts, 77);
  EXPECT_EQ(first->dts, -5);
  EXPECT_EQ(first->duration, 3);
  EXPECT_EQ(first->flags, AV_PKT_FLAG_KEY);
  ASSERT_EQ(first->side_data_elems, 1);
  EXPECT_EQ(first->side_data[0].type, AV_PKT_DATA_SKIP_SAMPLES);
  EXPECT_EQ(first->side_data[0].data[0], 9);
  EXPECT_EQ(reader.next()->pts, AV_NOPTS_VALUE);
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.tail()["packets"], 2);
}

// Whichever byte is another, and wherever it ends too early, the file is refused.
TEST_F(PacketFileTest, DamageIsFound) {
  const std::string bytes = readBytes(path_);
  for (size_t i = 0; i < bytes.size(); i += 5) {
    std::string damaged = bytes;
    damaged[i] = static_cast<char>(damaged[i] ^ 0x10);
    writeBytes(path_, damaged);
    EXPECT_THROW(checkedTail(path_), Failure) << i;
    writeBytes(path_, bytes.substr(0, i));
    EXPECT_THROW(checkedTail(path_), Failure) << i;
  }
  writeBytes(path_, bytes);
  EXPECT_EQ(checkedTail(path_)["packets"], 2);
}

TEST_F(PacketFileTest, NothingIsOverwritten) {
  EXPECT_THAT(failureOf([&] { PacketFileWriter again(path_); }).what(), HasSubstr("File exists"));
}

}  // namespace
}  // namespace kestrel::test
