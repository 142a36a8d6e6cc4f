#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVDMedia.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrel {

/// A range of sectors, both ends inclusive, counted within the title VOBs of the title set.
struct LMDVDSectors {
  uint32_t first = 0;
  uint32_t last = 0;

  bool operator==(const LMDVDSectors&) const = default;
};

using DVDSectors = LMDVDSectors;

/// A cell of a title: a part of a VOB, played from its first to its last sector.
struct LMDVDCell {
  uint32_t first_sector = 0;  ///< counted within the title VOBs of the title set
  uint32_t last_sector = 0;
  uint32_t last_vobu_sector = 0;  ///< start of the cell's last unit
  int32_t vob_id = 0;
  bool restartsClock = false;  ///< its time stamps do not continue those of the previous cell
  int64_t duration = 0;        ///< as stated on the disc, microseconds

  /// The cell's own sectors if other angles are interleaved with them; empty: all sectors are its
  /// own.
  std::vector<LMDVDSectors> pieces;

  bool operator==(const LMDVDCell&) const = default;
};

using DVDCell = LMDVDCell;

/// For whom a track is made, as the disc states it.
enum class LMDVDTrackKind {
  kUnspecified,
  kNormal,
  kVisuallyImpaired,     ///< sound that tells what is to be seen
  kCommentary,           ///< the director's comments
  kAlternateCommentary,  ///< another sound of comments
  kLarge,                ///< subpictures in large letters
  kChildren,             ///< subpictures for children
  kCaptions,             ///< subpictures that tell what is to be heard, too
  kLargeCaptions,
  kChildrensCaptions,
  kForced,  ///< subpictures that are shown whether or not their track is chosen
  kLargeCommentary,
  kChildrensCommentary,
};

using DVDTrackKind = LMDVDTrackKind;

/// A kind in lower case and hyphens, such as "normal" or "visually-impaired"; "" for unspecified.
KESTREL_API const char* nameOf(LMDVDTrackKind kind);

/// A sound or subpicture track of a title.
struct LMDVDTrack {
  uint32_t track = 0;  ///< index among the title's tracks of its kind, from 0
  /// Id of its container stream; the low four bits are the track's number in a movie.
  int32_t stream_id = 0;
  std::string language;     ///< two letters; "" if the disc does not state one
  std::string name;         ///< display name of the language; "" if unknown
  int32_t channels = 0;     ///< sound only, as stated on the disc
  int32_t sample_rate = 0;  ///< Hz; sound only, as stated on the disc
  std::string codec = {};   ///< "ac3", "mp2", "pcm_dvd", "dts" or "dvd_subtitle"; "" if unknown
  int32_t bits = 0;         ///< of a sample, as stated; LPCM only: 16, 20 or 24, else 0
  bool isSurround = false;  ///< two channels that hold a surround sound by matrix, as stated
  LMDVDTrackKind kind = LMDVDTrackKind::kUnspecified;

  bool operator==(const LMDVDTrack&) const = default;
};

using DVDTrack = LMDVDTrack;

/// How the pictures of a title set are made, as the disc states it. What the pictures themselves
/// say, which players go by, may differ: see `LMDVDSource::pictureFacts`.
struct LMDVDVideo {
  std::string codec;              ///< "mpeg1video" or "mpeg2video"; "" if unknown
  std::string standard;           ///< "PAL" or "NTSC"; "" if unknown
  int32_t width = 0, height = 0;  ///< pixels; 0 if unknown
  Rational aspect{0, 1};          ///< 4:3 or 16:9; 0/1 if unknown
  bool isLetterboxed = false;     ///< black bars above and below are part of 4:3 pictures
  bool allowsLetterbox = false;   ///< 16:9 pictures may be shown on 4:3 screens with bars,
  bool allowsPanScan = false;     ///< or cut at their sides
  bool isFilm = false;            ///< filmed by a film camera, of PAL only
  bool hasCaptions = false;       ///< closed captions lie in either field, of NTSC only

  bool operator==(const LMDVDVideo&) const = default;
};

using DVDVideo = LMDVDVideo;

/// A title: a program chain of a title set, with its sectors and the disc's description of it.
///
/// Made by `LMDVD::open` and not changed afterwards, so any thread may read it.
class KESTREL_API LMDVDTitle {
 public:
  /// The index of the program chain in its title set, from 0.
  int32_t title() const { return title_; }
  void setTitle(int32_t title) { title_ = title; }

  /// The runs of all cells of all angles; adjacent cells of one VOB form one run.
  const std::vector<std::shared_ptr<LMDVDMedia>>& medias() const { return medias_; }
  void setMedias(std::vector<std::shared_ptr<LMDVDMedia>> medias) { medias_ = std::move(medias); }

  /// The sixteen colours of the subpictures; never null.
  const SubtitlePalette* palette() const { return &palette_; }
  void setPalette(const SubtitlePalette& palette) { palette_ = palette; }

  /// The total number of sectors of all runs, modulo 2^32.
  uint32_t sector_count() const;

  /// "title:0 count:1023".
  std::string description() const;

  /// The duration as stated on the disc, microseconds.
  int64_t duration() const { return duration_; }
  void setDuration(int64_t duration) { duration_ = duration; }

  /// The cells in playback order; if there are several angles, those of the first.
  const std::vector<LMDVDCell>& cells() const { return cells(1); }

  /// The cells in playback order as one angle shows them, which counts from 1 to `angles()`. All
  /// angles have the same number of cells. A stretch that has fewer angles shows its first.
  const std::vector<LMDVDCell>& cells(int32_t angle) const;

  /// How many angles there are: 1 where nothing can be chosen.
  int32_t angles() const { return static_cast<int32_t>(cells_.size()); }

  /// The cells of each angle, the first one first.
  void setCells(std::vector<std::vector<LMDVDCell>> angles);

  /// The indexes of the cells at which chapters begin, in ascending order.
  const std::vector<size_t>& chapters() const { return chapters_; }
  void setChapters(std::vector<size_t> cells) { chapters_ = std::move(cells); }

  /// The start times of the chapters as stated on the disc, microseconds from the title's start.
  std::vector<int64_t> chapterTimes() const;

  /// The title's tracks, in the disc's order.
  const std::vector<LMDVDTrack>& audioTracks() const { return audioTracks_; }
  void setAudioTracks(std::vector<LMDVDTrack> tracks) { audioTracks_ = std::move(tracks); }
  const std::vector<LMDVDTrack>& subtitleTracks() const { return subtitleTracks_; }
  void setSubtitleTracks(std::vector<LMDVDTrack> tracks) { subtitleTracks_ = std::move(tracks); }

  /// The title's pictures, as stated for its title set.
  const LMDVDVideo& video() const { return video_; }
  void setVideo(LMDVDVideo video) { video_ = std::move(video); }

 private:
  int32_t title_ = 0;
  std::vector<std::shared_ptr<LMDVDMedia>> medias_;
  SubtitlePalette palette_{};
  int64_t duration_ = 0;
  std::vector<std::vector<LMDVDCell>> cells_{1};  // of each angle
  std::vector<size_t> chapters_;
  std::vector<LMDVDTrack> audioTracks_;
  std::vector<LMDVDTrack> subtitleTracks_;
  LMDVDVideo video_;
};

}  // namespace kestrel
