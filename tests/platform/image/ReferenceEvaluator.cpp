#include "tests/platform/image/ReferenceEvaluator.h"

#include <kestrel/ImageContext.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "platform/image/filters/ColorControls.h"
#include "platform/image/filters/ExposureAdjust.h"
#include "platform/image/filters/GaussianBlur.h"
#include "platform/image/filters/Glow.h"
#include "platform/image/filters/HexagonalPixellate.h"
#include "platform/image/filters/LineScreen.h"
#include "platform/image/filters/SharpenLuminance.h"
#include "platform/image/filters/SpotLight.h"
#include "platform/image/layers/Dither.h"
#include "platform/image/recipe/ImageNode.h"
#include "tests/platform/image/ReferenceResampling.h"

namespace kestrel::test {

using namespace reference;

namespace {

using Cache = std::map<std::tuple<const ImageNode*, int, int>, Sample>;

Sample operator*(const Sample& s, double f) { return {s.r * f, s.g * f, s.b * f, s.a * f}; }
Sample operator+(const Sample& s, const Sample& t) {
  return {s.r + t.r, s.g + t.g, s.b + t.b, s.a + t.a};
}

Sample clampedSample(const Sample& s) {
  const double a = std::clamp(s.a, 0.0, 1.0);
  return {std::clamp(s.r, 0.0, a), std::clamp(s.g, 0.0, a), std::clamp(s.b, 0.0, a), a};
}

Sample mapped(const Sample& s, const ColorMatrix& matrix) {
  const auto& m = matrix.m;
  return {m[0][0] * s.r + m[0][1] * s.g + m[0][2] * s.b + m[0][3] * s.a,
          m[1][0] * s.r + m[1][1] * s.g + m[1][2] * s.b + m[1][3] * s.a,
          m[2][0] * s.r + m[2][1] * s.g + m[2][2] * s.b + m[2][3] * s.a, s.a};
}

class Evaluator {
 public:
  Sample at(const ImageNode& node, int x, int y);

 private:
  Sample step(const ImageNode& node, int x, int y);
  Sample source(const ImageNode& node, int x, int y);
  /// The Gaussian mean of what `node` shows about (x, y). The pixels at the
  /// border of its extent repeat outside of it.
  Sample blurred(const ImageNode& node, double deviation, bool isLight, int x, int y);
  Sample filtered(const FilterNode& node, int x, int y);
  Sample pixellated(const HexagonalPixellateNode& node, int x, int y);
  Sample resampled(const ImageNode& node, const Rect& clip, const AffineTransform& map,
                   const ColorMatrix& color, const Scaler& scaler, int x, int y);

