#pragma once

#include <cstddef>
#include <cstdint>

/// The inner loops that bring a plane of samples to another size, compiled like those of
/// `platform/image/kernels/Kernels.h`, whose weights they take.
///
/// First rows are mixed, which leaves fewer of them where a picture shrinks; then, `kRowGroup` rows
/// at a time, the samples of a row: the rows stand side by side in vectors, so that taps may begin
/// anywhere.
namespace kestrel::kernels {

/// Rows that are scaled together.
inline constexpr size_t kRowGroup = 8;

/// What a mixed 8-bit sample counts in 16 bits: there is room on both sides for what a curve with
/// negative lobes overshoots.
inline constexpr int kMixedScale = 64;

/// out[i] = `kMixedScale` × the weighted sum of samples i of `taps` rows, rounded.
void mixSamples8(const uint8_t* const* rows, const int16_t* weights, int taps, size_t samples,
                 int16_t* out);

/// The same of samples in two bytes, which count as they are.
void mixSamples16(const uint16_t* const* rows, const int16_t* weights, int taps, size_t samples,
                  float* out);

/// Along a row: sample i of the result is mixed of 2 × `pairs` samples from `first[i]` on, which is
/// even, by the weights from 2 × `pairs` × i on.
struct PlaneTaps {
  const int32_t* first;
  const int16_t* weights;
  int pairs;
};

/// Rows of `length` mixed samples, an even number, to samples of 8 bits, clamped and rounded.
/// `scratch` has `kRowGroup` × `length` / 2 values.
void scaleRows8(const int16_t* const* rows, size_t length, const PlaneTaps& taps, size_t samples,
                int32_t* scratch, uint8_t* const* out);

/// Samples of two bytes: 0 to `most`, stored in the source as 2^`sourceShift` times what they are
/// and in the result as 2^`shift` times.
struct WideSamples {
  int most;
  int sourceShift;
  int shift;
};

/// The same to samples in two bytes. `scratch` has `kRowGroup` × `length` values.
void scaleRows16(const float* const* rows, size_t length, const PlaneTaps& taps, size_t samples,
                 const WideSamples& kind, float* scratch, uint16_t* const* out);

}  // namespace kestrel::kernels
