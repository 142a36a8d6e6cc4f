#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <vector>

#include "convert/plan/OutputShape.h"

struct AVOutputFormat;

namespace kestrel {

/// How an output is divided: into fragments of one file, or segments that are files themselves.
/// `container` is the one that the output is named for.

/// Whether MPEG-4 is written in fragments.
bool isFragmented(const ConversionSettings& settings, const AVOutputFormat& container);

/// Plans how long segments are, where the output has any: of pictures, whose rate is planned, a
/// whole number.
void planSegments(ConversionPlan& plan, const ConversionSettings& settings,
                  const AVOutputFormat& container);

/// Plans the sizes of the pictures beside the first, whose encoding is planned.
void planRungs(ConversionPlan& plan, const std::vector<Shape>& shapes);

/// Plans the container's options, when all else is planned. Throws a `Failure` for what the
/// container does not know.
void planFragments(ConversionPlan& plan, const ConversionSettings& settings,
                   const AVOutputFormat& container);

}  // namespace kestrel
