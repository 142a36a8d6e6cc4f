#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

#include "platform/image/filters/FilterNumbers.h"

namespace kestrel {

/// The part that is the same in every built-in filter: it is copied as what it is.
template <typename Self>
class BuiltinFilter : public Filter {
 public:
  using Filter::Filter;

  std::shared_ptr<Filter> copy() const override {
    return std::make_shared<Self>(static_cast<const Self&>(*this));
  }

 protected:
  BuiltinFilter(const BuiltinFilter&) = default;
};

/// A filter of one image: `Self::apply` makes the output of the input image, and without that image
/// there is none.
template <typename Self>
class OneImageFilter : public BuiltinFilter<Self> {
 public:
  using BuiltinFilter<Self>::BuiltinFilter;

  std::shared_ptr<const Image> outputImage() const override {
    const auto input = this->image(kCIInputImageKey);
    return input ? static_cast<const Self*>(this)->apply(input) : nullptr;
  }

 protected:
  OneImageFilter(const OneImageFilter&) = default;

  /// How many pixels of the picture one of the filter's own is.
  double pixelSize() const { return limitedPixelSize(this->number(kInputPixelSizeKey, 1)); }
};

}  // namespace kestrel
