#pragma once

#include <kestrel/Export.h>
#include <kestrel/Filter.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// What a filter says about itself to those who choose one.
struct FilterAttributes {
  std::string displayName;
  std::vector<std::string> categories;

  bool operator==(const FilterAttributes&) const = default;
};

inline constexpr std::string_view kCICategoryBlur = "CICategoryBlur";
inline constexpr std::string_view kCICategoryColorAdjustment = "CICategoryColorAdjustment";
inline constexpr std::string_view kCICategoryColorEffect = "CICategoryColorEffect";
inline constexpr std::string_view kCICategoryCompositeOperation = "CICategoryCompositeOperation";
inline constexpr std::string_view kCICategoryHalftoneEffect = "CICategoryHalftoneEffect";
inline constexpr std::string_view kCICategorySharpen = "CICategorySharpen";
inline constexpr std::string_view kCICategoryStylize = "CICategoryStylize";
inline constexpr std::string_view kCICategoryVideo = "CICategoryVideo";
inline constexpr std::string_view kCICategoryStillImage = "CICategoryStillImage";
inline constexpr std::string_view kCICategoryInterlaced = "CICategoryInterlaced";
inline constexpr std::string_view kCICategoryNonSquarePixels = "CICategoryNonSquarePixels";

/// The filters of the process, by name.
///
/// The built-in ones are there from the start: CIColorControls, CIHueAdjust, CIExposureAdjust,
/// CIColorInvert, CISepiaTone, CIColorMonochrome, CISourceOverCompositing, CISourceInCompositing,
/// CIGaussianBlur, CISharpenLuminance, CIBloom, CIGloom, CISpotLight, CILineScreen and
/// CIHexagonalPixellate. Any thread may use the registry at any time.
class KESTREL_API FilterRegistry {
 public:
  /// Makes a filter with default values; it is given the name asked for.
  using Constructor = std::function<std::shared_ptr<Filter>(const std::string& name)>;

  /// Makes `name` known. A name that is known already gets the new constructor and attributes; an
  /// empty constructor changes nothing.
  static void registerFilterName(const std::string& name, Constructor constructor,
                                 FilterAttributes classAttributes);

  /// A new filter; null when nobody registered the name.
  static std::shared_ptr<Filter> filterWithName(const std::string& name);

  /// What was registered with the name; nothing when nobody registered it.
  static std::optional<FilterAttributes> attributes(const std::string& name);

  /// All names, in alphabetical order.
  static std::vector<std::string> filterNames();
};

}  // namespace kestrel
