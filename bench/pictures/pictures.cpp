// Decodes the pictures of a clip and drops them, as they are or finished as `kestrel convert` makes
// them; `bench/run picture` tells from the two what the work on pictures takes by itself.
//
//     kestrel_pictures CLIP [WATERMARK [SUBTITLES]]
//
// With a watermark alone that is all there is to draw; with subtitles it is the look of `bench/run
// look`.

#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <iostream>
#include <memory>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include "convert/feed/PictureMaker.h"
#include "convert/feed/VideoFeed.h"
#include "convert/look/Look.h"
#include "convert/probe/Input.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/pixfmt.h>
}

namespace {

using namespace kestrel;

constexpr int32_t kFormat = AV_PIX_FMT_YUV420P;

LookSettings settingsOf(const char* watermark, const char* subtitles) {
  LookSettings settings;
  settings.watermark = Watermark{watermark, 40, 40};
  if (!subtitles) return settings;
  settings.crop = Area{160, 90, 1600, 900};
  settings.rotate = 3;
  settings.saturation = 0.6F;
  settings.hue = 0.53F;
  settings.subtitles = subtitles;
  settings.subtitleFont = Font{"DejaVu Sans", 40};
  return settings;
}

void run(int count, char** arguments) {
  const auto source = openInput(arguments[1], std::nullopt, {});
  const AVFormatContext& input = *source->formatContext();
  const int index =
      av_find_best_stream(source->formatContext(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (index < 0) throw Failure::input(arguments[1], "the clip has no pictures");
  const AVStream& stream = *input.streams[index];
  LMFFMovie movie;
  movie.setExportMovie(true);
  movie.openMedias(source->createMediasWithStreams(IndexSet{static_cast<uint32_t>(index)}));
  std::unique_ptr<PictureMaker> maker;
  if (count > 2) {
    const VideoInfo facts = mediaInfoOf(*source).streams[static_cast<size_t>(index)].video;
    const bool isSmall = count == 4;
    const LMFFVideoFormat format{kFormat, isSmall ? 1280 : facts.width,
                                 isSmall ? 720 : facts.height};
    Look(settingsOf(arguments[2], arguments[3]), facts)
        .apply(movie, {static_cast<double>(format.width), static_cast<double>(format.height)});
    LMFFImageColorspaceConverter converter;
    converter.setOutputFormat(format);
    const AVCodecParameters& coded = *stream.codecpar;
    converter.setOutputColor({.primaries = coded.color_primaries,
                              .transfer = coded.color_trc,
                              .matrix = coded.color_space,
                              .range = coded.color_range});
    maker = std::make_unique<PictureMaker>(movie, converter);
  }
  int64_t pictures = 0;
  movie.decodeImage(
      [&] {
        VideoFeed feed(movie, 0, {stream.avg_frame_rate.num, stream.avg_frame_rate.den});
        for (;; ++pictures) {
          const int64_t middle = feed.time() + feed.tickDuration() / 2;
          const auto picture = feed.next();
          if (!picture) return;
          if (maker) maker->make(picture, middle);
        }
      },
      true);
  std::cout << pictures << '\n';
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2 || count > 4) {
    std::cerr << "usage: kestrel_pictures CLIP [WATERMARK [SUBTITLES]]\n";
    return 2;
  }
  try {
    run(count, arguments);
  } catch (const Failure& failure) {
    std::cerr << "kestrel_pictures: " << failure.what() << '\n';
    return 1;
  }
  return 0;
}
