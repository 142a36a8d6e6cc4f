#include "convert/feed/Tracks.h"

#include <gmock/gmock.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

/// What a track brings until it ends.
struct Brought {
  int jobs = 0;
  std::vector<int64_t> times;  // at which each step was due
  int64_t end = 0;
};

class TracksTest : public testing::Test {
 protected:
  void open(const std::string& name, int64_t start, bool isCopied = false) {
    movie_.close();
    const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
    source->open();
    movie_.setExportMovie(true);
    movie_.setCopy_video_stream(isCopied);
    movie_.setCopy_audio_stream(isCopied);
    movie_.openMedias(source->createMedias());
    movie_.seek(start);
    movie_.flushOperation();
  }

  /// Steps through the track that `make` answers, on the movie's queue.
  Brought run(const std::function<std::unique_ptr<Track>()>& make) {
    Brought brought;
    movie_.decodeImage(
        [&] {
          const auto track = make();
          while (track->time() != Track::kEnded) {
            brought.times.push_back(track->time());
            if (track->step()) ++brought.jobs;
          }
          brought.end = track->end();
        },
        true);
    return brought;
  }

  Brought runSound(const Span& span, int64_t preroll = 0) {
    return run([&] {
      const auto media = movie_.audios().front();
      return std::make_unique<EncodedAudioTrack>(AudioFeed({{media, media->audioStream()}}),
                                                 nullptr, span, preroll, EncodedAudioTrack::Level{},
                                                 nullptr);
    });
  }

  Brought runCopy(const Span& span) {
    return run([&] {
      const auto media = movie_.medias().front();
      const auto stream = media->hasVideo() ? media->videoStream() : media->audioStream();
      return std::make_unique<CopiedTrack>(media, stream, nullptr, span, nullptr);
    });
  }

  LMFFMovie movie_;
};

TEST_F(TracksTest, EncodedPicturesAreTheTicksOfTheSpan) {
  struct Row {
    int64_t start;
    std::optional<int64_t> end;
    Rational rate;
    int pictures;
  };
  for (const Row& row : {Row{0, {}, {25, 1}, 125},
                         {0, 2000000, {25, 1}, 50},
                         {1000000, 3000000, {25, 1}, 50},
                         {1000000, 3000000, {10, 1}, 20},
                         // The last picture would show for less than half its time.
                         {0, 1019000, {25, 1}, 25},
                         {0, 1021000, {25, 1}, 26},
                         // However long that is: the input reaches to the end of the span.
                         {0, 4900000, {1, 4}, 1},
                         // But one there is.
                         {0, 1000, {25, 1}, 1},
                         {4000000, {}, {25, 1}, 25}}) {
    SCOPED_TRACE(testing::Message() << row.start << ' ' << row.end.value_or(-1));
    open("numbered25.mp4", row.start);
    const Brought brought = run([&] {
      return std::make_unique<EncodedVideoTrack>(movie_, Span{row.start, row.end}, row.rate,
                                                 nullptr);
    });
    EXPECT_EQ(brought.jobs, row.pictures);
    const int64_t ticks = int64_t{1000000} * row.pictures * row.rate.den / row.rate.num;
    EXPECT_EQ(brought.end, std::max(ticks, row.end.value_or(0) - row.start));
  }
}

