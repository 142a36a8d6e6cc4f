#include "convert/batch/BatchInputs.h"

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <system_error>

#include "convert/files/SameFile.h"
#include "support/Words.h"

namespace kestrel {

namespace fs = std::filesystem;

namespace {

/// Whether a folder is a disc's, or its folder of movies.
bool isDisc(const fs::path& folder) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    const std::string name = lowerCased(entry.path().filename().string());
    if (name == "video_ts" || name == "video_ts.ifo") return true;
  }
  return false;
}

/// Whether a file's name says that it is a movie or sound, so that one which cannot be read is
/// missed. Programs' texts end in .ts as well.
bool isNamedAsMovie(const fs::path& file) {
  static const std::set<std::string> kExtensions{
      ".mp4",  ".m4v", ".mov", ".mkv",  ".webm", ".avi", ".wmv", ".asf",  ".flv",  ".f4v", ".mpg",
      ".mpeg", ".vob", ".mts", ".m2ts", ".3gp",  ".3g2", ".ogv", ".rm",   ".rmvb", ".mxf", ".divx",
      ".mp3",  ".m4a", ".m4b", ".aac",  ".flac", ".wav", ".ogg", ".oga",  ".opus", ".wma", ".aif",
      ".aiff", ".ac3", ".mka", ".dts",  ".wv",   ".ape", ".mp2", ".eac3", ".tta",  ".amr", ".caf"};
  return kExtensions.contains(lowerCased(file.extension().string()));
}

/// Whether a file has pictures that move, or sound. Photos, texts and lists open, too.
bool isMovie(const std::string& path, const Interrupt& interrupt) {
  try {
    const MediaInfo info = readMediaInfo(path, {}, interrupt);
    const bool isPicture = info.format == "image2" || info.format.ends_with("_pipe");
    const bool hasSound = !info.audioTracks.empty();
    return !isPicture && info.format != "tty" && (info.mainVideo || hasSound);
  } catch (const Failure& failure) {
    if (failure.kind() == Failure::Kind::kInterrupted) throw;
    return false;
  }
}

class Finder {
 public:
  Finder(bool recursive, const std::string& except, const Interrupt& interrupt)
      : recursive_(recursive), except_(except), interrupt_(interrupt) {}

  void take(const std::string& name) {
    std::error_code ignored;
    if (fs::is_directory(name, ignored) && !isDisc(name))
      takeFolder(name, {});
    else
      inputs_.push_back({name, {}});
  }

  std::vector<BatchInput> inputs() { return std::move(inputs_); }

 private:
  void takeFolder(const fs::path& folder, const fs::path& below) {
    std::error_code error;
    std::vector<fs::path> entries;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error))
      entries.push_back(entry->path());
    if (error)
      throw Failure::input(folder.string(), fmt::format("cannot read the folder '{}': {}",
                                                        folder.string(), error.message()));
    std::ranges::sort(entries);
    for (const fs::path& entry : entries) takeEntry(entry, below);
  }

  void takeEntry(const fs::path& entry, const fs::path& below) {
    const std::string name = entry.filename().string();
    if (name.starts_with('.')) return;
    std::error_code ignored;
    if (!fs::is_directory(entry, ignored)) {
      const bool isFile = fs::is_regular_file(entry, ignored);
      if (isFile && (isNamedAsMovie(entry) || isMovie(entry.string(), interrupt_)))
        inputs_.push_back({entry.string(), below});
      return;
    }
    // Links would lead around in circles.
    if (!recursive_ || fs::is_symlink(entry, ignored) || isSameFile(entry.string(), except_))
      return;
    if (isDisc(entry))
      inputs_.push_back({entry.string(), below});
    else
      takeFolder(entry, below / name);
  }

  const bool recursive_;
  const std::string& except_;
  const Interrupt& interrupt_;
  std::vector<BatchInput> inputs_;
};

}  // namespace

std::vector<BatchInput> batchInputs(const std::vector<std::string>& names, bool recursive,
                                    const std::string& exceptFolder, const Interrupt& interrupt) {
  Finder finder(recursive, exceptFolder, interrupt);
  for (const std::string& name : names) finder.take(name);
  return finder.inputs();
}

}  // namespace kestrel
