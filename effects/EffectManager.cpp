#include <kestrel/ArrayFilter.h>
#include <kestrel/EffectManager.h>
#include <kestrel/FilterRegistry.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "support/Guarded.h"

namespace kestrel {

namespace {

/// Numbers are kept in single precision, colours and vectors in double.
using SettingValue = std::variant<float, Color, Vector>;

struct Setting {
  std::string_view key;
  SettingValue value;
};

struct FilterRow {
  std::string name;
  std::vector<Setting> settings;
};

struct EffectRow {
  std::string name;
  std::string description;
  std::vector<FilterRow> filters;  ///< where there are several, they run one after another
};

FilterRow colorControls(float saturation, float brightness, float contrast) {
  return {"CIColorControls",
          {{kCIInputSaturationKey, saturation},
           {kCIInputBrightnessKey, brightness},
           {kCIInputContrastKey, contrast}}};
}

/// The same without cutting shadows off.
FilterRow withShadows(FilterRow controls, float slope) {
  controls.settings.push_back({"inputShadowSlope", slope});
  return controls;
}

FilterRow monochrome(double red, double green, double blue) {
  return {"CIColorMonochrome",
          {{kCIInputColorKey, Color{red, green, blue, 1}}, {kCIInputIntensityKey, 1.0F}}};
}

FilterRow exposure(float ev) { return {"CIExposureAdjust", {{kCIInputEVKey, ev}}}; }

FilterRow glow(std::string name, float radius) {
  return {std::move(name), {{kCIInputRadiusKey, radius}, {kCIInputIntensityKey, 1.0F}}};
}

FilterRow spotLight() {
  return {"CISpotLight",
          {{"inputLightPosition", Vector(400, 400, 1000)},
           {"inputLightPointsAt", Vector(200, 200, 0)},
           {kCIInputBrightnessKey, 4.5F},
           {"inputConcentration", 1.5F},
           {kCIInputColorKey, Color::white()}}};
}

FilterRow lineScreen() {
  return {"CILineScreen",
          {{kCIInputCenterKey, Vector(0, 0)},
           {kCIInputAngleKey, 180.0F},
           {kCIInputWidthKey, 5.0F},
           {kCIInputSharpnessKey, 0.7F}}};
}

/// The order of the rows is the one in which hosts show the effects.
std::vector<EffectRow> catalogue() {
  return {
      {"1935", "black and white film, strong contrast", {colorControls(0.0F, 0.00949F, 1.353F)}},
      {"1955", "black and white film, washed out bright", {colorControls(0.0F, 0.3592F, 1.6258F)}},
      {"1960", "bright, faded colour film", {colorControls(0.664F, 0.2781F, 1.407F)}},
      {"1970",
       "warm, bright colour film with strong contrast",
       {colorControls(0.8281F, 0.1744F, 1.5788F)}},
      {"Color Invert", "the negative: every colour becomes its opposite", {{"CIColorInvert", {}}}},
      {"Exposure", "overexposed by three stops", {exposure(3.0F)}},
      {"Blur", "out of focus", {{"CIGaussianBlur", {{kCIInputRadiusKey, 10.0F}}}}},
      {"Sharpen",
       "edges stand out strongly",
       {{"CISharpenLuminance", {{kCIInputSharpnessKey, 10.0F}}}}},
      {"Vibrance", "stronger colours", {colorControls(1.58F, -0.02F, 1.08F)}},
      {"Big Softie", "softer colours", {colorControls(0.718F, 0.0F, 1.0F)}},
      {"SpotLight", "a spotlight on one place, the rest in the dark", {spotLight()}},
      {"Line Screen", "black and white lines, as in an old print", {lineScreen()}},
      {"Black White", "shades of grey, a little dark", {monochrome(0.6, 0.6, 0.6)}},
      {"Blackout B&W",
       "shades of grey, brightened",
       {monochrome(0.6, 0.6, 0.6), exposure(2.5478F)}},
      {"Color Control",
       "colours turned to the other side of the colour wheel",
       {{"CIHueAdjust", {{kCIInputAngleKey, 3.14F}}}}},
      {"Monochrome", "shades of violet", {monochrome(132 / 255.0, 97 / 255.0, 0.6)}},
      {"Glow",
       "soft light around what is bright, strong contrast",
       {glow("CIGloom", 30.0F), withShadows(colorControls(1.0F, 0.25F, 2.2F), 0.6F)}},
      {"Gloom", "bright places lose their shine", {glow("CIGloom", 30.0F)}},
      {"Bloom", "bright places shine over their edges", {glow("CIBloom", 40.0F)}},
      {"Pixellate",
       "a mosaic of hexagons",
       {{"CIHexagonalPixellate", {{kCIInputCenterKey, Vector(0, 0)}, {kCIInputScaleKey, 8.0F}}}}},
      {"Bright", "bright, loud colours", {colorControls(1.9F, 0.3F, 1.78F)}},
      {"Copper", "shades of cyan", {monochrome(43 / 255.0, 222 / 255.0, 248 / 255.0)}},
      {"Classical",
       "sepia, as an old photograph",
       {{"CISepiaTone", {{kCIInputIntensityKey, 1.0F}}}}},
      {"New Effection", "shades of orange", {monochrome(252 / 255.0, 146 / 255.0, 41 / 255.0)}},
  };
}

/// Null when nobody registered such a filter.
std::shared_ptr<Filter> makeFilter(const FilterRow& row) {
  auto filter = FilterRegistry::filterWithName(row.name);
  if (!filter) return nullptr;
  for (const Setting& setting : row.settings)
    std::visit([&](const auto& value) { filter->setValue(value, setting.key); }, setting.value);
  return filter;
}

std::shared_ptr<Filter> makeFilter(const EffectRow& row) {
  if (row.filters.size() == 1) return makeFilter(row.filters.front());
  ArrayFilter::Filters members;
  for (const FilterRow& member : row.filters) {
    if (auto filter = makeFilter(member)) members.push_back(std::move(filter));
  }
  auto chain = FilterRegistry::filterWithName("ArrayFilter");
  if (chain) chain->setValue(std::move(members), ArrayFilter::kFiltersKey);
  return chain;
}

EffectManager::Effect copyOf(const EffectManager::Effect& effect) {
  const auto* filter = std::get_if<std::shared_ptr<Filter>>(&effect);
  if (!filter) return effect;
  if (!*filter) return {};
  return (*filter)->copy();
}

}  // namespace

struct EffectManager::State {
  Guarded<std::shared_ptr<const Effects>> effects;
};

EffectManager::EffectManager() : state_(std::make_unique<State>()) { setEffects(makeEffects()); }

EffectManager::~EffectManager() = default;

EffectManager& EffectManager::manager() {
  // Never destroyed: pictures may still be made while the process ends.
  static EffectManager& instance = *new EffectManager;
  return instance;
}

EffectManager::Effect EffectManager::filterWithName(const std::string& name) {
  const auto effects = manager().state_->effects.get();
  const auto found = effects->find(name);
  return found == effects->end() ? Effect{} : copyOf(found->second);
}

std::vector<std::string> EffectManager::allFilterNames() {
  const Effect names = filterWithName(kEffectNamesKey);
  const auto* list = std::get_if<std::vector<std::string>>(&names);
  return list ? *list : std::vector<std::string>{};
}

std::vector<std::shared_ptr<Filter>> EffectManager::allFilters() {
  std::vector<std::shared_ptr<Filter>> filters;
  for (const std::string& name : allFilterNames()) {
    const Effect effect = filterWithName(name);
    const auto* filter = std::get_if<std::shared_ptr<Filter>>(&effect);
    if (filter && *filter) filters.push_back(*filter);
  }
  return filters;
}

std::string EffectManager::descriptionOf(const std::string& name) {
  const auto rows = catalogue();
  const auto found = std::ranges::find(rows, name, &EffectRow::name);
  return found == rows.end() ? std::string() : found->description;
}

EffectManager::Effects EffectManager::makeEffects() {
  ArrayFilter::initialize();
  Effects effects;
  std::vector<std::string> names;
  for (const EffectRow& row : catalogue()) {
    effects[row.name] = makeFilter(row);
    names.push_back(row.name);
  }
  effects[kEffectNamesKey] = std::move(names);
  return effects;
}

EffectManager::Effects EffectManager::effects() const { return *state_->effects.get(); }

void EffectManager::setEffects(Effects effects) {
  state_->effects.set(std::make_shared<const Effects>(std::move(effects)));
}

}  // namespace kestrel
