#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVDMedia.h>
#include <kestrel/LMMediaSource.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrel {

/// Neighbouring sectors, counted in the title VOBs of the title set.
struct LMDVDSectors {
  uint32_t first = 0;
  uint32_t last = 0;

  bool operator==(const LMDVDSectors&) const = default;
};

using DVDSectors = LMDVDSectors;

/// One cell of a title: a part of a VOB that is played from its first sector to its last.
struct LMDVDCell {
  uint32_t first_sector = 0;  ///< counted in the title VOBs of the title set
  uint32_t last_sector = 0;
  uint32_t last_vobu_sector = 0;  ///< where the cell's last unit begins
  int32_t vob_id = 0;
  bool restartsClock = false;  ///< its time stamps do not go on from those of the cell before
  int64_t duration = 0;        ///< what the disc says, microseconds

  /// Its own sectors where other angles' lie between them; else empty, and all are its own.
  std::vector<LMDVDSectors> pieces;

  bool operator==(const LMDVDCell&) const = default;
};

using DVDCell = LMDVDCell;

/// One sound or subpicture track of a title.
struct LMDVDTrack {
  uint32_t track = 0;  ///< counted from 0 among the title's tracks of its kind
  int32_t stream_id =
      0;  ///< the id of its container stream, whose low four bits select it in a movie
  std::string language;     ///< two letters, "" where the disc names none
  std::string name;         ///< the language's name for display, "" likewise
  int32_t channels = 0;     ///< of sound, as the disc states
  int32_t sample_rate = 0;  ///< Hz, likewise

  bool operator==(const LMDVDTrack&) const = default;
};

using DVDTrack = LMDVDTrack;

/// One title: a program chain of a title set, as sectors and as what the disc says of it.
///
/// Made by `LMDVD::open` and not changed afterwards, so any thread may read it.
class KESTREL_API LMDVDTitle {
 public:
  /// The index of the program chain in its title set, from 0.
  int32_t title() const { return title_; }
  void setTitle(int32_t title) { title_ = title; }

  /// The runs of all cells, those of every angle: neighbouring cells of one VOB make one run.
  const std::vector<std::shared_ptr<LMDVDMedia>>& medias() const { return medias_; }
  void setMedias(std::vector<std::shared_ptr<LMDVDMedia>> medias) { medias_ = std::move(medias); }

  /// The sixteen colours of the subpictures; never null.
  const SubtitlePalette* palette() const { return &palette_; }
  void setPalette(const SubtitlePalette& palette) { palette_ = palette; }

  /// The sectors of all runs together, modulo 2^32.
  uint32_t sector_count() const;

  /// "title:0 count:1023".
  std::string description() const;

  /// How long the disc says that the title plays, microseconds.
  int64_t duration() const { return duration_; }
  void setDuration(int64_t duration) { duration_ = duration; }

  /// The cells in the order of playback; of several angles the first one's.
  const std::vector<LMDVDCell>& cells() const { return cells_; }
  void setCells(std::vector<LMDVDCell> cells) { cells_ = std::move(cells); }

  /// Where the chapters begin: indexes of cells, in rising order.
  const std::vector<size_t>& chapters() const { return chapters_; }
  void setChapters(std::vector<size_t> cells) { chapters_ = std::move(cells); }

  /// Where the chapters begin in time as the disc states it, microseconds from the title's start.
  std::vector<int64_t> chapterTimes() const;

  /// The tracks that the title has, in the disc's order.
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
