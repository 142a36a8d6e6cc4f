#pragma once

#include <memory>
#include <string>

namespace kestrel {

class LMMediaSource;

/// The text of a subtitle file converted to UTF-8, as an unopened source. Null if the file is
/// already UTF-8 or is not text (bitmap subtitles) and can be read directly.
std::shared_ptr<LMMediaSource> recodedSubtitleFile(const std::string& path);

}  // namespace kestrel
