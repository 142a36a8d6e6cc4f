#pragma once

#include <string_view>

extern "C" {
#include <libavcodec/codec_id.h>
}

struct AVFormatContext;
struct AVOutputFormat;
struct AVStream;

namespace kestrel {

/// Why a codec of sound is an everyday one of a container, so that whoever plays the container
/// plays that, too; "" where it is none. (Muxers take far more than players expect.)
std::string_view everydaySound(const AVOutputFormat& container, AVCodecID codec);

/// Whether a container tells when each packet of sound is heard. In others one packet follows the
/// other, and where some are missing all that is behind them comes early.
bool timesSound(const AVOutputFormat& container);

/// Whether sound of an input is known to begin no later than the input.
bool beginsWithInput(const AVStream& sound, const AVFormatContext& input);

/// Whether it is known to have no holes, besides: its container has no times either, or tells of
/// every packet.
bool isKnownToBeWhole(const AVStream& sound, const AVFormatContext& input);

}  // namespace kestrel
