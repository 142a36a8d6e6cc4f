// Decodes the pictures of a clip and drops them, as they are or finished as `kestrel convert` makes
// them; `bench/run picture` tells from the two what the work on pictures takes by itself.
//
//     kestrel_pictures CLIP [WATERMARK SUBTITLES]

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

constexpr LMFFVideoFormat kOutput{AV_PIX_FMT_YUV420P, 1280, 720};

/// The look that `bench/run look` has.
LookSettings settingsOf(const char* watermark, const char* subtitles) {
  LookSettings settings;
  settings.crop = Area{160, 90, 1600, 900};
  settings.rotate = 3;
  settings.saturation = 0.6F;
  settings.hue = 0.53F;
  settings.watermark = Watermark{watermark, 40, 40};
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
  if (count == 4) {
    Look(settingsOf(arguments[2], arguments[3]), mediaInfoOf(*source).streams[static_cast<size_t>(index)].video)
        .apply(movie, {static_cast<double>(kOutput.width), static_cast<double>(kOutput.height)});
    LMFFImageColorspaceConverter converter;
    converter.setOutputFormat(kOutput);
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
  if (count != 2 && count != 4) {
    std::cerr << "usage: kestrel_pictures CLIP [WATERMARK SUBTITLES]\n";
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
