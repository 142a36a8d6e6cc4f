#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVDMedia.h>
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

/// A sound or subpicture track of a title.
struct LMDVDTrack {
  uint32_t track = 0;  ///< index among the title's tracks of its kind, from 0
  int32_t stream_id =
      0;  ///< id of its container stream; the low four bits are the track's number in a movie
  std::string language;     ///< two letters; "" if the disc does not state one
  std::string name;         ///< display name of the language; "" if unknown
  int32_t channels = 0;     ///< sound only, as stated on the disc
  int32_t sample_rate = 0;  ///< Hz; sound only, as stated on the disc

  bool operator==(const LMDVDTrack&) const = default;
};

using DVDTrack = LMDVDTrack;

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
  const std::vector<LMDVDCell>& cells() const { return cells_; }
  void setCells(std::vector<LMDVDCell> cells) { cells_ = std::move(cells); }

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

 private:
  int32_t title_ = 0;
  std::vector<std::shared_ptr<LMDVDMedia>> medias_;
  SubtitlePalette palette_{};
  int64_t duration_ = 0;
  std::vector<LMDVDCell> cells_;
  std::vector<size_t> chapters_;
  std::vector<LMDVDTrack> audioTracks_;
  std::vector<LMDVDTrack> subtitleTracks_;
};

}  // namespace kestrel
