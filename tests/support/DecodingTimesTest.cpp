#include "support/copy/DecodingTimes.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "tests/support/BareStreams.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr int64_t kNone = AV_NOPTS_VALUE;

/// Pictures that lie 40 ms apart.
class DecodingTimesTest : public testing::Test {
 protected:
  DecodingTimesTest() { stream_.avg_frame_rate = {25, 1}; }

  void push(int64_t pts, int64_t dts = kNone) {
    PacketPtr packet = barePacket();
    packet->pts = pts;
    packet->dts = dts;
    times_.push(std::move(packet));
  }

  /// Presentation and decoding times of what is ready.
  std::vector<std::pair<int64_t, int64_t>> ready() {
    std::vector<std::pair<int64_t, int64_t>> all;
    while (const PacketPtr packet = times_.pop()) all.emplace_back(packet->pts, packet->dts);
    return all;
  }

  BareStreams streams_;
  AVStream& stream_ = streams_.add(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264, {1, 1000});
  DecodingTimes times_{stream_};
};

TEST_F(DecodingTimesTest, PacketsThatHaveThemPassAsTheyAre) {
  push(80, 0);
  EXPECT_THAT(ready(), ElementsAre(Pair(80, 0)));
  push(kNone, 40);
  EXPECT_THAT(ready(), ElementsAre(Pair(kNone, 40)));
}

TEST_F(DecodingTimesTest, ThoseAtTheStartLieEvenlyBeforeTheFirstThatIsKnown) {
  for (const int64_t pts : {0, 120, 40, 80}) push(pts);
  EXPECT_THAT(ready(), IsEmpty());
  push(240, 80);
  EXPECT_THAT(ready(),
              ElementsAre(Pair(0, -80), Pair(120, -40), Pair(40, 0), Pair(80, 40), Pair(240, 80)));
}

TEST_F(DecodingTimesTest, NoneIsDecodedAfterItIsShown) {
  push(0);
  push(40);
  push(200, 200);
  EXPECT_THAT(ready(), ElementsAre(Pair(0, 0), Pair(40, 40), Pair(200, 200)));
}

TEST_F(DecodingTimesTest, TheEndIsTakenForTheTimeOfTheLast) {
  push(0);
  push(40);
  times_.finish();
  EXPECT_THAT(ready(), ElementsAre(Pair(0, -40), Pair(40, 0)));
}

TEST_F(DecodingTimesTest, OneWithoutAnyTimeOvertakesNone) {
  push(kNone);
  EXPECT_THAT(ready(), ElementsAre(Pair(kNone, kNone)));
  push(0);
  push(kNone);
  push(80);
  EXPECT_THAT(ready(), IsEmpty());
  push(120, 120);
  EXPECT_THAT(ready(), ElementsAre(Pair(0, 0), Pair(kNone, 40), Pair(80, 80), Pair(120, 120)));
}

TEST_F(DecodingTimesTest, TheLastTimeThatThereIsTellsTheEnd) {
  push(0);
  push(120);
  push(kNone);
  times_.finish();
  EXPECT_THAT(ready(), ElementsAre(Pair(0, 0), Pair(120, 40), Pair(kNone, 80)));
}

TEST_F(DecodingTimesTest, NoneWaitsForMoreThanThirtyTwo) {
  for (int i = 0; i < 31; ++i) push(i * 40);
  EXPECT_THAT(ready(), IsEmpty());
  push(31 * 40);
  const auto all = ready();
  ASSERT_THAT(all, SizeIs(32));
  EXPECT_THAT(all.front(), Pair(0, -32 * 40));
  EXPECT_THAT(all.back(), Pair(31 * 40, -40));
}

TEST_F(DecodingTimesTest, WithoutARateTheyLieATickApart) {
  stream_.avg_frame_rate = {0, 0};
  push(100);
  push(140);
  push(180, 60);
  EXPECT_THAT(ready(), ElementsAre(Pair(100, 58), Pair(140, 59), Pair(180, 60)));
}

}  // namespace
}  // namespace kestrel::test
