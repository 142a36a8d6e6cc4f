#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/LMMediaSource.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "support/FFmpegOwners.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

using test::fieldOf;
using test::fixture;
using test::number;
using test::packetItem;
using test::packetsOf;
using test::streamOf;
using test::TempDir;

constexpr Rational kTicks{1, 90000};

/// An output with a copied stream of MJPEG pictures and one of 8-bit sound at 90 kHz: both have a
/// time base of 1/90000 in a QuickTime file, and their packets may hold any bytes.
class CopyOutput : public LMFFMovieFileOutput {
 public:
  explicit CopyOutput(const std::filesystem::path& path, bool video = true, bool audio = true,
                      int64_t soundBegin = 0)
      : input_(avformat_alloc_context()) {
    setPath(path.string());
    setCopiedSoundBegin(soundBegin);
    if (video) copyOutputStream(pictures());
    if (audio) copyOutputStream(sound());
    EXPECT_TRUE(startOutput()) << lastError().message;
  }

 private:
  AVStream* pictures() {
    AVStream* stream = newStream(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MJPEG);
    stream->codecpar->width = 160;
    stream->codecpar->height = 120;
    stream->codecpar->format = AV_PIX_FMT_YUVJ420P;
    return stream;
  }

  AVStream* sound() {
    AVStream* stream = newStream(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_U8);
    stream->codecpar->sample_rate = 90000;
    stream->codecpar->format = AV_SAMPLE_FMT_U8;
    stream->codecpar->bits_per_coded_sample = 8;
    stream->codecpar->block_align = 1;
    av_channel_layout_default(&stream->codecpar->ch_layout, 1);
    return stream;
  }

  AVStream* newStream(AVMediaType type, AVCodecID codec) {
    AVStream* stream = avformat_new_stream(input_.get(), nullptr);
    stream->codecpar->codec_type = type;
    stream->codecpar->codec_id = codec;
    stream->time_base = toAV(kTicks);
    return stream;
  }

  struct ContextDeleter {
    void operator()(AVFormatContext* context) const { avformat_free_context(context); }
  };
  std::unique_ptr<AVFormatContext, ContextDeleter> input_;
};

TEST(LMFFMovieFileOutputCopy, CopiedStreamsMirrorTheirInputs) {
  const TempDir dir;
  const test::PacketReader reader(fixture("av25.mp4"));
  LMFFMovieFileOutput output;
  output.setPath((dir / "a.mkv").string());
  output.copyOutputStream(reader.video());
  output.copyOutputStream(reader.audio());
  EXPECT_TRUE(output.copy_video_stream());
  EXPECT_TRUE(output.copy_audio_stream());
  ASSERT_TRUE(output.isVideoOpen());
  ASSERT_TRUE(output.isAudioOpen());
  const AVStream& video = *output.videoStream();
  EXPECT_EQ(video.codecpar->codec_id, AV_CODEC_ID_H264);
  EXPECT_EQ(video.codecpar->codec_tag, 0u);
  EXPECT_EQ(video.codecpar->extradata_size, reader.video()->codecpar->extradata_size);
  EXPECT_EQ(fromAV(video.avg_frame_rate), (Rational{25, 1}));
  EXPECT_EQ(fromAV(video.r_frame_rate), (Rational{25, 1}));
  EXPECT_EQ(fromAV(video.time_base), fromAV(reader.video()->time_base));
  EXPECT_EQ(fromAV(video.sample_aspect_ratio), fromAV(reader.video()->sample_aspect_ratio));
  EXPECT_EQ(fromAV(video.codecpar->sample_aspect_ratio),
            fromAV(reader.video()->sample_aspect_ratio));
  EXPECT_EQ(output.outputVideoFormat(), (LMFFVideoFormat{AV_PIX_FMT_YUV420P, 320, 180}));
  EXPECT_EQ(output.outputAudioFormat(),
            (LMFFAudioFormat{AV_SAMPLE_FMT_FLTP, lm_get_default_channel_layout(2), 44100}));
  EXPECT_EQ(output.codecContext(output.videoStream()), nullptr);
}

