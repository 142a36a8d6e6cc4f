#include <kestrel/convert/Conversion.h>

#include <kestrel/LibMedia.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

constexpr int64_t kSecond = 1'000'000;

/// The stream of a kind that ffprobe finds in a file.
nlohmann::json streamOf(const std::string& file, const std::string& kind) {
  const nlohmann::json told = ffprobeJson(file);
  for (const auto& stream : told["streams"])
    if (stream["codec_type"] == kind) return stream;
  return {};
}

/// What ffmpeg decodes of a file, in the form that `arguments` say.
std::string decoded(const std::string& file, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-nostdin", "-i", file});
  arguments.push_back("-");
  return run(arguments).out;
}

class ConversionPlanning : public testing::Test {
 protected:
  ConversionSettings settings() const {
    ConversionSettings settings{.input = fixture("numbered25.mp4").string(), .output = output_};
    settings.encoderPreset = "ultrafast";
    settings.duration = 2 * kSecond;
    return settings;
  }

  const TempDir folder_;
  const std::string output_ = folder_ / "out.mp4";
};

TEST_F(ConversionPlanning, ChangesThatCannotBeCarriedOutAreRefused) {
  const std::vector<std::pair<std::string, std::function<void(ConversionPlan&)>>> mistakes{
      {"videoIndex", [](auto& plan) { plan.videoIndex = 99; }},
      {"videoIndex", [](auto& plan) { plan.videoIndex = *plan.audioIndexes.begin(); }},
      {"videoIndex", [](auto& plan) { plan.videoIndex.reset(); }},
      {"audioIndexes", [](auto& plan) { plan.audioIndexes = {99}; }},
      {"audioTracks", [](auto& plan) { plan.audioIndexes.clear(); }},
      {"audioTracks", [](auto& plan) { plan.audioTracks.clear(); }},
      {"format.framerate",
       [](auto& plan) {
         plan.setRate({0, 0});
       }},
      {"format.framerate",
       [](auto& plan) {
         plan.setRate({25, -1});
       }},
      {"format.framerate",
       [](auto& plan) {
         plan.setRate({2'000'000'000, 1});
       }},
      {"format.width", [](auto& plan) { plan.format.width = 0; }},
      {"format.aspect", [](auto& plan) { plan.format.aspect = std::nanf(""); }},
      {"format.sample_rate", [](auto& plan) { plan.format.sample_rate = 0; }},
      {"format.channel_layout", [](auto& plan) { plan.format.channel_layout = 0; }},
      {"formatName", [](auto& plan) { plan.formatName = "nonsense"; }},
      {"volume", [](auto& plan) { plan.volume = NAN; }},
      {"crop",
       [](auto& plan) {
         plan.look.crop = Area{0, 0, -5, 5};
       }},
      {"picture",
       [](auto& plan) {
         plan.picture = Area{0, 0, 99999, 5};
       }},
      {"start", [](auto& plan) { plan.start = -1; }},
      {"end", [](auto& plan) { plan.start = *plan.end + 1; }},
      {"video", [](auto& plan) { plan.video = plan.audio = StreamAction::kNone; }},
      {"video",
       [](auto& plan) {
         plan.video = static_cast<StreamAction>(7), plan.audio = StreamAction::kNone;
       }},
      {"audio", [](auto& plan) { plan.audio = static_cast<StreamAction>(7); }},
      {"deinterlacing", [](auto& plan) { plan.deinterlacing = static_cast<Deinterlacing>(7); }}};
  for (const auto& [subject, change] : mistakes) {
    Conversion conversion(settings());
    const ConversionPlan plan = conversion.plan();
    change(conversion.plan());
    try {
      conversion.run();
      ADD_FAILURE() << subject << " was taken";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.kind(), Failure::Kind::kSettings) << failure.what();
      EXPECT_EQ(failure.subject(), subject);
    }
    EXPECT_FALSE(std::filesystem::exists(output_)) << subject;
  }
}

TEST_F(ConversionPlanning, APlanThatWasRefusedMayBeMendedAndRunOnce) {
  Conversion conversion(settings());
  const auto index = conversion.plan().videoIndex;
  conversion.plan().videoIndex = 99;
  EXPECT_THROW(conversion.run(), Failure);
  conversion.plan().videoIndex = index;
  EXPECT_TRUE(conversion.run().isWhole());
  try {
    conversion.run();
    ADD_FAILURE() << "ran twice";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
    EXPECT_EQ(failure.subject(), "run");
  }
}

TEST_F(ConversionPlanning, TheRateMayBeChanged) {
  Conversion conversion(settings());
  conversion.plan().setRate({10, 1});
  EXPECT_TRUE(conversion.run().isWhole());
  const auto video = streamOf(output_, "video");
  EXPECT_EQ(video["nb_frames"], "20");
  EXPECT_EQ(video["avg_frame_rate"], "10/1");
  for (const auto& stream : {video, streamOf(output_, "audio")})
    EXPECT_NEAR(std::stod(stream["duration"].get<std::string>()), 2, 0.05);
}

TEST_F(ConversionPlanning, TheTracksThatAreMixedMayBeChanged) {
  // Tones of 440 and 880 Hz, by which tests/fixtures/dvd/make_disc.py tells the tracks apart.
  const auto loudest = [&](const std::string& band) {
    const auto told =
        run({"ffmpeg", "-nostdin", "-i", output_, "-af",
             "bandpass=f=" + band + ":width_type=h:w=20,volumedetect", "-f", "null", "-"});
    const size_t at = told.err.find("max_volume: ");
    return at == std::string::npos ? 0 : std::stod(told.err.substr(at + 12));
  };
  ConversionSettings given = settings();
  given.input = (discFixture("pal") / "disc").string();
  given.title = 1;
  given.encoderPreset.clear();
  given.video = StreamAction::kNone;
  given.audioTracks = TrackChoice::of({0, 1});
  Conversion conversion(given);
  conversion.plan().audioTracks = {1};
  const Report report = conversion.run();
  EXPECT_TRUE(report.isWhole());
  EXPECT_GT(loudest("880"), -30);
  EXPECT_LT(loudest("440"), -50);
}

TEST_F(ConversionPlanning, AnInterruptedSearchForBarsPlansNothing) {
  ConversionSettings given = settings();
  given.input = fixture("boxed-late.mp4").string();
  given.look.autoCrop = true;
  const auto wanted = Conversion(given).plan().picture;
  ASSERT_TRUE(wanted);
  int patience = 1;
  for (bool isPlanned = false; !isPlanned; patience += patience / 4 + 1) {
    Conversion conversion(given);
    try {
      int asked = 0;
      EXPECT_EQ(conversion.plan({.interrupt = [&] { return ++asked > patience; }}).picture, wanted)
          << "interrupted after " << patience;
      isPlanned = true;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.kind(), Failure::Kind::kInterrupted) << failure.what();
    }
  }
  EXPECT_GT(patience, 20);
}

