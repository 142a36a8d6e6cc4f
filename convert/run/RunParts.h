#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include "convert/run/ConversionRun.h"

namespace kestrel {

bool isEncodedPictures(const PlannedStream& stream);
bool isEncodedSound(const PlannedStream& stream);

/// A plan for one part of the work. Where pictures alone are encoded, the sound stays part of the
/// movie, which ends where it does, but is not read.
ConversionPlan partOf(ConversionPlan plan, ConversionRun::Part part);

}  // namespace kestrel
