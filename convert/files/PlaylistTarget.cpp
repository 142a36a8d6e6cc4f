#include "convert/files/PlaylistTarget.h"

#include <kestrel/convert/Failure.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>

namespace kestrel {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kExtension = ".segments";

/// Letters that addresses leave as they are (RFC 3986, 2.3).
bool isUnreserved(char letter) {
  return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '.' || letter == '_' ||
         letter == '~';
}

bool names(const std::string& playlist, const std::string& folder) {
  std::ifstream file(playlist);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return text.starts_with("#EXTM3U") && text.find(folder + "/") != std::string::npos;
}

/// A folder's path, where nothing speaks against replacing it.
std::string sensibleFolder(const std::string& playlist) {
  std::string path = segmentFolderBeside(playlist);
  std::error_code ignored;
  if (fs::exists(fs::symlink_status(path, ignored)) && !names(playlist, segmentFolderOf(playlist)))
    throw Failure(Failure::Kind::kExists,
                  "'" + path + "' exists and does not belong to '" + playlist + "'", path);
  return path;
}

}  // namespace

std::string segmentFolderOf(const std::string& playlist) {
  std::string name;
  for (const char letter : fs::path(playlist).stem().string()) {
    if (isUnreserved(letter))
      name += letter;
    else if (!name.empty() && name.back() != '-')
      name += '-';
  }
  while (name.ends_with('-')) name.pop_back();
  return (name.empty() ? "movie" : name) + std::string(kExtension);
}

std::string segmentFolderBeside(const std::string& playlist) {
  return (fs::path(playlist).parent_path() / segmentFolderOf(playlist)).string();
}

PlaylistTarget::PlaylistTarget(const std::string& target, bool replaces, const std::string& input)
    : file_(target, replaces, input),
      folderPath_(sensibleFolder(target)),
      replaces_(replaces),
      folder_(folderPath_) {
  require(folder_.error());
}

void PlaylistTarget::require(const Error& error) const {
  if (error)
    throw Failure::output(file_.target(), "cannot write '" + folderPath_ + "': " + error.message);
}

void PlaylistTarget::commit(const std::string& playlist) {
  file_.write(playlist);
  require(folder_.place(replaces_));
  try {
    file_.commit();
  } catch (const Failure&) {
    folder_.undo();
    throw;
  }
}

}  // namespace kestrel
