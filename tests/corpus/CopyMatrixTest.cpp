#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
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
using testing::AnyOf;

const std::vector<std::string> kContainers{"mp4", "mov", "3gp", "mkv", "webm", "ts",  "mpg",
                                           "mxf", "avi", "asf", "flv", "ogg",  "nut", "wav",
                                           "w64", "mp3", "ac3", "tta", "flac", "caf", "aiff"};

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

/// A stream that has pictures or sound and is no cover.
struct Stream {
  std::string type;
  std::string codec;
  std::string tag;  // in its container

  std::string name() const { return type + " " + codec; }
};

/// Those of a file that are known; none for what is no file.
std::vector<Stream> streams(const fs::path& file) {
  const RunResult result =
      runPeer({"ffprobe", "-v", "error", "-show_entries",
               "stream=codec_name,codec_type,codec_tag_string:stream_disposition=attached_pic",
               "-of", "csv=p=0", file.string()});
  std::vector<Stream> all;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> fields;
    std::istringstream words(line);
    for (std::string field; std::getline(words, field, ',');) fields.push_back(field);
    if (fields.size() != 4 || fields[0] == "unknown" || fields[3] != "0") continue;
    if (fields[1] == "video" || fields[1] == "audio")
      all.push_back({fields[1], fields[0], fields[2]});
  }
  return all;
}

/// Whether a file has pictures that are decoded and not shown.
bool hidesPictures(const fs::path& file) {
  const auto flags = runPeer({"ffprobe", "-v", "error", "-select_streams", "V", "-show_entries",
                              "packet=flags", "-of", "csv=p=0", file.string()});
  return flags.out.find('D') != std::string::npos;
}

/// The first pictures and the first sound.
std::vector<Stream> firstOf(const std::vector<Stream>& all) {
  std::vector<Stream> first;
  for (const std::string type : {"video", "audio"})
    if (const auto found = std::ranges::find(all, type, &Stream::type); found != all.end())
      first.push_back(*found);
  return first;
}

std::vector<std::string> namesOf(const std::vector<Stream>& streams) {
  std::vector<std::string> names;
  std::ranges::transform(streams, std::back_inserter(names), &Stream::name);
  return names;
}

/// Checksums of a stream.
struct Sums {
  std::string packets;  // all of them
  std::string decoded;  // all samples, or the first pictures
};

class CopyMatrix : public testing::TestWithParam<std::string> {
 protected:
  bool copiesByFfmpeg(const fs::path& source, const fs::path& output) const {
    const RunResult result =
        run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-i", source.string(), "-map", "0:V:0?",
             "-map", "0:a:0?", "-c", "copy", output.string()});
    return result.status == 0 &&
           std::ranges::is_permutation(namesOf(streams(output)), namesOf(wanted_));
  }

  static std::string sumOf(const fs::path& file, const Arguments& what) {
    const auto command = joined({"ffmpeg", "-v", "error", "-nostdin", "-i", file.string()}, what);
    return runPeer(joined(command, {"-f", "streamhash", "-hash", "crc32", "-"})).out;
  }

  /// What brings packets into the one form that they can have in every container.
  static Arguments filterOf(const std::string& codec) {
    static const std::map<std::string, std::string> kFilters{{"h264", "h264_mp4toannexb"},
                                                             {"hevc", "hevc_mp4toannexb"},
                                                             {"mpeg4", "mpeg4_unpack_bframes"}};
    const auto filter = kFilters.find(codec);
    return filter == kFilters.end() ? Arguments{} : Arguments{"-bsf:v", filter->second};
  }

  /// Whatever the times of packets and pictures.
  static Sums sumsOf(const fs::path& file, const Stream& stream) {
    if (stream.type == "audio")
      return {sumOf(file, {"-map", "0:a:0", "-c", "copy"}), sumOf(file, {"-map", "0:a:0"})};
    return {sumOf(file, joined({"-map", "0:V:0", "-c", "copy"}, filterOf(stream.codec))),
            sumOf(file, {"-map", "0:V:0", "-vsync", "passthrough", "-frames:v", kMostPictures})};
  }

  /// All that ffmpeg's copy shows and lets hear is there; where that has lost something itself, all
  /// that the source has. `hides`: the source has pictures that are not shown, which need not be
  /// copied.
  static void compare(const Stream& stream, const Sums& source, const Sums& copied,
                      const Sums& copiedByFfmpeg, bool hides) {
    SCOPED_TRACE(stream.name());
    EXPECT_THAT(copied.decoded, AnyOf(copiedByFfmpeg.decoded, source.decoded));
    if (hides && stream.type == "video") return;
    EXPECT_THAT(copied.packets, AnyOf(copiedByFfmpeg.packets, source.packets));
  }

  TempDir folder_;
  std::vector<Stream> wanted_;  // those that are copied
};

TEST_P(CopyMatrix, WhereverFfmpegCopiesPicturesAndSoundAreTheSame) {
  if (GetParam() == kNoClips) KESTREL_NEED_MEDIA("README.md");
  const fs::path source = pathOf(GetParam());
  wanted_ = firstOf(streams(source));
  const bool hides = hidesPictures(source);
  std::vector<Sums> shown;
  for (const Stream& stream : wanted_) shown.push_back(sumsOf(source, stream));
  Arguments options{"--video-codec", "copy", "--audio-codec", "copy"};
  if (std::ranges::count(wanted_, "audio", &Stream::type) > 0)
    options.insert(options.end(), {"--audio-tracks", "0"});
  int copies = 0;
  for (const std::string& container : kContainers) {
    SCOPED_TRACE(container);
    const auto expected = folder_ / ("expected." + container);
    if (!copiesByFfmpeg(source, expected)) continue;
    std::vector<Sums> copiedByFfmpeg;
    for (const Stream& stream : wanted_) copiedByFfmpeg.push_back(sumsOf(expected, stream));
    // What no decoder finds its way in is no copy.
    if (std::ranges::count(copiedByFfmpeg, "", &Sums::decoded) > 0) continue;
    ++copies;
    const auto output = folder_ / ("out." + container);
    const RunResult result = convert(source, output, options);
    ASSERT_EQ(result.status, 0) << result.err;
    const auto made = firstOf(streams(output));
    ASSERT_EQ(namesOf(made), namesOf(wanted_));
    const auto madeByFfmpeg = firstOf(streams(expected));
    for (size_t i = 0; i < wanted_.size(); ++i) {
      compare(wanted_[i], shown[i], sumsOf(output, made[i]), copiedByFfmpeg[i], hides);
      EXPECT_EQ(made[i].tag, madeByFfmpeg[i].tag) << wanted_[i].name();
    }
    fs::remove(expected);
    fs::remove(output);
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
