#pragma once

#include "tools/cli/Command.h"

namespace CLI {
class App;
}

/// `kestrel info`: what is in a media file, as text or as JSON.
void addInfoCommand(CLI::App& app, Run& run);
