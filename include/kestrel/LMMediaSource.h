#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/IndexSet.h>
#include <kestrel/Protocols.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct AVDictionary;
struct AVFormatContext;
struct AVIOContext;
struct AVPacket;

namespace kestrel {

class ClockMap;
class DemuxerReader;
class LMFFMedia;

/// Sixteen subtitle colours of a disc, each 0x00YYCrCb.
using SubtitlePalette = std::array<uint32_t, 16>;

/// An input: owns a demuxer (a libavformat context) and knows how to open it. The base class opens
/// a path; subclasses read from elsewhere (`LMCustomSource`).
///
/// A source is created closed; `open` creates the demuxer. It exists until `close` or the
/// destruction of the source, and longer if a stream made from it or a read on another thread still
/// needs it. A source serves one media and is read by one thread at a time; use a `copy` for a
/// second reader.
class KESTREL_API LMMediaSource : public std::enable_shared_from_this<LMMediaSource> {
 public:
  using Options = std::map<std::string, std::string>;

  LMMediaSource();
  virtual ~LMMediaSource();
  LMMediaSource(const LMMediaSource&) = delete;
  LMMediaSource& operator=(const LMMediaSource&) = delete;

  /// A new plain source for `path`, also when called on a subclass.
  static std::shared_ptr<LMMediaSource> mediaWithPath(const std::string& path);

  /// An unopened source for the same input with its own position. The base class returns a plain
  /// source and copies `fullpath`, `inputFormat`, `demuxerOptions` and `protocols`; subclasses
  /// override this.
  virtual std::shared_ptr<LMMediaSource> copy() const;

  /// A `copy` with the same interrupt that shares knowledge about the input: what one reader has
  /// found out is not searched for again.
  std::shared_ptr<LMMediaSource> anotherReader() const;

  /// The opened medias over this source: one with the video streams and one, over a copy of the
  /// source, with the audio streams. A single one if the input has only one of the two or can be
  /// read only once, or if the copy cannot be opened; none if no stream can be decoded. `streams`
  /// selects container indexes; nullopt: all. The source must be held by a shared pointer; the
  /// first media keeps it.
  std::vector<std::shared_ptr<LMFFMedia>> createMediasWithStreams(
      const std::optional<IndexSet>& streams);

  /// `createMediasWithStreams` for all streams.
  virtual std::vector<std::shared_ptr<LMFFMedia>> createMedias();

  virtual bool isDVD() const;
  virtual bool isSubtitle() const;

  /// The colours of bitmap subtitles; null if the input has none.
  virtual const SubtitlePalette* palette() const;

  /// The I/O context to open, owned by the source; null to open `path`.
  virtual AVIOContext* avio_context();

  /// True if a demuxer is open.
  bool isOpen() const;

  /// True if the input can be read from any position, and so more than once; false for pipes and
  /// while closed.
  bool isSeekable() const;

  /// Each stream's codec tag as four characters, lowest byte first; four NULs if the tag is 0.
  std::vector<std::string> codecs() const;

  /// Logs the number of entries, then "key value" for each entry. Null logs nothing.
  void logMedadata(const AVDictionary* dictionary) const;

  /// Logs the container's metadata, then each stream's metadata and codec tag.
  void logFormatContext(const AVFormatContext* context) const;

  /// Opens the demuxer and probes its streams, unless it is open. On failure the source stays
  /// closed and `lastError` tells why. Does not block other sources' `open`. The demuxer's
  /// `duration` then counts from the first time stamp, even if the container counts it from 0.
  virtual void open();

  /// Closes the demuxer. `open` reopens it, a path from its beginning. A subclass with its own I/O
  /// context must call this before freeing it.
  ///
  /// Safe from any thread, also during a read: the read then soon fails as if interrupted, and
  /// medias over this source behave like unopened ones. Existing streams keep their facts.
  void close();

  /// Makes the demuxer calculate presentation times that are missing in a container that usually
  /// stores them (MPEG transport and program streams, MXF); broadcasts start with such pictures.
  /// Call it after `open`, before the first packet is read.
  void fillInTimes();

  /// Opens the source, then logs the metadata of the container and of each stream.
  void print_source_stream_info();

  /// The container's first time stamp, microseconds; 0 if unknown or closed.
  virtual int64_t start_time() const;

  /// The last component of `path` without extension, ignoring trailing slashes.
  virtual std::string name() const;

  /// What libavformat opens; here `fullpath`.
  virtual std::string path() const;

  /// The input's size in bytes if the source does the reading; here 0.
  virtual int64_t filesize() const;

  /// Display names of the tracks in the order of their numbers; nullopt: use the streams'
  /// languages.
  virtual std::optional<std::vector<std::string>> audioNames() const;
  virtual std::optional<std::vector<std::string>> subtitleNames() const;

  /// The demuxer, owned by the source and valid until `close`; null while closed.
  AVFormatContext* formatContext() const;

  /// The same, valid as long as the pointer is held.
  std::shared_ptr<AVFormatContext> sharedContext() const;

  /// Takes ownership of a demuxer that the host has opened and probed, and closes the previous one.
  /// Null only closes. The host must keep its own I/O context alive as long as the demuxer.
  void setFormatContext(AVFormatContext* context);

  /// The short name of the demuxer to use ("rawvideo"); "": detect it. An unknown name makes `open`
  /// fail.
  std::string inputFormat() const;
  void setInputFormat(const std::string& name);

  /// Options that `open` passes to the demuxer, by FFmpeg's names ("framerate", "25"). Unknown ones
  /// are ignored.
  Options demuxerOptions() const;
  void setDemuxerOptions(Options options);

  /// The protocols by which the input, and whatever it names itself, may be read beside files; by
  /// default none. `open` refuses a path that needs another with `AVERROR(EACCES)`.
  Protocols protocols() const;
  void setProtocols(Protocols protocols);

  /// The path of the source; "" if it has none.
  std::string fullpath() const;
  void setFullpath(const std::string& path);

  /// Reads the next packet, which the caller must unref. False at the end or on an error, see
  /// `lastError`.
  ///
  /// Time stamps increase over the whole input: if the clock of a transport or program stream
  /// jumps, for example between two recordings in one file, later packets are shifted to continue
  /// where the earlier ones ended, sound and pictures alike. Duration, start and bit rate of the
  /// container then refer to the shifted times. For seekable files, `open` samples some dozens of
  /// positions, and reads the whole file if they do not fit a single clock.
  bool readPacket(AVPacket* packet);

  /// Seeks to the last position before a time (microseconds, on the packets' clock) from which
  /// decoding can start; false if there is none.
  bool seekBackward(int64_t time);

  /// Seeks to the input's first byte; false if that is not possible.
  bool rewind();

  /// How many of a stream's packets that were read since `open` came incomplete or with wrong
  /// bytes, as the container tells; 0 while closed. Decoders may have made pictures of them all the
  /// same.
  int64_t damagedPackets(int stream) const;

  /// The error of the last `open`, or the error that ended reading early.
  Error lastError() const;

  /// Polled while the source opens or reads; returning true makes that call fail soon. A media's
  /// copy passes it on to its own source. Empty: never interrupt. Set it while no other thread uses
  /// the source.
  std::function<bool()> interrupt() const;
  void setInterrupt(std::function<bool()> interrupt);

 protected:
  friend class LMFFMedia;
  void setLastError(Error error);

 private:
  void startReading(AVFormatContext& context, DemuxerReader& reader);
  std::shared_ptr<const ClockMap> readClock() const;

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
