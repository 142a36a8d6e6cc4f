#include <kestrel/ArrayFilter.h>
#include <kestrel/FilterRegistry.h>

#include <mutex>
#include <utility>

#include "support/Guarded.h"

namespace kestrel {

namespace {

constexpr const char* kName = "ArrayFilter";

/// The value where it is of that kind, else an empty one.
template <typename Value>
Value valueOr(FilterValue& value) {
  Value* found = std::get_if<Value>(&value);
  return found ? std::move(*found) : Value{};
}

}  // namespace

struct ArrayFilter::State {
  Guarded<Filters> filters;
  Guarded<std::shared_ptr<const Image>> inputImage;
};

ArrayFilter::ArrayFilter() : Filter(kName), state_(std::make_unique<State>()) {}

ArrayFilter::ArrayFilter(const ArrayFilter& other)
    : Filter(other), state_(std::make_unique<State>()) {
  setInputImage(other.inputImage());
  Filters copies;
  for (const auto& filter : other.filters()) {
    if (auto copy = filter ? filter->copy() : nullptr) copies.push_back(std::move(copy));
  }
  setFilters(std::move(copies));
}

ArrayFilter::~ArrayFilter() = default;

void ArrayFilter::initialize() {
  static std::once_flag once;
  std::call_once(once, [] {
    FilterAttributes attributes{.displayName = "Array Filter", .categories = {}};
    for (const auto category : {kCICategoryColorAdjustment, kCICategoryVideo, kCICategoryStillImage,
                                kCICategoryInterlaced, kCICategoryNonSquarePixels})
      attributes.categories.emplace_back(category);
    FilterRegistry::registerFilterName(kName, filterWithName, std::move(attributes));
  });
}

std::shared_ptr<Filter> ArrayFilter::filterWithName(const std::string& /*name*/) {
  return std::make_shared<ArrayFilter>();
}

ArrayFilter::Filters ArrayFilter::filters() const { return state_->filters.get(); }

void ArrayFilter::setFilters(Filters filters) { state_->filters.set(std::move(filters)); }

std::shared_ptr<const Image> ArrayFilter::inputImage() const { return state_->inputImage.get(); }

void ArrayFilter::setInputImage(std::shared_ptr<const Image> image) {
  state_->inputImage.set(std::move(image));
}

void ArrayFilter::setValue(FilterValue value, std::string_view key) {
  if (key == kFiltersKey)
    setFilters(valueOr<Filters>(value));
  else if (key == kCIInputImageKey)
    setInputImage(valueOr<std::shared_ptr<const Image>>(value));
  else
    Filter::setValue(std::move(value), key);
}

FilterValue ArrayFilter::valueForKey(std::string_view key) const {
  if (key == kFiltersKey) return filters();
  if (key == kCIInputImageKey) return inputImage();
  return Filter::valueForKey(key);
}

std::shared_ptr<const Image> ArrayFilter::outputImage() const {
  auto image = inputImage();
  const FilterValue pixelSize = valueForKey(kInputPixelSizeKey);
  for (const auto& filter : filters()) {
    if (!filter) continue;
    if (!std::holds_alternative<std::monostate>(pixelSize))
      filter->setValue(pixelSize, kInputPixelSizeKey);
    filter->setValue(std::move(image), kCIInputImageKey);
    image = filter->outputImage();
  }
  return image;
}

std::shared_ptr<Filter> ArrayFilter::copy() const {
  return std::shared_ptr<Filter>(new ArrayFilter(*this));
}

}  // namespace kestrel
