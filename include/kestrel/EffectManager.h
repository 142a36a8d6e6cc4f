#pragma once

#include <kestrel/Export.h>
#include <kestrel/Filter.h>

#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace kestrel {

/// The catalogue of named effects for movies: one configured filter per name.
///
/// There is one catalogue per process, built on first use. It keeps its filters private and returns
/// copies. All operations are safe from any thread.
class KESTREL_API EffectManager {
 public:
  /// An entry of the catalogue: a filter, the list of names, or nothing (also as a null filter).
  using Effect = std::variant<std::monostate, std::shared_ptr<Filter>, std::vector<std::string>>;
  using Effects = std::map<std::string, Effect>;

  /// The name of the entry with the list of names.
  static constexpr const char* kEffectNamesKey = "effectNames";

  EffectManager(const EffectManager&) = delete;
  EffectManager& operator=(const EffectManager&) = delete;

  /// The catalogue, which exists until the process ends.
  static EffectManager& manager();

  /// A copy of the entry `name`; nothing for an unknown name. Each call returns a new filter, which
  /// the caller may change. "effectNames" works here too and returns the list of names.
  static Effect filterWithName(const std::string& name);

  /// The names of all effects, in catalogue order.
  static std::vector<std::string> allFilterNames();

  /// A short description for users of one of the built-in effects; "" for any other name.
  static std::string descriptionOf(const std::string& name);

  /// New copies of all effects' filters, in catalogue order; entries without a filter are skipped.
  static std::vector<std::shared_ptr<Filter>> allFilters();

  /// The initial catalogue: all effects, and the list of names under "effectNames".
  static Effects makeEffects();

  /// The contents of the catalogue. Do not modify the filters in it: they are not copies.
  Effects effects() const;
  void setEffects(Effects effects);

 private:
  EffectManager();
  ~EffectManager();

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
