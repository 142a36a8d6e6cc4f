#include "convert/plan/ConversionPlanner.h"

#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Failure.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/convert/Plans.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Kind = StreamInfo::Kind;

constexpr int64_t kMono = 4;         // the mask of one channel, front centre
constexpr int64_t kStereo = 3;       // front left and right
constexpr int64_t kSurround = 0x3F;  // these, the centre, low frequencies, and two at the back

/// The sources of the streams of a kind that are kept, in order.
std::vector<uint32_t> keptOf(const ConversionPlan& plan, Kind kind) {
  std::vector<uint32_t> sources;
  for (const PlannedStream* stream : plan.kept(kind))
    sources.insert(sources.end(), stream->sources.begin(), stream->sources.end());
  return sources;
}

const SoundEncoding& firstSound(const ConversionPlan& plan) {
  return plan.kept(Kind::kAudio).at(0)->sound;
}

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
                         {"a.ts", "mpegts", "h264", "aac", 44100},
                         {"a.m2ts", "mpegts", "h264", "aac", 44100},
                         {"a.mts", "mpegts", "h264", "aac", 44100},
                         {"a.flv", "flv", "h264", "aac", 44100},
                         {"a.wmv", "asf", "msmpeg4v3", "wmav2", 44100},
                         {"a.mpg", "mpeg", "mpeg1video", "mp2", 44100},
                         {"a.mxf", "mxf", "mpeg2video", "pcm_s16le", 48000},
                         {"a.m4a", "ipod", "", "aac", 44100},
                         {"a.m4r", "ipod", "", "aac", 44100},
                         {"a.mka", "matroska", "", "aac", 44100},
                         {"a.mp3", "mp3", "", "mp3", 44100},
                         {"a.wav", "wav", "", "pcm_s16le", 44100},
                         {"a.flac", "flac", "", "flac", 44100},
                         {"a.opus", "opus", "", "opus", 48000}}) {
    SCOPED_TRACE(row.output);
    const ConversionPlan plan = planOf("av25.mp4", row.output, {.audio = StreamAction::kEncode});
    EXPECT_EQ(plan.formatName, row.format);
    const bool hasVideo = *row.video != 0;
    EXPECT_EQ(plan.pictures() != nullptr, hasVideo);
    if (hasVideo) {
      EXPECT_EQ(plan.pictures()->action, StreamAction::kEncode);
      EXPECT_THAT(plan.pictures()->sources, ElementsAre(0));
      EXPECT_EQ(nameOf(plan.format.video_codec), row.video);
    }
    EXPECT_THAT(keptOf(plan, Kind::kAudio), ElementsAre(1));
    EXPECT_EQ(plan.kept(Kind::kAudio)[0]->action, StreamAction::kEncode);
    EXPECT_EQ(nameOf(firstSound(plan).codec), row.audio);
    EXPECT_EQ(firstSound(plan).sampleRate, row.sampleRate);
  }
}

TEST(ConversionPlanner, SoundKeepsRateChannelsAndDepth) {
  struct Row {
    const char* input;
    const char* output;
    int sampleRate;
    int64_t layout;
    int bits;
  };
  for (const Row& row : {Row{"pcm-5.1-48000-s16.wav", "a.m4a", 48000, kSurround, 0},
                         {"pcm-mono-8000-s16.wav", "a.m4a", 8000, kMono, 0},
                         {"pcm-stereo-96000-s24.wav", "a.m4a", 96000, kStereo, 0},
                         {"pcm-stereo-96000-s24.wav", "a.flac", 96000, kStereo, 24},
                         {"pcm-stereo-192000-f64.wav", "a.mp3", 48000, kStereo, 0}}) {
    SCOPED_TRACE(row.input);
    const SoundEncoding sound = firstSound(planOf(row.input, row.output));
    EXPECT_EQ(sound.sampleRate, row.sampleRate);
    EXPECT_EQ(sound.channelLayout, row.layout);
    EXPECT_EQ(sound.bits, row.bits);
  }
  ConversionSettings settings;
  settings.channelLayout = kStereo;
  settings.sampleRate = 48000;
  settings.audioBitrate = 64000;
  const SoundEncoding told = firstSound(planOf("pcm-mono-8000-s16.wav", "a.m4a", settings));
  EXPECT_EQ(told.channelLayout, kStereo);
  EXPECT_EQ(told.sampleRate, 48000);
  EXPECT_EQ(told.bitrate, 64000);
}

TEST(ConversionPlanner, AStreamThatIsNotThereIsNotPlanned) {
  EXPECT_FALSE(planOf("audio-only.m4a", "a.mp4").pictures());
  EXPECT_FALSE(planOf("cover.m4a", "a.mp4").pictures());
  EXPECT_THAT(planOf("video-only.mp4", "a.mp4").kept(Kind::kAudio), IsEmpty());
}

