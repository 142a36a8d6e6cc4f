#pragma once

#include <kestrel/ToneMapping.h>

#include <optional>

struct AVFrame;
struct AVStream;

namespace kestrel {

/// How the samples of a frame stand for light; nothing for SDR. The brightest light is that of the
/// content, else of the mastering display, as the frame or else its stream (null: none) tells it.
std::optional<HdrLight> hdrLightOf(const AVFrame& frame, const AVStream* stream = nullptr);

}  // namespace kestrel
