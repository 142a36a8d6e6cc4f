#pragma once

#include <kestrel/LMFFVideoColor.h>
#include <kestrel/convert/MediaInfo.h>

#include <memory>

struct AVFrame;

namespace kestrel {

class LMFFImage;
class LMMediaSource;

/// Notes the colours that are told of pictures, and by what names; what is left open is what
/// players take for pictures of that format (`AV_PIX_FMT_…`) and height.
void tellColors(VideoInfo& pictures, const VideoColor& told, int pixelFormat);

/// Notes what a decoded picture says of its colours, where nothing else was told: of some codecs,
/// such as VP8, only the pictures know.
void learnColors(VideoInfo& pictures, const AVFrame& picture);

/// The same for the main pictures of an input, of which the first is decoded where something is
/// open. `source` is the input, not yet read from, and is read.
void learnColors(MediaInfo& input, const std::shared_ptr<LMMediaSource>& source);

/// The same of a source that can be read only once: it reads on as if nobody had looked.
void learnColorsOnTheWay(MediaInfo& input, LMMediaSource& source);

/// The first picture of a source that was not yet read from, in the order in which they are shown;
/// null where none can be decoded.
std::shared_ptr<LMFFImage> firstPicture(const std::shared_ptr<LMMediaSource>& source);

}  // namespace kestrel
