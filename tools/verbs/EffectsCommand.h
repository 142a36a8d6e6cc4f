#pragma once

#include <string>
#include <string_view>

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// Adds the verb `effects`, which lists the looks that `--effect` knows, and shows them.
void addEffectsCommand(CLI::App& app, Run& run);

/// One line on what an effect of the catalogue does; "" for a name that is none.
std::string_view effectDescription(const std::string& name);
