#include <kestrel/FilterRegistry.h>

#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "platform/image/filters/Bloom.h"
#include "platform/image/filters/ColorControls.h"
#include "platform/image/filters/ColorInvert.h"
#include "platform/image/filters/ColorMonochrome.h"
#include "platform/image/filters/Compositing.h"
#include "platform/image/filters/ExposureAdjust.h"
#include "platform/image/filters/GaussianBlur.h"
#include "platform/image/filters/Gloom.h"
#include "platform/image/filters/HexagonalPixellate.h"
#include "platform/image/filters/HueAdjust.h"
#include "platform/image/filters/LineScreen.h"
#include "platform/image/filters/SepiaTone.h"
#include "platform/image/filters/SharpenLuminance.h"
#include "platform/image/filters/SpotLight.h"

namespace kestrel {

namespace {

struct Entry {
  FilterRegistry::Constructor constructor;
  FilterAttributes attributes;
};

FilterAttributes describe(const char* displayName, std::string_view category) {
  return {
      displayName,
      {std::string(category), std::string(kCICategoryVideo), std::string(kCICategoryStillImage)}};
}

std::map<std::string, Entry> builtinFilters() {
  return {
      {"CIColorControls",
       {makeColorControls, describe("Color Controls", kCICategoryColorAdjustment)}},
      {"CIHueAdjust", {makeHueAdjust, describe("Hue Adjust", kCICategoryColorAdjustment)}},
      {"CIExposureAdjust",
       {makeExposureAdjust, describe("Exposure Adjust", kCICategoryColorAdjustment)}},
      {"CIColorInvert", {makeColorInvert, describe("Color Invert", kCICategoryColorEffect)}},
      {"CISepiaTone", {makeSepiaTone, describe("Sepia Tone", kCICategoryColorEffect)}},
      {"CIColorMonochrome",
       {makeColorMonochrome, describe("Color Monochrome", kCICategoryColorEffect)}},
      {"CISourceOverCompositing",
       {makeSourceOver, describe("Source Over", kCICategoryCompositeOperation)}},
      {"CISourceInCompositing",
       {makeSourceIn, describe("Source In", kCICategoryCompositeOperation)}},
      {"CIGaussianBlur", {makeGaussianBlur, describe("Gaussian Blur", kCICategoryBlur)}},
      {"CISharpenLuminance",
       {makeSharpenLuminance, describe("Sharpen Luminance", kCICategorySharpen)}},
      {"CIBloom", {makeBloom, describe("Bloom", kCICategoryStylize)}},
      {"CIGloom", {makeGloom, describe("Gloom", kCICategoryStylize)}},
      {"CISpotLight", {makeSpotLight, describe("Spot Light", kCICategoryStylize)}},
      {"CILineScreen", {makeLineScreen, describe("Line Screen", kCICategoryHalftoneEffect)}},
      {"CIHexagonalPixellate",
       {makeHexagonalPixellate, describe("Hexagonal Pixellate", kCICategoryStylize)}},
  };
}

struct Registry {
  std::shared_mutex mutex;
  std::map<std::string, Entry> entries = builtinFilters();
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

void FilterRegistry::registerFilterName(const std::string& name, Constructor constructor,
                                        FilterAttributes classAttributes) {
  if (!constructor) return;
  const std::unique_lock lock(registry().mutex);
  registry().entries[name] = {std::move(constructor), std::move(classAttributes)};
}

std::shared_ptr<Filter> FilterRegistry::filterWithName(const std::string& name) {
  Constructor constructor;
  {
    const std::shared_lock lock(registry().mutex);
    const auto entry = registry().entries.find(name);
    if (entry == registry().entries.end()) return nullptr;
    constructor = entry->second.constructor;
  }
  // Outside of the lock: a constructor may itself ask the registry.
  return constructor(name);
}

std::optional<FilterAttributes> FilterRegistry::attributes(const std::string& name) {
  const std::shared_lock lock(registry().mutex);
  const auto entry = registry().entries.find(name);
  if (entry == registry().entries.end()) return std::nullopt;
  return entry->second.attributes;
}

std::vector<std::string> FilterRegistry::filterNames() {
  const std::shared_lock lock(registry().mutex);
  std::vector<std::string> names;
  for (const auto& [name, entry] : registry().entries) names.push_back(name);
  return names;
}

}  // namespace kestrel
