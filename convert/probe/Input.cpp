#include "convert/probe/Input.h"

#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include "support/Pipes.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {
namespace fs = std::filesystem;

namespace {

/// What can be said of a file without reading it; "" when nothing speaks against it.
std::string obviousProblem(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) return "Is a directory";
  if (fs::is_regular_file(status) && fs::file_size(path, error) == 0 && !error) {
    return "the file is empty";
  }
  return {};
}

Failure cannotOpen(const std::string& path, const std::string& why) {
  return Failure::input(path, "cannot open " + shownName(path) + ": " + why);
}

std::string reason(const kestrel::Error& error) {
  if (error.code == AVERROR_INVALIDDATA) return "not a media file, or damaged at its beginning";
  if (error.code == AVERROR_EOF) return "the file ends too early";
  if (error.message.empty()) return "unknown error";
  return error.message;
}

}  // namespace

void requireFile(const std::string& path) {
  if (access(path.c_str(), R_OK) != 0)
    throw cannotOpen(path, std::generic_category().message(errno));
  if (const std::string problem = obviousProblem(path); !problem.empty())
    throw cannotOpen(path, problem);
}

void openSource(LMMediaSource& source, const std::string& path, const Interrupt& interrupt) {
  source.setInterrupt(interrupt);
  source.open();
  if (interrupt && interrupt()) throw Failure::interrupted();
  if (!source.isOpen()) throw cannotOpen(path, reason(source.lastError()));
  if (source.formatContext()->nb_streams == 0) throw cannotOpen(path, "it has no streams");
}

namespace {

void requireAngle(const std::optional<int>& title, int angle) {
  if (angle < 1)
    throw Failure::settings(fmt::format("angle: '{}' is not a number from 1", angle), "angle");
  if (angle > 1 && !title)
    throw Failure::settings("angle: it does nothing without a title of a disc", "angle");
}

void requireAllowed(const std::string& path, const Protocols& allowed) {
  const Protocols known = knownProtocols();
  for (const std::string& name : allowed)
    if (std::ranges::find(known, name) == known.end())
      throw Failure::settings(
          fmt::format("protocols: there is no protocol '{}'{}", name, nearestNames(name, known)),
          "protocols");
  const std::string needed = protocolOf(path);
  if (!needed.empty() && std::ranges::find(allowed, needed) == allowed.end())
    throw Failure::settings(
        fmt::format("cannot open '{}': it is no file, and the protocol '{}' is not allowed", path,
                    needed),
        "protocols");
}

std::shared_ptr<LMMediaSource> openFile(const std::string& path, const Interrupt& interrupt,
                                        const Protocols& protocols) {
  requireAllowed(path, protocols);
  if (const std::string problem = obviousProblem(path); !problem.empty())
    throw cannotOpen(path, problem);
  auto source = LMMediaSource::mediaWithPath(path);
  source->setProtocols(protocols);
  openSource(*source, path, interrupt);
  return source;
}

}  // namespace

std::shared_ptr<LMMediaSource> openInput(const std::string& path, std::optional<int> title,
                                         const Interrupt& interrupt, int angle,
                                         const Protocols& protocols) {
  requireAngle(title, angle);
  if (!title) {
    if (isDisc(path))
      throw Failure::settings(
          "cannot open '" + path + "': it is a DVD-Video disc; choose a title of it", "title");
    return openFile(path, interrupt, protocols);
  }
  const auto disc = openDisc(path);
  const DiscTitle chosen = chooseTitle(*disc, *title);
  if (const int angles = chosen.title->angles(); angle > angles)
    throw Failure::settings(
        fmt::format("there is no angle {}: title {} has {}", angle, chosen.number,
                    angles == 1 ? "one" : fmt::format("{}", angles)),
        "angle");
  auto source = std::make_shared<DVDTitleSource>(disc, chosen.set, chosen.title, angle);
  openSource(*source, path, interrupt);
  return source;
}

std::shared_ptr<LMMediaSource> openCopy(const LMMediaSource& source, const std::string& name,
                                        std::optional<int> title, const Interrupt& interrupt) {
  if (title) throw Failure::settings("title: a source of the program's own has none", "title");
  const auto copy = source.copy();
  if (!copy) throw cannotOpen(name, "its source has no copy");
  openSource(*copy, name, interrupt);
  return copy;
}

bool isInterrupted(const LMMediaSource& source) {
  const Interrupt interrupt = source.interrupt();
  return interrupt && interrupt();
}

bool isInterrupted(const LMFFMedia& media) {
  return media.source() && isInterrupted(*media.source());
}

bool isInterrupted(const LMFFMovie& movie) {
  return std::ranges::any_of(movie.medias(),
                             [](const auto& media) { return isInterrupted(*media); });
}

}  // namespace kestrel