TEST_F(ConversionPlanning, VolumeAndTagsMayBeChanged) {
  ConversionSettings given = settings();
  given.input = fixture("av-tags.mp4").string();
  given.duration.reset();
  Conversion conversion(given);
  ASSERT_TRUE(conversion.plan().keepsMetadata);
  conversion.plan().keepsMetadata = false;
  conversion.plan().volume = 0;
  EXPECT_TRUE(conversion.run().isWhole());
  const auto told = ffprobeJson(output_);
  EXPECT_FALSE(told["format"]["tags"].contains("title"));
  EXPECT_TRUE(told["chapters"].empty());
  const std::string samples = decoded(output_, {"-map", "0:a", "-f", "s16le"});
  EXPECT_GT(samples.size(), 44100u);
  EXPECT_EQ(samples.find_first_not_of('\0'), std::string::npos);
}

TEST_F(ConversionPlanning, DeinterlacingMayBeChanged) {
  const auto pictures = [&](bool bySettings, Deinterlacing byPlan) {
    ConversionSettings given = settings();
    given.input = fixture("numbered25.mp4").string();
    given.replaces = true;
    if (bySettings) given.deinterlacing = Deinterlacing::kOn;
    Conversion conversion(given);
    if (!bySettings) conversion.plan().deinterlacing = byPlan;
    EXPECT_TRUE(conversion.run().isWhole());
    return decoded(output_, {"-map", "0:v", "-f", "framemd5"});
  };
  const std::string wanted = pictures(true, {});
  EXPECT_EQ(pictures(false, Deinterlacing::kOn), wanted);
  EXPECT_NE(pictures(false, Deinterlacing::kOff), wanted);
}

