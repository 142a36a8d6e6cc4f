#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kestrel::test {

/// What a stream of a file holds, whatever its times and however it is cut into packets.
struct Content {
  int index = 0;       ///< in the file
  std::string type;    ///< "video" or "audio"
  std::string codec;   ///< by FFmpeg's name
  std::string tag;     ///< of the codec in the container
  std::string data;    ///< all packets, one behind the other, in the form that all containers share
  size_t packets = 0;  ///< those that are not empty
  std::vector<size_t> begins;   ///< where each of them begins in `data`
  bool hides = false;           ///< some are decoded and not shown
  std::vector<uint32_t> shown;  ///< checksums of the first pictures
  uint32_t heard = 0;           ///< checksum of all samples
  size_t samples = 0;           ///< their number, in each channel

  std::string name() const { return type + " " + codec; }
  bool isVideo() const { return type == "video"; }

  /// Whether a decoder finds its way in it.
  bool isDecodable() const { return !shown.empty() || samples > 0; }
};

/// The first pictures that are no cover and the first sound of a file, as FFmpeg's libraries read
/// it; empty for what is no file, and without streams of unknown codecs.
std::vector<Content> contentsOf(const std::filesystem::path& file);

/// The same, with nothing decoded.
std::vector<Content> packetsOf(const std::filesystem::path& file);

/// Whether ffmpeg need be asked to copy streams into a file, by the container that its name stands
/// for: false for one that refuses all codecs but its own, if one of these is none of them.
bool mayHold(const std::filesystem::path& file, const std::vector<Content>& contents);

/// Checksums of the pictures that a decoder makes of a file's packets from one on, as many as of
/// its first ones.
std::vector<uint32_t> shownFrom(const std::filesystem::path& file, size_t packet);

}  // namespace kestrel::test
