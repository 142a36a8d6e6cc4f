#include <kestrel/EffectManager.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/MovieLook.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "media/EffectVideoStreamState.h"

namespace kestrel {

namespace {

using Filters = std::vector<std::shared_ptr<Filter>>;

/// Below this a picture would be enlarged beyond any use, or its size divided by zero.
constexpr float kLeastRatio = 0.001F;

/// The shorter side, in pixels, of pictures on which the sizes of named effects are as the
/// catalogue has them; in others they are in proportion.
constexpr double kReferenceSide = 480;

/// How many of `destination` make `source`, in single precision as the factors made of it are.
float widthRatio(const Rect& source, const Rect& destination) {
  return static_cast<float>(source.size.width / destination.size.width);
}

float heightRatio(const Rect& source, const Rect& destination) {
  return static_cast<float>(source.size.height / destination.size.height);
}

Rect dividedInMiddleOf(const Rect& source, float ratio, const Rect& destination) {
  const double divisor = std::max(ratio, kLeastRatio);
  const Size size{source.size.width / divisor, source.size.height / divisor};
  return {{destination.origin.x + (destination.size.width - size.width) * 0.5,
           destination.origin.y + (destination.size.height - size.height) * 0.5},
          size};
}

Point centreOf(const Rect& rect) {
  return {rect.origin.x + rect.size.width * 0.5, rect.origin.y + rect.size.height * 0.5};
}

std::shared_ptr<const Image> centred(const std::shared_ptr<const Image>& image, const Rect& rect) {
  const Point centre = centreOf(rect);
  return image->translated(-centre.x, -centre.y);
}

/// Text between two pixels would be soft.
std::shared_ptr<const Image> onWholePixels(const std::shared_ptr<const Image>& image) {
  const Point at = image->extent().origin;
  return image->translated(std::round(at.x) - at.x, std::round(at.y) - at.y);
}

Rect wholeOf(const LMFFVideoFormat& format) {
  return {{0, 0}, {static_cast<double>(format.width), static_cast<double>(format.height)}};
}

float factor(double target, double size) {
  return static_cast<float>(target / std::max(static_cast<float>(size), 1.0F));
}

}  // namespace

std::shared_ptr<const Image> LMFFEffectVideoStream::currentEffectImage() const {
  auto picture = currentCIImage();
  const MovieLook settings = look();
  // Mapping costs least where it comes last, but what is drawn lies over mapped pictures.
  const std::optional<HdrLight>& light = state_->light;
  auto toMap = settings.toneMaps ? light : std::nullopt;
  const auto graphics = [&](const std::shared_ptr<const Image>& drawn) {
    return light && !settings.toneMaps ? onHdr(drawn, *light) : drawn;
  };
  if (const auto subtitle = mediaSubtitleImage()) {
    if (toMap) picture = toneMapped(picture, *std::exchange(toMap, std::nullopt));
    picture = sourceOverImage(graphics(subtitle), picture);
  }
  if (!picture) return nullptr;

  picture = placed(picture);
  if (toMap) picture = toneMapped(picture, *toMap);
  picture = image(picture, effectFilter());
  picture = sourceOverImage(picture, imagewithColor(Color::black()));
  if (settings.watermark) picture = sourceOverImage(graphics(settings.watermark), picture);
  if (const auto styled = styledSubtitle())
    picture = sourceOverImage(graphics(styled), picture);
  else if (const auto subtitle = currentSubtitleImage())
    picture = sourceOverImage(graphics(onWholePixels(subtitle)), picture);
  return picture ? picture->cropped(wholeOf(outputFormat())) : nullptr;
}

/// The picture where it lies in the output, before it is coloured and cut at the edges.
std::shared_ptr<const Image> LMFFEffectVideoStream::placed(
    const std::shared_ptr<const Image>& whole) const {
  auto picture = whole;
  const MovieLook settings = look();
  // The display shape is that of the whole picture's pixels, whatever the crop leaves of it.
  const Rect extent = picture->extent();
  picture = picture->resampledBy(settings.scaler);
  picture = centred(picture->cropped(settings.cropRect), settings.cropRect);
  const Size display = displayVideoSize();
  if (!isEmpty(extent)) {
    picture =
        picture->scaled(display.width / extent.size.width, display.height / extent.size.height);
  }
  const double radians = static_cast<double>(settings.rotate) * std::numbers::pi / 180.0;
  picture = picture->transformed(
      AffineTransform::rotation(radians).scaled(settings.hflip ? -1 : 1, settings.vflip ? -1 : 1));

  return image(picture, settings.zoomType, wholeOf(outputFormat()));
}

std::shared_ptr<const Image> LMFFEffectVideoStream::image(const std::shared_ptr<const Image>& image,
                                                          int32_t zoomType,
                                                          const Rect& rect) const {
  if (!image) return nullptr;
  const auto middle = centred(image, image->extent());
  const Rect extent = middle->extent();
  Rect target;
  switch (zoomType) {
    case 1:
      target = rect;
      break;
    case 2:
    case 5:
      target = scaleRectIn(extent, rect);
      break;
    case 3:
      target = scaleRectIn({{0, 0}, {16, 9}}, rect);
      break;
    case 4:
      target = scaleRectIn({{0, 0}, {4, 3}}, rect);
      break;
    case 6:
      target = scaleRectPanscan(extent, rect);
      break;
    default:
      break;
  }
  const Point centre = centreOf(target);
  return middle->transformed(AffineTransform::translation(centre.x, centre.y)
                                 .scaled(factor(target.size.width, extent.size.width),
                                         factor(target.size.height, extent.size.height)));
}

Rect LMFFEffectVideoStream::scaleRectIn(const Rect& source, const Rect& destination) const {
  const float ratio = std::max(widthRatio(source, destination), heightRatio(source, destination));
  return dividedInMiddleOf(source, ratio, destination);
}

Rect LMFFEffectVideoStream::scaleRectPanscan(const Rect& source, const Rect& destination) const {
  return dividedInMiddleOf(source, widthRatio(source, destination), destination);
}

Rect LMFFEffectVideoStream::scaleRect(const Rect& rect, float xScale, float yScale) const {
  const auto x = static_cast<double>(xScale);
  const auto y = static_cast<double>(yScale);
  return {{rect.origin.x * x, rect.origin.y * y}, {rect.size.width * x, rect.size.height * y}};
}

Filters LMFFEffectVideoStream::colorFilter() const {
  Filters filters;
  if (const auto controls = FilterRegistry::filterWithName("CIColorControls")) {
    const float value = saturation();
    controls->setValue(value + value, kCIInputSaturationKey);
    controls->setValue(static_cast<float>((static_cast<double>(brightness()) - 0.5) * 2),
                       kCIInputBrightnessKey);
    controls->setValue(contrast() * 4.0F, kCIInputContrastKey);
    filters.push_back(controls);
  }
  if (const auto turn = FilterRegistry::filterWithName("CIHueAdjust")) {
    turn->setValue(static_cast<float>((static_cast<double>(hue()) - 0.5) * 6.28), kCIInputAngleKey);
    filters.push_back(turn);
  }
  return filters;
}

Filters LMFFEffectVideoStream::effectFilter() const {
  Filters filters = colorFilter();
  const auto name = effectName();
  const auto effect = name ? EffectManager::filterWithName(*name) : EffectManager::Effect{};
  const auto* filter = std::get_if<std::shared_ptr<Filter>>(&effect);
  if (filter && *filter) {
    const LMFFVideoFormat format = outputFormat();
    const double side = std::min(format.width, format.height);
    if (side > 0) (*filter)->setValue(side / kReferenceSide, kInputPixelSizeKey);
    filters.push_back(*filter);
  }
  return filters;
}

std::shared_ptr<const Image> LMFFEffectVideoStream::image(const std::shared_ptr<const Image>& image,
                                                          const Filters& filters) const {
  auto result = image;
  for (const auto& filter : filters) {
    filter->setValue(result, kCIInputImageKey);
    result = filter->outputImage();
  }
  return result;
}

std::shared_ptr<const Image> LMFFEffectVideoStream::composition(
    const std::string& filterName, const std::shared_ptr<const Image>& image,
    const std::shared_ptr<const Image>& background) const {
  const auto filter = FilterRegistry::filterWithName(filterName);
  if (!filter) return nullptr;
  filter->setValue(background, kCIInputBackgroundImageKey);
  filter->setValue(image, kCIInputImageKey);
  return filter->outputImage();
}

std::shared_ptr<const Image> LMFFEffectVideoStream::sourceOverImage(
    const std::shared_ptr<const Image>& image,
    const std::shared_ptr<const Image>& background) const {
  return composition("CISourceOverCompositing", image, background);
}

std::shared_ptr<const Image> LMFFEffectVideoStream::sourceInImage(
    const std::shared_ptr<const Image>& image,
    const std::shared_ptr<const Image>& background) const {
  return composition("CISourceInCompositing", image, background);
}

std::shared_ptr<const Image> LMFFEffectVideoStream::imagewithColor(const Color& color) const {
  return Image::fromColor(color);
}

std::shared_ptr<const Image> LMFFEffectVideoStream::translateImage(
    const std::shared_ptr<const Image>& image, const Size& size) const {
  return image ? image->translated(size.width, size.height) : nullptr;
}

std::shared_ptr<const Image> LMFFEffectVideoStream::scaleImage(
    const std::shared_ptr<const Image>& image, const Size& size) const {
  return image ? image->scaled(size.width, size.height) : nullptr;
}

}  // namespace kestrel
