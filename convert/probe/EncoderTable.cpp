#include "convert/probe/EncoderTable.h"

#include "convert/probe/EncoderProbe.h"

#include <algorithm>
#include <cmath>
#include <iterator>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel {

namespace {

/// The usual values are chosen so that all encoders give pictures of about the same likeness to
/// their source, that of libx264's own default, and the presets by bytes and CPU time; the figures
/// are those of bench/quality, in bench/README.md.
constexpr EncoderRow kRows[] = {
    {"libx264", "crf", 0, 51, 23, "preset", "medium", -1, {}, 2.2, true, true},
    {"libx264rgb", "crf", 0, 51, 23, "preset", "medium"},
    {"libx265", "crf", 0, 51, 24, "preset", "medium", -1, {}, 2.0, true, true},
    {"libsvtav1", "crf", 1, 63, 35, "preset", "5", 13, {}, 1.0},
    {"libaom-av1", "crf", 0, 63, 32, "cpu-used", "6", 8, "row-mt=1"},
    {"librav1e", "qp", 0, 255, 100, "speed", "6", 10},
    {"libvpx-vp9", "crf", 0, 63, 32, "cpu-used", "2", 8, "row-mt=1:deadline=good", 0.9},
    {"libvpx", "crf", 4, 63, 40, "cpu-used", "2", 16, "deadline=good"},
    {"mpeg4", "global_quality", 1, 31, 4},
    {"libxvid", "global_quality", 1, 31, 4},
    {"msmpeg4", "global_quality", 1, 31, 4},
    {"msmpeg4v2", "global_quality", 1, 31, 4},
    {"mpeg2video", "global_quality", 1, 31, 4},
    {"mpeg1video", "global_quality", 1, 31, 4},
    {"wmv2", "global_quality", 1, 31, 4},
    {"wmv1", "global_quality", 1, 31, 4},
    {"flv", "global_quality", 1, 31, 3},
    {"mjpeg", "global_quality", 1, 31, 3},
    {"libtheora", "global_quality", 10, 0, 8},
};

/// By so many places of quality a quantiser is halved: as libx264's likeness rises.
constexpr double kQualityToHalf = 10;

constexpr std::string_view kPassesInMemory[] = {
    "libvpx",     "libvpx-vp9", "libaom-av1", "librav1e",  "libtheora", "libxvid", "mpeg1video",
    "mpeg2video", "mpeg4",      "msmpeg4",    "msmpeg4v2", "wmv1",      "wmv2",    "flv"};

constexpr const char* kX264Presets[] = {"ultrafast", "superfast", "veryfast", "faster",
                                        "fast",      "medium",    "slow",     "slower",
                                        "veryslow",  "placebo"};

/// Where several libraries write a codec, the one that gives most for its bytes and its time.
const std::map<AVCodecID, std::vector<const char*>>& preferences() {
  static const std::map<AVCodecID, std::vector<const char*>> kPreferences{
      {AV_CODEC_ID_H264, {"libx264"}},
      {AV_CODEC_ID_HEVC, {"libx265"}},
      {AV_CODEC_ID_AV1, {"libsvtav1", "libaom-av1", "librav1e"}},
      {AV_CODEC_ID_VP9, {"libvpx-vp9"}},
      {AV_CODEC_ID_VP8, {"libvpx"}},
      {AV_CODEC_ID_MPEG4, {"mpeg4"}},
      {AV_CODEC_ID_AAC, {"libfdk_aac", "aac"}},
      {AV_CODEC_ID_MP3, {"libmp3lame"}},
      {AV_CODEC_ID_OPUS, {"libopus"}},
      {AV_CODEC_ID_VORBIS, {"libvorbis"}},
  };
  return kPreferences;
}

}  // namespace

std::optional<QualityScale> EncoderRow::quality() const {
  if (qualityOption.empty()) return std::nullopt;
  return QualityScale{std::string(qualityOption), best, worst, usual};
}

std::vector<std::string> EncoderRow::presets() const {
  if (presetOption.empty()) return {};
  if (lastPreset < 0) return {std::begin(kX264Presets), std::end(kX264Presets)};
  std::vector<std::string> numbers;
  for (int number = 0; number <= lastPreset; ++number) numbers.push_back(std::to_string(number));
  return numbers;
}

std::map<std::string, std::string> EncoderRow::otherOptions() const {
  std::map<std::string, std::string> all;
  for (std::string_view rest = options; !rest.empty();) {
    const std::string_view one = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(one.size() + 1, rest.size()));
    const size_t equals = one.find('=');
    all[std::string(one.substr(0, equals))] = one.substr(equals + 1);
  }
  return all;
}

PassLog passLogOf(std::string_view encoder) {
  if (encoder == "libx264" || encoder == "libx264rgb") return PassLog::kStatsOption;
  if (encoder == "libx265") return PassLog::kX265Params;
  return std::ranges::count(kPassesInMemory, encoder) > 0 ? PassLog::kMemory : PassLog::kNone;
}

const EncoderRow* encoderRow(std::string_view name) {
  const auto* const found = std::ranges::find(kRows, name, &EncoderRow::name);
  return found == std::end(kRows) ? nullptr : found;
}

bool isOfDevice(const AVCodec& encoder) {
  return (encoder.capabilities & (AV_CODEC_CAP_HARDWARE | AV_CODEC_CAP_HYBRID)) != 0;
}

const AVCodec* firstUsable(const std::vector<const AVCodec*>& encoders,
                           const std::function<bool(const AVCodec&)>& opens) {
  const auto isReady = [](const AVCodec* encoder) {
    return (encoder->capabilities & AV_CODEC_CAP_EXPERIMENTAL) == 0;
  };
  for (const AVCodec* encoder : encoders)
    if (isReady(encoder) && !isOfDevice(*encoder)) return encoder;
  for (const AVCodec* encoder : encoders)
    if (isReady(encoder) && isOfDevice(*encoder) && opens(*encoder)) return encoder;
  return nullptr;
}

const AVCodec* bestEncoder(AVCodecID codec) {
  if (const auto preferred = preferences().find(codec); preferred != preferences().end())
    for (const char* name : preferred->second)
      if (const AVCodec* encoder = avcodec_find_encoder_by_name(name)) return encoder;
  std::vector<const AVCodec*> encoders;
  void* position = nullptr;
  while (const AVCodec* encoder = av_codec_iterate(&position))
    if (av_codec_is_encoder(encoder) && encoder->id == codec) encoders.push_back(encoder);
  const AVCodec* const usable =
      firstUsable(encoders, [](const AVCodec& encoder) { return troubleOf(encoder).empty(); });
  return usable ? usable : avcodec_find_encoder(codec);
}

double qualityAt(const QualityScale& scale, double quality) {
  // A step of a plain quantiser of half the size is as much likeness more, wherever it is halved.
  if (quality >= kUsualQuality && scale.option == "global_quality" && scale.best < scale.worst)
    return std::max(scale.best,
                    scale.usual * std::exp2((kUsualQuality - quality) / kQualityToHalf));
  if (quality >= kUsualQuality)
    return scale.usual +
           (scale.best - scale.usual) * (quality - kUsualQuality) / (100 - kUsualQuality);
  return scale.worst + (scale.usual - scale.worst) * quality / kUsualQuality;
}

}  // namespace kestrel
