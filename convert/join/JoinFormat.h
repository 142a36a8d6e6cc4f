#pragma once

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Join.h>

#include "convert/join/JoinPlan.h"

namespace kestrel {

/// The conversion of a join's first input into the join's format, as far as that is asked for.
ConversionSettings conversionLike(const JoinSettings& join);

/// How a join encodes what it does not copy.
struct JoinFormat {
  ConversionSettings settings;  ///< what was asked for, with the first part's codecs
  ConversionPlan plan;
};

/// The format asked for, with what it leaves open as in the first part, as far as the container
/// and the encoders allow. `keepsCodecs`: that holds for codecs, too; else they are the
/// container's. Throws `Failure` where it can't be.
JoinFormat formatOfJoin(const JoinSettings& settings, const JoinPart& first, bool keepsCodecs);

/// A part's source, opened while this lives.
class OpenPart {
 public:
  explicit OpenPart(const JoinPart& part);
  ~OpenPart() { part_.release(); }
  OpenPart(const OpenPart&) = delete;
  OpenPart& operator=(const OpenPart&) = delete;

  const LMMediaSource& source() const { return *part_.source; }

 private:
  const JoinPart& part_;
};

}  // namespace kestrel
