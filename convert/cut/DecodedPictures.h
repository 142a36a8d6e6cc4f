#pragma once

#include <cstdint>
#include <deque>
#include <memory>

#include "support/FFmpegOwners.h"

namespace kestrel {

class LMMediaSource;

/// The pictures of one stream as they are decoded, from any of them on. Times are ticks of the
/// stream.
class DecodedPictures {
 public:
  /// `source` is open and read by nobody else.
  DecodedPictures(std::shared_ptr<LMMediaSource> source, uint32_t stream);

  /// The next picture is the one shown at `time`, or the first behind that. Decoding begins with
  /// the key picture that is shown at `entry`. Throws `Failure` where that is not found.
  void seek(int64_t entry, int64_t time);

  /// The next picture; null behind the last one.
  FramePtr next();

  /// Errors of the decoder since the last `seek`.
  int64_t errors() const { return errors_; }

  static int64_t timeOf(const AVFrame& picture);

 private:
  bool findEntry(int64_t entry);
  bool read();
  void decode(const AVPacket* packet);

  std::shared_ptr<LMMediaSource> source_;
  const AVStream& stream_;
  CodecContextPtr decoder_;
  PacketPtr packet_ = makePacket();
  std::deque<FramePtr> ready_;
  int64_t time_ = 0;
  int64_t errors_ = 0;
  bool isDrained_ = false;
};

}  // namespace kestrel
