#pragma once

#include <optional>

struct AVFrame;

namespace kestrel {

/// Whether two decoded pictures have the same samples.
bool samplesEqual(const AVFrame& one, const AVFrame& other);

/// The structural similarity of two decoded pictures over all samples, as ffmpeg's `ssim` tells it
/// for all planes together; none where they are not stored alike, or not in planes.
std::optional<double> likeness(const AVFrame& one, const AVFrame& other);

}  // namespace kestrel