TEST(LMFFMovieFileOutputCopy, NullMakesOnlyTheContainer) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.copyOutputStream(nullptr);
  EXPECT_TRUE(output.isMovieOpen());
  output.copyVideoMedia(nullptr);
  output.copyAudioMedia(nullptr);
  EXPECT_EQ(output.formatContext()->nb_streams, 0u);
}

TEST(LMFFMovieFileOutputCopy, StreamOfAnotherKindStaysInTheContainerUnused) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setPath((dir / "a.mkv").string());
  AVFormatContext* context = nullptr;
  ASSERT_EQ(avformat_open_input(&context, fixture("av-tracks.mkv").c_str(), nullptr, nullptr), 0);
  ASSERT_EQ(context->nb_streams, 4u);
  output.copyOutputStream(context->streams[3]);
  EXPECT_EQ(output.formatContext()->nb_streams, 1u);
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_FALSE(output.isAudioOpen());
  EXPECT_TRUE(output.startOutput());
  output.stopOutput();
  avformat_close_input(&context);
}

TEST(LMFFMovieFileOutputCopy, StreamsOfMediasAreCopied) {
  const TempDir dir;
  const auto medias = LMMediaSource::mediaWithPath(fixture("av25.mp4").string())->createMedias();
  LMFFMovieFileOutput output;
  output.setPath((dir / "a.mkv").string());
  for (const auto& media : medias) {
    media->open();
    if (media->hasVideo()) output.copyVideoMedia(media);
    if (media->hasAudio()) output.copyAudioMedia(media);
  }
  ASSERT_TRUE(output.isVideoOpen());
  ASSERT_TRUE(output.isAudioOpen());
  EXPECT_EQ(output.videoStream()->codecpar->codec_id, AV_CODEC_ID_H264);
  EXPECT_EQ(output.audioStream()->codecpar->codec_id, AV_CODEC_ID_AAC);
}

// How packets are stamped.

TEST(LMFFMovieFileOutputCopy, FirstVideoPacketIsPutAtZeroAndTheNextKeepTheirTimes) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, false);
  const auto first = packetItem(kTicks, 9000, 9000, 3600);
  output.writeVideoPacket(first);
  EXPECT_EQ(first->getPacket()->pts, 0);
  EXPECT_EQ(first->getPacket()->dts, 0);
  EXPECT_EQ(output.video_pts(), 9000);
  output.writeVideoPacket(packetItem(kTicks, 12600, 12600, 3600));
  EXPECT_EQ(output.video_pts(), 12600);
  EXPECT_EQ(output.video_output_time(), 140000);
  output.stopOutput();
  const auto packets = packetsOf(dir / "a.mov", "v");
  EXPECT_EQ(fieldOf(packets, "dts"), (std::vector<int64_t>{0, 12600}));
  EXPECT_EQ(fieldOf(packets, "pts"), (std::vector<int64_t>{0, 12600}));
}

TEST(LMFFMovieFileOutputCopy, TimesAreRescaledAndMovedByTheItemsOffset) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, false);
  output.writeVideoPacket(packetItem(kTicks, 0, 0));
  // 40 and 20 of a thousandth; 100 000 µs on.
  const auto item = packetItem({1, 1000}, 40, 20, 10);
  item->setPkt_display_time(1100000);
  item->setPkt_time_offset(1000000);
  item->getPacket()->pos = 77;
  output.writeVideoPacket(item);
  EXPECT_EQ(item->getPacket()->dts, 1800 + 9000);
  EXPECT_EQ(item->getPacket()->pts, 3600 + 9000);
  EXPECT_EQ(item->getPacket()->duration, 900);
  EXPECT_EQ(item->getPacket()->pos, -1);
}

