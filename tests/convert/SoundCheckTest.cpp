#include "convert/feed/SoundCheck.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/support/Fixture.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

/// The packets of a file's sound, as its demuxer answers them.
class SoundCheckTest : public testing::Test {
 protected:
  void SetUp() override { open(fixture("av25.mp4")); }

  void TearDown() override { avformat_close_input(&input_); }

  void open(const std::filesystem::path& file) {
    ASSERT_GE(avformat_open_input(&input_, file.c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_find_stream_info(input_, nullptr), 0);
    const int index = av_find_best_stream(input_, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    ASSERT_GE(index, 0);
    sound_ = input_->streams[index];
    while (PacketPtr packet = makePacket()) {
      if (av_read_frame(input_, packet.get()) < 0) break;
      if (packet->stream_index == index) packets_.push_back(std::move(packet));
    }
  }

  /// A packet of which nothing is left but its length.
  static PacketPtr damaged(const AVPacket& packet) {
    PacketPtr copy(av_packet_clone(&packet));
    av_packet_make_writable(copy.get());
    std::memset(copy->data, 0xFF, static_cast<size_t>(copy->size));
    return copy;
  }

  AVFormatContext* input_ = nullptr;
  AVStream* sound_ = nullptr;
  std::vector<PacketPtr> packets_;
};

TEST_F(SoundCheckTest, TakesEveryPacketOfSoundThatIsWhole) {
  SoundCheck check(*sound_);
  ASSERT_GT(packets_.size(), 20U);
  for (const PacketPtr& packet : packets_) EXPECT_TRUE(check.takes(*packet));
  EXPECT_EQ(check.refused(), 0);
}

TEST_F(SoundCheckTest, RefusesAndCountsWhatCannotBeDecoded) {
  SoundCheck check(*sound_);
  for (size_t i = 0; i < packets_.size(); ++i) {
    const bool isDamaged = i == 5 || i == 11;
    EXPECT_EQ(check.takes(isDamaged ? *damaged(*packets_[i]) : *packets_[i]), !isDamaged) << i;
  }
  EXPECT_EQ(check.refused(), 2);
}

// A broadcast is recorded from the midst of a packet on.
TEST_F(SoundCheckTest, TheFirstPacketOfABroadcastMayBeCut) {
  SoundCheck check(*sound_, true);
  EXPECT_FALSE(check.takes(*damaged(*packets_[0])));
  EXPECT_EQ(check.refused(), 0);
  EXPECT_FALSE(check.takes(*damaged(*packets_[1])));
  EXPECT_EQ(check.refused(), 1);
}

TEST_F(SoundCheckTest, WithoutADecoderEveryPacketIsTaken) {
  sound_->codecpar->codec_id = AV_CODEC_ID_NONE;
  SoundCheck check(*sound_);
  EXPECT_TRUE(check.takes(*damaged(*packets_[0])));
  EXPECT_EQ(check.refused(), 0);
}

}  // namespace
}  // namespace kestrel::test
