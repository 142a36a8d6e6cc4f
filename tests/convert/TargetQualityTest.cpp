#include <gmock/gmock.h>
#include <kestrel/convert/Compare.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/MediaInfo.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class TargetQualityTest : public testing::Test {
 protected:
  TargetQualityTest() {
    settings_.input = fixture("moving25.mp4").string();
    settings_.output = (folder_ / "out.mkv").string();
    settings_.encoderPreset = "ultrafast";
    settings_.targetQuality.emplace();
    events_.note = [this](const std::string& sentence) { notes_.push_back(sentence); };
  }

  Report converted() { return Conversion(settings_).run(events_); }

  /// Of every picture of the result.
  double percentile() const {
    return compare({.original = settings_.input, .distorted = settings_.output}).percentile5;
  }

  std::string codec() const {
    const MediaInfo info = readMediaInfo(settings_.output);
    return info.streams[*info.mainVideo].codec;
  }

  const TempDir folder_;
  ConversionSettings settings_;
  Events events_;
  std::vector<std::string> notes_;
};

TEST_F(TargetQualityTest, IsReachedAndMeasured) {
  for (const double target : {60.0, 80.0}) {
    settings_.targetQuality->score = target;
    settings_.replaces = true;
    const Report report = converted();
    ASSERT_TRUE(report.quality);
    EXPECT_NEAR(report.quality->percentile5, target, 1.5);
    EXPECT_NEAR(percentile(), target, 1.5);
    EXPECT_EQ(report.quality->target, target);
    EXPECT_GE(report.quality->encodes, 1);
    EXPECT_EQ(report.quality->remark, "");
  }
}

TEST_F(TargetQualityTest, IsReachedByEveryEncoderThatTakesOne) {
  settings_.duration = 2'000'000;
  settings_.targetQuality->score = 70;
  settings_.replaces = true;
  // Of numbers without fractions, a step may be wide.
  for (const auto& [encoder, preset, near] : {std::tuple{"libx265", "ultrafast", 1.5},
                                              {"libvpx-vp9", "8", 2.5},
                                              {"libsvtav1", "12", 5.0}}) {
    settings_.videoCodec = encoder;
    settings_.encoderPreset = preset;
    const Report report = converted();
    ASSERT_TRUE(report.quality) << encoder;
    EXPECT_NEAR(report.quality->percentile5, 70, near) << encoder;
    EXPECT_NEAR(percentile(), report.quality->percentile5, 0.01) << encoder;
  }
}

// Half of it is all noise, the other half hardly moves.
TEST_F(TargetQualityTest, ScenesGetWhatTheyNeed) {
  settings_.input = fixture("noise-then-bars.mp4").string();
  for (const char* encoder : {"libx264", "libx265"}) {
    settings_.videoCodec = encoder;
    settings_.targetQuality->per = TargetQuality::Per::kScene;
    settings_.replaces = true;
    const Report report = converted();
    EXPECT_NEAR(report.quality->percentile5, 80, 2.5) << encoder;
    const auto spread = [&] {
      const auto scores = compare({.original = settings_.input, .distorted = settings_.output});
      double halves[2] = {0, 0};
      for (const PictureScore& each : scores.scores)
        halves[each.time >= 2'000'000] +=
            each.score / (static_cast<double>(scores.scores.size()) / 2);
      return std::abs(halves[0] - halves[1]);
    };
    const double own = spread();
    settings_.targetQuality->per = TargetQuality::Per::kFile;
    converted();
    EXPECT_LT(own, 0.8 * spread()) << encoder;
    EXPECT_THAT(notes_, IsEmpty());
  }
}

TEST_F(TargetQualityTest, AnEncoderWithoutZonesGetsOneForTheFileWhichIsTold) {
  settings_.duration = 1'000'000;
  settings_.videoCodec = "libvpx-vp9";
  settings_.encoderPreset = "8";
  settings_.targetQuality->per = TargetQuality::Per::kScene;
  settings_.targetQuality->score = 50;
  EXPECT_TRUE(converted().quality);
  EXPECT_THAT(notes_, ElementsAre(HasSubstr("one quality for a file")));
}

