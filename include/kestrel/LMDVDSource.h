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

/// Properties of a title's pictures as coded in the pictures themselves.
struct LMDVDPictureFacts {
  int32_t width = 0;  ///< pixels
  int32_t height = 0;
  Rational aspect;     ///< display aspect ratio, width / height; 0/1 if not coded
  Rational framerate;  ///< pictures per second

  bool operator==(const LMDVDPictureFacts&) const = default;
};

using DVDPictureFacts = LMDVDPictureFacts;

/// The source of one title of a disc, or of one run of its sectors: a virtual file of 2048-byte
/// blocks that the demuxer reads as a program stream.
///
/// A whole title becomes several medias, one per run, in sequence on the time line, because each
/// run may restart its time stamps; `LMDVDTitleSource` reads a title as one stream instead. Sources
/// of a volume take turns at reading.
class KESTREL_API LMDVDSource : public LMMediaSource {
 public:
  LMDVDSource();
  ~LMDVDSource() override;

  /// An unopened source of the same title and run, with its own position.
  std::shared_ptr<LMMediaSource> copy() const override;

  const std::shared_ptr<LMDVD>& dvd() const { return dvd_; }
  void setDvd(std::shared_ptr<LMDVD> dvd) { dvd_ = std::move(dvd); }

  const std::shared_ptr<LMDVDTitleSet>& title_set() const { return title_set_; }
  void setTitle_set(std::shared_ptr<LMDVDTitleSet> set) { title_set_ = std::move(set); }

  const std::shared_ptr<LMDVDTitle>& title() const { return title_; }
  void setTitle(std::shared_ptr<LMDVDTitle> title) { title_ = std::move(title); }

  /// The run to read; null for the whole title, which is read from the first sector of the title
  /// set and meant to be split by `createMedias`.
  const std::shared_ptr<LMDVDMedia>& media() const { return media_; }
  void setMedia(std::shared_ptr<LMDVDMedia> media) { media_ = std::move(media); }

  /// The open title VOBs and the I/O context, owned by this object; null before `avio_context`.
  dvd_file_s* reader() const { return reader_; }
  AVIOContext* io_context() const { return io_context_.get(); }

  /// The position of the next read in the virtual file, in bytes.
  int64_t read_offset() const { return read_offset_; }

  /// The size of all title VOBs of the title set in blocks, once open.
  uint32_t blocks() const { return blocks_; }

  AVIOContext* avio_context() override;

  /// Opens like the base class. Start and duration are then taken from the run's navigation data,
  /// if it has any, which is exact, unlike the demuxer's estimate.
  void open() override;

  bool isDVD() const override;
  int64_t filesize() const override;
  uint32_t sector_count() const;

  /// Names of volume, title set and title, the numbers counted from 1: "MOVIE_1_1".
  std::string name() const override;
  std::string path() const override;
  const SubtitlePalette* palette() const override;
  std::optional<std::vector<std::string>> audioNames() const override;
  std::optional<std::vector<std::string>> subtitleNames() const override;

  /// A copy of this source for each run of the title.
  std::vector<std::shared_ptr<LMDVDSource>> dvdMediaSources() const;

  /// A media for each run that has pictures or sound and is longer than 0.1 s, each starting where
  /// the previous one ends.
  std::vector<std::shared_ptr<LMFFMedia>> createMedias() override;

  /// Reads blocks of the virtual file from `block` on, up to its end, and returns how many. Call
  /// `avio_context` first.
  int64_t readBlock(uint32_t block, int64_t count, uint8_t* buffer);

  /// The demuxer's read: whole blocks, or the rest of one. Returns 0 at the end and on read errors.
  int32_t read_packet(uint8_t* buffer, int32_t size);

  /// The demuxer's seek; see `LMCustomSource::seek`.
  int64_t seek(int64_t offset, int32_t whence);

  /// The properties of the first pictures of the title (or run); nullopt if no picture can be read.
  std::optional<LMDVDPictureFacts> pictureFacts();

 private:
  void openReader();

  std::shared_ptr<LMDVD> dvd_;
  std::shared_ptr<LMDVDTitleSet> title_set_;
  std::shared_ptr<LMDVDTitle> title_;
  std::shared_ptr<LMDVDMedia> media_;
  dvd_file_s* reader_ = nullptr;
  std::shared_ptr<AVIOContext> io_context_;
  int64_t read_offset_ = 0;
  uint32_t blocks_ = 0;
};

}  // namespace kestrel
