#pragma once

#include <kestrel/Export.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/OptionInfo.h>

#include <string>
#include <vector>

namespace kestrel {

/// A setting as people write it: the name of an option of `kestrel convert` without its dashes
/// ("video-codec"), and its value as on a command line ("4M", "1280x-"); of a switch "true" or
/// "false".
struct ConversionOption {
  std::string name = {};
  std::string value = {};

  bool operator==(const ConversionOption&) const = default;
};

/// In the order in which they were written. An option that takes several values is there for each.
using ConversionOptions = std::vector<ConversionOption>;

/// All options that say how a file is converted, those of one heading together, the look's at the
/// end. The input, the output, and whether that may be replaced are none of them.
KESTREL_API std::vector<OptionInfo> knownConversionOptions();

/// Those of the look alone.
KESTREL_API std::vector<OptionInfo> knownLookOptions();

/// How the value of an option is written. Throws as `applyOptions`.
KESTREL_API OptionForm formOf(const std::string& name);

/// Sets what the options say; all else stays. Throws a `Failure` of the settings, whose subject is
/// the option's name, for one that there is not and for a value that is none.
KESTREL_API void applyOptions(const ConversionOptions& options, ConversionSettings& settings);

/// The same for the options of the look alone.
KESTREL_API void applyOptions(const ConversionOptions& options, LookSettings& look);

/// Both together: an option of `stronger` wins over those of `weaker` that say the same, are
/// excluded by it, or do nothing beside it. A codec, for example, wins over the other codec's own
/// quality, preset and options, and "copy" over all that shapes pictures.
KESTREL_API ConversionOptions withDefaults(const ConversionOptions& stronger,
                                           const ConversionOptions& weaker);

}  // namespace kestrel
