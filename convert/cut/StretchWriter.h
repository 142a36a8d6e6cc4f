#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>

#include "convert/cut/CutJob.h"
#include "convert/cut/CutPlan.h"
#include "convert/cut/StretchForm.h"
#include "platform/codec/Codec.h"
#include "support/copy/FineEncoder.h"
#include "support/copy/StreamCopier.h"

namespace kestrel {

/// Makes the pictures of a cut's result in the order of decoding: those that are copied as they
/// come from the input, those that are encoded in between.
class StretchWriter {
 public:
  /// The copier's stream has its time base, and `write` takes packets stamped in that.
  StretchWriter(const CutJob& job, const PicturePlan& plan, StretchForm* form, int steps,
                StreamCopier& copier, PacketTaker write);

  /// Makes what of a window needs no packets of the input.
  void begin(size_t window);

  /// Takes a packet of the input; answers whether it went into the result.
  bool take(const AVPacket& packet);

  void finish();

  /// Whether all pictures of a window are made.
  bool isDone(size_t window) const;

  /// The place in the order of decoding of an input's picture, and of the first one of a window
  /// that is copied.
  std::optional<size_t> placeOf(int64_t time) const;
  std::optional<size_t> firstCopied(size_t window) const;

  /// Up to where pictures have been made, microseconds of the result, and how many.
  int64_t time() const;
  int64_t written() const { return static_cast<int64_t>(next_); }

  /// A time of the result in ticks of its stream.
  int64_t outputTime(int64_t ticks) const;

  /// Why an encoded stretch did not come out; "" where all did.
  const std::string& problem() const { return problem_; }

 private:
  const PictureRun* current() const;
  FineCoding coding() const;
  void encodeAhead();
  void encode(const PictureRun& stretch);
  void write(PacketPtr packet, const PlannedPicture& picture);

  const CutJob& job_;
  const PicturePlan& plan_;
  StretchForm* const form_;
  const int steps_;
  StreamCopier& copier_;
  const PacketTaker write_;
  std::unordered_map<int64_t, size_t> places_;  // of the input's pictures, by time
  size_t window_ = 0;
  size_t next_ = 0;       // of the planned pictures
  bool follows_ = false;  // the picture before was encoded
  std::string problem_;
};

}  // namespace kestrel
