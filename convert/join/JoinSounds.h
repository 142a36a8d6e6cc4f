#pragma once

#include <kestrel/LMMovieComposition.h>

#include <cstdint>
#include <string>
#include <vector>

#include <kestrel/convert/ConversionPlan.h>
#include "convert/join/JoinPlan.h"
#include "convert/join/JoinSound.h"

namespace kestrel {

/// The sound tracks of a join that are encoded: how, and the sound of the parts one behind the
/// other. Each is as the first part's is, in rate, channels and depth, unless the settings say
/// otherwise, as far as the encoder and the container take that.
class JoinSounds : public JoinedSound {
 public:
  /// `plan`: of the whole conversion. Times are counted in `base`. `followsPictures`: there are
  /// some in the output.
  JoinSounds(std::vector<JoinPart>& parts, const ConversionPlan& plan, Rational base,
             bool followsPictures);

  std::vector<Track> tracks() const override { return tracks_; }

  /// The samples that `read` hands out.
  const LMFFAudioFormat& format(size_t track) const { return sounds_[track].format(); }

  /// What of the first input's sound is lost, a line for people each.
  const std::vector<std::string>& changes() const { return changes_; }

  // Times of the output are in `base`, those of inputs are microseconds.

  void beginInput(size_t input, int64_t begin, int64_t start, bool follows) override;

  /// The input is over and nothing follows for now.
  void endInput();

  bool goesOn(int64_t time) override;
  Samples read(size_t track, int64_t end) override;
  Samples rest(size_t track, int64_t end) override;

 private:
  void settle();
  int64_t framesAt(int64_t time, const JoinSound& sound) const;

  std::vector<JoinPart>& parts_;
  const Rational base_;
  const bool followsPictures_;
  std::vector<Track> tracks_;
  std::vector<JoinSound> sounds_;
  std::vector<std::string> changes_;
  size_t input_ = 0;
};

}  // namespace kestrel