TEST_F(ConversionPlanning, WhatStaysBehindIsTold) {
  const auto leftOut = [&](ConversionSettings given, const char* name, const char* output) {
    given.input = fixture(name).string();
    given.output = folder_ / output;
    given.replaces = true;
    return Conversion(given).run().leftOut;
  };
  const auto leaving = [](const char* name, std::vector<std::string> things) {
    for (std::string& what : things) what = "left out of '" + fixture(name).string() + "': " + what;
    return things;
  };
  const auto nameOf = [](const char* code) { return LibMedia::displayStringForLanguage(code); };
  const ConversionSettings usual = settings();
  EXPECT_EQ(leftOut(usual, "av25.mp4", "out.mp4"), std::vector<std::string>{});
  EXPECT_EQ(leftOut(usual, "av-tracks.mkv", "out.mp4"),
            leaving("av-tracks.mkv",
                    {"sound #2 (aac, " + nameOf("fre") +
                         "): one sound track is taken unless others are named",
                     "subtitles #3 (subrip, " + nameOf("eng") +
                         "): subtitles are not taken along, they can be drawn into the pictures"}));
  EXPECT_EQ(leftOut(usual, "av25.mp4", "out.mp3"),
            leaving("av25.mp4", {"pictures #0 (h264): mp3 has no place for pictures"}));
  ConversionSettings all = usual;
  all.audioTracks = TrackChoice::all();
  all.look.subtitleTrack = TrackChoice{};
  EXPECT_EQ(leftOut(all, "av-tracks.mkv", "out.mp4"), std::vector<std::string>{});
  ConversionSettings copy;
  copy.video = copy.audio = StreamAction::kCopy;
  EXPECT_EQ(leftOut(copy, "av-rotated.mp4", "out.mov"), std::vector<std::string>{});
  // ffprobe finds no turn in these two containers.
  for (const auto& [output, muxer] : {std::pair{"out.mkv", "matroska"}, {"out.ts", "mpegts"}})
    EXPECT_EQ(leftOut(copy, "av-rotated.mp4", output),
              leaving("av-rotated.mp4", {std::string("the turn of its pictures, which ") + muxer +
                                         " cannot hold; encoding sets them upright"}));
}

TEST_F(ConversionPlanning, CoversFontsAndAttachmentsThatStayBehindAreTold) {
  const std::string note = fixture("subtitles.srt").string();
  const std::string attached = folder_ / "attached.mkv";
  const auto made = run({"ffmpeg",
                         "-v",
                         "error",
                         "-i",
                         fixture("av25.mp4").string(),
                         "-c",
                         "copy",
                         "-attach",
                         note,
                         "-metadata:s:2",
                         "mimetype=font/ttf",
                         "-metadata:s:2",
                         "filename=Own.ttf",
                         "-attach",
                         note,
                         "-metadata:s:3",
                         "mimetype=text/plain",
                         "-metadata:s:3",
                         "filename=note.txt",
                         attached});
  ASSERT_EQ(made.status, 0) << made.err;
  const std::string song = fixture("cover.m4a").string();
  const auto leftOut = [&](const std::string& input, const char* output) {
    return Conversion({.input = input, .output = folder_ / output}).run().leftOut;
  };
  EXPECT_EQ(
      leftOut(attached, "out.mp4"),
      (std::vector<std::string>{
          "left out of '" + attached + "': font #2 (Own.ttf): attachments are not taken along",
          "left out of '" + attached +
              "': attachment #3 (note.txt): attachments are not taken along"}));
  EXPECT_EQ(leftOut(song, "out.mp3"),
            (std::vector<std::string>{"left out of '" + song +
                                      "': cover #1 (mjpeg): covers are not taken along"}));
}

}  // namespace
}  // namespace kestrel::test
