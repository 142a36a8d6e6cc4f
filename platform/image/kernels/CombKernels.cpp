// Combs that two woven moments leave, counted line by line.

#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/kernels/CombKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "platform/image/kernels/CombKernels.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const hn::CappedTag<uint8_t, kCombPadding - 16> kBytes;
using Bytes = hn::Vec<decltype(kBytes)>;
using Mask = hn::Mask<decltype(kBytes)>;

HWY_INLINE Bytes at(const uint8_t* row, size_t x) { return hn::LoadU(kBytes, row + x); }

/// The bytes from `x` on that lie in front of `end`.
HWY_INLINE Mask inFrontOf(size_t end, size_t x) {
  return hn::FirstN(kBytes, HWY_MIN(end - x, hn::Lanes(kBytes)));
}

/// Whether the middle one of five values in a row differs from those beside it, as they do from the
/// outer ones.
HWY_INLINE Mask isTooth(Bytes outer, Bytes beside, Bytes here, Bytes beyond, Bytes outermost,
                        CombLimits limits) {
  const auto step = hn::Set(kBytes, limits.step);
  const auto half = hn::Set(kBytes, static_cast<uint8_t>(limits.step / 2));
  const auto over = [](Bytes a, Bytes b) HWY_ATTR { return hn::SaturatedSub(a, b); };
  const auto brighter = hn::Min(over(here, beside), over(here, beyond));
  const auto valleys = hn::Min(over(outer, beside), over(outermost, beyond));
  const auto darker = hn::Min(over(beside, here), over(beyond, here));
  const auto peaks = hn::Min(over(beside, outer), over(beyond, outermost));
  return hn::Or(hn::And(hn::Gt(brighter, step), hn::Gt(valleys, half)),
                hn::And(hn::Gt(darker, step), hn::Gt(peaks, half)));
}

CombCounts combs(const uint8_t* const* rows, const uint8_t* const* before, size_t width,
                 CombLimits limits, uint8_t* runs, uint8_t* across) {
  const size_t lanes = hn::Lanes(kBytes);
  const auto step = hn::Set(kBytes, limits.step);
  const auto one = hn::Set(kBytes, 1);
  const auto beforeLeast = hn::Set(kBytes, static_cast<uint8_t>(limits.leastRun - 1));
  const auto way = [&](int row, size_t x) HWY_ATTR {
    const auto a = at(rows[row + 1], x);
    const auto b = at(before[row], x);
    return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a));
  };
  CombCounts counts;
  for (size_t x = 0; x < width; x += lanes) {
    const auto inside = inFrontOf(width, x);
    const auto farthest = hn::Max(hn::Max(way(0, x), way(1, x)), way(2, x));
    const auto moves = hn::And(hn::Gt(farthest, step), inside);
    const auto tooth = isTooth(at(rows[0], x), at(rows[1], x), at(rows[2], x), at(rows[3], x),
                               at(rows[4], x), limits);
    const auto run = hn::IfThenElseZero(hn::And(moves, tooth), hn::SaturatedAdd(at(runs, x), one));
    hn::StoreU(run, kBytes, runs + x);
    hn::StoreU(hn::IfThenElseZero(moves, one), kBytes, across + x);
    counts.moving += hn::CountTrue(kBytes, moves);
    counts.combed += hn::CountTrue(kBytes, hn::Gt(run, beforeLeast));
  }
  if (width < size_t{4} + limits.leastRun) return counts;
  const uint8_t* const line = rows[2];
  for (size_t x = 2; x < width - 2; x += lanes) {
    const auto tooth = isTooth(at(line, x - 2), at(line, x - 1), at(line, x), at(line, x + 1),
                               at(line, x + 2), limits);
    const auto inside = inFrontOf(width - 2, x);
    hn::StoreU(hn::IfThenElseZero(hn::And(tooth, inside), at(across, x)), kBytes, across + x);
  }
  const size_t end = width - 2 - limits.leastRun;
  for (size_t x = 2; x < end; x += lanes) {
    auto isRun = at(across, x);
    for (size_t i = 1; i < limits.leastRun; ++i) isRun = hn::And(isRun, at(across, x + i));
    const auto inside = inFrontOf(end, x);
    counts.noise += hn::CountTrue(kBytes, hn::And(hn::Eq(isRun, one), inside));
  }
  return counts;
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(combs);

CombCounts countCombs(const uint8_t* const* rows, const uint8_t* const* before, size_t width,
                      CombLimits limits, uint8_t* runs, uint8_t* across) {
  return HWY_DYNAMIC_DISPATCH(combs)(rows, before, width, limits, runs, across);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
