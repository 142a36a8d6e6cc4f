#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "convert/cut/CutPlan.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

class LMMediaSource;

/// What stays of a sound track, decoded and to the sample, one window behind the other: silence
/// where the input has none. Each begins with sound that was decoded before, so that nothing is
/// missing of it.
class CutSamples {
 public:
  /// `windows`: in ticks of `timebase`. `source` is open and read by nobody else.
  CutSamples(std::shared_ptr<LMMediaSource> source, uint32_t stream,
             const std::vector<CutWindow>& windows, AVRational timebase);

  /// The next piece in the decoder's format; null behind the last one.
  FramePtr next();

  int32_t rate() const { return rate_; }

 private:
  struct Span {
    int64_t start = 0;  // in the input, samples
    int64_t count = 0;
  };

  void begin(const Span& span);
  bool decodeMore();
  void keep(FramePtr frame);
  FramePtr silence(int64_t count) const;

  std::shared_ptr<LMMediaSource> source_;
  const AVStream& stream_;
  const int32_t rate_;
  std::vector<Span> spans_;
  size_t span_ = 0;
  bool isBegun_ = false;
  int64_t given_ = 0;  // of the span, samples
  CodecContextPtr decoder_;
  PacketPtr packet_ = makePacket();
  struct Placed {
    FramePtr frame;
    int64_t place = 0;  // samples
  };
  std::vector<Placed> ready_;
  size_t read_ = 0;
  std::optional<int64_t> counted_;  // where the next sound belongs, samples
  bool isDrained_ = false;
};

/// A part of a frame of sound.
FramePtr partOf(const AVFrame& frame, int64_t begin, int64_t count);

}  // namespace kestrel
