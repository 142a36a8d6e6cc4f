#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <string>

struct AVCodecContext;
struct AVPacket;
struct AVStream;

namespace kestrel {

class LMMediaSource;

/// One stream of an input file, placed on the time line of an `LMMovieComposition`.
///
/// The input is opened when it is first needed and stays open as long as the track. A track is used
/// by one thread at a time. An archive holds its path, position and rate, and nothing else.
class KESTREL_API LMMovieCompositionTrack : public Coding {
 public:
  LMMovieCompositionTrack();
  ~LMMovieCompositionTrack() override;
  LMMovieCompositionTrack(const LMMovieCompositionTrack&) = delete;
  LMMovieCompositionTrack& operator=(const LMMovieCompositionTrack&) = delete;

  // Properties.

  /// The input; null until it or `path` is set. Tracks of one `joinToFile` that have the same
  /// source are read in one go.
  std::shared_ptr<LMMediaSource> source() const;
  void setSource(std::shared_ptr<LMMediaSource> source);

  /// The source's path, "" without one. Setting it makes a new source.
  std::string path() const;
  void setPath(const std::string& path);

  /// The stream's index in the input; 0 at first.
  int32_t track() const;
  void setTrack(int32_t index);

  /// The index of the output's stream, set by an export.
  int32_t map() const;
  void setMap(int32_t index);

  /// Where the input's first time stamp lands on the time line, seconds.
  double position() const;
  void setPosition(double seconds);

  /// The playback rate, which is kept and stored; an export does not apply it.
  double rate() const;
  void setRate(double rate);

  /// The input has been read to its end.
  bool finished() const;
  void setFinished(bool finished);

  /// The decoding time of the last packet read, seconds in the input's own time.
  double dts() const;
  void setDts(double seconds);

  /// Where the packets read so far end, seconds after the input's start.
  double reached() const;

  // The input. Without one, and where it has no such stream: 0, null, false.

  void open();

  /// Seconds.
  double startTime() const;

  /// Opens the input; null where that fails or there is no stream at `track`.
  AVStream* avstream();

  int32_t codecID();  ///< `AV_CODEC_ID_…`

  /// A codec context with the stream's parameters, not opened; the track's own.
  AVCodecContext* codecContext();

  /// `AVMEDIA_TYPE_…`: 0 video, 1 audio; -1 where there is no stream.
  int32_t mediaType();
  bool isVideo();
  bool isAudio();

  // Reading.

  /// The input's next packet of any stream; false at the end and when reading fails.
  bool readSourceFrame(AVPacket* packet);

  /// The next packet of the track's own stream, whose decoding time becomes `dts`. False, and
  /// `finished`, when there is none.
  bool readFrame(AVPacket* packet);

  /// Takes note of a packet of the track's own stream that `readSourceFrame` brought, as
  /// `readFrame` does by itself. One without a time does not move the track.
  void passPacket(const AVPacket& packet);

  // Archives.

  std::string codingName() const override;
  void encodeWithCoder(KeyedArchiver& archiver) const override;
  static std::shared_ptr<LMMovieCompositionTrack> initWithCoder(KeyedUnarchiver& unarchiver);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
