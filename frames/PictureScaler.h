#pragma once

#include <kestrel/Scaler.h>

#include <memory>
#include <optional>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// A scaler that keeps its context from picture to picture, as long as size, format and colour of
/// source and target stay the same.
class PictureScaler {
 public:
  /// Scales and converts the whole of `source` into `target`, which has its format, size, buffers
  /// and colour tags. Both frames' tags are honoured; `source` need not be reference-counted. False
  /// when libswscale can't do that; `target` then holds nothing useful.
  /// Bilinearly, unless `how` names another curve.
  bool scale(const AVFrame& source, AVFrame& target, const std::optional<Scaler>& how = {});

  /// True when the samples of a picture in the one matrix (`AVCOL_SPC_…`) mean the same in the
  /// other.
  static bool isSameMatrix(int a, int b);

  /// The format as libswscale should see it: the "J" formats are plain ones of full range.
  static int plainFormat(int pixelFormat);

 private:
  struct Side {
    int width = 0;
    int height = 0;
    int format = AV_PIX_FMT_NONE;
    int matrix = 0;
    int range = 0;

    bool operator==(const Side&) const = default;
  };

  static Side sideOf(const AVFrame& frame);
  static bool isFullYuv(const Side& side);
  static SwsPtr makeContext(const Side& source, const Side& target,
                            const std::optional<Scaler>& how);

  bool lend(const AVFrame& source);

  SwsPtr context_;
  Side source_;
  Side target_;
  std::optional<Scaler> how_;
  uint8_t nothing_ = 0;  ///< what the buffer of `view_` points to
  FramePtr view_;        ///< lends the source's planes to libswscale
};

}  // namespace kestrel
