#include "convert/probe/Labels.h"

#include <gmock/gmock.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/MediaInfo.h>

#include <string>
#include <vector>

#include "convert/probe/Codecs.h"
#include "tests/convert/Failures.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Strings = std::vector<std::string>;

std::string held(const char* output, const char* code) {
  return heldLanguage(outputFormatFor(output), code);
}

TEST(Labels, OfTwoCodesForALanguageQuickTimeGetsTheOneThatItKnows) {
  EXPECT_EQ(held("a.mov", "fre"), "fra");
  EXPECT_EQ(held("a.mov", "fra"), "fra");
  EXPECT_EQ(held("a.mov", "deu"), "ger");
  EXPECT_EQ(held("a.mov", "zho"), "chi");
  EXPECT_EQ(held("a.mov", "swe"), "sve");
  EXPECT_EQ(held("a.mov", "afr"), "");  // has no number there
  EXPECT_EQ(held("a.mp4", "afr"), "afr");
  EXPECT_EQ(held("a.mkv", "fre"), "fre");
  EXPECT_EQ(held("a.avi", "fre"), "");
  EXPECT_EQ(held("a.mp4", "en-GB"), "eng");  // three letters are all it has
  EXPECT_EQ(held("a.mov", "sv"), "sve");
  EXPECT_EQ(held("a.mkv", "en-GB"), "en-GB");
  EXPECT_EQ(languageOfQuickTime("sve"), "swe");
  EXPECT_EQ(languageOfQuickTime("fra"), "fra");
}

/// A movie in Matroska on which much is written.
class LabelsLeftOut : public testing::Test {
 protected:
  LabelsLeftOut() {
    const RunResult made = run({"ffmpeg",
                                "-v",
                                "error",
                                "-i",
                                fixture("av25.mp4").string(),
                                "-map",
                                "0:v",
                                "-map",
                                "0:a",
                                "-map",
                                "0:a",
                                "-c",
                                "copy",
                                "-metadata:s:a:0",
                                "language=fre",
                                "-metadata:s:a:1",
                                "language=swe",
                                "-metadata:s:a:1",
                                "title=Talk",
                                "-disposition:a:0",
                                "default",
                                "-disposition:a:1",
                                "comment",
                                "-metadata",
                                "title=Film",
                                "-metadata",
                                "artist=Anna",
                                "-metadata",
                                "composer=Carl",
                                input_});
    EXPECT_EQ(made.status, 0) << made.err;
  }

  Strings leftOut(const std::string& name, ConversionSettings settings = {}) {
    settings.input = input_;
    settings.output = folder_ / name;
    settings.replaces = true;
    settings.encoderPreset = "ultrafast";
    if (name.ends_with("avi") || settings.video) settings.encoderPreset.clear();
    return Conversion(settings).run().leftOut;
  }

  /// What ffprobe finds of the result's sound: "fra" or, with flags, "swe comment".
  Strings sounds(const std::string& name) const {
    Strings found;
    const auto probed = ffprobeJson(folder_ / name);
    for (const auto& stream : probed["streams"]) {
      if (stream["codec_type"] != "audio") continue;
      found.push_back(stream.contains("tags") ? stream["tags"].value("language", "") : "");
      if (stream["disposition"]["comment"] == 1) found.back() += " comment";
    }
    return found;
  }

  const TempDir folder_;
  const std::string input_ = folder_ / "in.mkv";
  const std::string prefix_ = "left out of '" + input_ + "': ";
};

TEST_F(LabelsLeftOut, NothingIsSaidWhereAllIsHeld) {
  EXPECT_THAT(leftOut("out.mkv", {.video = StreamAction::kCopy}), IsEmpty());
  EXPECT_THAT(sounds("out.mkv"), ElementsAre("fre", "swe comment"));
  EXPECT_THAT(leftOut("out.mp4", {.video = StreamAction::kCopy}),
              ElementsAre(prefix_ + "the title of sound #2: mp4 cannot hold it"));
  EXPECT_THAT(sounds("out.mp4"), ElementsAre("fre", "swe comment"));
}

TEST_F(LabelsLeftOut, QuickTimeHasFrenchByItsOwnCode) {
  EXPECT_THAT(leftOut("out.mov", {.video = StreamAction::kCopy}),
              ElementsAre(prefix_ +
                          "the title of sound #2, the flag comment of sound #2, the tag composer: "
                          "mov cannot hold them"));
  EXPECT_THAT(sounds("out.mov"), ElementsAre("fra", "sve"));
  EXPECT_EQ(readMediaInfo(folder_ / "out.mov").streams[2].language, "swe");
}

