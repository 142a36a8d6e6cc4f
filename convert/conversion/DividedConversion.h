#pragma once

#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Scanning.h>

#include <memory>
#include <optional>

#include "convert/probe/InputEnd.h"
#include "convert/run/ConversionRun.h"
#include "convert/run/RunDivision.h"

namespace kestrel {

class LMMediaSource;

/// What pictures from all over an input told, for the plan of its conversion.
struct MeasuredInput {
  std::optional<Scanning> scanning = {};
  std::optional<Area> picture = {};  ///< between the black bars, where they are left out
};

/// A conversion that is carried out in parts, each of which plans it alike.
class DividedConversion {
 public:
  /// `measured`: what another one has measured of the same input. Throws as `Conversion`.
  explicit DividedConversion(ConversionSettings settings, const MeasuredInput& measured = {});

  /// As of `Conversion`. All that follows needs it.
  const ConversionPlan& plan(const Events& events);
  const MediaInfo& info() const;
  const MeasuredInput& measured() const;

  /// Another reader of the input.
  std::shared_ptr<LMMediaSource> reader(const Interrupt& interrupt) const;

  /// Makes a part; once. Answers how the input ended for it, `reached` after the conversion's
  /// start. Throws `Failure`, also when interrupted.
  InputEnd writePart(ConversionRun::Part part, RunDivision division, const Events& events);

  /// Puts the parts together; once.
  Report assemble(RunDivision division, const Events& events);

 private:
  Conversion conversion_;
};

}  // namespace kestrel
