#include "Input.h"

#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMMediaSource.h>

#include <filesystem>
#include <system_error>

#include "Disc.h"
#include "Failure.h"
#include "Interrupt.h"

extern "C" {
#include <libavformat/avformat.h>
}

using kestrel::LMDVDTitleSource;
using kestrel::LMMediaSource;
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

std::string reason(const kestrel::Error& error) {
  if (error.code == AVERROR_INVALIDDATA) return "not a media file, or damaged at its beginning";
  if (error.code == AVERROR_EOF) return "the file ends too early";
  if (error.message.empty()) return "unknown error";
  return error.message;
}

}  // namespace

void openSource(LMMediaSource& source, const std::string& path) {
  const auto cannotOpen = [&](const std::string& why) {
    return Failure{kFailed, "cannot open '" + path + "': " + why};
  };
  source.setInterrupt(interrupted);
  source.open();
  if (interrupted()) throw Failure{kInterrupted, "interrupted"};
  if (!source.isOpen()) throw cannotOpen(reason(source.lastError()));
  if (source.formatContext()->nb_streams == 0) throw cannotOpen("it has no streams");
}

namespace {

std::shared_ptr<LMMediaSource> openFile(const std::string& path) {
  if (const std::string problem = obviousProblem(path); !problem.empty())
    throw Failure{kFailed, "cannot open '" + path + "': " + problem};
  auto source = LMMediaSource::mediaWithPath(path);
  openSource(*source, path);
  return source;
}

}  // namespace

std::shared_ptr<LMMediaSource> openInput(const std::string& path) {
  if (isDisc(path))
    throw Failure{kFailed, "cannot open '" + path +
                               "': it is a DVD-Video disc, whose titles 'kestrel dvd' lists and "
                               "'kestrel convert --title' makes files of"};
  return openFile(path);
}

std::shared_ptr<LMMediaSource> openInput(const std::string& path, const std::string& title) {
  if (title.empty()) {
    if (isDisc(path))
      throw wrongUsage("'" + path + "' is a disc: choose a title with --title N or --title main");
    return openFile(path);
  }
  const auto disc = openDisc(path);
  const DiscTitle chosen = chooseTitle(*disc, title);
  auto source = std::make_shared<LMDVDTitleSource>(disc, chosen.set, chosen.title);
  openSource(*source, path);
  return source;
}
