#include "convert/plan/SoundPlanner.h"

#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <string>
#include <vector>

#include "convert/plan/ConversionPlanner.h"
#include "convert/plan/SettingsRules.h"
#include "tests/convert/Failures.h"
#include "tests/support/Fixture.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Kind = StreamInfo::Kind;

constexpr int64_t kStereo = 3;
constexpr int64_t kSurround = 0x3F;

std::vector<PlannedStream> soundsOf(const std::string& input, const std::string& output,
                                    ConversionSettings settings = {}) {
  settings.input = fixture(input).string();
  settings.output = output;
  const auto source = LMMediaSource::mediaWithPath(settings.input);
  source->open();
  std::vector<PlannedStream> sounds;
  const ConversionPlan plan = planConversion(settings, *source);
  for (const PlannedStream* stream : plan.kept(Kind::kAudio)) sounds.push_back(*stream);
  return sounds;
}

/// "copy", or the codec that a track is encoded in.
std::vector<std::string> formsOf(const std::string& input, const std::string& output,
                                 const ConversionSettings& settings = {}) {
  std::vector<std::string> forms;
  for (const PlannedStream& sound : soundsOf(input, output, settings))
    forms.emplace_back(sound.action == StreamAction::kCopy
                           ? "copy"
                           : avcodec_get_name(static_cast<AVCodecID>(sound.sound.codec)));
  return forms;
}

TEST(SoundPlanner, WhatIsUsualInTheContainerIsCopiedAndTheReasonTold) {
  for (const char* output : {"a.mp4", "a.mov", "a.ts", "a.flv", "a.mkv", "a.m4a"})
    EXPECT_THAT(formsOf("av25.mp4", output), ElementsAre("copy")) << output;
  EXPECT_THAT(formsOf("av25.mp4", "a.webm"), ElementsAre("opus"));
  EXPECT_THAT(formsOf("av25.mp4", "a.wav"), ElementsAre("pcm_s16le"));
  EXPECT_THAT(formsOf("av-copies.mkv", "a.mkv"), ElementsAre("copy", "copy", "aac"));
  // AC-3 in MPEG-4 is not for every player.
  EXPECT_THAT(formsOf("av-copies.mkv", "a.mp4"), ElementsAre("aac", "aac", "aac"));
  EXPECT_THAT(formsOf("av-copies.mkv", "a.mp4", {.audioCopy = {"ac3"}}),
              ElementsAre("copy", "aac", "aac"));
  const PlannedStream copied = soundsOf("av25.mp4", "a.mp4").at(0);
  EXPECT_THAT(copied.reason, HasSubstr("aac is usual in mp4"));
  EXPECT_TRUE(copied.isChecked);
  EXPECT_EQ(copied.sound.codec, AV_CODEC_ID_AAC);  // how it would be encoded
}

TEST(SoundPlanner, WhatAsksForAChangeIsEncoded) {
  const auto form = [](const ConversionSettings& settings) {
    return formsOf("av25.mp4", "a.mp4", settings).at(0);
  };
  for (const ConversionSettings& change :
       {ConversionSettings{.audioBitrate = 96000}, ConversionSettings{.sampleRate = 48000},
        ConversionSettings{.channelLayout = 4}, ConversionSettings{.volume = 0.5},
        ConversionSettings{.loudness = -16.0},
        ConversionSettings{.audioOptions = {{"aac_coder", "fast"}}},
        ConversionSettings{.start = 500000}, ConversionSettings{.end = 1500000},
        ConversionSettings{.duration = 1000000}, ConversionSettings{.audio = StreamAction::kEncode},
        ConversionSettings{.audioCodec = "aac"}})
    EXPECT_EQ(form(change), "aac");
  // What it has already is no change.
  EXPECT_EQ(form({.sampleRate = 44100}), "copy");
  EXPECT_EQ(form({.channelLayout = kStereo}), "copy");
  EXPECT_THAT(formsOf("av-tracks.mkv", "a.mkv", {.mixesAudio = true}), ElementsAre("aac"));
}

TEST(SoundPlanner, WhatLosesNothingStaysWithoutLoss) {
  EXPECT_THAT(formsOf("av-copies.mkv", "a.mkv", {.duration = 1000000}),
              ElementsAre("aac", "flac", "aac"));
  EXPECT_THAT(formsOf("av-copies.mkv", "a.mkv", {.audioBitrate = 96000}),
              ElementsAre("aac", "aac", "aac"));
  EXPECT_THAT(formsOf("pcm-stereo-48000-s24.wav", "a.wav", {.volume = 0.5}),
              ElementsAre("pcm_s24le"));
}

