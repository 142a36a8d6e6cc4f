#include "support/copy/CodecTag.h"

namespace kestrel {

namespace {

/// HEVC has a tag for parameter sets that lie in the container alone, as all do here, and one for
/// those that may lie among the pictures. Many players of MPEG-4 files take the first alone.
constexpr uint32_t kHevcTag = MKTAG('h', 'v', 'c', '1');
constexpr uint32_t kLooseHevcTag = MKTAG('h', 'e', 'v', '1');

/// Whether a container takes a codec by a tag, or by none, without taking the tag for another's.
bool understands(const AVOutputFormat& container, AVCodecID codec, uint32_t tag) {
  if (!container.codec_tag) return true;
  const AVCodecID meant = av_codec_get_id(container.codec_tag, tag);
  const bool isNamed = av_codec_get_tag(container.codec_tag, codec) != 0;
  return meant == codec || (meant == AV_CODEC_ID_NONE && !isNamed);
}

}  // namespace

uint32_t codecTagFor(const AVOutputFormat& container, AVCodecID codec, uint32_t tag) {
  if (tag != 0 && tag != kLooseHevcTag && understands(container, codec, tag)) return tag;
  const bool isHevc = codec == AV_CODEC_ID_HEVC &&
                      av_codec_get_id(container.codec_tag, kHevcTag) == AV_CODEC_ID_HEVC;
  return isHevc ? kHevcTag : 0;
}

}  // namespace kestrel
