#include "convert/plan/PixelFormats.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <type_traits>
#include <utility>

#include "convert/probe/Light.h"
#include "convert/settings/Require.h"
#include "support/FramePlanes.h"
#include "support/encode/EncoderCompat.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int kEightBits = 8;
constexpr int kHdrBits = 10;  // in fewer, PQ and HLG show steps

/// The nearest 8-bit relative of a format.
AVPixelFormat inEightBits(AVPixelFormat format) {
  static constexpr AVPixelFormat kPlain[] = {
      AV_PIX_FMT_YUV420P,  AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P,  AV_PIX_FMT_YUV440P,
      AV_PIX_FMT_YUV411P,  AV_PIX_FMT_YUV410P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_YUVA422P,
      AV_PIX_FMT_YUVA444P, AV_PIX_FMT_GBRP,    AV_PIX_FMT_GBRAP,    AV_PIX_FMT_GRAY8,
      AV_PIX_FMT_NONE};
  return avcodec_find_best_pix_fmt_of_list(kPlain, format, 1, nullptr);
}

/// Whether a format stands for another in full range, which its name says.
bool isFullRangeTwin(AVPixelFormat format) {
  return std::string_view(av_get_pix_fmt_name(format)).starts_with("yuvj");
}

/// Those of an encoder's formats whose pictures lie in memory. The range is told by itself, but for
/// JPEG, which has no other.
std::vector<AVPixelFormat> plainFormats(const AVCodec& encoder) {
  const bool isJpeg = encoder.id == AV_CODEC_ID_MJPEG;
  std::vector<AVPixelFormat> formats;
  for (const AVPixelFormat format : acceptedFormats<AVPixelFormat>(&encoder)) {
    const bool isDevice = (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0;
    if (!isDevice && isFullRangeTwin(format) == isJpeg) formats.push_back(format);
  }
  return formats;
}

int depthOf(AVPixelFormat format) { return av_pix_fmt_desc_get(format)->comp[0].depth; }

/// None for what has no colour samples of their own: RGB, grey, palettes, and rarer shapes.
std::optional<ChromaSampling> chromaOf(AVPixelFormat format) {
  const AVPixFmtDescriptor& known = *av_pix_fmt_desc_get(format);
  if (known.nb_components < 3 || (known.flags & AV_PIX_FMT_FLAG_RGB)) return std::nullopt;
  if (known.log2_chroma_w == 0 && known.log2_chroma_h == 0) return ChromaSampling::k444;
  if (known.log2_chroma_w == 1 && known.log2_chroma_h == 0) return ChromaSampling::k422;
  if (known.log2_chroma_w == 1 && known.log2_chroma_h == 1) return ChromaSampling::k420;
  return std::nullopt;
}

const char* nameOf(ChromaSampling chroma) {
  constexpr const char* kNames[] = {"4:4:4", "4:2:2", "4:2:0"};
  return kNames[static_cast<size_t>(chroma)];
}

/// Whether looks are drawn in more than 8 bits into pictures of a format.
bool isDrawnDeep(AVPixelFormat format) {
  return isYuvPlanes(format) && av_pix_fmt_desc_get(format)->nb_components >= 3;
}

AVPixelFormat withoutAlpha(AVPixelFormat format) {
  std::string name = av_get_pix_fmt_name(format);
  if (name.starts_with("yuva")) name.erase(3, 1);
  if (name.starts_with("gbrap")) name.erase(3, 1);
  const AVPixelFormat opaque = av_get_pix_fmt(name.c_str());
  if ((av_pix_fmt_desc_get(opaque)->flags & AV_PIX_FMT_FLAG_ALPHA) == 0) return opaque;
  return av_pix_fmt_desc_get(opaque)->flags & AV_PIX_FMT_FLAG_RGB ? AV_PIX_FMT_GBRP
                                                                  : AV_PIX_FMT_GRAY8;
}

std::string bestOf(std::vector<AVPixelFormat> formats, AVPixelFormat own) {
  if (formats.empty()) return {};
  formats.push_back(AV_PIX_FMT_NONE);
  const bool hasAlpha = (av_pix_fmt_desc_get(own)->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
  return av_get_pix_fmt_name(
      avcodec_find_best_pix_fmt_of_list(formats.data(), own, hasAlpha ? 1 : 0, nullptr));
}

}  // namespace

bool hasAlpha(const std::string& pixelFormat) {
  const AVPixFmtDescriptor* known = av_pix_fmt_desc_get(av_get_pix_fmt(pixelFormat.c_str()));
  return known && (known->flags & AV_PIX_FMT_FLAG_ALPHA);
}

bool isRgb(const std::string& pixelFormat) {
  const AVPixFmtDescriptor* known = av_pix_fmt_desc_get(av_get_pix_fmt(pixelFormat.c_str()));
  return known && (known->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL));
}