TEST_F(LabelsLeftOut, WhatAviAndTransportStreamsDoNotHoldIsNamedInOneLine) {
  EXPECT_THAT(
      leftOut("out.avi"),
      ElementsAre(prefix_ + "the language fre of sound #1, the language swe of sound #2, the flag "
                            "comment of sound #2, the tag composer: avi cannot hold them"));
  EXPECT_THAT(sounds("out.avi"), ElementsAre("", ""));
  EXPECT_THAT(
      leftOut("out.ts", {.video = StreamAction::kCopy}),
      ElementsAre(prefix_ + "the title of sound #2, the flag comment of sound #2, the tags title, "
                            "artist, composer: mpegts cannot hold them"));
  EXPECT_THAT(sounds("out.ts"), ElementsAre("fre", "swe"));
  EXPECT_THAT(leftOut("out.ts", {.video = StreamAction::kCopy, .keepsMetadata = false}),
              ElementsAre(prefix_ + "the flag comment of sound #2: mpegts cannot hold it"));
}

/// Tags that a film of Matroska may have beside those of the class, with the pictures' language.
TEST_F(LabelsLeftOut, WhateverPeopleCallATagIsNamed) {
  const std::string film = folder_ / "film.mkv";
  ASSERT_EQ(run({"ffmpeg", "-v", "error", "-i", input_, "-map", "0:v", "-c", "copy", "-metadata",
                 "director=Dora", "-metadata", "synopsis=Long", "-metadata", "year=1999",
                 "-metadata:s:v", "language=ger", film})
                .status,
            0);
  const auto leftOutOf = [&](const char* name) {
    return Conversion({.input = film,
                       .output = folder_ / name,
                       .replaces = true,
                       .video = StreamAction::kCopy})
        .run()
        .leftOut;
  };
  const std::string prefix = "left out of '" + film + "': ";
  EXPECT_THAT(leftOutOf("out.mp4"), ElementsAre(prefix + "the tag director: mp4 cannot hold it"));
  EXPECT_THAT(leftOutOf("out.ts"),
              ElementsAre(prefix + "the language ger of pictures #0, the tags title, synopsis, "
                                   "artist, composer, director: mpegts cannot hold them"));
}

TEST_F(LabelsLeftOut, WherePhonesWereGoesAlong) {
  const std::string phone = folder_ / "phone.mov";
  ASSERT_EQ(run({"ffmpeg", "-v", "error", "-i", fixture("video-only.mp4").string(), "-c", "copy",
                 "-map_metadata", "-1", "-movflags", "use_metadata_tags", "-metadata",
                 "com.apple.quicktime.location.ISO6709=+48.1374+011.5755/", "-metadata",
                 "com.apple.quicktime.model=Nine", phone})
                .status,
            0);
  const auto placeIn = [&](const char* name) {
    const Report report =
        Conversion({.input = phone, .output = folder_ / name, .video = StreamAction::kCopy}).run();
    const auto tags = ffprobeJson(folder_ / name)["format"]["tags"];
    return std::pair{tags.value("location", tags.value("LOCATION", "")), report.leftOut};
  };
  EXPECT_EQ(placeIn("out.mov"), (std::pair{std::string("+48.1374+011.5755/"), Strings{}}));
  EXPECT_EQ(placeIn("out.mkv"), (std::pair{std::string("+48.1374+011.5755/"), Strings{}}));
  EXPECT_EQ(placeIn("out.mp4"),
            (std::pair{std::string("+48.1374+011.5755/"),
                       Strings{"left out of '" + phone + "': the tag model: mp4 cannot hold it"}}));
}

TEST_F(LabelsLeftOut, LossesHaveAVerbOfTheirOwn) {
  const std::string six = fixture("pcm-5.1-48000-s16.wav").string();
  EXPECT_THAT(Conversion({.input = six, .output = folder_ / "six.mp3"}).run().leftOut,
              ElementsAre("lost in sound #0 (pcm_s16le) of '" + six +
                          "': 6 channels become 2: mp3 has no more"));
}

TEST_F(LabelsLeftOut, SubtitlesThatAreChosenAreThere) {
  const auto refusal = [&](const TrackChoice& choice) {
    const Failure failure = failureOf([&] {
      Conversion({.input = fixture("av-tracks.mkv").string(),
                  .output = folder_ / "out.mkv",
                  .subtitleTracks = choice})
          .plan();
    });
    EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
    return std::string(failure.what());
  };
  EXPECT_EQ(refusal(TrackChoice::of({9})), "there is no subtitle track 9: the input has 1");
  EXPECT_EQ(refusal(TrackChoice::in("fre")), "there is no subtitle track in 'fre'");
  EXPECT_NO_THROW(Conversion({.input = fixture("av-tracks.mkv").string(),
                              .output = folder_ / "out.mkv",
                              .subtitleTracks = TrackChoice::in("fre"),
                              .suitsAnyInput = true})
                      .plan());
}

}  // namespace
}  // namespace kestrel::test
