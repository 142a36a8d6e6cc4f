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

/// The file to which packets are copied, with streams like those of the inputs. `error` keeps the
/// first failure, with the codes of `LMMovieComposition` if the container cannot store the packets.
class CompositionFile {
 public:
  CompositionFile(const std::string& path, std::function<bool()> interrupt);

  /// Adds a stream for packets of `input` and returns its index; -1 on failure.
  int addStream(const AVStream& input);

  /// Adds a stream of encoded sound and returns its index; -1 on failure.
  int addSound(const JoinedSound::Track& track);

  /// Several inputs will follow each other in each stream: removes codec data that only describes
  /// the content of the first. Call before `start`.
  void describeSeveral();

  /// Opens the file and writes its header; false on failure.
  bool start();

  /// Copies an input's tags, such as its title, to the file; call before `start`.
  void setTags(const AVFormatContext& input);

  /// Adds a chapter like one of an input's, between two times (microseconds) in the file; call
  /// before `finish`. Only containers that write chapters last store it.
  void addChapter(const AVChapter& input, int64_t start, int64_t end);

  const AVStream& stream(int index) const { return *muxer_.context()->streams[index]; }
  const AVRational& timeBase(int stream) const { return this->stream(stream).time_base; }

  /// True if the container does not store presentation times, so that pictures may lack them.
  bool storesOnlyOrder() const;

  /// The next packets of a stream come from `input`; false if they cannot continue the stream.
  bool beginInput(const AVStream& input, int stream);

  /// The number of pictures re-encoded because the container cannot hide others that they need.
  int64_t picturesEncodedToHide() const;

  /// The number of packets too damaged to be rewritten.
  int64_t refusedPackets() const;

  /// Takes over a packet stamped in the stream's time base and leaves it blank; false once
  /// something has failed.
  bool write(AVPacket& packet, int stream);

  /// Encodes samples for a stream added by `addSound`; false once something has failed.
  bool writeSound(const JoinedSound::Samples& samples, int stream);

  /// Encodes what is held of the samples; none follow.
  void finishSound(int stream);

  /// Writes held packets and the trailer, and closes the file.
  void finish();

  Error error() const;

 private:
  /// A stream of the file.
  struct Lane {
    Lane(const AVStream& input, AVStream& output, const AVOutputFormat& container)
        : copier(input, output, container) {}

    StreamCopier copier;
    int64_t end = 0;  // of the packets so far, microseconds, for containers without times
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
  bool staysInTime(const AVPacket& packet, int stream);
  void refineMovieTime();
  bool writeReady(Lane& lane);

  FirstError errors_;
  Muxer muxer_{errors_};
  std::map<int, Lane> lanes_;  // by stream
  std::map<int, Sound> sounds_;
};

}  // namespace kestrel
