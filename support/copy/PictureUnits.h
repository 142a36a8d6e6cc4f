#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Inspects coded pictures without decoding them, and assembles them. Supports H.264 and HEVC, in
/// which pictures are sequences of units, after start codes or length fields depending on the codec
/// data.
class PictureUnits {
 public:
  /// `parameters` are the stream's and outlive this.
  explicit PictureUnits(const AVCodecParameters& parameters);

  /// The meaning of the stream's codec data to a decoder: the form of the units and the parameter
  /// sets.
  std::vector<uint8_t> meaning() const;

  /// True if no picture after this key frame in the stream refers to one before it.
  bool beginsAnew(const AVPacket& key) const;

  /// The same, but false where the codec does not tell.
  bool isKnownToBeginAnew(const AVPacket& key) const { return hasUnits() && beginsAnew(key); }

  /// True if no other picture refers to this one.
  bool isDisposable(const AVPacket& packet) const;

  /// Converts an encoder's packet, with start codes, to the stream's form; false if memory runs
  /// out.
  bool adopt(AVPacket& packet) const;

  /// Prepends the stream's codec data to a packet, for a decoder that has received other data in
  /// the meantime; false if memory runs out.
  bool prependCodecData(AVPacket& packet) const;

  using Unit = std::span<const uint8_t>;

  /// The units of a packet, and the parameter sets of the codec data; views of their bytes.
  std::vector<Unit> unitsOf(const AVPacket& packet) const;
  std::vector<Unit> parameterSets() const;

 private:
  bool hasUnits() const;
  int typeOf(Unit unit) const;
  std::vector<Unit> unitsOf(Unit data) const;
  std::vector<uint8_t> joined(const std::vector<Unit>& units) const;

  const AVCodecParameters& parameters_;
  int lengthSize_ = 0;  // size of length fields, bytes; 0: start codes
};

}  // namespace kestrel
