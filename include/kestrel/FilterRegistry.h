#pragma once

#include <kestrel/Export.h>
#include <kestrel/Filter.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// How user interfaces present a filter.
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

/// The filters of the process, by name. Safe from any thread.
///
/// Built in: CIColorControls, CIHueAdjust, CIExposureAdjust, CIColorInvert, CISepiaTone,
/// CIColorMonochrome, CISourceOverCompositing, CISourceInCompositing, CIGaussianBlur,
/// CISharpenLuminance, CIBloom, CIGloom, CISpotLight, CILineScreen and CIHexagonalPixellate.
class KESTREL_API FilterRegistry {
 public:
  /// Makes a filter with default values. `name` is the name that was asked for.
  using Constructor = std::function<std::shared_ptr<Filter>(const std::string& name)>;

  /// Registers `name`, replacing an earlier registration. An empty constructor is ignored.
  static void registerFilterName(const std::string& name, Constructor constructor,
                                 FilterAttributes classAttributes);

  /// A new filter; null if the name is not registered.
  static std::shared_ptr<Filter> filterWithName(const std::string& name);

  /// The attributes registered with the name; nullopt if it is not registered.
  static std::optional<FilterAttributes> attributes(const std::string& name);

  /// All registered names in alphabetical order.
  static std::vector<std::string> filterNames();
};

}  // namespace kestrel
