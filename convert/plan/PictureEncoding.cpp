#include "convert/plan/PictureEncoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include "convert/plan/EncoderOptions.h"
#include "convert/plan/EncoderParameters.h"
#include "convert/plan/PixelFormats.h"
#include "convert/probe/EncoderTable.h"
#include "support/encode/KeyOrders.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

constexpr double kUsualKeyframes = 10;  // seconds

/// 6 Mbit/s for 1080p30, less than proportionally less for smaller ones, twice that for codecs of
/// the MPEG-2 generation.
double exactBitrate(const LMFFMovieFileOutputFormat& format) {
  const double pixels = static_cast<double>(format.width) * format.height;
  const double rate = static_cast<double>(format.framerate) / std::max(format.frameTime, 1);
  const double modern = 6e6 * std::pow(pixels / (1920.0 * 1080), 0.75) * std::sqrt(rate / 30);
  static const std::set<int> kModern{AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_VP8,
                                     AV_CODEC_ID_VP9, AV_CODEC_ID_AV1};
  return std::clamp(kModern.contains(format.video_codec) ? modern : 2 * modern, 200e3, 80e6);
}

int bitrateFor(const LMFFMovieFileOutputFormat& format) {
  return static_cast<int>(std::lround(exactBitrate(format) / 1000)) * 1000;
}

/// Has key pictures come where they are counted or ordered alone, be the scene what it may, and
/// nothing reach back beyond them.
void closeGroups(ConversionPlan& plan) {
  auto& options = plan.videoOptions;
  const std::string& encoder = plan.videoEncoder;
  if (encoder == "libx264") {
    options["sc_threshold"] = "0";
    options["forced-idr"] = "1";
  } else if (encoder == "libx265") {
    addParameter(options, encoder, "scenecut", "0");
    addParameter(options, encoder, "open-gop", "0");
    options["forced-idr"] = "1";
  } else if (encoder.starts_with("libvpx") || encoder == "libaom-av1") {
    options["keyint_min"] = options["g"];
  } else if (encoder == "mpeg4" || encoder == "mpeg2video" || encoder == "mpeg1video") {
    options["flags"] += "+cgop";
  }
}

/// Whether players of such files want a bit rate that does not rise above what a disc can give.
bool needsBitrate(const AVOutputFormat& container) {
  static const std::set<std::string_view> kDiscs{"dvd", "vob", "vcd", "svcd"};
  return kDiscs.contains(container.name);
}

/// Whether key pictures may lie as far apart as a program likes: players of older codecs expect
/// them often.
bool takesLongGroups(int codec) {
  static const std::set<int> kCodecs{AV_CODEC_ID_H264,  AV_CODEC_ID_HEVC, AV_CODEC_ID_VP8,
                                     AV_CODEC_ID_VP9,   AV_CODEC_ID_AV1,  AV_CODEC_ID_MPEG4,
                                     AV_CODEC_ID_THEORA};
  return kCodecs.contains(codec);
}

/// The bit rate beside a quality. Libraries take it for a limit; without one VP8's has 256 kbit/s.
const char* limitBeside(const std::string& encoder) { return encoder == "libvpx" ? "200M" : "0"; }

void setQuality(ConversionPlan& plan, const QualityScale& scale, double value) {
  plan.format.video_bitrate = 0;
  if (scale.option == "global_quality") {
    plan.videoOptions["global_quality"] = std::to_string(std::lround(value * FF_QP2LAMBDA));
    plan.videoOptions["flags"] = "+qscale";
    // Encoders use no finer step than 2 unless they are told to.
    if (scale.best < scale.worst && value < 2) plan.videoOptions["qmin"] = "1";
    return;
  }
  plan.videoOptions[scale.option] = fmt::format("{:.4g}", value);
  plan.videoOptions["b"] = limitBeside(plan.videoEncoder);
  // As long as it is below its limit, VP8's gives key pictures and hidden ones the finest steps
  // there are: at crf 40 two to four times the bytes of equal likeness.
  if (plan.videoEncoder == "libvpx")
    plan.videoOptions["qmin"] = std::to_string(std::lround(value / 2));
}

