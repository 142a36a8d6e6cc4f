#pragma once

#include <kestrel/MovieLook.h>
#include <kestrel/convert/LookSettings.h>

#include <functional>
#include <vector>

#include "convert/values/OptionRow.h"

namespace kestrel {

/// All that is to be known of one setting of a look: how people write it, what it must be, and how
/// it comes to the movie. Options are read, help is written, settings are checked and looks are
/// made by the same table, so that a setting that only has to be handed on is named nowhere else
/// above the engine.
struct LookRow {
  OptionRow<LookSettings> option = {};
  /// Hands it to the movie; none where `Look` works out what becomes of it.
  std::function<void(const LookSettings&, MovieLook&)> hand = {};
  /// Refuses a value that is none; none where there is no such value.
  std::function<void(const LookSettings&)> check = {};
};

/// In the order of the help.
const std::vector<LookRow>& lookTable();

/// Throws the `Failure` of the first setting that is not what it must be (settings/Require.h).
void require(const LookSettings& look);

}  // namespace kestrel
