#pragma once

#include <kestrel/Protocols.h>
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
/// that has no such angle, is a fault of the settings, and so is what is no file and
/// needs a protocol that is not among `protocols`, with that subject; what is no disc, a title
/// being asked for, is a fault of the input.
std::shared_ptr<LMMediaSource> openInput(const std::string& path, std::optional<int> title,
                                         const Interrupt& interrupt, int angle = 1,
                                         const Protocols& protocols = {});

/// A copy of the program's own source, which people know as `name`, opened. It has no titles, and
/// needs no protocols.
std::shared_ptr<LMMediaSource> openCopy(const LMMediaSource& source, const std::string& name,
                                        std::optional<int> title, const Interrupt& interrupt);

/// The input of a job's settings.
template <typename Settings>
std::shared_ptr<LMMediaSource> openInput(const Settings& settings, const Interrupt& interrupt) {
  if constexpr (requires { settings.source; })
    if (settings.source)
      return openCopy(*settings.source, settings.input, settings.title, interrupt);
  const auto& path = [&]() -> const std::string& {
    if constexpr (requires { settings.input; })
      return settings.input;
    else
      return settings.path;
  }();
  return openInput(path, settings.title, interrupt, settings.angle, settings.protocols);
}

/// Throws a `Failure` for a path that is no file that can be read, or an empty one.
void requireFile(const std::string& path);

/// Opens a source that was made of what `path` names, under the same terms.
void openSource(LMMediaSource& source, const std::string& path, const Interrupt& interrupt);

/// Whether the interrupt of whatever is read there says so.
bool isInterrupted(const LMMediaSource& source);
bool isInterrupted(const LMFFMedia& media);
bool isInterrupted(const LMFFMovie& movie);

}  // namespace kestrel
