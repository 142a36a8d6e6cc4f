#pragma once

#include <mutex>

namespace kestrel {

/// The process-wide lock under which codecs are opened and closed and streams are probed.
/// Hosts that open codecs of their own beside the engine's rely on it.
std::mutex& codecLock();

}  // namespace kestrel
