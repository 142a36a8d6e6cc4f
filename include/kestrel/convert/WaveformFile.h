#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/Waveform.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <optional>
#include <string>

namespace kestrel {

/// The outline of an input's sound, and how much of it there was.
struct DrawnWaveform {
  Waveform waveform = {};
  Report report = {};
};

/// Draws the outline of the sound of a file, or of one title of a disc (a number from 1, or
/// `kMainTitle`) as one of its angles, from 1, shows it; `protocols` are those by which an input
/// may be read that is no file. The settings' own `progress` and `interrupt` are not used: `events`
/// has both. Throws `Failure` for what cannot be opened or drawn; where it is interrupted, the
/// report says so and the waveform is empty.
KESTREL_API DrawnWaveform drawWaveform(const std::string& input, const WaveformSettings& settings,
                                       const Events& events = {}, std::optional<int> title = {},
                                       int angle = 1, const Protocols& protocols = {});

/// A file of a waveform; `{}` beside the two names means the defaults.
struct WaveformFileSettings {
  enum class Form {
    kJson,     ///< the JSON that web players of waveforms read
    kData,     ///< the same in binary
    kPicture,  ///< a PNG picture
  };

  std::string input = {};
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file
  std::string output = {};
  bool replaces = false;  ///< an existing target may be replaced
  Form form = Form::kJson;
  int bits = 16;                   ///< of a number in JSON and data: 8 or 16
  int width = 1200, height = 240;  ///< of a picture: 1 to 16384 pixels, 2^27 in all
  WaveformSettings waveform = {};  ///< a picture gets a point for each of its columns at least
};

/// The form that a file's name asks for: .json, .dat or .png. Throws `Failure` for others.
KESTREL_API WaveformFileSettings::Form waveformFormOf(const std::string& output);

/// Draws a file's waveform into another, which appears only when it is whole.
KESTREL_API Report writeWaveform(const WaveformFileSettings& settings, const Events& events = {});

}  // namespace kestrel