TEST(ConversionPlanner, TheTracksThatAreChosen) {
  ConversionSettings settings;
  const auto chosen = [&] {
    return keptOf(planOf("av-tracks.mkv", "a.mp4", settings), Kind::kAudio);
  };
  EXPECT_THAT(chosen(), ElementsAre(1, 2));
  settings.audioTracks = {};
  EXPECT_THAT(chosen(), ElementsAre(1));
  settings.audioTracks = TrackChoice::of({1});
  EXPECT_THAT(chosen(), ElementsAre(2));
  settings.audioTracks = TrackChoice::in("fr");
  EXPECT_THAT(chosen(), ElementsAre(2));
}

TEST(ConversionPlanner, AMixIsOneStream) {
  ConversionSettings settings;
  settings.mixesAudio = true;
  const ConversionPlan plan = planOf("av-tracks.mkv", "a.mp4", settings);
  ASSERT_EQ(plan.kept(Kind::kAudio).size(), 1U);
  EXPECT_THAT(plan.kept(Kind::kAudio)[0]->sources, ElementsAre(1, 2));
}

/// Why the streams of a kind are left out.
std::vector<std::string> reasonsOf(const ConversionPlan& plan, Kind kind) {
  std::vector<std::string> reasons;
  for (const PlannedStream& stream : plan.streams)
    if (stream.kind == kind && !stream.isKept()) reasons.push_back(stream.reason);
  return reasons;
}

TEST(ConversionPlanner, AContainerOfOneSoundGetsTheUsualOne) {
  const ConversionPlan plan = planOf("av-tracks.mkv", "a.wav");
  EXPECT_THAT(keptOf(plan, Kind::kAudio), ElementsAre(1));
  EXPECT_THAT(reasonsOf(plan, Kind::kAudio), ElementsAre("wav holds one sound track"));
  EXPECT_THAT(reasonsOf(plan, Kind::kVideo), ElementsAre("wav has no place for pictures"));
}

TEST(ConversionPlanner, TextsGetTheContainersForm) {
  struct Row {
    const char* output;
    StreamAction action;
    int codec;
  };
  for (const Row& row : {Row{"a.mkv", StreamAction::kCopy, 0},
                         {"a.mp4", StreamAction::kEncode, AV_CODEC_ID_MOV_TEXT},
                         {"a.webm", StreamAction::kEncode, AV_CODEC_ID_WEBVTT}}) {
    SCOPED_TRACE(row.output);
    const ConversionPlan plan = planOf("av-tracks.mkv", row.output);
    const auto texts = plan.kept(Kind::kSubtitle);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_EQ(texts[0]->action, row.action);
    EXPECT_EQ(texts[0]->subtitleCodec, row.codec);
    EXPECT_EQ(texts[0]->tags.at("language"), "eng");
  }
  EXPECT_THAT(reasonsOf(planOf("av-tracks.mkv", "a.avi"), Kind::kSubtitle),
              ElementsAre("avi cannot hold subrip"));
  ConversionSettings settings;
  settings.keepsSubtitles = false;
  EXPECT_THAT(reasonsOf(planOf("av-tracks.mkv", "a.mkv", settings), Kind::kSubtitle),
              ElementsAre(""));
}

TEST(ConversionPlanner, CoversGoWhereTheyAreHeld) {
  const auto covers = [](const char* output) {
    const ConversionPlan plan = planOf("cover.m4a", output);
    return std::ranges::count_if(plan.streams, [](const PlannedStream& stream) {
      return stream.isCover && stream.action == StreamAction::kCopy;
    });
  };
  for (const char* output : {"a.m4a", "a.mp4", "a.mkv", "a.mp3", "a.flac"})
    EXPECT_EQ(covers(output), 1) << output;
  EXPECT_EQ(covers("a.wav"), 0);
}

