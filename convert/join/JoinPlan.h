#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kestrel/IndexSet.h>
#include <kestrel/convert/Join.h>
#include <kestrel/convert/MediaInfo.h>
#include "convert/probe/InputEnd.h"

struct AVFormatContext;
struct AVStream;

namespace kestrel {

class LMMediaSource;

/// An input as its user names it: "film.mp4", or "DISC#3" for a title.
std::string nameOf(const JoinInput& input);

/// An input of a join and the streams of it that take part.
struct JoinPart {
  JoinInput input;
  /// Closed, for there may be many inputs, except while its turn is.
  std::shared_ptr<LMMediaSource> source;
  std::shared_ptr<AVFormatContext> outline;
  MediaInfo info;                   ///< of the input
  std::optional<uint32_t> video;    ///< container index of the pictures
  std::vector<uint32_t> audios;     ///< container indexes of the sound tracks
  std::vector<uint32_t> subtitles;  ///< the same of subtitles that are copied along
  IndexSet read = {};               ///< container indexes of what the join has read of it
  InputEnd end = {};                ///< and how far
  /// Nobody wanted more of it than up to there, where the next one begins: microseconds after its
  /// start; none: it was to be read to its end.
  std::optional<int64_t> wanted = std::nullopt;

  /// Closes the source unless it can be read only once.
  void release() const;

  /// Pictures first, then the sound tracks, then subtitles.
  std::vector<AVStream*> streams() const;

  /// The same without the sound tracks.
  std::vector<AVStream*> silentStreams() const;

  /// What is said of them where they are left out after all: their number; "" for none.
  std::string subtitleTracks() const;
};

/// What can be said of a join before anything is copied.
struct JoinPlan {
  std::vector<JoinPart> parts;
  std::vector<std::string> reasons;  ///< why packets cannot be copied; empty where they can
  bool copiesPictures = false;       ///< even so, those of the pictures can
  bool keepsCodecs = true;           ///< what is encoded may keep the first part's codecs
  std::vector<std::string> leftOut;  ///< what of the inputs has no place in the output, a line each
  std::string table;                 ///< what fits and what does not, for people

  std::string reason() const;  ///< all of them in a line
};

/// Looks into the inputs and compares them; throws `Failure` for one that cannot be opened.
JoinPlan planJoin(const JoinSettings& settings, const Interrupt& interrupt);

}  // namespace kestrel
