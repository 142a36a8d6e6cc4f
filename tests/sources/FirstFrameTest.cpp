#include <gtest/gtest.h>
#include <kestrel/FirstFrame.h>

#include <memory>
#include <tuple>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/sources/CustomSources.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

/// Stream, time and size of each packet that is still to come.
std::vector<std::tuple<int, int64_t, int>> packetsOf(LMMediaSource& source) {
  std::vector<std::tuple<int, int64_t, int>> packets;
  for (const PacketPtr packet = makePacket(); source.readPacket(packet.get());
       av_packet_unref(packet.get()))
    packets.emplace_back(packet->stream_index, packet->pts, packet->size);
  return packets;
}

std::shared_ptr<LMMediaSource> opened(const char* name) {
  const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
  source->open();
  return source;
}

TEST(FirstFrame, IsThePictureThatComesFirst) {
  const auto source = opened("av25.mp4");
  const auto frame = firstFrame(*source, 0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->width, 320);
  EXPECT_EQ(frame->pts, 0);
}

TEST(FirstFrame, LeavesEveryPacketToWhoReadsNext) {
  for (const char* name : {"av25.mp4", "av25.ts", "numbered25.mkv", "mpeg4-bframes.avi"}) {
    SCOPED_TRACE(name);
    const auto expected = packetsOf(*opened(name));
    ASSERT_GT(expected.size(), 20U);
    const auto source = opened(name);
    ASSERT_TRUE(firstFrame(*source, 0));
    ASSERT_TRUE(firstFrame(*source, 0));
    EXPECT_EQ(packetsOf(*source), expected);
  }
}

TEST(FirstFrame, GoesWhereTheSourceIsSought) {
  const auto source = opened("av25.mp4");
  ASSERT_TRUE(firstFrame(*source, 0));
  ASSERT_TRUE(source->seekBackward(1'500'000));
  const PacketPtr packet = makePacket();
  ASSERT_TRUE(source->readPacket(packet.get()));
  EXPECT_GT(packet->pts, 0);
}

TEST(FirstFrame, IsNoneWhereThereIsNoSuchStream) {
  const auto source = opened("av25.mp4");
  EXPECT_FALSE(firstFrame(*source, 2));
  EXPECT_FALSE(firstFrame(*source, -1));
  LMMediaSource closed;
  EXPECT_FALSE(firstFrame(closed, 0));
}

}  // namespace
}  // namespace kestrel::test
