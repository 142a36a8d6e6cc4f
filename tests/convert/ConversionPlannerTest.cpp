#include "convert/plan/ConversionPlanner.h"

#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <string>
#include <vector>

#include "tests/support/Fixture.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Pair;

constexpr int64_t kMono = 4;    // the mask of one channel, front centre
constexpr int64_t kStereo = 3;  // front left and right

ConversionPlan planOf(const std::string& input, const std::string& output,
                      ConversionSettings settings = {}) {
  settings.input = fixture(input).string();
  settings.output = output;
  const auto source = LMMediaSource::mediaWithPath(settings.input);
  source->open();
  return planConversion(settings, *source);
}

/// The kind and the sentence of what planning throws.
std::pair<Failure::Kind, std::string> refusalOf(const std::string& input, const std::string& output,
                                                const ConversionSettings& settings = {}) {
  try {
    planOf(input, output, settings);
  } catch (const Failure& failure) {
    return {failure.kind(), failure.what()};
  }
  throw std::runtime_error("it is planned");
}

std::string nameOf(int codec) { return avcodec_get_name(static_cast<AVCodecID>(codec)); }

TEST(ConversionPlanner, TheTargetsNameChoosesContainerAndCodecs) {
  struct Row {
    const char* output;
    const char* format;
    const char* video;  // "": left out
    const char* audio;
    int sampleRate;
  };
  for (const Row& row : {Row{"a.mp4", "mp4", "h264", "aac", 44100},
                         {"A.MP4", "mp4", "h264", "aac", 44100},
                         {"a.mov", "mov", "h264", "aac", 44100},
                         {"a.m4v", "ipod", "h264", "aac", 44100},
                         {"a.3gp", "3gp", "h264", "aac", 44100},
                         {"a.mkv", "matroska", "h264", "aac", 44100},
                         {"a.webm", "webm", "vp9", "opus", 48000},
                         {"a.avi", "avi", "mpeg4", "mp3", 44100},
                         {"a.ts", "mpegts", "mpeg2video", "mp2", 44100},
                         {"a.mxf", "mxf", "mpeg2video", "pcm_s16le", 48000},
                         {"a.m4a", "ipod", "", "aac", 44100},
                         {"a.m4r", "ipod", "", "aac", 44100},
                         {"a.mka", "matroska", "", "aac", 44100},
                         {"a.mp3", "mp3", "", "mp3", 44100},
                         {"a.wav", "wav", "", "pcm_s16le", 44100},
                         {"a.flac", "flac", "", "flac", 44100},
                         {"a.opus", "opus", "", "opus", 48000}}) {
    SCOPED_TRACE(row.output);
    const ConversionPlan plan = planOf("av25.mp4", row.output);
    EXPECT_EQ(plan.formatName, row.format);
    const bool hasVideo = *row.video != 0;
    EXPECT_EQ(plan.video, hasVideo ? StreamAction::kEncode : StreamAction::kNone);
    EXPECT_EQ(plan.videoIndex, hasVideo ? std::optional<uint32_t>(0) : std::nullopt);
    if (hasVideo) {
      EXPECT_EQ(nameOf(plan.format.video_codec), row.video);
    }
    EXPECT_EQ(plan.audio, StreamAction::kEncode);
    EXPECT_THAT(plan.audioIndexes, ElementsAre(1));
    EXPECT_EQ(nameOf(plan.format.audio_codec), row.audio);
    EXPECT_EQ(plan.format.sample_rate, row.sampleRate);
  }
}

TEST(ConversionPlanner, SizeShapeAndRateAreTheSources) {
  struct Row {
    const char* input;
    int width, height;
    double aspect;  // 0: square pixels
    Rational rate;
  };
  for (const Row& row : {Row{"av25.mp4", 320, 180, 0, {25, 1}},
                         {"av60.mp4", 320, 180, 0, {60, 1}},
                         {"av24000-1001.mp4", 320, 180, 0, {24000, 1001}},
                         {"av30000-1001.mp4", 320, 180, 0, {30000, 1001}},
                         {"av-vfr.mp4", 320, 180, 0, {25, 1}},  // its times are multiples of 1/25 s
                         {"av-rotated.mp4", 180, 320, 0, {25, 1}},
                         {"odd-size.mkv", 84, 46, 0, {25, 1}},
                         {"wide-pixels.mp4", 176, 144, 16 / 9.0, {25, 1}},  // 176 * 16/11 : 144
                         {"bare.h264", 128, 72, 0, {25, 1}},
                         {"slow0.2.mp4", 128, 72, 0, {1, 5}}}) {
    SCOPED_TRACE(row.input);
    const ConversionPlan plan = planOf(row.input, "a.mp4");
    EXPECT_EQ(plan.format.width, row.width);
    EXPECT_EQ(plan.format.height, row.height);
    EXPECT_NEAR(plan.format.aspect, row.aspect, 1e-3);
    EXPECT_EQ(plan.rate(), row.rate);
    EXPECT_EQ(plan.format.framerate, row.rate.num);
    EXPECT_EQ(plan.format.frameTime, row.rate.den);
  }
}