// As coarse as it is, anything that looks like it is larger.
TEST_F(TargetQualityTest, ASmallSourceIsCopied) {
  const std::string coarse = (folder_ / "coarse.mkv").string();
  ASSERT_EQ(run({"ffmpeg", "-v", "error", "-i", settings_.input, "-c:v", "mpeg2video", "-q:v", "20",
                 "-an", coarse})
                .status,
            0);
  settings_.input = coarse;
  settings_.targetQuality->score = 90;
  settings_.targetQuality->unlessSmaller = 0.1;
  Report report = converted();
  EXPECT_TRUE(report.quality->isCopied);
  EXPECT_THAT(report.quality->remark, HasSubstr("bytes"));
  EXPECT_EQ(codec(), "mpeg2video");

  // What is shaped cannot be copied, and is encoded.
  settings_.width = 96;
  settings_.replaces = true;
  report = converted();
  EXPECT_FALSE(report.quality->isCopied);
  EXPECT_THAT(report.quality->remark, HasSubstr("cannot be copied"));
  EXPECT_EQ(codec(), "h264");
}

TEST_F(TargetQualityTest, ASourceThatIsLargeEnoughIsEncoded) {
  settings_.targetQuality->score = 40;
  settings_.targetQuality->unlessSmaller = 0.1;
  EXPECT_FALSE(converted().quality->isCopied);
}

TEST_F(TargetQualityTest, ShapedPicturesAreMeasuredAsTheyGoToTheEncoder) {
  settings_.look.crop = Area{16, 8, 128, 80};
  settings_.look.hflip = true;
  settings_.denoising = Denoising::kLight;
  settings_.width = 96;
  settings_.start = 1'000'000;
  settings_.targetQuality->score = 70;
  EXPECT_NEAR(converted().quality->percentile5, 70, 1.5);
}

TEST_F(TargetQualityTest, TheSearchIsReported) {
  settings_.targetQuality->report = (folder_ / "search.json").string();
  const Report report = converted();
  const auto document = nlohmann::json::parse(readBytes(folder_ / "search.json"));
  EXPECT_EQ(document["target"], 80);
  EXPECT_EQ(document["encoder"], "libx264");
  EXPECT_EQ(document["probes"].size(), static_cast<size_t>(report.quality->probes));
  EXPECT_EQ(document["encodes"].size(), static_cast<size_t>(report.quality->encodes));
  EXPECT_EQ(document["chosen"]["crf"], report.quality->crf);
  EXPECT_EQ(document["encodes"][0]["size"].get<uint64_t>() > 0, true);
  EXPECT_TRUE(readBytes(folder_ / "search.svg").starts_with("<svg"));
}

TEST_F(TargetQualityTest, TheSearchCostsWhatItMay) {
  settings_.input = fixture("long-moving25.mp4").string();
  settings_.targetQuality->maxCost = 0.5;
  const int64_t dear = converted().quality->measured;
  settings_.targetQuality->maxCost = 0.05;
  settings_.replaces = true;
  const int64_t cheap = converted().quality->measured;
  // Three tenths of 1500 pictures; as few as there are to be in any case.
  EXPECT_NEAR(static_cast<double>(dear), 500, 10);
  EXPECT_NEAR(static_cast<double>(cheap), 100, 10);
}

TEST_F(TargetQualityTest, ProgressIsOfOneConversion) {
  std::vector<double> times;
  int64_t pictures = 0;
  events_.progress = [&](const Progress& progress) {
    times.push_back(progress.time);
    pictures = progress.pictures;
  };
  converted();
  EXPECT_TRUE(std::ranges::is_sorted(times));
  EXPECT_NEAR(times.back(), 4, 0.1);
  EXPECT_EQ(pictures, 100);
}

