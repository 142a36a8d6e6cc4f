#include "media/StyledSubtitles.h"

#include <kestrel/Image.h>

#include <strings.h>
#include <algorithm>
#include <array>
#include <string>

#include "media/SubtitleContent.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

std::string_view tagOf(const AVStream& stream, const char* key) {
  const AVDictionaryEntry* entry = av_dict_get(stream.metadata, key, nullptr, 0);
  return entry ? entry->value : std::string_view();
}

/// Containers name the kind of an attachment in several ways, or not at all.
bool isFont(const AVStream& stream) {
  if (stream.codecpar->codec_type != AVMEDIA_TYPE_ATTACHMENT) return false;
  const AVCodecID codec = stream.codecpar->codec_id;
  if (codec == AV_CODEC_ID_TTF || codec == AV_CODEC_ID_OTF) return true;
  const std::string_view kind = tagOf(stream, "mimetype");
  if (kind.find("font") != std::string_view::npos) return true;
  const std::string_view file = tagOf(stream, "filename");
  constexpr std::array<std::string_view, 3> kEnds = {".ttf", ".otf", ".ttc"};
  return std::ranges::any_of(kEnds, [&](std::string_view end) {
    return file.size() > end.size() &&
           strncasecmp(file.data() + file.size() - end.size(), end.data(), end.size()) == 0;
  });
}

}  // namespace

bool StyledSubtitles::areAlways(const AVCodecContext& decoder) {
  return decoder.codec_id == AV_CODEC_ID_ASS || decoder.codec_id == AV_CODEC_ID_SSA ||
         decoder.codec_id == AV_CODEC_ID_EIA_608;
}

StyledSubtitles::StyledSubtitles(const AVCodecContext& decoder, const AVFormatContext* container)
    : script_(subtitleHeaderOf(decoder)), hasOwnStyles_(areAlways(decoder)) {
  for (unsigned i = 0; container && i < container->nb_streams; ++i) {
    const AVStream& stream = *container->streams[i];
    if (!isFont(stream) || stream.codecpar->extradata_size <= 0) continue;
    script_.addFont(
        std::string(tagOf(stream, "filename")),
        {stream.codecpar->extradata, static_cast<size_t>(stream.codecpar->extradata_size)});
  }
}

std::shared_ptr<const Image> StyledSubtitles::at(int64_t time, const SubtitleCanvas& canvas) {
  const Size& area = canvas.area.size;
  SubtitleScript::Canvas drawn{
      static_cast<int>(area.width), static_cast<int>(area.height), canvas.picture, {}};
  if (drawn.width <= 0 || drawn.height <= 0) return nullptr;
  if (!hasOwnStyles_)
    drawn.plain = {canvas.font, canvas.color, canvas.outline, canvas.margin * area.width,
                   canvas.position * area.height};
  const auto parts = script_.partsAt(time, drawn);
  if (!parts && origin_ == canvas.area.origin) return image_;
  if (!parts) {
    image_ = image_ ? image_->translated(canvas.area.origin.x - origin_.x,
                                         canvas.area.origin.y - origin_.y)
                    : nullptr;
  } else {
    image_ = nullptr;
    for (const auto& [bitmap, at] : *parts)
      image_ = subtitleImageOver(Image::fromBitmap(bitmap)->translated(canvas.area.origin.x + at.x,
                                                                       canvas.area.origin.y + at.y),
                                 image_);
  }
  origin_ = canvas.area.origin;
  return image_;
}

}  // namespace kestrel
