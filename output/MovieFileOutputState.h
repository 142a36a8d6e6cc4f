#pragma once

#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/Guarded.h"
#include "support/copy/CopyClock.h"
#include "support/copy/Muxer.h"
#include "support/copy/StreamCopier.h"
#include "support/encode/Palette.h"
#include "support/encode/SoundEncoder.h"
#include "support/encode/SubtitleConverter.h"

namespace kestrel {

/// State shared by the two source files of the class: setting up and writing.
struct LMFFMovieFileOutput::State {
  /// An encoded sound stream.
  struct Sound {
    LMFFAudioFormat input;  // format of the host's samples
    std::shared_ptr<LMFFAudioResample> resample;
    SoundEncoder encoder;

    SoundQueue queue() const;
  };

  /// Null for null, for a copied stream, and if the encoder could not be opened.
  StreamEncoder* encoderOf(const AVStream* stream) const { return find(encoders, stream); }

  /// Null for null and for anything but an encoded sound stream.
  Sound* soundOf(const AVStream* stream);
  Sound* writingSoundOf(const AVStream* stream);

  /// Null for null and for an encoded stream.
  StreamCopier* copyOf(const AVStream* stream) const { return find(copies, stream); }

  /// Null for null and for anything but subtitles that are converted.
  SubtitleConverter* textOf(const AVStream* stream) const { return find(texts, stream); }

  /// Like `encoderOf`, but null unless the file is being written.
  StreamEncoder* writingEncoderOf(const AVStream* stream) const {
    return muxer.isWriting() ? encoderOf(stream) : nullptr;
  }

  void applyTags();
  void addChapters();  ///< unless there are some already

  PacketTaker writerOf(const AVStream& stream);
  bool encode(StreamEncoder& encoder, AVFrame& frame, int64_t duration);
  void encodeConverted(StreamEncoder& encoder, int64_t duration);
  bool writeNextPacket(StreamEncoder& encoder);
  void drain(const AVStream* stream);

  AVStream* openEncoder(const AVCodec& codec, const ConfigurationBlock& block);
  /// By the encoder's name, or "" by codec; null, which is noted, where there is none of that type.
  AVStream* openStream(const std::string& name, int codec, AVMediaType type,
                       const ConfigurationBlock& block);
  int64_t copiedTime(const AVStream* stream) const;
  void writeCovers();
  void beginCopies();
  bool restamp(AVPacket& packet, const LMFFImage& item, const AVStream& stream);
  void muxReady(StreamCopier& copy);

  int64_t microseconds(int64_t time, const AVStream* stream) const;

  // Settings.
  std::shared_ptr<LMFFAudioResample> resample = std::make_shared<LMFFAudioResample>();
  std::shared_ptr<LMFFImageColorspaceConverter> videoConverter =
      std::make_shared<LMFFImageColorspaceConverter>();
  Guarded<std::string> path;
  Guarded<LMFFAudioFormat> audioInputFormat{lm_get_default_audio_format()};
  Guarded<LMFFMovieFileOutputFormat> movieFormat{lm_get_default_movie_file_ouput_format()};
  std::string formatName;
  std::string videoEncoderName;
  std::string audioEncoderName;
  int videoPixelFormat = AV_PIX_FMT_NONE;
  Rational videoTick = {0, 1};
  std::optional<bool> topFieldFirst;
  Entries videoOptions;
  std::string videoStatistics;  // the encoder reads it as long as it is open
  Entries audioOptions;
  int32_t audioBits = 0;
  bool keepsAudioFloats = false;
  int64_t copiedSoundBegin = 0;  // microseconds
  bool keepsCopiedTimes = false;
  Entries muxerOptions;
  LMFFVideoColor outputColor;
  Entries metadata;
  Entries videoMetadata;
  Entries audioMetadata;
  std::vector<Chapter> chapters;
  std::function<bool()> interrupt;
  int64_t fragmentLength = 0;  // microseconds
  FragmentTaker fragmentTaker;

  // The file.
  FirstError errors;
  Muxer muxer{errors};
  AVStream* audioStream = nullptr;
  AVStream* videoStream = nullptr;
  bool copyAudio = false;
  bool copyVideo = false;
  std::vector<std::unique_ptr<StreamEncoder>> encoders;
  std::vector<std::unique_ptr<StreamCopier>> copies;
  std::vector<std::unique_ptr<SubtitleConverter>> texts;
  std::map<const AVStream*, CopyClock> copyClocks;
  std::vector<std::pair<AVStream*, PacketPtr>> covers;  // to be written once the file is begun
  std::deque<Sound> sounds;

  // Writing.
  int64_t videoTime = 0;                   // of encoded pictures
  std::optional<PaletteReducer> palettes;  // where the encoder takes pictures with palettes
  std::optional<FragmentGrid> keys;        // of encoded pictures that have to be key pictures

  // After `stopOutput`, what the streams had come to:
  int64_t audioEnd = 0;
  int64_t videoEnd = 0;
  int64_t refusedPackets = 0;
  int64_t picturesEncodedToHide = 0;

 private:
  template <typename T>
  static T* find(const std::vector<std::unique_ptr<T>>& streams, const AVStream* stream) {
    const auto found = std::find_if(streams.begin(), streams.end(),
                                    [&](const auto& each) { return each->stream() == stream; });
    return found == streams.end() ? nullptr : found->get();
  }
};

/// In which a stream's encoder takes sound.
LMFFAudioFormat formatOf(const AVStream& sound);

}  // namespace kestrel
