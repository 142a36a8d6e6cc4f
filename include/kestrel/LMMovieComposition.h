#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kestrel {

class LMMovieCompositionTrack;

/// Sound that a join encodes beside the pictures that it copies: the host brings the samples of
/// each track, as the pictures go on. Times are microseconds from the file's start. Everything is
/// called on the thread of the export.
class KESTREL_API JoinedSound {
 public:
  /// How a track is encoded; samples come as interleaved float of its layout and rate.
  struct Track {
    LMFFMovieFileOutputFormat format = {};            ///< what it says of sound
    int32_t bits = 0;                                 ///< as `LMFFMovieFileOutput::audioBits`
    std::map<std::string, std::string> options = {};  ///< the encoder's own
    std::map<std::string, std::string> tags = {};     ///< of the stream
  };

  virtual ~JoinedSound();

  virtual std::vector<Track> tracks() const = 0;

  /// An input begins: what lies `start` behind its start comes at `begin`, right behind the
  /// pictures of the input before where it `follows`.
  virtual void beginInput(size_t input, int64_t begin, int64_t start, bool follows) = 0;

  /// Whether the input's sound goes on for that long beyond what was read; 0: whether at all.
  virtual bool goesOn(int64_t time) = 0;

  /// The samples of a track from those read before up to `end`; fewer where more may still come.
  virtual std::vector<float> read(size_t track, int64_t end) = 0;

  /// The last samples of a track, at least up to `end`.
  virtual std::vector<float> rest(size_t track, int64_t end) = 0;
};

/// Places streams of several files on one time line and writes them into one file by copying their
/// packets: nothing is decoded but pictures that need hidden ones (`picturesEncodedToHide`).
///
/// The container follows the output path's extension. An export runs on the calling thread, blocks
/// until the file is written, and holds a few seconds of packets at most. It opens the tracks'
/// inputs, which stay open and read to the end: a second export of the same tracks has nothing to
/// write. Nothing fails loudly; `lastError` tells what the last export failed by.
///
/// `tracks` may be read by one thread while another inserts; the rest is for one thread at a time.
class KESTREL_API LMMovieComposition {
 public:
  using TrackList = std::vector<std::shared_ptr<LMMovieCompositionTrack>>;

  LMMovieComposition();
  ~LMMovieComposition();
  LMMovieComposition(const LMMovieComposition&) = delete;
  LMMovieComposition& operator=(const LMMovieComposition&) = delete;

  TrackList tracks() const;
  void setTracks(TrackList tracks);  ///< null ones are left out

  /// Appends a track of the file's first stream at a position (seconds), which is answered so that
  /// another stream can be chosen. The file is opened by the export.
  std::shared_ptr<LMMovieCompositionTrack> insert(const std::string& path, double at, double rate);

  /// Writes every track as a stream of its own, shifted so that its input starts at its position.
  /// Packets of the tracks follow each other in slices of a second. Tracks with the same source and
  /// position are read in one go. A track that has no input or no
  /// such stream is left out. The log names every packet without a presentation time.
  void exportToFile(const std::string& path);

  /// Writes inputs one after the other into the same streams. Consecutive tracks with the same
  /// source are one input; its first track continues the first one of the input before it, and so
  /// on, and all inputs need as many tracks as the first has. Whether the streams fit together is
  /// for the caller to make sure (`streamDifferences`). A source is opened when its turn comes and
  /// closed afterwards, unless it was open before; its demuxer passes over streams that take no
  /// part.
  ///
  /// An input follows right behind the one before, or where the position of its first track says
  /// (`kBehind`: right behind, for the first input 0). A position that is less than a picture away
  /// from right behind means just that, so that rounded lengths neither leave gaps nor add up.
  /// Pictures set the pace; sound follows them, and what the end of one input and the beginning of
  /// the next both have is written once.
  ///
  /// Subtitles move along with the pictures and set nothing. What of an input's subtitles lies
  /// before its first picture or where the next input has begun is cut off. Events of SubStation
  /// Alpha get other numbers where two inputs have the same.
  ///
  /// The first input's tags, such as its title, become the file's. Chapters of all inputs move with
  /// their pictures and are cut like subtitles; MPEG-4 and Matroska take them, other containers
  /// leave them out.
  ///
  /// It fails, with the code `kDoesNotJoin`, where an input begins before the end of the one before
  /// it, does not begin with a key picture, or has pictures without the time stamps that the
  /// container needs, where there is a gap and the container has no place for one: such inputs
  /// have to be encoded anew. The code is `kContainerRefuses` where the container does not take
  /// packets like these.
  void joinToFile(const std::string& path);
  static constexpr double kBehind = -1;
  static constexpr int kDoesNotJoin = -0x4E494F4A;
  static constexpr int kContainerRefuses = -0x46455243;

  // Settings of both, off at first.

  /// Keep the packets' durations. Without, the container tells them from the packets' times, and
  /// the last one has none.
  bool keepsDurations() const;
  void setKeepsDurations(bool keeps);

  /// Has `joinToFile` write encoded sound as well, behind the tracks with pictures; null: none. It
  /// is for tracks of pictures and subtitles, and sound that goes on for longer than its pictures
  /// moves what follows.
  void setJoinedSound(std::shared_ptr<JoinedSound> sound);

  /// Asked now and then; true ends the export soon, as a failure.
  void setInterrupt(std::function<bool()> interrupt);

  /// Told how far on the time line (seconds) the export is, and how many video packets it has
  /// written.
  void setProgress(std::function<void(double seconds, int64_t pictures)> progress);

  /// How many pictures the last export encoded anew, because they need others that their input
  /// decodes and does not show, and that the container can't hide: only what comes first in a file
  /// with an edit list can be. All other hidden pictures that no shown one needs are left out.
  int64_t picturesEncodedToHide() const;

  Error lastError() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
