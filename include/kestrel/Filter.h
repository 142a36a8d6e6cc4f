#pragma once

#include <kestrel/Color.h>
#include <kestrel/Export.h>
#include <kestrel/Image.h>
#include <kestrel/Vector.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kestrel {

class Filter;

/// The value of a filter's key; `std::monostate` and null pointers mean no value.
using FilterValue =
    std::variant<std::monostate, double, Color, Vector, std::shared_ptr<const Image>,
                 std::vector<std::shared_ptr<Filter>>>;

/// Keys used by several filters.
inline constexpr std::string_view kCIInputImageKey = "inputImage";
inline constexpr std::string_view kCIInputBackgroundImageKey = "inputBackgroundImage";
inline constexpr std::string_view kCIInputSaturationKey = "inputSaturation";
inline constexpr std::string_view kCIInputBrightnessKey = "inputBrightness";
inline constexpr std::string_view kCIInputContrastKey = "inputContrast";
inline constexpr std::string_view kCIInputAngleKey = "inputAngle";
inline constexpr std::string_view kCIInputEVKey = "inputEV";
inline constexpr std::string_view kCIInputColorKey = "inputColor";
inline constexpr std::string_view kCIInputIntensityKey = "inputIntensity";
inline constexpr std::string_view kCIInputRadiusKey = "inputRadius";
inline constexpr std::string_view kCIInputSharpnessKey = "inputSharpness";
inline constexpr std::string_view kCIInputCenterKey = "inputCenter";
inline constexpr std::string_view kCIInputWidthKey = "inputWidth";
inline constexpr std::string_view kCIInputScaleKey = "inputScale";
inline constexpr std::string_view kCIOutputImageKey = "outputImage";
/// How many pixels make one of a filter's own (a number, 1 by default): places, radii and widths in
/// pixels are multiplied by it, so that a look is the same in pictures of any size.
inline constexpr std::string_view kInputPixelSizeKey = "inputPixelSize";

/// Makes a picture from others, controlled by values stored under keys.
///
/// `outputImage` returns a recipe: it computes no pixels, and later changes of the filter do not
/// affect it. Filters are created by name through `FilterRegistry`, with default values and no
/// image. A value of the wrong type counts as not set; unknown keys are stored but have no effect.
/// Use a filter from one thread at a time; copies are independent of each other.
class KESTREL_API Filter {
 public:
  explicit Filter(std::string name);
  virtual ~Filter();

  /// The name under which it is registered.
  const std::string& name() const { return name_; }

  /// Sets the value of `key`; no value restores the default.
  virtual void setValue(FilterValue value, std::string_view key);

  /// The value of `key`, if any; for `kCIOutputImageKey` the `outputImage`.
  virtual FilterValue valueForKey(std::string_view key) const;

  /// The recipe for the current values; null if an image that the filter needs is missing.
  virtual std::shared_ptr<const Image> outputImage() const = 0;

  /// An independent filter with the same values. Images are shared, because they never change.
  virtual std::shared_ptr<Filter> copy() const = 0;

 protected:
  Filter(const Filter&);
  Filter& operator=(const Filter&) = delete;

  /// The value of `key` if it has that type, otherwise null or `fallback`. Numbers that are not
  /// finite are ignored.
  std::shared_ptr<const Image> image(std::string_view key) const;
  double number(std::string_view key, double fallback) const;
  Color color(std::string_view key, const Color& fallback) const;
  Vector vector(std::string_view key, const Vector& fallback) const;

 private:
  template <typename Value>
  const Value* find(std::string_view key) const;

  std::string name_;
  std::map<std::string, FilterValue, std::less<>> values_;
};

}  // namespace kestrel