// Pictures 0, 1, 2, 5, 6, 10, 11 and 20 of 25 a second, in milliseconds:
//   0   40   80   200   240   400   440   800
// The container has 40 ms for the last one.
TEST_F(TracksTest, PicturesOfTheirOwnTimesAreThoseOfTheSpan) {
  struct Row {
    int64_t start;
    std::optional<int64_t> end;
    std::vector<int64_t> times;  // milliseconds after the start
    int64_t stop;
  };
  for (const Row& row :
       std::vector<Row>{{0, {}, {0, 40, 80, 200, 240, 400, 440, 800}, 840},
                        // At a picture's own time that one is the first.
                        {200, {}, {0, 40, 200, 240, 600}, 640},
                        // Within one, it stands in from the start on.
                        {100, {}, {0, 100, 140, 300, 340, 700}, 740},
                        // It gives way where it would end within a millisecond.
                        {199, {}, {0, 40, 201, 241, 601}, 641},
                        {198, {}, {0, 2, 42, 202, 242, 602}, 642},
                        // At the end the last one is cut short.
                        {0, 600, {0, 40, 80, 200, 240, 400, 440}, 600},
                        {100, 300, {0, 100, 140}, 200},
                        // One that would show for less than half its usual time is left out.
                        {0, 419, {0, 40, 80, 200, 240}, 400},
                        {0, 421, {0, 40, 80, 200, 240, 400}, 421},
                        // Behind the input's end there is nothing.
                        {0, 2000, {0, 40, 80, 200, 240, 400, 440, 800}, 840}}) {
    SCOPED_TRACE(testing::Message() << row.start << ' ' << row.end.value_or(-1));
    const auto end = row.end ? std::optional(*row.end * 1000) : std::nullopt;
    open("gaps25.mkv", row.start * 1000);
    const Brought brought = run([&] {
      return std::make_unique<TimedVideoTrack>(movie_, Span{row.start * 1000, end}, Rational{25, 1},
                                               false, nullptr);
    });
    std::vector<int64_t> expected;
    for (const int64_t time : row.times) expected.push_back(time * 1000);
    EXPECT_EQ(brought.jobs, static_cast<int>(expected.size()));
    // The step behind the last picture finds the end.
    ASSERT_GE(brought.times.size(), expected.size());
    EXPECT_THAT(std::vector(brought.times.begin(),
                            brought.times.begin() + static_cast<std::ptrdiff_t>(expected.size())),
                testing::ElementsAreArray(expected));
    EXPECT_EQ(brought.end, row.stop * 1000);
  }
}

// What is drawn over them changes on.
TEST_F(TracksTest, PicturesOfTheirOwnTimesComeAgainWhereThatIsAskedFor) {
  open("gaps25.mkv", 0);
  const Brought brought = run([&] {
    return std::make_unique<TimedVideoTrack>(movie_, Span{0, 200000}, Rational{25, 1}, true,
                                             nullptr);
  });
  EXPECT_EQ(brought.jobs, 5);  // that of 80 ms three times
  EXPECT_EQ(brought.end, 200000);
}

TEST_F(TracksTest, EncodedSoundEndsToTheSample) {
  for (const auto& [start, end, length] :
       {std::tuple<int64_t, std::optional<int64_t>, int64_t>{0, {}, 3000000},
        {0, 1000000, 1000000},
        {500000, 1250000, 750000},
        {2000000, {}, 1000000}}) {
    open("chirp.nut", start);
    EXPECT_EQ(runSound({start, end}).end, length);
  }
}

TEST_F(TracksTest, SoundFromBeforeTheStartIsDropped) {
  open("chirp.nut", 500000);
  EXPECT_EQ(runSound({1000000, {}}, 500000).end, 2000000);
}

/// How many packets of a stream lie in a span, by ffprobe; from a key packet on.
int packetsIn(const std::filesystem::path& file, const std::string& stream, double start,
              double end) {
  const auto json = ffprobeJson(file, {"-select_streams", stream, "-show_packets"});
  int count = 0;
  bool isBegun = start == 0;
  for (const auto& packet : json.at("packets")) {
    const double time = std::stod(packet.at("dts_time").get<std::string>());
    const bool isKey = packet.at("flags").get<std::string>().starts_with('K');
    if (time >= end) break;
    isBegun = isBegun || (isKey && time >= start);
    count += isBegun;
  }
  return count;
}

TEST_F(TracksTest, CopiedPicturesBeginWithAKeyPicture) {
  open("mjpeg.avi", 0, true);
  EXPECT_EQ(runCopy({}).jobs, 50);
  // Without pictures shown out of order: keys at 0 s, 0.48 s, 0.96 s, …
  for (const auto& [start, end] : {std::pair<int64_t, int64_t>{0, 1000000}, {960000, 1500000}}) {
    open("mpeg4.avi", start, true);
    EXPECT_EQ(runCopy({start, end}).jobs,
              packetsIn(fixture("mpeg4.avi"), "v", static_cast<double>(start) / 1e6,
                        static_cast<double>(end) / 1e6));
  }
}

TEST_F(TracksTest, CopiedSoundIsThePacketsOfTheSpan) {
  for (const auto& [start, end] :
       {std::pair<int64_t, int64_t>{0, 9000000}, {0, 1000000}, {1000000, 2000000}}) {
    open("chirp.nut", start, true);
    EXPECT_EQ(runCopy({start, end}).jobs,
              packetsIn(fixture("chirp.nut"), "a", static_cast<double>(start) / 1e6,
                        static_cast<double>(end) / 1e6));
  }
}

}  // namespace
}  // namespace kestrel::test
