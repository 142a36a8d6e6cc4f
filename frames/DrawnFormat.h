#pragma once

namespace kestrel {

/// The form of planes (`AV_PIX_FMT_…`) in which pictures are drawn that are to have `pixelFormat`:
/// that itself where images are drawn into it, else, where it has more than 8 bits, one of as many
/// bits, of the same kind of colours and sharing of chroma, without alpha and in the machine's
/// order of bytes. None for 8 bits, which a bitmap holds.
int drawnFormat(int pixelFormat);

}  // namespace kestrel
