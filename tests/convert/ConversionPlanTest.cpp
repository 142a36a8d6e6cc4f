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

PlannedStream& firstSound(ConversionPlan& plan) {
  return *plan.kept(StreamInfo::Kind::kAudio).front();
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
      {"streams.sources", [](auto& plan) { plan.pictures()->sources = {99}; }},
      {"streams.sources", [](auto& plan) { plan.pictures()->sources = firstSound(plan).sources; }},
      {"streams.sources", [](auto& plan) { plan.pictures()->sources.clear(); }},
      {"streams.sources", [](auto& plan) { firstSound(plan).sources = {99}; }},
      {"streams.sources",
       [](auto& plan) {
         plan.pictures()->sources = {0, 0};
       }},
      {"streams",
       [](auto& plan) {
         const PlannedStream twice = *plan.pictures();
         plan.streams.push_back(twice);
       }},
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
      {"sound.sampleRate", [](auto& plan) { firstSound(plan).sound.sampleRate = 0; }},
      {"sound.channelLayout", [](auto& plan) { firstSound(plan).sound.channelLayout = 0; }},
      {"formatName", [](auto& plan) { plan.formatName = "nonsense"; }},
      {"sound.volume", [](auto& plan) { firstSound(plan).sound.volume = NAN; }},
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
      {"streams",
       [](auto& plan) {
         for (PlannedStream& stream : plan.streams) stream.action = StreamAction::kNone;
       }},
      {"streams.action",
       [](auto& plan) { plan.pictures()->action = static_cast<StreamAction>(7); }},
      {"treatment.deinterlacing",
       [](auto& plan) { plan.treatment.deinterlacing = static_cast<Deinterlacing>(7); }},
      {"treatment.denoising",
       [](auto& plan) { plan.treatment.denoising = static_cast<Denoising>(7); }}};
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
  const auto sources = conversion.plan().pictures()->sources;
  conversion.plan().pictures()->sources = {99};
  EXPECT_THROW(conversion.run(), Failure);
  conversion.plan().pictures()->sources = sources;
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

TEST_F(ConversionPlanning, WhatIsMixedMayBeChanged) {
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
  given.mixesAudio = true;
  Conversion conversion(given);
  auto& mixed = firstSound(conversion.plan()).sources;
  ASSERT_EQ(mixed.size(), 2U);
  mixed.erase(mixed.begin());
  const Report report = conversion.run();
  EXPECT_TRUE(report.isWhole());
  EXPECT_GT(loudest("880"), -30);
  EXPECT_LT(loudest("440"), loudest("880") - 20);
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
  // The plan tells how sound would be encoded that it chose to copy.
  PlannedStream& sound = *conversion.plan().kept(StreamInfo::Kind::kAudio).at(0);
  ASSERT_EQ(sound.action, StreamAction::kCopy);
  sound.sound.volume = 0;
  EXPECT_THROW(conversion.run(), Failure);
  sound.action = StreamAction::kEncode;
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
    if (!bySettings) conversion.plan().treatment.deinterlacing = byPlan;
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
  const std::string languages =
      "the language eng of sound #1, the language fre of sound #2: avi cannot hold them";
  ConversionSettings usual = settings();
  usual.encoderPreset.clear();
  EXPECT_EQ(leftOut(usual, "av25.mp4", "out.mp4"), std::vector<std::string>{});
  EXPECT_EQ(leftOut(usual, "av-tracks.mkv", "out.mp4"), std::vector<std::string>{});
  EXPECT_EQ(
      leftOut(usual, "av-tracks.mkv", "out.avi"),
      leaving("av-tracks.mkv",
              {"subtitles #3 (subrip, " + nameOf("eng") + "): avi cannot hold subrip", languages}));
  EXPECT_EQ(leftOut(usual, "av-tags.mp4", "out.avi"),
            leaving("av-tags.mp4", {"2 chapters: avi cannot hold them"}));
  EXPECT_EQ(leftOut(usual, "av25.mp4", "out.mp3"),
            leaving("av25.mp4", {"pictures #0 (h264): mp3 has no place for pictures"}));
  ConversionSettings drawn = usual;
  drawn.look.subtitleTrack = TrackChoice{};
  EXPECT_EQ(leftOut(drawn, "av-tracks.mkv", "out.avi"), leaving("av-tracks.mkv", {languages}));
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
  EXPECT_EQ(leftOut(attached, "out.mp4"),
            (std::vector<std::string>{
                "left out of '" + attached + "': font #2 (Own.ttf): mp4 cannot hold it",
                "left out of '" + attached + "': attachment #3 (note.txt): mp4 cannot hold it"}));
  EXPECT_EQ(leftOut(attached, "out.mkv"), std::vector<std::string>{});
  EXPECT_EQ(leftOut(song, "out.mp3"), std::vector<std::string>{});
  EXPECT_EQ(leftOut(song, "out.wav"),
            (std::vector<std::string>{"left out of '" + song +
                                      "': cover #1 (mjpeg): wav cannot hold it"}));
}

}  // namespace
}  // namespace kestrel::test
