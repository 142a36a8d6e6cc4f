#pragma once

#include <kestrel/LMFFVideoColor.h>
#include <kestrel/convert/MediaInfo.h>

#include <optional>
#include <string>
#include <vector>

struct AVFrame;
struct AVStream;

namespace kestrel {

/// What is told of the light of HDR pictures, beside streams and beside single pictures.

/// Whether samples stand for more light than that of usual displays: PQ or HLG.
bool isHdr(const VideoColor& color);

/// The light that a container tells of a stream, or a decoder of a picture; empty where none is
/// told.
std::optional<HdrInfo> lightOf(const AVStream& stream);
std::optional<HdrInfo> lightOf(const AVFrame& picture);

/// The names of what each picture of a stream brings along for itself, of which `picture` is the
/// first: HDR10+, Dolby Vision. Encoders write none of it. `picture`: null where it is not known.
std::vector<std::string> changingLightOf(const AVStream& stream, const AVFrame* picture);

/// Whether light can be true and written: places within the colours that there are, and light of
/// displays.
bool isPossible(const HdrInfo& light);

/// Tells the light of a stream that is about to be written, beside its packets.
void tellLight(const HdrInfo& light, AVStream& stream);

}  // namespace kestrel