TEST_F(TargetQualityTest, AnInterruptLeavesNothing) {
  int asked = 0;
  events_.interrupt = [&] { return ++asked > 300; };
  EXPECT_EQ(converted().outcome, Report::Outcome::kInterrupted);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(TargetQualityTest, ContradictionsAreRefused) {
  const auto subjectOf = [](auto change) {
    ConversionSettings settings{.input = fixture("moving25.mp4").string(), .output = "x.mkv"};
    settings.targetQuality.emplace();
    change(settings);
    const Failure failure = failureOf([&] { Conversion(settings).plan(); });
    EXPECT_EQ(failure.kind(), Failure::Kind::kSettings) << failure.what();
    return failure.subject();
  };
  EXPECT_EQ(subjectOf([](auto& s) { s.crf = 20; }), "targetQuality");
  EXPECT_EQ(subjectOf([](auto& s) { s.targetQuality->score = 99; }), "targetQuality");
  EXPECT_EQ(subjectOf([](auto& s) { s.targetQuality->maxCost = -1; }), "maxCost");
  EXPECT_EQ(subjectOf([](auto& s) { s.targetQuality->unlessSmaller = 2; }), "unlessSmaller");
  EXPECT_EQ(subjectOf([](auto& s) { s.targetQuality->report = "x.txt"; }), "sampleReport");
  EXPECT_EQ(subjectOf([](auto& s) { s.videoCodec = "mpeg4"; }), "targetQuality");
  EXPECT_EQ(subjectOf([](auto& s) { s.output = "x.m3u8"; }), "targetQuality");
  EXPECT_EQ(subjectOf([](auto& s) { s.look.subtitles = "x.srt"; }), "targetQuality");
  EXPECT_EQ(subjectOf([](auto& s) { s.video = StreamAction::kCopy; }), "targetQuality");
}

TEST(TargetQualityOptions, SayWhatTheSettingsSay) {
  const auto settingsOf = [](const ConversionOptions& options) {
    ConversionSettings settings;
    applyOptions(options, settings);
    return settings.targetQuality.value_or(TargetQuality());
  };
  EXPECT_EQ(settingsOf({{"target-quality", "visually-lossless"}}).score, 90);
  EXPECT_EQ(settingsOf({{"target-quality", "high"}}).score, 80);
  EXPECT_EQ(settingsOf({{"target-quality", "good"}}).score, 70);
  const TargetQuality all = settingsOf({{"per", "scene"},
                                        {"target-quality", "83.5"},
                                        {"unless-smaller", "10%"},
                                        {"max-cost", "0.2"},
                                        {"sample-report", "x.json"}});
  EXPECT_EQ(all, (TargetQuality{.score = 83.5,
                                .per = TargetQuality::Per::kScene,
                                .unlessSmaller = 0.1,
                                .maxCost = 0.2,
                                .report = "x.json"}));
  for (const ConversionOption& option :
       {ConversionOption{"target-quality", "best"}, {"target-quality", "99"}, {"per", "scene"}})
    EXPECT_EQ(failureOf([&] { settingsOf({option}); }).kind(), Failure::Kind::kSettings);
  // A number of the encoder's that was typed displaces all of a preset's.
  EXPECT_THAT(withDefaults({{"crf", "20"}}, {{"target-quality", "80"}, {"per", "scene"}}),
              ElementsAre(ConversionOption{"crf", "20"}));
}

// A second of black, then bars: see the fixture.
TEST(ChaptersFromScenes, AreThoseOfTheResult) {
  const TempDir folder;
  ConversionSettings settings{.input = fixture("black-then-bars.mp4").string(),
                              .output = (folder / "out.mkv").string()};
  settings.encoderPreset = "ultrafast";
  settings.chapterSource = ChapterSource::kScenes;
  EXPECT_TRUE(Conversion(settings).run().isWhole());
  const auto chapters = [&] {
    return nlohmann::json::parse(
        run({"ffprobe", "-v", "error", "-show_chapters", "-of", "json", settings.output})
            .out)["chapters"];
  };
  auto found = chapters();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0]["start_time"], "0.000000");
  EXPECT_EQ(found[0]["tags"]["title"], "Scene 1");
  EXPECT_NEAR(std::stod(found[1]["start_time"].get<std::string>()), 1, 0.001);

  // Of a span, counted from its start.
  settings.start = 400'000;
  settings.replaces = true;
  Conversion(settings).run();
  found = chapters();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_NEAR(std::stod(found[1]["start_time"].get<std::string>()), 0.6, 0.001);

  settings.keepsMetadata = false;
  EXPECT_EQ(failureOf([&] { Conversion(settings).plan(); }).subject(), "chapterSource");
}

}  // namespace
}  // namespace kestrel::test
