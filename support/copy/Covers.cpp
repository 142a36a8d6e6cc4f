#include "support/copy/Covers.h"

#include <string>

#include "support/Containers.h"
#include "support/FFmpegBytes.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

namespace kestrel {

namespace {

/// The name that players look for, and the media type; "" for a codec of no usual picture file.
struct CoverFile {
  std::string name;
  std::string type;
};

CoverFile coverFile(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_MJPEG:
      return {"cover.jpg", "image/jpeg"};
    case AV_CODEC_ID_PNG:
      return {"cover.png", "image/png"};
    case AV_CODEC_ID_GIF:
      return {"cover.gif", "image/gif"};
    case AV_CODEC_ID_BMP:
      return {"cover.bmp", "image/bmp"};
    case AV_CODEC_ID_WEBP:
      return {"cover.webp", "image/webp"};
    default:
      return {};
  }
}

}  // namespace

bool attachCover(const AVStream& input, AVStream& output, const AVOutputFormat& container) {
  const AVPacket& picture = input.attached_pic;
  const CoverFile file = coverFile(input.codecpar->codec_id);
  if (!holdsAttachments(container) || file.name.empty() || picture.size <= 0) return false;
  AVCodecParameters& parameters = *output.codecpar;
  if (!setCodecData(parameters, {picture.data, static_cast<size_t>(picture.size)})) return false;
  parameters.codec_type = AVMEDIA_TYPE_ATTACHMENT;
  output.disposition = 0;
  av_dict_set(&output.metadata, "filename", file.name.c_str(), 0);
  av_dict_set(&output.metadata, "mimetype", file.type.c_str(), 0);
  return true;
}

}  // namespace kestrel
