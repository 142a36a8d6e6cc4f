#pragma once

#include <kestrel/Export.h>
#include <kestrel/Filter.h>

#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace kestrel {

/// The catalogue of the named looks that a movie can wear: one configured filter per name.
///
/// There is one catalogue in the process. It is built when it is first asked for, which any thread
/// may do, and keeps its filters to itself: everybody gets copies. All operations may be called
/// from any thread.
class KESTREL_API EffectManager {
 public:
  /// What the catalogue holds under a name: a filter, the list of names, or nothing (also a null
  /// filter).
  using Effect = std::variant<std::monostate, std::shared_ptr<Filter>, std::vector<std::string>>;
  using Effects = std::map<std::string, Effect>;

  /// The name under which the catalogue keeps its list of names.
  static constexpr const char* kEffectNamesKey = "effectNames";

  EffectManager(const EffectManager&) = delete;
  EffectManager& operator=(const EffectManager&) = delete;

  /// The catalogue; it lives as long as the process.
  static EffectManager& manager();

  /// A copy of what stands under `name`, nothing for an unknown name. Every call makes a new
  /// filter, which the caller may change. "effectNames" is a name like any other here and gives the
  /// list of names: it is no effect.
  static Effect filterWithName(const std::string& name);

  /// The names of all effects, in the catalogue's order.
  static std::vector<std::string> allFilterNames();

  /// What an effect of the catalogue as it is built does, in a few words for people; "" for any
  /// other name.
  static std::string descriptionOf(const std::string& name);

  /// A new copy of every effect's filter, in the catalogue's order; names without one are skipped.
  static std::vector<std::shared_ptr<Filter>> allFilters();

  /// The catalogue as it is built at first: every effect, and the list of names as "effectNames".
  static Effects makeEffects();

  /// What the catalogue holds; the filters in it are its own and not for change.
  Effects effects() const;
  void setEffects(Effects effects);

 private:
  EffectManager();
  ~EffectManager();

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
