#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDTitle.h>
#include <kestrel/LMDVDTitleSet.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct dvd_file_s;

namespace kestrel {

/// What a title's own pictures say of themselves.
struct LMDVDPictureFacts {
  int32_t width = 0;  ///< pixels
  int32_t height = 0;
  Rational aspect;     ///< how they are displayed, width by height; 0/1 where they do not say
  Rational framerate;  ///< pictures per second

  bool operator==(const LMDVDPictureFacts&) const = default;
};

using DVDPictureFacts = LMDVDPictureFacts;

/// The input source of one title of a disc, or of one run of its sectors: a virtual file of
/// 2048-byte blocks that the demuxer reads as a program stream.
///
/// A whole title turns into one media for each of its runs, one after another on the time line, for
/// each run may count its time stamps anew; `LMDVDTitleSource` reads a title as one stream instead.
/// One thread reads a volume at a time, whatever the number of sources.
class KESTREL_API LMDVDSource : public LMMediaSource {
 public:
  LMDVDSource();
  ~LMDVDSource() override;

  /// An unopened source of the same title and run, with a position of its own.
  std::shared_ptr<LMMediaSource> copy() const override;

  const std::shared_ptr<LMDVD>& dvd() const { return dvd_; }
  void setDvd(std::shared_ptr<LMDVD> dvd) { dvd_ = std::move(dvd); }

  const std::shared_ptr<LMDVDTitleSet>& title_set() const { return title_set_; }
  void setTitle_set(std::shared_ptr<LMDVDTitleSet> set) { title_set_ = std::move(set); }

  const std::shared_ptr<LMDVDTitle>& title() const { return title_; }
  void setTitle(std::shared_ptr<LMDVDTitle> title) { title_ = std::move(title); }

  /// The run that is read; null for the whole title, which is read from the first sector of the
  /// title set on and meant to be split.
  const std::shared_ptr<LMDVDMedia>& media() const { return media_; }
  void setMedia(std::shared_ptr<LMDVDMedia> media) { media_ = std::move(media); }

  /// The open title VOBs and the I/O context, null before `avio_context`; owned by this.
  dvd_file_s* reader() const { return reader_; }
  AVIOContext* io_context() const { return io_context_; }

  /// The position of the next read in the virtual file, bytes.
  int64_t read_offset() const { return read_offset_; }

  /// The size of all title VOBs of the title set in blocks, once they are open.
  uint32_t blocks() const { return blocks_; }

  AVIOContext* avio_context() override;

  /// Opens as the base does. Start and length are then taken from the run's own navigation, where
  /// it has any: to the tick, where the demuxer estimates.
  void open() override;

  bool isDVD() const override;
  int64_t filesize() const override;
  uint32_t sector_count() const;

  /// Volume, title set and title, counted from 1: "MOVIE_1_1".
  std::string name() const override;
  std::string path() const override;
  const SubtitlePalette* palette() const override;
  std::optional<std::vector<std::string>> audioNames() const override;
  std::optional<std::vector<std::string>> subtitleNames() const override;

  /// A copy of this source for each run of the title.
  std::vector<std::shared_ptr<LMDVDSource>> dvdMediaSources() const;

  /// A media for each run that has pictures or sound and lasts longer than a tenth of a second,
  /// each where the one before ends.
  std::vector<std::shared_ptr<LMFFMedia>> createMedias() override;

  /// Reads blocks from `block` of the virtual file on, no more than it has; returns how many came.
  /// `avio_context` must have been called.
  int64_t readBlock(uint32_t block, int64_t count, uint8_t* buffer);

  /// What the demuxer's read does: whole blocks, or the rest of one. 0 at the end and where reading
  /// fails.
  int32_t read_packet(uint8_t* buffer, int32_t size);

  /// What the demuxer's seek does; see `LMCustomSource::seek`.
  int64_t seek(int64_t offset, int32_t whence);

  /// What the first pictures of the title (or run) say; none when there are none to be read.
  std::optional<LMDVDPictureFacts> pictureFacts();

 private:
  void openReader();

  std::shared_ptr<LMDVD> dvd_;
  std::shared_ptr<LMDVDTitleSet> title_set_;
  std::shared_ptr<LMDVDTitle> title_;
  std::shared_ptr<LMDVDMedia> media_;
  dvd_file_s* reader_ = nullptr;
  AVIOContext* io_context_ = nullptr;
  int64_t read_offset_ = 0;
  uint32_t blocks_ = 0;
};

}  // namespace kestrel
