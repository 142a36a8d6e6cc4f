#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "convert/join/PartSound.h"

namespace kestrel {

/// A sound track of a join that is encoded: the parts' sound one behind the other, handed out as
/// the pictures go on, as interleaved float. Times are frames from the output's start.
///
/// Where a part ends, what is missing of its sound is not yet silence, and what goes on beyond its
/// pictures not yet lost: the next part's sound meets it there.
class JoinSound {
 public:
  explicit JoinSound(const LMFFAudioFormat& format);

  const LMFFAudioFormat& format() const { return format_; }

  /// Sound that goes on for less than this after the last picture belongs to no picture.
  int32_t ordinaryOverhang() const { return format_.sample_rate / 10; }

  /// A part begins at `seam`, its sound having `begin` frames to go until it does, or being so far
  /// ahead below 0; null for a part without this track. The sound before it goes on to there.
  void meet(std::unique_ptr<PartSound> part, int64_t seam, int64_t begin);

  /// The same where sound follows sound, whatever the pictures do.
  void follow(std::unique_ptr<PartSound> part);

  /// A part begins at `seam`, and what was before is over.
  void begin(std::unique_ptr<PartSound> part, int64_t seam, int64_t begin);

  /// The part is over and nothing follows for now.
  void end() { part_.reset(); }

  /// How many frames the part goes on for beyond what was handed out, counting up to `most`.
  int32_t ahead(int32_t most);

  /// Hands out the sound up to a time: silence where there is none, unless it may still come.
  std::vector<float> take(int64_t end);

  /// Hands out all that is left at the output's end: at least up to `end`.
  std::vector<float> rest(int64_t end);

  /// How far the part was read.
  InputEnd inputEnd() const { return part_ ? part_->inputEnd() : InputEnd{}; }

 private:
  int64_t waitingFrames() const { return static_cast<int64_t>(waiting_.size()) / channels_; }
  void drop(int64_t frames);

  const LMFFAudioFormat format_;
  const int channels_;

  // What is to be handed out, in this order:
  std::deque<float> waiting_;  // read and not handed out yet
  int64_t pause_ = 0;          // silence, frames
  std::unique_ptr<PartSound> part_;

  int64_t frames_ = 0;  // handed out
};

}  // namespace kestrel
