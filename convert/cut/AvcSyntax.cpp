#include "convert/cut/AvcSyntax.h"

#include <algorithm>
#include <array>

#include "convert/cut/Bits.h"

namespace kestrel {

namespace {

constexpr int kRestart = 5;  // the types of units (table 7-1)
constexpr int kSequence = 7;
constexpr int kPictureSet = 8;

int typeOf(std::span<const uint8_t> unit) { return unit.empty() ? 0 : unit[0] & 31; }

/// Profiles whose sequences tell their chroma, depth and matrices (7.3.2.1.1).
bool tellsChroma(int profile) {
  static constexpr std::array kProfiles{100, 110, 122, 244, 44,  83, 86,
                                        118, 128, 138, 139, 134, 135};
  return std::ranges::find(kProfiles, profile) != kProfiles.end();
}

void readChroma(BitReader& bits, AvcSequence& sequence) {
  sequence.chromaFormat = bits.number();
  if (sequence.chromaFormat == 3) sequence.separatesPlanes = bits.bit() != 0;
  sequence.bitDepth = 8 + static_cast<int>(bits.number());
  bits.number();  // depth of chroma
  bits.bit();     // without transform
  sequence.hasScaling = bits.bit() != 0;
}

void readOrder(BitReader& bits, AvcSequence& sequence) {
  sequence.orderType = bits.number();
  if (sequence.orderType == 0) sequence.orderBits = static_cast<int>(bits.number()) + 4;
  if (sequence.orderType != 1) return;
  bits.bit();
  bits.signedNumber();
  bits.signedNumber();
  const uint32_t count = bits.number();
  for (uint32_t i = 0; i < count && !bits.isOver(); ++i) bits.signedNumber();
}

}  // namespace

AvcUnit unguarded(std::span<const uint8_t> unit) {
  AvcUnit plain;
  plain.reserve(unit.size());
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    plain.push_back(byte);
  }
  return plain;
}

AvcUnit guarded(std::span<const uint8_t> unit) {
  AvcUnit safe;
  safe.reserve(unit.size() + unit.size() / 64);
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte <= 3) {
      safe.push_back(3);
      zeros = 0;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    safe.push_back(byte);
  }
  return safe;
}

std::optional<AvcSequence> readAvcSequence(std::span<const uint8_t> unit) {
  if (typeOf(unit) != kSequence) return std::nullopt;
  const AvcUnit plain = unguarded(unit.subspan(1));
  BitReader bits(plain);
  AvcSequence sequence;
  sequence.profile = static_cast<int>(bits.bits(8));
  bits.bits(16);  // constraints and level
  sequence.id = bits.number();
  if (tellsChroma(sequence.profile)) readChroma(bits, sequence);
  // What follows matrices is not read: nothing is encoded into such a sequence.
  if (sequence.hasScaling) return sequence;
  sequence.numberBits = static_cast<int>(bits.number()) + 4;
  readOrder(bits, sequence);
  sequence.references = bits.number();
  bits.bit();  // numbers may have gaps
  sequence.width = bits.number() + 1;
  sequence.height = bits.number() + 1;
  sequence.framesOnly = bits.bit() != 0;
  if (!sequence.framesOnly) {
    sequence.height *= 2;
    sequence.adaptsFields = bits.bit() != 0;
  }
  bits.bit();  // how motion is told directly
  if (bits.bit() != 0) {
    sequence.cropLeft = bits.number();
    bits.number();
    sequence.cropTop = bits.number();
    bits.number();
  }
  if (bits.isOver()) return std::nullopt;
  return sequence;
}

std::optional<AvcPictureSet> readAvcPictureSet(std::span<const uint8_t> unit) {
  if (typeOf(unit) != kPictureSet) return std::nullopt;
  const AvcUnit plain = unguarded(unit.subspan(1));
  BitReader bits(plain);
  AvcPictureSet set;
  set.id = bits.number();
  set.sequence = bits.number();
  set.isArithmetic = bits.bit() != 0;
  set.tellsBottomOrder = bits.bit() != 0;
  if (bits.isOver()) return std::nullopt;
  return set;
}

AvcUnit renumbered(std::span<const uint8_t> pictureSet, uint32_t id, uint32_t sequence) {
  const AvcUnit plain = unguarded(pictureSet.subspan(1));
  BitReader reader(plain);
  reader.number();
  reader.number();
  BitWriter writer;
  writer.bits(pictureSet[0], 8);
  writer.number(id);
  writer.number(sequence);
  writer.rest(reader);
  return guarded(writer.bytes());
}

AvcUnit moved(std::span<const uint8_t> slice, const AvcMove& move, uint32_t number,
              uint32_t restart) {
  const AvcUnit plain = unguarded(slice.subspan(1));
  BitReader reader(plain);
  BitWriter writer;
  const bool isRestart = typeOf(slice) == kRestart;
  writer.bits(slice[0], 8);
  writer.number(reader.number());  // the first macroblock
  writer.number(reader.number());  // the kind of slice
  reader.number();
  writer.number(move.set);
  reader.bits(move.from.numberBits);
  writer.bits(number, move.to.numberBits);
  if (!move.from.framesOnly) reader.bit();
  if (!move.to.framesOnly) writer.bit(0);
  if (isRestart) {
    reader.number();
    writer.number(restart);
  }
  int32_t bottom = 0;
  if (move.from.orderType == 0) {
    reader.bits(move.from.orderBits);
    if (move.fromSet.tellsBottomOrder) bottom = reader.signedNumber();
  }
  if (move.to.orderType == 0) {
    // The earlier field of the first picture is 0.
    writer.bits(2 * number + (bottom < 0 ? 1 : 0), move.to.orderBits);
    if (move.fromSet.tellsBottomOrder) writer.signedNumber(bottom);
  }
  writer.rest(reader);
  return guarded(writer.bytes());
}

}  // namespace kestrel
