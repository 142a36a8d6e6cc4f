#pragma once

#include <kestrel/Export.h>

#include <functional>
#include <string_view>

namespace kestrel {

/// Receives one line per event, without a line end.
using LogSink = std::function<void(std::string_view line)>;

/// Replaces the process's log sink; an empty sink restores the default, standard error.
/// Safe from any thread; lines logged meanwhile go to the one or the other.
KESTREL_API void setLogSink(LogSink sink);

/// Logs one line. Safe from any thread; the sink is called by one thread at a time.
KESTREL_API void log(std::string_view line);

}  // namespace kestrel
