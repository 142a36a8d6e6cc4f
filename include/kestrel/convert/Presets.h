#pragma once

#include <kestrel/Export.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/ConversionPlan.h>

#include <string>
#include <vector>

namespace kestrel {

/// Settings of conversions under a name: those that come with the library, and those that users
/// keep in files. A file is a JSON object whose keys are the options, beside "description" and
/// "ext":
///
///     {"description": "for the old tablet", "ext": "mp4", "size": "720p", "quality": 55}
///
/// Values are texts, numbers, `true` and `false`; of options that may be repeated, lists of texts.
struct Preset {
  std::string name = {};
  std::string description = {};    ///< one line for people
  std::string extension = {};      ///< "mp4": the container of targets that name none; "": none
  ConversionOptions options = {};  ///< what it sets
  std::string path = {};           ///< the file that it was read from; "" for the library's own
};

/// The library's own, which never change while the program runs.
KESTREL_API const std::vector<Preset>& builtInPresets();

/// The library's own and, behind them by name, the user's, which hide those of the same name.
/// Throws as `readPreset` where one of the user's is none.
KESTREL_API std::vector<Preset> readPresets();

/// One preset: the user's or the library's of that name, or a file by its path, which has a slash
/// in it or ends in ".json". Throws a `Failure`: of the settings for a name that there is not, and
/// for a key or value in the file that is none, which it names; of the input for a file that cannot
/// be read.
KESTREL_API Preset readPreset(const std::string& name);

/// Makes a preset the user's own, under its name, and answers the file's path. Throws a `Failure`:
/// of the settings for a name that no file can have and for options that are none; of the kind
/// `kExists` where there is one and it may not be replaced; of the output where it cannot be
/// written.
KESTREL_API std::string savePreset(const Preset& preset, bool replaces = false);

/// The preset as a file has it.
KESTREL_API std::string presetText(const Preset& preset);

/// Where the user's own are: "kestrel/presets" in the folder that XDG_CONFIG_HOME names, or else in
/// ".config" of the home folder; "" where neither is known.
KESTREL_API std::string presetFolder();

/// A target's name with a preset's extension, where the name has none and the preset has one.
KESTREL_API std::string targetWith(const std::string& target, const Preset& preset);

/// The settings that a preset comes to, with the options that are given beside it, which win.
KESTREL_API ConversionSettings settingsWith(const Preset& preset,
                                            const ConversionOptions& options = {});

}  // namespace kestrel