/// Whether the encoder's own options already say how good the pictures are.
bool choosesRate(const ConversionSettings::Options& options) {
  static const std::set<std::string_view> kKeys{
      "b", "qp", "cqp", "crf", "q", "global_quality", "qscale", "lossless"};
  return std::ranges::any_of(options,
                             [](const auto& option) { return kKeys.contains(option.first); });
}

/// Whether a codec's pictures have as many bytes as they need.
bool losesNothing(int codec) {
  const AVCodecDescriptor* const known = avcodec_descriptor_get(static_cast<AVCodecID>(codec));
  return known && (known->props & AV_CODEC_PROP_LOSSLESS) && !(known->props & AV_CODEC_PROP_LOSSY);
}

/// Whether an encoder's bytes follow a bit rate: those do that are known to have a quality, too,
/// and devices.
bool takesBitrate(const std::string& name, const EncoderRow* row) {
  const AVCodec* const encoder = avcodec_find_encoder_by_name(name.c_str());
  return row || (encoder && isOfDevice(*encoder));
}

void planPasses(ConversionPlan& plan, const ConversionSettings& settings, const EncoderRow* row) {
  const bool canTwice = passLogOf(plan.videoEncoder) != PassLog::kNone;
  plan.sizeLimit = settings.sizeLimit;
  if (plan.sizeLimit && !takesBitrate(plan.videoEncoder, row))
    throw Failure::settings(
        fmt::format("sizeLimit: the encoder {} goes by no bit rate", plan.videoEncoder),
        "sizeLimit");
  plan.passes = settings.passes.value_or(plan.sizeLimit && canTwice ? 2 : 1);
  if (plan.passes == 2 && !canTwice)
    throw Failure::settings(fmt::format("passes: the encoder {} knows one pass", plan.videoEncoder),
                            "passes");
}

void planQuality(ConversionPlan& plan, const ConversionSettings& settings, const EncoderRow* row,
                 const AVOutputFormat& container) {
  const auto scale = row ? row->quality() : std::nullopt;
  if (settings.targetQuality) {
    if (!row || row->scorePerStep == 0)
      throw Failure::settings(
          fmt::format("targetQuality: libx264, libx265, libsvtav1 and libvpx-vp9 can be told one, "
                      "{} cannot",
                      plan.videoEncoder),
          "targetQuality");
    plan.targetQuality = settings.targetQuality;
    return setQuality(plan, *scale, scale->usual);
  }
  if (settings.crf) {
    if (!scale || scale->option != "crf")
      throw Failure::settings(
          fmt::format(
              "crf: the encoder {} has none; it takes a quality from 0 to 100 or a bit rate",
              plan.videoEncoder),
          "crf");
    if (*settings.crf < scale->best || *settings.crf > scale->worst)
      throw Failure::settings(
          fmt::format("crf: the encoder {} takes numbers from {} to {}, '{}' is none of them",
                      plan.videoEncoder, scale->best, scale->worst, *settings.crf),
          "crf");
    return setQuality(plan, *scale, *settings.crf);
  }
  if (settings.quality && !scale)
    throw Failure::settings(
        fmt::format("quality: the encoder {} knows none, only a bit rate", plan.videoEncoder),
        "quality");
  if (plan.sizeLimit) {
    plan.format.video_bitrate = bitrateFor(plan.format);
    return;
  }
  const bool isUsual = !settings.videoBitrate && !settings.quality;
  if (isUsual && choosesRate(settings.videoOptions)) {
    plan.format.video_bitrate = 0;
    if (settings.videoOptions.contains("crf"))
      plan.videoOptions["b"] = limitBeside(plan.videoEncoder);
    return;
  }
  if (settings.videoBitrate || !scale || (isUsual && needsBitrate(container))) {
    const int own = losesNothing(plan.format.video_codec) ? 0 : bitrateFor(plan.format);
    plan.format.video_bitrate = settings.videoBitrate.value_or(own);
    return;
  }
  setQuality(plan, *scale, settings.quality ? qualityAt(*scale, *settings.quality) : scale->usual);
}

