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

const std::vector<std::string> kContainers{"mp4", "mov", "mkv", "ts", "avi", "webm"};

/// So many of a clip's first pictures are decoded.
constexpr char kMostPictures[] = "25";

/// Every codec that the real clips have, and some that need their tag or their container's help.
std::vector<std::string> clips() {
  static const std::set<std::string> kNotMovies{".md", ".srt"};
  std::vector<std::string> names{"prores-lt.mov",     "prores-proxy.mov", "prores-4444.mov",
                                 "dnxhr-sq.mov",      "cineform.mov",     "odd-size.mkv",
                                 "mpeg4-bframes.avi", "groups-h264.mp4"};
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(mediaFile(""), error))
    if (!kNotMovies.contains(entry.path().extension().string()))
      names.push_back(entry.path().filename().string());
  std::ranges::sort(names);
  return names;
}

fs::path pathOf(const std::string& clip) {
  const auto known = fixtureNames();
  return std::ranges::count(known, clip) > 0 ? fixture(clip) : mediaFile(clip);
}

/// The types of a file's streams that have pictures or sound and are no covers; none for what is no
/// file.
std::multiset<std::string> streamTypes(const fs::path& file) {
  std::multiset<std::string> types;
  const RunResult result = runPeer({"ffprobe", "-v", "error", "-show_entries",
                                    "stream=codec_name,codec_type:stream_disposition=attached_pic",
                                    "-of", "csv=p=0", file.string()});
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);)
    for (const std::string type : {"video", "audio"})
      if (line.find("," + type + ",0") != std::string::npos && !line.starts_with("unknown"))
        types.insert(type);
  return types;
}

/// A checksum of a file's first decoded pictures, whatever their times.
std::string pictures(const fs::path& file) {
  return runPeer({"ffmpeg", "-v", "error", "-nostdin", "-i", file.string(), "-map", "0:V:0?",
                  "-vsync", "passthrough", "-frames:v", kMostPictures, "-f", "streamhash", "-hash",
                  "crc32", "-"})
      .out;
}

class CopyMatrix : public testing::TestWithParam<std::string> {
 protected:
  bool copiesByFfmpeg(const fs::path& source, const fs::path& output) const {
    const RunResult result =
        run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-i", source.string(), "-map", "0:V:0?",
             "-map", "0:a:0?", "-c", "copy", output.string()});
    return result.status == 0 && streamTypes(output) == wanted_;
  }

  TempDir folder_;
  std::multiset<std::string> wanted_;  // types of the streams that are copied
};

TEST_P(CopyMatrix, WhereverFfmpegCopiesThePicturesAreTheSame) {
  const fs::path source = pathOf(GetParam());
  const auto own = streamTypes(source);
  for (const std::string type : {"video", "audio"})
    if (own.contains(type)) wanted_.insert(type);
  const auto shown = wanted_.contains("video") ? pictures(source) : "";
  int copies = 0;
  for (const std::string& container : kContainers) {
    SCOPED_TRACE(container);
    const auto expected = folder_ / ("expected." + container);
    if (!copiesByFfmpeg(source, expected)) continue;
    ++copies;
    const auto output = folder_ / ("out." + container);
    const RunResult result = convert(
        source, output, {"--video-codec", "copy", "--audio-codec", "copy", "--audio-tracks", "0"});
    EXPECT_TRUE(result.status == 0 || result.status == 3) << result.err;
    EXPECT_EQ(streamTypes(output), wanted_);
    const auto copied = wanted_.contains("video") ? pictures(output) : "";
    EXPECT_TRUE(copied == shown || copied == pictures(expected)) << shown << copied;
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
