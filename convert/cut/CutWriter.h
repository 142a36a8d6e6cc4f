#pragma once

#include <memory>
#include <string>
#include <vector>

#include "convert/cut/CutJob.h"
#include "convert/cut/CutPlan.h"
#include "convert/cut/StretchForm.h"

namespace kestrel {

/// What a cut's result came to.
struct CutResult {
  std::string problem = {};  ///< why it is to be tried in another way; "": it is written
  std::vector<CutStretch> stretches = {};
  std::vector<std::string> leftOut = {};
  std::vector<std::string> encoded = {};  ///< of sound, and why
  std::vector<int64_t> shown =
      {};  ///< of each planned picture: when it is shown, by the result's ticks
};

/// Writes the result of a cut. `form`: of what is encoded; null where that is not known and nothing
/// is. `steps`: how much finer than usual. Throws `Failure` when it can't be written.
CutResult writeCut(const CutJob& job, const PicturePlan& plan, StretchForm* form, int steps,
                   const std::string& path);

}  // namespace kestrel
