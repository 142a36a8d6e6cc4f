#pragma once

#include <memory>
#include <string>

namespace kestrel {
class LMMediaSource;
}

/// Opens a media file that has at least one stream. Throws `Failure` with one sentence when that
/// can't be done; a signal ends the attempt, too.
std::shared_ptr<kestrel::LMMediaSource> openInput(const std::string& path);
