#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// One input of a join: a file, or a title of a disc.
struct JoinInput {
  std::string path = {};
  double position = -1;           ///< where it starts, seconds, up to a week; below 0: right behind
  double rate = 1;                ///< how fast it plays, 0.01 to 100
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file
};

/// The format of what a join encodes anew; what is left open is the first input's. Each member
/// means what it does in `ConversionSettings` and has the same range.
struct JoinEncoding {
  std::string videoCodec = {};
  std::optional<int> width = {};
  std::optional<int> height = {};
  std::optional<int> lines = {};
  std::optional<double> scale = {};
  std::optional<Rational> fps = {};
  std::optional<double> aspect = {};
  std::optional<int> videoBitrate = {};
  std::optional<double> crf = {};
  std::string encoderPreset = {};
  ConversionSettings::Options videoOptions = {};
  std::string audioCodec = {};
  std::optional<int> audioBitrate = {};
  std::optional<int> sampleRate = {};
  std::optional<int64_t> channelLayout = {};
  ConversionSettings::Options audioOptions = {};
};

/// How files are to be joined into one; `{}` beside inputs and output means the defaults.
struct JoinSettings {
  enum class Reencode {
    kAuto,    ///< only where packets do not fit together
    kNever,   ///< fail where they do not
    kAlways,  ///< whether they do or not
  };

  std::vector<JoinInput> inputs = {};
  std::string output = {};
  bool replaces = false;  ///< an existing target may be replaced
  Reencode reencode = Reencode::kAuto;
  JoinEncoding format = {};  ///< of what is encoded anew
};

/// Joins files one behind the other or at stated positions: by copying packets where all inputs fit
/// the first one, by copying pictures and encoding sound where only that does not fit or is not
/// held by the container, else by decoding and encoding both in its format. `events.table` is told
/// what fits and what does not, `events.note` which way it goes and why, and `Report::encoded`
/// keeps it. Sound that is encoded has the rate, the channels and the depth of the first input's,
/// as far as encoder and container take them; `events.note` tells what of channels and depth is
/// lost.
///
/// Throws `Failure` when it can't be done; the output appears only when it is whole. Blocks until
/// it is done; several joins run side by side.
KESTREL_API Report join(const JoinSettings& settings, const Events& events = {});

}  // namespace kestrel
