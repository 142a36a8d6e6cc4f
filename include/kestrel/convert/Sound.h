#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>
#include <kestrel/convert/TrackChoice.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kestrel {

class LMMediaSource;

/// Which sound is to be had; `{}` beside the input means the usual track as it is.
struct SoundSettings {
  std::string input = {};  ///< a file, or a disc (a folder or an image)
  /// The program's own bytes in place of a file; `input` is then what people call them. It is not
  /// opened itself: each reader gets a copy (`LMMediaSource::copy`).
  std::shared_ptr<LMMediaSource> source = {};
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file
  TrackChoice audioTracks = {};   ///< several are mixed

  std::optional<int> sampleRate = {};         ///< Hz; absent: the first track's
  std::optional<int64_t> channelLayout = {};  ///< a channel mask; absent: the first track's
};

/// The sound of a movie as samples, in order and to the sample: silence where the input has a hole,
/// and nothing beyond its end.
///
///     Sound sound({.input = "song.m4a"});
///     std::vector<float> second(sound.sampleRate() * sound.channels());
///     sound.read(second.data(), sound.sampleRate());
///
/// Use an object from one thread at a time; several objects work side by side. Times are
/// microseconds from the movie's start.
class KESTREL_API Sound {
 public:
  /// Opens the input. `interrupt` is asked from then on, also while sound is read. Throws a
  /// `Failure` for what cannot be opened or has no such sound, and for settings out of range.
  explicit Sound(const SoundSettings& settings, const Interrupt& interrupt = {});
  ~Sound();
  Sound(const Sound&) = delete;
  Sound& operator=(const Sound&) = delete;

  int sampleRate() const;         ///< Hz, of what is read
  int channels() const;           ///< of what is read
  int64_t channelLayout() const;  ///< their mask

  /// How long the movie is; nothing where that is not known.
  std::optional<int64_t> duration() const;

  /// Has reading go on with the sample that is heard at a time, before 0 the first one. It is found
  /// as exactly as the container tells times: to the sample in most, to a millisecond in others.
  void seek(int64_t time);

  /// Reads the next `frames` frames, interleaved, full scale being 1; fewer only at the end. Throws
  /// a `Failure` when interrupted.
  int64_t read(float* samples, int64_t frames);

  /// Whether the sound read so far was there, or the input ended before it.
  Report report() const;

 private:
  class Input;
  std::unique_ptr<Input> input_;
};

}  // namespace kestrel
