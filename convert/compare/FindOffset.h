#pragma once

#include <kestrel/convert/Compare.h>

#include <cstdint>
#include <vector>

namespace kestrel {

/// A small picture's luma, and when it is shown; microseconds.
struct Signature {
  int64_t time = 0;
  std::vector<uint8_t> luma;
};

/// By how much pictures of `copy` come later than the same ones of `original`, microseconds, where
/// one of the two begins within the other. 0 where no other offset has them more alike, which is
/// also the answer for pictures that never change.
int64_t offsetBetween(const std::vector<Signature>& original, const std::vector<Signature>& copy);

/// The same of two movies. Their first seconds are read, and if these have nothing in common, up to
/// half an hour. Throws a `Failure` for what cannot be read.
int64_t findOffset(const CompareSettings& settings, const Interrupt& interrupt);

}  // namespace kestrel
