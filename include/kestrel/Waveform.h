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

/// Summary of some consecutive samples of a channel; full scale is 1.
struct WaveformPoint {
  float min = 0;
  float max = 0;
  float rms = 0;  ///< root mean square

  bool operator==(const WaveformPoint&) const = default;
};

/// The outline of an input's sound: one point per channel for every `samplesPerPoint` samples. The
/// last point may cover fewer.
struct Waveform {
  int32_t sampleRate = 0;                            ///< Hz
  int32_t samplesPerPoint = 0;                       ///< samples per channel
  std::vector<std::vector<WaveformPoint>> channels;  ///< points of each channel, equal numbers
  int64_t decodeErrors = 0;                          ///< packets that could not be decoded

  size_t length() const { return channels.empty() ? 0 : channels.front().size(); }
  double pointsPerSecond() const {
    return samplesPerPoint > 0 ? static_cast<double>(sampleRate) / samplesPerPoint : 0;
  }
};

/// The code of the error for a track in `WaveformSettings::tracks` that the input does not have.
inline constexpr int kNoSuchTrack = -0x4B525453;

struct WaveformSettings {
  /// Must be above 0. Rounded so that a point covers a whole number of samples.
  double pointsPerSecond = 100;

  /// The sound tracks to read, by their index among the input's sound tracks; nullopt: the one that
  /// a player would choose. Several tracks must have the same sample rate; each has its own
  /// channels.
  std::optional<IndexSet> tracks = {};

  /// If true, each channel of a track has its own points, instead of the mean of all channels.
  bool splitChannels = false;

  /// Called regularly with the fraction of the input that has been read, 0 to 1, and its seconds.
  std::function<void(double part, double seconds)> progress = {};

  /// Polled; returning true ends the reading soon. Empty: never interrupt.
  std::function<bool()> interrupt = {};
};

/// Decodes an input's sound and computes its outline. Samples count from the input's start: if
/// sound starts more than 0.1 s later, or has a gap of that size, silence is inserted; jumps of a
/// broadcast's clock are not gaps. Sound that changes its rate or channels is converted to those at
/// its beginning. Apart from the points, memory use does not depend on the length.
///
/// Opens the source if necessary, reads it to its end and makes its demuxer discard all other
/// streams. Returns nullopt if there is no sound, it cannot be decoded, its outline would have more
/// than 2^27 points, or the reading is interrupted; `error`, unless null, tells why, with the code
/// `kNoSuchTrack` if a chosen track does not exist.
KESTREL_API std::optional<Waveform> waveformOfSource(const std::shared_ptr<LMMediaSource>& source,
                                                     const WaveformSettings& settings,
                                                     Error* error = nullptr);

}  // namespace kestrel
