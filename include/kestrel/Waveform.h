#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/IndexSet.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kestrel {

class LMMediaSource;

/// What a stretch of one channel's samples comes to, full scale being 1.
struct WaveformPoint {
  float min = 0;
  float max = 0;
  float rms = 0;  ///< root mean square

  bool operator==(const WaveformPoint&) const = default;
};

/// The outline of an input's sound: for every stretch of `samplesPerPoint` samples one point a
/// channel. The last stretch may be shorter.
struct Waveform {
  int32_t sampleRate = 0;                            ///< samples per second and channel
  int32_t samplesPerPoint = 0;                       ///< samples per channel
  std::vector<std::vector<WaveformPoint>> channels;  ///< the points of each, all as many
  int64_t decodeErrors = 0;                          ///< packets that could not be decoded

  size_t length() const { return channels.empty() ? 0 : channels.front().size(); }
  double pointsPerSecond() const {
    return samplesPerPoint > 0 ? static_cast<double>(sampleRate) / samplesPerPoint : 0;
  }
};

struct WaveformSettings {
  /// As many, above 0, as a whole number of samples comes to.
  double pointsPerSecond = 100;

  /// The sound tracks to read, by their numbers among the input's sound tracks; absent: the one
  /// that a player would choose. Several need the same rate; each has channels of its own.
  std::optional<IndexSet> tracks = {};

  /// A point for every channel of a track, instead of one for the mean of them.
  bool splitChannels = false;

  /// Told now and then how much of the input has been read, 0 to 1, and how many seconds.
  std::function<void(double part, double seconds)> progress = {};

  /// Asked now and then; true ends the reading soon. Empty: never.
  std::function<bool()> interrupt = {};
};

/// Decodes an input's sound and draws its outline. Samples count from the input's start: where the
/// sound begins later than that by more than a tenth of a second, or has a hole of that size, there
/// is silence; a clock that a broadcast sets anew on the way is no hole. Sound that changes its
/// rate or channels on the way goes on with those that it began with. Beside the points, memory
/// does not grow with the length.
///
/// The source is opened if need be and read to its end. None when there is no sound, when it cannot
/// be decoded, when its outline would have more than 2^27 points, and when interrupted; `error`,
/// where given, tells why.
KESTREL_API std::optional<Waveform> waveformOfSource(const std::shared_ptr<LMMediaSource>& source,
                                                     const WaveformSettings& settings,
                                                     Error* error = nullptr);

}  // namespace kestrel
