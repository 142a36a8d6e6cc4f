#include "sources/PacketDamage.h"

#include <gtest/gtest.h>

#include <string>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

/// One stream of pictures and one of sound, 40 ms each, and what is counted of their packets.
class PacketDamageTest : public testing::Test {
 protected:
  PacketDamageTest() : context_(avformat_alloc_context()) {
    for (const AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO, AVMEDIA_TYPE_SUBTITLE}) {
      AVStream* const stream = avformat_new_stream(context_, nullptr);
      stream->codecpar->codec_type = type;
      stream->time_base = {1, 1000};
    }
  }

  ~PacketDamageTest() override { avformat_free_context(context_); }

  /// Takes packets 40 ms after each other: 'K' a key packet, 'p' another one, 'X' and 'x' such ones
  /// that are damaged, '-' none, '+' goes on from the packet before in the same piece.
  int64_t counted(int stream, const std::string& packets) {
    PacketDamage damage;
    const PacketPtr packet = makePacket();
    packet->stream_index = stream;
    packet->duration = 40;
    packet->dts = 0;
    packet->pos = 0;
    for (const char letter : packets) {
      if (letter == '+') {
        packet->pos = -1;
        continue;
      }
      packet->flags = (letter == 'K' || letter == 'X' ? AV_PKT_FLAG_KEY : 0) |
                      (letter == 'X' || letter == 'x' ? AV_PKT_FLAG_CORRUPT : 0);
      if (letter != '-') damage.take(*packet, *context_->streams[stream]);
      packet->dts += 40;
      packet->pos = 0;
    }
    return damage.of(stream);
  }

  AVFormatContext* context_;
};

// The picture before the damaged one is marked, as the parser of FFmpeg does it.
TEST_F(PacketDamageTest, PicturesThatOthersFollowAreCounted) {
  EXPECT_EQ(counted(0, "KpppKppp"), 0);
  EXPECT_EQ(counted(0, "KpxppKpp"), 1);
  EXPECT_EQ(counted(0, "KpxKppKp"), 1);  // the damaged one is a key picture
  EXPECT_EQ(counted(0, "KpxxxppK"), 3);
  EXPECT_EQ(counted(0, "KpXppKpxpp"), 2);
}

// Files that were laid end to end count anew, from a key picture on.
TEST_F(PacketDamageTest, ASeamIsNone) {
  EXPECT_EQ(counted(0, "KppxpKpp"), 0);
  EXPECT_EQ(counted(0, "KpxxpKpp"), 2);
  EXPECT_EQ(counted(1, "KKKXKKKK"), 0);
}

TEST_F(PacketDamageTest, SoundThatIsMissingIsCounted) {
  EXPECT_EQ(counted(1, "KKKX-KKKK"), 1);
  EXPECT_EQ(counted(1, "KKKX+X+X-KKKK"), 3);
  EXPECT_EQ(counted(1, "KKKX" + std::string(300, '-') + "KKKK"), 0);
}

TEST_F(PacketDamageTest, TheEndOfARecordingIsNone) {
  EXPECT_EQ(counted(0, "Kpppxp"), 0);
  EXPECT_EQ(counted(0, "Kpppxxx"), 2);
  EXPECT_EQ(counted(1, "KKKX+X"), 0);
}

TEST_F(PacketDamageTest, OtherStreamsAreNotCounted) { EXPECT_EQ(counted(2, "KxpxpX-K"), 0); }

TEST_F(PacketDamageTest, AJumpDecidesNothing) {
  PacketDamage damage;
  const PacketPtr packet = makePacket();
  packet->flags = AV_PKT_FLAG_CORRUPT;
  packet->pos = 0;
  damage.take(*packet, *context_->streams[0]);
  damage.jump();
  packet->flags = 0;
  for (int i = 0; i < 3; ++i) damage.take(*packet, *context_->streams[0]);
  EXPECT_EQ(damage.of(0), 0);
}

}  // namespace
}  // namespace kestrel::test
