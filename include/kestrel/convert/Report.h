#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {

/// What became of a sound track for which a loudness was asked for (EBU R 128, integrated).
struct LoudnessChange {
  uint32_t stream = 0;                ///< by its place among the sound tracks of the result, from 0
  std::optional<double> before = {};  ///< LUFS, mixed and resampled; absent: silence, left as it is
  double gain = 0;                    ///< dB
  std::optional<double> after = {};   ///< LUFS, before it is encoded; absent: silence
  bool isLimited = false;             ///< peaks were turned down to a true peak of -1 dB
};

/// What came of pictures that were to have a certain likeness to their source; scores of
/// SSIMULACRA 2, measured in the result.
struct QualityReached {
  double target = 0;       ///< the 5th percentile that was asked for
  double percentile5 = 0;  ///< the one that there is
  double mean = 0;
  double least = 0;
  int64_t measured = 0;     ///< pictures of the result that were scored
  double crf = 0;           ///< what the encoder was told; per scene the mean, by time
  int probes = 0;           ///< how often samples were encoded
  int encodes = 0;          ///< how often the whole was
  bool isCopied = false;    ///< the source was small enough: its pictures were copied
  std::string remark = {};  ///< why the target was missed, or why nothing was copied; or ""
};

/// What came of a piece of work that has not failed.
struct Report {
  enum class Outcome {
    kDone,         ///< the result is all that was asked for
    kDoneInPart,   ///< there is a result, but the input ended early or was damaged: see `findings`
    kInterrupted,  ///< the host ended it; there is no result
  };

  Outcome outcome = Outcome::kDone;

  /// Where the input's data ended, and where it had promised to end (absent: it promised nothing);
  /// microseconds after its start. Conversions, pictures, waveforms and players fill them. Joins
  /// and compositions have several inputs and leave them at 0 and absent: their findings name each.
  int64_t reached = 0;
  std::optional<int64_t> promised = {};

  std::vector<std::string> findings = {};  ///< what was wrong with the input, a sentence each
  std::vector<std::string> leftOut = {};   ///< what of it is not in the result, likewise

  /// What was encoded anew where packets were to be copied, and why, likewise.
  std::vector<std::string> encoded = {};

  /// Of sound whose loudness was set; in the order of the result's tracks.
  std::vector<LoudnessChange> loudness = {};

  /// Of pictures that were encoded to a quality.
  std::optional<QualityReached> quality = {};

  bool isWhole() const { return outcome == Outcome::kDone; }

  /// Adds a finding: the result is done in part at best.
  void find(std::string finding) {
    findings.push_back(std::move(finding));
    if (outcome == Outcome::kDone) outcome = Outcome::kDoneInPart;
  }

  static Report interrupted() { return {.outcome = Outcome::kInterrupted}; }
};

}  // namespace kestrel
