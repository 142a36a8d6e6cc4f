#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <kestrel/convert/Compose.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Join.h>
#include "tests/corpus/Clips.h"
#include "tests/corpus/Content.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::HasSubstr;

const std::vector<std::string> kContainers{"mp4", "mov", "3gp", "mkv", "webm", "ts",  "mpg",
                                           "mxf", "avi", "asf", "flv", "ogg",  "nut", "wav",
                                           "w64", "mp3", "ac3", "tta", "flac", "caf", "aiff"};

/// Stands for the real clips where there are none.
constexpr char kNoClips[] = "real clips";

/// Every codec that the real clips have, and some that need their tag or their container's help.
std::vector<std::string> clips() {
  std::vector<std::string> names{"prores-lt.mov",     "prores-proxy.mov", "prores-4444.mov",
                                 "dnxhr-sq.mov",      "cineform.mov",     "odd-size.mkv",
                                 "mpeg4-bframes.avi", "groups-h264.mp4"};
  const std::vector<std::string> real = realClips();
  names.insert(names.end(), real.begin(), real.end());
  if (real.empty()) names.emplace_back(kNoClips);
  std::ranges::sort(names);
  return names;
}

fs::path pathOf(const std::string& clip) {
  const auto known = fixtureNames();
  return std::ranges::count(known, clip) > 0 ? fixture(clip) : mediaFile(clip);
}

/// Why a clip cannot follow itself in a container without being encoded; "" where it can.
std::string refusalOf(const std::string& clip, const std::string& container) {
  // Its sound ends 0.4 s before its pictures do, and AVI plays sound without pauses.
  if (clip == "mpeg2-mp3.ts" && container == "avi")
    return "the avi format has no place for the gap";
  return "";
}

std::vector<std::string> namesOf(const std::vector<Content>& contents) {
  std::vector<std::string> names;
  std::ranges::transform(contents, std::back_inserter(names), &Content::name);
  return names;
}

/// All that ffmpeg's copy shows and lets hear is there; where that has lost something itself, all
/// that the source has. Pictures that are not shown need not be copied.
void compare(const Content& copied, const Content& source, const Content& copiedByFfmpeg) {
  SCOPED_TRACE(source.name());
  EXPECT_THAT(copied.shown, AnyOf(copiedByFfmpeg.shown, source.shown));
  EXPECT_THAT(copied.heard, AnyOf(copiedByFfmpeg.heard, source.heard));
  EXPECT_EQ(copied.tag, copiedByFfmpeg.tag);
  if (source.hides) return;
  EXPECT_TRUE(copied.data == copiedByFfmpeg.data || copied.data == source.data);
}

/// Whether pictures begin with others, of which the last ones may come out later where more follow.
bool beginsLike(const std::vector<uint32_t>& shown, const std::vector<uint32_t>& once) {
  constexpr size_t kMostDelayed = 2;
  const auto sure = static_cast<std::ptrdiff_t>(once.size() - std::min(once.size(), kMostDelayed));
  return shown.size() >= once.size() &&
         std::equal(once.begin(), once.begin() + sure, shown.begin());
}

/// Whether all of a stream is there twice, but for a little of the sound where both meet. Some
/// containers add a few bytes to its end.
bool isTwice(const Content& joined, const Content& once) {
  constexpr size_t kMostAtTheSeam = 3;  // packets
  constexpr size_t kMostAdded = 7;      // bytes
  if (once.isVideo())
    return joined.packets == 2 * once.packets && joined.data == once.data + once.data;
  const size_t size = once.data.size();
  const size_t missing = once.begins.size() > kMostAtTheSeam ? once.begins[kMostAtTheSeam] : 0;
  if (joined.data.size() + missing < 2 * size || joined.data.size() > 2 * size + kMostAdded)
    return false;
  return joined.data.starts_with(once.data) && once.data.ends_with(joined.data.substr(size, size));
}

