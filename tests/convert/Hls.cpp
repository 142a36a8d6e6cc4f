#include "tests/convert/Hls.h"

#include <cstdint>
#include <numeric>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/support/FileBytes.h"

namespace kestrel::test {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  if (lines.empty() || lines.front() != "#EXTM3U") throw std::runtime_error("no playlist: " + text);
  return lines;
}

Attributes attributesOf(const std::string& line) {
  static const std::regex kAttribute("[:,]([A-Z-]+)=(?:\"([^\"]*)\"|([^,]*))");
  Attributes attributes;
  for (std::sregex_iterator found(line.begin(), line.end(), kAttribute), end; found != end; ++found)
    attributes[(*found)[1]] = (*found)[2].matched ? (*found)[2] : (*found)[3];
  return attributes;
}

MediaPlaylist readMedia(const fs::path& path) {
  MediaPlaylist playlist{.folder = path.parent_path(), .text = readBytes(path)};
  for (const std::string& line : linesOf(playlist.text)) {
    if (line.starts_with("#EXT-X-MAP:")) playlist.head = attributesOf(line).at("URI");
    if (line.starts_with("#EXT-X-TARGETDURATION:")) playlist.target = std::stoi(line.substr(22));
    if (line.starts_with("#EXTINF:")) playlist.lengths.push_back(std::stod(line.substr(8)));
    if (!line.starts_with("#")) playlist.files.push_back(line);
  }
  if (playlist.files.size() != playlist.lengths.size())
    throw std::runtime_error("lengths and files differ: " + playlist.text);
  return playlist;
}

}  // namespace

double MediaPlaylist::length() const {
  return std::accumulate(lengths.begin(), lengths.end(), 0.0);
}

int64_t MediaPlaylist::bytes() const {
  int64_t sum = 0;
  for (const std::string& file : files) sum += static_cast<int64_t>(fs::file_size(folder / file));
  return sum;
}

MasterPlaylist readHls(const fs::path& master) {
  MasterPlaylist all{.text = readBytes(master)};
  const fs::path folder = master.parent_path();
  const auto lines = linesOf(all.text);
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].starts_with("#EXT-X-STREAM-INF:"))
      all.variants.push_back({attributesOf(lines[i]), readMedia(folder / lines.at(i + 1))});
    if (!lines[i].starts_with("#EXT-X-MEDIA:")) continue;
    const Attributes attributes = attributesOf(lines[i]);
    all.medias.push_back({attributes, readMedia(folder / attributes.at("URI"))});
  }
  return all;
}

}  // namespace kestrel::test
