#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// A stretch of a movie, microseconds from the movie's start: what begins at `start` or later and
/// before `end`.
struct CutSpan {
  int64_t start = 0;
  std::optional<int64_t> end = {};  ///< absent: the movie's end

  bool operator==(const CutSpan&) const = default;
};

/// What of a movie is to stay; `{}` beside input, output and spans means the defaults.
struct CutSettings {
  enum class Accuracy {
    kExact,  ///< exactly the pictures asked for; those that can't be copied are encoded
    kKey,    ///< whole groups of pictures around them: nothing of the pictures is encoded
  };

  std::string input = {};
  std::string output = {};

  /// What stays, or what goes: one of the two. Rising, without overlap.
  std::vector<CutSpan> keep = {};
  std::vector<CutSpan> drop = {};

  Accuracy accuracy = Accuracy::kExact;
  bool replaces = false;     ///< an existing target may be replaced
  Protocols protocols = {};  ///< by which the input may be read where it is no file
};

/// A stretch of one stream as it went into the result; microseconds from the input's start.
struct CutStretch {
  std::string kind = {};  ///< "video" or "audio"
  uint32_t stream = 0;    ///< the input's, by its place in the container
  int64_t start = 0;
  int64_t end = 0;
  bool isEncoded = false;  ///< else its packets were copied
  int64_t packets = 0;     ///< of the result: pictures, or pieces of sound
  std::string why = {};    ///< it was encoded; "" of what was copied

  /// Of encoded pictures, the lowest likeness (SSIM over all samples) to the input's, decoded.
  std::optional<double> ssim = {};
};

/// What became of a cut.
struct CutReport {
  Report report = {};
  std::vector<CutStretch> stretches = {};

  /// What was decoded again from the result, around each seam, and compared with the input:
  /// pictures whose samples are equal, and pictures that were encoded.
  int64_t seams = 0;
  int64_t equalPictures = 0;
  int64_t alikePictures = 0;
};

/// Cuts a movie without encoding it: groups of pictures that lie within a span are copied, and only
/// what a border leaves of a group is encoded, in the stream's own form, so well that nobody sees
/// it. Sound is copied where the container can hide what is before its first sample, else encoded;
/// subtitles, chapters, tags and attachments are cut at the borders and go along.
///
/// Before the result appears, the pictures around each seam are decoded from it and compared with
/// the input's: samples equal where they were copied, an SSIM of at least 0.98 where they were
/// encoded, none missing, none too many, no error of the decoder. What does not hold is encoded
/// better and, if that does not help, all pictures are; `Report::encoded` says why.
///
/// Throws `Failure` when it can't be done; the output appears only when it is whole. Blocks until
/// it is done.
KESTREL_API CutReport cut(const CutSettings& settings, const Events& events = {});

}  // namespace kestrel