TEST(LMFFMovieFileOutputCopy, DecodingTimesOfVideoRiseAndPresentationDoesNotPrecedeThem) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, false);
  output.writeVideoPacket(packetItem(kTicks, 100, 100));
  const auto same = packetItem(kTicks, 100, 100);
  output.writeVideoPacket(same);
  EXPECT_EQ(same->getPacket()->dts, 101);
  EXPECT_EQ(same->getPacket()->pts, 101);
  const auto earlier = packetItem(kTicks, 50, 40);
  output.writeVideoPacket(earlier);
  EXPECT_EQ(earlier->getPacket()->dts, 102);
  EXPECT_EQ(earlier->getPacket()->pts, 102);
  const auto later = packetItem(kTicks, 500, 400);
  output.writeVideoPacket(later);
  EXPECT_EQ(later->getPacket()->dts, 400);
  EXPECT_EQ(later->getPacket()->pts, 500);
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  EXPECT_EQ(fieldOf(packetsOf(dir / "a.mov", "v"), "dts"),
            (std::vector<int64_t>{0, 101, 102, 400}));
}

TEST(LMFFMovieFileOutputCopy, TimesAreNeverNegative) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov");
  output.writeVideoPacket(packetItem(kTicks, -500, -900));
  EXPECT_EQ(output.video_pts(), 1);
  const auto item = packetItem(kTicks, -100, -200);
  item->setPkt_time_offset(1000000);
  output.writeVideoPacket(item);
  EXPECT_EQ(item->getPacket()->dts, 2);
  EXPECT_EQ(item->getPacket()->pts, 2);
  const auto sound = packetItem(kTicks, -100, -200);
  output.writeAudioPacket(sound);
  EXPECT_EQ(sound->getPacket()->dts, 1);
}

TEST(LMFFMovieFileOutputCopy, VideoWithoutADecodingTimeGetsTheNextOne) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, false);
  output.writeVideoPacket(packetItem(kTicks, 300, 300));
  const auto item = packetItem(kTicks, 700, AV_NOPTS_VALUE);
  output.writeVideoPacket(item);
  EXPECT_EQ(output.video_pts(), 301);
  EXPECT_EQ(item->getPacket()->dts, 301);
  EXPECT_EQ(item->getPacket()->pts, 700);
}

TEST(LMFFMovieFileOutputCopy, ItemWithoutAPresentationTimeStaysWithoutOne) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, false);
  const auto first = packetItem(kTicks, AV_NOPTS_VALUE, 300);
  output.writeVideoPacket(first);
  EXPECT_EQ(first->getPacket()->pts, 0);
  const auto item = packetItem(kTicks, AV_NOPTS_VALUE, 600);
  output.writeVideoPacket(item);
  EXPECT_EQ(item->getPacket()->pts, AV_NOPTS_VALUE);
  EXPECT_EQ(item->getPacket()->dts, 600);
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  EXPECT_EQ(fieldOf(packetsOf(dir / "a.mov", "v"), "pts"), (std::vector<int64_t>{0, 600}));
}

TEST(LMFFMovieFileOutputCopy, AudioFromBeforeTheLastOneIsDropped) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", false, true);
  output.writeAudioPacket(packetItem(kTicks, 1000, 1000));
  EXPECT_EQ(output.audio_pts(), 1000);
  output.writeAudioPacket(packetItem(kTicks, 999, 999));
  EXPECT_EQ(output.audio_pts(), 1000);
  const auto equal = packetItem(kTicks, 1000, 1000);
  output.writeAudioPacket(equal);
  EXPECT_EQ(output.audio_pts(), 1001);
  EXPECT_EQ(equal->getPacket()->dts, 1001);
  EXPECT_EQ(equal->getPacket()->pts, 1001);
  output.writeAudioPacket(packetItem(kTicks, 5000, AV_NOPTS_VALUE));
  EXPECT_EQ(output.audio_pts(), 1001);
  output.writeAudioPacket(packetItem(kTicks, 5000, 5000));
  EXPECT_EQ(output.audio_output_time(), 55556);
  output.stopOutput();
  size_t bytes = 0;
  for (const auto& packet : packetsOf(dir / "a.mov", "a"))
    bytes += std::stoul(packet["size"].get<std::string>());
  EXPECT_EQ(bytes, 3u * 16);
}

