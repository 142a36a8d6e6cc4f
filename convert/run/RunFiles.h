#pragma once

#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/MediaInfo.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "convert/hls/Playlists.h"
#include "convert/hls/SegmentFiles.h"

struct AVFormatContext;
struct AVStream;

namespace kestrel {

/// The files that a run writes: one with all streams or, where the plan is for segments, those of a
/// rendition each: one for every size of the pictures, for each sound, for each track of subtitles.
class RunFiles {
 public:
  /// What a run is about; all of it lasts longer than the files.
  struct Job {
    const ConversionPlan& plan;
    const MediaInfo& info;
    const AVFormatContext& input;
    const std::string& target;  ///< what failures name
    const Interrupt& interrupt;
    std::function<bool(const PlannedStream&)> isWritten;
    std::function<int32_t(const PlannedStream&)>
        samplesOf;  ///< in which sound that is encoded comes
    /// What a stream is whose packets have been made before; null for others.
    std::function<const AVStream*(const PlannedStream&)> madeOf = {};
    LMFFMovieFileOutput::MadePacketTaker take = {};  ///< in place of a file, where there is one
  };

  /// A stream of the plan, and where it is written. Pictures go to several files alike.
  struct Output {
    const PlannedStream* planned = nullptr;
    AVStream* stream = nullptr;  ///< of the first file
    std::vector<LMFFMovieFileOutput*> files = {};
  };

  RunFiles();

  /// The file that pictures are written to, the largest of several.
  LMFFMovieFileOutput& first() { return files_.front(); }
  const LMFFMovieFileOutput& first() const { return files_.front(); }

  /// Opens all and begins them; for segments `path` is the folder that they go to. Throws
  /// `Failure`.
  const std::vector<Output>& open(const Job& job, const std::string& path);

  /// What `open` answered.
  const std::vector<Output>& outputs() const { return outputs_; }

  /// Ends them, each once all has been written.
  void stop();

  /// Throws `Failure`, which names `target`, where one has failed.
  void require(const std::string& target) const;

  int64_t refusedPackets() const;
  int64_t picturesEncodedToHide() const;

  /// Of segments, after the end: writes the playlist of each rendition, and answers the renditions.
  std::vector<Rendition> writePlaylists(const std::string& target);

 private:
  LMFFMovieFileOutput& add();
  void openOne(const Job& job, const std::string& path);
  void openRenditions(const Job& job, const std::string& folder);
  void openPictures(const Job& job, const PlannedStream& planned, const std::string& folder);
  void openSound(const Job& job, const PlannedStream& planned, const std::string& folder);
  void openSubtitles(const Job& job, const PlannedStream& planned, const std::string& folder);
  void begin(const Job& job, LMFFMovieFileOutput& file, Rendition& rendition,
             const std::string& folder);

  std::deque<LMFFMovieFileOutput> files_;
  std::vector<Output> outputs_;
  std::deque<Rendition> renditions_;
  std::deque<SegmentFiles> segments_;
  std::string folder_;
};

}  // namespace kestrel
