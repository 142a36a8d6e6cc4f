#pragma once

#include <memory>
#include <string>

namespace kestrel {
class LMMediaSource;
}

/// Opens a media file that has at least one stream. Throws `Failure` with one sentence when that
/// can't be done, as with a disc; a signal ends the attempt, too.
std::shared_ptr<kestrel::LMMediaSource> openInput(const std::string& path);

/// The same of one title of a disc, or of a file where `title` is "". A disc without a title is
/// wrong usage, and so is a title of a file.
std::shared_ptr<kestrel::LMMediaSource> openInput(const std::string& path,
                                                  const std::string& title);

/// Opens a source that was made of what `path` names, under the same terms.
void openSource(kestrel::LMMediaSource& source, const std::string& path);
