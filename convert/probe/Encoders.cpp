#include <kestrel/convert/Encoders.h>

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <tuple>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include "convert/probe/Codecs.h"
#include "convert/probe/EncoderProbe.h"
#include "convert/probe/EncoderTable.h"
#include "support/encode/EncoderCompat.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

StreamInfo::Kind kindOf(const AVCodec& encoder) {
  return encoder.type == AVMEDIA_TYPE_AUDIO ? StreamInfo::Kind::kAudio : StreamInfo::Kind::kVideo;
}

void tellPictures(EncoderInfo& info, const AVCodec& encoder) {
  for (const AVPixelFormat format : acceptedFormats<AVPixelFormat>(&encoder)) {
    const AVPixFmtDescriptor& known = *av_pix_fmt_desc_get(format);
    info.pixelFormats.emplace_back(known.name);
    if (!(known.flags & AV_PIX_FMT_FLAG_HWACCEL)) info.depths.push_back(known.comp[0].depth);
  }
  std::ranges::sort(info.depths);
  info.depths.erase(std::unique(info.depths.begin(), info.depths.end()), info.depths.end());
}

void tellSound(EncoderInfo& info, const AVCodec& encoder) {
  for (const int* rate = encoder.supported_samplerates; rate && *rate; ++rate)
    info.sampleRates.push_back(*rate);
  std::ranges::sort(info.sampleRates);
  for (const AVSampleFormat format : acceptedFormats<AVSampleFormat>(&encoder))
    info.sampleFormats.emplace_back(av_get_sample_fmt_name(format));
}

EncoderInfo infoOf(const AVCodec& encoder) {
  EncoderInfo info;
  info.name = encoder.name;
  info.longName = encoder.long_name ? encoder.long_name : "";
  info.codec = avcodec_get_name(encoder.id);
  info.kind = kindOf(encoder);
  info.isHardware = isOfDevice(encoder);
  const AVCodecDescriptor* codec = avcodec_descriptor_get(encoder.id);
  const bool isLossless =
      codec && (codec->props & AV_CODEC_PROP_LOSSLESS) && !(codec->props & AV_CODEC_PROP_LOSSY);
  info.takesBitrate = !isLossless;
  if (info.kind == StreamInfo::Kind::kVideo)
    tellPictures(info, encoder);
  else
    tellSound(info, encoder);
  if (const EncoderRow* row = encoderRow(encoder.name)) {
    info.quality = row->quality();
    info.presets = row->presets();
    info.usualPreset = row->usualPreset;
  }
  info.trouble = troubleOf(encoder);
  return info;
}

bool isOfMovies(AVMediaType type) {
  return type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO;
}

/// All encoders of pictures and sound.
std::vector<const AVCodec*> allEncoders() {
  std::vector<const AVCodec*> encoders;
  void* position = nullptr;
  while (const AVCodec* encoder = av_codec_iterate(&position))
    if (av_codec_is_encoder(encoder) && isOfMovies(encoder->type)) encoders.push_back(encoder);
  return encoders;
}

/// Those of a codec, or the one of that name.
std::vector<const AVCodec*> encodersNamed(const std::string& name) {
  std::vector<const AVCodec*> encoders = allEncoders();
  std::vector<std::string> names;
  for (const AVCodec* encoder : encoders) {
    names.emplace_back(encoder->name);
    names.emplace_back(avcodec_get_name(encoder->id));
  }
  const AVCodecDescriptor* const known = avcodec_descriptor_get_by_name(codecNameOf(name).c_str());
  const bool isCodec = known && isOfMovies(known->type);
  std::erase_if(encoders, [&](const AVCodec* encoder) {
    return isCodec ? encoder->id != known->id : encoder->name != name;
  });
  if (encoders.empty() && !isCodec) {
    std::ranges::sort(names);
    names.erase(std::unique(names.begin(), names.end()), names.end());
    throw Failure::settings(fmt::format("there is no codec or encoder '{}' of pictures or sound{}",
                                        name, nearestNames(name, names)),
                            "codec");
  }
  return encoders;
}

}  // namespace

std::vector<EncoderInfo> readEncoders(const std::string& codec) {
  std::vector<const AVCodec*> encoders = codec.empty() ? allEncoders() : encodersNamed(codec);
  std::ranges::stable_sort(encoders, {}, [](const AVCodec* encoder) {
    return std::tuple(encoder->type, std::string_view(avcodec_get_name(encoder->id)),
                      encoder != bestEncoder(encoder->id));
  });
  std::vector<EncoderInfo> infos;
  for (const AVCodec* encoder : encoders) infos.push_back(infoOf(*encoder));
  return infos;
}

}  // namespace kestrel
