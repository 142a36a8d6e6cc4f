#pragma once

#include <kestrel/convert/Encoders.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

struct AVCodec;

namespace kestrel {

/// What is known of an encoder beside what its library tells.
struct EncoderRow {
  std::string_view name;
  std::string_view qualityOption = {};  ///< "": it has no scale
  double best = 0;
  double worst = 0;
  double usual = 0;
  std::string_view presetOption = {};  ///< "": it has no presets
  std::string_view usualPreset = {};
  int lastPreset = -1;  ///< presets are numbers from 0 to this, or below 0 those of x264

  /// Other options that a conversion sets, "key=value" with colons between.
  std::string_view options = {};

  /// How many points of SSIMULACRA 2 a step of its quality costs, about; 0: not known. What the
  /// usual value comes to is `kUsualScore`.
  double scorePerStep = 0;
  bool hasFractions = false;  ///< of steps
  bool hasZones = false;      ///< spans of pictures can have a quality of their own

  static constexpr double kUsualScore = 72;

  std::optional<QualityScale> quality() const;
  std::vector<std::string> presets() const;
  std::map<std::string, std::string> otherOptions() const;
};

/// How an encoder is told in a second pass what it found in the first.
enum class PassLog {
  kNone,         ///< it knows one pass
  kMemory,       ///< the library hands it over
  kStatsOption,  ///< in a file that its option "stats" names
  kX265Params,   ///< likewise, among the options of its own
};

PassLog passLogOf(std::string_view encoder);

/// Null for an encoder of which nothing is known.
const EncoderRow* encoderRow(std::string_view name);

/// Whether an encoder runs on a device, or may: a graphics card, a chip.
bool isOfDevice(const AVCodec& encoder);

/// The first of some encoders that is no experiment and is not bound to a device that does not
/// open, those without a device before the others; null for none.
const AVCodec* firstUsable(const std::vector<const AVCodec*>& encoders,
                           const std::function<bool(const AVCodec&)>& opens);

/// The encoder that a conversion uses for a codec: the best of those that work here, else the first
/// that there is; null for none.
const AVCodec* bestEncoder(AVCodecID codec);

/// A place on one scale for all encoders, 0 (worst) to 100 (best), in an encoder's own numbers: its
/// usual value lies at `kUsualQuality`, and between there and the ends it goes straight, but for
/// quantisers: above, these are halved by every ten places until they are at their best.
double qualityAt(const QualityScale& scale, double quality);

inline constexpr double kUsualQuality = 60;

}  // namespace kestrel