// What is too early goes to the first time there is, which is a tick behind the one asked for.
TEST(LMFFMovieFileOutputCopy, AudioMayBeginBeforeTheStart) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", false, true, -100000);
  EXPECT_EQ(output.copiedSoundBegin(), -100000);
  const auto early = packetItem(kTicks, -4500, -4500);
  output.writeAudioPacket(early);
  EXPECT_EQ(early->getPacket()->pts, -4500);
  EXPECT_EQ(early->getPacket()->dts, -4500);
  EXPECT_EQ(output.audio_pts(), -4500);
  CopyOutput other(dir / "b.mov", false, true, -100000);
  const auto tooEarly = packetItem(kTicks, -18000, -18000);
  other.writeAudioPacket(tooEarly);
  EXPECT_EQ(tooEarly->getPacket()->dts, -8999);
}

TEST(LMFFMovieFileOutputCopy, FirstAudioPacketKeepsItsTime) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, true);
  output.writeVideoPacket(packetItem(kTicks, 0, 0, 9000));
  const auto item = packetItem(kTicks, 4500, 4500);
  output.writeAudioPacket(item);
  EXPECT_EQ(item->getPacket()->pts, 4500);
}

TEST(LMFFMovieFileOutputCopy, WritingLeavesThePacketToItsOwner) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, false);
  const auto item = packetItem(kTicks, 0, 0, 3600, 50);
  output.writeVideoPacket(item);
  EXPECT_EQ(item->getPacket()->size, 50);
  EXPECT_EQ(item->getPacket()->data[49], 0x55);
  AVPacket* packet = item->getPacket();
  packet->pts = packet->dts = 3600;
  output.writePacket(packet, output.videoStream());
  EXPECT_EQ(packet->size, 50);
  output.writePacket(nullptr, output.videoStream());
  output.writePacket(packet, nullptr);
  output.stopOutput();
  EXPECT_EQ(packetsOf(dir / "a.mov", "v").size(), 2u);
}

TEST(LMFFMovieFileOutputCopy, NothingIsWrittenWithoutAPacketOrAStream) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, false);
  const FramePtr frame = makeFrame();
  output.writeVideoPacket(nullptr);
  output.writeVideoPacket(LMFFImage::imageWithFrame(frame.get()));
  output.writeVideoPacket(LMFFImage::imageWithPacket(nullptr));
  output.writeAudioPacket(packetItem(kTicks, 0, 0));
  output.writeRawPacket(packetItem(kTicks, 0, 0), nullptr);
  EXPECT_EQ(output.video_pts(), 0);
  EXPECT_EQ(output.audio_pts(), 0);
}

TEST(LMFFMovieFileOutputCopy, PacketItemIsWrittenAsAnImage) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov", true, false);
  output.writeImage(packetItem(kTicks, 450, 450));
  EXPECT_EQ(output.video_pts(), 450);
}

TEST(LMFFMovieFileOutputCopy, PicturesAndSoundAreNotEncodedIntoCopiedStreams) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov");
  test::writePictures(output, 2);
  test::writeTone(output, 5000);
  output.finishAudio();
  EXPECT_FALSE(output.writeFrame(nullptr, output.videoStream()));
  EXPECT_EQ(output.video_pts(), 0);
  EXPECT_EQ(output.audio_pts(), 0);
}

TEST(LMFFMovieFileOutputCopy, ItemsWithoutATimeBaseAreSurvived) {
  const TempDir dir;
  CopyOutput output(dir / "a.mov");
  for (const Rational base : {Rational{0, 0}, Rational{0, 1}, Rational{1, 0}, Rational{-1, 5}}) {
    output.writeVideoPacket(packetItem(base, 5, 5, 5));
    output.writeAudioPacket(packetItem(base, 5, 5, 5));
  }
  output.writeVideoPacket(packetItem(kTicks, INT64_MAX, INT64_MAX, INT64_MAX));
  output.writeVideoPacket(packetItem(kTicks, 5, 5));
  output.stopOutput();
  SUCCEED();
}

}  // namespace
}  // namespace kestrel
