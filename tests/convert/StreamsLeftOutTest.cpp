#include "convert/probe/StreamsLeftOut.h"

#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>

#include <string>

#include "tests/support/BareStreams.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

/// Pictures, a cover, two sound tracks, a subtitle track, a font, data, and two services.
class StreamsLeftOutTest : public testing::Test {
 protected:
  StreamsLeftOutTest() {
    streams_.add(AVMEDIA_TYPE_VIDEO);
    streams_.add(AVMEDIA_TYPE_VIDEO).disposition = AV_DISPOSITION_ATTACHED_PIC;
    streams_.add(AVMEDIA_TYPE_AUDIO);
    streams_.add(AVMEDIA_TYPE_AUDIO);
    streams_.add(AVMEDIA_TYPE_SUBTITLE);
    streams_.add(AVMEDIA_TYPE_ATTACHMENT);
    streams_.add(AVMEDIA_TYPE_DATA);
    streams_.add(AVMEDIA_TYPE_DATA).discard = AVDISCARD_ALL;  // such as chapters
    streams_.add(AVMEDIA_TYPE_DATA, AV_CODEC_ID_DVD_NAV);
  }

  BareStreams streams_;
};

TEST_F(StreamsLeftOutTest, AreCountedByKind) {
  const auto all = streamsLeftOut(streams_.context(), {});
  EXPECT_EQ(all.pictures, 1);
  EXPECT_EQ(all.covers, 1);
  EXPECT_EQ(all.sounds, 2);
  EXPECT_EQ(all.subtitles, 1);
  EXPECT_EQ(all.attachments, 1);
  EXPECT_EQ(all.others, 1);
  EXPECT_EQ(all.chapters, 0);
}

TEST_F(StreamsLeftOutTest, AreNotThoseThatAreTaken) {
  const auto left = streamsLeftOut(streams_.context(), IndexSet{0, 3, 5});
  EXPECT_EQ(left.listed(), "1 sound track, 1 subtitle track, 1 cover, 1 other track");
}

TEST_F(StreamsLeftOutTest, ServicesAreDataThatIsDiscardedOrNavigation) {
  const auto& all = streams_.context().streams;
  EXPECT_FALSE(isService(*all[6]));
  EXPECT_TRUE(isService(*all[7]));
  EXPECT_TRUE(isService(*all[8]));
  all[2]->discard = AVDISCARD_ALL;
  EXPECT_FALSE(isService(*all[2]));
}

TEST_F(StreamsLeftOutTest, AreListedWithTheirNumbers) {
  StreamsLeftOut left;
  EXPECT_EQ(left.listed(), "");
  left = {.pictures = 1,
          .sounds = 2,
          .subtitles = 1,
          .covers = 3,
          .attachments = 1,
          .chapters = 12,
          .others = 2};
  EXPECT_EQ(left.listed(),
            "1 video track, 2 sound tracks, 1 subtitle track, 3 covers, 1 attachment, "
            "12 chapters, 2 other tracks");
  EXPECT_EQ(counted(0, "cover"), "");
  EXPECT_EQ(counted(1, "cover"), "1 cover");
  EXPECT_EQ(counted(2, "cover"), "2 covers");
  EXPECT_EQ(leftOutOf("a.mkv", "1 cover"), "left out of 'a.mkv': 1 cover");
  EXPECT_EQ(leftOutOf("/dev/stdin", "1 cover"), "left out of standard input: 1 cover");
}

TEST_F(StreamsLeftOutTest, ATurnIsLostOutsideOfMpeg4) {
  const auto lost = [](const char* name, const char* container) {
    const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
    source->open();
    return lostTurn(*source->formatContext()->streams[0],
                    *av_guess_format(container, nullptr, nullptr));
  };
  EXPECT_EQ(lost("av-rotated.mp4", "mp4"), "");
  EXPECT_EQ(lost("av-rotated.mp4", "mov"), "");
  EXPECT_EQ(lost("av25.mp4", "mpegts"), "");
  EXPECT_THAT(lost("av-rotated.mp4", "mpegts"),
              HasSubstr("the turn of its pictures, which mpegts cannot hold"));
}

}  // namespace
}  // namespace kestrel::test