std::string formatBefore(const VideoInfo& source, bool isDrawn, bool isMapped) {
  AVPixelFormat own = av_get_pix_fmt(source.pixelFormat.c_str());
  if (own == AV_PIX_FMT_NONE) return {};
  const AVPixFmtDescriptor& known = *av_pix_fmt_desc_get(own);
  const bool isRgbOrGrey = (known.flags & AV_PIX_FMT_FLAG_RGB) || known.nb_components < 3;
  if (known.flags & AV_PIX_FMT_FLAG_PAL)
    own = AV_PIX_FMT_GBRAP;
  else if (depthOf(own) <= kEightBits ? !isRgbOrGrey
                                      : isMapped || (isDrawn && !isDrawnDeep(withoutAlpha(own))))
    own = inEightBits(own);
  if (own == AV_PIX_FMT_YUV420P && source.hasAlpha) own = AV_PIX_FMT_YUVA420P;
  return av_get_pix_fmt_name(isDrawn ? withoutAlpha(own) : own);
}

bool isFineForHdr(const std::string& pixelFormat) {
  const AVPixelFormat format = av_get_pix_fmt(pixelFormat.c_str());
  return format != AV_PIX_FMT_NONE && depthOf(format) >= kHdrBits;
}

bool keepsLight(const ConversionPlan& plan) {
  return isHdr(plan.color) && isFineForHdr(plan.pixelFormat);
}

namespace {

/// What helps where HDR pictures lose their fine steps or their light.
std::string remedyFor(const ConversionPlan& plan) {
  const auto formats = plainFormats(*avcodec_find_encoder_by_name(plan.videoEncoder.c_str()));
  const bool isPossible = std::ranges::any_of(
      formats, [](AVPixelFormat format) { return depthOf(format) >= kHdrBits; });
  return isPossible ? "depth 10 keeps them" : "HEVC and AV1 keep them";
}

/// What becomes of samples that are finer than those of the plan; "" where nobody minds.
std::string lossOfDepth(const ConversionPlan& plan, const PixelWishes& wishes,
                        const std::optional<HdrHandling>& hdr, const VideoInfo& source,
                        AVPixelFormat before, bool isDrawn) {
  const int from = depthOf(before);
  const bool isMapped = isHdr(source.color) && !isHdr(plan.color);
  const int drawn = depthOf(av_get_pix_fmt(formatBefore(source, isDrawn, isMapped).c_str()));
  const int encoded = depthOf(av_get_pix_fmt(plan.pixelFormat.c_str()));
  const int to = std::min(drawn, encoded);
  const char* const kind = source.color.transfer == AVCOL_TRC_SMPTE2084 ? "PQ" : "HLG";
  if (isMapped)
    return hdr ? ""
               : fmt::format("{} becomes SDR, with {} bits for {}: {}", kind, to, from,
                             remedyFor(plan));
  if (to < kHdrBits && from >= kHdrBits && isHdr(plan.color))
    return fmt::format("{} bits of {} become {}, which show steps: {}", from, kind, to,
                       drawn < encoded ? "looks are drawn in no more" : remedyFor(plan));
  if (to >= from || wishes.isCompatible || wishes.depth) return "";
  return fmt::format(
      "{} bits become {}, {}", from, to,
      drawn < from ? "in which looks are drawn" : "as " + plan.videoEncoder + " takes them");
}

}  // namespace

