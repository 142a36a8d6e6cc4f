#pragma once

#include <kestrel/Export.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <functional>
#include <string>
#include <vector>

namespace kestrel {

/// One input of a join.
struct JoinInput {
  std::string path = {};
  double position = -1;  ///< where it starts, seconds, up to a week; below 0: right behind
  double rate = 1;       ///< how fast it plays, 0.01 to 100
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

  /// The format of what is encoded anew: codecs and their options, size, shape, rates, sound's
  /// layout. What is left open is the first input's. The rest of such a record (its files, span,
  /// tracks, look, volume, deinterlacing, and what becomes of a stream) has no sense here and is
  /// refused where it is set.
  ConversionSettings format = {};

  /// Told what fits and what does not, as a table for people, before anything is written.
  std::function<void(const std::string& table)> table = {};
};

/// Joins files one behind the other or at stated positions: by copying packets where all inputs fit
/// the first one, by copying pictures and encoding sound where only that does not fit, else by
/// decoding and encoding both in its format. `events.note` is told which way it goes and why, and
/// `Report::encoded` keeps it. Sound that is encoded has the rate, the channels and the depth of
/// the first input's, as far as its encoder takes them.
///
/// Throws `Failure` when it can't be done; the output appears only when it is whole. Blocks until
/// it is done; several joins run side by side.
KESTREL_API Report join(const JoinSettings& settings, const Events& events = {});

}  // namespace kestrel
