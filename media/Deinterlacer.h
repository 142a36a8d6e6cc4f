#pragma once

#include <kestrel/LMFFMediaStream.h>

#include <optional>
#include <vector>

#include "media/PictureFilter.h"

namespace kestrel {

/// Deinterlaces those pictures of a stream that its treatment names; the others pass untouched.
/// Each stays one picture with its own time, or becomes two, one of each field. A picture comes out
/// when the next one goes in, because the filter needs both neighbours.
class Deinterlacer {
 public:
  /// `timebase` is that of the pictures' times.
  Deinterlacer(const PictureTreatment& treatment, AVRational timebase);

  /// Takes the next picture and returns those that are finished. Their
  /// times are in their own `time_base`, which is finer where the stream's is too coarse for
  /// fields. If the filter is not available, returns the picture itself.
  std::vector<FramePtr> push(FramePtr picture);

  /// Call at the end of the input; returns the remaining pictures.
  std::vector<FramePtr> finish();

 private:
  bool isMeant(const AVFrame& picture, const AVFrame* neighbor) const;
  std::vector<FramePtr> pushMarked(FramePtr picture, const AVFrame* neighbor);
  std::vector<FramePtr> filtered(std::vector<FramePtr> pictures);
  std::vector<FramePtr> dated(std::vector<FramePtr> pictures, AVRational from) const;
  void noteTicks(const AVFrame& picture);

  const PictureTreatment treatment_;
  const AVRational timebase_;
  AVRational ticks_;                     // of finished pictures
  std::optional<PictureFilter> filter_;  // from the first picture on that is deinterlaced
  bool repeatsFirst_ = false;            // the filter's first picture has come out before
  FramePtr first_;                       // waits for the next one to be compared with
  FramePtr previous_;
  int64_t end_ = AV_NOPTS_VALUE;  // of the last picture that was pushed
};

}  // namespace kestrel
