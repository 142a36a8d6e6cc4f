#include <kestrel/convert/Presets.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <system_error>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/Text.h>
#include "convert/options/BuiltInPresets.h"
#include "convert/plan/SettingsRules.h"

namespace kestrel {

namespace fs = std::filesystem;
using nlohmann::ordered_json;

namespace {

constexpr const char* kDescription = "description";
constexpr const char* kExtension = "ext";

/// What a preset's file is refused for; `where` names the file, or the preset.
Failure refusal(const std::string& where, const std::string& why) {
  return Failure::settings(fmt::format("preset '{}': {}", where, why), where);
}

std::string textOf(const ordered_json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

/// Reads one preset's text, key by key.
class Reader {
 public:
  Reader(std::string where, Preset& preset) : where_(std::move(where)), preset_(preset) {}

  void read(const std::string& text) {
    const auto json = ordered_json::parse(text, nullptr, false);
    if (json.is_discarded()) throw refusal(where_, "it is no JSON");
    if (!json.is_object()) throw refusal(where_, "it is no JSON object");
    for (const auto& [key, value] : json.items()) take(key, value);
    requireValues();
  }

 private:
  void take(const std::string& key, const ordered_json& value) {
    if (key == kDescription || key == kExtension) {
      if (!value.is_string()) throw refusal(where_, fmt::format("{}: it is no text", key));
      (key == kExtension ? preset_.extension : preset_.description) = value;
      return;
    }
    requireKey(key);
    const OptionForm form = formOf(key);
    if (value.is_array() && form == OptionForm::kList)
      for (const auto& one : value) add(key, one, form);
    else
      add(key, value, form);
  }

  void requireKey(const std::string& key) const {
    std::vector<std::string> names{kDescription, kExtension};
    for (const OptionInfo& info : knownConversionOptions()) names.push_back(info.name);
    if (std::ranges::count(names, key) > 0) return;
    throw refusal(where_, fmt::format("unknown key '{}'{}", key, nearestNames(key, names)));
  }

  void add(const std::string& key, const ordered_json& value, OptionForm form) {
    const bool fits =
        form == OptionForm::kSwitch ? value.is_boolean() : value.is_string() || value.is_number();
    if (!fits)
      throw refusal(where_, fmt::format("{}: {} is no {}", key, value.dump(),
                                        form == OptionForm::kSwitch   ? "true or false"
                                        : form == OptionForm::kNumber ? "number"
                                                                      : "text"));
    preset_.options.push_back({key, textOf(value)});
  }

  /// Values that are none, and those that contradict each other.
  void requireValues() const {
    try {
      ConversionSettings settings;
      applyOptions(preset_.options, settings);
      require(settings);
    } catch (const Failure& failure) {
      throw refusal(where_, failure.what());
    }
  }

  const std::string where_;
  Preset& preset_;
};

Preset readFile(const std::string& path) {
  Preset preset{.name = fs::path(path).stem().string(), .path = path};
  std::error_code error;
  if (fs::is_directory(path, error))
    throw Failure::input(path, fmt::format("cannot open '{}': it is a folder", path));
  std::ifstream file(path, std::ios::binary);
  if (!file)
    throw Failure::input(
        path, fmt::format("cannot open '{}': {}", path, std::generic_category().message(errno)));
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  Reader(path, preset).read(text);
  return preset;
}

std::string pathOf(const std::string& name) {
  const std::string folder = presetFolder();
  return folder.empty() ? std::string() : (fs::path(folder) / (name + ".json")).string();
}

bool isPath(const std::string& name) {
  return name.find('/') != std::string::npos || name.ends_with(".json");
}

bool isFile(const std::string& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

/// The files of the user's own, by name.
std::vector<std::string> ownFiles() {
  std::vector<std::string> files;
  std::error_code ignored;
  for (fs::directory_iterator entry(presetFolder(), ignored), end; entry != end;
       entry.increment(ignored))
    if (entry->path().extension() == ".json") files.push_back(entry->path().string());
  std::ranges::sort(files);
  return files;
}

std::vector<std::string> presetNames() {
  std::vector<std::string> names;
  for (const Preset& preset : builtInPresets()) names.push_back(preset.name);
  for (const std::string& file : ownFiles()) names.push_back(fs::path(file).stem().string());
  return names;
}

void requireName(const std::string& name) {
  const bool isPlain = !name.empty() && name.front() != '.' && name.front() != '-' &&
                       std::ranges::none_of(name, [](unsigned char c) { return c < ' '; });
  if (!isPlain || isPath(name))
    throw Failure::settings(fmt::format("'{}' is no name for a preset", name), "preset");
}

/// A value as JSON that `Reader` takes.
ordered_json jsonOf(const ConversionOption& option) {
  const OptionForm form = formOf(option.name);
  if (form == OptionForm::kSwitch) return option.value == "true";
  if (form != OptionForm::kNumber) return option.value;
  const auto number = ordered_json::parse(option.value, nullptr, false);
  return number.is_number() ? number : ordered_json(option.value);
}

}  // namespace

const std::vector<Preset>& builtInPresets() {
  static const std::vector<Preset> kPresets = [] {
    std::vector<Preset> presets;
    for (const auto& [name, text] : kBuiltInPresets) {
      presets.push_back({.name = std::string(name)});
      Reader(presets.back().name, presets.back()).read(std::string(text));
    }
    return presets;
  }();
  return kPresets;
}

std::vector<Preset> readPresets() {
  std::vector<Preset> own;
  for (const std::string& file : ownFiles()) own.push_back(readFile(file));
  std::vector<Preset> all = builtInPresets();
  std::erase_if(all, [&](const Preset& preset) {
    return std::ranges::count(own, preset.name, &Preset::name) > 0;
  });
  all.insert(all.end(), own.begin(), own.end());
  return all;
}

Preset readPreset(const std::string& name) {
  if (isPath(name)) return readFile(name);
  requireName(name);
  if (const std::string own = pathOf(name); isFile(own)) return readFile(own);
  const auto& presets = builtInPresets();
  const auto preset = std::ranges::find(presets, name, &Preset::name);
  if (preset != presets.end()) return *preset;
  const auto names = presetNames();
  const std::string near = nearestNames(name, names);
  throw Failure::settings(
      fmt::format("there is no preset '{}'{}", name,
                  near.empty() ? fmt::format("; there are {}", fmt::join(names, ", ")) : near),
      "preset");
}

std::string presetText(const Preset& preset) {
  auto json = ordered_json::object();
  if (!preset.description.empty()) json[kDescription] = preset.description;
  if (!preset.extension.empty()) json[kExtension] = preset.extension;
  for (const ConversionOption& option : preset.options) {
    if (formOf(option.name) == OptionForm::kList)
      json[option.name].push_back(option.value);
    else
      json[option.name] = jsonOf(option);
  }
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string savePreset(const Preset& preset, bool replaces) {
  requireName(preset.name);
  const std::string text = presetText(preset);
  Preset again;
  Reader(preset.name, again).read(text);
  const std::string path = pathOf(preset.name);
  if (path.empty())
    throw Failure::output("presets", "there is no folder for presets: HOME is not set");
  std::error_code error;
  fs::create_directories(presetFolder(), error);
  if (error)
    throw Failure::output(
        path, fmt::format("cannot make the folder '{}': {}", presetFolder(), error.message()));
  OutputFile file(path, replaces);
  file.write(text);
  file.commit();
  return path;
}

std::string presetFolder() {
  // Relative paths there mean nothing.
  const char* const config = std::getenv("XDG_CONFIG_HOME");
  if (config && *config == '/') return (fs::path(config) / "kestrel/presets").string();
  const char* const home = std::getenv("HOME");
  if (home && *home == '/') return (fs::path(home) / ".config/kestrel/presets").string();
  return {};
}

std::string targetWith(const std::string& target, const Preset& preset) {
  const bool hasOwn = fs::path(target).has_extension();
  return hasOwn || preset.extension.empty() ? target : target + "." + preset.extension;
}

ConversionSettings settingsWith(const Preset& preset, const ConversionOptions& options) {
  ConversionSettings settings{.suitsAnyInput = !preset.options.empty()};
  applyOptions(withDefaults(options, preset.options), settings);
  return settings;
}

}  // namespace kestrel
