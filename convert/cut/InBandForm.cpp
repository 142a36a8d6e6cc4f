#include "convert/cut/InBandForm.h"

#include <algorithm>
#include <map>
#include <span>
#include <vector>

#include "support/FFmpegBytes.h"
#include "support/FFmpegError.h"
#include "support/copy/FineEncoder.h"

namespace kestrel {

namespace {

using Bytes = std::span<const uint8_t>;
using Options = std::map<std::string, std::string>;

/// What has encoders give each picture as soon as they take it, and be done soon.
const Options& optionsFor(AVCodecID codec) {
  static const Options kNone;
  static const Options kHevc{{"preset", "fast"}};
  static const Options kVp9{{"lag-in-frames", "0"},
                            {"auto-alt-ref", "0"},
                            {"deadline", "good"},
                            {"cpu-used", "4"},
                            {"row-mt", "1"}};
  // Without a rate VP8's encoder keeps to a low one of its own.
  static const Options kVp8{{"lag-in-frames", "0"},
                            {"auto-alt-ref", "0"},
                            {"deadline", "realtime"},
                            {"cpu-used", "4"},
                            {"b", "100000000"}};
  static const Options kAv1{
      {"usage", "realtime"}, {"cpu-used", "7"}, {"lag-in-frames", "0"}, {"row-mt", "1"}};
  switch (codec) {
    case AV_CODEC_ID_HEVC:
      return kHevc;
    case AV_CODEC_ID_VP8:
      return kVp8;
    case AV_CODEC_ID_VP9:
      return kVp9;
    case AV_CODEC_ID_AV1:
      return kAv1;
    default:
      return kNone;
  }
}

bool isMpegVideo(AVCodecID codec) {
  return codec == AV_CODEC_ID_MPEG2VIDEO || codec == AV_CODEC_ID_MPEG1VIDEO;
}

bool prepend(AVPacket& packet, Bytes before) {
  std::vector<uint8_t> data(before.begin(), before.end());
  data.insert(data.end(), packet.data, packet.data + packet.size);
  return setBytes(packet, data);
}

/// Whether a packet of AV1 (AOM's document of its bitstream, 5.3) has a unit with
/// the parameters of a sequence among its first ones.
bool hasSequence(Bytes data) {
  constexpr int kSequence = 1;
  while (data.size() >= 2) {
    const int type = data[0] >> 3 & 15;
    const bool isExtended = (data[0] & 4) != 0;
    const bool tellsSize = (data[0] & 2) != 0;
    if (type == kSequence) return true;
    if (!tellsSize) return false;
    data = data.subspan(isExtended ? 2 : 1);
    size_t size = 0;
    for (int i = 0; i < 8 && !data.empty(); ++i) {
      const uint8_t byte = data[0];
      data = data.subspan(1);
      size |= static_cast<size_t>(byte & 127) << (7 * i);
      if ((byte & 128) == 0) break;
    }
    data = data.subspan(std::min(size, data.size()));
  }
  return false;
}

}  // namespace

InBandForm::InBandForm(const AVStream& stream) : stream_(stream), units_(*stream.codecpar) {
  options_ = optionsFor(stream.codecpar->codec_id);
}

bool InBandForm::takes(AVCodecID codec) {
  return codec == AV_CODEC_ID_HEVC || isMpegVideo(codec) || codec == AV_CODEC_ID_VP8 ||
         codec == AV_CODEC_ID_VP9 || codec == AV_CODEC_ID_AV1;
}

bool InBandForm::startsOpen() const {
  return stream_.codecpar->codec_id == AV_CODEC_ID_HEVC || isMpegVideo(stream_.codecpar->codec_id);
}

std::string InBandForm::prepare(int steps, AVCodecParameters&) {
  CodecContextPtr encoder;
  const int result = openFineEncoder(encoder,
                                     {.parameters = *stream_.codecpar,
                                      .rate = stream_.avg_frame_rate,
                                      .steps = steps,
                                      .options = options_},
                                     *describedPicture(stream_));
  return result < 0 ? "the encoder refuses the stream's form: " + libraryError(result).message : "";
}

uint32_t InBandForm::tag() const {
  return stream_.codecpar->codec_id == AV_CODEC_ID_HEVC ? MKTAG('h', 'e', 'v', '1') : 0;
}

bool InBandForm::adopt(AVPacket& packet) {
  return stream_.codecpar->codec_id != AV_CODEC_ID_HEVC || units_.adopt(packet);
}

/// A picture of random access becomes one of a broken link, as which the standard has splices made
/// (ISO/IEC 23008-2, 3.12 and 8.1.3): its leading pictures are not there, and nothing is counted on
/// from those before. Both have the same slices; the type in their units' heads is all that
/// differs.
bool InBandForm::open(AVPacket& packet) {
  constexpr int kRandomAccess = 21;
  constexpr uint8_t kBrokenLink = 18;  // without leading pictures
  if (stream_.codecpar->codec_id != AV_CODEC_ID_HEVC) return true;
  if (av_packet_make_writable(&packet) < 0) return false;
  for (const Bytes unit : units_.unitsOf(packet))
    if ((unit[0] >> 1 & 63) == kRandomAccess)
      packet.data[unit.data() - packet.data] =
          static_cast<uint8_t>((unit[0] & 0x81) | kBrokenLink << 1);
  return true;
}

bool InBandForm::resume(AVPacket& packet) {
  const AVCodecParameters& parameters = *stream_.codecpar;
  const Bytes record(parameters.extradata, static_cast<size_t>(parameters.extradata_size));
  const Bytes own(packet.data, static_cast<size_t>(packet.size));
  if (parameters.codec_id == AV_CODEC_ID_HEVC) return units_.prependCodecData(packet);
  if (isMpegVideo(parameters.codec_id)) {
    static constexpr uint8_t kSequence[] = {0, 0, 1, 0xB3};
    const bool hasOwn = own.size() > 4 && std::ranges::equal(own.first(4), kSequence);
    return hasOwn || prepend(packet, record);
  }
  constexpr size_t kHead = 4;  // of AV1's record
  if (parameters.codec_id == AV_CODEC_ID_AV1 && record.size() > kHead && !hasSequence(own))
    return prepend(packet, record.subspan(kHead));
  return true;
}

}  // namespace kestrel
