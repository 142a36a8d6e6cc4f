#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMovieComposition.h>

#include <cstdint>
#include <deque>
#include <memory>

#include "convert/probe/InputEnd.h"

namespace kestrel {

/// A sound track of a join that is encoded: the parts' sound one behind the other, handed out as
/// the pictures go on. Times are frames from the output's start.
///
/// Where a part ends, what is missing of its sound is not yet silence, and what goes on beyond its
/// pictures not yet lost: the next part's sound meets it there.
class JoinSound {
 public:
  using Samples = JoinedSound::Samples;

  /// The sound of one part in the format of the whole.
  class Part {
   public:
    virtual ~Part() = default;

    /// Reads up to `frames`; fewer where it pleases, 0 at the end.
    virtual int32_t read(double* data, int32_t frames) = 0;

    /// How far the input was read, and what was wrong with it.
    virtual InputEnd inputEnd() const = 0;
  };

  explicit JoinSound(const LMFFAudioFormat& format);

  const LMFFAudioFormat& format() const { return format_; }

  /// Sound that goes on for less than this after the last picture belongs to no picture.
  int32_t ordinaryOverhang() const { return format_.sample_rate / 10; }

  /// A part begins at `seam`, its sound having `begin` frames to go until it does, or being so far
  /// ahead below 0; null for a part without this track. The sound before it goes on to there.
  void meet(std::unique_ptr<Part> part, int64_t seam, int64_t begin);

  /// The same where sound follows sound, whatever the pictures do.
  void follow(std::unique_ptr<Part> part);

  /// A part begins at `seam`, and what was before is over.
  void begin(std::unique_ptr<Part> part, int64_t seam, int64_t begin);

  /// The part is over and nothing follows for now.
  void end() { part_.reset(); }

  /// How many frames the part goes on for beyond what was handed out, counting up to `most`.
  int64_t ahead(int64_t most);

  /// Hands out the next sound before a time, up to a second of it, and silence where there is none.
  /// Empty once all of it was, or where more may still come.
  Samples take(int64_t end);

  /// The same of all that is left at the output's end: at least up to `end`.
  Samples rest(int64_t end);

  /// How far the part was read.
  InputEnd inputEnd() const { return part_ ? part_->inputEnd() : InputEnd{}; }

 private:
  int64_t waitingFrames() const { return static_cast<int64_t>(waiting_.size()) / channels_; }
  void drop(int64_t frames);

  const LMFFAudioFormat format_;
  const int channels_;

  // What is to be handed out, in this order:
  std::deque<double> waiting_;  // read and not handed out yet
  int64_t pause_ = 0;           // silence, frames
  std::unique_ptr<Part> part_;

  int64_t frames_ = 0;  // handed out
};

}  // namespace kestrel
