#pragma once

#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel {

/// A piece of a rendition that players fetch by itself.
struct Segment {
  std::string file = {};  ///< its name in the rendition's folder
  int64_t duration = 0;   ///< microseconds
  int64_t bytes = 0;
};

/// One stream of a presentation that players take in pieces, as RFC 8216 has it: pictures in one
/// size, sound of one track, or one track of subtitles.
struct Rendition {
  enum class Kind { kPictures, kSound, kSubtitles };

  Kind kind = Kind::kPictures;
  std::string folder = {};  ///< its name beside those of the others
  std::string codec = {};   ///< `codecName`; "" of subtitles
  std::string head = {};    ///< the file that decoders need first; "" for none
  std::vector<Segment> segments = {};

  // Of pictures.
  int32_t width = 0;          ///< pixels, as they are shown
  int32_t height = 0;         ///< pixels
  Rational rate = {0, 1};     ///< pictures per second
  std::string range = {};     ///< of their light: "SDR", "PQ" or "HLG"
  bool isIndependent = true;  ///< each segment is decoded without those before it

  // Of sound and subtitles.
  std::string name = {};      ///< for people; no other of its kind has it
  std::string language = {};  ///< RFC 5646; "": unknown
  bool isDefault = false;
  bool isForced = false;
  int channels = 0;

  int64_t length() const;  ///< microseconds
};

/// The name of a rendition's playlist in its folder.
inline constexpr const char* kPlaylistName = "playlist.m3u8";

/// The longest segment of renditions in whole seconds, which all their playlists tell.
int targetDuration(const std::vector<Rendition>& renditions, Rendition::Kind kind);

/// The most bits per second of neighbouring segments that last between half and one and a half
/// target durations, and the bits per second of all.
int64_t peakRate(const Rendition& rendition, int target);
int64_t meanRate(const Rendition& rendition);

/// The playlist of one rendition: all of its segments, with their lengths.
std::string mediaPlaylist(const Rendition& rendition, int target);

/// The playlist of all: variants to choose from, which are the sizes of the pictures or, where
/// there are none, the first sound, and the sound and subtitles that go with them. `folder`: where
/// their folders lie, as an address.
std::string masterPlaylist(const std::vector<Rendition>& renditions, const std::string& folder);

}  // namespace kestrel
