#include <gmock/gmock.h>
#include <kestrel/BitmapFile.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Scenes.h>

#include <cmath>
#include <string>
#include <vector>

#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using Times = std::vector<double>;

/// Where scenes behind the first one start, seconds.
Times boundaries(const std::string& input) {
  Times times;
  const Scenes found = findScenes({.input = input});
  for (const Scene& scene : found.scenes) times.push_back(static_cast<double>(scene.start) / 1e6);
  times.erase(times.begin());
  return times;
}

/// How well what was found meets what is there: found rightly, falsely, and missed.
struct Hits {
  int right = 0;
  int wrong = 0;
  int missed = 0;

  void count(const Times& found, Times real, double tolerance) {
    for (const double time : found) {
      const auto hit = std::ranges::find_if(
          real, [&](double each) { return std::abs(each - time) <= tolerance; });
      if (hit == real.end()) {
        ++wrong;
        continue;
      }
      ++right;
      real.erase(hit);
    }
    missed += static_cast<int>(real.size());
  }

  /// The harmonic mean of precision and recall.
  double f1() const { return 2.0 * right / (2.0 * right + wrong + missed); }
};

// Cuts, dissolves and fades that were looked for by eye, picture by picture. A wipe through a
// circle and black of a few pictures in a fight are among them.
TEST(Scenes, OfRealClipsAreThoseThatPeopleSee) {
  struct Clip {
    const char* name;
    Times real;
  };
  const Clip clips[] = {
      {"bunny-720p24-vp8-vorbis.webm", {11.79, 15.67, 22.96}},
      {"wmv8-wma2.wmv", {2.5, 7.0, 18.53, 22.87, 27.6, 30.6, 32.47, 33.13}},
      {"discontinuity-h264-nellymoser.flv",
       {2.62, 7.1, 9.17, 10.13, 10.92, 11.21, 11.5, 13.08, 16.67, 19.38, 20.17, 20.9}},
      {"real-rv20.rm", {1.23, 2.21, 3.03, 3.61, 4.51}},
      {"three-subtitles-h264-dts.mkv", {2.5, 5.7}},
      {"chaplin-360p25-h264-mp3.mp4", {}},
      {"cockatoo-720p20-h264-mp3.mp4", {}},
      {"smpte-1080p-h264-aac.mp4", {}},
      {"bars-360p30-msmpeg4v2.avi", {}},
      {"fire-720p-vfr-h264-aac.mp4", {}},
      {"interlaced-360p25-h264-paff.mp4", {}},
  };
  Hits hits;
  for (const Clip& clip : clips) {
    KESTREL_NEED_MEDIA(clip.name);
    hits.count(boundaries(mediaFile(clip.name).string()), clip.real, 0.4);
  }
  EXPECT_GE(hits.f1(), 0.93) << hits.right << " right, " << hits.wrong << " wrong, " << hits.missed
                             << " missed";
}

class MadeScenes : public testing::Test {
 protected:
  std::string made(const std::string& graph) {
    const std::string output = (folder_ / "made.mkv").string();
    const RunResult result =
        run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-filter_complex", graph, "-c:v", "libx264",
             "-preset", "ultrafast", "-crf", "20", "-pix_fmt", "yuv420p", output});
    if (result.status != 0) throw std::runtime_error(result.err);
    return output;
  }

  const TempDir folder_;

  // Three scenes of two seconds each, that move.
  static constexpr const char* kThree =
      "testsrc2=size=160x90:rate=25:duration=2[a];mandelbrot=size=160x90:rate=25,"
      "trim=duration=2,setpts=PTS-STARTPTS,format=yuv420p[b];"
      "cellauto=size=160x90:rate=25:rule=18,trim=duration=2,setpts=PTS-STARTPTS,boxblur=3[c];";
};

TEST_F(MadeScenes, CutsAreFoundToThePicture) {
  const std::string movie = made(std::string(kThree) + "[a][b][c]concat=n=3");
  EXPECT_THAT(boundaries(movie),
              testing::ElementsAre(testing::DoubleNear(2, 0.001), testing::DoubleNear(4, 0.001)));
  const Scenes found = findScenes({.input = movie});
  EXPECT_EQ(found.scenes.front().start, 0);
  EXPECT_NEAR(static_cast<double>(found.scenes.back().end), 6e6, 1000);
  EXPECT_TRUE(found.report.isWhole());
}

TEST_F(MadeScenes, DissolvesAndFadesCountOnce) {
  EXPECT_THAT(
      boundaries(made(std::string(kThree) + "[a][b]xfade=duration=0.8:offset=1.2,format=yuv420p[d];"
                                            "[c]nullsink,[d]null")),
      testing::ElementsAre(testing::DoubleNear(1.6, 0.3)));
  EXPECT_THAT(
      boundaries(made(std::string(kThree) +
                      "[a]fade=out:st=1.4:d=0.6[x];[b]fade=in:st=0:d=0.6[y];[x][y]concat=n=2;"
                      "[c]nullsink")),
      testing::ElementsAre(testing::DoubleNear(2, 0.5)));
}

TEST_F(MadeScenes, FlashesPansAndFadesAtTheEndsAreNone) {
  // White for two pictures.
  EXPECT_THAT(boundaries(made("testsrc2=size=160x90:rate=25:duration=3,"
                              "drawbox=t=fill:color=white:enable='between(n,30,31)'")),
              testing::IsEmpty());
  EXPECT_THAT(boundaries(made("mandelbrot=size=640x360:rate=25,trim=end_frame=1,loop=75:1,"
                              "setpts=N/25/TB,crop=160:90:x='6*n':y=100")),
              testing::IsEmpty());
  EXPECT_THAT(boundaries(made("testsrc2=size=160x90:rate=25:duration=3,fade=in:st=0:d=0.8,"
                              "fade=out:st=2.2:d=0.8")),
              testing::IsEmpty());
}

TEST(Scenes, SheetShowsOnePictureOfEach) {
  const TempDir folder;
  const std::string movie = fixture("black-then-bars.mp4").string();
  const std::string sheet = (folder / "sheet.png").string();
  const Scenes scenes = findScenes({.input = movie, .sheet = sheet});
  ASSERT_EQ(scenes.scenes.size(), 2U);
  EXPECT_TRUE(scenes.report.isWhole());
  const std::string bytes = readBytes(sheet);
  const auto picture =
      bitmapImageWithData({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  ASSERT_TRUE(picture);
  EXPECT_GT(picture->width(), 2 * 160);
}

TEST(Scenes, WhatMakesNoSenseIsRefused) {
  const TempDir folder;
  EXPECT_THROW(findScenes({.input = (folder / "none.mp4").string()}), Failure);
  EXPECT_THROW(findScenes({.input = fixture("chirp.nut").string()}), Failure);
  const std::string movie = fixture("black-then-bars.mp4").string();
  EXPECT_THROW(findScenes({.input = movie, .sheet = (folder / "sheet.txt").string()}), Failure);
  EXPECT_THROW(findScenes({.input = movie, .columns = 0}), Failure);
  EXPECT_THAT(namesIn(folder.path()), testing::IsEmpty());
}

TEST(Scenes, AnInterruptEndsIt) {
  int told = 0;
  Events events;
  events.progress = [&](const Progress&) { ++told; };
  events.interrupt = [&] { return told > 3; };
  EXPECT_EQ(findScenes({.input = fixture("moving25.mp4").string()}, events).report.outcome,
            Report::Outcome::kInterrupted);
}

}  // namespace
}  // namespace kestrel::test
