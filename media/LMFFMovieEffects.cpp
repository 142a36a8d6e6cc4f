#include <kestrel/LMFFMovie.h>
#include <kestrel/MovieLook.h>

#include <cstdint>
#include <limits>

#include "media/LMFFMovieState.h"
#include "support/GeometryText.h"

namespace kestrel {

namespace {

using Stream = LMFFEffectVideoStream;
using StreamPtr = std::shared_ptr<Stream>;

/// What the stream says, zeros where there is none.
template <typename Value>
Value valueOf(const StreamPtr& stream, Value (Stream::*getter)() const) {
  return stream ? ((*stream).*getter)() : Value{};
}

template <typename Parameter, typename Value>
void setValue(const StreamPtr& stream, void (Stream::*setter)(Parameter), const Value& value) {
  if (stream) ((*stream).*setter)(value);
}

/// A length that was meant to be whole comes out whole.
int32_t wholePixels(double length) {
  constexpr double kMost = std::numeric_limits<int32_t>::max();
  const double whole = length + 0.1;
  return whole > -kMost && whole < kMost ? static_cast<int32_t>(whole) : 0;
}

}  // namespace

MovieLook LMFFMovie::look() const { return valueOf(videoEffectStream(), &Stream::look); }

void LMFFMovie::setLook(const MovieLook& look) {
  setValue(videoEffectStream(), &Stream::setLook, look);
}

Size LMFFMovie::videoSize() const { return valueOf(videoEffectStream(), &Stream::videoSize); }

int64_t LMFFMovie::aspectType() const { return valueOf(videoEffectStream(), &Stream::aspectType); }

void LMFFMovie::setAspectType(int64_t type) {
  setValue(videoEffectStream(), &Stream::setAspectType, type);
}

double LMFFMovie::displayAspect() const {
  return valueOf(videoEffectStream(), &Stream::displayAspect);
}

void LMFFMovie::setDisplayAspect(double aspect) {
  setValue(videoEffectStream(), &Stream::setDisplayAspect, aspect);
}

Rect LMFFMovie::cropRect() const { return valueOf(videoEffectStream(), &Stream::cropRect); }

void LMFFMovie::setCropRect(const Rect& rect) {
  setValue(videoEffectStream(), &Stream::setCropRect, rect);
}

std::string LMFFMovie::cropRectString() const { return textOfRect(cropRect()); }

void LMFFMovie::setCropRectString(const std::string& text) { setCropRect(rectOfText(text)); }

Size LMFFMovie::outputVideoSize() const {
  const LMFFVideoFormat format = valueOf(videoEffectStream(), &Stream::outputFormat);
  return {static_cast<double>(format.width), static_cast<double>(format.height)};
}

void LMFFMovie::setOutputVideoSize(const Size& size) {
  const auto stream = videoEffectStream();
  if (!stream) return;
  LMFFVideoFormat format = stream->outputFormat();
  format.width = wholePixels(size.width);
  format.height = wholePixels(size.height);
  stream->setOutputFormat(format);
  updateSubtitle();
}

std::string LMFFMovie::outputVideoSizeString() const { return textOfSize(outputVideoSize()); }

void LMFFMovie::setOutputVideoSizeString(const std::string& text) {
  setOutputVideoSize(sizeOfText(text));
}

bool LMFFMovie::hflip() const { return valueOf(videoEffectStream(), &Stream::hflip); }

void LMFFMovie::setHflip(bool flip) { setValue(videoEffectStream(), &Stream::setHflip, flip); }

bool LMFFMovie::vflip() const { return valueOf(videoEffectStream(), &Stream::vflip); }

void LMFFMovie::setVflip(bool flip) { setValue(videoEffectStream(), &Stream::setVflip, flip); }

float LMFFMovie::rotate() const { return valueOf(videoEffectStream(), &Stream::rotate); }

void LMFFMovie::setRotate(float degrees) {
  setValue(videoEffectStream(), &Stream::setRotate, degrees);
}

float LMFFMovie::saturation() const { return valueOf(videoEffectStream(), &Stream::saturation); }

void LMFFMovie::setSaturation(float value) {
  setValue(videoEffectStream(), &Stream::setSaturation, value);
}

float LMFFMovie::brightness() const { return valueOf(videoEffectStream(), &Stream::brightness); }

void LMFFMovie::setBrightness(float value) {
  setValue(videoEffectStream(), &Stream::setBrightness, value);
}

float LMFFMovie::contrast() const { return valueOf(videoEffectStream(), &Stream::contrast); }

void LMFFMovie::setContrast(float value) {
  setValue(videoEffectStream(), &Stream::setContrast, value);
}

float LMFFMovie::hue() const { return valueOf(videoEffectStream(), &Stream::hue); }

void LMFFMovie::setHue(float value) { setValue(videoEffectStream(), &Stream::setHue, value); }

std::optional<std::string> LMFFMovie::effectName() const {
  return valueOf(videoEffectStream(), &Stream::effectName);
}

void LMFFMovie::setEffectName(const std::optional<std::string>& name) {
  setValue(videoEffectStream(), &Stream::setEffectName, name);
}

std::shared_ptr<const Image> LMFFMovie::watermark() const {
  return valueOf(videoEffectStream(), &Stream::watermark);
}

void LMFFMovie::setWatermark(const std::shared_ptr<const Image>& image) {
  setValue(videoEffectStream(), &Stream::setWatermark, image);
}

int32_t LMFFMovie::zoomType() const { return valueOf(videoEffectStream(), &Stream::zoomType); }

void LMFFMovie::setZoomType(int32_t type) {
  setValue(videoEffectStream(), &Stream::setZoomType, type);
}

Font LMFFMovie::subtitleFont() const { return valueOf(videoEffectStream(), &Stream::subtitleFont); }

void LMFFMovie::setSubtitleFont(const std::optional<Font>& font) {
  setValue(videoEffectStream(), &Stream::setSubtitleFont, font);
  updateSubtitle();
}

Color LMFFMovie::subtitleColor() const {
  return valueOf(videoEffectStream(), &Stream::subtitleColor);
}

void LMFFMovie::setSubtitleColor(const std::optional<Color>& color) {
  setValue(videoEffectStream(), &Stream::setSubtitleColor, color);
  updateSubtitle();
}

float LMFFMovie::subtitlePosition() const {
  return valueOf(videoEffectStream(), &Stream::subtitlePosition);
}

void LMFFMovie::setSubtitlePosition(float position) {
  setValue(videoEffectStream(), &Stream::setSubtitlePosition, position);
  updateSubtitle();
}

bool LMFFMovie::fullSubtitleText() const {
  return valueOf(videoEffectStream(), &Stream::subtitleMarkup);
}

void LMFFMovie::setFullSubtitleText(bool full) {
  setValue(videoEffectStream(), &Stream::setSubtitleMarkup, full);
  updateSubtitle();
}

void LMFFMovie::updateSubtitle() {
  if (const auto stream = videoEffectStream()) stream->updateSubtitle();
}

}  // namespace kestrel
