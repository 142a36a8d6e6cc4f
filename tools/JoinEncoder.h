#pragma once

#include <string>
#include <vector>

#include "Join.h"
#include "JoinPlan.h"

/// Joins by decoding the parts and encoding them into the format asked for, else the first part's:
/// pictures of other shapes get bars, sound tracks are brought to the same rate and channels, a
/// part's rate is applied to both. A part behind another begins with its first picture, and its
/// sound goes on where that of the other ends. Where nothing plays it is black and silent; where a
/// part begins before the one before it has ended, it takes over. Writes `path`, and into the parts
/// how far they were read; throws `Failure` when it can't be done. `length`, for the progress, is
/// in seconds.
void encodeJoin(const JoinSettings& settings, std::vector<JoinPart>& parts, double length,
                const std::string& path);
