#include "convert/probe/Colors.h"

#include <kestrel/FirstFrame.h>
#include <kestrel/IndexSet.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include "convert/probe/Streams.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

std::string orEmpty(const char* text) { return text ? text : ""; }

bool isColorOpen(const VideoInfo& pictures) {
  return pictures.color.matrix != AVCOL_SPC_RGB &&
         (pictures.colorSpace.empty() || pictures.colorRange.empty() ||
          pictures.colorPrimaries.empty() || pictures.colorTransfer.empty());
}

}  // namespace

void tellColors(VideoInfo& pictures, const VideoColor& told, int pixelFormat) {
  pictures.color = resolvedVideoColor(told, pixelFormat, pictures.height);
  if (told.matrix != AVCOL_SPC_UNSPECIFIED)
    pictures.colorSpace = orEmpty(av_color_space_name(static_cast<AVColorSpace>(told.matrix)));
  if (told.range != AVCOL_RANGE_UNSPECIFIED)
    pictures.colorRange = orEmpty(av_color_range_name(static_cast<AVColorRange>(told.range)));
  if (told.primaries != AVCOL_PRI_UNSPECIFIED)
    pictures.colorPrimaries =
        orEmpty(av_color_primaries_name(static_cast<AVColorPrimaries>(told.primaries)));
  if (told.transfer != AVCOL_TRC_UNSPECIFIED)
    pictures.colorTransfer =
        orEmpty(av_color_transfer_name(static_cast<AVColorTransferCharacteristic>(told.transfer)));
}

void learnColors(VideoInfo& pictures, const AVFrame& picture) {
  VideoColor told = pictures.color;
  if (pictures.colorSpace.empty()) told.matrix = picture.colorspace;
  if (pictures.colorRange.empty()) told.range = picture.color_range;
  if (pictures.colorPrimaries.empty()) told.primaries = picture.color_primaries;
  if (pictures.colorTransfer.empty()) told.transfer = picture.color_trc;
  tellColors(pictures, told, picture.format);
}

void learnColors(MediaInfo& input, const std::shared_ptr<LMMediaSource>& source) {
  if (!input.mainVideo) return;
  VideoInfo& pictures = input.streams[*input.mainVideo].video;
  if (!isColorOpen(pictures)) return;
  if (const auto first = firstPicture(source)) learnColors(pictures, *first->getFrame());
}

void learnColorsOnTheWay(MediaInfo& input, LMMediaSource& source) {
  if (!input.mainVideo) return;
  VideoInfo& pictures = input.streams[*input.mainVideo].video;
  if (!isColorOpen(pictures)) return;
  if (const auto first = firstFrame(source, static_cast<int>(*input.mainVideo)))
    learnColors(pictures, *first);
}

std::shared_ptr<LMFFImage> firstPicture(const std::shared_ptr<LMMediaSource>& source) {
  const auto video = mainVideo(*source->formatContext());
  if (!video) return nullptr;
  LMFFMovie movie;
  movie.openMedias(source->createMediasWithStreams(IndexSet{*video}));
  const auto videos = movie.videos();
  if (videos.empty()) return nullptr;
  const LMFFMedia::Picture picture = videos.front()->nextPicture();
  return picture ? LMFFImage::imageWithFrame(av_frame_clone(picture.frame), true) : nullptr;
}

}  // namespace kestrel
