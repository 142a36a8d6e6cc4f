#pragma once

#include <cstdint>

#include "support/copy/PacketTimes.h"

namespace kestrel {

/// Stamps the packets of a copied stream for an output that begins at 0, and counts how far the
/// stream has come, in its time base.
class CopyClock {
 public:
  /// `hidesFirst`: the container can hide pictures at the start of a stream. Sound may begin before
  /// 0, with its encoder's delay, at `begin`. `keepsTimes`: a picture may be decoded one tick after
  /// the first, not two.
  explicit CopyClock(AVMediaType type, bool hidesFirst = false, int64_t begin = 0,
                     bool keepsTimes = false)
      : type_(type),
        hidesFirst_(hidesFirst),
        time_(type == AVMEDIA_TYPE_VIDEO && keepsTimes ? begin - 1 : begin),
        begin_(begin) {}

  /// The decoding time of the latest packet that counts.
  int64_t time() const { return time_; }

  /// Answers whether the packet is to be written; its times are those of the output in either case.
  bool stamp(AVPacket& packet, const TimeShift& shift);

 private:
  void stampHidden(AVPacket& packet, const TimeShift& shift);
  static bool stampText(AVPacket& packet, const TimeShift& shift);

  AVMediaType type_;
  bool hidesFirst_;
  int64_t time_;
  int64_t begin_;  // the earliest decoding time
  bool hasStarted_ = false;
};

}  // namespace kestrel
