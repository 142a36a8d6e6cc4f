#pragma once

#include <kestrel/Error.h>

#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMMovieComposition.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/copy/Muxer.h"
#include "support/copy/StreamCopier.h"
#include "support/encode/SoundEncoder.h"

namespace kestrel {

/// The file that packets are copied into, with streams like those of the inputs. What fails first
/// is kept in `error`: with the codes of `LMMovieComposition` where the container cannot hold the
/// packets as they are.
class CompositionFile {
 public:
  CompositionFile(const std::string& path, std::function<bool()> interrupt);

  /// Adds a stream for packets of `input`; -1 when that fails.
  int addStream(const AVStream& input);

  /// Adds a stream of sound that is encoded; -1 when that fails.
  int addSound(const JoinedSound::Track& track);

  /// Says that several inputs follow each other in each stream: what codec data tell of the first
  /// one's content alone is taken out. Before `start`.
  void describeSeveral();

  /// Opens the file and writes its header; false when one of these fails.
  bool start();

  /// Writes an input's tags, such as its title, as the file's own; before `start`.
  void setTags(const AVFormatContext& input);

  /// Adds a chapter like one of an input's, between two times (microseconds) of the file; before
  /// `finish`. Containers that write chapters last keep it.
  void addChapter(const AVChapter& input, int64_t start, int64_t end);

  const AVStream& stream(int index) const { return *muxer_.context()->streams[index]; }
  const AVRational& timeBase(int stream) const { return this->stream(stream).time_base; }

  /// Whether pictures may lack the time at which they are shown: the container does not store it.
  bool storesOnlyOrder() const;

  /// Says that packets of `input` come next in a stream; false where they can't go on in it.
  bool beginInput(const AVStream& input, int stream);

  /// How many pictures were encoded anew, because the container can't hide others that they need.
  int64_t picturesEncodedToHide() const;

  /// Takes over a packet that is stamped in the stream's time base, which is blank afterwards;
  /// false once something has failed.
  bool write(AVPacket& packet, int stream);

  /// Encodes samples of a stream that `addSound` added; false once something has failed.
  bool writeSound(const std::vector<float>& samples, int stream);

  /// The same with the last of them.
  void finishSound(const std::vector<float>& samples, int stream);

  /// Writes what still waits and the trailer, and closes the file.
  void finish();

  Error error() const;

 private:
  /// A stream of the file.
  struct Lane {
    Lane(const AVStream& input, AVStream& output, const AVOutputFormat& container)
        : copier(input, output, container) {}

    StreamCopier copier;
    int64_t end = 0;  // of what came, microseconds, for containers without times
    bool hasBegun = false;
  };

  /// A stream that is encoded.
  struct Sound {
    Sound(AVStream& stream, const AVCodec* codec, const AVOutputFormat& container)
        : encoder(&stream, codec, container) {}

    StreamEncoder encoder;
    LMFFAudioResample converter;
    std::unique_ptr<SoundEncoder> feed;  // once it is open
    int channels = 0;
  };

  static SoundQueue queueOf(LMFFAudioResample& converter);
  bool refuse(std::string why, int code);
  bool placesByOrder() const;
  int64_t durationOf(const AVPacket& packet, int stream) const;
  bool staysInTime(const AVPacket& packet, int stream);
  void refineMovieTime();
  bool writeReady(Lane& lane);

  FirstError errors_;
  Muxer muxer_{errors_};
  std::map<int, Lane> lanes_;  // by stream
  std::map<int, Sound> sounds_;
};

}  // namespace kestrel
