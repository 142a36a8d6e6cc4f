#pragma once

#include <string>
#include <vector>

#include <kestrel/convert/Join.h>
#include "convert/join/JoinFormat.h"
#include "convert/join/JoinPlan.h"

namespace kestrel {

/// Joins by decoding the parts and encoding them into the format asked for, else the first part's:
/// pictures of other shapes get bars, sound tracks are brought to the rate and channels of the
/// first, a part's rate is applied to both. A part behind another begins with its first picture,
/// and its sound goes on where that of the other ends. Where nothing plays it is black and silent;
/// where a part begins before the one before it has ended, it takes over. Writes `path`, and into
/// the parts how far they were read; answers what is lost of the first part's sound, a line each.
/// Throws `Failure` when it can't be done. `length`, for the progress, is in seconds.
std::vector<std::string> encodeJoin(const JoinSettings& settings, std::vector<JoinPart>& parts,
                                    const JoinFormat& format, double length,
                                    const std::string& path, const Events& events);

}  // namespace kestrel
