#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// What can be told of a coded picture without decoding it, and the few ways in which its bits are
/// put together: for H.264 and HEVC, whose pictures are rows of units, after start codes or after
/// their lengths, as the stream's codec data say.
class PictureUnits {
 public:
  /// `parameters` are the stream's and outlive this.
  explicit PictureUnits(const AVCodecParameters& parameters);

  /// What the stream's codec data mean to a decoder: the form of the units, and the parameter sets.
  std::vector<uint8_t> meaning() const;

  /// Whether a key picture begins anew: no picture behind it in the stream refers to one before it.
  bool beginsAnew(const AVPacket& key) const;

  /// Whether no other picture refers to this one.
  bool isDisposable(const AVPacket& packet) const;

  /// Brings an encoder's packet, whose units follow start codes, into the stream's form; false when
  /// there is no memory.
  bool adopt(AVPacket& packet) const;

  /// Puts the stream's own codec data in front of a packet, for a decoder that has meanwhile been
  /// given others; false when there is no memory.
  bool prependCodecData(AVPacket& packet) const;

 private:
  using Unit = std::span<const uint8_t>;

  bool hasUnits() const;
  int typeOf(Unit unit) const;
  std::vector<Unit> unitsOf(Unit data) const;
  std::vector<Unit> parameterSets() const;
  std::vector<uint8_t> joined(const std::vector<Unit>& units) const;

  const AVCodecParameters& parameters_;
  int lengthSize_ = 0;  // bytes of a unit's length; 0 where start codes separate them
};

}  // namespace kestrel
