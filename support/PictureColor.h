#pragma once

struct AVFrame;

namespace kestrel {

/// What a frame that names no matrix or no range is taken for, stated in one place.

/// The `AVCOL_SPC_…` of a picture: its own, else BT.709 from 720 lines up and BT.601 below; RGB for
/// RGB pixel formats.
int pictureMatrix(int colorspace, int pixelFormat, int height);

/// The `AVCOL_RANGE_…` of a picture: its own, else full for RGB, grey and the "J" pixel formats,
/// limited for the rest.
int pictureRange(int range, int pixelFormat);

/// Writes a frame's matrix and range into it where it leaves them open.
void tagPictureColor(AVFrame& frame);

}  // namespace kestrel