TEST(SoundPlanner, ContainersWithoutACodecOfTheirOwnKeepTheDepth) {
  const ConversionSettings encode{.audio = StreamAction::kEncode};
  EXPECT_THAT(formsOf("pcm-stereo-48000-s24.wav", "a.wav", encode), ElementsAre("pcm_s24le"));
  EXPECT_THAT(formsOf("pcm-stereo-48000-s24.wav", "a.aiff", encode), ElementsAre("pcm_s24be"));
  EXPECT_THAT(formsOf("pcm-7.1-48000-f32.wav", "a.wav", encode), ElementsAre("pcm_f32le"));
  EXPECT_THAT(formsOf("pcm-stereo-44100-s16.wav", "a.wav", encode), ElementsAre("pcm_s16le"));
}

TEST(SoundPlanner, WhereTimesAreLostOnlyWholeSoundIsCopied) {
  EXPECT_THAT(formsOf("audio-only.m4a", "a.aac"), ElementsAre("copy"));
  EXPECT_THAT(formsOf("aac-hole.m4a", "a.aac"), ElementsAre("aac"));
  EXPECT_THAT(formsOf("aac-hole.m4a", "a.m4a"), ElementsAre("copy"));
  EXPECT_THAT(formsOf("pcm-stereo-44100-s16.wav", "a.wav"), ElementsAre("copy"));
}

TEST(SoundPlanner, NamedCodecsAreCopiedWhereTheContainerHoldsThem) {
  const ConversionSettings named{.audioCodec = "opus", .audioCopy = {"ac3", "pcm"}};
  EXPECT_THAT(formsOf("av-copies.mkv", "a.mkv", named), ElementsAre("copy", "opus", "copy"));
  EXPECT_THAT(formsOf("av-copies.mkv", "a.webm", {.audioCopy = {"all"}}),
              ElementsAre("opus", "opus", "opus"));
  // A bit rate is the others', and a span begins with a whole packet.
  EXPECT_THAT(formsOf("av-copies.mkv", "a.mkv",
                      {.audioCopy = {"ac3"}, .audioBitrate = 64000, .start = 500000}),
              ElementsAre("copy", "aac", "aac"));
  EXPECT_FALSE(soundsOf("av-copies.mkv", "a.mkv", named).at(0).isChecked);
}

TEST(SoundPlanner, CompatibleSoundIsStereoOfTheContainersFirstCodec) {
  const ConversionSettings compatible{.isCompatible = true};
  EXPECT_THAT(formsOf("av25.mp4", "a.mp4", compatible), ElementsAre("copy"));
  EXPECT_THAT(formsOf("av-copies.mkv", "a.mp4", compatible), ElementsAre("aac", "aac", "aac"));
  const PlannedStream surround = soundsOf("pcm-5.1-48000-s16.wav", "a.m4a", compatible).at(0);
  EXPECT_EQ(surround.sound.channelLayout, kStereo);
  EXPECT_THAT(surround.losses, IsEmpty());
  EXPECT_EQ(soundsOf("pcm-stereo-96000-s24.wav", "a.m4a", compatible).at(0).sound.sampleRate,
            48000);
  EXPECT_EQ(
      soundsOf("pcm-5.1-48000-s16.wav", "a.m4a", {.isCompatible = true, .channelLayout = kSurround})
          .at(0)
          .sound.channelLayout,
      kSurround);
}

TEST(SoundPlanner, WhatEncodersHaveLessOfIsALoss) {
  EXPECT_THAT(soundsOf("pcm-5.1-48000-s16.wav", "a.mp3").at(0).losses,
              ElementsAre("6 channels become 2: mp3 has no more"));
  EXPECT_THAT(soundsOf("pcm-stereo-96000-s24.wav", "a.mp3").at(0).losses,
              ElementsAre("96000 Hz become 48000: mp3 has no more"));
  EXPECT_THAT(
      soundsOf("pcm-stereo-48000-s24.wav", "a.wav", {.audioCodec = "pcm_s16le"}).at(0).losses,
      ElementsAre("24 bits become 16: pcm_s16le has no more"));
  EXPECT_THAT(soundsOf("pcm-5.1-48000-s16.wav", "a.mp3", {.channelLayout = kStereo}).at(0).losses,
              IsEmpty());
  EXPECT_THAT(soundsOf("pcm-stereo-48000-s24.wav", "a.flac").at(0).losses, IsEmpty());
}

