#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Job.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "convert/conversion/DividedConversion.h"
#include "convert/feed/PictureStretch.h"

namespace kestrel {

/// What the part is called that holds the sound.
inline constexpr const char* kSoundPart = "sound";

/// A part of a job.
struct PlannedPart {
  std::string name = {};
  std::optional<PictureStretch> stretch = {};  ///< of pictures; absent: the sound
  double start = 0;                            ///< seconds after the input's start
  double end = 0;
};

/// The plan of a job: what `plan.json` says.
struct JobPlan {
  std::string id = {};  ///< of all that follows
  std::string input = {};
  std::string output = {};
  bool replaces = false;
  ConversionOptions options = {};
  double stretch = 0;  ///< seconds, as they were asked for
  int threads = 0;
  nlohmann::json files = {};     ///< the fingerprints of what is read, by path
  nlohmann::json versions = {};  ///< of the program and its libraries
  MeasuredInput measured = {};   ///< of the input
  nlohmann::json encoding = {};  ///< what becomes of each stream
  int64_t start = 0;             ///< of the conversion, microseconds
  std::vector<PlannedPart> parts = {};

  const PlannedPart* part(const std::string& name) const;
};

/// The settings of a job's conversion, the same in each worker.
ConversionSettings settingsOf(const JobPlan& plan);

/// What becomes of each stream, whole: two plans with one of these make the same packets.
nlohmann::json encodingOf(const ConversionPlan& plan);

/// What tells a file from others and from itself after a change: its size, and a checksum of pieces
/// from all over it. Throws `Failure`.
nlohmann::json fingerprintOf(const std::string& path);

/// The versions of this program and of what it encodes with.
nlohmann::json ownVersions();

/// Reads and writes `plan.json`. Both throw `Failure`. A folder gets one plan.
JobPlan readJobPlan(const std::string& folder);
void writeJobPlan(const std::string& folder, const JobPlan& plan);

/// Throws a `Failure` where this program, the input or another file that is read is not the planned
/// one.
void requireSame(const JobPlan& plan);

/// The same of how this program would carry it out.
void requireSameEncoding(const JobPlan& plan, const ConversionPlan& conversion);

}  // namespace kestrel
