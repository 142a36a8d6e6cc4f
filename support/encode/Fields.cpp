#include "support/encode/Fields.h"

#include <set>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

bool codesFields(std::string_view encoder, int format, int height) {
  static const std::set<std::string_view> kEncoders{"libx264",   "mpeg2video", "mpeg4", "prores",
                                                    "prores_aw", "prores_ks",  "ffv1"};
  if (!kEncoders.contains(encoder)) return false;
  // Of H.264 each field has whole samples of colour.
  const AVPixFmtDescriptor* const known = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
  const int lines = known && known->log2_chroma_h > 0 ? 4 : 2;
  return encoder != "libx264" || height % lines == 0;
}

void configureFields(bool topFieldFirst, AVCodecContext& encoder) {
  encoder.field_order = topFieldFirst ? AV_FIELD_TT : AV_FIELD_BB;
  if (codesFields(encoder.codec->name, encoder.pix_fmt, encoder.height))
    encoder.flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
}

void markFields(AVFrame& picture, bool topFieldFirst) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 7, 100)
  picture.flags |= AV_FRAME_FLAG_INTERLACED;
  picture.flags &= ~AV_FRAME_FLAG_TOP_FIELD_FIRST;
  if (topFieldFirst) picture.flags |= AV_FRAME_FLAG_TOP_FIELD_FIRST;
#else
  picture.interlaced_frame = 1;
  picture.top_field_first = topFieldFirst ? 1 : 0;
#endif
}

}  // namespace kestrel
