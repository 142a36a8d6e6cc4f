#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Report.h>

#include <memory>
#include <string>
#include <vector>

#include "convert/hls/Playlists.h"
#include "convert/probe/InputEnd.h"
#include "convert/run/RunDivision.h"

namespace kestrel {

class LMMediaSource;

/// One way through an input: writes what a plan says, or a part of it, to a file.
class ConversionRun {
 public:
  enum class Part {
    kAll,
    kFirstPass,  ///< the pictures alone go through the encoder, and nothing is written
    kRest,       ///< all but the pictures
    kPictures,   ///< the pictures that are encoded
    kSounds,     ///< the sound that is encoded
  };

  /// `source` is read by this run alone; `info` is of it. The settings name input and output.
  ConversionRun(const ConversionSettings& settings, std::shared_ptr<LMMediaSource> source,
                const MediaInfo& info, ConversionPlan plan, Part part, const Events& events,
                RunDivision division = {});
  ~ConversionRun();
  ConversionRun(const ConversionRun&) = delete;
  ConversionRun& operator=(const ConversionRun&) = delete;

  /// What the first pass told the encoder, for the second.
  void setStatistics(const std::string& statistics);
  std::string statistics() const;

  /// Runs, once. What ends early because of an interrupt returns. Throws `Failure`.
  void write(const std::string& path);

  // Afterwards:

  /// What was carried out: streams that no decoder opens are left out.
  const ConversionPlan& plan() const;

  /// How the input ended; `reached` counts from its start.
  InputEnd inputEnd() const;

  /// Of segments, whose path is a folder: what has been written there.
  const std::vector<Rendition>& renditions() const;

  /// How long the result is, microseconds.
  int64_t length() const;

  /// Of each track whose loudness is set: the gain that it got and what came of it.
  std::vector<LoudnessChange> loudness() const;

  int64_t refusedPackets() const;
  int64_t picturesEncodedToHide() const;

 private:
  class Work;
  std::unique_ptr<Work> work_;
};

}  // namespace kestrel
