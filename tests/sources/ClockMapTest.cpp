#include "sources/ClockMap.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/support/BareStreams.h"

namespace kestrel::test {
namespace {

class ClockMapTest : public testing::Test {
 protected:
  /// Times are in the stream's units.
  void add(const AVStream& stream, int64_t time, int64_t position, int64_t offset = 0,
           bool isKey = true) {
    const PacketPtr packet = barePacket();
    packet->pts = packet->dts = time;
    packet->duration = 3600;
    packet->pos = position;
    packet->flags = isKey ? AV_PKT_FLAG_KEY : 0;
    map_.add(*packet, stream, offset);
  }

  BareStreams streams_;
  AVStream& pictures_ = streams_.add(AVMEDIA_TYPE_VIDEO);
  AVStream& sound_ = streams_.add(AVMEDIA_TYPE_AUDIO);
  AVStream& texts_ = streams_.add(AVMEDIA_TYPE_SUBTITLE);
  ClockMap map_;
};

TEST_F(ClockMapTest, AStretchBeginsWhereTheOffsetChanges) {
  add(pictures_, 0, 0);
  add(pictures_, 3600, 2000);
  EXPECT_FALSE(map_.hasJumps());
  add(pictures_, 90, 3000, 500000);
  add(pictures_, 3690, 4000, 500000);
  EXPECT_TRUE(map_.hasJumps());
  EXPECT_EQ(map_.stretchAt(0, 2999).offset, 0);
  for (const int64_t position : {3000, 99999}) {
    const auto stretch = map_.stretchAt(0, position);
    EXPECT_EQ(stretch.position, 3000);
    EXPECT_EQ(stretch.offset, 500000);
    EXPECT_EQ(stretch.begin, 90);
  }
  ASSERT_TRUE(map_.stretchAfter(0, 0));
  EXPECT_EQ(map_.stretchAfter(0, 0)->position, 3000);
  EXPECT_FALSE(map_.stretchAfter(0, 3000));
}

TEST_F(ClockMapTest, StreamsHaveStretchesOfTheirOwn) {
  add(pictures_, 0, 0, 700);
  EXPECT_EQ(map_.stretchAt(0, 0).offset, 700);
  EXPECT_EQ(map_.stretchAt(1, 0).offset, 0);
  EXPECT_FALSE(map_.stretchAfter(1, 0));
}

TEST_F(ClockMapTest, APacketWithoutAPositionLiesBehindTheOneBefore) {
  add(sound_, 0, 100);
  add(sound_, 50, -1, 8000);
  EXPECT_EQ(map_.stretchAt(1, 100).offset, 0);
  EXPECT_EQ(map_.stretchAt(1, 101).offset, 8000);
}

TEST_F(ClockMapTest, PicturesAreDecodedFromTheKeyPictureBefore) {
  add(sound_, 0, 10);  // forgotten once there are pictures
  add(pictures_, 0, 100);
  add(pictures_, 3600, 200, 0, false);
  add(pictures_, 7200, 300);
  EXPECT_FALSE(map_.placeBefore(-1));
  EXPECT_EQ(map_.placeBefore(0), 100);
  EXPECT_EQ(map_.placeBefore(7199), 100);
  EXPECT_EQ(map_.placeBefore(7200), 300);
  EXPECT_EQ(map_.placeBefore(1 << 30), 300);
}

TEST_F(ClockMapTest, OfSoundAloneThereIsAPlaceEachHalfSecond) {
  for (int i = 0; i < 12; ++i) add(sound_, i * 9000, i * 10);  // a tenth of a second each
  EXPECT_EQ(map_.placeBefore(44999), 0);
  EXPECT_EQ(map_.placeBefore(45000), 50);
  EXPECT_EQ(map_.placeBefore(89999), 50);
  EXPECT_EQ(map_.placeBefore(90000), 100);
}

TEST_F(ClockMapTest, SpansAreOfMovedTimesAndSubtitlesAreNotOfTheWhole) {
  EXPECT_TRUE(map_.span().isEmpty());
  add(pictures_, 1000, 0);
  add(pictures_, 500, 100, 9000);
  add(sound_, 600, 200);
  add(texts_, 90000, 300);
  EXPECT_EQ(map_.spanOf(0).begin, 1000);
  EXPECT_EQ(map_.spanOf(0).end, 500 + 9000 + 3600);
  EXPECT_EQ(map_.spanOf(2).begin, 90000);
  EXPECT_EQ(map_.span().begin, 600);
  EXPECT_EQ(map_.span().end, 13100);
}

TEST_F(ClockMapTest, TellsTheContainerHowLongItIs) {
  BareStreams streams;
  AVStream& stream = streams.add(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_NONE, {1, 1000});
  const PacketPtr packet = barePacket();
  for (const int64_t milliseconds : {500, 2460}) {
    packet->pts = packet->dts = milliseconds;
    packet->duration = 40;
    map_.add(*packet, stream, 45000);  // half a second
  }
  map_.describe(streams.context());
  EXPECT_EQ(stream.start_time, 1000);
  EXPECT_EQ(stream.duration, 2000);
  EXPECT_EQ(streams.context().start_time, 1000000);
  EXPECT_EQ(streams.context().duration, 2000000);
  EXPECT_EQ(streams.context().duration_estimation_method, AVFMT_DURATION_FROM_PTS);
}

}  // namespace
}  // namespace kestrel::test
