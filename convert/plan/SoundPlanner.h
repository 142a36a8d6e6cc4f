#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/MediaInfo.h>

#include <vector>

struct AVOutputFormat;

namespace kestrel {

class LMMediaSource;

/// What becomes of the sound tracks of an opened input, of which `info` tells, in a container:
/// those that are kept in the order in which users count them, and those that are left out. Throws
/// `Failure` for what cannot be done. `hasPictures`: the result has some beside the sound.
std::vector<PlannedStream> planSounds(const ConversionSettings& settings,
                                      const LMMediaSource& source, const MediaInfo& info,
                                      const AVOutputFormat& container, bool hasPictures);

/// Whether tracks that are copied are so by choice of the plan: another input or another container
/// might have them encoded, and settings that shape sound are then no contradiction.
bool mayEncodeSound(const ConversionSettings& settings);

}  // namespace kestrel
