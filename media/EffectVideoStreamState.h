#pragma once

#include <kestrel/LMFFEffectVideoStream.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "media/PictureConverter.h"
#include "support/FFmpegOwners.h"
#include "support/Guarded.h"

namespace kestrel {

struct LMFFEffectVideoStream::State {
  std::optional<PictureConverter> converter;

  // The picture. A frame that the image engine can read as it is waits in `pending`, and is
  // converted when somebody asks for its bytes.
  std::shared_ptr<AVFrame> imageFrame;
  bool isOpaque = false;  // every pixel of it
  std::shared_ptr<AVFrame> pending;

  void convert(const AVFrame* frame);
  bool canWait(const std::shared_ptr<const AVFrame>& frame) const;
  void convertPending();
  bool isOutdated() const;

  // Settings.
  Guarded<std::shared_ptr<LMFFMedia>> media;
  Guarded<LMFFVideoFormat> outputFormat;
  Guarded<DataBuffer> dataBuffer;
  std::atomic<int64_t> aspectType{0};
  std::atomic<double> displayAspect{0};
  Guarded<Rect> cropRect;
  std::atomic<bool> hflip{false};
  std::atomic<bool> vflip{false};
  std::atomic<float> rotate{0};
  std::atomic<float> saturation{0.5F};
  std::atomic<float> brightness{0.5F};
  std::atomic<float> contrast{0.25F};
  std::atomic<float> hue{0.5F};
  std::atomic<int32_t> zoomType{5};
  Guarded<std::optional<std::string>> effectName;
  Guarded<std::shared_ptr<const Image>> watermark;

  // Subtitles.
  Guarded<std::shared_ptr<const Image>> mediaSubtitleImage;
  Guarded<std::shared_ptr<const Image>> subtitleImage;
  Guarded<std::optional<Font>> subtitleFont;
  Guarded<std::optional<Color>> subtitleColor;
  std::atomic<float> subtitlePosition{0};
  Guarded<std::optional<std::string>> subtitleImageString;
  Guarded<std::optional<std::string>> subtitleCurrentString;
  std::atomic<bool> subtitleMarkup{false};
  std::atomic<float> subtitleOutline{0};
  std::atomic<float> subtitleMargin{0};
};

}  // namespace kestrel
