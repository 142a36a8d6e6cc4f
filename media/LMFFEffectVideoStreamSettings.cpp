#include <utility>

#include "media/EffectVideoStreamState.h"

namespace kestrel {

namespace {

constexpr double kDefaultFontSize = 80;

}  // namespace

std::shared_ptr<LMFFMedia> LMFFEffectVideoStream::media() const { return state_->media.get(); }

void LMFFEffectVideoStream::setMedia(std::shared_ptr<LMFFMedia> media) {
  state_->media.set(std::move(media));
}

LMFFVideoFormat LMFFEffectVideoStream::outputFormat() const { return state_->outputFormat.get(); }

void LMFFEffectVideoStream::setOutputFormat(const LMFFVideoFormat& format) {
  state_->outputFormat.set(format);
}

LMFFEffectVideoStream::DataBuffer LMFFEffectVideoStream::dataBuffer() const {
  return state_->dataBuffer.get();
}

void LMFFEffectVideoStream::setDataBuffer(DataBuffer buffer) {
  state_->dataBuffer.set(std::move(buffer));
}

int64_t LMFFEffectVideoStream::aspectType() const { return state_->aspectType; }

void LMFFEffectVideoStream::setAspectType(int64_t type) { state_->aspectType = type; }

double LMFFEffectVideoStream::displayAspect() const { return state_->displayAspect; }

void LMFFEffectVideoStream::setDisplayAspect(double aspect) { state_->displayAspect = aspect; }

Rect LMFFEffectVideoStream::cropRect() const { return state_->cropRect.get(); }

void LMFFEffectVideoStream::setCropRect(const Rect& rect) { state_->cropRect.set(rect); }

bool LMFFEffectVideoStream::hflip() const { return state_->hflip; }

void LMFFEffectVideoStream::setHflip(bool flip) { state_->hflip = flip; }

bool LMFFEffectVideoStream::vflip() const { return state_->vflip; }

void LMFFEffectVideoStream::setVflip(bool flip) { state_->vflip = flip; }

float LMFFEffectVideoStream::rotate() const { return state_->rotate; }

void LMFFEffectVideoStream::setRotate(float degrees) { state_->rotate = degrees; }

float LMFFEffectVideoStream::saturation() const { return state_->saturation; }

void LMFFEffectVideoStream::setSaturation(float value) { state_->saturation = value; }

float LMFFEffectVideoStream::brightness() const { return state_->brightness; }

void LMFFEffectVideoStream::setBrightness(float value) { state_->brightness = value; }

float LMFFEffectVideoStream::contrast() const { return state_->contrast; }

void LMFFEffectVideoStream::setContrast(float value) { state_->contrast = value; }

float LMFFEffectVideoStream::hue() const { return state_->hue; }

void LMFFEffectVideoStream::setHue(float value) { state_->hue = value; }

int32_t LMFFEffectVideoStream::zoomType() const { return state_->zoomType; }

void LMFFEffectVideoStream::setZoomType(int32_t type) { state_->zoomType = type; }

std::optional<std::string> LMFFEffectVideoStream::effectName() const {
  return state_->effectName.get();
}

void LMFFEffectVideoStream::setEffectName(std::optional<std::string> name) {
  state_->effectName.set(std::move(name));
}

std::shared_ptr<const Image> LMFFEffectVideoStream::watermark() const {
  return state_->watermark.get();
}

void LMFFEffectVideoStream::setWatermark(std::shared_ptr<const Image> image) {
  state_->watermark.set(std::move(image));
}

std::shared_ptr<const Image> LMFFEffectVideoStream::mediaSubtitleImage() const {
  return state_->mediaSubtitleImage.get();
}

void LMFFEffectVideoStream::setMediaSubtitleImage(std::shared_ptr<const Image> image) {
  state_->mediaSubtitleImage.set(std::move(image));
}

std::shared_ptr<const Image> LMFFEffectVideoStream::subtitleImage() const {
  return state_->subtitleImage.get();
}

void LMFFEffectVideoStream::setSubtitleImage(std::shared_ptr<const Image> image) {
  state_->subtitleImage.set(std::move(image));
}

std::optional<std::string> LMFFEffectVideoStream::subtitleImageString() const {
  return state_->subtitleImageString.get();
}

void LMFFEffectVideoStream::setSubtitleImageString(std::optional<std::string> text) {
  state_->subtitleImageString.set(std::move(text));
}

std::optional<std::string> LMFFEffectVideoStream::subtitleCurrentString() const {
  return state_->subtitleCurrentString.get();
}

void LMFFEffectVideoStream::setSubtitleCurrentString(std::optional<std::string> text) {
  state_->subtitleCurrentString.set(std::move(text));
}

Font LMFFEffectVideoStream::subtitleFont() const {
  const auto font = state_->subtitleFont.get();
  return font ? *font : Font::systemFontOfSize(kDefaultFontSize);
}

void LMFFEffectVideoStream::setSubtitleFont(const std::optional<Font>& font) {
  state_->subtitleFont.set(font);
}

Color LMFFEffectVideoStream::subtitleColor() const {
  return state_->subtitleColor.get().value_or(Color::white());
}

void LMFFEffectVideoStream::setSubtitleColor(const std::optional<Color>& color) {
  state_->subtitleColor.set(color);
}

float LMFFEffectVideoStream::subtitlePosition() const { return state_->subtitlePosition; }

void LMFFEffectVideoStream::setSubtitlePosition(float position) {
  state_->subtitlePosition = position;
}

bool LMFFEffectVideoStream::subtitleMarkup() const { return state_->subtitleMarkup; }

void LMFFEffectVideoStream::setSubtitleMarkup(bool markup) { state_->subtitleMarkup = markup; }

float LMFFEffectVideoStream::subtitleOutline() const { return state_->subtitleOutline; }

void LMFFEffectVideoStream::setSubtitleOutline(float width) { state_->subtitleOutline = width; }

float LMFFEffectVideoStream::subtitleMargin() const { return state_->subtitleMargin; }

void LMFFEffectVideoStream::setSubtitleMargin(float share) { state_->subtitleMargin = share; }

}  // namespace kestrel
