#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace kestrel {

/// What the parameter sets of H.264 (ISO/IEC 14496-10, 7.3) tell of how pictures are written.

/// A sequence parameter set.
struct AvcSequence {
  int profile = 0;
  uint32_t id = 0;
  uint32_t chromaFormat = 1;
  int bitDepth = 8;
  bool hasScaling = false;  ///< its own matrices of quantisers
  bool separatesPlanes = false;
  int numberBits = 4;      ///< of a picture's number
  uint32_t orderType = 0;  ///< how the order of display is told
  int orderBits = 4;       ///< of that order, with type 0
  uint32_t references = 0;
  uint32_t width = 0;  ///< macroblocks of a frame
  uint32_t height = 0;
  bool framesOnly = true;
  bool adaptsFields = false;  ///< each pair of macroblocks may be fields
  uint32_t cropLeft = 0;
  uint32_t cropTop = 0;
};

/// A picture parameter set.
struct AvcPictureSet {
  uint32_t id = 0;
  uint32_t sequence = 0;
  bool isArithmetic = false;  ///< the coding of slices
  bool tellsBottomOrder = false;
};

using AvcUnit = std::vector<uint8_t>;

/// A unit without the bytes that guard against start codes, and with them again.
AvcUnit unguarded(std::span<const uint8_t> unit);
AvcUnit guarded(std::span<const uint8_t> unit);

// None where a unit is of another kind or damaged.

std::optional<AvcSequence> readAvcSequence(std::span<const uint8_t> unit);
std::optional<AvcPictureSet> readAvcPictureSet(std::span<const uint8_t> unit);

/// The same picture parameter set under another number, for another sequence.
AvcUnit renumbered(std::span<const uint8_t> pictureSet, uint32_t id, uint32_t sequence);

/// A slice of a stream that has `from` and `fromSet`, as it is written in one that has `to`, of the
/// picture that is the `number`th since a picture from which decoding can start, 0 for that one.
/// Every picture is referred to, and shown in the order of decoding. `set`: the number of its
/// picture parameter set there. `restart`: tells such a picture from the one before.
struct AvcMove {
  AvcSequence from;
  AvcPictureSet fromSet;
  AvcSequence to;
  uint32_t set = 0;
};
AvcUnit moved(std::span<const uint8_t> slice, const AvcMove& move, uint32_t number,
              uint32_t restart);

}  // namespace kestrel