TEST(ConversionPlanner, OptionsOfEncodersAndMuxers) {
  const ConversionPlan plan = planOf("av25.mp4", "a.mp4");
  EXPECT_THAT(plan.videoOptions,
              ElementsAre(Pair("b", "0"), Pair("crf", "23"), Pair("g", "250"),  // ten seconds
                          Pair("preset", "medium"), Pair("profile", "high")));
  EXPECT_THAT(plan.muxerOptions, ElementsAre(Pair("movflags", "+faststart")));
  EXPECT_THAT(planOf("av25.mp4", "a.mkv").muxerOptions, IsEmpty());
  ConversionSettings settings;
  settings.crf = 21.5;
  settings.encoderPreset = "veryfast";
  settings.keyframes = 2;
  settings.videoOptions = {{"profile", "main"}};
  EXPECT_THAT(planOf("av25.mp4", "a.mp4", settings).videoOptions,
              ElementsAre(Pair("b", "0"), Pair("crf", "21.5"), Pair("g", "50"),
                          Pair("preset", "veryfast"), Pair("profile", "main")));
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

TEST(ConversionPlanner, TheSpanInSharesOfTheLength) {
  // Two seconds of pictures alone.
  ConversionSettings settings;
  settings.start = Moment::ofShare(0.25);
  settings.end = Moment::ofShare(0.75);
  ConversionPlan plan = planOf("still-bars.mp4", "a.mp4", settings);
  EXPECT_EQ(plan.start, 500000);
  EXPECT_EQ(plan.end, 1500000);
  settings = {.start = 200000, .duration = Moment::ofShare(0.5)};
  plan = planOf("still-bars.mp4", "a.mp4", settings);
  EXPECT_EQ(plan.end, 1200000);
  settings = {.start = Moment::ofShare(0.5), .end = 1000000};
  EXPECT_EQ(failureOf([&] { planOf("still-bars.mp4", "a.mp4", settings); }).subject(), "start");
  // Nothing is a share of what nobody knows.
  settings = {.end = Moment::ofShare(0.5)};
  const Failure unknown = failureOf([&] { planOf("av-live.mkv", "a.mp4", settings); });
  EXPECT_EQ(unknown.subject(), "end");
  EXPECT_THAT(unknown.what(), testing::HasSubstr("give a time in place of a share"));
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

// The ranges that the encoders' own manuals name; below 4, libvpx's VP8 knows nothing better.
TEST(ConversionPlanner, ARateFactorBeyondTheEncodersRangeIsRefusedWithTheRange) {
  struct Row {
    const char* encoder;
    double crf;
    const char* range;
  };
  for (const Row& row : {Row{"libx264", 51.5, "0 to 51, '51.5'"},
                         {"libx264", 100, "0 to 51, '100'"},
                         {"libx264", -1, "0 to 51, '-1'"},
                         {"libx265", 52, "0 to 51, '52'"},
                         {"libsvtav1", 0, "1 to 63, '0'"},
                         {"libsvtav1", 64, "1 to 63, '64'"},
                         {"libaom-av1", 64, "0 to 63, '64'"},
                         {"libvpx-vp9", 64, "0 to 63, '64'"},
                         {"libvpx", 3, "4 to 63, '3'"}}) {
    SCOPED_TRACE(row.encoder);
    ConversionSettings settings;
    settings.videoCodec = row.encoder;
    settings.crf = row.crf;
    const auto [kind, sentence] = refusalOf("av25.mp4", "a.mkv", settings);
    EXPECT_EQ(kind, Failure::Kind::kSettings);
    EXPECT_EQ(sentence, std::string("crf: the encoder ") + row.encoder + " takes numbers from " +
                            row.range + " is none of them");
  }
}

TEST(ConversionPlanner, PicturesThatAreLeftAloneAreNotLookedAt) {
  ConversionSettings settings{.input = fixture("woven-marked.mpg").string(), .output = "a.mp4"};
  settings.deinterlacing = Deinterlacing::kOff;
  const auto source = LMMediaSource::mediaWithPath(settings.input);
  source->open();
  int looks = 0;
  const auto plan = planConversion(settings, *source, {.scanning = [&] {
                                     ++looks;
                                     return Scanning{};
                                   }});
  EXPECT_EQ(looks, 0);
  EXPECT_EQ(plan.topFieldFirst, true);  // as they are marked
}

TEST(ConversionPlanner, RefusesWhatCannotBeDone) {
  using enum Failure::Kind;
  ConversionSettings copies;
  copies.audio = StreamAction::kCopy;
  EXPECT_EQ(refusalOf("av25.mp4", "a.webm", copies).first, kOutput);
  ConversionSettings two;
  two.audioTracks = TrackChoice::of({0, 1});
  EXPECT_EQ(refusalOf("av-tracks.mkv", "a.wav", two).first, kSettings);
  ConversionSettings quality;
  quality.videoCodec = "mpeg4";
  quality.crf = 20;
  EXPECT_EQ(refusalOf("av25.mp4", "a.mp4", quality).second,
            "crf: the encoder mpeg4 has none; it takes a quality from 0 to 100 or a bit rate");
  ConversionSettings preset;
  preset.encoderPreset = "mediun";
  EXPECT_THAT(refusalOf("av25.mp4", "a.mp4", preset).second, testing::HasSubstr("medium"));
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