TEST(ConversionPlanner, OneSideOfASizeKeepsTheShapeInSquarePixels) {
  struct Row {
    const char* input;
    std::optional<int> width, height;
    int plannedWidth, plannedHeight;
    double aspect;
  };
  for (const Row& row : {Row{"av25.mp4", 640, {}, 640, 360, 0},
                         {"av25.mp4", {}, 90, 160, 90, 0},
                         {"av25.mp4", 200, {}, 200, 112, 0},
                         {"av-rotated.mp4", 90, {}, 90, 160, 0},
                         {"wide-pixels.mp4", 320, {}, 320, 180, 0},
                         {"wide-pixels.mp4", {}, 144, 256, 144, 0},
                         // Both: squeezed, and the shape is signalled.
                         {"av25.mp4", 320, 240, 320, 240, 16 / 9.0}}) {
    SCOPED_TRACE(row.input);
    ConversionSettings settings;
    settings.width = row.width;
    settings.height = row.height;
    const ConversionPlan plan = planOf(row.input, "a.mp4", settings);
    EXPECT_EQ(plan.format.width, row.plannedWidth);
    EXPECT_EQ(plan.format.height, row.plannedHeight);
    EXPECT_NEAR(plan.format.aspect, row.aspect, 1e-3);
  }
}

// 6 Mbit/s * (320 * 180 / (1920 * 1080))^0.75 * (rate / 30)^0.5, twice that for older codecs.
TEST(ConversionPlanner, BitRatesSuitSizeRateAndCodec) {
  EXPECT_EQ(planOf("av25.mp4", "a.mp4").format.video_bitrate, 373000);
  EXPECT_EQ(planOf("av30000-1001.mp4", "a.mp4").format.video_bitrate, 408000);
  EXPECT_EQ(planOf("av60.mp4", "a.mp4").format.video_bitrate, 577000);
  EXPECT_EQ(planOf("av25.mp4", "a.avi").format.video_bitrate, 745000);
  ConversionSettings settings;
  settings.width = 1280;
  EXPECT_EQ(planOf("av25.mp4", "a.mp4", settings).format.video_bitrate, 2981000);
  settings.videoBitrate = 123456;
  EXPECT_EQ(planOf("av25.mp4", "a.mp4", settings).format.video_bitrate, 123456);
}

TEST(ConversionPlanner, SoundIsStereoOrMonoFromMono) {
  const ConversionPlan stereo = planOf("pcm-5.1-48000-s16.wav", "a.m4a");
  EXPECT_EQ(stereo.format.channel_layout, kStereo);
  EXPECT_EQ(stereo.format.audio_bitrate, 192000);
  const ConversionPlan mono = planOf("pcm-mono-8000-s16.wav", "a.m4a");
  EXPECT_EQ(mono.format.channel_layout, kMono);
  EXPECT_EQ(mono.format.audio_bitrate, 96000);
  ConversionSettings settings;
  settings.channelLayout = kStereo;
  settings.sampleRate = 48000;
  settings.audioBitrate = 64000;
  const ConversionPlan told = planOf("pcm-mono-8000-s16.wav", "a.m4a", settings);
  EXPECT_EQ(told.format.channel_layout, kStereo);
  EXPECT_EQ(told.format.sample_rate, 48000);
  EXPECT_EQ(told.format.audio_bitrate, 64000);
}

TEST(ConversionPlanner, AStreamThatIsNotThereIsNotPlanned) {
  EXPECT_EQ(planOf("audio-only.m4a", "a.mp4").video, StreamAction::kNone);
  EXPECT_EQ(planOf("cover.m4a", "a.mp4").video, StreamAction::kNone);
  EXPECT_EQ(planOf("video-only.mp4", "a.mp4").audio, StreamAction::kNone);
}

TEST(ConversionPlanner, TheTracksThatAreChosen) {
  ConversionSettings settings;
  const auto chosen = [&] { return planOf("av-tracks.mkv", "a.mp4", settings); };
  EXPECT_THAT(chosen().audioIndexes, ElementsAre(1));
  settings.audioTracks = TrackChoice::all();
  EXPECT_THAT(chosen().audioIndexes, ElementsAre(1, 2));
  EXPECT_THAT(chosen().audioTracks, ElementsAre(0, 1));
  settings.audioTracks = TrackChoice::of({1});
  EXPECT_THAT(chosen().audioIndexes, ElementsAre(2));
  EXPECT_THAT(chosen().audioTracks, ElementsAre(0));
  settings.audioTracks = TrackChoice::in("fr");
  EXPECT_THAT(chosen().audioIndexes, ElementsAre(2));
}

