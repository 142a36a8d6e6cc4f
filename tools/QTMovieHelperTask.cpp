#include <kestrel/Log.h>
#include <kestrel/VideoJoiner.h>
#include <kestrel/VideoJoinerItem.h>

#include <string>
#include <string_view>

#include <kestrel/convert/Join.h>
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/Worker.h"

// The program that `VideoJoiner` runs:
//
//     QTMovieHelperTask joiner ARCHIVE
//
// It joins what the archive says and tells on standard error which way it went.

namespace {

int joinArchive(const std::string& archive) {
  const auto joiner = kestrel::VideoJoiner::joinerWithPath(archive);
  if (!joiner) throw failed("'" + archive + "' holds nothing to join");
  kestrel::JoinSettings settings;
  for (const auto& item : joiner->tracks())
    settings.inputs.push_back(
        {item->path(), item->position(), item->rate() > 0 ? item->rate() : 1});
  if (settings.inputs.empty()) throw failed("there is nothing to join");
  settings.output = joiner->path();
  settings.replaces = true;
  return finish(kestrel::join(settings, {.interrupt = interrupted, .note = say}));
}

}  // namespace

int main(int argc, char** argv) {
  kestrel::setLogSink([](std::string_view line) { say(std::string(line)); });
  return runWorker([&] {
    if (argc != 3 || std::string_view(argv[1]) != "joiner")
      throw wrongUsage("usage: QTMovieHelperTask joiner ARCHIVE");
    return joinArchive(argv[2]);
  });
}
