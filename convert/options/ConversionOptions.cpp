#include <kestrel/convert/ConversionOptions.h>

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include "convert/look/LookTable.h"
#include "convert/options/ConversionTable.h"

namespace kestrel {

namespace {

using C = ConversionSettings;
using L = LookSettings;

const OptionRow<C>* rowOf(const std::string& name) {
  const auto& table = conversionTable();
  const auto row = std::ranges::find(table, name, [](const auto& each) { return each.info.name; });
  return row == table.end() ? nullptr : &*row;
}

const OptionRow<L>* lookRowOf(const std::string& name) {
  for (const LookRow& row : lookTable())
    if (row.option.info.name == name) return &row.option;
  return nullptr;
}

[[noreturn]] void refuseName(const std::string& name) {
  std::vector<std::string> names;
  for (const OptionInfo& info : knownConversionOptions()) names.push_back(info.name);
  throw Failure::settings(fmt::format("there is no option '{}'{}", name, nearestNames(name, names)),
                          name);
}

template <typename Settings>
void apply(const OptionRow<Settings>& row, const ConversionOption& option, Settings& settings) {
  try {
    if (option.value.empty()) throw Failure::settings(option.name + ": the value is empty");
    row.set(settings, option.name, option.value);
  } catch (const Failure& failure) {
    throw Failure::settings(failure.what(), option.name);
  }
}

/// What is said of an option, whichever table it is in.
struct Facts {
  OptionForm form;
  Shapes shapes;
  std::string_view saysTheSame;
  bool ofEncoder;
};

Facts factsOf(const std::string& name) {
  const auto facts = [](const auto& row) {
    return Facts{row.info.form, row.shapes, row.saysTheSame, row.ofEncoder};
  };
  if (const auto* row = rowOf(name)) return facts(*row);
  if (const auto* row = lookRowOf(name)) return facts(*row);
  refuseName(name);
}

/// Options that say more about --target-quality, and nothing without it.
constexpr std::string_view kOfTarget[] = {"per", "unless-smaller", "max-cost", "sample-report"};

/// Whether `strong` leaves no room for `weak`.
bool displaces(const ConversionOption& strong, const ConversionOption& weak) {
  const Facts facts = factsOf(weak.name);
  if (strong.name == weak.name)
    return facts.form != OptionForm::kList || strong.value.substr(0, strong.value.find('=')) ==
                                                  weak.value.substr(0, weak.value.find('='));
  if (!facts.saysTheSame.empty() && factsOf(strong.name).saysTheSame == facts.saysTheSame)
    return true;
  if (strong.name == "chapters" && weak.name == "start") return true;
  if (std::ranges::count(kOfTarget, weak.name) > 0 && strong.name != "target-quality" &&
      factsOf(strong.name).saysTheSame == "quality")
    return true;
  const auto isFormat = [](const std::string& name) { return name == "depth" || name == "chroma"; };
  if ((isFormat(strong.name) && weak.name == "compatible") ||
      (isFormat(weak.name) && strong.name == "compatible"))
    return true;
  const bool isVideo = strong.name == "video-codec";
  if (!isVideo && strong.name != "audio-codec")
    return strong.name == "audio-tracks" && strong.value == "none" &&
           (facts.shapes == Shapes::kSound || weak.name == "audio-codec");
  if (facts.shapes != (isVideo ? Shapes::kPictures : Shapes::kSound)) return false;
  return facts.ofEncoder || strong.value == "copy" || strong.value == "none";
}

}  // namespace

std::vector<OptionInfo> knownConversionOptions() {
  std::vector<OptionInfo> known;
  for (const auto& row : conversionTable()) known.push_back(row.info);
  for (OptionInfo& info : knownLookOptions()) known.push_back(std::move(info));
  return known;
}

std::vector<OptionInfo> knownLookOptions() {
  std::vector<OptionInfo> known;
  for (const LookRow& row : lookTable()) known.push_back(row.option.info);
  return known;
}

OptionForm formOf(const std::string& name) { return factsOf(name).form; }

void applyOptions(const ConversionOptions& options, ConversionSettings& settings) {
  const auto isGiven = [&](std::string_view name) {
    return std::ranges::count(options, name, &ConversionOption::name) > 0;
  };
  if (isGiven("audio-tracks") && isGiven("mix"))
    throw Failure::settings("--audio-tracks and --mix both choose the sound");
  for (const std::string_view name : kOfTarget)
    if (isGiven(name) && !isGiven("target-quality") && !settings.targetQuality)
      throw Failure::settings(fmt::format("--{} does nothing without --target-quality", name));
  for (const ConversionOption& option : options) {
    if (const auto* row = rowOf(option.name))
      apply(*row, option, settings);
    else if (const auto* lookRow = lookRowOf(option.name))
      apply(*lookRow, option, settings.look);
    else
      refuseName(option.name);
  }
}

void applyOptions(const ConversionOptions& options, LookSettings& look) {
  for (const ConversionOption& option : options) {
    const auto* const row = lookRowOf(option.name);
    if (!row) refuseName(option.name);
    apply(*row, option, look);
  }
}

ConversionOptions withDefaults(const ConversionOptions& stronger, const ConversionOptions& weaker) {
  ConversionOptions both;
  for (const ConversionOption& weak : weaker) {
    const auto isAbove = [&](const ConversionOption& strong) { return displaces(strong, weak); };
    if (std::ranges::none_of(stronger, isAbove)) both.push_back(weak);
  }
  both.insert(both.end(), stronger.begin(), stronger.end());
  return both;
}

}  // namespace kestrel
