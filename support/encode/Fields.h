#pragma once

#include <string_view>

struct AVCodecContext;
struct AVFrame;

namespace kestrel {

/// Pictures of two fields, on their way into an encoder.

/// Whether an encoder, by FFmpeg's name, codes the two fields of interlaced pictures as such or, if
/// it loses nothing, says of each picture which field is the earlier one. `format`:
/// `AV_PIX_FMT_…`; `height`: pixels.
bool codesFields(std::string_view encoder, int format, int height);

/// Tells an unopened encoder, whose format and height are set, that pictures are interlaced. What
/// it makes of them is marked so, also where it does not code fields.
void configureFields(bool topFieldFirst, AVCodecContext& encoder);

/// Marks a picture as interlaced.
void markFields(AVFrame& picture, bool topFieldFirst);

}  // namespace kestrel