  Cache cache_;
  std::map<std::tuple<const ImageNode*, bool, int, int>, Sample> shown_;
  std::map<std::tuple<const ImageNode*, double, bool, int, int>, Sample> acrossCache_;
  Cache hexagons_;
  std::map<double, std::vector<double>> gaussians_;
};

/// The curve of sRGB, IEC 61966-2-1.
double linear(double value) {
  return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

double encoded(double light) {
  return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

/// `change` of each colour as it is without alpha.
template <typename Change>
Sample eachOf(const Sample& s, const Change& change) {
  if (s.a <= 0) return s;
  return {change(s.r / s.a) * s.a, change(s.g / s.a) * s.a, change(s.b / s.a) * s.a, s.a};
}

Sample toLight(const Sample& s) { return eachOf(s, linear); }
Sample fromLight(const Sample& s) { return eachOf(s, encoded); }

double luminance(const Sample& s) { return 0.2126 * s.r + 0.7152 * s.g + 0.0722 * s.b; }

Sample bitmapPixel(const BitmapNode& node, int x, int y) {
  const uint8_t* p = node.bitmap->row(node.bitmap->height() - 1 - y) + 4 * x;
  const double a = node.isOpaque ? 1 : p[3] / 255.0;
  return {p[0] / 255.0 * a, p[1] / 255.0 * a, p[2] / 255.0 * a, a};
}

double planeSample(const YUVPicture& picture, size_t plane, int x, int row) {
  const auto& p = picture.planes[plane];
  const ptrdiff_t at = row * p.bytesPerRow;
  const ptrdiff_t index = ptrdiff_t{x} * p.sampleStride;
  if (picture.format.bitDepth == 8) return p.data[at + index];
  uint16_t value;
  std::memcpy(&value, p.data + at + 2 * index, 2);
  return value >> picture.format.bitShift;
}

Sample planesPixel(const PlanesNode& node, int x, int y) {
  const YUVPicture& picture = node.picture;
  const YUVFormat& format = picture.format;
  const int row = format.height - 1 - y;
  const double levels = std::exp2(format.bitDepth - 8);
  const double most = std::exp2(format.bitDepth) - 1;
  const auto chroma = [&](size_t plane) {
    if (!picture.planes[plane].data) return 0.0;
    const int scaleX = 1 << format.chromaShiftX;
    const int scaleY = 1 << format.chromaShiftY;
    const int width = (format.width + scaleX - 1) / scaleX;
    const int height = (format.height + scaleY - 1) / scaleY;
    const double u = std::max((x - format.chromaX * (scaleX - 1)) / scaleX, 0.0);
    const double v = (row + 0.5) / scaleY - 0.5;
    double weights[3] = {0, 1, 0};  // of the rows around `at`
    const int at = row / scaleY;
    const double apart = v - at;
    if (scaleY == 2 && format.chromaY != 0.5) {
      // Half way between two where none lies in the row itself.
      if ((row % 2 == 1) == (format.chromaY == 0)) {
        weights[1] = 0.5;
        weights[format.chromaY == 0 ? 2 : 0] = 0.5;
      }
    } else if (scaleY == 2 && (row % 2 == 1 || row + 1 < format.height)) {
      weights[0] = -apart / 2;
      weights[2] = apart / 2;
    } else if (scaleY == 4) {
      weights[0] = std::max(0.0, -apart);
      weights[1] = 1 - std::abs(apart);
      weights[2] = std::max(0.0, apart);
    }
    // The rows of chroma around, of one field where they are by fields.
    std::array<int, 3> rows{};
    for (int j = -1; j <= 1; ++j)
      rows[static_cast<size_t>(j + 1)] = std::clamp(at + j, 0, height - 1);
    if (format.byFields) {
      const int field = row % 2;
      const int pair = row / 4;
      const int last = (height - 1 - field) / 2;
      for (int j = -1; j <= 1; ++j)
        rows[static_cast<size_t>(j + 1)] = 2 * std::clamp(pair + j, 0, last) + field;
      // A quarter of the way below the upper row of the pair, or above the lower one.
      const double own = (row / 2) % 2 - (field == 0 ? 0.25 : 0.75);
      const bool isAlone = (row / 2) % 2 == 0 && row + 2 >= format.height;
      weights[0] = isAlone ? 0 : -own / 4;
      weights[1] = 1;
      weights[2] = -weights[0];
    }
    double sum = 0;
    for (int j = -1; j <= 1; ++j) {
      for (int i = 0; i < 2; ++i) {
        const double k = std::floor(u) + i;
        const double weight = (1 - std::abs(u - k)) * weights[j + 1];
        sum +=
            weight * planeSample(picture, plane, std::clamp<int>(static_cast<int>(k), 0, width - 1),
                                 rows[static_cast<size_t>(j + 1)]);
      }
    }
    return format.fullRange ? (sum - 128 * levels) / most : (sum - 128 * levels) / (224 * levels);
  };
  const double luma = planeSample(picture, 0, x, row);
  const double yy = format.fullRange ? luma / most : (luma - 16 * levels) / (219 * levels);
  const double cb = chroma(1);
  const double cr = chroma(2);
  const double r = yy + 2 * (1 - format.kr) * cr;
  const double b = yy + 2 * (1 - format.kb) * cb;
  const double g = (yy - format.kr * r - format.kb * b) / (1 - format.kr - format.kb);
  const double a = picture.planes[3].data ? planeSample(picture, 3, x, row) / most : 1;
  return {r * a, g * a, b * a, a};
}

Sample Evaluator::source(const ImageNode& node, int x, int y) {
  if (const auto* bitmap = dynamic_cast<const BitmapNode*>(&node))
    return bitmapPixel(*bitmap, x, y);
  if (const auto* planes = dynamic_cast<const PlanesNode*>(&node))
    return planesPixel(*planes, x, y);
  if (const auto* color = dynamic_cast<const ColorNode*>(&node)) {
    const Color& c = color->color;
    return {c.red * c.alpha, c.green * c.alpha, c.blue * c.alpha, c.alpha};
  }
  const auto key = std::make_tuple(&node, x, y);
  const auto known = cache_.find(key);
  if (known != cache_.end()) return known->second;
  const Sample sample = clampedSample(step(node, x, y));
  cache_.emplace(key, sample);
  return sample;
}

Sample Evaluator::step(const ImageNode& node, int x, int y) {
  if (const auto* over = dynamic_cast<const SourceOverNode*>(&node)) {
    const Sample front = at(*over->input, x, y);
    return front + at(*over->background, x, y) * (1 - front.a);
  }
  if (const auto* in = dynamic_cast<const SourceInNode*>(&node))
    return at(*in->input, x, y) * at(*in->background, x, y).a;
  if (const auto* filter = dynamic_cast<const FilterNode*>(&node)) return filtered(*filter, x, y);
  return at(node, x, y);
}

Sample Evaluator::blurred(const ImageNode& node, double deviation, bool isLight, int x, int y) {
  if (deviation == 0) {
    const Sample sample = clampedSample(at(node, x, y));
    return isLight ? toLight(sample) : sample;
  }
  const int reach = static_cast<int>(std::ceil(5 * deviation));
  std::vector<double>& weights = gaussians_[deviation];
  if (weights.empty()) {
    double total = 0;
    for (int d = -reach; d <= reach; ++d) {
      weights.push_back(std::exp(-d * d / (2 * deviation * deviation)));
      total += weights.back();
    }
    for (double& weight : weights) weight /= total;
  }
  const auto weight = [&](int d) { return weights[static_cast<size_t>(d + reach)]; };
  const Rect picture = integral(node.extent);
  const auto limited = [&](int place, double low, double high) {
    return static_cast<int>(std::clamp<double>(place, low, high - 1));
  };
  const auto shown = [&](int column, int row) {
    const auto key =
        std::make_tuple(&node, isLight, limited(column, picture.minX(), picture.maxX()),
                        limited(row, picture.minY(), picture.maxY()));
    const auto known = shown_.find(key);
    if (known != shown_.end()) return known->second;
    const Sample sample = at(node, std::get<2>(key), std::get<3>(key));
    return shown_[key] = isLight ? toLight(clampedSample(sample)) : sample;
  };
  Sample sum;
  for (int dy = -reach; dy <= reach; ++dy) {
    const auto [entry, isNew] = acrossCache_.try_emplace({&node, deviation, isLight, x, y + dy});
    if (isNew) {
      Sample across;
      for (int dx = -reach; dx <= reach; ++dx) across = across + shown(x + dx, y + dy) * weight(dx);
      entry->second = across;
    }
    sum = sum + entry->second * weight(dy);
  }
  return sum;
}

Sample Evaluator::pixellated(const HexagonalPixellateNode& node, int x, int y) {
  const double width = node.scale * std::sqrt(3.0);
  const auto center = [&](int k, int j) {
    return Point{node.center.x + (k + (j % 2 != 0 ? 0.5 : 0.0)) * width,
                 node.center.y + 1.5 * node.scale * j};
  };
  const auto nearest = [&](int column, int row) {
    const int aboutJ = static_cast<int>((row - node.center.y) / (1.5 * node.scale));
    const int aboutK = static_cast<int>((column - node.center.x) / width);
    double least = 1e300;
    std::pair<int, int> best;
    for (int j = aboutJ - 2; j <= aboutJ + 2; ++j) {
      for (int k = aboutK - 2; k <= aboutK + 2; ++k) {
        const Point c = center(k, j);
        const double distance = std::hypot(column + 0.5 - c.x, row + 0.5 - c.y);
        if (distance < least) {
          least = distance;
          best = {k, j};
        }
      }
    }
    return best;
  };
  const auto [k, j] = nearest(x, y);
  const auto [entry, isNew] = hexagons_.try_emplace({&node, k, j});
  if (!isNew) return entry->second;
  const Rect picture = integral(node.extent);
  const Point c = center(k, j);
  const int reach = static_cast<int>(std::ceil(node.scale)) + 1;
  Sample sum;
  int count = 0;
  for (int row = static_cast<int>(c.y) - reach; row <= c.y + reach; ++row) {
    for (int column = static_cast<int>(c.x) - reach; column <= c.x + reach; ++column) {
      if (share(picture, column, row) == 0 || nearest(column, row) != std::pair(k, j)) continue;
      sum = sum + at(*node.input, column, row);
      ++count;
    }
  }
  return hexagons_[{&node, k, j}] = sum * (1.0 / std::max(count, 1));
}

Sample lit(const SpotLight& light, const Sample& s, int x, int y) {
  const double d[] = {x + 0.5 - light.position[0], y + 0.5 - light.position[1], -light.position[2]};
  double e[] = {light.pointsAt[0] - light.position[0], light.pointsAt[1] - light.position[1],
                light.pointsAt[2] - light.position[2]};
  if (std::hypot(e[0], e[1], e[2]) == 0) e[2] = -1;
  const double cosine = (d[0] * e[0] + d[1] * e[1] + d[2] * e[2]) /
                        (std::hypot(d[0], d[1], d[2]) * std::hypot(e[0], e[1], e[2]));
  const double edge = 1 / std::sqrt(1 + 0.14 * light.concentration);
  const double t = std::clamp((cosine - edge) / (1 - edge), 0.0, 1.0);
  const double strength = t * t * (3 - 2 * t) * light.brightness / (1 + light.concentration);
  return {s.r * strength * light.color.red, s.g * strength * light.color.green,
          s.b * strength * light.color.blue, s.a};
}

Sample screened(const LineScreen& lines, const Sample& s, int x, int y) {
  const double dx = x + 0.5 - lines.center.x;
  const double dy = y + 0.5 - lines.center.y;
  const double u = (dy * std::cos(lines.angle) - dx * std::sin(lines.angle)) / lines.width;
  const double v = 1 - std::abs(2 * (u - std::floor(u)) - 1);
  const double f = std::max(1 - lines.sharpness, 2 / lines.width);
  const double grey = std::clamp((luminance(s) / s.a * (1 + f) - v) / f, 0.0, 1.0);
  return {grey * s.a, grey * s.a, grey * s.a, s.a};
}

/// `s` and `mean` are light.
Sample glowing(const GlowNode& glow, const Sample& s, const Sample& mean) {
  const double i = glow.intensity;
  const auto joined = [&](double c, double b) {
    return glow.kind == GlowNode::Kind::kBloom
               ? c + i * b * (s.a - c)
               : std::min((c + i / 4 * (b - c)) / (1 + 2 * i * b), s.a);
  };
  return {joined(s.r, mean.r), joined(s.g, mean.g), joined(s.b, mean.b), s.a};
}

double exposed(double value, double stops) {
  if (stops < 0) return encoded(linear(value) / std::pow(2.0, -stops));
  const double light = std::pow(value, 2.4);
  const double more = std::pow(2.0, 0.5 * stops);
  return std::pow(more * light / (1 - light + more * light), 1 / 2.4);
}

/// A line whose lower part is a parabola from black on, solved for where both touch.
double withSoftShadows(double value, const SoftContrastNode& node) {
  const double bend = std::pow(node.contrast - node.slope, 2) / (-4 * node.offset);
  const double curve = bend * value * value + node.slope * value;
  const double line = node.contrast * value + node.offset;
  const bool isBefore = 2 * bend * value + node.slope < node.contrast;
  return std::clamp(isBefore ? curve : line, 0.0, 1.0);
}

Sample Evaluator::filtered(const FilterNode& node, int x, int y) {
  if (const auto* blur = dynamic_cast<const GaussianBlurNode*>(&node))
    return blurred(*blur->input, blur->radius, false, x, y);
  if (const auto* hexagons = dynamic_cast<const HexagonalPixellateNode*>(&node))
    return pixellated(*hexagons, x, y);
  const Sample s = at(*node.input, x, y);
  if (s.a == 0) return s;
  if (const auto* sharpen = dynamic_cast<const SharpenLuminanceNode*>(&node)) {
    const Sample mean = blurred(*sharpen->input, sharpen->radius, false, x, y);
    const double more = sharpen->sharpness * (luminance(s) - luminance(mean) / mean.a * s.a);
    return {s.r + more, s.g + more, s.b + more, s.a};
  }
  if (const auto* glow = dynamic_cast<const GlowNode*>(&node))
    return fromLight(
        glowing(*glow, toLight(clampedSample(s)), blurred(*glow->input, glow->radius, true, x, y)));
  if (const auto* exposure = dynamic_cast<const ExposureNode*>(&node))
    return eachOf(clampedSample(s), [&](double v) { return exposed(v, exposure->stops); });
  if (const auto* contrast = dynamic_cast<const SoftContrastNode*>(&node))
    return eachOf(clampedSample(s), [&](double v) { return withSoftShadows(v, *contrast); });
  if (const auto* light = dynamic_cast<const SpotLightNode*>(&node))
    return fromLight(clampedSample(lit(light->light, toLight(clampedSample(s)), x, y)));
  if (const auto* lines = dynamic_cast<const LineScreenNode*>(&node))
    return screened(lines->screen, s, x, y);
  throw std::logic_error("the evaluator does not know this filter");
}

Sample Evaluator::resampled(const ImageNode& node, const Rect& clip, const AffineTransform& map,
                            const ColorMatrix& color, const Scaler& scaler, int x, int y) {
  if (isEmpty(clip)) return {};
  const AffineTransform nearly = *map.invert();
  const AffineTransform back =
      isUpright(map) ? between(nearly, snapped(map.apply(clip)), clip) : nearly;
  const Point center = back.apply(Point{x + 0.5, y + 0.5});
  const double footprintU = std::hypot(back.a, back.c);
  const double footprintV = std::hypot(back.b, back.d);
  const auto block = [&](double span) {
    return !isUpright(map) && span > 2 ? static_cast<int>(std::ceil(span / 2)) : 1;
  };
  // Without bounds every sample is the same, and there are too many to add up.
  if (isInfinite(clip) && dynamic_cast<const ColorNode*>(&node))
    return clampedSample(mapped(source(node, 0, 0), color));
  const Rect covered = snapped(map.apply(clip));
  if (share(integral(covered), x, y) == 0) return {};
  double coverage = 1;
  if (isUpright(map)) {
    coverage = share(covered, x, y);
  } else if (!isInfinite(clip)) {
    coverage =
        overlap(clip.minX(), clip.maxX(), center.x - footprintU / 2, center.x + footprintU / 2) /
        footprintU *
        overlap(clip.minY(), clip.maxY(), center.y - footprintV / 2, center.y + footprintV / 2) /
        footprintV;
  }
  const auto along = [&](double at, double footprint, double low, double high) {
    const double span = std::max(1.0, footprint);
    const bool isCopy = isUpright(map) && std::abs(footprint - 1) < 1e-8 &&
                        std::abs(at - 0.5 - std::round(at - 0.5)) < 1.0 / 1024;
    const bool isArea = scaler.resampling == Resampling::kArea || footprint > 8;
    if (isCopy) return axis(std::round(at - 0.5) + 0.5, 1, low, high, 1, false);
    if (isArea || !isUpright(map)) return axis(at, span, low, high, block(span), !isUpright(map));
    return curveAxis(scaler.resampling, at, footprint, low, high);
  };
  const Axis across = along(center.x, footprintU, clip.minX(), clip.maxX());
  const Axis down = along(center.y, footprintV, clip.minY(), clip.maxY());
  Sample sum;
  for (const auto& [l, weightV] : down.taps) {
    for (const auto& [k, weightU] : across.taps)
      sum = sum + source(node, k, l) * (weightU * weightV);
  }
  return clampedSample(mapped(sum, color)) * coverage;
}

Sample Evaluator::at(const ImageNode& top, int x, int y) {
  const ImageNode* node = &top;
  Rect clip = Rect::infinite();
  Rect inner = Rect::infinite();
  AffineTransform map;
  bool isMapped = false;
  ColorMatrix color;
  std::optional<Scaler> scaler;
  for (;;) {
    if (const auto* crop = dynamic_cast<const CropNode*>(node)) {
      Rect& rect = isMapped ? inner : clip;
      rect = intersection(rect, crop->rect);
      node = crop->input.get();
    } else if (const auto* how = dynamic_cast<const ScalerNode*>(node)) {
      if (!scaler) scaler = how->scaler;
      node = how->input.get();
    } else if (const auto* matrix = dynamic_cast<const ColorMatrixNode*>(node)) {
      color = matrix->matrix.then(color);
      node = matrix->input.get();
    } else if (const auto* transform = dynamic_cast<const TransformNode*>(node)) {
      const AffineTransform t = cleaned(transform->transform);
      if (!isInfinite(inner)) {
        if (!isUpright(t)) break;
        inner = t.invert()->apply(inner);
      }
      map = t.concat(map);
      isMapped = true;
      node = transform->input.get();
    } else {
      break;
    }
  }
  const double kept = share(snapped(clip), x, y);
  if (kept == 0) return {};
  return resampled(*node, intersection(inner, node->extent), cleaned(map), color,
                   scaler.value_or(Scaler{}), x, y) *
         kept;
}

double stepsBetween(const Sample& expected, const uint8_t* pixel) {
  const double alpha = pixel[3] / 255.0;
  const double exact[] = {expected.r, expected.g, expected.b};
  double most = std::abs(expected.a * 255 - pixel[3]);
  for (int c = 0; c < 3; ++c) {
    // Rounded alpha scales the colour along with it; what counts is the colour beside its alpha.
    const double straight = expected.a > 0 ? exact[c] / expected.a : 0;
    most = std::max(most, std::abs(straight * 255 - pixel[c]) * std::min(alpha, expected.a));
  }
  return most;
}

}  // namespace

Sample evaluate(const Image& image, int x, int y) {
  return clampedSample(Evaluator().at(*image.node(), x, y));
}

double largestError(const Image& image, const Rect& bounds, const uint8_t* pixels, int bytesPerRow,
                    bool isFine) {
  const Rect whole = integral(bounds);
  Evaluator evaluator;
  double most = 0;
  for (int row = 0; row < static_cast<int>(whole.size.height); ++row) {
    for (int x = 0; x < static_cast<int>(whole.size.width); ++x) {
      const int at = static_cast<int>(whole.minX()) + x;
      const int up = static_cast<int>(whole.maxY()) - 1 - row;
      const Sample exact = evaluator.at(*image.node(), at, up);
      float noise = 0;
      if (isFine) fillNoise(at, up, kDitherReach / 255, {&noise, 1});
      const double shift = static_cast<double>(noise) * exact.a;
      const Sample expected =
          clampedSample({exact.r + shift, exact.g + shift, exact.b + shift, exact.a});
      most = std::max(most, stepsBetween(expected, pixels + ptrdiff_t{row} * bytesPerRow + 4 * x));
    }
  }
  return most;
}

double largestError(const std::shared_ptr<const Image>& image, const Rect& bounds, bool isFine) {
  const auto bitmap = ImageContext().bitmapImage(image, bounds);
  if (!bitmap) return 255;
  return largestError(*image, bounds, bitmap->pixels(), bitmap->bytesPerRow(), isFine);
}

}  // namespace kestrel::test
