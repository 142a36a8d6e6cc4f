#include "convert/compare/PairScorer.h"

#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/PlaneMetrics.h>
#include <kestrel/Ssimulacra2.h>
#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include "convert/compare/LightRows.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int kLeastSide = 8;

class LooksScorer : public PairScorer {
 public:
  LooksScorer(Pictures& original, Pictures& copy, const PairOrientation& orientation)
      : original_(original),
        copy_(copy),
        originalLight_(static_cast<int>(original.outputSize().width),
                       static_cast<int>(original.outputSize().height), orientation.original),
        copyLight_(static_cast<int>(original.outputSize().width),
                   static_cast<int>(original.outputSize().height), orientation.copy),
        meter_(static_cast<int>(original.outputSize().width),
               static_cast<int>(original.outputSize().height)) {
    copy.setOutputSize(original.outputSize());
  }

  double score(const PicturePairs::Pair& pair) override {
    const AVFrame& original = *pair.original.frame->getFrame();
    const AVFrame& copy = *pair.copy.frame->getFrame();
    if (!LightRows::canRead(original) || !LightRows::canRead(copy))
      return meter_.score(*original_.drawn(pair.original), *copy_.drawn(pair.copy));
    originalLight_.take(original);
    copyLight_.take(copy);
    return meter_.score(
        [this](int y, const std::array<float*, 3>& rgb) { originalLight_.row(y, rgb); },
        [this](int y, const std::array<float*, 3>& rgb) { copyLight_.row(y, rgb); });
  }

 private:
  Pictures& original_;
  Pictures& copy_;
  LightRows originalLight_;
  LightRows copyLight_;
  Ssimulacra2 meter_;
};

/// Whether each component of a format has a plane of its own, in whole bytes of this machine.
bool hasPlanes(AVPixelFormat format) {
  const AVPixFmtDescriptor* const desc = av_pix_fmt_desc_get(format);
  constexpr uint64_t kOthers = AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_PAL |
                               AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_HWACCEL |
                               AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_BAYER;
  if (!desc || desc->flags & kOthers || av_pix_fmt_count_planes(format) != desc->nb_components)
    return false;
  for (int c = 0; c < desc->nb_components; ++c) {
    const AVComponentDescriptor& component = desc->comp[c];
    if (component.shift != 0 || component.depth < 8 || component.depth > 16 ||
        component.step != (component.depth > 8 ? 2 : 1))
      return false;
  }
  return true;
}

/// The format with planes that loses least of another one.
AVPixelFormat planesFor(AVPixelFormat format) {
  if (hasPlanes(format)) return format;
  static constexpr AVPixelFormat kPlanes[] = {
      AV_PIX_FMT_GRAY8,      AV_PIX_FMT_GRAY16,    AV_PIX_FMT_YUV420P,   AV_PIX_FMT_YUV422P,
      AV_PIX_FMT_YUV444P,    AV_PIX_FMT_YUV420P10, AV_PIX_FMT_YUV422P10, AV_PIX_FMT_YUV444P10,
      AV_PIX_FMT_YUV420P12,  AV_PIX_FMT_YUV422P12, AV_PIX_FMT_YUV444P12, AV_PIX_FMT_YUV420P16,
      AV_PIX_FMT_YUV422P16,  AV_PIX_FMT_YUV444P16, AV_PIX_FMT_YUVA444P,  AV_PIX_FMT_YUVA444P12,
      AV_PIX_FMT_YUVA444P16, AV_PIX_FMT_GBRP,      AV_PIX_FMT_GBRP10,    AV_PIX_FMT_GBRP12,
      AV_PIX_FMT_GBRP16,     AV_PIX_FMT_GBRAP,     AV_PIX_FMT_GBRAP16,   AV_PIX_FMT_NONE};
  const bool hasAlpha = av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_ALPHA;
  return avcodec_find_best_pix_fmt_of_list(kPlanes, format, hasAlpha, nullptr);
}

/// A component of a frame as a plane.
PlaneView planeOf(const AVFrame& frame, int component) {
  const AVPixFmtDescriptor* const desc =
      av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const AVComponentDescriptor& comp = desc->comp[component];
  const bool isChroma = !(desc->flags & AV_PIX_FMT_FLAG_RGB) && (component == 1 || component == 2);
  const int shiftX = isChroma ? desc->log2_chroma_w : 0;
  const int shiftY = isChroma ? desc->log2_chroma_h : 0;
  return {frame.data[comp.plane] + comp.offset, frame.linesize[comp.plane],
          AV_CEIL_RSHIFT(frame.width, shiftX), AV_CEIL_RSHIFT(frame.height, shiftY), comp.depth};
}

