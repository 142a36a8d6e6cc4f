#pragma once

#include <kestrel/Export.h>

#include <functional>
#include <string_view>

namespace kestrel {

/// Receives one line per event, without a line break.
using LogSink = std::function<void(std::string_view line)>;

/// Replaces the process's log sink; an empty one restores the default, standard error. Safe from
/// any thread; lines logged concurrently go to either sink.
KESTREL_API void setLogSink(LogSink sink);

/// Logs one line. Safe from any thread; calls of the sink are serialised.
KESTREL_API void log(std::string_view line);

}  // namespace kestrel
