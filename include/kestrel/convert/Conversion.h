#pragma once

#include <kestrel/Export.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <memory>

namespace kestrel {

/// Converts one file into another.
///
///     ConversionSettings settings{.input = "clip.mov", .output = "clip.mp4"};
///     settings.width = 640;
///     Report report = Conversion(settings).run();
///
/// Files appear under their names only when they are whole: until then the work goes to a partial
/// file beside the target, which is removed when it fails or is interrupted. What cannot be done is
/// thrown as a `Failure`; what was wrong with an input of which there is a result all the same is
/// in the report.
///
/// Use an object from one thread at a time; several objects work side by side. What the events
/// throw passes through `run` to the caller.
class KESTREL_API Conversion {
 public:
  /// Throws a `Failure` for settings that contradict each other or are out of range; nothing is
  /// opened yet.
  explicit Conversion(ConversionSettings settings);
  ~Conversion();
  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  /// What will be done. A host may read it and, before `run`, change any member of it. The first
  /// call opens the input; of the events it polls `interrupt`, and throws where that ends it.
  ConversionPlan& plan(const Events& events = {});

  /// Does what the plan says. `events.progress` counts in the result's time and is called on the
  /// thread that decodes, not on the caller's, while `run` waits.
  ///
  /// An object converts once: after a run that has begun to read, whether it was completed, failed
  /// or was interrupted, a second one throws a `Failure` of the settings. A plan that was refused
  /// may be corrected and run.
  Report run(const Events& events = {});

 private:
  friend class DividedConversion;
  class Work;
  std::unique_ptr<Work> work_;
};

}  // namespace kestrel