// WavPack has integers and floating-point numbers, FLAC integers of up to 24 bits.
TEST(SoundPlanner, FloatingPointStaysSoOrIsALoss) {
  const auto soundIn = [](const char* input, const char* codec) {
    return soundsOf(input, "a.mka", {.audioCodec = codec}).at(0);
  };
  for (const char* input : {"pcm-7.1-48000-f32.wav", "av25.mp4"}) {
    const PlannedStream kept = soundIn(input, "wavpack");
    EXPECT_TRUE(kept.sound.isFloat) << input;
    EXPECT_EQ(kept.sound.bits, 32) << input;
    EXPECT_THAT(kept.losses, IsEmpty()) << input;
  }
  EXPECT_FALSE(soundIn("pcm-stereo-48000-s24.wav", "wavpack").sound.isFloat);
  const PlannedStream whole = soundIn("pcm-7.1-48000-f32.wav", "flac");
  EXPECT_FALSE(whole.sound.isFloat);
  EXPECT_THAT(whole.losses, ElementsAre("floating point becomes 24 bits: flac has none"));
  EXPECT_THAT(soundIn("pcm-7.1-48000-f32.wav", "pcm_s32le").losses,
              ElementsAre("floating point becomes 32 bits: pcm_s32le has none"));
  // What AAC decodes to was never exact.
  EXPECT_THAT(soundIn("av25.mp4", "flac").losses, IsEmpty());
}

/// The sentence that refuses settings for the fixture in a file of the name.
std::string refusalOf(const std::string& output, const ConversionSettings& settings) {
  const Failure failure = failureOf([&] { soundsOf("av25.mp4", output, settings); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kSettings) << failure.what();
  return failure.what();
}

TEST(SoundPlanner, ARateThatTheEncoderDoesNotHaveIsRefusedWithThoseThatItHas) {
  EXPECT_EQ(refusalOf("a.mp4", {.audioCodec = "opus", .sampleRate = 44100}),
            "sampleRate: libopus has no 44100 Hz in mp4, but 8000, 12000, 16000, 24000, 48000");
  EXPECT_EQ(refusalOf("a.flv", {.audioCodec = "mp3", .sampleRate = 16000}),
            "sampleRate: libmp3lame has no 16000 Hz in flv, but 11025, 22050, 44100, 48000");
  EXPECT_EQ(soundsOf("av25.mp4", "a.mp4", {.audioCodec = "opus", .sampleRate = 24000}).size(), 1U);
}

TEST(SoundPlanner, ChannelsThatTheEncoderDoesNotHaveAreRefusedWithThoseThatItHas) {
  EXPECT_EQ(refusalOf("a.mp3", {.channelLayout = kSurround}),
            "channelLayout: libmp3lame has no 5.1 in mp3, but mono, stereo");
}

TEST(SoundPlanner, AnEncodersOptionsAreThoseThatItHas) {
  EXPECT_EQ(refusalOf("a.m4a", {.audioOptions = {{"aac_codr", "fast"}}}),
            "audioOptions: the encoder aac has no option 'aac_codr'; did you mean 'aac_coder'?");
}

TEST(SoundPlanner, AMixKeepsRateAndChannelsOfItsFirstTrack) {
  ConversionSettings mix{.audioCodec = "flac", .mixesAudio = true};
  const PlannedStream mixed = soundsOf("mixed-forms.mkv", "a.mkv", mix).at(0);
  EXPECT_EQ(mixed.sources.size(), 2U);
  EXPECT_EQ(mixed.sound.sampleRate, 96000);
  EXPECT_EQ(mixed.sound.channelLayout, kSurround);
}

TEST(SoundPlanner, ContradictionsAreRefused) {
  const auto subject = [](ConversionSettings settings) {
    settings.input = fixture("av25.mp4").string();
    settings.output = "a.mp4";
    try {
      require(settings);
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
      return failure.subject();
    }
    return std::string();
  };
  EXPECT_EQ(subject({.audioCopy = {"ac4000"}}), "audioCopy");
  EXPECT_EQ(subject({.audio = StreamAction::kCopy, .audioCopy = {"aac"}}), "audioCopy");
  EXPECT_EQ(subject({.audioCopy = {"aac"}, .volume = 2}), "volume");
  EXPECT_EQ(subject({.audioCopy = {"aac"}, .loudness = -20.0}), "loudness");
  EXPECT_EQ(subject({.audioCopy = {"aac"}, .mixesAudio = true}), "mixesAudio");
  EXPECT_EQ(subject({.volume = 2, .loudness = -20.0}), "volume");
  EXPECT_EQ(subject({.loudness = -71.0}), "loudness");
  EXPECT_EQ(subject({.loudness = -4.0}), "loudness");
  EXPECT_EQ(subject({.audioCopy = {"all", "pcm", "dts"}}), "");
}

}  // namespace
}  // namespace kestrel::test
