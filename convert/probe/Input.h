#pragma once

#include <kestrel/convert/Events.h>

#include <memory>
#include <optional>
#include <string>

namespace kestrel {

class LMFFMedia;
class LMFFMovie;
class LMMediaSource;

/// Opens a media file that has at least one stream or, where `title` says so (a number from 1, or
/// `kMainTitle`), one title of a disc as one of its angles (from 1) shows it. The source keeps
/// asking `interrupt` from then on, and whoever reads it asks by `isInterrupted`.
///
/// Throws `Failure` with one sentence when that can't be done. A disc without a title, or with one
/// that has no such angle, is a fault of the settings; what is no disc, a title being asked for, is
/// a fault of the input.
std::shared_ptr<LMMediaSource> openInput(const std::string& path, std::optional<int> title,
                                         const Interrupt& interrupt, int angle = 1);

/// Throws a `Failure` for a path that is no file that can be read, or an empty one.
void requireFile(const std::string& path);

/// Opens a source that was made of what `path` names, under the same terms.
void openSource(LMMediaSource& source, const std::string& path, const Interrupt& interrupt);

/// Whether the interrupt of whatever is read there says so.
bool isInterrupted(const LMMediaSource& source);
bool isInterrupted(const LMFFMedia& media);
bool isInterrupted(const LMFFMovie& movie);

}  // namespace kestrel
