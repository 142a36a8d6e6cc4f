#include "support/copy/DisplayTimes.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/BareStreams.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int64_t kNone = AV_NOPTS_VALUE;

/// The header of an MPEG-2 picture (ISO/IEC 13818-2, 6.2.3): a start code, ten bits of a number and
/// three of the type, which are 1 for I, 2 for P and 3 for B.
PacketPtr picture(char type, int64_t dts, int64_t pts = kNone) {
  const auto bits = static_cast<uint8_t>(std::string_view("IPB").find(type) + 1);
  PacketPtr packet =
      barePacket({0, 0, 1, 0, 0, static_cast<uint8_t>(bits << 3), 0xFF, 0xF8, 0, 0, 0, 0});
  packet->dts = dts;
  packet->pts = pts;
  return packet;
}

class DisplayTimesTest : public testing::Test {
 protected:
  static AVCodecParameters& withDelay(AVStream& stream, int pictures) {
    stream.codecpar->video_delay = pictures;
    return *stream.codecpar;
  }

  static std::vector<int64_t> ready(DisplayTimes& times) {
    std::vector<int64_t> all;
    while (const PacketPtr packet = times.pop()) all.push_back(packet->pts);
    return all;
  }

  BareStreams streams_;
  AVStream& stream_ = streams_.add(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MPEG2VIDEO);
};

TEST_F(DisplayTimesTest, PicturesThatHaveTimesPassAtOnce) {
  DisplayTimes times(withDelay(stream_, 1));
  times.push(picture('I', 0, 40));
  EXPECT_THAT(ready(times), ElementsAre(40));
  times.push(picture('P', 40, 160));
  EXPECT_THAT(ready(times), ElementsAre(160));
}

TEST_F(DisplayTimesTest, WithoutADelayPicturesAreShownWhenTheyAreDecoded) {
  DisplayTimes times(withDelay(stream_, 0));
  for (const int64_t dts : {0, 40}) {
    times.push(picture('P', dts));
    EXPECT_THAT(ready(times), ElementsAre(dts));
  }
}

// Shown are I B B P B B P, each when the one that comes behind it is decoded; the last one follows
// by the distance of the others.
TEST_F(DisplayTimesTest, BPicturesComeBeforeTheOneThatPrecedesThem) {
  DisplayTimes times(withDelay(stream_, 1));
  int64_t dts = 0;
  for (const char type : {'I', 'P', 'B', 'B', 'P', 'B', 'B'}) {
    times.push(picture(type, dts));
    dts += 40;
  }
  EXPECT_THAT(ready(times), ElementsAre(40, 160, 80, 120));  // the second P still waits
  times.finish();
  EXPECT_THAT(ready(times), ElementsAre(280, 200, 240));
}

TEST_F(DisplayTimesTest, ATimeThatAPictureBringsAlongIsKept) {
  DisplayTimes times(withDelay(stream_, 1));
  times.push(picture('I', 0));
  EXPECT_THAT(ready(times), IsEmpty());
  times.push(picture('P', 40, 85));
  EXPECT_THAT(ready(times), ElementsAre(40));
  times.push(picture('P', 80));
  times.finish();
  EXPECT_THAT(ready(times), ElementsAre(85, 120));
}

}  // namespace
}  // namespace kestrel::test
