#include <gmock/gmock.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFMovie.h>

#include <algorithm>
#include <random>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

/// Clips as they are found, from many makers.
class RealFiles : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override { KESTREL_NEED_MEDIA(GetParam()); }

  std::filesystem::path file() const { return mediaFile(GetParam()); }
};

std::string nameOf(const testing::TestParamInfo<const char*>& info) {
  std::string name = info.param;
  std::ranges::replace_if(
      name, [](char c) { return !std::isalnum(static_cast<uint8_t>(c)); }, '_');
  return name;
}

TEST_P(RealFiles, OpensAndDecodesToItsEnd) {
  const auto media = openedMedia(file());
  ASSERT_TRUE(media->isOpen()) << media->source()->lastError().message;
  EXPECT_FALSE(media->streams().empty());
  size_t frames = 0;
  std::vector<float> sound;
  while (media->forwardNextPacket()) {
    for (const auto& stream : media->streams()) {
      frames += stream->hasFrame() ? 1 : 0;
      stream->setHasFrame(false);
      const int32_t waiting = stream->outputSamples();
      sound.resize(static_cast<size_t>(waiting) * 2);
      if (waiting > 0) stream->readSample(sound.data(), waiting);
    }
  }
  EXPECT_TRUE(media->isAtEnd());
  EXPECT_GT(frames, 0u);
}

