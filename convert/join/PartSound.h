#pragma once

#include <kestrel/AudioTempo.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "convert/feed/StreamSound.h"
#include "convert/join/JoinPlan.h"
#include "convert/join/JoinSound.h"

namespace kestrel {

/// One sound track of one part of a join as it plays, at the part's rate and in the format that the
/// whole join has, whose samples are interleaved doubles.
class PartSound : public JoinSound::Part {
 public:
  /// `stream`: its container index. `hasHidden`: begin with the sound that the container has from
  /// before its start and that players leave out.
  PartSound(const JoinPart& part, uint32_t stream, const LMFFAudioFormat& format, bool hasHidden);

  /// Where the first sound that is read lies, frames after the part's start; below 0 for hidden
  /// sound. Silence before it is left out.
  int64_t begin() const { return begin_; }

  int32_t read(double* data, int32_t frames) override;
  InputEnd inputEnd() const override;

 private:
  int32_t readAtOwnRate(double* data, int32_t frames);

  const double rate_;
  const LMFFAudioFormat format_;
  const int channels_;
  LMFFMovie movie_;
  std::optional<StreamSound> sound_;   // none without a decoder
  std::unique_ptr<AudioTempo> tempo_;  // null at the usual rate
  JoinedSound::Samples hidden_;
  size_t hiddenRead_ = 0;
  bool isDrained_ = false;
  int64_t begin_ = 0;
  int64_t reached_ = 0;  // frames of the input's sound, silence included
};

/// What a container has of a sound track from before its start, decoded: files that were cut out of
/// others without encoding begin with it. Empty for most.
JoinedSound::Samples hiddenSound(const JoinInput& input, uint32_t stream,
                                 const LMFFAudioFormat& format, const Interrupt& interrupt);

}  // namespace kestrel