TEST(ConversionPlanner, OptionsOfEncodersAndMuxers) {
  const ConversionPlan plan = planOf("av25.mp4", "a.mp4");
  EXPECT_THAT(plan.videoOptions, ElementsAre(Pair("g", "50")));  // two seconds
  EXPECT_THAT(plan.muxerOptions, ElementsAre(Pair("movflags", "+faststart")));
  EXPECT_THAT(planOf("av25.mp4", "a.mkv").muxerOptions, IsEmpty());
  ConversionSettings settings;
  settings.crf = 23;
  settings.encoderPreset = "veryfast";
  settings.videoOptions = {{"g", "10"}};
  EXPECT_THAT(
      planOf("av25.mp4", "a.mp4", settings).videoOptions,
      ElementsAre(Pair("b", "0"), Pair("crf", "23"), Pair("g", "10"), Pair("preset", "veryfast")));
}

TEST(ConversionPlanner, TheSpan) {
  ConversionSettings settings;
  EXPECT_EQ(planOf("av25.mp4", "a.mp4", settings).end, std::nullopt);
  settings.start = 500000;
  settings.duration = 250000;
  ConversionPlan plan = planOf("av25.mp4", "a.mp4", settings);
  EXPECT_EQ(plan.start, 500000);
  EXPECT_EQ(plan.end, 750000);
  settings = {};
  settings.chapters = ChapterRange{2, 2};  // from 0.8 s on, the last one
  plan = planOf("av-tags.mp4", "a.mp4", settings);
  EXPECT_EQ(plan.start, 800000);
  EXPECT_EQ(plan.end, std::nullopt);
  settings.chapters = ChapterRange{1, 1};
  plan = planOf("av-tags.mp4", "a.mp4", settings);
  EXPECT_EQ(plan.start, 0);
  EXPECT_EQ(plan.end, 800000);
}

// The encoder's delay of 1024 samples lies before the first picture.
TEST(ConversionPlanner, PicturesAloneBeginWithTheFirst) {
  ConversionSettings settings;
  settings.audio = StreamAction::kNone;
  const auto start =
      static_cast<double>(planOf("numbered25-early-audio.ts", "a.mp4", settings).start);
  EXPECT_NEAR(start, 1024e6 / 44100, 20);
  EXPECT_EQ(planOf("numbered25-early-audio.ts", "a.mp4").start, 0);
}

TEST(ConversionPlanner, ColoursAreToldInFull) {
  struct Row {
    const char* input;
    const char* output;
    int matrix, range;
  };
  for (const Row& row : {Row{"bars-601.mp4", "a.mp4", AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG},
                         {"bars-709.mp4", "a.mp4", AVCOL_SPC_BT709, AVCOL_RANGE_MPEG},
                         {"bars-709-full.mp4", "a.mp4", AVCOL_SPC_BT709, AVCOL_RANGE_JPEG},
                         // This codec cannot tell.
                         {"bars-709-full.mp4", "a.avi", AVCOL_SPC_BT709, AVCOL_RANGE_MPEG},
                         {"bars-untagged-hd.mkv", "a.mp4", AVCOL_SPC_BT709, AVCOL_RANGE_MPEG}}) {
    SCOPED_TRACE(row.input);
    const ConversionPlan plan = planOf(row.input, row.output);
    EXPECT_EQ(plan.color.matrix, row.matrix);
    EXPECT_EQ(plan.color.range, row.range);
  }
}

TEST(ConversionPlanner, RefusesWhatCannotBeDone) {
  using enum Failure::Kind;
  ConversionSettings copies;
  copies.audio = StreamAction::kCopy;
  copies.audioTracks = TrackChoice::all();
  EXPECT_EQ(refusalOf("av-tracks.mkv", "a.mkv", copies).first, kSettings);
  EXPECT_EQ(refusalOf("av25.mp4", "a.nosuchformat").first, kSettings);
  EXPECT_EQ(refusalOf("video-only.mp4", "a.wav").first, kOutput);
  EXPECT_EQ(refusalOf("subtitles.srt", "a.mp4").first, kInput);
  ConversionSettings chapters;
  chapters.chapters = ChapterRange{1, 3};
  EXPECT_EQ(refusalOf("av-tags.mp4", "a.mp4", chapters).first, kSettings);
  EXPECT_EQ(refusalOf("av25.mp4", "a.mp4", chapters),
            (std::pair{kSettings, std::string("chapters: the input has no chapters")}));
  ConversionSettings tracks;
  tracks.audioTracks = TrackChoice::of({7});
  EXPECT_EQ(refusalOf("av25.mp4", "a.mp4", tracks).first, kSettings);
  ConversionSettings codec;
  codec.videoCodec = "aac";
  EXPECT_EQ(refusalOf("av25.mp4", "a.mp4", codec).first, kSettings);
  codec.videoCodec = "h264";
  EXPECT_EQ(refusalOf("av25.mp4", "a.webm", codec).first, kOutput);
  ConversionSettings crop;
  crop.look.crop = Area{300, 0, 40, 40};
  EXPECT_EQ(refusalOf("av25.mp4", "a.mp4", crop).first, kSettings);
}

}  // namespace
}  // namespace kestrel::test
