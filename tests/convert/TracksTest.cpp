#include "convert/feed/Tracks.h"

#include <gmock/gmock.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
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
  void open(const std::string& name, const ConversionPlan& plan) {
    const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
    source->open();
    movie_.setExportMovie(true);
    movie_.setCopy_video_stream(plan.video == StreamAction::kCopy);
    movie_.setCopy_audio_stream(plan.audio == StreamAction::kCopy);
    movie_.openMedias(source->createMedias());
    movie_.seek(plan.start);
    movie_.flushOperation();
  }

  template <typename Made, typename... Arguments>
  Brought run(Arguments&&... arguments) {
    Brought brought;
    movie_.decodeImage(
        [&] {
          Made track(movie_, std::forward<Arguments>(arguments)...);
          while (track.time() != Track::kEnded) {
            brought.times.push_back(track.time());
            if (track.step()) ++brought.jobs;
          }
          brought.end = track.end();
        },
        true);
    return brought;
  }

  static ConversionPlan planOf(int64_t start, std::optional<int64_t> end, Rational rate = {25, 1}) {
    ConversionPlan plan;
    plan.start = start;
    plan.end = end;
    plan.setRate(rate);
    return plan;
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
    const ConversionPlan plan = planOf(row.start, row.end, row.rate);
    SCOPED_TRACE(testing::Message() << row.start << ' ' << row.end.value_or(-1));
    movie_.close();
    open("numbered25.mp4", plan);
    const Brought brought = run<EncodedVideoTrack>(plan, nullptr);
    EXPECT_EQ(brought.jobs, row.pictures);
    const int64_t ticks = int64_t{1000000} * row.pictures * row.rate.den / row.rate.num;
    EXPECT_EQ(brought.end, std::max(ticks, row.end.value_or(0) - row.start));
  }
}

TEST_F(TracksTest, EncodedSoundEndsToTheSample) {
  for (const auto& [start, end, length] :
       {std::tuple<int64_t, std::optional<int64_t>, int64_t>{0, {}, 3000000},
        {0, 1000000, 1000000},
        {500000, 1250000, 750000},
        {2000000, {}, 1000000}}) {
    const ConversionPlan plan = planOf(start, end);
    movie_.close();
    open("chirp.nut", plan);
    EXPECT_EQ(run<EncodedAudioTrack>(plan, 0, nullptr).end, length);
  }
}

TEST_F(TracksTest, SoundFromBeforeTheStartIsDropped) {
  ConversionPlan plan = planOf(500000, std::nullopt);
  open("chirp.nut", plan);
  plan.start = 1000000;
  EXPECT_EQ(run<EncodedAudioTrack>(plan, 500000, nullptr).end, 2000000);
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
  ConversionPlan plan = planOf(0, std::nullopt);
  plan.video = StreamAction::kCopy;
  open("mjpeg.avi", plan);
  EXPECT_EQ(run<CopiedTrack>(plan, true, nullptr).jobs, 50);
  // Without pictures shown out of order: keys at 0 s, 0.48 s, 0.96 s, …
  for (const auto& [start, end] : {std::pair<int64_t, int64_t>{0, 1000000}, {960000, 1500000}}) {
    plan = planOf(start, end);
    plan.video = StreamAction::kCopy;
    movie_.close();
    open("mpeg4.avi", plan);
    EXPECT_EQ(run<CopiedTrack>(plan, true, nullptr).jobs,
              packetsIn(fixture("mpeg4.avi"), "v", static_cast<double>(start) / 1e6,
                        static_cast<double>(end) / 1e6));
  }
}

TEST_F(TracksTest, CopiedSoundIsThePacketsOfTheSpan) {
  for (const auto& [start, end] :
       {std::pair<int64_t, int64_t>{0, 9000000}, {0, 1000000}, {1000000, 2000000}}) {
    ConversionPlan plan = planOf(start, end);
    plan.audio = StreamAction::kCopy;
    movie_.close();
    open("chirp.nut", plan);
    EXPECT_EQ(run<CopiedTrack>(plan, false, nullptr).jobs,
              packetsIn(fixture("chirp.nut"), "a", static_cast<double>(start) / 1e6,
                        static_cast<double>(end) / 1e6));
  }
}

}  // namespace
}  // namespace kestrel::test
