#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/IndexSet.h>

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

/// Sixteen colours of a disc's subtitles, each 0x00YYCrCb.
using SubtitlePalette = std::array<uint32_t, 16>;

/// The object behind every demuxer: it owns one libavformat context and knows how to open it, here
/// by a path in the file system. Subclasses read from elsewhere (`LMCustomSource`).
///
/// A source is made unopened; `open` makes the context. It lives until `close`, or the source's
/// end, and beyond that for as long as a stream that was made over it, or a read on another thread,
/// needs it. A source serves one media and is read by one thread at a time; a second reader of the
/// same input is a `copy`.
class KESTREL_API LMMediaSource : public std::enable_shared_from_this<LMMediaSource> {
 public:
  using Options = std::map<std::string, std::string>;

  LMMediaSource();
  virtual ~LMMediaSource();
  LMMediaSource(const LMMediaSource&) = delete;
  LMMediaSource& operator=(const LMMediaSource&) = delete;

  /// A new plain source for `path`, whatever class it is asked of.
  static std::shared_ptr<LMMediaSource> mediaWithPath(const std::string& path);

  /// An unopened source of the same class that reads the same input from a position of its own. It
  /// takes over `fullpath` alone; a subclass with more state overrides this.
  virtual std::shared_ptr<LMMediaSource> copy() const;

  /// A `copy` with the same interrupt that shares what is found out about the input: what one of
  /// them has looked for, the other knows.
  std::shared_ptr<LMMediaSource> anotherReader() const;

  /// The demuxing units over this source, opened: one of the video streams and one, over a copy
  /// of the source, of the audio streams; a single one where the input has only one of the two,
  /// where it can be read only once, and where the copy does not open; none where no stream can be
  /// decoded. `streams` limits them to these container indexes; absent, all streams count. The
  /// source must be held by a shared pointer; the first media keeps it.
  std::vector<std::shared_ptr<LMFFMedia>> createMediasWithStreams(
      const std::optional<IndexSet>& streams);

  /// `createMediasWithStreams` over all streams.
  virtual std::vector<std::shared_ptr<LMFFMedia>> createMedias();

  virtual bool isDVD() const;
  virtual bool isSubtitle() const;

  /// The colours of bitmap subtitles; null where the input names none.
  virtual const SubtitlePalette* palette() const;

  /// The I/O context to open through, owned by the source; null to read `path` from the file
  /// system.
  virtual AVIOContext* avio_context();

  /// True while there is an open demuxer.
  bool isOpen() const;

  /// True if the input can be read from any position, and so more than once: false for pipes,
  /// and while not open.
  bool isSeekable() const;

  /// Each stream's codec tag as four characters, lowest byte first; four NULs for tag 0.
  std::vector<std::string> codecs() const;

  /// Logs the entry count, then "key value" for each entry. Null logs nothing.
  void logMedadata(const AVDictionary* dictionary) const;

  /// Logs the metadata of the container and, for each stream, its metadata and codec tag.
  void logFormatContext(const AVFormatContext* context) const;

  /// Opens the demuxer and probes its streams, once; afterwards it does nothing. On failure the
  /// source stays unopened and `lastError` tells why. It waits for no other open. The demuxer's
  /// `duration` is then the input's length from its start on, also where the container counts it
  /// from 0.
  virtual void open();

  /// Closes the demuxer. `open` opens it again, a source by path from its beginning. A subclass
  /// whose I/O the demuxer reads through calls it before that goes.
  ///
  /// Safe from any thread, also while another reads: that read soon fails as if interrupted, and
  /// medias over this source behave like unopened ones. The streams made before keep what
  /// they know.
  void close();

  /// Has the demuxer fill in when pictures are shown where its container, which usually tells,
  /// leaves that out: broadcasts begin with such pictures. Once open, before the first packet is
  /// read.
  void fillInTimes();

  /// Opens, then logs the metadata of the container and of each stream.
  void print_source_stream_info();

  /// The container's first time stamp in microseconds; 0 when it has none or nothing is open.
  virtual int64_t start_time() const;

  /// The last component of `path` without its extension; a slash at the end does not count.
  virtual std::string name() const;

  /// What libavformat opens: `fullpath` here.
  virtual std::string path() const;

  /// The input's size in bytes where the source does the reading itself; 0 here.
  virtual int64_t filesize() const;

  /// The tracks' display names in selection order; absent where the streams' languages tell.
  virtual std::optional<std::vector<std::string>> audioNames() const;
  virtual std::optional<std::vector<std::string>> subtitleNames() const;

  /// The demuxer, null until `open` succeeded; owned by the source, and valid until `close`.
  AVFormatContext* formatContext() const;

  /// The same, which stays valid for as long as the pointer is held.
  std::shared_ptr<AVFormatContext> sharedContext() const;

  /// Takes a demuxer that the host has opened and probed by itself, and closes the one before it.
  /// Null closes alone. The host keeps an I/O context of its own alive for as long as the demuxer.
  void setFormatContext(AVFormatContext* context);

  /// The short name of the demuxer to use ("rawvideo"); "": the one that fits the input's bytes. An
  /// unknown name fails the `open`.
  std::string inputFormat() const;
  void setInputFormat(const std::string& name);

  /// What `open` tells the demuxer, by the media libraries' names ("framerate", "25"). What it does
  /// not know is ignored.
  Options demuxerOptions() const;
  void setDemuxerOptions(Options options);

  /// The path that the source was made for, "" for sources without one.
  std::string fullpath() const;
  void setFullpath(const std::string& path);

  /// Reads the next packet of the open demuxer, which the caller unrefs; false at the end, and
  /// where reading failed, which `lastError` then tells.
  ///
  /// Times rise from the beginning to the end: where the clock of a transport or program stream
  /// jumps, as where two recordings lie in one file, what follows is moved to where the time before
  /// ended, sound and pictures alike. The container's facts (duration, start, bit rate) then tell
  /// of the moved times. To know that of a file that can be read from any place, `open` looks at it
  /// in some dozens of places, and reads it through where they do not tell one clock.
  bool readPacket(AVPacket* packet);

  /// Goes to the last place before a time (microseconds, as packets carry it) from which it may be
  /// decoded; false where there is none.
  bool seekBackward(int64_t time);

  /// Goes to the input's first byte; false where that can't be done.
  bool rewind();

  /// Why the last `open` failed, or why reading ended before the input's end.
  Error lastError() const;

  /// Asked now and then while the source opens or reads; true makes that call fail soon. A
  /// media's copy hands it on to its own source. Empty: never.
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
