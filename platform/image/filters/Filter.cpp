#include <kestrel/Filter.h>

#include <cmath>
#include <utility>

namespace kestrel {

Filter::Filter(std::string name) : name_(std::move(name)) {}

Filter::Filter(const Filter&) = default;

Filter::~Filter() = default;

void Filter::setValue(FilterValue value, std::string_view key) {
  const auto entry = values_.find(key);
  if (std::holds_alternative<std::monostate>(value)) {
    if (entry != values_.end()) values_.erase(entry);
  } else if (entry != values_.end()) {
    entry->second = std::move(value);
  } else {
    values_.emplace(key, std::move(value));
  }
}

FilterValue Filter::valueForKey(std::string_view key) const {
  if (key == kCIOutputImageKey) return outputImage();
  const auto entry = values_.find(key);
  return entry != values_.end() ? entry->second : FilterValue{};
}

template <typename Value>
const Value* Filter::find(std::string_view key) const {
  const auto entry = values_.find(key);
  return entry != values_.end() ? std::get_if<Value>(&entry->second) : nullptr;
}

std::shared_ptr<const Image> Filter::image(std::string_view key) const {
  const auto* value = find<std::shared_ptr<const Image>>(key);
  return value ? *value : nullptr;
}

double Filter::number(std::string_view key, double fallback) const {
  const auto* value = find<double>(key);
  return value && std::isfinite(*value) ? *value : fallback;
}

Color Filter::color(std::string_view key, const Color& fallback) const {
  const auto* value = find<Color>(key);
  return value ? *value : fallback;
}

Vector Filter::vector(std::string_view key, const Vector& fallback) const {
  const auto* value = find<Vector>(key);
  return value ? *value : fallback;
}

}  // namespace kestrel
