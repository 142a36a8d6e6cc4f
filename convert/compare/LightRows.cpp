#include "convert/compare/LightRows.h"

#include <algorithm>
#include <cmath>

#include "platform/image/hdr/Light.h"
#include "support/FrameLight.h"
#include "support/PictureColor.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int kCurve = 4096;
constexpr double kHlgGamma = 1.2;  // BT.2100, table 5
constexpr float kMiddle = 32768;

/// What luma has of red and of blue.
struct Shares {
  float red = 0;
  float blue = 0;
};

std::optional<Shares> sharesOf(const AVFrame& frame) {
  switch (pictureMatrix(frame.colorspace, frame.format, frame.height)) {
    case AVCOL_SPC_BT2020_NCL:
      return Shares{0.2627F, 0.0593F};
    case AVCOL_SPC_BT709:
      return Shares{0.2126F, 0.0722F};
    default:
      return std::nullopt;
  }
}

}  // namespace

LightRows::LightRows(int width, int height, const Orientation& orientation)
    : width_(width),
      quarters_(static_cast<int>(std::lround(orientation.counterclockwise / 90)) & 3),
      isMirrored_(orientation.mirrored) {
  const bool isOnItsSide = quarters_ % 2 != 0;
  converter_.setScaler(Scaler{});
  converter_.setOutputFormat(
      {AV_PIX_FMT_YUV444P16LE, isOnItsSide ? height : width, isOnItsSide ? width : height});
}

bool LightRows::canRead(const AVFrame& frame) {
  const AVPixFmtDescriptor* const desc =
      av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const bool isLuma = desc && desc->nb_components >= 3 && !(desc->flags & AV_PIX_FMT_FLAG_RGB);
  return isLuma && hdrLightOf(frame) && sharesOf(frame);
}

void LightRows::prepare(const HdrLight& light) {
  if (light_ == light) return;
  light_ = light;
  curve_.resize(kCurve + 1);
  for (int i = 0; i <= kCurve; ++i) {
    const double sample = static_cast<double>(i) / kCurve;
    double value = lightOf({sample, sample, sample}, light)[0];
    if (light.transfer == HdrLight::Transfer::kHlg)
      value = std::pow(value / kHlgPeak, 1 / kHlgGamma);
    curve_[static_cast<size_t>(i)] = static_cast<float>(value);
  }
  const Matrix3 matrix = betweenPrimaries(light.primaries, HdrLight::Primaries::kRec709);
  for (size_t i = 0; i < 3; ++i)
    for (size_t j = 0; j < 3; ++j)
      toBt709_[i][j] = static_cast<float>(matrix[i][j] / kGraphicsWhite);
}

void LightRows::take(const AVFrame& frame) {
  prepare(*hdrLightOf(frame));
  const auto shares = sharesOf(frame).value_or(Shares{});
  red_ = shares.red;
  blue_ = shares.blue;
  const bool isFull = pictureRange(frame.color_range, frame.format) == AVCOL_RANGE_JPEG;
  black_ = isFull ? 0 : 16 * 256;
  lumaScale_ = 1 / (isFull ? 65535.0F : 219.0F * 256);
  chromaScale_ = 1 / (isFull ? 65535.0F : 224.0F * 256);
  converter_.convertFrame(&frame);
}

void LightRows::row(int y, const std::array<float*, 3>& rgb) const {
  const AVFrame& frame = *converter_.outputFrame();
  const int lastX = frame.width - 1;
  const int lastY = frame.height - 1;
  const bool isHlg = light_->transfer == HdrLight::Transfer::kHlg;
  const auto lit = [&](float sample) {
    const float place = std::clamp(sample, 0.0F, 1.0F) * kCurve;
    const auto below = std::min(static_cast<size_t>(place), static_cast<size_t>(kCurve - 1));
    return std::lerp(curve_[below], curve_[below + 1], place - static_cast<float>(below));
  };
  for (int x = 0; x < width_; ++x) {
    // Where the upright pixel lies among those that were stored.
    const int turned[4][2] = {{x, y}, {lastX - y, x}, {lastX - x, lastY - y}, {y, lastY - x}};
    const int* const at = turned[quarters_];
    const int column = isMirrored_ ? lastX - at[0] : at[0];
    const auto sample = [&](int plane) {
      const uint8_t* const line =
          frame.data[plane] + static_cast<ptrdiff_t>(at[1]) * frame.linesize[plane];
      return static_cast<float>(reinterpret_cast<const uint16_t*>(line)[column]);
    };
    const float luma = (sample(0) - black_) * lumaScale_;
    const float redness = (sample(2) - kMiddle) * chromaScale_ * 2 * (1 - red_);
    const float blueness = (sample(1) - kMiddle) * chromaScale_ * 2 * (1 - blue_);
    const float green = luma - (red_ * redness + blue_ * blueness) / (1 - red_ - blue_);
    std::array<float, 3> light{lit(luma + redness), lit(green), lit(luma + blueness)};
    if (isHlg) {
      const float scene = 0.2627F * light[0] + 0.6780F * light[1] + 0.0593F * light[2];
      const auto gain = static_cast<float>(kHlgPeak * std::pow(scene, kHlgGamma - 1));
      for (float& each : light) each *= gain;
    }
    for (size_t i = 0; i < 3; ++i)
      rgb[i][x] = toBt709_[i][0] * light[0] + toBt709_[i][1] * light[1] + toBt709_[i][2] * light[2];
  }
}

}  // namespace kestrel
