#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// Adds the verb `thumb`, which draws single pictures of a movie: one, a contact sheet, or a sheet
/// for web players.
void addThumbCommand(CLI::App& app, Run& run);
