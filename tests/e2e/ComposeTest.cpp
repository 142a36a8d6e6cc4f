#include <gmock/gmock.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <cmath>
#include <filesystem>

#include "tests/e2e/Decoded.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

class ComposeTest : public testing::Test {
 protected:
  static RunResult compose(const Arguments& arguments) {
    return run(joined({kestrelBinary(), "compose"}, arguments));
  }

  /// Presentation times of a stream's packets, in microseconds, and their hashes.
  static std::vector<std::pair<int64_t, std::string>> packets(const fs::path& file,
                                                              const std::string& kind) {
    const auto probed = ffprobeJson(file, {"-show_packets", "-select_streams", kind + ":0"});
    const auto hashes = packetHashes(file, kind);
    std::vector<std::pair<int64_t, std::string>> all;
    for (size_t i = 0; i < hashes.size(); ++i) {
      const auto time = probed["packets"][i]["pts_time"].get<std::string>();
      all.emplace_back(std::llround(std::stod(time) * 1e6), hashes[i]);
    }
    return all;
  }

  TempDir folder_;
  const std::string output_ = (folder_ / "out.mp4").string();
};

TEST_F(ComposeTest, PicturesOfOneFileAndSoundOfAnotherAtPositions) {
  const auto pictures = fixture("av25.mp4");
  const auto sound = fixture("av60.mp4");
  const RunResult result =
      compose({"-o", output_, pictures.string() + ":0@0", sound.string() + ":1@0:01.500"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_EQ(packets(output_, "v"), packets(pictures, "v"));
  auto expected = packets(sound, "a");
  for (auto& packet : expected) packet.first += 1500000;
  EXPECT_EQ(packets(output_, "a"), expected);
}

TEST_F(ComposeTest, AStoredCompositionGivesTheSameFile) {
  const auto stored = (folder_ / "stored.plist").string();
  const auto clip = fixture("av25.mp4").string();
  ASSERT_EQ(compose({"--save", stored, clip + ":1@1.25", clip}).status, 0);
  ASSERT_EQ(compose({"--load", stored, "-o", output_}).status, 0);
  const auto direct = (folder_ / "direct.mp4").string();
  ASSERT_EQ(compose({"-o", direct, clip + ":1@1.25", clip}).status, 0);
  EXPECT_EQ(readBytes(output_), readBytes(direct));
  EXPECT_EQ(packets(output_, "a").front().first, packets(clip, "a").front().first + 1250000);
}

TEST_F(ComposeTest, PythonReadsAStoredCompositionAndWritesOne) {
  const auto stored = (folder_ / "stored.plist").string();
  const auto clip = fixture("av25.mp4").string();
  ASSERT_EQ(compose({"--save", stored, clip + ":1@1.25"}).status, 0);
  const RunResult read = run({"python3", "-c", R"(
import plistlib, sys
p = plistlib.load(open(sys.argv[1], 'rb')); o = p['$objects']
get = lambda uid: o[uid.data]
root = get(p['$top']['root'])
d = dict(zip([get(k) for k in root['NS.keys']], [get(v) for v in root['NS.objects']]))
track = get(d['tracks']['NS.objects'][0])
print(get(track['path']) == sys.argv[2], track['position'], track['rate'], get(d['streams']['NS.objects'][0]))
)",
                              stored, clip});
  EXPECT_EQ(read.out, "True 1.25 1.0 1\n");
  // One without numbers of streams, as another program may write it.
  const RunResult written = run({"python3", "-c", R"(
import plistlib, sys
U = plistlib.UID
def cls(*n): return {'$classname': n[0], '$classes': list(n)}
plistlib.dump({'$archiver': 'NSKeyedArchiver', '$version': 100000, '$top': {'root': U(1)}, '$objects': ['$null',
  {'$class': U(2), 'NS.keys': [U(3)], 'NS.objects': [U(4)]}, cls('NSDictionary', 'NSObject'), 'tracks',
  {'$class': U(5), 'NS.objects': [U(6)]}, cls('NSArray', 'NSObject'),
  {'$class': U(7), 'path': U(8), 'position': 0.5, 'rate': 1.0}, cls('LMMovieCompositionTrack', 'NSObject'),
  sys.argv[2]]}, open(sys.argv[1], 'wb'), fmt=plistlib.FMT_BINARY)
)",
                                 stored, clip});
  ASSERT_EQ(written.status, 0) << written.err;
  ASSERT_EQ(compose({"--load", stored, "-o", output_}).status, 0);
  EXPECT_EQ(packets(output_, "v").front().first, 500000);
}

