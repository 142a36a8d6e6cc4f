#include <gmock/gmock.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/ConversionOptions.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr double kPicture = 0.04;  // seconds, in all clips

/// The checksums of the pictures that a file shows, in their order.
std::vector<std::string> pictures(const std::filesystem::path& file) {
  const RunResult result =
      runPeer({"ffmpeg", "-v", "error", "-flags", "+output_corrupt", "-i", file.string(), "-map",
               "0:v:0", "-vsync", "passthrough", "-f", "framemd5", "-"});
  std::istringstream lines(result.out);
  std::vector<std::string> sums;
  for (std::string line; std::getline(lines, line);)
    if (!line.empty() && line[0] != '#') sums.push_back(line.substr(line.rfind(',') + 1));
  return sums;
}

/// When the first pictures of a file are shown, seconds.
std::vector<double> firstTimes(const std::filesystem::path& file) {
  std::vector<double> times;
  const auto frames = ffprobeJson(file, {"-show_frames", "-select_streams", "v:0"})["frames"];
  for (size_t i = 0; i < std::min<size_t>(frames.size(), 3); ++i)
    times.push_back(std::stod(frames[i]["pts_time"].get<std::string>()));
  return times;
}

class CopiedSpan : public testing::Test {
 protected:
  Report copy(const std::string& clip, const std::string& container, double start, double length) {
    output_ = folder_ / ("copy." + container);
    ConversionSettings settings{
        .input = fixture(clip).string(), .output = output_.string(), .replaces = true};
    applyOptions({{"video-codec", "copy"}}, settings);
    settings.audio = StreamAction::kCopy;
    settings.start = std::llround(start * 1e6);
    settings.duration = std::llround(length * 1e6);
    return Conversion(settings).run();
  }

  /// That the copy shows the clip's pictures from one on. At its end it has those that the last
  /// ones of the span need.
  void expectPicturesFrom(const std::string& clip, size_t first, size_t count) {
    const auto all = pictures(fixture(clip));
    const auto copied = pictures(output_);
    ASSERT_GE(copied.size(), count);
    EXPECT_LE(copied.size(), count + 3);
    for (size_t i = 0; i < count; ++i) EXPECT_EQ(copied[i], all[first + i]) << i;
  }

  TempDir folder_;
  std::filesystem::path output_;
};

// Whether the key picture lies before the start, at it, or behind the pictures that it leads.
TEST_F(CopiedSpan, BeginsWithThePictureAskedForWhereOthersCanBeHidden) {
  for (const std::string clip :
       {"groups-h264.mp4", "groups-hevc.mp4", "open-h264.mp4", "open-hevc.mp4"})
    for (const size_t first : {8, 9, 10, 13}) {
      const std::string container = first == 8 ? "mov" : "mp4";
      SCOPED_TRACE(testing::Message() << clip << " " << container << " from " << first);
      const Report report = copy(clip, container, static_cast<double>(first) * kPicture, 0.6);
      EXPECT_THAT(report.leftOut, IsEmpty());
      EXPECT_THAT(report.encoded, IsEmpty());
      expectPicturesFrom(clip, first, 15);
      EXPECT_THAT(firstTimes(output_),
                  ElementsAre(testing::DoubleNear(0, 0.001), testing::DoubleNear(0.04, 0.001),
                              testing::DoubleNear(0.08, 0.001)));
    }
}

TEST_F(CopiedSpan, APictureThatIsStillShownAtTheStartIsShownForTheRestOfItsTime) {
  copy("groups-h264.mp4", "mp4", 11.5 * kPicture, 0.6);
  expectPicturesFrom("groups-h264.mp4", 11, 15);
  EXPECT_THAT(firstTimes(output_),
              ElementsAre(testing::DoubleNear(0, 0.001), testing::DoubleNear(0.02, 0.001),
                          testing::DoubleNear(0.06, 0.001)));
}

TEST_F(CopiedSpan, ElsewhereItBeginsWithTheNextKeyPictureAndThatIsSaid) {
  for (const std::string container : {"mkv", "ts", "avi"}) {
    SCOPED_TRACE(container);
    const Report report = copy("groups-h264.mp4", container, 11 * kPicture, 0.8);
    ASSERT_EQ(report.leftOut.size(), 1);
    EXPECT_THAT(report.leftOut[0], StartsWith("lost in pictures #0 (h264) of '"));
    EXPECT_THAT(report.leftOut[0], HasSubstr("the first 0.200 s, up to the key picture"));
    EXPECT_TRUE(report.isWhole());
    expectPicturesFrom("groups-h264.mp4", 16, 15);
    EXPECT_THAT(copy("groups-h264.mp4", container, 16 * kPicture, 0.6).leftOut, IsEmpty());
    expectPicturesFrom("groups-h264.mp4", 16, 15);
  }
}

// They would be made of pictures that are not there.
TEST_F(CopiedSpan, PicturesThatTheFirstKeyPictureLeadsAreLeftOut) {
  for (const std::string clip : {"open-h264.mp4", "open-hevc.mp4"}) {
    SCOPED_TRACE(clip);
    const auto key = [&] {
      for (size_t first = 6; first < 30; ++first)
        if (copy(clip, "mkv", static_cast<double>(first) * kPicture, 0.6).leftOut.empty())
          return first;
      return size_t{0};
    }();
    ASSERT_GE(key, 6);
    copy(clip, "mkv", static_cast<double>(key - 1) * kPicture, 0.6);
    expectPicturesFrom(clip, key, 14);
  }
}

TEST_F(CopiedSpan, CountsThePicturesThatAreShown) {
  output_ = folder_ / "copy.mp4";
  ConversionSettings settings{
      .input = fixture("groups-h264.mp4").string(), .output = output_.string(), .start = 520000};
  applyOptions({{"video-codec", "copy"}}, settings);
  int64_t counted = 0;
  Events events;
  events.progress = [&](const Progress& progress) { counted = progress.pictures; };
  Conversion(settings).run(events);
  EXPECT_LE(counted, 37);
}

}  // namespace
}  // namespace kestrel::test
