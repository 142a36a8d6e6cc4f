#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "convert/cut/CutJob.h"
#include "convert/cut/CutPlan.h"
#include "support/copy/Muxer.h"

namespace kestrel {

/// One sound track of a cut's result.
class CutSound {
 public:
  virtual ~CutSound() = default;

  /// Takes a packet of the track in the input, from before the first window on.
  virtual void take(const AVPacket& packet) = 0;

  /// Whether the input has to be read on for it.
  virtual bool isDone() const = 0;

  /// Writes what belongs before a time of the result, microseconds.
  virtual void pump(int64_t time) = 0;

  virtual void finish() = 0;

  /// What became of it.
  virtual std::vector<CutStretch> stretches() const = 0;

  /// Why it is encoded; "" where it is copied.
  const std::string& why() const { return why_; }

 protected:
  std::string why_;
};

/// A track in a container that has not been started: copied where that can be done to the sample,
/// else encoded. Null where that fails, which is noted in `errors`.
std::unique_ptr<CutSound> openCutSound(const CutJob& job, const AVStream& input,
                                       const std::vector<CutWindow>& windows, Muxer& muxer,
                                       FirstError& errors);

}  // namespace kestrel