TEST_F(ComposeTest, NamesThatLookLikePlacementsAreFiles) {
  const auto odd = folder_ / "a:1@2.mp4";
  fs::copy_file(fixture("av25.mp4"), odd);
  ASSERT_EQ(compose({"-o", output_, odd.string() + ":1@3", odd.string()}).status, 0);
  EXPECT_EQ(packets(output_, "v").front().first, 0);
  EXPECT_NEAR(static_cast<double>(packets(output_, "a").front().first), 3e6, 30000);
}

TEST_F(ComposeTest, AStoredCompositionKeepsRatesOfOthers) {
  const auto stored = (folder_ / "stored.plist").string();
  const auto again = (folder_ / "again.plist").string();
  const auto track = std::make_shared<LMMovieCompositionTrack>();
  track->setPath(fixture("av25.mp4").string());
  track->setRate(2);
  const CodedValue root = CodedValue::Dictionary{{"tracks", CodedValue::Array{track}}};
  ASSERT_TRUE(KeyedArchiver::archiveRootObject(root, stored));
  ASSERT_EQ(compose({"--load", stored, "--save", again}).status, 0);
  const CodedValue back = KeyedUnarchiver::unarchiveObjectWithFile(again);
  const auto tracks = back.as<std::shared_ptr<CodedValue::Dictionary>>()->at("tracks");
  const auto list = tracks.as<std::shared_ptr<CodedValue::Array>>();
  ASSERT_EQ(list->size(), 1);
  EXPECT_EQ(list->front().object<LMMovieCompositionTrack>()->rate(), 2);
}

TEST_F(ComposeTest, StoredNumbersThatAreNoStreamsAreRefused) {
  const auto stored = (folder_ / "stored.plist").string();
  const auto track = std::make_shared<LMMovieCompositionTrack>();
  track->setPath(fixture("av25.mp4").string());
  for (const int64_t number : {int64_t{-1}, (int64_t{1} << 32) + 1}) {
    const CodedValue root = CodedValue::Dictionary{{"tracks", CodedValue::Array{track}},
                                                   {"streams", CodedValue::Array{number}}};
    ASSERT_TRUE(KeyedArchiver::archiveRootObject(root, stored));
    EXPECT_TRUE(endsWithSentence(compose({"--load", stored, "-o", output_}), 1, "number"))
        << number;
  }
}

TEST_F(ComposeTest, AFileIsNeverReplacedByAList) {
  const auto own = folder_ / "own.mp4";
  fs::copy_file(fixture("av25.mp4"), own);
  const std::string before = readBytes(own);
  fs::create_symlink(own, folder_ / "link.mp4");
  for (const fs::path& target : {own, folder_ / "link.mp4", folder_ / "." / "own.mp4"})
    EXPECT_TRUE(endsWithSentence(compose({"--save", target.string(), own.string(), "--force"}), 1,
                                 "input itself"));
  EXPECT_EQ(readBytes(own), before);
  const auto same = (folder_ / "." / "out.mp4").string();
  EXPECT_TRUE(
      endsWithSentence(compose({"--save", output_, "-o", same, own.string()}), 2, "--save"));
  EXPECT_TRUE(endsWithSentence(compose({"--save", output_, "-o", same, own.string(), "--force"}), 2,
                               "--save"));
  EXPECT_FALSE(fs::exists(output_));
}

TEST_F(ComposeTest, AListIsStoredOnlyWhereTheWholeIsDone) {
  const auto stored = folder_ / "stored.plist";
  const auto clip = fixture("av25.mp4").string();
  EXPECT_TRUE(endsWithSentence(compose({"--save", stored.string(), "absent.mp4"}), 1, "absent"));
  EXPECT_TRUE(endsWithSentence(compose({"--save", stored.string(), clip + ":9"}), 1, "stream 9"));
  EXPECT_TRUE(endsWithSentence(
      compose({"--save", stored.string(), "-o", (folder_ / "out.webm").string(), clip}), 1,
      "h264"));
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
}