/// Compares samples as they were decoded, plane by plane.
class PlanesScorer : public PairScorer {
 public:
  double score(const PicturePairs::Pair& pair) override {
    const AVFrame& original =
        broughtTo(original_, *pair.original.frame->getFrame(), *pair.original.frame->getFrame());
    const AVFrame& copy = broughtTo(copy_, *pair.copy.frame->getFrame(), original);
    const auto format = static_cast<AVPixelFormat>(original.format);
    const AVPixFmtDescriptor* const desc = av_pix_fmt_desc_get(format);
    const bool isRgb = desc->flags & AV_PIX_FMT_FLAG_RGB;
    components_.resize(desc->nb_components);
    double all = 0;
    double samples = 0;
    for (int c = 0; c < desc->nb_components; ++c) {
      const bool isAlpha = desc->flags & AV_PIX_FMT_FLAG_ALPHA && c == desc->nb_components - 1;
      const PlaneView one = planeOf(original, c);
      const double share = static_cast<double>(one.width) * one.height;
      Component& component = components_[static_cast<size_t>(c)];
      component.name = isAlpha ? 'a' : (isRgb ? "rgb" : "yuv")[c];
      const auto value = measured(one, planeOf(copy, c));
      if (!value) continue;
      component.sum += *value;
      all += *value * share;
      samples += share;
    }
    depth_ = desc->comp[0].depth;
    const double mean = samples > 0 ? all / samples : 0;
    sum_ += mean;
    ++count_;
    return shown(mean);
  }

  std::vector<ComponentScore> components() const override {
    std::vector<ComponentScore> scores;
    for (const Component& each : components_)
      scores.push_back({std::string(1, each.name), shown(each.sum / count_)});
    if (count_ > 0) scores.push_back({"all", shown(sum_ / count_)});
    return scores;
  }

 protected:
  int depth() const { return depth_; }

 private:
  /// What two planes come to, in what can be averaged; none where they are too small.
  virtual std::optional<double> measured(const PlaneView& one, const PlaneView& other) const = 0;

  /// What an average is shown as.
  virtual double shown(double average) const = 0;

  /// A frame in the size, format and colours of another one, or in the nearest that has planes.
  static const AVFrame& broughtTo(std::unique_ptr<LMFFImageColorspaceConverter>& converter,
                                  const AVFrame& frame, const AVFrame& like) {
    const LMFFVideoFormat format{planesFor(static_cast<AVPixelFormat>(like.format)), like.width,
                                 like.height};
    // A converter keeps its first size and format.
    const AVFrame* const before = converter ? converter->outputFrame() : nullptr;
    const bool fits = before && before->format == format.pix_fmt && before->width == format.width &&
                      before->height == format.height;
    if (!fits) {
      converter = std::make_unique<LMFFImageColorspaceConverter>();
      converter->setScaler(Scaler{});
      converter->setOutputFormat(format);
    }
    LMFFVideoColor color;
    color.matrix = like.colorspace;
    color.range = like.color_range;
    converter->setOutputColor(color);
    converter->convertFrame(&frame);
    return *converter->outputFrame();
  }

  struct Component {
    char name = 'y';
    double sum = 0;
  };

  std::unique_ptr<LMFFImageColorspaceConverter> original_;
  std::unique_ptr<LMFFImageColorspaceConverter> copy_;
  std::vector<Component> components_;
  double sum_ = 0;
  int count_ = 0;
  int depth_ = 8;
};

class SsimScorer : public PlanesScorer {
  std::optional<double> measured(const PlaneView& one, const PlaneView& other) const override {
    if (one.width < kLeastSide || one.height < kLeastSide) return std::nullopt;
    return ssim(one, other);
  }

  double shown(double average) const override { return average; }
};

class PsnrScorer : public PlanesScorer {
  std::optional<double> measured(const PlaneView& one, const PlaneView& other) const override {
    return static_cast<double>(squaredError(one, other)) /
           (static_cast<double>(one.width) * one.height);
  }

  double shown(double average) const override { return psnr(average, depth()); }
};

}  // namespace

std::unique_ptr<PairScorer> makeScorer(PictureMetric metric, Pictures& original, Pictures& copy,
                                       const PairOrientation& orientation) {
  const Size size = original.outputSize();
  if (metric != PictureMetric::kPsnr && (size.width < kLeastSide || size.height < kLeastSide))
    throw Failure::settings(
        fmt::format("pictures of {}x{} are too small for this metric", size.width, size.height),
        "metric");
  switch (metric) {
    case PictureMetric::kSsim:
      return std::make_unique<SsimScorer>();
    case PictureMetric::kPsnr:
      return std::make_unique<PsnrScorer>();
    case PictureMetric::kSsimulacra2:
      break;
  }
  return std::make_unique<LooksScorer>(original, copy, orientation);
}

}  // namespace kestrel