std::vector<std::string> lossesOf(const ConversionPlan& plan, const PixelWishes& wishes,
                                  const std::optional<HdrHandling>& hdr, const VideoInfo& source,
                                  bool isDrawn) {
  const AVPixelFormat before = av_get_pix_fmt(formatBefore(source, false).c_str());
  const AVPixelFormat after = av_get_pix_fmt(plan.pixelFormat.c_str());
  if (before == AV_PIX_FMT_NONE || after == AV_PIX_FMT_NONE) return {};
  std::vector<std::string> losses;
  if (auto loss = lossOfDepth(plan, wishes, hdr, source, before, isDrawn); !loss.empty())
    losses.push_back(std::move(loss));
  if (after == AV_PIX_FMT_PAL8) losses.emplace_back("a scene has 255 colours");
  const bool isRgbBefore = (av_pix_fmt_desc_get(before)->flags & AV_PIX_FMT_FLAG_RGB) != 0;
  const auto was = isRgbBefore ? std::optional(ChromaSampling::k444) : chromaOf(before);
  const auto is = chromaOf(after);
  if (was && is && *was < *is && !wishes.isCompatible && !wishes.chroma)
    losses.push_back(
        fmt::format("{} becomes {}, as {} takes it", nameOf(*was), nameOf(*is), plan.videoEncoder));
  if (hasAlpha(av_get_pix_fmt_name(before)) && (isDrawn || !hasAlpha(plan.pixelFormat)))
    losses.push_back(isDrawn ? std::string("they lie on black, where looks are drawn")
                             : fmt::format("they lie on black: {} knows no transparency here",
                                           plan.videoEncoder));
  return losses;
}

bool keepsOddSides(const std::string& encoder) {
  static const std::set<std::string_view> kLossless{"ffv1", "ffvhuff", "huffyuv", "png",
                                                    "rawvideo"};
  return kLossless.contains(encoder);
}

std::string pixelFormatFor(const std::string& encoder, const std::string& before,
                           const PixelWishes& wishes) {
  const AVCodec* const codec = avcodec_find_encoder_by_name(encoder.c_str());
  AVPixelFormat own = av_get_pix_fmt(before.c_str());
  if (!codec || own == AV_PIX_FMT_NONE) return {};
  if (wishes.isCompatible) own = AV_PIX_FMT_YUV420P;
  auto formats = plainFormats(*codec);
  const auto keep = [&](const char* setting, const auto& wanted, auto fact, auto name) {
    if (!wanted) return;
    std::set<std::remove_cvref_t<decltype(*wanted)>> others;
    std::erase_if(formats, [&](AVPixelFormat format) {
      const auto found = fact(format);
      if (found && found != wanted) others.insert(*found);
      return found != wanted;
    });
    if (!formats.empty()) return;
    std::vector<std::string> names;
    for (const auto& other : others) names.push_back(name(other));
    refuse(setting, fmt::format("the encoder {} has no {}; it has {}", encoder, name(*wanted),
                                fmt::join(names, ", ")));
  };
  keep(
      "depth", wishes.depth, [](AVPixelFormat format) { return std::optional(depthOf(format)); },
      [](int bits) { return fmt::format("{} bits", bits); });
  keep("chroma", wishes.chroma, chromaOf,
       [](ChromaSampling chroma) { return std::string(nameOf(chroma)); });
  const bool hasPalettes = std::ranges::count(formats, AV_PIX_FMT_PAL8) > 0;
  const std::string best = bestOf(std::move(formats), own);
  // A palette made for the pictures shows more than a few fixed steps of red, green and blue.
  const bool isCoarse = isRgb(best) && depthOf(av_get_pix_fmt(best.c_str())) < kEightBits;
  return hasPalettes && isCoarse ? av_get_pix_fmt_name(AV_PIX_FMT_PAL8) : best;
}

}  // namespace kestrel