/// Every way to copy a clip's first pictures and first sound.
class CopyMatrix : public testing::TestWithParam<std::string> {
 protected:
  /// What ffmpeg copies into a container; empty where it doesn't, or where no decoder finds its way
  /// in what it makes.
  std::vector<Content> copiedByFfmpeg(const std::string& container) const {
    const fs::path output = folder_ / ("expected." + container);
    if (!mayHold(output, wanted_)) return {};
    const RunResult result =
        run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-i", source_.string(), "-map", "0:V:0?",
             "-map", "0:a:0?", "-c", "copy", output.string()});
    auto copied = result.status == 0 ? contentsOf(output) : std::vector<Content>();
    fs::remove(output);
    const bool isCopy = std::ranges::is_permutation(namesOf(copied), namesOf(wanted_)) &&
                        std::ranges::all_of(copied, &Content::isDecodable);
    return isCopy ? copied : std::vector<Content>();
  }

  /// What some work writes into a file.
  std::vector<Content> made(const fs::path& output, const std::function<Report()>& work) const {
    std::vector<Content> contents;
    try {
      const Report report = work();
      EXPECT_TRUE(report.isWhole()) << testing::PrintToString(report.findings);
      contents = contentsOf(output);
      EXPECT_EQ(namesOf(contents), namesOf(wanted_));
    } catch (const Failure& failure) {
      ADD_FAILURE() << failure.what();
    }
    fs::remove(output);
    contents.resize(wanted_.size());
    return contents;
  }

  std::vector<Content> converted(const fs::path& output) const {
    SCOPED_TRACE("convert");
    ConversionSettings settings{.input = source_.string(), .output = output.string()};
    for (const Content& each : wanted_)
      applyOptions(each.isVideo()
                       ? ConversionOptions{{"video-codec", "copy"}}
                       : ConversionOptions{{"audio-codec", "copy"}, {"audio-tracks", "0"}},
                   settings);
    return made(output, [&] { return Conversion(settings).run(); });
  }

  std::vector<Content> composed(const fs::path& output) const {
    SCOPED_TRACE("compose");
    CompositionSettings settings{.output = output.string()};
    for (const Content& each : wanted_)
      settings.placements.push_back({.path = source_.string(), .track = each.index});
    return made(output, [&] { return compose(settings); });
  }

  /// Twice the clip is all of it twice.
  void joinsTwice(const fs::path& output, const std::vector<Content>& once) const {
    SCOPED_TRACE("join");
    const std::string refusal = refusalOf(GetParam(), output.extension().string().substr(1));
    try {
      const Report report = join({.inputs = {{source_.string()}, {source_.string()}},
                                  .output = output.string(),
                                  .reencode = JoinSettings::Reencode::kNever});
      EXPECT_TRUE(report.isWhole()) << testing::PrintToString(report.findings);
      ASSERT_EQ(refusal, "");
    } catch (const Failure& failure) {
      ASSERT_NE(refusal, "") << failure.what();
      EXPECT_THAT(failure.what(), HasSubstr(refusal));
      return;
    }
    const auto joined = packetsOf(output);
    ASSERT_EQ(namesOf(joined), namesOf(wanted_));
    for (size_t i = 0; i < once.size(); ++i) {
      SCOPED_TRACE(once[i].name());
      if (wanted_[i].hides) {
        EXPECT_TRUE(beginsLike(shownFrom(output, 0), once[i].shown));
        continue;
      }
      EXPECT_TRUE(isTwice(joined[i], once[i]) || isTwice(joined[i], wanted_[i]));
      const bool showsBehindTheSeam =
          !once[i].isVideo() || shownFrom(output, once[i].packets) == once[i].shown;
      EXPECT_TRUE(showsBehindTheSeam);
    }
    fs::remove(output);
  }

  TempDir folder_;
  fs::path source_;
  std::vector<Content> wanted_;  // what is copied
};

TEST_P(CopyMatrix, WhereverFfmpegCopiesPicturesAndSoundAreTheSame) {
  if (GetParam() == kNoClips) KESTREL_NEED_MEDIA("README.md");
  source_ = pathOf(GetParam());
  wanted_ = contentsOf(source_);
  int copies = 0;
  for (const std::string& container : kContainers) {
    SCOPED_TRACE(container);
    const auto expected = copiedByFfmpeg(container);
    if (expected.empty()) continue;
    ++copies;
    const fs::path output = folder_ / ("out." + container);
    const auto copied = converted(output);
    const auto placed = composed(output);
    for (size_t i = 0; i < wanted_.size(); ++i) {
      compare(copied[i], wanted_[i], expected[i]);
      compare(placed[i], wanted_[i], expected[i]);
    }
    joinsTwice(output, copied);
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
