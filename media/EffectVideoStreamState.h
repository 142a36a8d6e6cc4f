#pragma once

#include <kestrel/ImageContext.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/MovieLook.h>
#include <kestrel/ToneMapping.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "media/PictureConverter.h"
#include "support/FFmpegOwners.h"
#include "support/Guarded.h"

namespace kestrel {

struct LMFFEffectVideoStream::State {
  std::optional<PictureConverter> converter;

  // The picture. A frame that the image engine can read directly waits in `pending` and is
  // converted only if its bytes are requested.
  std::shared_ptr<AVFrame> imageFrame;
  bool isOpaque = false;  // every pixel of `imageFrame` is opaque
  std::shared_ptr<AVFrame> pending;
  std::optional<HdrLight> light;  // of an HDR picture

  ImageContext renderer;

  void convert(const std::shared_ptr<const AVFrame>& frame);
  FramePtr drawn(const std::shared_ptr<const AVFrame>& frame) const;
  bool canWait(const std::shared_ptr<const AVFrame>& frame) const;
  void convertPending();
  bool isOutdated() const;
  const AVStream* stream() const;

  template <typename Value>
  Value setting(Value MovieLook::*field) const {
    return look.with([field](const MovieLook& settings) { return settings.*field; });
  }
  template <typename Value>
  void set(Value MovieLook::*field, Value value) {
    // The old value is destroyed after the lock is released.
    look.with([field, &value](MovieLook& settings) { std::swap(settings.*field, value); });
  }

  Guarded<std::shared_ptr<LMFFMedia>> media;
  Guarded<LMFFVideoFormat> outputFormat;
  Guarded<DataBuffer> dataBuffer;
  Guarded<MovieLook> look;

  // Subtitles of the current time.
  Guarded<std::shared_ptr<const Image>> mediaSubtitleImage;
  Guarded<std::shared_ptr<const Image>> styledSubtitle;
  Guarded<std::shared_ptr<const Image>> subtitleImage;
  Guarded<std::optional<std::string>> subtitleImageString;
  Guarded<std::optional<std::string>> subtitleCurrentString;
};

}  // namespace kestrel