void planPreset(ConversionPlan& plan, const std::string& wanted, const EncoderRow* row) {
  if (!row || row->presetOption.empty()) {
    if (wanted.empty()) return;
    throw Failure::settings(
        fmt::format("encoderPreset: the encoder {} has no presets", plan.videoEncoder),
        "encoderPreset");
  }
  const auto presets = row->presets();
  if (!wanted.empty() && !std::ranges::count(presets, wanted))
    throw Failure::settings(
        fmt::format("encoderPreset: '{}' is none of {}'s presets{}: {}", wanted, plan.videoEncoder,
                    nearestNames(wanted, presets), fmt::join(presets, ", ")),
        "encoderPreset");
  plan.videoOptions[std::string(row->presetOption)] =
      wanted.empty() ? std::string(row->usualPreset) : wanted;
}

/// Seconds between key pictures where each piece begins with one. An encoder that is told where
/// segments begin must not count itself to a picture close by.
double keyframesIn(const ConversionPlan& plan, const ConversionSettings& settings) {
  const double piece =
      plan.segment ? static_cast<double>(*plan.segment) / 1e6 : settings.fragment.value_or(0);
  if (settings.keyframes && *settings.keyframes < piece) return *settings.keyframes;
  return plan.segment && takesKeyOrders(plan.videoEncoder) ? 2 * piece : piece;
}

}  // namespace

double usualBitrate(const LMFFMovieFileOutputFormat& format) { return exactBitrate(format); }

void planEncoding(ConversionPlan& plan, const ConversionSettings& settings,
                  const AVOutputFormat& container) {
  const EncoderRow* const row = encoderRow(plan.videoEncoder);
  if (row) plan.videoOptions = row->otherOptions();
  planPasses(plan, settings, row);
  planQuality(plan, settings, row, container);
  planPreset(plan, settings.encoderPreset, row);
  const double rate = static_cast<double>(plan.format.framerate) / plan.format.frameTime;
  const bool isDivided = plan.segment || settings.fragment;
  const auto keyframes =
      isDivided ? std::optional(keyframesIn(plan, settings)) : settings.keyframes;
  if (keyframes || (takesLongGroups(plan.format.video_codec) && !needsBitrate(container)))
    plan.videoOptions["g"] =
        std::to_string(std::max(1L, std::lround(keyframes.value_or(kUsualKeyframes) * rate)));
  if (isDivided) closeGroups(plan);
  // What loses nothing has a profile of its own.
  const auto isZero = [](const std::map<std::string, std::string>& options, const char* name) {
    const auto option = options.find(name);
    return option != options.end() && option->second == "0";
  };
  const bool isLossless = isZero(plan.videoOptions, "crf") ||
                          isZero(settings.videoOptions, "crf") ||
                          isZero(settings.videoOptions, "qp");
  if (plan.videoEncoder == "libx264" && plan.pixelFormat == "yuv420p")
    plan.videoOptions["profile"] = isLossless ? "high444" : "high";
  // VP8's alpha is encoded beside the pictures, and would miss those that are never shown.
  if (plan.videoEncoder == "libvpx" && hasAlpha(plan.pixelFormat))
    plan.videoOptions["auto-alt-ref"] = "0";
  requireEncoderOptions("videoOptions", *avcodec_find_encoder_by_name(plan.videoEncoder.c_str()),
                        settings.videoOptions);
  addOptions(plan.videoOptions, plan.videoEncoder, settings.videoOptions);
}

}  // namespace kestrel
