#pragma once

#include <memory>
#include <string>

namespace kestrel {

class LMMediaSource;

/// The text of a subtitle file as UTF-8, whatever its encoding is, as a source that is not opened
/// yet. Null for a file that is UTF-8 already or no text (bitmap subtitles): that can be read as it
/// is.
std::shared_ptr<LMMediaSource> recodedSubtitleFile(const std::string& path);

}  // namespace kestrel
