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

/// What a key of a filter holds; `std::monostate` and null pointers are none.
using FilterValue =
    std::variant<std::monostate, double, Color, Vector, std::shared_ptr<const Image>,
                 std::vector<std::shared_ptr<Filter>>>;

/// The keys that filters share.
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

/// Makes a picture of others, by values that stand under keys.
///
/// A filter is a recipe's maker: `outputImage` touches no pixel, and later changes of the filter do
/// not reach the image it answered. Filters are made by name through `FilterRegistry`, with every
/// value at its default and no image. A value of another kind than the filter wants under that key
/// counts as not set; a key that the filter does not know is kept and has no effect. One thread at
/// a time uses a filter; copies are independent of each other.
class KESTREL_API Filter {
 public:
  explicit Filter(std::string name);
  virtual ~Filter();

  /// The name under which the registry makes it.
  const std::string& name() const { return name_; }

  /// Puts `value` under `key`; none takes it away, after which the default holds again.
  virtual void setValue(FilterValue value, std::string_view key);

  /// What stands under `key`, none where nothing does; under `kCIOutputImageKey` the `outputImage`.
  virtual FilterValue valueForKey(std::string_view key) const;

  /// The recipe for the values as they are now; null when an image that the filter needs is
  /// missing.
  virtual std::shared_ptr<const Image> outputImage() const = 0;

  /// A filter with the same values that may be changed without changing this one. The images are
  /// shared, since they never change.
  virtual std::shared_ptr<Filter> copy() const = 0;

 protected:
  Filter(const Filter&);
  Filter& operator=(const Filter&) = delete;

  /// The value under `key` where it is of that kind, otherwise null or `fallback`. A number counts
  /// only when it is finite.
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