// Property lists hold text.
TEST_F(ComposeTest, ANameThatIsNoTextIsNotStored) {
  const auto clip = folder_ / "caf\xE9.mp4";
  fs::copy_file(fixture("av25.mp4"), clip);
  const auto list = folder_ / "p.plist";
  const RunResult result =
      run({kestrelBinary(), "compose", "--save", list.string(), clip.string()});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, testing::HasSubstr("its name is no UTF-8"));
  EXPECT_FALSE(fs::exists(list));
}

TEST_F(ComposeTest, AviHasNoPlaceForPositionsOfSound) {
  const auto avi = folder_ / "in.avi";
  ffmpeg({"-i", fixture("av25.mp4").string(), "-c:v", "mpeg4", "-c:a", "mp3", avi.string()});
  const auto output = (folder_ / "out.avi").string();
  EXPECT_TRUE(endsWithSentence(compose({"-o", output, avi.string(), avi.string() + ":1@1.25"}), 1,
                               "the avi format has no place for the gap"));
  EXPECT_TRUE(endsWithSentence(compose({"-o", output, avi.string() + "@0.5"}), 1, "gap"));
  EXPECT_FALSE(fs::exists(output));
  EXPECT_EQ(compose({"-o", output, avi.string(), avi.string() + ":1"}).status, 0);
  EXPECT_EQ(packetHashes(output, "a"), packetHashes(avi, "a"));
}

TEST_F(ComposeTest, PicturesWithoutTimesAreShownInTheirOrder) {
  const auto clip = fixture("mpeg4-bframes.avi");
  for (const char* name : {"out.mp4", "out.mkv"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    const RunResult result = compose({"-o", output.string(), clip.string()});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(pictureBytes(output, "format=yuv420p") == pictureBytes(clip, "format=yuv420p"));
    const auto times = pictureTimes(output);
    ASSERT_EQ(times.size(), 50U);
    for (size_t i = 1; i < times.size(); ++i) EXPECT_NEAR(times[i] - times[i - 1], 0.04, 0.0011);
  }
}

TEST_F(ComposeTest, AnInputThatEndsEarlyIsToldOf) {
  const auto whole = folder_ / "whole.mp4";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-c", "copy", "-movflags", "+faststart",
          whole.string()});
  const auto cut = folder_ / "cut.mp4";
  const std::string bytes = readBytes(whole);
  writeBytes(cut, bytes.substr(0, bytes.size() / 2));
  const RunResult result = compose({"-o", output_, cut.string() + ":0", whole.string() + ":1"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, testing::HasSubstr("cut.mp4' ended early, at "));
  EXPECT_THAT(result.err, testing::Not(testing::HasSubstr("whole")));
  EXPECT_FALSE(packets(output_, "v").empty());
}

TEST_F(ComposeTest, ATrackThatIsShorterThanItsFileHasNotEndedEarly) {
  const auto clip = folder_ / "short-sound.mkv";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-i", fixture("av25.mp4").string(), "-map",
          "0:v", "-map", "1:a", "-c", "copy", clip.string()});
  const RunResult result = compose({"-o", output_, clip.string() + ":1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
}

TEST_F(ComposeTest, WrongUsageIsOneSentence) {
  const auto clip = fixture("av25.mp4").string();
  EXPECT_TRUE(endsWithSentence(compose({clip}), 2, "-o"));
  EXPECT_TRUE(endsWithSentence(compose({"-o", output_}), 2, "no track"));
  EXPECT_TRUE(endsWithSentence(compose({"-o", output_, clip + ":9"}), 1, "no stream 9"));
  EXPECT_TRUE(endsWithSentence(compose({"-o", output_, clip + ":"}), 2, "numbers from 0"));
  EXPECT_TRUE(endsWithSentence(compose({"-o", output_, clip + ":-1"}), 2, "numbers from 0"));
  EXPECT_TRUE(endsWithSentence(compose({"-o", output_, clip + "@soon"}), 2, "soon"));
  EXPECT_TRUE(endsWithSentence(compose({"-o", output_, "absent.mp4"}), 1, "absent.mp4"));
  EXPECT_TRUE(endsWithSentence(compose({"-o", (folder_ / "out.webm").string(), clip}), 1, "h264"));
  EXPECT_TRUE(endsWithSentence(compose({"--load", clip, "-o", output_}), 1, "no stored"));
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
  writeBytes(output_, "precious");
  EXPECT_TRUE(endsWithSentence(compose({"-o", output_, clip}), 1, "--force"));
  EXPECT_EQ(readBytes(output_), "precious");
}

}  // namespace
}  // namespace kestrel::test
