#pragma once

#include <kestrel/YUVPicture.h>

#include <memory>
#include <optional>

struct AVFrame;

namespace kestrel {

/// The image engine's view of a frame in planes of luma and chroma, which it reads and writes
/// without RGB in between.
///
/// It has one for 8 to 16 bits of luma with chroma in planes of its own or taking turns in one, for
/// grey, for RGB of more than 8 bits, and for a fourth plane of alpha; matrix and range are the
/// frame's, as `PictureColor.h` resolves them, and chroma of an interlaced frame is by fields.
/// Nothing for every other pixel format, for a matrix that is no mix of red, green and blue, and
/// for a frame without pixels.

/// To read `frame`, which the picture then owns.
std::optional<YUVPicture> yuvPictureOf(std::shared_ptr<const AVFrame> frame);

/// To write into `frame`, whose pixels must outlive the target. Also nothing for grey and for
/// alpha, which such a target does not have.
std::optional<YUVTarget> yuvTargetOf(AVFrame& frame);

/// True for the pixel formats (`AV_PIX_FMT_…`) that `yuvPictureOf` takes.
bool isYuvPlanes(int pixelFormat);

}  // namespace kestrel