TEST_P(RealFiles, SurvivesSeeksToAnyTime) {
  const auto medias = sourceOf(file())->createMedias();
  std::mt19937 random(3);
  for (const auto& media : medias) {
    const int64_t duration = std::min<int64_t>(media->duration(), 60 * kSecond);
    for (int i = 0; i < 8; ++i) {
      const auto time = static_cast<int64_t>(random() % (duration + 2 * kSecond)) - kSecond;
      media->seek(time);
      media->videoFrameAtTime(time);
      auto sound = silence(1000);
      media->readSample(sound.data(), 1000);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Clips, RealFiles,
    testing::Values("alpha-vp9-vorbis.webm", "bars-360p30-msmpeg4v2.avi",
                    "bunny-720p24-vp8-vorbis.webm", "chaplin-360p25-h264-mp3.mp4",
                    "cockatoo-720p20-h264-mp3.mp4", "cover-picture.mp3",
                    "discontinuity-h264-nellymoser.flv", "dvb-subtitles.ts",
                    "dvd-still-subpictures-ac3.vob", "failing-audio-h264-mp3.mp4",
                    "fire-720p-vfr-h264-aac.mp4", "mpeg2-mp3.ts", "mpeg4-four-mono-tracks.mxf",
                    "no-duration-vp9-opus.webm", "ntsc-480-h264-ac3.mp4", "packed-bframes.avi",
                    "piano-mono-8k.wav", "real-rv10-sipr.rm", "real-rv20.rm",
                    "smpte-1080p-h264-aac.mp4", "still-1080p60-h264-aac.flv",
                    "subtitles-unicode.srt", "subtitles.srt", "theora-offset.ogv", "wmv8-wma2.wmv"),
    nameOf);

/// Clips whose pictures all have times that ffprobe tells.
class RealPictures : public RealFiles {};

TEST_P(RealPictures, AllComeOutInTheirOrder) {
  const auto media = videoMediaOf(file());
  const auto stream = media->videoStream();
  std::vector<int64_t> found;
  while (media->forwardStream(stream))
    if (stream->hasFrame()) found.push_back(stream->frame()->pts);
  EXPECT_EQ(found, pictureTimesOf(file()));
}

TEST_P(RealPictures, AfterASeekItIsTheOneOfThatTime) {
  const auto media = videoMediaOf(file());
  const auto times = pictureTimesOf(file());
  const auto middles = middlesOf(*media, times);
  std::mt19937 random(11);
  for (int i = 0; i < 8; ++i) {
    const size_t picture = random() % middles.size();
    media->seek(middles[picture]);
    const AVFrame* frame = media->videoFrameAtTime(middles[picture]);
    ASSERT_NE(frame->data[0], nullptr) << picture;
    ASSERT_EQ(frame->pts, times[picture]) << picture;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Clips, RealPictures,
    testing::Values("alpha-vp9-vorbis.webm", "bunny-720p24-vp8-vorbis.webm",
                    "chaplin-360p25-h264-mp3.mp4", "cockatoo-720p20-h264-mp3.mp4",
                    "fire-720p-vfr-h264-aac.mp4", "mpeg2-mp3.ts", "no-duration-vp9-opus.webm",
                    "ntsc-480-h264-ac3.mp4", "real-rv10-sipr.rm", "real-rv20.rm",
                    "smpte-1080p-h264-aac.mp4", "still-1080p60-h264-aac.flv", "theora-offset.ogv",
                    "wmv8-wma2.wmv", "bars-360p30-msmpeg4v2.avi"),
    nameOf);

class RealClip : public testing::Test {};

TEST_F(RealClip, PackedPicturesAreOneUnitApartFromTheStart) {
  KESTREL_NEED_MEDIA("packed-bframes.avi");
  const auto media = videoMediaOf(mediaFile("packed-bframes.avi"));
  const auto stream = media->videoStream();
  std::vector<int64_t> found;
  while (media->forwardStream(stream))
    if (stream->hasFrame()) found.push_back(stream->frame()->pts);
  EXPECT_THAT(found, testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14));
}

TEST_F(RealClip, UnknownDurationIsMeasured) {
  KESTREL_NEED_MEDIA("no-duration-vp9-opus.webm");
  const auto file = mediaFile("no-duration-vp9-opus.webm");
  int64_t end = 0;
  const auto packets = ffprobeJson(file, {"-show_packets"})["packets"];
  for (const auto& packet : packets)
    end = std::max(end, packet["pts"].get<int64_t>() + packet.value("duration", int64_t{0}));
  EXPECT_EQ(openedMedia(file)->duration(), end * 1000);
}

TEST_F(RealClip, CoverPictureOfASoundFileIsNoVideo) {
  KESTREL_NEED_MEDIA("cover-picture.mp3");
  const auto medias = sourceOf(mediaFile("cover-picture.mp3"))->createMedias();
  ASSERT_EQ(medias.size(), 1u);
  EXPECT_TRUE(medias[0]->hasAudio());
  EXPECT_FALSE(medias[0]->hasVideo());
}

TEST_F(RealClip, SoundOfFourTracksIsFourTracks) {
  KESTREL_NEED_MEDIA("mpeg4-four-mono-tracks.mxf");
  const auto medias = sourceOf(mediaFile("mpeg4-four-mono-tracks.mxf"))->createMedias();
  ASSERT_EQ(medias.size(), 2u);
  EXPECT_EQ(medias[1]->audios().size(), 4u);
  EXPECT_EQ(medias[1]->audioNames().size(), 4u);
}

TEST_F(RealClip, VariableRateFallsBackOnItsAverage) {
  KESTREL_NEED_MEDIA("fire-720p-vfr-h264-aac.mp4");
  // 90000/1 is no rate; the average is 750000/71393.
  EXPECT_EQ(videoMediaOf(mediaFile("fire-720p-vfr-h264-aac.mp4"))->framerate(), 10.0F);
}

TEST_F(RealClip, SixtyPicturesASecondAreAnsweredAsThirty) {
  KESTREL_NEED_MEDIA("still-1080p60-h264-aac.flv");
  EXPECT_EQ(videoMediaOf(mediaFile("still-1080p60-h264-aac.flv"))->framerate(), 30.0F);
}

TEST_F(RealClip, NtscRateHasItsCustomaryName) {
  KESTREL_NEED_MEDIA("ntsc-480-h264-ac3.mp4");
  EXPECT_EQ(videoMediaOf(mediaFile("ntsc-480-h264-ac3.mp4"))->framerate(), 29.97F);
}

// Bitmap subtitles: where libavcodec itself says they are, turned upside down.

/// The last rectangle of every subtitle of a stream that has any, placed on a picture of a height.
std::vector<Rect> placesOf(const std::filesystem::path& file, int index, int height) {
  const auto source = sourceOf(file);
  source->open();
  AVFormatContext* context = source->formatContext();
  const AVCodecParameters* parameters = context->streams[index]->codecpar;
  const CodecContextPtr decoder(avcodec_alloc_context3(avcodec_find_decoder(parameters->codec_id)));
  avcodec_parameters_to_context(decoder.get(), parameters);
  avcodec_open2(decoder.get(), nullptr, nullptr);
  std::vector<Rect> places;
  const PacketPtr packet = makePacket();
  while (av_read_frame(context, packet.get()) >= 0) {
    AVSubtitle subtitle{};
    int isThere = 0;
    if (packet->stream_index == index && packet->size > 0)
      avcodec_decode_subtitle2(decoder.get(), &subtitle, &isThere, packet.get());
    if (isThere && subtitle.num_rects > 0) {
      const AVSubtitleRect& rect = *subtitle.rects[subtitle.num_rects - 1];
      places.push_back(
          {{static_cast<double>(rect.x), static_cast<double>(height - rect.y - rect.h)},
           {static_cast<double>(rect.w), static_cast<double>(rect.h)}});
    }
    avsubtitle_free(&subtitle);
    av_packet_unref(packet.get());
  }
  return places;
}

void expectBitmapsInTheirPlaces(const std::filesystem::path& file, uint32_t index) {
  const auto media = openedMedia(file);
  const auto stream = media->streams().at(index);
  ASSERT_TRUE(stream->isSubtitle());
  const auto expected = placesOf(file, static_cast<int>(index), media->videoFormat().height);
  std::vector<Rect> found;
  std::shared_ptr<const Image> previous;
  while (media->forwardNextPacket()) {
    if (stream->subtitle() && stream->subtitle() != previous)
      found.push_back(stream->subtitle()->extent());
    previous = stream->subtitle();
  }
  EXPECT_EQ(found, expected);
  EXPECT_FALSE(found.empty());
}

TEST_F(RealClip, BroadcastSubtitlesAreInTheirPlaces) {
  KESTREL_NEED_MEDIA("dvb-subtitles.ts");
  expectBitmapsInTheirPlaces(mediaFile("dvb-subtitles.ts"), 2);
}

TEST_F(RealClip, DiscSubtitlesAreInTheirPlaces) {
  KESTREL_NEED_MEDIA("dvd-still-subpictures-ac3.vob");
  for (const uint32_t index : {1, 2})
    expectBitmapsInTheirPlaces(mediaFile("dvd-still-subpictures-ac3.vob"), index);
}

TEST_F(RealClip, TextsBeyondAscii) {
  KESTREL_NEED_MEDIA("subtitles-unicode.srt");
  LMFFMovie movie;
  ASSERT_TRUE(movie.openSubtitle(mediaFile("subtitles-unicode.srt")));
  const auto packets =
      ffprobeJson(mediaFile("subtitles-unicode.srt"), {"-show_packets"})["packets"];
  ASSERT_FALSE(packets.empty());
  const int64_t middle =
      packets[0]["pts"].get<int64_t>() + packets[0]["duration"].get<int64_t>() / 2;
  const auto text = movie.subtitle()->subtitleStringAtTime(milliseconds(middle));
  ASSERT_TRUE(text);
  EXPECT_TRUE(std::ranges::any_of(*text, [](char c) { return static_cast<uint8_t>(c) > 127; }));
}

}  // namespace
}  // namespace kestrel::test
