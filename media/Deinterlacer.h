#pragma once

#include <kestrel/LMFFMediaStream.h>

#include <deque>
#include <optional>
#include <vector>

#include "media/PictureFilter.h"

namespace kestrel {

/// Deinterlaces those pictures of a stream that its treatment names; the others pass untouched.
/// Each stays one picture with its own time, or becomes two, one of each field. A picture comes out
/// when the next one goes in, because the filter needs both neighbours, or up to three later where
/// what follows decides whether it is interlaced.
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
  bool isMarked(const AVFrame& picture) const;
  void judge(FramePtr picture, bool isCombed, std::vector<FramePtr>& finished);
  void letGo(bool isMeant, std::vector<FramePtr>& finished);
  void pushMarked(FramePtr picture, bool isMeant, std::vector<FramePtr>& finished);
  std::vector<FramePtr> filtered(std::vector<FramePtr> pictures);
  std::vector<FramePtr> dated(std::vector<FramePtr> pictures, AVRational from) const;
  std::vector<FramePtr> repeating(std::vector<FramePtr> pictures);
  void noteTicks(const AVFrame& picture);

  const PictureTreatment treatment_;
  const AVRational timebase_;
  AVRational ticks_;                     // of finished pictures
  std::optional<PictureFilter> filter_;  // from the first picture on that is deinterlaced
  bool repeatsFirst_ = false;            // the filter's first picture has come out before
  FramePtr first_;                       // waits for the next one to be compared with
  FramePtr last_;                        // that came in, where pictures are compared
  std::vector<FramePtr> waiting_;        // without combs; what follows them decides
  size_t run_ = 0;                       // deinterlaced before these, one after the other
  int lingering_ = 0;                    // so many are deinterlaced without combs
  FramePtr previous_;                    // that was passed on
  std::deque<int64_t> repeated_;         // times of those that come twice and have yet to come out
  int64_t end_ = AV_NOPTS_VALUE;         // of the last picture that was pushed
};

}  // namespace kestrel
